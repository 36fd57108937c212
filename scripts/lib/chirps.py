"""Finds the chirps of scripts/private-server in a recording of both sources, and their distances.

As with tones, the right channel holds the microphone, and left minus right the system audio.
"""

import dataclasses
import math
import wave

import numpy

import signals

RATE = 48000
CHIRP = numpy.array([signals.chirp(i / RATE) for i in range(round(signals.CHIRP_SECONDS * RATE))])
# How much of what is found has to be the chirp; noise alone stays below a tenth.
LEAST_MATCH = 0.7
# Of a recording, in seconds: how far its sources may be apart depends on the time to adapt.
STRETCHES = ((0, 30), (30, 60), (60, math.inf))


@dataclasses.dataclass
class Event:
    """One chirp: where in the recording system audio has it, and how much later the microphone."""
    second: float
    distance_ms: float


def frames_of(path):
    with wave.open(path) as file:
        if (file.getnchannels(), file.getsampwidth(), file.getframerate()) != (2, 2, RATE):
            raise ValueError(f"{path} is not 16-bit stereo at {RATE} Hz")
        return numpy.frombuffer(file.readframes(file.getnframes()), "<i2").reshape(-1, 2)


def find(samples):
    """Where the loudest chirp begins, in fractions of a sample, or nothing."""
    size = len(samples) + len(CHIRP)
    spectrum = numpy.fft.rfft(samples, size) * numpy.fft.rfft(CHIRP, size).conj()
    match = numpy.fft.irfft(spectrum, size)[:len(samples) - len(CHIRP) + 1]
    peak = int(numpy.argmax(match))
    if not 0 < peak < len(match) - 1:
        return None
    energy = numpy.linalg.norm(samples[peak:peak + len(CHIRP)]) * numpy.linalg.norm(CHIRP)
    if match[peak] < LEAST_MATCH * energy or energy == 0:
        return None
    before, at, after = match[peak - 1:peak + 2]
    return peak + (before - after) / (before - 2 * at + after) / 2


def find_around(samples, middle):
    """The same within half a second of a place."""
    begin = round(middle) - RATE // 2
    window = samples(max(begin, 0), begin + RATE + len(CHIRP))
    found = find(window) if len(window) > len(CHIRP) else None
    return None if found is None else max(begin, 0) + found


def events_in(frames):
    """All chirps that both sources have, in order."""
    def system(begin, end):
        left, right = frames[begin:end].astype(float).T
        return left - right

    def microphone(begin, end):
        return frames[begin:end, 1].astype(float)

    events, distance = [], 0
    place = RATE / 2
    while place < len(frames):
        here = find_around(system, place)
        there = None if here is None else find_around(microphone, here + distance)
        if there is not None:
            distance = there - here
            events.append(Event(here / RATE, 1000 * distance / RATE))
        place = (place if here is None else here) + RATE
    return events


def from_the_first(events):
    """The same with distances that begin at nothing."""
    return [Event(event.second, event.distance_ms - events[0].distance_ms) for event in events]


def largest(events):
    """For each of STRETCHES the largest distance of an event in it, or nothing."""
    return [max((abs(event.distance_ms) for event in events if begin <= event.second < end),
                default=None) for begin, end in STRETCHES]


def stretch_name(begin, end):
    return f"{begin} s on" if end == math.inf else f"{begin} to {end} s"
