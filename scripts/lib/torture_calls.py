#!/usr/bin/env python3
"""Fails every system call of the recorder in turn, with strace, and checks the outcome.

    torture_calls.py RECORDER [--quick] [--jobs N] [--only CALL]

Each run makes one recording of about 250 ms under strace, which fails the k-th call of one kind
with one error; k grows until a run shows that there was no such call. strace counts the calls of
each thread separately, so one run may fail a call in each of several threads.

Allowed outcomes: status 0 and a whole recording; or status 1, one line of an error at the end of
standard error, and no recording. permitted_leftover() and permitted_silence() have the exceptions.
An interrupted call and a trace that cannot be written must not end the run. A recording that cannot
be opened, written, rewound or closed must end it.

A kind of call that never occurs is a fault too. Exits with status 77 if strace is missing or not
allowed to trace.

Not failed: reading the clock, which never reaches the system, and what the loader calls before
main(). Not counted: calls about the event loop's own descriptors, which cannot fail on a real
system.
"""

import argparse
import collections
import concurrent.futures
import dataclasses
import functools
import itertools
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import torture

ERRORS = {
    "openat": ["EACCES", "EMFILE", "ENOSPC", "EINTR"],
    "write": ["ENOSPC", "EIO", "EDQUOT", "EINTR"],
    "lseek": ["EIO"],
    "close": ["EIO", "EDQUOT", "EINTR"],
    "unlink": ["EACCES", "EIO"],
    "mkdir": ["ENOSPC", "EACCES"],
    "renameat2": ["ENOSPC", "EACCES", "EINVAL"],
    "read": ["EIO", "EINTR"],
    "newfstatat": ["EIO", "EACCES"],
    "fcntl": ["EBADF"],
    "poll": ["EINTR", "ENOMEM"],
}
# These also fail for good, as on a full or broken disk.
LASTING = ["openat", "write", "close"]
# Failures of these on the recording itself may have lost samples, whatever its form.
ABOUT_THE_SAMPLES = ["openat", "write", "lseek", "close"]
ABOUT_NO_PATH = ["read", "poll", "fcntl"]
RESULT = re.compile(rb'\{"durationSeconds":[0-9.e+-]+,"sizeBytes":([0-9]+)\}\n')
TRACE_TAG = b"[QuenlorHelperAudio] "
RECORDED_SECONDS = 0.25
QUICK_OCCURRENCES = 1
RETRIES = 4


@dataclasses.dataclass(frozen=True)
class Injection:
    call: str
    error: str
    when: str  # as strace takes it: "3", or "3+" for the third and all that follow
    path: str  # "" for all calls, or which of the run's own paths they are about


@dataclasses.dataclass
class Run:
    status: int | None  # None: it hung
    output: bytes
    errors: bytes
    log: list
    recording: bytes | None
    leftovers: list

    def injected(self):
        return [line for line in self.log if "(INJECTED)" in line]


class Folder:
    """The folder of one run. An older file is at the output path, or its folder is missing."""

    def __init__(self, injection):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="quenlor-torture-"))
        self.temporary = self.root / "tmp"
        self.temporary.mkdir()
        self.trace = self.temporary / "quenlor-helper-audio.log"
        self.log = self.root / "strace.log"
        self.output = self.root / "new" / "recording.wav"
        if injection and injection.call in ("unlink", "newfstatat"):
            self.output.parent.mkdir()
            self.output.write_bytes(b"older")

    def paths(self, which):
        return {"": [], "recording": [self.output], "trace": [self.trace],
                "folder": [self.output.parent]}[which]

    def leftovers(self):
        known = {self.temporary, self.trace, self.log, self.output, self.output.parent}
        return [path.name for path in self.root.rglob("*") if path not in known]


def converse(process, output):
    """Acts as the parent. Returns all of the program's standard output and error."""
    torture.send(process, torture.start_line(output))
    ready = torture.read_ready(process)
    if ready:
        time.sleep(RECORDED_SECONDS)
        torture.send(process, b"stop\n")
    rest, errors = process.communicate(timeout=torture.TIMEOUT_SECONDS)
    return ready + rest, errors


def record(recorder, injection):
    folder = Folder(injection)
    command = ["strace", "-f", "-qq", "-y", "-o", str(folder.log)]
    if injection:
        for path in folder.paths(injection.path):
            command += ["-P", str(path)]
        command += ["-e", f"trace={injection.call}", "-e",
                    f"inject={injection.call}:error={injection.error}:when={injection.when}"]
    try:
        with torture.start(command + [recorder], folder.temporary,
                           start_new_session=True) as process:
            try:
                output, errors = converse(process, folder.output)
                status = process.returncode
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)  # strace and the recorder
                output, errors = process.communicate()
                status = None
        return Run(status, output, errors, folder.log.read_text(errors="replace").splitlines(),
                   folder.output.read_bytes() if folder.output.exists() else None,
                   folder.leftovers())
    finally:
        shutil.rmtree(folder.root)


def permitted_leftover(run):
    """Whether a file may stay behind a failed run."""
    if run.recording == b"older":
        return True  # Not touched.
    if any("write(1<" in line for line in run.injected()):
        # The result line was lost; the recording was complete by then.
        return torture.fault_of_recording(run.recording) is None
    # If the header cannot be written when the file is made, the file stays, empty.
    return run.recording == b""


