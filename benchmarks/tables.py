"""Writes the figures of the results into a document, between markers that name each table."""

import re

import plots
import results
from chirps import STRETCHES, Event, largest, stretch_name

COST = ("CPU ms/s", "server CPU ms/s", "wake-ups/s", "switches/s", "peak MiB")
RECORDED = ("start ms", "stop ms", "behind ms", "missing ms", "system breaks", "microphone breaks",
            "system level dB", "microphone level dB")
CONCURRENT = ("CPU ms/s", "server CPU ms/s", "wake-ups/s", "peak MiB", "stop ms", "system breaks",
              "microphone breaks")


def number(value):
    """Three significant digits, or all digits before the point."""
    size = abs(value)
    digits = 0 if size >= 100 or value == int(value) else 1 if size >= 10 else 2
    return "0" if size < 0.005 else f"{value:,.{digits}f}".replace(",", " ")


def spread_cell(rows, column):
    values = results.numbers(rows, column)
    if not values:
        return "–"
    median, least, most = (number(value) for value in results.spread(values))
    return median if least == most else f"{median} ({least} to {most})"


def table(header, rows):
    lines = [header, ["---"] * len(header), *rows]
    return "\n".join("| " + " | ".join(map(str, line)) + " |" for line in lines)


def spread_table(name, group_columns, columns):
    """One line per group of runs with figures: median, minimum and maximum of each column."""
    lines = []
    for group, rows in results.groups(results.read(name), *group_columns).items():
        cells = [spread_cell(rows, column) for column in columns]
        if set(cells) != {"–"}:
            lines.append([*group, *cells])
    return table([*group_columns, *columns], lines)


def plain_table(name):
    """The results without grouping."""
    rows = results.read(name)
    return table(list(rows[0]), [[plain_cell(value) for value in row.values()] for row in rows])


def plain_cell(value):
    try:
        return value if value.isdigit() else number(float(value))
    except ValueError:
        return value.replace("|", "\\|") or "–"


def micro_table():
    groups = results.groups(results.read("micro"), "benchmark")
    medians = {name: results.spread(results.numbers(rows, "ns"))[0]
               for (name,), rows in groups.items()}
    lines = []
    for (name,), rows in groups.items():
        if "Limit" in name:
            continue
        limit = limit_of(name, medians)
        lines.append([f"`{name}`", spread_cell(rows, "ns"), speed_cell(rows),
                      number(limit) if limit else "–",
                      number(medians[name] / limit) if limit else "–"])
    return table(["benchmark", "ns", "speed", "limit, ns", "times the limit"], lines)


def limit_of(name, medians):
    """The limit of the same name whose arguments are the first arguments of the benchmark."""
    subject, _, arguments = name.partition("/")
    return next((ns for limit, ns in medians.items()
                 if f"{subject}Limit/{arguments}/".startswith(f"{limit}/")), None)


def speed_cell(rows):
    for unit in ("frames/s", "bytes/s"):
        if values := results.numbers(rows, unit):
            return f"{number(results.spread(values)[0] / 1e6)} M {unit}"
    return "–"


def residual_table():
    rows = results.read("residuals")
    converters = list(dict.fromkeys(row["converter"] for row in rows))
    lines = []
    for (rate, hertz), group in results.groups(rows, "from Hz", "tone Hz").items():
        by_converter = {row["converter"]: row for row in group}
        lines.append([rate, hertz, *(number(float(by_converter[name]["residual dB"]))
                                     for name in converters)])
    return table(["from Hz", "tone Hz", *converters], lines)


def drift_table():
    """And the plot, since there is none either before it was measured."""
    lines = []
    for (recorder,), rows in results.groups(results.read("drift"), "recorder").items():
        events = [Event(float(row["second"]), float(row["distance ms"])) for row in rows]
        distances = [*largest(events), abs(events[-1].distance_ms)]
        lines.append([recorder, *("–" if value is None else f"{value:.2f}" for value in distances)])
    stretches = [f"{stretch_name(*stretch)}, ms" for stretch in STRETCHES]
    return (table(["recorder", *stretches, "at the end, ms"], lines)
            + "\n\n![Distance of the sources](../benchmarks/results/drift.svg)")


TABLES = {
    "machine": lambda: plain_table("machine"),
    "cost": lambda: spread_table("recorders", ("server", "rates", "recorder"), COST),
    "recorded": lambda: spread_table("recorders", ("server", "rates", "recorder"), RECORDED),
    "concurrency": lambda: spread_table("concurrency", ("server", "recordings"), CONCURRENT),
    "distance": lambda: spread_table("distance", ("server",), ("distance ms",)),
    "drift": drift_table,
    "profile": lambda: plain_table("profile"),
    "functions": lambda: plain_table("functions"),
    "offline": lambda: plain_table("offline"),
    "residuals": residual_table,
    "micro": micro_table,
}


def renew(document):
    """Updates the tables of the page and the plots."""
    def renewed(match):
        try:
            body = TABLES[match["name"]]()
        except FileNotFoundError:
            body = "Not measured."
        return f"<!-- table {match['name']} -->\n\n{body}\n\n<!-- end -->"

    text = document.read_text()
    pattern = r"<!-- table (?P<name>\w+) -->.*?<!-- end -->"
    document.write_text(re.sub(pattern, renewed, text, flags=re.DOTALL))
    plots.draw_all()
