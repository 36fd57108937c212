"""Draws results as bar and line charts in SVG files."""

from xml.sax.saxutils import escape

import results

LABELS, BARS, VALUES = 190, 420, 150  # widths
LINE, GAP, TOP = 22, 14, 40
MARGIN, PLOT_WIDTH, PLOT_HEIGHT = 90, 530, 240
COLOURS = ("#2b6cb0", "#c05621", "#2f855a", "#6b46c1", "#718096", "#a0aec0")


def text(x, y, content, anchor="start", weight="normal"):
    return (f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" font-weight="{weight}">'
            f"{escape(content)}</text>")


def bar(y, label, values, scale, colour):
    """A bar as long as the median, with a line from least to most."""
    median, least, most = results.spread(values)
    middle = y + LINE / 2
    return [
        text(LABELS - 8, middle + 4, label, "end"),
        f'<rect x="{LABELS}" y="{y + 3}" width="{median * scale:.1f}" height="{LINE - 6}" '
        f'fill="{colour}"/>',
        f'<line x1="{LABELS + least * scale:.1f}" y1="{middle}" '
        f'x2="{LABELS + most * scale:.1f}" y2="{middle}" stroke="black"/>',
        text(LABELS + most * scale + 8, middle + 4, f"{median:.1f}"),
    ]


def draw(name, title, groups):
    """groups: the bars of each heading, as a list of labels and values."""
    groups = {heading: [bar for bar in bars if any(bar[1])] for heading, bars in groups.items()}
    scale = BARS / max(max(values) for bars in groups.values() for _, values in bars)
    labels = list(dict.fromkeys(label for bars in groups.values() for label, _ in bars))
    parts, y = [text(8, 22, title, weight="bold")], TOP
    for heading, bars in groups.items():
        parts.append(text(8, y + 15, heading))
        y += LINE
        for label, values in bars:
            parts += bar(y, label, values, scale, COLOURS[labels.index(label) % len(COLOURS)])
            y += LINE
        y += GAP
    save(name, LABELS + BARS + VALUES, y, parts)


def save(name, width, height, parts):
    (results.FOLDER / f"{name}.svg").write_text(
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
        f'font-family="sans-serif" font-size="13">\n'
        f'<rect width="{width}" height="{height}" fill="white"/>\n' + "\n".join(parts)
        + "\n</svg>\n")


def draw_lines(name, title, units, lines):
    """lines: the points of each label. units: of x and y."""
    points = [point for _, line in lines for point in line]
    right = max(x for x, _ in points)
    low, high = (choose(0, *(y for _, y in points)) for choose in (min, max))
    bottom = TOP + PLOT_HEIGHT

    def place(x, y):
        return MARGIN + PLOT_WIDTH * x / right, bottom - PLOT_HEIGHT * (y - low) / ((high - low) or 1)

    parts = [text(8, 22, title, weight="bold"),
             text(MARGIN + PLOT_WIDTH, bottom + 20, f"{right:.0f} {units[0]}", "end")]
    for value in dict.fromkeys((low, 0, high)):
        x, y = place(0, value)
        parts += [text(x - 8, y + 4, f"{value:.1f} {units[1]}", "end"),
                  f'<line x1="{x}" y1="{y:.1f}" x2="{x + PLOT_WIDTH}" y2="{y:.1f}" stroke="#ddd"/>']
    for number, (label, line) in enumerate(lines):
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in (place(*point) for point in line))
        colour = COLOURS[number % len(COLOURS)]
        y = TOP + LINE * number
        # Dashed more and more, so that a line shows through those over it.
        parts += [f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2" '
                  f'stroke-dasharray="8 {8 * number}"/>',
                  f'<rect x="{MARGIN + PLOT_WIDTH + 16}" y="{y}" width="14" height="14" '
                  f'fill="{colour}"/>', text(MARGIN + PLOT_WIDTH + 38, y + 12, label)]
    save(name, MARGIN + PLOT_WIDTH + 140, bottom + 32, parts)


def bars_of(result, heading_columns, label_column, column):
    headings = {}
    groups = results.groups(results.read(result), *heading_columns, label_column)
    for (*heading, label), rows in groups.items():
        headings.setdefault(", ".join(heading), []).append((label, results.numbers(rows, column)))
    return headings


def draw_all():
    """Draws the plots whose results exist."""
    if results.path_of("recorders").exists():
        for name, title, column in (
                ("cpu", "Processor time of the recorder, ms a second", "CPU ms/s"),
                ("wake-ups", "Wake-ups of the recorder a second", "wake-ups/s"),
                ("memory", "Peak resident memory of the recorder, MiB", "peak MiB"),
                ("missing", "Sound missing between program start and stop, ms", "missing ms")):
            draw(name, title, bars_of("recorders", ("server", "rates"), "recorder", column))
    if results.path_of("concurrency").exists():
        draw("concurrency", "Processor time of all sidecars at once, ms a second",
             bars_of("concurrency", ("server",), "recordings", "CPU ms/s"))
    if results.path_of("drift").exists():
        groups = results.groups(results.read("drift"), "recorder")
        draw_lines("drift", "Distance of the microphone from system audio", ("s", "ms"), [
            (recorder, list(zip(results.numbers(rows, "second"), results.numbers(rows, "distance ms"))))
            for (recorder,), rows in groups.items()])
