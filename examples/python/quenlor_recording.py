"""Makes recordings with QuenlorHelperAudio, which runs as a child process."""

from __future__ import annotations

import json
import os
import subprocess
import threading
from collections import deque
from concurrent.futures import Future
from contextlib import suppress
from types import TracebackType
from typing import TypedDict


class RecordingResult(TypedDict):
    """The sidecar's result, as it wrote it. The size is that of the whole file."""

    durationSeconds: float
    sizeBytes: int


class RecordingError(Exception):
    """A recording that could not be started or finished. Its text is fit for people.

    status is the sidecar's exit status, negative for a signal, and None where it was not started.
    last_line is the last line on its standard error: with status 1, why it failed.
    """

    def __init__(self, message: str, status: int | None = None, last_line: str = "") -> None:
        super().__init__(message)
        self.status = status
        self.last_line = last_line


class Recording:
    """One recording under way, made by start(). May be used from any thread.

    As a context manager it stops the recording at the end of the block, however that is left.

    ended is done when the recording is over: with the result, or with a RecordingError as soon as
    the sidecar fails. It cannot be cancelled.
    """

    ended: Future[RecordingResult]

    def __init__(self, process: subprocess.Popen[str]) -> None:
        assert process.stdin
        self.ended = Future()
        self.ended.set_running_or_notify_cancel()
        self._process = process
        self._input = process.stdin
        self._has_replied = threading.Event()
        # All threads are daemons: a parent that ends does not wait for them.
        threading.Thread(target=self._watch, daemon=True).start()

    def stop(self) -> RecordingResult:
        """Ends the recording and gives its result; again when called again."""
        with suppress(BrokenPipeError, ValueError):  # It has ended, or was told before.
            self._input.write("stop\n")
            self._input.close()
        return self.ended.result()

    def __enter__(self) -> Recording:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 traceback: TracebackType | None) -> None:
        try:
            self.stop()
        except RecordingError:
            if error is None:  # What went wrong in the block comes first.
                raise

    def _begin(self, request: dict[str, str]) -> None:
        """Returns once capture runs."""
        with suppress(BrokenPipeError):  # It has ended: its status and last line tell why.
            self._input.write(json.dumps(request) + "\n")
            self._input.flush()
        try:
            self._has_replied.wait()
        except BaseException:  # Such as Ctrl-C: nobody would be left to stop the recording.
            self._input.close()
            raise
        if self.ended.done():
            self.ended.result()

    def _watch(self) -> None:
        try:
            self.ended.set_result(self._outcome())
        except Exception as error:  # Whatever it is, somebody waits for it.
            self.ended.set_exception(error)
        self._has_replied.set()
        with suppress(BrokenPipeError):
            self._input.close()

    def _outcome(self) -> RecordingResult:
        """Follows the conversation to its end."""
        replies: list[str] = []
        last_line: deque[str] = deque(maxlen=1)
        assert self._process.stdout and self._process.stderr
        with self._process.stdout as output, self._process.stderr as trace:
            reader = threading.Thread(target=last_line.extend, args=[trace], daemon=True)
            reader.start()
            for reply in output:
                replies.append(reply)
                self._has_replied.set()
            reader.join()
        status = self._process.wait()
        if status == 0 and len(replies) == 2:
            result: RecordingResult = json.loads(replies[1])
            return result
        reason = "".join(last_line).rstrip("\n")
        end = f"was ended by signal {-status}" if status < 0 else f"ended with status {status}"
        raise RecordingError(reason if status == 1 and reason else f"The sidecar {end}.",
                             status, reason)


def start(*, output_path: str | os.PathLike[str], title: str,
          sidecar_path: str | os.PathLike[str]) -> Recording:
    """Starts a recording and returns once capture runs. Raises RecordingError.

    A file that exists at output_path is replaced, and missing folders are made. The title names the
    capture stream on the sound server. sidecar_path is the program QuenlorHelperAudio, or
    QuenlorHelperAudioVirtual for tests.
    """
    request = {"mode": "mixed", "outputPath": os.fspath(output_path), "title": title}
    try:
        # In a session of its own: the Ctrl-C that ends the parent must not reach the sidecar, which
        # can only finish its file when its input ends.
        process = subprocess.Popen([sidecar_path], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, encoding="utf-8", errors="replace",
                                   start_new_session=True)
    except OSError as error:
        raise RecordingError(f"The sidecar could not be started: {error}") from error
    recording = Recording(process)
    recording._begin(request)
    return recording
