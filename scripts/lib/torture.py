"""A parent of the recorder on virtual devices, and checks of its recordings, for torture_*.py."""

import math
import os
import select
import struct
import subprocess

RATE = 48000
HEADER_SIZE = 44
FORMAT = b"WAVEfmt \x10\0\0\0\x01\0\x02\0\x80\xbb\0\0\x00\xee\x02\0\x04\0\x10\0data"
READY = b'{"status":"ready"}\n'
TONES = (440, 1000)
# A whole number of periods of both tones, so that each can be measured by itself.
MEASURED_FRAMES = RATE // 20
# After these both devices and their converters run.
SETTLED_FRAMES = 3 * MEASURED_FRAMES
TIMEOUT_SECONDS = 20


def start_line(output):
    return f'{{"mode":"mixed","outputPath":"{output}","title":"Weekly"}}\n'.encode()


def start(command, folder, **options):
    """Runs the recorder with pipes on its standard streams and its trace in folder."""
    return subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, env={**os.environ, "TMPDIR": str(folder)},
                            **options)


def send(process, line):
    """Writes to the process. Bytes that it no longer reads are lost."""
    try:
        process.stdin.write(line)
        process.stdin.flush()
    except BrokenPipeError:
        pass


def read_ready(process):
    """Returns the ready line, or nothing if the recorder ended instead."""
    if not select.select([process.stdout], [], [], TIMEOUT_SECONDS)[0]:
        raise subprocess.TimeoutExpired(process.args, TIMEOUT_SECONDS)
    return process.stdout.readline()


def channels(recording):
    samples = struct.unpack(f"<{(len(recording) - HEADER_SIZE) // 2}h", recording[HEADER_SIZE:])
    return samples[::2], samples[1::2]


def fault_of_form(recording):
    """Returns what is wrong with the header or length of a finished recording, or None."""
    size = len(recording)
    if size < HEADER_SIZE or recording[:4] != b"RIFF" or recording[8:40] != FORMAT:
        return "a broken header"
    if struct.unpack_from("<I", recording, 4)[0] != size - 8:
        return "a wrong RIFF size"
    if struct.unpack_from("<I", recording, 40)[0] != size - HEADER_SIZE or size % 4:
        return "a wrong data size"
    return None


def amplitude(samples, hertz):
    angle = 2 * math.pi * hertz / RATE
    real = sum(s * math.cos(angle * n) for n, s in enumerate(samples))
    imaginary = sum(s * math.sin(angle * n) for n, s in enumerate(samples))
    return 2 * math.hypot(real, imaginary) / len(samples) / 32767


def fault_of_sound(samples):
    """Returns what is wrong with the tones in MEASURED_FRAMES samples, or None."""
    rest = sum(s * s for s in samples) / len(samples) / 32767**2
    for hertz in TONES:
        level = amplitude(samples, hertz)
        if not 0.24 < level < 0.26:
            return f"a level of {level:.3f} at {hertz} Hz"
        rest -= level * level / 2
    if rest > 1e-5:
        return f"something else at {10 * math.log10(rest):.0f} dB"
    return None


def fault_of_recording(recording):
    """Returns what is wrong with a finished recording of at least SETTLED_FRAMES, or None."""
    if recording is None:
        return "no recording"
    fault = fault_of_form(recording)
    if fault:
        return fault
    left, _ = channels(recording)
    if len(left) < SETTLED_FRAMES:
        return f"only {len(left)} frames"
    return fault_of_sound(left[len(left) // 2:][:MEASURED_FRAMES])
