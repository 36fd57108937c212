"""Mixing faster than real time: the sidecar's session and other programs' mixers."""

import os
import resource
import subprocess
import tempfile
import wave

import numpy

import recorders
import results

SYSTEM_HERTZ, MICROPHONE_HERTZ = 440, 1000  # whole numbers, so that a second can be repeated


def run(command):
    """Returns the CPU seconds of the command and its children, and its output."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if done.returncode != 0:
        raise RuntimeError(f"{command[0]} failed: {done.stderr}")
    return after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime, done.stdout


def write_tone(path, rate, channels, hertz, seconds):
    second = 8192 * numpy.sin(2 * numpy.pi * hertz / rate * numpy.arange(rate))
    frames = numpy.repeat(second.round().astype("<i2"), channels).tobytes()
    with wave.open(path, "wb") as file:
        file.setparams((channels, 2, rate, 0, "NONE", ""))
        for _ in range(seconds):
            file.writeframesraw(frames)


def ffmpeg(system, microphone, output):
    return ["ffmpeg", "-y", "-loglevel", "error", "-i", system, "-i", microphone,
            "-filter_complex", recorders.FFMPEG_GRAPH, "-c:a", "pcm_s16le", output]


def sox(system, microphone, output):
    """A process for each source resamples it, since sox mixes equal rates only."""
    def source(path):
        return ["-v", "1", "-t", "sox", f"|sox {path} -p rate 48000 channels 2"]

    return ["sox", "-m", *source(system), *source(microphone), "-b", "16", output]


def measure_sidecar(program, rates, seconds, folder):
    used, printed = run([program, str(seconds), *map(str, rates), os.path.join(folder, "own.wav")])
    figures = dict(pair.split("=") for pair in printed.split())
    return {"CPU s": used, "first minute ms": figures["first_minute_ms"],
            "last minute ms": figures["last_minute_ms"],
            "allocations/tick": figures["allocations_per_tick"]}


def measure_other(command, rates, seconds, folder):
    system, microphone, output = (os.path.join(folder, f"{name}.wav")
                                  for name in ("system", "microphone", "output"))
    write_tone(system, rates[0], 2, SYSTEM_HERTZ, seconds)
    write_tone(microphone, rates[1], 1, MICROPHONE_HERTZ, seconds)
    used, _ = run(command(system, microphone, output))
    with wave.open(output) as file:
        if abs(file.getnframes() / 48000 - seconds) > 1:
            raise RuntimeError(f"{command.__name__} mixed {file.getnframes()} frames")
    return {"CPU s": used, "first minute ms": "", "last minute ms": "", "allocations/tick": ""}


def measure(program, seconds):
    rows = []
    for rates in recorders.RATES:
        def row(mixer, figures):
            rows.append({"rates": f"{rates[0]} + {rates[1]}", "mixer": mixer, "seconds": seconds,
                         "times real time": seconds / figures["CPU s"]} | figures)

        # A folder for each, since an hour is up to 2 GB of files.
        with tempfile.TemporaryDirectory() as folder:
            row("sidecar", measure_sidecar(program, rates, seconds, folder))
        for name, command in (("ffmpeg", ffmpeg), ("SoX", sox)):
            with tempfile.TemporaryDirectory() as folder:
                row(name, measure_other(command, rates, seconds, folder))
    results.write("offline", rows)
