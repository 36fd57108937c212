"""Draws a recording: the waveform of both channels, and the spectrogram of their mean.

    draw_recording.py RECORDING PICTURE
"""

import io
import sys
import wave

import matplotlib
import numpy
from PIL import Image

matplotlib.use("Agg")
# pylint: disable=wrong-import-position
from matplotlib import pyplot
from matplotlib.ticker import FuncFormatter, MultipleLocator

from palette import BACKGROUND, CHANNELS, FAINT, MUTED, TEXT

# Of the picture, at two pixels a point of the page.
WIDTH, HEIGHT, PIXELS_PER_POINT = 900, 520, 2
WINDOW, HOP = 4096, 240
# Zeros behind the window, so that low notes have no steps.
TRANSFORM = 4 * WINDOW
LOWEST_DECIBELS, HIGHEST_DECIBELS = -100, -20
LOWEST_HERTZ, HIGHEST_HERTZ = 60, 12000

STYLE = {
    "figure.facecolor": BACKGROUND, "axes.facecolor": BACKGROUND, "savefig.facecolor": BACKGROUND,
    "axes.edgecolor": FAINT, "axes.labelcolor": MUTED, "text.color": TEXT,
    "xtick.color": MUTED, "ytick.color": MUTED, "grid.color": FAINT, "grid.linewidth": 0.6,
    "font.family": "DejaVu Sans", "font.size": 9.5, "axes.spines.top": False,
    "axes.spines.right": False, "axes.axisbelow": True,
}


def samples_of(path):
    """The rate, and both channels from -1 to 1."""
    with wave.open(path) as file:
        frames = numpy.frombuffer(file.readframes(file.getnframes()), "<i2")
        return file.getframerate(), frames.reshape(-1, 2).T / 32768


def spectrogram(rate, samples, hertz):
    """The level of these frequencies at each hop in dBFS: 0 is a sine of full scale."""
    window = numpy.hanning(WINDOW)
    padded = numpy.pad(samples, WINDOW // 2)
    blocks = numpy.lib.stride_tricks.sliding_window_view(padded, WINDOW)[::HOP]
    known = numpy.fft.rfftfreq(TRANSFORM, 1 / rate)
    levels = []
    for block in blocks:
        amplitudes = abs(numpy.fft.rfft(block * window, TRANSFORM)) * 2 / window.sum()
        levels.append(numpy.interp(hertz, known, 20 * numpy.log10(numpy.maximum(amplitudes, 1e-9))))
    return numpy.array(levels).T


def draw_waveform(axes, rate, samples, name, colour):
    """Peaks of each two pixels, so that no sample is left out."""
    block = max(1, len(samples) // WIDTH)
    blocks = samples[:len(samples) // block * block].reshape(-1, block)
    times = (numpy.arange(len(blocks)) + 0.5) * block / rate
    effective = numpy.sqrt((blocks ** 2).mean(1))
    peaks = axes.fill_between(times, blocks.min(1), blocks.max(1), color=colour, alpha=0.5,
                              linewidth=0, label="peak")
    body = axes.fill_between(times, -effective, effective, color=colour, linewidth=0, label="RMS")
    axes.set(ylim=(-1, 1), ylabel=name)
    axes.set_yticks((-0.5, 0, 0.5), ("−0.5", "0", "0.5"))
    axes.grid(True)
    axes.tick_params(length=0, labelbottom=False)
    axes.spines["left"].set_visible(False)
    return peaks, body


def draw_spectrogram(axes, rate, samples):
    hertz = numpy.geomspace(LOWEST_HERTZ, HIGHEST_HERTZ, HEIGHT)
    levels = spectrogram(rate, samples, hertz)
    times = numpy.arange(levels.shape[1]) * HOP / rate
    image = axes.pcolormesh(times, hertz, levels, cmap="magma", shading="nearest",
                            vmin=LOWEST_DECIBELS, vmax=HIGHEST_DECIBELS)
    axes.set(yscale="log", ylim=(LOWEST_HERTZ, HIGHEST_HERTZ), xlabel="time, s", ylabel="frequency, Hz")
    axes.set_yticks((100, 200, 500, 1000, 2000, 5000, 10000))
    axes.yaxis.set_major_formatter(FuncFormatter(lambda value, _: f"{value:,.0f}".replace(",", " ")))
    axes.minorticks_off()
    axes.xaxis.set_major_locator(MultipleLocator(1))
    return image


def draw(recording, picture):
    rate, (left, right) = samples_of(recording)
    pyplot.rcParams.update(STYLE)
    dots = 100 * PIXELS_PER_POINT
    figure = pyplot.figure(figsize=(WIDTH / 100, HEIGHT / 100), dpi=dots)
    grid = figure.add_gridspec(3, 2, height_ratios=(1, 1, 3.1), width_ratios=(60, 1), hspace=0.12,
                               wspace=0.03, left=0.092, right=0.94, top=0.925, bottom=0.095)
    below = figure.add_subplot(grid[2, 0])
    upper, lower = (figure.add_subplot(grid[row, 0], sharex=below) for row in (0, 1))
    shades = draw_waveform(upper, rate, left, "left", CHANNELS[0])
    upper.legend(handles=shades, loc="lower right", bbox_to_anchor=(1.01, 1), ncol=2, frameon=False,
                 labelcolor=MUTED, fontsize=9, borderaxespad=0)
    draw_waveform(lower, rate, right, "right", CHANNELS[1])
    image = draw_spectrogram(below, rate, (left + right) / 2)
    below.set_xlim(0, len(left) / rate)
    figure.colorbar(image, cax=figure.add_subplot(grid[2, 1])).outline.set_visible(False)
    figure.axes[-1].set_title("dBFS", fontsize=9, color=MUTED)
    upper.set_title("A voice at the microphone over chords on the output, recorded in one file",
                    loc="left", fontsize=11)
    figure.align_ylabels()
    save(figure, picture)


def save(figure, picture):
    """With a palette, which the eye does not notice, in a third of the bytes."""
    pixels = io.BytesIO()
    figure.savefig(pixels)
    Image.open(pixels).convert("RGB").quantize(256).save(picture, optimize=True)


if __name__ == "__main__":
    draw(*sys.argv[1:])
