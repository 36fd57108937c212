"""Profiles a recording by sampling."""

import os
import subprocess
import tempfile

import recorders
import results

SAMPLES_PER_SECOND = 5000
MOST_FUNCTIONS = 15


def shares(samples, **columns):
    """Rows with their share of all samples, the largest first; the columns have perf's names."""
    report = subprocess.run(
        ["perf", "report", "--input", samples, "--stdio", "--quiet", "--field-separator", "|",
         "--fields", ",".join(("overhead", *columns.values()))],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True, text=True)
    for line in report.stdout.splitlines():
        if "|" in line:
            share, *values = (value.strip() for value in line.split("|"))
            yield dict(zip(columns, values)) | {"share %": share.rstrip("%")}


def measure(program, seconds):
    recorder = recorders.sidecar(program)
    with tempfile.TemporaryDirectory() as folder:
        recorder.start(os.path.join(folder, "recording.wav"))
        samples = os.path.join(folder, "samples")
        subprocess.run(
            ["perf", "record", "--quiet", "--event", "cpu-clock", "--freq", str(SAMPLES_PER_SECOND),
             "--output", samples, "--pid", str(recorder.pids()[0]), "--", "sleep", str(seconds)],
            check=True)
        recorder.request_stop()
        recorder.wait()
        results.write("profile", shares(samples, library="dso"))
        functions = list(shares(samples, library="dso", function="sym"))
        results.write("functions", functions[:MOST_FUNCTIONS])
