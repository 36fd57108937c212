"""Finds the tones of scripts/private-server in a recording of both sources.

The server plays 997 Hz on the output's left channel only and 440 Hz on a mono microphone, each with
an amplitude of 0.25. So the right channel of a recording is the microphone, and left minus right is
system audio.
"""

import math
import wave

import numpy

RATE = 48000
SYSTEM_HERTZ, MICROPHONE_HERTZ = 997, 440
AMPLITUDE = 0.25 * 32768
# Seconds left out at the beginning and the end, where one source is longer than the other.
SETTLED, TAIL = 0.5, 0.1
# In steps of 16 bits. One sample lost or repeated departs by up to 470, or 1070 in the higher tone,
# and is overlooked only where it falls on the crest; a server that corrects its clocks while it
# resamples departs by 21.
TOLERANCE = 64
# Seconds for which a break rings in a resampler.
RINGING = 0.005


def read_sources(path):
    """The system's samples and the microphone's, in steps of 16 bits."""
    with wave.open(path) as file:
        if (file.getnchannels(), file.getsampwidth(), file.getframerate()) != (2, 2, RATE):
            raise ValueError(f"{path} is not 16-bit stereo at {RATE} Hz")
        frames = numpy.frombuffer(file.readframes(file.getnframes()), "<i2").astype(float)
    left, right = frames[0::2], frames[1::2]
    return left - right, right


def settled(samples, rate=RATE):
    return samples[int(SETTLED * rate):len(samples) - int(TAIL * rate)]


def breaks(samples, hertz, rate=RATE):
    """Counts the breaks of a tone: where y[n] departs from 2 cos(w) y[n-1] - y[n-2]."""
    factor = 2 * math.cos(2 * math.pi * hertz / rate)
    y = settled(samples, rate)
    broken = numpy.flatnonzero(numpy.abs(y[2:] - factor * y[1:-1] + y[:-2]) > TOLERANCE)
    return int(numpy.sum(numpy.diff(broken, prepend=-rate) > RINGING * rate))


def level(samples, hertz):
    """Decibels above the level at which the tone plays; the median of stretches of 100 ms."""
    length = RATE // 10
    tone = settled(samples)
    stretches = tone[:len(tone) // length * length].reshape(-1, length)
    wave_of_tone = numpy.exp(-2j * math.pi * hertz / RATE * numpy.arange(length))
    amplitude = numpy.median(numpy.abs(stretches @ wave_of_tone)) * 2 / length
    return 20 * math.log10(max(amplitude, 1e-3) / AMPLITUDE)
