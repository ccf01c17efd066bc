"""Events of a run: what the hardware saw, and what it did by itself."""

from __future__ import annotations

import re
from collections.abc import Iterable, Iterator, Sequence
from dataclasses import dataclass
from typing import overload

_ERRNO = re.compile(r" failed ([A-Z][A-Z0-9]*|short|-?[0-9]+)$")


@dataclass(frozen=True)
class Event:
    """One event.

    `text` is its line in the log, without the time; `time_ns` is the head's time at which it began [ns]. `number` counts
    over all processes of the run from 0; in a log it is the line's place. `process` is the process's number from 1; a log
    does not tell it, it is 0 there.
    """

    text: str
    time_ns: int
    number: int
    process: int = 0

    @property
    def kind(self) -> str:
        """The first word: `SPI`, `GPIO`, `STATE`, `VIOLATION`, ..."""
        return self.text.partition(" ")[0]

    @property
    def words(self) -> list[str]:
        """The words of the text, the kind first."""
        return self.text.split()

    @property
    def seconds(self) -> float:
        """The time [s]."""
        return self.time_ns / 1e9

    @property
    def failed(self) -> str | None:
        """The name of the error with which the call was refused or failed, or `short`; None where it went well."""
        found = None if self.kind in ("NOTE", "VIOLATION") else _ERRNO.search(self.text)
        return found[1] if found else None

    @property
    def data(self) -> bytes:
        """The bytes of a transfer on the sensor's port (`SPI`); of other events none."""
        if self.kind != "SPI":
            return b""
        text = _ERRNO.sub("", self.text)[len("SPI") :]
        return bytes.fromhex(text) if re.fullmatch(r"[ 0-9A-Fa-f]*", text) else b""

    def begins_with(self, words: str) -> bool:
        """Whether the text begins with these words, as `after` of a scenario means it: whole words."""
        return self.text == words or self.text.startswith(words + " ")

    def __str__(self) -> str:
        return f"[{self.time_ns // 10**9:5}.{self.time_ns % 10**9:09}] {self.text}"


def matches(event: Event, kind: str | Iterable[str] | None, text: str | re.Pattern[str] | None) -> bool:
    """Whether an event is of a kind (or of one of several), and its text begins with words or has a pattern in it."""
    if kind is not None and event.kind not in ({kind} if isinstance(kind, str) else set(kind)):
        return False
    if text is None:
        return True
    return event.begins_with(text) if isinstance(text, str) else text.search(event.text) is not None


class EventList(Sequence[Event]):
    """Events in their order."""

    def __init__(self, events: Iterable[Event]) -> None:
        self._events = tuple(events)

    @overload
    def __getitem__(self, index: int) -> Event: ...
    @overload
    def __getitem__(self, index: slice) -> EventList: ...
    def __getitem__(self, index: int | slice) -> Event | EventList:
        return EventList(self._events[index]) if isinstance(index, slice) else self._events[index]

    def __len__(self) -> int:
        return len(self._events)

    def __iter__(self) -> Iterator[Event]:
        return iter(self._events)

    def __eq__(self, other: object) -> bool:
        return self._events == other._events if isinstance(other, EventList) else NotImplemented

    def __hash__(self) -> int:
        return hash(self._events)

    def __repr__(self) -> str:
        return f"<{len(self)} events>"

    def select(
        self, kind: str | Iterable[str] | None = None, text: str | re.Pattern[str] | None = None
    ) -> EventList:
        """Those of a kind (or of one of several) whose text begins with words, or has a pattern in it."""
        kinds = kind if kind is None or isinstance(kind, str) else frozenset(kind)
        return EventList(event for event in self if matches(event, kinds, text))

    @property
    def texts(self) -> list[str]:
        """The texts alone."""
        return [event.text for event in self]

    @property
    def violations(self) -> EventList:
        """The rules of the head that the program broke."""
        return self.select(kind="VIOLATION")
