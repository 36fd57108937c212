"""Measures where in a recording the sound lies after its server hung or was started again.

    scripts/private-server KIND --restartable -- torture_places.py PROGRAM [--rounds N]

Short sounds are played on the output and on the microphone, five before a fault and five after it, and
are looked for in the recording. What lies between their times there and the times at which they were
played is how long sound takes through the server. That may not change by more than 50 ms, in the
median: what was lost while nobody served is silence of its true length. Where the sounds were played so
unevenly that this says nothing, as on a busy machine, it is tried again.
"""

import argparse
import array
import math
import os
import pathlib
import signal
import statistics
import subprocess
import sys
import tempfile
import time

import torture

FAULTS = ("hangs", "restarts", "restarts late")
PLAYED_RATE = 16000
SOUNDS = 5
# In seconds.
SOUND, PAUSE, RECOVERY, LONGEST_MOVE = 0.05, 0.4, 4, 0.05
# How far the sounds' delays may lie from their median, in the median.
MOST_UNEVEN = 0.012
ATTEMPTS = 6


def play(microphone, begin):
    """Plays one sound on the output's left channel and on the microphone, and tells when."""
    sound = [round(16000 * math.sin(2 * math.pi * 3000 * n / PLAYED_RATE))
             for n in range(int(SOUND * PLAYED_RATE))]
    players = []
    for sink, channels in (("speakers", 2), (microphone, 1)):
        samples = array.array("h")
        for sample in sound:
            samples.extend([sample] + [0] * (channels - 1))
        player = subprocess.Popen(["nice", "-n", "-11", "pacat", "--playback", "--raw", f"--device={sink}",
                                   f"--rate={PLAYED_RATE}", f"--channels={channels}",
                                   "--format=s16le", "--latency-msec=20"],
                                  stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
        players.append((player, samples.tobytes()))
    played = time.monotonic()
    for player, samples in players:
        player.stdin.write(samples)
        player.stdin.close()
    for player, _ in players:
        player.wait()
    time.sleep(max(0, played + PAUSE - time.monotonic()))
    return played - begin


def fail_server(fault):
    server = int(pathlib.Path(os.environ["HOME"], "pid").read_text())
    if fault == "hangs":
        os.kill(server, signal.SIGSTOP)
        time.sleep(3)
        os.kill(server, signal.SIGCONT)
    else:
        os.kill(server, signal.SIGKILL)
        time.sleep(0.2 if fault == "restarts" else 2)
        os.kill(int(os.environ["PRIVATE_SERVER_SCRIPT"]), signal.SIGUSR1)
    time.sleep(RECOVERY)


def record(program, folder, microphone, fault):
    """The recording, and when the sounds were played, in seconds from the ready line."""
    output = pathlib.Path(folder, "recording.wav")
    recorder = torture.start([program], folder)
    torture.send(recorder, torture.start_line(output))
    if torture.read_ready(recorder) != torture.READY:
        raise RuntimeError(recorder.communicate()[1].decode())
    begin = time.monotonic()
    time.sleep(0.5)
    times = [play(microphone, begin) for _ in range(SOUNDS)]
    fail_server(fault)
    times += [play(microphone, begin) for _ in range(SOUNDS)]
    recorder.communicate(b"stop\n", torture.TIMEOUT_SECONDS)
    return output.read_bytes(), times


def sounds_in(samples):
    """Where sounds begin, in seconds."""
    found = []
    for index, sample in enumerate(samples):
        if abs(sample) > 2000 and (not found or index > found[-1] + PAUSE / 2 * torture.RATE):
            found.append(index)
    return [index / torture.RATE for index in found]


class Uneven(Exception):
    """The sounds were played at no steady distance from their times."""


def steady(delays):
    middle = statistics.median(delays)
    if statistics.median(abs(delay - middle) for delay in delays) > MOST_UNEVEN:
        raise Uneven
    return middle


def move(samples, times):
    """By how many seconds the sounds after the fault lie too late, and all delays in words."""
    found = sounds_in(samples)
    if len(found) != len(times):
        return None, f"{len(found)} of {len(times)} sounds were found"
    delays = [there - here for there, here in zip(found, times)]
    moved = steady(delays[SOUNDS:]) - steady(delays[:SOUNDS])
    return moved, "delays in ms: " + ", ".join(str(round(1000 * delay)) for delay in delays)


def moves(program, microphone, fault):
    with tempfile.TemporaryDirectory(prefix="quenlor-torture-") as folder:
        recording, times = record(program, folder, microphone, fault)
    left, right = torture.channels(recording)
    # The output plays on the left channel only, the microphone is on both.
    return {"system": move([a - b for a, b in zip(left, right)], times),
            "microphone": move(right, times)}


def moves_of_steady_players(program, microphone, fault):
    for _ in range(ATTEMPTS):
        try:
            return moves(program, microphone, fault)
        except Uneven:
            continue
    return {"every source": (None, "the sounds were played unevenly in each attempt")}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("recorder")
    parser.add_argument("--rounds", type=int, default=2)
    arguments = parser.parse_args()
    server = subprocess.run(["pactl", "info"], capture_output=True, text=True, check=True).stdout
    microphone = "microphone-feed"
    if "PipeWire" in server:
        microphone = "microphone"
        # Its period follows what its clients wish, and with it the time that sound takes.
        subprocess.run(["pw-metadata", "-n", "settings", "0", "clock.force-quantum", "882"],
                       check=True, stdout=subprocess.DEVNULL)
    longest, faults = 0.0, []
    for number in range(arguments.rounds):
        for fault in FAULTS:
            found = moves_of_steady_players(arguments.recorder, microphone, fault)
            for source, (moved, delays) in found.items():
                longest = max(longest, abs(moved or 0))
                if moved is None or abs(moved) > LONGEST_MOVE:
                    faults.append(f"round {number}, the server {fault}: {source} moved by {moved} s; {delays}")
    kind = "pulseaudio" if microphone == "microphone-feed" else "pipewire"
    print(f"count milliseconds-moved-{kind}", round(1000 * longest))
    for fault in faults:
        print("fault", fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
