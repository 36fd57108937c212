"""The Python client against the program with the virtual devices."""

import json
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

EXAMPLES = Path(__file__).resolve().parents[2] / "examples/python"
sys.path.append(str(EXAMPLES))
from quenlor_recording import RecordingError, start  # noqa: E402

PROGRAM = Path(os.environ["QUENLOR_BUILD"]) / "QuenlorHelperAudioVirtual"


def is_running(process_id):
    try:  # Empty for one that was not yet reaped.
        return Path(f"/proc/{process_id}/cmdline").read_bytes() != b""
    except FileNotFoundError:
        return False


class RecordingTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="quenlor-python-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        sidecar = self.write_sidecar("program", f"exec '{PROGRAM}'")
        self.output = self.folder / "recording.wav"
        self.options = {"output_path": str(self.output), "title": "Weekly",
                        "sidecar_path": str(sidecar)}

    def write_sidecar(self, name, script):
        """Makes a sidecar of a shell script; its process ID is then in a folder of that name."""
        folder = self.folder / name
        folder.mkdir()
        sidecar = folder / "sidecar"
        sidecar.write_text(f"#!/bin/sh\necho $$ >'{folder}/pid'\n{script}\n")
        sidecar.chmod(0o755)
        return sidecar

    def sidecar_id(self):
        return int((self.folder / "program/pid").read_text())

    def is_running(self):
        return is_running(self.sidecar_id())

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

    def test_starts_no_sidecar_for_what_cannot_be_asked_for(self):
        for changed, cause in (({"sidecar_path": self.folder / "none"}, FileNotFoundError),
                               ({"sidecar_path": "a\0b"}, ValueError),
                               ({"output_path": b"\xff"}, UnicodeDecodeError),
                               ({"output_path": "a\udcff"}, UnicodeDecodeError),
                               ({"output_path": 5}, TypeError),
                               ({"title": "\ud800"}, UnicodeEncodeError),
                               ({"title": b"Weekly"}, TypeError),
                               ({"timeout": "1"}, TypeError)):
            with self.subTest(changed), self.assertRaises(RecordingError) as caught:
                start(**{**self.options, **changed})
            self.assertIsNone(caught.exception.status)
            self.assertIsInstance(caught.exception.__cause__, cause)
        self.assertFalse((self.folder / "program/pid").exists())

    def test_outlasts_sidecars_that_do_not_do_their_part_and_leaves_none_of_them(self):
        table = json.loads(Path(__file__).with_name("failing-sidecars.json").read_text())
        with ThreadPoolExecutor(len(table)) as threads:
            # All are written before one is started: none may be open for writing then.
            sidecars = [self.write_sidecar(str(index), case["script"])
                        for index, case in enumerate(table)]
            outcomes = threads.map(self.fail_with, sidecars, table)
            for case, (error, seconds) in zip(table, outcomes):
                with self.subTest(case["does"]):
                    self.assertIn(case["message"], str(error))
                    self.assertEqual(type(error.__cause__).__name__,
                                     case["cause"][1] if case["cause"] else "NoneType")
                    self.assertLess(seconds, 15)

    def fail_with(self, sidecar, case):
        """The error that this sidecar brings about, and after how many seconds."""
        begun = time.monotonic()
        timeout = case.get("timeout", 30)
        options = {**self.options, "sidecar_path": sidecar}
        try:
            if case["fails"] == "start":
                start(**options, timeout=timeout)
            else:
                start(**options).stop(timeout)
        except RecordingError as error:
            assert not is_running(int(sidecar.with_name("pid").read_text()))
            return error, time.monotonic() - begun
        raise AssertionError("did not fail")

    def test_discards_a_recording_that_is_ready_too_late(self):
        with self.assertRaises(RecordingError):
            start(**self.options, timeout=0)
        self.assertFalse(self.is_running())
        self.assertFalse(self.output.exists())

    def test_leaves_no_sidecar_when_ctrl_c_ends_a_start(self):
        sidecar = self.write_sidecar("silent", "echo >&2; exec sleep 600")
        with self.assertRaises(KeyboardInterrupt):
            start(**{**self.options, "sidecar_path": sidecar},
                  on_trace=lambda line: os.kill(os.getpid(), signal.SIGINT))
        self.assertFalse(is_running(int(sidecar.with_name("pid").read_text())))

    def test_passes_the_trace_on_from_its_first_line_to_the_last(self):
        lines = []

        def listen(line):
            lines.append(line)
            raise ZeroDivisionError

        with self.assertLogs("quenlor_recording"), \
                start(**self.options, on_trace=listen) as recording:
            self.assertEqual(recording.pid, self.sidecar_id())
        request = {"mode": "mixed", "outputPath": str(self.output), "title": "Weekly"}
        expected = subprocess.run([PROGRAM], input=json.dumps(request), capture_output=True,
                                  text=True)
        self.assertEqual([re.sub(r"[\d-]+T\S+", "", line) for line in lines],
                         [re.sub(r"[\d-]+T\S+", "", line) for line in expected.stderr.splitlines()])

    def test_takes_a_path_of_bytes(self):
        name = self.folder / "Grüße.wav"
        start(**{**self.options, "output_path": os.fsencode(name)}).stop()
        self.assertTrue(name.exists())

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
