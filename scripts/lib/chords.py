"""Writes a few chords, plucked and spread from left to right, as a WAV file.

    chords.py FILE
"""

import sys
import wave

import numpy

RATE = 48000
SECONDS = 9.0
# When each chord begins, and its keys; 69 is 440 Hz.
CHORDS = ((0.3, (45, 57, 60, 64, 69, 76)), (2.3, (41, 57, 60, 65, 69, 77)),
          (4.3, (48, 55, 60, 64, 67, 79)), (6.3, (43, 55, 59, 62, 71, 74)))
SECONDS_BETWEEN_KEYS = 0.11
PARTIALS = 14


def pluck(hertz, seconds):
    """Higher partials are softer and fade sooner."""
    time = numpy.arange(int(seconds * RATE)) / RATE
    sound = sum(numpy.sin(2 * numpy.pi * n * hertz * time) * numpy.exp(-time * (0.7 + 0.35 * n)) / n ** 1.2
                for n in range(1, PARTIALS + 1) if n * hertz < RATE / 2)
    attack = numpy.minimum(time / 0.004, 1)
    release = numpy.minimum((seconds - time) / 0.3, 1)
    return sound * attack * release


def music():
    frames = numpy.zeros((int(SECONDS * RATE), 2))
    for begin, keys in CHORDS:
        for place, key in enumerate(keys):
            start = int((begin + place * SECONDS_BETWEEN_KEYS) * RATE)
            sound = pluck(440 * 2 ** ((key - 69) / 12), min(2.6, SECONDS - start / RATE))
            right = place / (len(keys) - 1)
            frames[start:start + len(sound), 0] += sound * numpy.sqrt(1 - 0.8 * right)
            frames[start:start + len(sound), 1] += sound * numpy.sqrt(0.2 + 0.8 * right)
    return 0.4 * frames / abs(frames).max()


def main(path):
    with wave.open(path, "wb") as file:
        file.setnchannels(2)
        file.setsampwidth(2)
        file.setframerate(RATE)
        file.writeframes((32767 * music()).astype("<i2").tobytes())


if __name__ == "__main__":
    main(*sys.argv[1:])
