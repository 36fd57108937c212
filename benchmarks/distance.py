"""Measures the distance between the two sources of a recording, for an event that is in both.

    distance.py SERVER PROGRAM ROUNDS

Runs on scripts/private-server without a microphone. Noise plays on the output, and the server remaps
the output's monitor to a source that serves as the microphone. So the distance is due to the recorder
and to the server's resampler.
"""

import contextlib
import os
import subprocess
import sys
import tempfile
import time

import numpy

import recorders
import results
from tones import RATE, read_sources

PLAYED_RATE, MICROPHONE_RATE = 44100, 16000
SECONDS = 1.5


@contextlib.contextmanager
def running(*command, **streams):
    process = subprocess.Popen(command, stderr=subprocess.DEVNULL, **streams)
    try:
        yield process
    finally:
        process.kill()
        process.wait()


def make_microphone():
    subprocess.run(["pactl", "load-module", "module-remap-source", "source_name=microphone",
                    "master=speakers.monitor", f"rate={MICROPHONE_RATE}", "channels=1",
                    "channel_map=front-left", "master_channel_map=front-left", "remix=no"],
                   check=True, stdout=subprocess.DEVNULL)
    time.sleep(0.5)
    subprocess.run(["pactl", "set-default-source", "microphone"], check=True)


def write_noise(path, seconds):
    """On the left channel only, so that the right channel is the microphone alone."""
    noise = numpy.zeros((int(seconds * PLAYED_RATE), 2), "<f4")
    noise[:, 0] = numpy.random.default_rng(1).normal(0, 0.1, len(noise))
    noise.tofile(path)


def distance(program, path):
    """By how many milliseconds system audio is later than the microphone."""
    recorder = recorders.sidecar(program)
    try:
        recorder.start(path)
        time.sleep(SECONDS)
        recorder.request_stop()
        recorder.wait()
    finally:
        recorder.kill()
    system, microphone = (source[RATE // 2:RATE] for source in read_sources(path))
    size = 4 * len(system)
    match = numpy.fft.irfft(numpy.fft.rfft(system, size) * numpy.fft.rfft(microphone, size).conj())
    lag = int(numpy.argmax(match))
    return 1000 * (lag if lag < size / 2 else lag - size) / RATE


def main(server, program, rounds):
    make_microphone()
    listener = "parec", "--raw", "--latency-msec=20"
    with tempfile.TemporaryDirectory() as folder, contextlib.ExitStack() as stack:
        noise = os.path.join(folder, "noise")
        write_noise(noise, (int(rounds) + 1) * (SECONDS + 1))
        for device in recorders.SYSTEM_DEVICE, recorders.MICROPHONE_DEVICE:
            stack.enter_context(running(*listener, f"--device={device}", stdout=subprocess.DEVNULL))
        stack.enter_context(running(
            "pacat", "--playback", "--raw", "--device=speakers", f"--rate={PLAYED_RATE}",
            "--channels=2", "--format=float32le", "--latency-msec=500", noise))
        time.sleep(1)
        for number in range(int(rounds)):
            found = distance(program, os.path.join(folder, "recording.wav"))
            results.append("distance", {"server": server, "round": number + 1, "distance ms": found})


if __name__ == "__main__":
    main(*sys.argv[1:])
