"""Draws what a terminal showed as an SVG picture that moves.

    draw_terminal.py SCREENS PICTURE

SCREENS is a folder with a text file for each moment, whose name is a number of milliseconds. Where
pictures do not move, the last moment with a level meter is seen.
"""

import itertools
import pathlib
import sys
from xml.sax.saxutils import escape

from palette import BACKGROUND, FAINT, MUTED, PROMPT, TEXT

CHARACTER, LINE, SIZE = 8.8, 22, 14.6
LEFT, TOP, BAR = 20, 24, 34
SIGN = "$"  # the prompt
SECONDS_AT_END = 4


def read(folder):
    """The time of each screen in seconds, and its lines, without a prompt that waits at the end."""
    screens = []
    for path in sorted(pathlib.Path(folder).iterdir(), key=lambda path: int(path.name)):
        lines = path.read_text().rstrip().split("\n")
        screens.append((int(path.name) / 1000, lines[:-1] if lines[-1] == SIGN else lines))
    return [(time - screens[0][0], lines) for time, lines in screens]


def appearances(screens, row):
    """Each text of this row, with the times when it appears and disappears."""
    texts = [(time, lines[row] if row < len(lines) else "") for time, lines in screens]
    runs = [(text, next(run)[0]) for text, run in itertools.groupby(texts, key=lambda entry: entry[1])]
    ends = [begin for _, begin in runs[1:]] + [None]
    return [(text, begin, end) for (text, begin), end in zip(runs, ends) if text]


def text_of(content, row, attributes):
    """The width is given, since a browser's monospaced font may be of any."""
    y = BAR + TOP + LINE * row
    colour = PROMPT if content.startswith(SIGN) else TEXT
    return (f'<text x="{LEFT}" y="{y}" fill="{colour}" textLength="{CHARACTER * len(content):.1f}" '
            f'lengthAdjust="spacingAndGlyphs"{attributes}>{escape(content)}</text>')


def moving(content, row, begin, end, seconds, is_in_still):
    """A text that is seen from its begin to its end, over and over."""
    times, values = [0], [0]
    for time, value in ((begin, 1), (end, 0)):
        if time is None:
            continue
        if time > 0:
            times.append(time / seconds)
            values.append(value)
        else:
            values[0] = value
    steps = (";".join(f"{time:.4f}".rstrip("0").rstrip(".") for time in times),
             ";".join(map(str, values)))
    attributes = "" if is_in_still else ' opacity="0"'
    animation = (f'<animate attributeName="opacity" calcMode="discrete" dur="{seconds:.1f}s" '
                 f'repeatCount="indefinite" keyTimes="{steps[0]}" values="{steps[1]}"/>')
    return text_of(content, row, attributes).replace("</text>", animation + "</text>")


def draw(folder, picture):
    screens = read(folder)
    rows = max(len(lines) for _, lines in screens)
    columns = max(len(line) for _, lines in screens for line in lines)
    width, height = 2 * LEFT + CHARACTER * columns, BAR + TOP + LINE * rows - 4
    seconds = screens[-1][0] + SECONDS_AT_END
    still = max(time for time, lines in screens if " L [" in lines[-1])
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width:.0f}" height="{height}" '
             f'viewBox="0 0 {width:.0f} {height}" xml:space="preserve" font-size="{SIZE}" '
             'font-family="ui-monospace, SFMono-Regular, Menlo, DejaVu Sans Mono, monospace">',
             f'<rect x="0.5" y="0.5" width="{width - 1:.0f}" height="{height - 1}" rx="8" '
             f'fill="{BACKGROUND}" stroke="{FAINT}"/>']
    parts += [f'<circle cx="{LEFT + 4 + 18 * i}" cy="{BAR / 2 + 1}" r="5" fill="{FAINT}"/>' for i in range(3)]
    parts.append(f'<text x="{width / 2:.0f}" y="{BAR / 2 + 6}" fill="{MUTED}" font-size="12.5" '
                 'text-anchor="middle" font-family="sans-serif">quenlor-record</text>')
    for row in range(rows):
        for content, begin, end in appearances(screens, row):
            is_in_still = begin <= still and (end is None or still < end)
            parts.append(moving(content, row, begin, end, seconds, is_in_still))
    pathlib.Path(picture).write_text("\n".join(parts) + "\n</svg>\n")


if __name__ == "__main__":
    draw(*sys.argv[1:])
