"""The Python client against the program with the virtual devices."""

import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

EXAMPLES = Path(__file__).resolve().parents[2] / "examples/python"
sys.path.append(str(EXAMPLES))
from quenlor_recording import RecordingError, start  # noqa: E402

PROGRAM = Path(os.environ["QUENLOR_BUILD"]) / "QuenlorHelperAudioVirtual"


class RecordingTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="quenlor-python-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        # Leaves its process id behind and becomes the sidecar.
        sidecar = self.folder / "sidecar"
        sidecar.write_text(f"#!/bin/sh\necho $$ >'{self.folder}/pid'\nexec '{PROGRAM}'\n")
        sidecar.chmod(0o755)
        self.output = self.folder / "recording.wav"
        self.options = {"output_path": str(self.output), "title": "Weekly",
                        "sidecar_path": str(sidecar)}

    def sidecar_id(self):
        return int((self.folder / "pid").read_text())

    def is_running(self):
        try:  # Empty for one that was not yet reaped.
            return Path(f"/proc/{self.sidecar_id()}/cmdline").read_bytes() != b""
        except FileNotFoundError:
            return False

    def assert_finished(self):
        file = self.output.read_bytes()
        self.assertEqual(int.from_bytes(file[40:44], "little"), len(file) - 44)
        return len(file)

    def test_gives_the_result_as_the_program_does_however_often_it_is_stopped(self):
        with start(**self.options) as recording:
            results = [recording.stop(), recording.stop()]
        for result in [*results, recording.ended.result()]:
            self.assertEqual(list(result), ["durationSeconds", "sizeBytes"])
            self.assertEqual(result["sizeBytes"], self.assert_finished())

    def test_passes_on_what_the_sidecar_says_when_it_fails_also_while_the_request_is_written(self):
        for changed, said in (
                ({"output_path": self.folder}, f'Replacing "{self.folder}" failed: Is a directory'),
                ({"title": "x" * (4 << 20)}, "The helper audio sidecar could not read stdin: "
                                             "a line is longer than 1048576 bytes")):
            with self.subTest(said), self.assertRaises(RecordingError) as caught:
                start(**{**self.options, **changed})
            error = caught.exception
            self.assertEqual((str(error), error.last_line, error.status), (said, said, 1))

    def test_says_that_the_sidecar_is_missing(self):
        with self.assertRaises(RecordingError) as caught:
            start(**{**self.options, "sidecar_path": self.folder / "none"})
        self.assertIsNone(caught.exception.status)
        self.assertIsInstance(caught.exception.__cause__, FileNotFoundError)

    def test_tells_at_once_of_a_sidecar_that_was_killed(self):
        recording = start(**self.options)
        os.kill(self.sidecar_id(), signal.SIGKILL)
        error = recording.ended.exception(timeout=30)
        self.assertEqual(str(error), "The sidecar was ended by signal 9.")
        self.assertEqual(error.status, -signal.SIGKILL)
        self.assertRaises(RecordingError, recording.stop)

    def test_stops_when_an_exception_leaves_the_block_and_passes_it_on(self):
        for kills_sidecar in False, True:
            with self.subTest(kills_sidecar=kills_sidecar), self.assertRaises(ZeroDivisionError):
                with start(**self.options):
                    if kills_sidecar:
                        os.kill(self.sidecar_id(), signal.SIGKILL)
                    raise ZeroDivisionError
            self.assertFalse(self.is_running())
            if not kills_sidecar:
                self.assert_finished()

    def test_leaves_a_finished_recording_and_no_sidecar_when_the_process_group_is_killed(self):
        script = ("import quenlor_recording, sys, time\n"
                  f"recording = quenlor_recording.start(**{self.options!r})\n"
                  "print('ready', flush=True)\nsys.stdin.read()\n")
        with subprocess.Popen([sys.executable, "-c", script], stdin=subprocess.PIPE, text=True,
                              stdout=subprocess.PIPE, start_new_session=True,
                              env={**os.environ, "PYTHONPATH": str(EXAMPLES)}) as parent:
            self.assertEqual(parent.stdout.readline(), "ready\n")
            while self.output.stat().st_size == 44:
                time.sleep(0.005)
            os.killpg(parent.pid, signal.SIGKILL)
        while self.is_running():
            time.sleep(0.005)
        self.assertGreater(self.assert_finished(), 44)
