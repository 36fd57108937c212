"""The recorders that are compared. Each records both sources of the private server.

All but the floor write what the sidecar writes, a WAV file of 16-bit stereo at 48 000 Hz with both
sources added at unity gain. If a recorder has such options, it captures each source at its own rate
in fragments of 20 ms, does not probe the streams first, and writes without delay.
"""

import json
import os
import signal
import subprocess
import time

SYSTEM_DEVICE, MICROPHONE_DEVICE = "speakers.monitor", "microphone"
# Of the output and of the microphone, resampled and not.
RATES = ((44100, 16000), (48000, 48000))
FRAGMENTS_PER_SECOND = 50
BYTES_PER_SAMPLE = 2
# No header of these programs is longer: a larger file has samples.
LONGEST_HEADER = 128
# By default ffmpeg halves each source before adding them, and attenuates mono to stereo.
FFMPEG_GRAPH = ("[0]aresample=48000[system];"
                "[1]aresample=48000,pan=stereo|c0=c0|c1=c0[microphone];"
                "[system][microphone]amix=inputs=2:normalize=0")


class Recorder:
    """A program that records until SIGINT. FILE in its command is replaced by the path."""

    def __init__(self, name, command):
        self.name = name
        self.command = command
        self.processes = []

    def start(self, path):
        """Returns when it records."""
        self.path = path
        command = [word.replace("FILE", path) for word in self.command]
        self.processes = [self.spawn(command)]
        deadline = time.monotonic() + 15
        while not os.path.exists(path) or os.path.getsize(path) <= LONGEST_HEADER:
            if time.monotonic() > deadline or self.processes[0].poll() is not None:
                raise RuntimeError(f"{self.name} records nothing")
            time.sleep(0.001)

    def spawn(self, command, **streams):
        streams = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL} | streams
        # The trace goes into the recording's folder instead of the machine's trace file.
        environment = os.environ | {"TMPDIR": os.path.dirname(self.path)}
        return subprocess.Popen(command, stderr=subprocess.DEVNULL, env=environment, **streams)

    def request_stop(self):
        for process in self.processes:
            process.send_signal(signal.SIGINT)

    def wait(self):
        for process in self.processes:
            process.wait(timeout=15)

    def kill(self):
        for process in self.processes:
            process.kill()
            process.wait()

    def pids(self):
        return [process.pid for process in self.processes]


class Sidecar(Recorder):
    def start(self, path):
        self.path = path
        process = self.spawn(self.command, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.processes = [process]
        request = {"mode": "mixed", "outputPath": path, "title": "Benchmark"}
        process.stdin.write(json.dumps(request).encode() + b"\n")
        process.stdin.flush()
        if b"ready" not in process.stdout.readline():
            raise RuntimeError("the sidecar did not become ready")

    def request_stop(self):
        self.processes[0].stdin.write(b"stop\n")
        self.processes[0].stdin.flush()

    def wait(self):
        super().wait()
        if self.processes[0].returncode != 0:
            raise RuntimeError("the sidecar failed")


class Floor(Recorder):
    """Two captures that discard their samples: the minimum for two processes."""

    def start(self, path):
        self.path = path
        self.processes = [self.spawn(command) for command in self.command]
        time.sleep(0.2)


class Nobody(Recorder):
    """No recorder, for the cost of the server alone."""

    def start(self, path):
        self.path = path


def ffmpeg(rate, microphone_rate):
    def source(device, device_rate, channels):
        fragment = device_rate * channels * BYTES_PER_SAMPLE // FRAGMENTS_PER_SECOND
        return ["-probesize", "32", "-analyzeduration", "0", "-f", "pulse",
                "-sample_rate", str(device_rate), "-channels", str(channels),
                "-fragment_size", str(fragment), "-i", device]

    return Recorder("ffmpeg", [
        "ffmpeg", "-nostdin", "-y", "-loglevel", "error",
        *source(SYSTEM_DEVICE, rate, 2), *source(MICROPHONE_DEVICE, microphone_rate, 1),
        "-filter_complex", FFMPEG_GRAPH, "-c:a", "pcm_s16le", "-flush_packets", "1", "FILE"])


def gstreamer(rate, microphone_rate):
    def source(device, device_rate, channels):
        return (f"pulsesrc device={device} latency-time=20000 ! "
                f"audio/x-raw,rate={device_rate},channels={channels} ! queue ! "
                "audioconvert ! audioresample ! audio/x-raw,format=F32LE,rate=48000,channels=2 ! "
                "mix. ").split()

    return Recorder("GStreamer", [
        "gst-launch-1.0", "-q", "-e",
        *source(SYSTEM_DEVICE, rate, 2), *source(MICROPHONE_DEVICE, microphone_rate, 1),
        # With a lower latency it loses late buffers.
        *"audiomixer name=mix latency=80000000 output-buffer-duration=20000000 !".split(),
        *"audioconvert ! audio/x-raw,format=S16LE ! wavenc !".split(),
        "filesink", "buffer-mode=unbuffered", "location=FILE"])


def sox():
    """sox cannot mix different rates, so the server resamples."""
    def source(device):
        return ["-t", "pulseaudio", "-r", "48000", "-c", "2", "-v", "1", device]

    return Recorder("SoX", ["sox", "-q", "-m", *source(SYSTEM_DEVICE), *source(MICROPHONE_DEVICE),
                            "-b", "16", "FILE"])


def floor(rate, microphone_rate):
    def capture(device, device_rate, channels):
        return ["parec", "--raw", "--latency-msec=20", "--format=float32le", f"--device={device}",
                f"--rate={device_rate}", f"--channels={channels}"]

    return Floor("two bare captures", [capture(SYSTEM_DEVICE, rate, 2),
                                       capture(MICROPHONE_DEVICE, microphone_rate, 1)])


def sidecar(program):
    return Sidecar("sidecar", [program])


def all_of(program, rate, microphone_rate):
    return [sidecar(program), ffmpeg(rate, microphone_rate), gstreamer(rate, microphone_rate),
            sox(), floor(rate, microphone_rate), Nobody("nobody", [])]
