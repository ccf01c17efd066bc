"""What can go wrong. Everything that this package raises of its own is a HeadError."""

from __future__ import annotations

from collections.abc import Mapping
from typing import Any


class HeadError(Exception):
    """Anything that went wrong with a head."""


class NotStarted(HeadError):
    """The program, or the launcher, could not be started. The text has what it said on standard error."""


class Unreachable(HeadError):
    """Nobody answers at the head's address: the run has ended, or is held from outside."""


class Refused(HeadError):
    """The head refused a request. The text is the head's own reason.

    `status` is the HTTP status: 400 not understood, 404 not there, 409 not possible now, 429 too many requests.
    """

    def __init__(self, status: int, reason: str) -> None:
        super().__init__(reason)
        self.status = status
        self.reason = reason


class EventsGone(HeadError):
    """Events were asked for that the head has let go: the run is longer than what it keeps."""


class WaitFailed(HeadError, TimeoutError):
    """What was waited for did not come in time. The text says what was last seen."""


class ProgramEnded(WaitFailed):
    """The program ended before what was waited for came."""


class BadFile(HeadError, ValueError):
    """A file is not what it should be. The text has file and line."""


class CommandFailed(HeadError):
    """The host refused a command, or it failed. The text is the host's own.

    `reply` is the whole reply; `status` is what camhost's exit status would be; `result` is the board's result code, None
    where the board was not asked.
    """

    def __init__(self, text: str, reply: Mapping[str, Any], status: int, result: int | None) -> None:
        super().__init__(text)
        self.reply = reply
        self.status = status
        self.result = result
