"""Runs a command and prints the level of each source of the sound server meanwhile.

Usage: levels.py COMMAND [ARGUMENT...]

A recording is the sum of both sources, so their levels cannot be read from it: parec reads each
source beside it. Exits with the command's status.
"""

import array
import math
import signal
import subprocess
import sys
import threading


class Level:
    """Peak and RMS level of a source, measured while it is read."""

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


def main(command):
    levels = [Level("system audio", "@DEFAULT_MONITOR@"), Level("microphone", "@DEFAULT_SOURCE@")]
    # Handled, not ignored: the command would inherit that.
    signal.signal(signal.SIGINT, lambda *_: None)
    try:
        recorder = subprocess.Popen(command)
        signal.signal(signal.SIGTERM, lambda *_: recorder.terminate())
        status = recorder.wait()
    finally:
        for level in levels:
            level.finish()
    if status == 0:
        print(*levels, sep="\n")
    return status if status >= 0 else 128 - status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
