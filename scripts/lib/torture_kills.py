#!/usr/bin/env python3
"""Kills recorders, and parents of recorders, at any moment.

    torture_kills.py RECORDER REPAIR [--kills N] [--seed N]

A killed recorder leaves no file, or one that quenlor-wav-repair completes and that reaches up to
the last tick before the kill. A killed parent leaves a recorder that ends within a second, having
finished the recording.
"""

import argparse
import collections
import concurrent.futures
import ctypes
import os
import pathlib
import random
import signal
import subprocess
import sys
import tempfile
import time

import torture

# The virtual devices deliver their first 80 ms in one buffer, and the mixer ticks every 20 ms; the
# rest allows for a busy machine.
LONGEST_LAG_SECONDS = 0.08 + 0.02 + 0.2
# At the stop one source may reach further than the other.
UNEVEN_FRAMES = 1920
ORPHAN_SECONDS = 1
PHASES = ("starting", "recording", "recording", "stopping")

Victim = collections.namedtuple("Victim", "phase recorded_seconds delay_seconds")


def draw_victims(count, seed):
    draw = random.Random(seed)
    longest_delay = {"starting": 0.03, "recording": 0.6, "stopping": 0.004}
    for number in range(count):
        phase = PHASES[number % len(PHASES)]
        recorded = draw.uniform(0, 0.3) if phase == "stopping" else 0
        yield Victim(phase, recorded, draw.uniform(0, longest_delay[phase]))


def kill_recorder(recorder, repair, victim):
    """Returns (what was wrong or None, seconds missing in the file)."""
    with tempfile.TemporaryDirectory(prefix="quenlor-torture-") as folder:
        output = pathlib.Path(folder, "recording.wav")
        with torture.start([recorder], folder) as process:
            torture.send(process, torture.start_line(output))
            if victim.phase != "starting" and not torture.read_ready(process):
                return "did not become ready", 0
            ready = time.monotonic()
            if victim.phase == "stopping":
                time.sleep(victim.recorded_seconds)
                torture.send(process, b"stop\n")
            time.sleep(victim.delay_seconds)
            recorded = time.monotonic() - ready
            process.kill()
        if victim.phase == "starting":
            recorded = 0
            if not output.exists() or output.stat().st_size == 0:
                return None, 0
        return check_remains(output, repair, recorded, victim.phase)


def check_remains(output, repair, recorded, phase):
    if not output.exists():
        return "no file", recorded
    repaired = subprocess.run([repair, output], capture_output=True, check=False)
    if repaired.returncode != 0:
        return f"not repaired: {repaired.stderr!r}", recorded
    content = output.read_bytes()
    fault = torture.fault_of_form(content)
    if fault:
        return fault, recorded
    left, _ = torture.channels(content)
    missing = recorded - len(left) / torture.RATE
    if missing > LONGEST_LAG_SECONDS:
        return f"{missing:.3f} of {recorded:.3f} s missing", missing
    if phase == "stopping":
        left = left[:-UNEVEN_FRAMES]
    if len(left) >= torture.SETTLED_FRAMES:
        fault = torture.fault_of_sound(left[-torture.MEASURED_FRAMES:])
    return fault, missing


def be_parent(recorder, folder, output, phase, report):
    """The parent process, which is going to be killed."""
    process = torture.start([recorder], folder)
    if phase != "waiting":
        torture.send(process, torture.start_line(output))
    if phase in ("recording", "stopping"):
        torture.read_ready(process)
        time.sleep(0.2)
    if phase == "stopping":
        torture.send(process, b"stop\n")
    os.write(report, str(process.pid).encode())
    signal.pause()


def orphan(recorder, folder, output, phase):
    """Kills a parent in a phase. Returns the recorder's exit status, or None if it lives on."""
    reader, report = os.pipe()
    parent = os.fork()
    if parent == 0:
        try:
            be_parent(recorder, folder, output, phase, report)
        finally:
            os._exit(1)
    os.close(report)
    process = int(os.read(reader, 20) or 0)
    os.close(reader)
    os.kill(parent, signal.SIGKILL)
    os.waitpid(parent, 0)
    deadline = time.monotonic() + ORPHAN_SECONDS
    while time.monotonic() < deadline:
        ended, status = os.waitpid(process, os.WNOHANG)
        if ended:
            return os.waitstatus_to_exitcode(status)
        time.sleep(0.002)
    os.kill(process, signal.SIGKILL)
    os.waitpid(process, 0)
    return None


def fault_of_orphan(recorder, phase):
    with tempfile.TemporaryDirectory(prefix="quenlor-torture-") as folder:
        output = pathlib.Path(folder, "recording.wav")
        status = orphan(recorder, folder, output, phase)
        if status is None:
            return "outlived its parent"
        # The result line may have been written before the parent died.
        if status != 1 and (status, phase) != (0, "stopping"):
            return f"ended with status {status}"
        if not output.exists():
            return "no file" if phase in ("recording", "stopping") else None
        return "a file" if phase == "waiting" else torture.fault_of_form(output.read_bytes())


def sweep_orphans(recorder, rounds):
    # Orphans become children of this process, so that it can wait for them.
    pr_set_child_subreaper = 36
    if ctypes.CDLL(None).prctl(pr_set_child_subreaper, 1) != 0:
        raise OSError("This process cannot wait for orphans.")
    phases = ("waiting", "starting", "recording", "stopping")
    for number in range(rounds):
        for phase in phases:
            fault = fault_of_orphan(recorder, phase)
            if fault:
                yield f"round {number}, orphan while {phase}: {fault}"
    print("count parents-killed", rounds * len(phases))


def sweep_recorders(recorder, repair, victims):
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        results = list(pool.map(lambda each: kill_recorder(recorder, repair, each), victims))
    for victim, (fault, _) in zip(victims, results):
        if fault:
            yield f"{victim}: {fault}"
    print("count recorders-killed", len(victims))
    print("count most-missing-milliseconds", round(1000 * max(missing for _, missing in results)))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("recorder")
    parser.add_argument("repair")
    parser.add_argument("--kills", type=int, default=10)
    parser.add_argument("--seed", type=int, default=1)
    arguments = parser.parse_args()
    faults = list(sweep_orphans(arguments.recorder, max(3, arguments.kills // 10)))
    victims = list(draw_victims(arguments.kills, arguments.seed))
    faults += sweep_recorders(arguments.recorder, arguments.repair, victims)
    for fault in faults:
        print("fault", fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
