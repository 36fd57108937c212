"""Stores the figures: one CSV file per subject, one row per run."""

import csv
import pathlib
import statistics

FOLDER = pathlib.Path(__file__).parent / "results"


def path_of(name):
    return FOLDER / f"{name}.csv"


def forget(*names):
    for name in names:
        path_of(name).unlink(missing_ok=True)


def write(name, rows):
    forget(name)
    for row in rows:
        append(name, row)


def append(name, row):
    path = path_of(name)
    is_new = not path.exists()
    path.parent.mkdir(exist_ok=True)
    with path.open("a", newline="") as file:
        writer = csv.DictWriter(file, row.keys(), lineterminator="\n")
        if is_new:
            writer.writeheader()
        writer.writerow({key: f"{value:.6g}" if isinstance(value, float) else value
                         for key, value in row.items()})


def read(name):
    with path_of(name).open(newline="") as file:
        return list(csv.DictReader(file))


def numbers(rows, column):
    return [float(row[column]) for row in rows if row[column]]


def groups(rows, *columns):
    """Groups the rows by their values in these columns, in the order of first occurrence."""
    found = {}
    for row in rows:
        found.setdefault(tuple(row[column] for column in columns), []).append(row)
    return found


def spread(values):
    """Median, minimum and maximum."""
    return statistics.median(values), min(values), max(values)
