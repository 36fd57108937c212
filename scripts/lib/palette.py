"""The colours of all pictures: light on a dark ground of their own, for pages of either kind."""

BACKGROUND = "#14171f"
FAINT = "#2c3340"  # lines of a grid
MUTED = "#9aa5b5"  # axes
TEXT = "#e4e9f0"
COLOURS = ("#5cb8ff", "#ffa657", "#6ddb8e", "#c79bff", "#8b98ab")
CHANNELS = ("#45d0c0", "#f2c14e")
PROMPT = "#6ddb8e"
