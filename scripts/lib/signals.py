"""What scripts/private-server plays, as functions of the time in seconds.

    signals.py SIGNAL RATE CHANNELS

Writes one second of the signal, which goes on with itself, as 32-bit floats: the signal in the first
channel, silence in the others.
"""

import array
import math
import sys

AMPLITUDE = 0.25
# Short enough to be one event, with frequencies that a microphone of 8000 Hz has as well.
CHIRP_SECONDS, CHIRP_HERTZ = 0.05, (300, 3300)


def tone(hertz):
    return lambda seconds: AMPLITUDE * math.sin(2 * math.pi * hertz * seconds)


def chirp(seconds):
    """Rises once a second, from each full second on."""
    time = seconds % 1
    if time >= CHIRP_SECONDS:
        return 0.0
    low, high = CHIRP_HERTZ
    phase = 2 * math.pi * time * (low + (high - low) * time / CHIRP_SECONDS / 2)
    return AMPLITUDE * math.sin(math.pi * time / CHIRP_SECONDS) ** 2 * math.sin(phase)


def signal(name):
    """The function of that name: a whole number of Hz, "chirp" or "silence"."""
    if name == "silence":
        return lambda _: 0.0
    return chirp if name == "chirp" else tone(int(name))


def main(name, rate, channels):
    samples = array.array("f", bytes(4 * rate * channels))
    samples[::channels] = array.array("f", map(signal(name), (i / rate for i in range(rate))))
    sys.stdout.buffer.write(samples.tobytes())


if __name__ == "__main__":
    main(sys.argv[1], *map(int, sys.argv[2:]))
