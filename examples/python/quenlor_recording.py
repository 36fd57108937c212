"""Makes recordings with QuenlorHelperAudio, which runs as a child process."""

from __future__ import annotations

import json
import logging
import os
import signal
import subprocess
import threading
from collections.abc import Callable
from concurrent import futures
from contextlib import suppress
from types import TracebackType
from typing import IO, TypedDict, Union

AnyPath = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]

# A sidecar that is given up has this long to end by itself, and as long to be gone once killed.
_GRACE = 1.0
_LONGEST_REPLY = 4096  # One has some 60 characters.


class RecordingResult(TypedDict):
    """The sidecar's result, as it wrote it. The size is that of the whole file."""

    durationSeconds: float
    sizeBytes: int


class RecordingError(Exception):
    """A recording that could not be started or finished. Its text is fit for people.

    status is the sidecar's exit status, negative for a signal, and None where it was not started.
    last_line is the last line on its standard error: with status 1, why it failed. __cause__ is the
    error behind this one: the system's where the sidecar could not be started, a TimeoutError, what
    is wrong with an argument or a reply. Where the sidecar itself failed there is none.
    """

    def __init__(self, message: str, status: int | None = None, last_line: str = "") -> None:
        super().__init__(message)
        self.status = status
        self.last_line = last_line


class Recording:
    """One recording under way, made by start(). May be used from any thread.

    As a context manager it stops the recording at the end of the block, however that is left.

    pid is the sidecar's process ID. ended is done when the recording is over: with the result, or
    with a RecordingError as soon as the sidecar fails. It cannot be cancelled.
    """

    pid: int
    ended: futures.Future[RecordingResult]

    def __init__(self, process: subprocess.Popen[bytes], request: bytes,
                 on_trace: Callable[[str], object] | None) -> None:
        self.pid = process.pid
        self.ended = futures.Future()
        self.ended.set_running_or_notify_cancel()
        self._process = process
        self._on_trace = on_trace
        self._replies: list[bytes] = []
        self._has_replied = threading.Event()
        self._last_line = ""
        self._last_word = b"stop\n"
        self._may_end = threading.Event()
        self._failure: tuple[str, BaseException] | None = None
        # Whatever may block has a thread of its own.
        assert process.stdin and process.stdout and process.stderr
        readers = [_start_thread(self._read_replies, process.stdout),
                   _start_thread(self._read_trace, process.stderr)]
        _start_thread(self._watch, readers)
        _start_thread(self._write, process.stdin, request)

    def stop(self, timeout: float | None = 30.0) -> RecordingResult:
        """Ends the recording and gives its result; again when called again.

        A sidecar that has not finished after the timeout, in seconds, is ended. None is no limit.
        """
        limit = _limit(timeout)
        self._may_end.set()
        self._await("stop", lambda: self.ended in futures.wait([self.ended], limit).done)
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

    def _begin(self, limit: float | None) -> None:
        """Returns once capture runs."""
        self._await("start", lambda: self._has_replied.wait(limit))
        if self._replies:
            try:
                _check_ready(self._replies[0])
            except Exception as error:
                said = self._replies[0].decode(errors="replace")
                self._give_up(f"The sidecar's ready reply was not understood: {said!r}", error)
        if self._failure or not self._replies:
            self.ended.result()

    def _await(self, step: str, event: Callable[[], bool]) -> None:
        """Waits for the event, and gives the sidecar up where it does not come."""
        try:
            if not event():
                self._give_up(f"The {step} took too long.", TimeoutError())
        except BaseException as error:
            self._give_up(f"The {step} was interrupted.", error)
            raise

    def _give_up(self, message: str, cause: BaseException) -> None:
        """Makes the recording fail and the sidecar end.

        One that has not been told to stop discards what it has.
        """
        if not self._failure:
            self._failure = message, cause
        if not self._may_end.is_set():
            self._last_word = b"discard\n"
            self._may_end.set()
        try:
            futures.wait([self.ended], _GRACE)
        finally:
            _kill(self._process)
        futures.wait([self.ended], _GRACE)
        self._settle(self._process.returncode)

    def _watch(self, readers: list[threading.Thread]) -> None:
        status = self._process.wait()
        for reader in readers:  # What the sidecar has started may keep the pipes open.
            reader.join(_GRACE)
        self._settle(status)

    def _settle(self, status: int | None) -> None:
        """Completes `ended`, unless it is complete."""
        with suppress(futures.InvalidStateError):
            try:
                self.ended.set_result(self._result(status))
            except RecordingError as error:
                self.ended.set_exception(error)
        self._has_replied.set()
        self._may_end.set()

    def _result(self, status: int | None) -> RecordingResult:
        if self._failure:
            message, cause = self._failure
            raise RecordingError(message, status, self._last_line) from cause
        if status != 0:
            message = f"The sidecar ended with status {status}."
            if status is not None and status < 0:
                message = f"The sidecar was ended by signal {-status}."
            if status == 1 and self._last_line:
                message = self._last_line
            raise RecordingError(message, status, self._last_line)
        reply = b"".join(self._replies[1:])
        try:
            return _parse_result(reply)
        except Exception as error:
            said = reply.decode(errors="replace")
            raise RecordingError(f"The sidecar's result was not understood: {said!r}", status,
                                 self._last_line) from error

    def _read_replies(self, output: IO[bytes]) -> None:
        with output:
            for reply in iter(lambda: output.readline(_LONGEST_REPLY), b""):
                if len(self._replies) < 2:
                    self._replies.append(reply)
                self._has_replied.set()

    def _read_trace(self, trace: IO[bytes]) -> None:
        with trace:
            for line in trace:
                self._last_line = line.decode(errors="replace").rstrip("\n")
                try:
                    if self._on_trace:
                        self._on_trace(self._last_line)
                except Exception:
                    logging.getLogger(__name__).exception("on_trace failed")

    def _write(self, pipe: IO[bytes], request: bytes) -> None:
        # Where the sidecar has ended, its status and last line tell more than a broken pipe.
        # An interrupted start has closed the pipe.
        with suppress(BrokenPipeError, ValueError), pipe:
            pipe.write(request)
            pipe.flush()
            self._may_end.wait()
            pipe.write(self._last_word)


