"""Runs the parts of the benchmark and renews the tables of docs/performance.md."""

import argparse
import pathlib
import subprocess
import sys

import machine
import micro
import offline
import recorders
import residuals
import results
import tables

ROOT = pathlib.Path(__file__).parent.parent
BUILD = ROOT / "build/benchmark"
SERVERS = ("pulseaudio", "pipewire")
PARTS = ("compare", "concurrency", "distance", "drift", "offline", "micro", "profile")
DISTANCES = 20
DRIFT_PPM, DRIFT_RATE = 300, 48000


def capture(part, server, rates, rounds, seconds):
    print(f"{part}: {server}, {rates[0]} + {rates[1]} Hz", flush=True)
    subprocess.run(
        [ROOT / "scripts/private-server", server, "--tones", "--rate", str(rates[0]),
         "--microphone-rate", str(rates[1]), "--", sys.executable, ROOT / "benchmarks/capture.py",
         part, server, BUILD / "QuenlorHelperAudio", str(rates[0]), str(rates[1]), str(rounds),
         str(seconds)],
        # Some machines do not allow sampling.
        check=part != "profile")


def distance(server):
    print(f"distance: {server}", flush=True)
    subprocess.run(
        [ROOT / "scripts/private-server", server, "--no-microphone", "--", sys.executable,
         ROOT / "benchmarks/distance.py", server, BUILD / "QuenlorHelperAudio", str(DISTANCES)],
        check=True)


def drift(seconds):
    print(f"drift: {DRIFT_PPM} ppm for {seconds} s", flush=True)
    subprocess.run(
        [ROOT / "scripts/private-server", "pulseaudio", "--chirps", "--microphone-drift",
         str(DRIFT_PPM), "--rate", str(DRIFT_RATE), "--microphone-rate", str(DRIFT_RATE), "--",
         sys.executable, ROOT / "benchmarks/drift.py", BUILD / "QuenlorHelperAudio",
         str(DRIFT_RATE), str(seconds)],
        check=True)


def run_part(part, options):
    if part == "compare":
        results.forget("recorders")
        for server in options.servers:
            for rates in recorders.RATES:
                capture(part, server, rates, options.rounds, options.seconds)
    elif part == "concurrency":
        results.forget("concurrency")
        for server in options.servers:
            capture(part, server, recorders.RATES[0], options.rounds, options.seconds)
    elif part == "distance":
        results.forget("distance")
        for server in options.servers:
            distance(server)
    elif part == "drift":
        results.forget("drift")
        drift(options.drift_seconds)
    elif part == "offline":
        print(f"offline: {options.offline_seconds} s", flush=True)
        offline.measure(BUILD / "benchmarks/offline_recording", options.offline_seconds)
        residuals.measure(BUILD / "benchmarks/convert_stream")
    elif part == "micro":
        print("micro", flush=True)
        micro.measure(BUILD / "benchmarks/micro_benchmarks", options.rounds)
    else:
        results.forget("profile", "functions")
        capture(part, options.servers[0], recorders.RATES[0], 1, 4 * options.seconds)


def main():
    # The help is in the script, which gives it before it installs what this program needs.
    parser = argparse.ArgumentParser(prog="scripts/benchmark", add_help=False)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--seconds", type=float, default=7)
    parser.add_argument("--servers", nargs="+", choices=SERVERS, default=SERVERS)
    parser.add_argument("--drift-seconds", type=int, default=600)
    parser.add_argument("--offline-seconds", type=int, default=3600)
    parser.add_argument("--only", nargs="*", choices=PARTS, metavar="PART", default=PARTS)
    options = parser.parse_args()
    if options.only:
        machine.describe()
    for part in options.only:
        run_part(part, options)
    tables.renew(ROOT / "docs/performance.md")


main()
