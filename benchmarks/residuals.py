"""Measures what resampling adds to a tone."""

import subprocess

import numpy

import results

TARGET_RATE = 48000
SECONDS = 4
TONES = {44100: (997, 10000, 18000, 20000), 16000: (997, 7000)}


def converters(own_program, rate):
    """Commands that convert mono floats of this rate to 48 000 Hz."""
    def ffmpeg(resampler):
        return ["ffmpeg", "-loglevel", "error", "-f", "f32le", "-ar", str(rate), "-ac", "1",
                "-i", "-", "-af", f"aresample={TARGET_RATE}:resampler={resampler}",
                "-f", "f32le", "-"]

    return {
        "sidecar": [own_program, str(rate)],
        "ffmpeg": ffmpeg("swr"),
        "ffmpeg with soxr": ffmpeg("soxr"),
        "SoX": ["sox", "-t", "f32", "-r", str(rate), "-c", "1", "-",
                "-t", "f32", "-r", str(TARGET_RATE), "-"],
    }


def fit(samples, hertz):
    """Amplitude of the tone, and RMS value of everything else."""
    phase = 2 * numpy.pi * hertz / TARGET_RATE * numpy.arange(len(samples))
    basis = numpy.stack([numpy.sin(phase), numpy.cos(phase)], axis=1)
    parts, _, _, _ = numpy.linalg.lstsq(basis, samples, rcond=None)
    rest = samples - basis @ parts
    return float(numpy.hypot(*parts)), float(numpy.sqrt(numpy.mean(rest**2)))


def measure(own_program):
    rows = []
    for rate, tones in TONES.items():
        for hertz in tones:
            tone = 0.5 * numpy.sin(2 * numpy.pi * hertz / rate * numpy.arange(SECONDS * rate))
            for name, command in converters(own_program, rate).items():
                output = subprocess.run(command, input=tone.astype("<f4").tobytes(), check=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
                samples = numpy.frombuffer(output.stdout, "<f4").astype(float)
                # Without the transients of the filters at both ends.
                amplitude, rest = fit(samples[TARGET_RATE:-TARGET_RATE], hertz)
                rows.append({"from Hz": rate, "tone Hz": hertz, "converter": name,
                             "gain dB": 20 * float(numpy.log10(amplitude / 0.5)),
                             "residual dB": 20 * float(numpy.log10(rest / (amplitude / 2**0.5)))})
    results.write("residuals", rows)