def start(*, output_path: AnyPath, title: str, sidecar_path: AnyPath,
          timeout: float | None = 30.0,
          on_trace: Callable[[str], object] | None = None) -> Recording:
    """Starts a recording and returns once capture runs. Raises RecordingError.

    A file that exists at output_path is replaced, and missing folders are made. The title names the
    capture stream on the sound server. sidecar_path is the program QuenlorHelperAudio, or
    QuenlorHelperAudioVirtual for tests. A sidecar that is not ready after the timeout, in seconds,
    is ended; None is no limit. on_trace is called with each line on the sidecar's standard error, in
    a thread of its own.
    """
    try:
        # The sidecar takes names in UTF-8, whatever the locale is.
        request = {"mode": "mixed", "outputPath": os.fsencode(output_path).decode(), "title": title}
        line = json.dumps(request, ensure_ascii=False).encode() + b"\n"
        limit = _limit(timeout)
    except (TypeError, ValueError) as error:
        raise RecordingError(f"The recording was not started: {error}") from error
    try:
        # In a session of its own: the Ctrl-C that ends the parent must not reach the sidecar, which
        # can only finish its file when its input ends.
        process = subprocess.Popen([sidecar_path], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, start_new_session=True)
    except (OSError, TypeError, ValueError) as error:
        raise RecordingError(f"The sidecar could not be started: {error}") from error
    assert process.stdin
    try:
        recording = Recording(process, line, on_trace)
        recording._begin(limit)
        return recording
    except RecordingError:
        raise
    except BaseException as error:  # Such as Ctrl-C: nobody would be left to stop the recording.
        _kill(process)
        with suppress(BrokenPipeError):
            process.stdin.close()
        if isinstance(error, RuntimeError):
            raise RecordingError(f"No thread could be started: {error}") from error
        raise


def _start_thread(work: Callable[..., None], *arguments: object) -> threading.Thread:
    # A parent that ends does not wait for daemons.
    thread = threading.Thread(target=work, args=arguments, daemon=True)
    thread.start()
    return thread


def _kill(process: subprocess.Popen[bytes]) -> None:
    """Ends the process and its group, unless it has ended."""
    if process.poll() is None:
        with suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        # Not even this helps where the system waits for a disk.
        with suppress(subprocess.TimeoutExpired):
            process.wait(_GRACE)


def _limit(timeout: float | None) -> float | None:
    return None if timeout is None else min(timeout, threading.TIMEOUT_MAX)


def _check_ready(reply: bytes) -> None:
    if json.loads(reply)["status"] != "ready":
        raise ValueError("it is no ready reply")


def _parse_result(reply: bytes) -> RecordingResult:
    result: RecordingResult = json.loads(reply)
    numbers = result["durationSeconds"], result["sizeBytes"]
    if not all(isinstance(number, (float, int)) for number in numbers):
        raise TypeError("it is no result")
    return result
