"""Measures recorders on a private sound server. Run by scripts/private-server.

    capture.py compare|concurrency|profile SERVER PROGRAM RATE MICROPHONE_RATE ROUNDS SECONDS
"""

import os
import subprocess
import sys
import tempfile
import time

import profiling
import recorders
import results
from process_usage import usage_of
from tones import MICROPHONE_HERTZ, RATE, SYSTEM_HERTZ, breaks, level, read_sources

# From a start to the measurement of the cost of recording.
SETTLING_SECONDS = 0.7
CONCURRENT = (1, 4, 16)
BYTES_PER_SECOND = RATE * 4
# The figures that need a recording.
RECORDED = ("start ms", "stop ms", "behind ms", "missing ms", "system breaks", "microphone breaks",
            "system level dB", "microphone level dB")


def server_pids():
    """PipeWire's server is three processes."""
    names = "pulseaudio|pipewire|pipewire-pulse|wireplumber"
    script = os.environ["PRIVATE_SERVER_SCRIPT"]
    found = subprocess.run(["pgrep", "--parent", script, "--exact", names],
                           stdout=subprocess.PIPE, check=True, text=True)
    return [int(pid) for pid in found.stdout.split()]


def measure(group, seconds):
    """Runs all recorders of a group at the same time. Returns the figures of the whole group."""
    with tempfile.TemporaryDirectory() as folder:
        try:
            return record(group, seconds, folder)
        finally:
            for recorder in group:
                recorder.kill()


def record(group, seconds, folder):
    begin = time.monotonic()
    for number, recorder in enumerate(group):
        recorder.start(os.path.join(folder, f"{number}.wav"))
    started = time.monotonic()
    time.sleep(SETTLING_SECONDS)
    cost = cost_of(group, seconds)
    paths = [recorder.path for recorder in group if os.path.exists(recorder.path)]
    written = [os.path.getsize(path) / BYTES_PER_SECOND for path in paths]
    stop = time.monotonic()
    for recorder in group:
        recorder.request_stop()
    for recorder in group:
        recorder.wait()
    stopped = time.monotonic()
    if not paths:
        return cost | dict.fromkeys(RECORDED, "")
    behind = stop - begin - min(written)
    times = [1000 * (started - begin), 1000 * (stopped - stop), 1000 * behind]
    return cost | dict(zip(RECORDED, times + what_was_heard(paths, stop - begin)))


def cost_of(group, seconds):
    pids = [pid for recorder in group for pid in recorder.pids()]
    before, server_before, begin = usage_of(pids), usage_of(server_pids()), time.monotonic()
    time.sleep(seconds)
    after, server_after = usage_of(pids), usage_of(server_pids())
    elapsed = time.monotonic() - begin
    return {
        "CPU ms/s": 1000 * (after.cpu_seconds - before.cpu_seconds) / elapsed,
        "server CPU ms/s": 1000 * (server_after.cpu_seconds - server_before.cpu_seconds) / elapsed,
        "switches/s": (after.switches - before.switches) / elapsed,
        "wake-ups/s": (after.wakeups - before.wakeups) / elapsed,
        "peak MiB": after.peak_kib / 1024,
    }


def what_was_heard(paths, seconds):
    """Missing milliseconds, breaks and levels: the worst of all files."""
    heard = [read_sources(path) for path in paths]
    systems, microphones = zip(*heard)
    return [
        1000 * (seconds - min(map(len, systems)) / RATE),
        sum(breaks(system, SYSTEM_HERTZ) for system in systems),
        sum(breaks(microphone, MICROPHONE_HERTZ) for microphone in microphones),
        min(level(system, SYSTEM_HERTZ) for system in systems),
        min(level(microphone, MICROPHONE_HERTZ) for microphone in microphones),
    ]


def compare(where, program, rates, rounds, seconds):
    """The recorders take turns, so that changes in the machine's load affect them all alike."""
    for number in range(rounds):
        for recorder in recorders.all_of(program, *rates):
            row = {"recorder": recorder.name, "round": number + 1}
            results.append("recorders", where | row | measure([recorder], seconds))


def concurrency(where, program, rounds, seconds):
    for number in range(rounds):
        for count in CONCURRENT:
            group = [recorders.sidecar(program) for _ in range(count)]
            row = {"recordings": count, "round": number + 1}
            results.append("concurrency", where | row | measure(group, seconds))


def main(part, server, program, rate, microphone_rate, rounds, seconds):
    where = {"server": server, "rates": f"{rate} + {microphone_rate}"}
    if part == "compare":
        rates = int(rate), int(microphone_rate)
        compare(where, program, rates, int(rounds), float(seconds))
    elif part == "concurrency":
        concurrency(where, program, int(rounds), float(seconds))
    else:
        profiling.measure(program, float(seconds))


if __name__ == "__main__":
    main(*sys.argv[1:])
