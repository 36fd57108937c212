"""Measures how the sources of a recording walk apart where the microphone has a clock of its own.

    drift.py PROGRAM RATE SECONDS

Runs on scripts/private-server with a microphone that drifts, and chirps. All recorders record at the
same time, so that what the server or the machine does hits them all.
"""

import os
import sys
import tempfile
import time

import recorders
import results
from chirps import events_in, from_the_first, frames_of


def main(program, rate, seconds):
    rates = int(rate), int(rate)
    group = [recorders.sidecar(program), recorders.ffmpeg(*rates), recorders.gstreamer(*rates),
             recorders.sox()]
    with tempfile.TemporaryDirectory() as folder:
        try:
            for recorder in group:
                recorder.start(os.path.join(folder, f"{recorder.name}.wav"))
            time.sleep(float(seconds))
            for recorder in group:
                recorder.request_stop()
            for recorder in group:
                recorder.wait()
        finally:
            for recorder in group:
                recorder.kill()
        for recorder in group:
            for event in from_the_first(events_in(frames_of(recorder.path))):
                results.append("drift", {"recorder": recorder.name, "second": event.second,
                                         "distance ms": event.distance_ms})


if __name__ == "__main__":
    main(*sys.argv[1:])
