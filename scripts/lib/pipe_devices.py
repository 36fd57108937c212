"""The hardware behind PulseAudio's pipe sink and pipe source, each with a clock of its own.

Takes the sink's samples, 32-bit floats in stereo, exactly by the machine's monotonic clock, and gives
the source those of a mono microphone whose clock is off by PPM. A chirp sounds at the same time of the
machine's clock to both; a tone has its frequency by the clock of the device. Ends with the server.
"""

import argparse
import array
import itertools
import os
import sys
import time

from signals import signal

PERIOD = 0.005
SAMPLE_BYTES = 4
SINK_CHANNELS = 2
# What the server may leave undone for a while, as a null sink lets it, before the device goes on.
LONGEST_DELAY = 0.5


def hurry():
    """A device does not wait for a processor. The priority is below that of the server itself."""
    try:
        os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(15))
    except PermissionError:
        pass


class Device:
    """Has transferred all samples before a position, or let them go."""

    def __init__(self, name, rate):
        self.name = name
        self.rate = rate
        self.position = 0

    def run_until(self, seconds):
        due = int(seconds * self.rate)
        try:
            self.position += self.transfer(due)
        except BlockingIOError:
            pass
        if due - self.position > LONGEST_DELAY * self.rate:
            milliseconds = 1000 * (due - self.position) / self.rate
            print(f"device: the {self.name} lost {milliseconds:.1f} ms", file=sys.stderr, flush=True)
            self.position = due


class Sink(Device):
    def __init__(self, path, rate):
        super().__init__("sink", rate)
        self.pipe = os.open(path, os.O_RDONLY | os.O_NONBLOCK)

    def transfer(self, due):
        frame = SINK_CHANNELS * SAMPLE_BYTES
        return len(os.read(self.pipe, (due - self.position) * frame)) // frame


class Source(Device):
    def __init__(self, path, rate, ppm, name):
        super().__init__("source", rate * (1 + ppm / 1e6))
        self.pipe = os.open(path, os.O_WRONLY | os.O_NONBLOCK)
        sound = signal(name)
        sound_rate = self.rate if name == "chirp" else rate
        self.sample_at = lambda position: sound(position / sound_rate)

    def transfer(self, due):
        samples = array.array("f", map(self.sample_at, range(self.position, due)))
        return os.write(self.pipe, samples) // SAMPLE_BYTES


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--sink", nargs=2, metavar=("PIPE", "RATE"), required=True)
    parser.add_argument("--source", nargs=2, metavar=("PIPE", "RATE"), required=True)
    parser.add_argument("--ppm", type=float, required=True)
    parser.add_argument("--signal", required=True, help="of signals.py")
    options = parser.parse_args()
    sink = Sink(options.sink[0], int(options.sink[1]))
    source = Source(options.source[0], int(options.source[1]), options.ppm, options.signal)
    hurry()
    begin = time.monotonic()
    try:
        for period in itertools.count(1):
            time.sleep(max(begin + period * PERIOD - time.monotonic(), 0))
            elapsed = time.monotonic() - begin
            sink.run_until(elapsed)
            source.run_until(elapsed)
    except BrokenPipeError:
        pass


if __name__ == "__main__":
    main()
