"""Reads recordings, `virtual-head --record FILE`: every call on the device files with its answer."""

from __future__ import annotations

import os
import re
from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import overload

from .errors import BadFile

HEADING = "virtual-head recording 1"
_LINE = re.compile(r"\[ *([0-9]+)\.([0-9]{9})\] (\S.*)")
_NUMBER = re.compile(r"-?(0x[0-9A-Fa-f]+|[0-9]+)")


def _number(text: str) -> int | None:
    return int(text, 0) if _NUMBER.fullmatch(text) and not re.fullmatch(r"-?0[0-9]+", text) else None


@dataclass(frozen=True)
class Call:
    """One call.

    `time_ns` is the time of its answer since the program started [ns], `line` its line in the file. `text` is the call as
    it stands there, `answer` the number or the name of an error that it gave, `got` what else the program got.
    """

    time_ns: int
    text: str
    answer: str
    got: str
    line: int

    @property
    def name(self) -> str:
        """The call: `open`, `ioctl`, `load`, `store`, `sleep`, ..."""
        return self.text.partition(" ")[0]

    @property
    def arguments(self) -> list[str]:
        """The words behind the call. A blank in a name is written as `\\20`, so that words are whole."""
        return self.text.split()[1:]

    @property
    def file(self) -> int | None:
        """The number of the file or line that the call is on, or that it opened; None where there is none."""
        for word in [*self.arguments[:1], self.answer]:
            if re.fullmatch(r"#[0-9]+", word):
                return int(word[1:])
        return None

    @property
    def result(self) -> int | None:
        """The answer as a number: what a load read, how many bytes, the number of a file; None after an error."""
        first = self.answer.split()[0]
        return int(first[1:]) if re.fullmatch(r"#[0-9]+", first) else _number(first)

    @property
    def error(self) -> str | None:
        """The name of the error, for example `EIO`; None where the call went well."""
        return None if self.result is not None else self.answer.split()[0]

    @property
    def data(self) -> bytes:
        """The bytes that the program got, where it got bytes."""
        return bytes.fromhex(self.got) if re.fullmatch(r"[0-9A-F]{2}( [0-9A-F]{2})*", self.got) else b""


class Recording(Sequence[Call]):
    """The calls of one process in the order of their answers. `truncated`: half a line stood at the end, and is left out."""

    def __init__(self, calls: Sequence[Call], truncated: bool = False) -> None:
        self._calls = tuple(calls)
        self.truncated = truncated

    @overload
    def __getitem__(self, index: int) -> Call: ...
    @overload
    def __getitem__(self, index: slice) -> Recording: ...
    def __getitem__(self, index: int | slice) -> Call | Recording:
        return Recording(self._calls[index]) if isinstance(index, slice) else self._calls[index]

    def __len__(self) -> int:
        return len(self._calls)

    def __iter__(self) -> Iterator[Call]:
        return iter(self._calls)

    def __repr__(self) -> str:
        return f"<recording of {len(self)} calls>"

    def select(self, name: str | None = None, device: str | None = None) -> Recording:
        """The calls of a name, and those on a device: its opening, and calls on what that opening gave, lines included."""
        chosen = []
        owners: dict[int, str] = {}
        for call in self:
            words = call.arguments
            if call.name == "open" and words:
                on = words[0]
            else:
                on = owners.get(call.file or 0, "")
            opened = re.fullmatch(r"#([0-9]+)", call.answer.split()[0])
            if opened:
                owners[int(opened[1])] = on
            if (name is None or call.name == name) and (device is None or on == device):
                chosen.append(call)
        return Recording(chosen)

    @property
    def failed(self) -> Recording:
        """The calls that gave an error."""
        return Recording([call for call in self if call.error is not None])


def parse(text: str, name: str = "recording") -> Recording:
    """Reads a recording's text. Raises BadFile with `name` and the number of the line that is none of a recording."""
    lines = text.split("\n")
    rest = lines.pop()
    if not lines or lines[0] != HEADING:
        raise BadFile(f'{name}:1: this is no recording; its first line is "{HEADING}"')
    calls = []
    for number, line in enumerate(lines[1:], start=2):
        found = _LINE.fullmatch(line)
        call, equals, answer = found[3].rpartition(" = ") if found else ("", "", "")
        if found is None or not equals or not answer.strip() or not call:
            raise BadFile(f'{name}:{number}: "{line}" is no call; it has a form such as '
                          '"[    0.300453200] close #1 = 0"')
        short, _, got = answer.partition(" | ")
        time_ns = int(found[1]) * 10**9 + int(found[2])
        calls.append(Call(time_ns, call, short, got, number))
    return Recording(calls, truncated=rest != "")


def read(path: str | os.PathLike[str]) -> Recording:
    """Reads the recording of one process. Raises OSError where it cannot be read, BadFile where it is none."""
    return parse(Path(path).read_text(encoding="utf-8", errors="replace"), os.fspath(path))


def read_all(path: str | os.PathLike[str]) -> list[Recording]:
    """Reads the recordings of all processes of a run: FILE, FILE.2, FILE.3 and so on. Raises as `read` does."""
    recordings = [read(path)]
    while (following := Path(f"{os.fspath(path)}.{len(recordings) + 1}")).exists():
        recordings.append(read(following))
    return recordings
