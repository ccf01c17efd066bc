"""Programs that a bench starts: what they say, and their end."""

from __future__ import annotations

import contextlib
import os
import re
import shutil
import signal
import subprocess
import sys
import threading
import time
from collections.abc import Callable, Mapping, Sequence
from pathlib import Path
from typing import IO

from .errors import NotStarted


def found_program(given: str | os.PathLike[str] | None, variable: str, name: str) -> str:
    """The path of a program: as given, else what the environment variable says, else by PATH.

    Raises NotStarted where it is none of these.
    """
    wanted = os.fspath(given) if given is not None else os.environ.get(variable) or name
    path = shutil.which(wanted)
    if path is None:
        raise NotStarted(f"there is no program {wanted}; install camera-head-tools, name it, or set {variable}")
    return os.path.abspath(path)


class Text:
    """What a program says on one of its outputs, line by line. A thread of its own reads."""

    def __init__(self, source: IO[bytes], passed_on: Callable[[str], None] | None) -> None:
        self._source = source
        self._pass_on = passed_on
        self._lines: list[str] = []
        self._changed = threading.Condition()
        self._over = False
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def _read(self) -> None:
        for raw in iter(self._source.readline, b""):
            line = raw.decode("utf-8", "replace")
            with self._changed:
                self._lines.append(line)
                self._changed.notify_all()
            if self._pass_on is not None:
                with contextlib.suppress(ValueError, OSError):  # a test's standard error may be closed by now
                    self._pass_on(line)
        with self._changed:
            self._over = True
            self._changed.notify_all()

    @property
    def text(self) -> str:
        """All of it until now."""
        with self._changed:
            return "".join(self._lines)

    def find(self, pattern: str, real: float) -> re.Match[str] | None:
        """Waits up to `real` seconds for a line with a pattern in it; None where it does not come, or nothing more does."""
        deadline = time.monotonic() + real
        looked = 0
        with self._changed:
            while True:
                for line in self._lines[looked:]:
                    found = re.search(pattern, line)
                    if found:
                        return found
                looked = len(self._lines)
                if self._over or not self._changed.wait_for(
                        lambda: self._over or len(self._lines) > looked, max(0.0, deadline - time.monotonic())):
                    if len(self._lines) == looked:
                        return None

    def join(self, real: float) -> None:
        """Waits up to `real` seconds for the end of the output."""
        self._thread.join(real)
        if not self._thread.is_alive():
            self._source.close()


def to_standard_error(line: str) -> None:
    """Passes a line on to what standard error is now: a test's runner exchanges it."""
    sys.stderr.write(line)
    sys.stderr.flush()


class Started:
    """A program in a group of processes of its own, so that all that it starts can be ended with it."""

    def __init__(
        self,
        command: Sequence[str],
        *,
        folder: str | os.PathLike[str] | None = None,
        environment: Mapping[str, str] | None = None,
        errors: Callable[[str], None] | None = to_standard_error,
    ) -> None:
        self.command = list(command)
        try:
            self._process = subprocess.Popen(
                self.command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, cwd=folder,
                env={**os.environ, **(environment or {})}, start_new_session=True)
        except OSError as error:
            raise NotStarted(f"{self.command[0]}: {error}") from error
        assert self._process.stdout is not None and self._process.stderr is not None
        self.output = Text(self._process.stdout, None)
        self.errors = Text(self._process.stderr, errors)

    @property
    def status(self) -> int | None:
        """The exit status, 128 plus the signal that ended it; None while it runs."""
        status = self._process.poll()
        return status if status is None or status >= 0 else 128 - status

    def wait(self, real: float) -> int | None:
        """Waits up to `real` seconds for its end. Returns as `status` does."""
        with contextlib.suppress(subprocess.TimeoutExpired):
            self._process.wait(max(0.0, real))
        return self.status

    def terminate(self) -> None:
        """Asks it to end (SIGTERM)."""
        if self.status is None:
            self._process.send_signal(signal.SIGTERM)

    def kill(self) -> None:
        """Ends it and all that it started (SIGKILL), and closes its outputs."""
        with contextlib.suppress(ProcessLookupError):
            if self.status is None:
                os.killpg(self._process.pid, signal.SIGKILL)
        self._process.wait()
        self.finish()

    def finish(self) -> None:
        """Takes in the rest of what it said, once it has ended. A process that it left behind may keep the outputs."""
        self.output.join(1.0)
        self.errors.join(1.0)


def absolute(path: str | os.PathLike[str]) -> str:
    """A path that means the same in every folder."""
    return str(Path(path).absolute())
