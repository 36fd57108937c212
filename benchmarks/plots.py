"""Draws results as bar and line charts in SVG files, on a dark ground that suits pages of either kind."""

import math
from xml.sax.saxutils import escape

import results
from palette import BACKGROUND, COLOURS, FAINT, MUTED, TEXT

LABELS, BARS, VALUES = 150, 530, 80  # widths
LINE, GAP, TOP = 22, 16, 62
MARGIN, PLOT_WIDTH, PLOT_HEIGHT, LEGEND = 84, 540, 260, 136
# The same in every plot.
COLOUR_OF = dict(zip(("sidecar", "ffmpeg", "GStreamer", "SoX", "two bare captures"), COLOURS))
NAMES = {"pulseaudio": "PulseAudio", "pipewire": "PipeWire"}


def text(x, y, content, anchor="start", weight="normal", colour=TEXT):
    return (f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" font-weight="{weight}" '
            f'fill="{colour}" stroke="{BACKGROUND}" stroke-width="5" paint-order="stroke">'
            f"{escape(content)}</text>")


def line(begin, end, colour, width=1):
    return (f'<line x1="{begin[0]:.1f}" y1="{begin[1]:.1f}" x2="{end[0]:.1f}" y2="{end[1]:.1f}" '
            f'stroke="{colour}" stroke-width="{width}"/>')


def ticks(least, most):
    """Round numbers, about six of them, that reach over this range."""
    rough = (most - least) / 6 or 1
    power = 10 ** math.floor(math.log10(rough))
    step = next(factor * power for factor in (1, 2, 5, 10) if factor * power >= rough)
    return [step * i for i in range(math.floor(least / step), math.ceil(most / step) + 1)]


def heading(title, note):
    return [text(16, 28, title, weight="bold"), text(16, 48, note, colour=MUTED)]


def whisker(least, most, y):
    """From least to most, with an edge that shows it on any bar."""
    pieces = [((least, y), (most, y)), *(((x, y - 4), (x, y + 4)) for x in (least, most))]
    return [line(*piece, colour, width) for colour, width in ((BACKGROUND, 4), (TEXT, 1.4))
            for piece in pieces]


def bar(y, label, values, scale, colour):
    median, least, most = results.spread(values)
    middle = y + LINE / 2
    parts = [text(LABELS - 10, middle + 4, label, "end"),
             f'<rect x="{LABELS}" y="{y + 3}" width="{median * scale:.1f}" height="{LINE - 6}" rx="2" '
             f'fill="{colour}"/>']
    if least < most:
        parts += whisker(LABELS + least * scale, LABELS + most * scale, middle)
    return parts + [text(LABELS + most * scale + 10, middle + 4, f"{median:.1f}", weight="bold")]


def draw(name, title, groups, colour_of):
    """groups: the bars of each heading, as a list of labels and values."""
    groups = {name: [bar for bar in bars if any(bar[1])] for name, bars in groups.items()}
    all_values = [values for bars in groups.values() for _, values in bars]
    marks = ticks(0, max(map(max, all_values)))
    scale = BARS / marks[-1]
    parts, y = [], TOP
    for subject, bars in groups.items():
        parts.append(text(16, y + 15, subject, colour=MUTED))
        y += LINE
        for label, values in bars:
            parts += bar(y, label, values, scale, colour_of(label))
            y += LINE
        y += GAP
    axis = [part for mark in marks for part in (
        line((LABELS + mark * scale, TOP + LINE), (LABELS + mark * scale, y - GAP), FAINT),
        text(LABELS + mark * scale, y + 4, f"{mark:g}", "middle", colour=MUTED))]
    note = f"Bar and number: median of {max(map(len, all_values))} runs. Line: from the least to the most."
    save(name, LABELS + BARS + VALUES, y + 18, heading(title, note) + axis + parts)


def save(name, width, height, parts):
    (results.FOLDER / f"{name}.svg").write_text(
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
        f'viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="13">\n'
        f'<rect width="{width}" height="{height}" rx="8" fill="{BACKGROUND}"/>\n' + "\n".join(parts)
        + "\n</svg>\n")


def draw_lines(name, title, note, units, lines):
    """lines: the points of each label. units: of x and y."""
    points = [point for _, line_points in lines for point in line_points]
    right = max(x for x, _ in points)
    levels = ticks(*(choose(0, *(y for _, y in points)) for choose in (min, max)))
    bottom = TOP + PLOT_HEIGHT

    def place(x, y):
        return (MARGIN + PLOT_WIDTH * x / right,
                bottom - PLOT_HEIGHT * (y - levels[0]) / (levels[-1] - levels[0]))

    parts = heading(title, note)
    for level in levels:
        begin, end = place(0, level), place(right, level)
        parts += [line(begin, end, MUTED if level == 0 else FAINT),
                  text(begin[0] - 10, begin[1] + 4, f"{level:g} {units[1]}", "end", colour=MUTED)]
    parts += [text(place(second, 0)[0], bottom + 20, f"{second:g} {units[0]}", "middle", colour=MUTED)
              for second in ticks(0, right) if second <= right]
    for number, (label, line_points) in enumerate(lines):
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in (place(*point) for point in line_points))
        y = TOP + LINE * number
        # Dashed more and more, so that a line shows through those over it.
        parts += [f'<polyline points="{path}" fill="none" stroke="{COLOUR_OF[label]}" '
                  f'stroke-width="2" stroke-dasharray="8 {8 * number}"/>',
                  f'<rect x="{MARGIN + PLOT_WIDTH + 20}" y="{y}" width="14" height="14" rx="2" '
                  f'fill="{COLOUR_OF[label]}"/>', text(MARGIN + PLOT_WIDTH + 42, y + 12, label)]
    save(name, MARGIN + PLOT_WIDTH + LEGEND, bottom + 34, parts)


def heading_of(server, rates=None):
    name = NAMES[server]
    return f"{name}, output and microphone at {rates.replace('+', 'and')} Hz" if rates else name


def bars_of(result, heading_columns, label_column, column):
    headings = {}
    groups = results.groups(results.read(result), *heading_columns, label_column)
    for (*subject, label), rows in groups.items():
        headings.setdefault(heading_of(*subject), []).append((label, results.numbers(rows, column)))
    return headings


def draw_all():
    """Draws the plots whose results exist."""
    if results.path_of("recorders").exists():
        for name, title, column in (
                ("cpu", "Processor time of the recorder, ms per second of recording", "CPU ms/s"),
                ("wake-ups", "Wake-ups of the recorder per second", "wake-ups/s"),
                ("memory", "Peak resident memory of the recorder, MiB", "peak MiB"),
                ("missing", "Sound missing between program start and stop, ms", "missing ms")):
            draw(name, title, bars_of("recorders", ("server", "rates"), "recorder", column),
                 COLOUR_OF.get)
    if results.path_of("concurrency").exists():
        draw("concurrency", "Processor time of all sidecars at once, ms per second of recording", {
            server: [(f"{count} sidecar{'s' * (count != '1')}", values) for count, values in bars]
            for server, bars in bars_of("concurrency", ("server",), "recordings", "CPU ms/s").items()
        }, lambda _: COLOUR_OF["sidecar"])
    if results.path_of("drift").exists():
        groups = results.groups(results.read("drift"), "recorder")
        draw_lines("drift", "How far the microphone walks away from system audio",
                   "How much later than in the first second; 0 is right. All recorded the same sounds.",
                   ("s", "ms"), [
                       (recorder, list(zip(results.numbers(rows, "second"),
                                           results.numbers(rows, "distance ms"))))
                       for (recorder,), rows in groups.items()])
