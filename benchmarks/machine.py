"""Describes the machine that the figures were measured on."""

import os
import pathlib
import platform
import subprocess

import results

PACKAGES = ("g++", "libpulse0", "libsoxr0", "pulseaudio", "pipewire", "wireplumber", "ffmpeg",
            "gstreamer1.0-tools", "sox", "libbenchmark1debian")


def processor():
    lines = pathlib.Path("/proc/cpuinfo").read_text().splitlines()
    return next((line.split(": ")[1] for line in lines if line.startswith("model name")),
                platform.machine())


def package_versions():
    """The versions of the packages that are installed."""
    listed = subprocess.run(
        ["dpkg-query", "--show", "--showformat", "${Package},${Version}\n", *PACKAGES],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    return [line.split(",") for line in listed.stdout.split()]


def describe():
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    facts = [("processor", processor()), ("cores", os.cpu_count()), ("memory", f"{memory:.1f} GiB"),
             ("system", platform.freedesktop_os_release()["PRETTY_NAME"]),
             ("kernel", platform.release()),
             ("load before the run", f"{os.getloadavg()[0]:.2f}"), *package_versions()]
    results.write("machine", [{"what": what, "value": value} for what, value in facts])
