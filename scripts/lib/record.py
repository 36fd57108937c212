"""Holds the conversation of one recording and tells how loud each source was.

Usage: record.py PROGRAM SECONDS FILE

The recording is the sum of both sources, so their levels cannot be read from it: while it runs,
parec reads each source as well.
"""

import array
import json
import math
import os
import signal
import subprocess
import sys
import threading
import time


class Level:
    """Peak and effective level of a source, measured while it is read."""

    def __init__(self, name, device):
        self.name = name
        self.peak = self.squares = self.samples = 0
        # In a session of its own, so that Ctrl-C ends the recording and not the reader.
        self.reader = subprocess.Popen(
            ["parec", "--device=" + device, "--format=s16le", "--rate=48000", "--channels=2",
             "--latency-msec=100", "--client-name=record", "--stream-name=level of " + name],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
            start_new_session=True)
        self.thread = threading.Thread(target=self.measure, daemon=True)
        self.thread.start()

    def measure(self):
        while block := self.reader.stdout.read(38400):
            samples = array.array("h", block[: len(block) // 2 * 2])
            self.peak = max(self.peak, max(samples), -min(samples))
            self.squares += sum(sample * sample for sample in samples)
            self.samples += len(samples)

    def finish(self):
        self.reader.terminate()
        self.reader.wait()
        self.thread.join()

    def __str__(self):
        if not self.samples:
            return f"{self.name}: could not be measured"
        effective = math.sqrt(self.squares / self.samples)
        return f"{self.name}: peak {decibels(self.peak)}, RMS {decibels(effective)}"


def decibels(value):
    return f"{20 * math.log10(value / 32768):.1f} dBFS" if value else "silent"


def wait_for_end(seconds):
    """Waits; Ctrl-C ends the wait early. Both ways the recording is stopped in good order."""
    try:
        time.sleep(seconds)
    except KeyboardInterrupt:
        print()


def main(program, seconds, file):
    request = {"mode": "mixed", "outputPath": os.path.abspath(file), "title": "Recording"}
    # The trace is only of interest after a failure; its last line is then the error.
    recorder = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True, start_new_session=True)
    trace = []
    thread = threading.Thread(target=lambda: trace.extend(recorder.stderr), daemon=True)
    thread.start()
    levels = []
    try:
        recorder.stdin.write(json.dumps(request) + "\n")
        recorder.stdin.flush()
        ready = recorder.stdout.readline()
        if ready:
            levels = [Level("system audio", "@DEFAULT_MONITOR@"),
                      Level("microphone", "@DEFAULT_SOURCE@")]
            print(f"Recording for {seconds:g} s. Ctrl-C ends it early.", flush=True)
            wait_for_end(seconds)
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        recorder.stdin.write("stop\n")
        recorder.stdin.close()
    except BrokenPipeError:
        pass  # The program has ended; its status and its last words follow.
    result = recorder.stdout.readline()
    status = recorder.wait()
    thread.join()
    for level in levels:
        level.finish()
    if status != 0:
        print(trace[-1].rstrip() if trace else f"The recorder ended with {status}.",
              file=sys.stderr)
        return 1
    result = json.loads(result)
    print(f"{file}: {result['durationSeconds']:.2f} s, {result['sizeBytes']} bytes")
    for level in levels:
        print(level)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], float(sys.argv[2]), sys.argv[3]))
