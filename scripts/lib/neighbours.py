"""What else runs while a recording is made."""

import contextlib
import subprocess

BUSY_LOOP = ["sh", "-c", "while :; do :; done"]
# Of 20 ms, so that the server sends fragments as short to whoever else records.
FFMPEG_FRAGMENT_BYTES = {"@DEFAULT_MONITOR@": 48000 * 2 * 2 // 50, "@DEFAULT_SOURCE@": 48000 * 2 // 50}


def ffmpeg():
    command = ["ffmpeg", "-nostdin", "-loglevel", "fatal"]
    for channels, (device, size) in zip((2, 1), FFMPEG_FRAGMENT_BYTES.items()):
        command += ["-f", "pulse", "-sample_rate", "48000", "-channels", str(channels),
                    "-fragment_size", str(size), "-i", device]
    return command + ["-map", "0", "-map", "1", "-f", "null", "-"]


def end(processes):
    for process in processes:
        process.kill()
        process.wait()


@contextlib.contextmanager
def running(busy_loops, beside_ffmpeg=False):
    commands = [BUSY_LOOP] * busy_loops + [ffmpeg()] * beside_ffmpeg
    processes = [subprocess.Popen(command) for command in commands]
    try:
        yield
        ended = [process.args[0] for process in processes if process.poll() is not None]
        if ended:
            raise RuntimeError(f"{', '.join(ended)} ended before the recording did")
    finally:
        end(processes)
