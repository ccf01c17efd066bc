"""The virtual camera head for test benches in Python.

`Head.start` runs a program on a head, `Head.attach` looks at one that runs. The head then tells its state, its registers,
its events and its pictures, takes faults, and lets its time be stopped. `Camhost` drives the shipped host by commands.
`log.read` and `recording.read` read what a run left behind.

Times are nanoseconds of the head's clock in members that end in `_ns`, and seconds in arguments: `within` counts the
head's seconds, `real` those of the machine. Nothing waits without a limit of the machine's time.
"""

from . import log, recording
from .camhost import Camhost, Reply
from .errors import (
    BadFile,
    CommandFailed,
    EventsGone,
    HeadError,
    NotStarted,
    ProgramEnded,
    Refused,
    Unreachable,
    WaitFailed,
)
from .events import Event, EventList
from .head import Fault, Head, RunInfo, Time
from .picture import PictureInfo, Pixels
from .state import Field, Register, Registers, State

__all__ = [
    "BadFile",
    "Camhost",
    "CommandFailed",
    "Event",
    "EventList",
    "EventsGone",
    "Fault",
    "Field",
    "Head",
    "HeadError",
    "NotStarted",
    "PictureInfo",
    "Pixels",
    "ProgramEnded",
    "Refused",
    "Register",
    "Registers",
    "Reply",
    "RunInfo",
    "State",
    "Time",
    "Unreachable",
    "WaitFailed",
    "log",
    "recording",
]
