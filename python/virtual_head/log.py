"""Reads the log of a run, `virtual-head --log FILE`."""

from __future__ import annotations

import os
import re
from collections.abc import Iterable
from pathlib import Path

from .errors import BadFile
from .events import Event, EventList

_LINE = re.compile(r"\[ *([0-9]+)\.([0-9]{9})\] (\S.*)")


class Log(EventList):
    """The events of a log. `truncated`: the last line was cut, as of a program that was killed; it is left out."""

    def __init__(self, events: Iterable[Event], truncated: bool = False) -> None:
        super().__init__(events)
        self.truncated = truncated


def parse(text: str, name: str = "log") -> Log:
    """Reads a log's text. Raises BadFile with `name` and the number of the line that is none of a log."""
    lines = text.split("\n")
    rest = lines.pop()
    events = []
    for number, line in enumerate(lines):
        found = _LINE.fullmatch(line)
        if found is None:
            raise BadFile(f'{name}:{number + 1}: "{line}" is no line of a log; it has a form such as '
                          '"[    0.301003200] SPI 0F B9 04 36"')
        events.append(Event(found[3], int(found[1]) * 10**9 + int(found[2]), number))
    return Log(events, truncated=rest != "")


def read(path: str | os.PathLike[str]) -> Log:
    """Reads a log. Raises OSError where the file cannot be read, BadFile where it is no log."""
    return parse(Path(path).read_text(encoding="utf-8", errors="replace"), os.fspath(path))