def permitted_silence(run):
    """Whether the error line may be missing."""
    return any(re.search(r"write\(2<|poll\(", line) for line in run.injected())


def fault_of(run, injection):
    """Returns what a run did wrong, or None."""
    if run.leftovers:
        return f"left {run.leftovers}"
    if run.status is None:
        return f"hung at {run.injected()}"
    if run.status == 0:
        return fault_of_success(run, injection)
    if run.status != 1:
        return f"status {run.status}"
    lines = run.errors.split(b"\n")
    if injection.path == "trace" or injection.error == "EINTR":
        return f"ended for no good reason: {lines[-2:]!r}"
    untagged = [line for line in lines[:-1] if not line.startswith(TRACE_TAG)]
    if not permitted_silence(run) and (lines[-1] or untagged != lines[-2:-1]):
        return f"standard error ended with {lines[-3:]!r}"
    if run.recording is not None and not permitted_leftover(run):
        return f"status 1 and a file of {len(run.recording)} bytes"
    return None


def fault_of_success(run, injection):
    if (injection.path == "recording" and injection.call in ABOUT_THE_SAMPLES
            and injection.error != "EINTR"):
        return f"status 0 in spite of {run.injected()}"
    result = RESULT.fullmatch(run.output.removeprefix(torture.READY))
    if not run.output.startswith(torture.READY) or not result:
        return f"status 0 with the output {run.output!r}"
    if run.recording is not None and int(result[1]) != len(run.recording):
        return "a size that is not that of the recording"
    return torture.fault_of_recording(run.recording)


def may_have_starved(run):
    """Whether a fault may be gaps in the tones: on a busy machine the virtual devices are late."""
    return run.recording is not None and torture.fault_of_form(run.recording) is None


def calls_before_main(recorder):
    """Counts the calls of each kind that the loader makes; they are not the program's."""
    counts = collections.Counter()
    for line in record(recorder, None).log:
        call = re.match(r"\d+ +(\w+)\(", line)
        if call and call[1] == "fcntl":
            return counts
        counts[call[1] if call else ""] += 1
    raise RuntimeError("main() was not found in the trace.")


def sweep(recorder, quick, call, error, path, lasting, first):
    """Fails one occurrence after the other. Returns (injection, fault, status) for each."""
    results = []
    occurrence = first
    while not quick or occurrence < first + QUICK_OCCURRENCES:
        injection = Injection(call, error, f"{occurrence}{'+' if lasting else ''}", path)
        run = record(recorder, injection)
        if not run.injected():
            break
        if not any("anon_inode:" in line for line in run.injected()):
            fault = fault_of(run, injection)
            for _ in range(RETRIES):
                if not fault or not may_have_starved(run):
                    break
                print("retried", injection, fault)
                run = record(recorder, injection)
                fault = fault_of(run, injection)
            results.append((injection, fault, run.status))
        occurrence += 1
    return results


def sweeps(arguments):
    """The arguments of all sweep() calls."""
    before = calls_before_main(arguments.recorder)
    for call, errors in ERRORS.items():
        if arguments.only not in ("", call):
            continue
        paths = ("",) if call in ABOUT_NO_PATH else ("recording", "trace", "folder", "")
        for path, error in itertools.product(paths, errors):
            first = 1 if path else before[call] + 1
            yield call, error, path, False, first
            if call in LASTING and path == "recording" and error != "EINTR":
                yield call, error, path, True, first


def can_trace():
    try:
        return subprocess.run(["strace", "-qq", "-o", os.devnull, "true"], check=False,
                              stderr=subprocess.DEVNULL).returncode == 0
    except FileNotFoundError:
        return False


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("recorder")
    parser.add_argument("--quick", action="store_true", help="only the first call of every kind")
    parser.add_argument("--jobs", type=int, default=2 * (os.cpu_count() or 1))
    parser.add_argument("--only", default="", metavar="CALL", choices=["", *ERRORS])
    arguments = parser.parse_args()
    if not can_trace():
        print("SKIPPED: strace is missing or may not trace here.")
        return 77
    table = collections.defaultdict(collections.Counter)
    faults = []
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        fail = functools.partial(sweep, arguments.recorder, arguments.quick)
        for results in pool.map(lambda each: fail(*each), sweeps(arguments)):
            for injection, fault, status in results:
                outcome = "fault" if fault else f"status {status}"
                table[injection.call, injection.error][outcome] += 1
                if fault:
                    faults.append(f"{injection}: {fault}")
    if arguments.only == "":
        faults += [f"{call} was never called" for call in ERRORS
                   if not any(row[0] == call for row in table)]
    print(f"{'call':<12} {'error':<8} {'runs':>5} {'status 0':>9} {'status 1':>9} {'faults':>7}")
    for (call, error), outcomes in sorted(table.items()):
        print(f"{call:<12} {error:<8} {outcomes.total():>5} {outcomes['status 0']:>9} "
              f"{outcomes['status 1']:>9} {outcomes['fault']:>7}")
    for fault in faults:
        print("fault", fault)
    print("count system-calls-failed", sum(outcomes.total() for outcomes in table.values()))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
