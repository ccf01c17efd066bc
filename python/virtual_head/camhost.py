"""The shipped host on a head, driven by commands."""

from __future__ import annotations

import contextlib
import json
import os
import socket
from collections.abc import Iterator, Mapping
from dataclasses import dataclass
from pathlib import Path
from types import MappingProxyType, TracebackType
from typing import Any

from .errors import CommandFailed, HeadError, Unreachable, WaitFailed
from .head import Head
from .process import found_program


@dataclass(frozen=True)
class Reply(Mapping[str, Any]):
    """A reply of camhost: a mapping of the members of its JSON object, such as `reply["applied"]`.

    `progress` are the lines that came before it: what `watch` saw, and the progress of a long step.
    """

    raw: Mapping[str, Any]
    progress: tuple[str, ...] = ()

    def __getitem__(self, name: str) -> Any:
        return self.raw[name]

    def __iter__(self) -> Iterator[str]:
        return iter(self.raw)

    def __len__(self) -> int:
        return len(self.raw)

    @property
    def ok(self) -> bool:
        """Whether the command was carried out."""
        return bool(self.raw["ok"])

    @property
    def status(self) -> int:
        """What camhost would end with: 0, or one of its exit statuses."""
        return int(self.raw["status"])

    @property
    def result(self) -> int | None:
        """The board's result code; None where the board was not asked."""
        return self.raw.get("result")

    @property
    def text(self) -> str:
        """What a person reads."""
        return "\n".join(self.raw.get("reply" if self.ok else "error", []))


class Camhost:
    """camhost on a head of its own, served by its line server. Made by `start`; a context manager.

    `head` is the head. In virtual time a command takes none of the machine's waits: `capture 5000` is over at once.
    """

    def __init__(self, head: Head, connection: socket.socket) -> None:
        self.head = head
        self._connection = connection
        self._lines = connection.makefile("rb")

    @classmethod
    def start(
        cls,
        *,
        camhost: str | os.PathLike[str] | None = None,
        plugin: str | os.PathLike[str] | None = None,
        spi: str | None = None,
        workdir: str | os.PathLike[str] | None = None,
        real: float = 60.0,
        **options: Any,
    ) -> Camhost:
        """Starts camhost on a head.

        The host is `camhost`, else what CAMHOST says in the environment, else the one in PATH. The plug-in is `plugin`,
        else what CAMHOST_PLUGIN says, else the installed one. `spi` is the sensor's port, for a plug-in that does not say
        it. `workdir` has the board's settings; without it the demonstration data of the virtual head are taken.
        `options` are those of `Head.start`.

        Raises NotStarted as `Head.start` does, ProgramEnded with what camhost said where it ends, WaitFailed where it
        does not listen within `real` seconds of the machine's time.
        """
        # The board's lines, and the address, go to standard error.
        program = [found_program(camhost, "CAMHOST", "camhost"), "--listen", "0", "--board-output", "-"]
        plugin = plugin if plugin is not None else os.environ.get("CAMHOST_PLUGIN") or None
        if plugin is not None:
            program += ["--plugin", os.path.abspath(plugin)]
        if spi is not None:
            program += ["--spi", spi]
        settings = workdir if workdir is not None else demonstration_data(options.get("launcher"))
        head = Head.start(program, workdir=settings, real=real, **options)
        try:
            found = head.wait_for_error(r"^camhost: listening on (\S+):([0-9]+)$", real=real)
            try:
                connection = socket.create_connection((found[1].strip("[]"), int(found[2])), timeout=real)
            except OSError as error:
                raise Unreachable(f"camhost at {found[1]}:{found[2]}: {error}") from error
        except BaseException:
            head.close()
            raise
        return cls(head, connection)

    def run(self, command: str, *, check: bool = True, real: float = 60.0) -> Reply:
        """Carries out a command, such as "exposure 20000", and returns its reply.

        `real` is the longest wait for it in seconds of the machine's time. Raises CommandFailed where it failed, unless
        `check` is False; WaitFailed where no reply comes, Unreachable where camhost has ended; the connection is over
        then. ValueError: the command has a line break in it, or nothing.
        """
        if "\n" in command or "\r" in command or not command.strip():
            raise ValueError(f"{command!r} is no command: it is one line, with something in it")
        progress: list[str] = []
        try:
            self._connection.settimeout(real)
            self._connection.sendall(command.encode() + b" --json\n")
            head = self._line()
            while head.startswith("* "):
                progress.append(head[2:])
                head = self._line()
            word, _, count = head.partition(" ")
            if word not in ("OK", "ERR") or not count.isdigit():
                raise HeadError(f'camhost answered "{head}" to "{command}"')
            lines = [self._line() for _ in range(int(count))]
        except TimeoutError as error:
            self.disconnect()
            raise WaitFailed(f'camhost did not answer "{command}" within {real:g} s of real time; '
                             f"{self.head._seen()}") from error
        except OSError as error:
            self.disconnect()
            raise Unreachable(f'camhost is gone, at "{command}": {error}; it said: {self.head.errors[-500:].strip()}'
                              ) from error
        with contextlib.suppress(HeadError):
            self.head.settle()  # so that what the head tells next is behind this command
        return self._reply(command, lines, tuple(progress), check)

    def _line(self) -> str:
        line = self._lines.readline()
        if not line.endswith(b"\n"):
            raise ConnectionResetError("it closed the connection")
        return line.decode("utf-8", "replace").rstrip("\r\n")

    @staticmethod
    def _reply(command: str, lines: list[str], progress: tuple[str, ...], check: bool) -> Reply:
        try:
            told = json.loads("\n".join(lines))
            reply = Reply(MappingProxyType(told), progress)
            reply.ok, reply.status
        except (ValueError, TypeError, KeyError) as error:
            raise HeadError(f'camhost answered "{command}" without JSON: {" ".join(lines) or "nothing"}') from error
        if check and not reply.ok:
            raise CommandFailed(f"{command}: {reply.text}", reply, reply.status, reply.result)
        return reply

    def disconnect(self) -> None:
        """Ends the connection; camhost goes on until `close`. No command can be sent any more."""
        with contextlib.suppress(OSError):
            self._lines.close()
            self._connection.close()

    def close(self) -> int | None:
        """Ends camhost, as its users do (SIGTERM), and the head. Returns the launcher's exit status, as `Head.close`."""
        self.disconnect()
        return self.head.close()

    def __enter__(self) -> Camhost:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None) -> None:
        self.close()


def demonstration_data(launcher: str | os.PathLike[str] | None = None) -> Path | None:
    """The folder with the demonstration data of the virtual head: what VIRTUAL_HEAD_DATA says in the environment, else
    the one beside the launcher; None where there is none."""
    given = os.environ.get("VIRTUAL_HEAD_DATA")
    if given:
        return Path(given)
    beside = Path(found_program(launcher, "VIRTUAL_HEAD", "virtual-head")).resolve().parent.parent
    folder = beside / "share" / "virtual-head"
    return folder if folder.is_dir() else None
