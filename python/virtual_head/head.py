"""A head that a test drives: started with a program on it, or attached to."""

from __future__ import annotations

import contextlib
import os
import re
import shutil
import tempfile
import time as clock
import urllib.parse
from collections.abc import Callable, Iterable, Iterator, Mapping, Sequence
from dataclasses import dataclass
from pathlib import Path
from types import MappingProxyType, TracebackType
from typing import Any, Literal

from .client import INTERFACE, Client
from .errors import EventsGone, HeadError, NotStarted, ProgramEnded, Refused, Unreachable, WaitFailed
from .events import Event, EventList, matches
from .picture import PictureInfo, pixels_of
from .process import Started, absolute, found_program, to_standard_error
from .state import Registers, State, build

_LOOK = 0.01  # pause between two looks at a head [s of the machine]; it takes 500 requests a second
_PAGE = 1000  # events that a head gives at once


@dataclass(frozen=True)
class RunInfo:
    """The run: `virtual_head` is its version, `status` the ended program's exit status, else None. Events from
    `first_event` to before `next_event` are kept. `process`: the number of the process that is shown, 0: none yet."""

    virtual_head: str
    program: Sequence[str]
    scenario: str
    status: int | None
    process: int
    first_event: int
    next_event: int
    raw: Mapping[str, Any]


@dataclass(frozen=True)
class Time:
    """The head's clock: `time_ns` [ns], `mode` "virtual" or "real" (None: no program has used the head yet)."""

    time_ns: int
    mode: str | None
    running: bool
    stopped: bool


class Fault:
    """A fault of this session. As a context manager it ends with the block."""

    def __init__(self, head: Head, name: str, what: str) -> None:
        self._head = head
        self.name = name
        self.what = what

    def end(self) -> None:
        """Ends it now. Raises Refused where the head cannot do that."""
        self._head.end_fault(self.name)

    @property
    def lasts(self) -> bool:
        """Whether it acts now."""
        return self.name in self._head.state().faults

    def __enter__(self) -> Fault:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None) -> None:
        try:
            self.end()
        except (Refused, Unreachable) as refused:
            # A program that has ended took its faults along.
            if kind is None and self._head.runs:
                raise HeadError(f'the fault "{self.name}" cannot be ended: {refused}') from refused

    def __repr__(self) -> str:
        return f"<fault {self.name}: {self.what}>"


class Head:
    """A head on which a program runs. Made by `start` or `attach`; as a context manager it is closed behind the block.

    Methods that ask the head raise Refused with its reason, and Unreachable where nobody answers. One thread at a time.
    """

    def __init__(self, client: Client) -> None:
        self._client = client
        self._started: Started | None = None
        self._folder: str | None = None
        self._next: int | None = None  # the event at which the next wait for a text begins

    # Begin and end

    @classmethod
    def attach(cls, address: str) -> Head:
        """Looks at a head that runs, at an address such as "http://127.0.0.1:40213/".

        Raises Unreachable where nobody answers, HeadError where the answer is no head's or of another interface.
        """
        head = cls(Client(address))
        told = head._client.get("/v1")
        if not isinstance(told, dict) or told.get("interface") != INTERFACE:
            raise HeadError(f"{address} has interface {told.get('interface') if isinstance(told, dict) else None}; "
                            f"this package knows {INTERFACE}")
        return head

    @classmethod
    def start(
        cls,
        program: str | os.PathLike[str] | Sequence[str | os.PathLike[str]],
        *,
        scenario: str | os.PathLike[str] | None = None,
        workdir: str | os.PathLike[str] | None = None,
        frames: str | os.PathLike[str] | None = None,
        max_frames: int | None = None,
        scene: str | os.PathLike[str] | None = None,
        log: str | os.PathLike[str] | None = None,
        report: str | os.PathLike[str] | None = None,
        vcd: str | os.PathLike[str] | None = None,
        record: str | os.PathLike[str] | None = None,
        summary: str | os.PathLike[str] | None = None,
        time: Literal["virtual", "real"] = "virtual",
        stopped: bool = False,
        environment: Mapping[str, str] | None = None,
        launcher: str | os.PathLike[str] | None = None,
        errors: Callable[[str], None] | None = to_standard_error,
        real: float = 60.0,
    ) -> Head:
        """Starts a program on a head of its own.

        `program` is a program, or a list of it and its arguments. `scenario` is a file, or a scenario's text (what has a
        line break in it). The other files and folders are those of `virtual-head`. `stopped` stops the program's first
        use of the head until `go`. The launcher is `launcher`, else what VIRTUAL_HEAD says in the environment, else the
        one in PATH. `errors` gets each line of standard error; None keeps them back.

        The head goes on answering when the program has ended, until `close`. Raises NotStarted where launcher or program
        cannot be started within `real` seconds of the machine's time, with what they said.
        """
        words = [program] if isinstance(program, (str, os.PathLike)) else list(program)
        command = [found_program(launcher, "VIRTUAL_HEAD", "virtual-head"), "--serve", "0", "--keep-serving",
                   "--time", time]
        folder = tempfile.mkdtemp(prefix="virtual-head-")
        try:
            if isinstance(scenario, str) and "\n" in scenario:
                named = Path(folder) / "scenario.ini"
                named.write_text(scenario, encoding="utf-8")
                scenario = named
            # The summary goes where it does not come between the program's own lines.
            summary = summary if summary is not None else Path(folder) / "summary"
            for option, path in (("scenario", scenario), ("workdir", workdir), ("frames", frames), ("scene", scene),
                                 ("log", log), ("report", report), ("vcd", vcd), ("record", record),
                                 ("summary", summary)):
                if path is not None:
                    command += [f"--{option}", absolute(path)]
            if max_frames is not None:
                command += ["--max-frames", str(max_frames)]
            if stopped:
                command.append("--stopped")
            started = Started([*command, "--", *(os.fspath(word) for word in words)], environment=environment,
                              errors=errors)
        except BaseException:
            shutil.rmtree(folder, ignore_errors=True)
            raise
        head = None
        try:
            address = started.errors.find(r"^virtual-head: bench at (http://\S+)$", real)
            if address is None:
                started.wait(1.0)
                state = "does not say its address" if started.status is None else f"ended with {started.status}"
                raise NotStarted(f"virtual-head {state}: {started.errors.text.strip() or 'it said nothing'}")
            try:
                head = cls.attach(address[1])
            except Unreachable as error:
                raise NotStarted(f"virtual-head is gone again: {started.errors.text.strip()}") from error
            return head
        except BaseException:
            started.kill()
            raise
        finally:
            if head is None:
                shutil.rmtree(folder, ignore_errors=True)
            else:
                head._started = started
                head._folder = folder
                head._summary = absolute(summary)

    _summary: str | None = None
    _summary_text = ""

    def close(self, *, real: float = 10.0) -> int | None:
        """Ends what `start` started, at most once: a program that runs gets SIGTERM, and SIGKILL after `real` seconds of
        the machine's time. A head that was attached to stays. Returns the launcher's exit status, None for such a head.

        The files of the run (log, report, ...) are whole then.
        """
        started = self._started
        if started is None:
            return None
        if self._folder is None:
            return started.status
        try:
            self._end(started, real)
        finally:
            started.kill()
            with contextlib.suppress(OSError):
                self._summary_text = Path(self._summary or "").read_text(encoding="utf-8", errors="replace")
            shutil.rmtree(self._folder, ignore_errors=True)
            self._folder = None
        return started.status

    def _end(self, started: Started, real: float) -> None:
        deadline = clock.monotonic() + real
        asked = False
        while started.status is None and clock.monotonic() < deadline:
            try:
                if self.info().status is not None:
                    # Nothing runs but the bench. It hears the signal a moment after it has said that it stays.
                    started.errors.find(r"^virtual-head: the program has ended;", deadline - clock.monotonic())
                    clock.sleep(_LOOK)
                    started.terminate()
                    started.wait(min(1.0, deadline - clock.monotonic()))
                    continue
                if not asked:
                    asked = True
                    with contextlib.suppress(Refused):
                        self.go()  # a program that is held hears no signal
                    started.terminate()
            except (Refused, Unreachable):
                pass
            started.wait(_LOOK)

    def __enter__(self) -> Head:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None) -> None:
        self.close()

    def wait(self, *, real: float = 60.0) -> int:
        """Waits up to `real` seconds of the machine's time for the program's end. Returns its exit status, 128 plus the
        signal that ended it. The head answers still. Raises WaitFailed."""
        deadline = clock.monotonic() + real
        while (status := self._ended()) is None:
            if clock.monotonic() >= deadline:
                raise WaitFailed(f"the program did not end within {real:g} s of real time; {self._seen()}")
            clock.sleep(_LOOK)
        return status

    def _ended(self) -> int | None:
        try:
            return self.info().status
        except Unreachable:  # a program that could not be started: the launcher does not stay
            if self._started is None or (status := self._started.wait(1.0)) is None:
                raise
            return status

    @property
    def address(self) -> str:
        """Where the head answers."""
        return self._client.address

    @property
    def runs(self) -> bool:
        """Whether the program runs."""
        try:
            return self.info().status is None
        except Unreachable:
            return False

    @property
    def exit_status(self) -> int | None:
        """The launcher's exit status, once the head is closed: the program's, or 9 where a rule of the head was broken, 11
        where the sensor streamed without a picture. None before, and for a head that was attached to."""
        return None if self._started is None else self._started.status

    @property
    def output(self) -> str:
        """What the program has said on standard output. Empty for a head that was attached to."""
        return "" if self._started is None else self._started.output.text

    @property
    def errors(self) -> str:
        """What program and launcher have said on standard error. Empty for a head that was attached to."""
        return "" if self._started is None else self._started.errors.text

    @property
    def summary(self) -> str:
        """What the head saw, in the words of `virtual-head`; empty before `close`, and for a head that was attached to."""
        return self._summary_text

    def wait_for_error(self, pattern: str, *, real: float = 60.0) -> re.Match[str]:
        """Waits up to `real` seconds of the machine's time for a line of standard error with a pattern in it.

        Raises WaitFailed with what was said in its place, HeadError for a head that was attached to.
        """
        if self._started is None:
            raise HeadError("nobody here has the standard error of a head that was attached to")
        deadline = clock.monotonic() + real
        while (found := self._started.errors.find(pattern, _LOOK)) is None:
            over = not self.runs
            if over and (found := self._started.errors.find(pattern, _LOOK)) is not None:
                return found
            if over or clock.monotonic() >= deadline:
                why = "the program has ended" if over else f"{real:g} s of real time are over"
                kind = ProgramEnded if over else WaitFailed
                raise kind(f'no line "{pattern}" on standard error, and {why}; it said: {self.errors.strip()}')
        return found

    def settle(self) -> None:
        """Waits until the head has told everything that happened until now, what it did by itself as well.

        Without it a head tells a moment later: it collects events every 10 ms, and looks at itself every 50 ms. Raises
        Refused where the program is held from outside, by a debugger for example.
        """
        self._client.look()

    # Questions

    def info(self) -> RunInfo:
        """The run itself."""
        told = self._client.get("/v1")
        try:
            return RunInfo(told["virtual_head"], tuple(told["program"]), told["scenario"], told["status"],
                           told["process"], told["first_event"], told["next_event"], MappingProxyType(told))
        except KeyError as error:
            raise HeadError(f"the head does not tell {error} of its run; is it of another version?") from error

    def state(self, *, at: int | None = None) -> State:
        """The head's state now, or behind event number `at`."""
        return build(State, self._client.get("/v1/state", at=at))

    def registers(self, *, at: int | None = None) -> Registers:
        """The registers that are known now, or behind event number `at`."""
        return build(Registers, self._client.get("/v1/registers", at=at))

    def scenario(self) -> str:
        """The session as a scenario: what the run began with, and its faults at the times at which they struck."""
        return self._client.request("GET", "/v1/scenario")[0].decode("utf-8", "replace")

    def waveform(self, first: int | None = None, end: int | None = None) -> str:
        """What the wires did from event `first` to before `end`, as SVG; up to 2,000 events, without numbers the last
        200."""
        return self._client.request("GET", "/v1/waveform.svg", query={"from": first, "to": end})[0].decode("utf-8")

    # Events

    def _page(self, first: int | None) -> tuple[list[Event], int, int]:
        told = self._client.get("/v1/events", **{"from": first, "limit": _PAGE})
        events = [Event(one["text"], one["time_ns"], one["event"], one["process"]) for one in told["events"]]
        if first is not None and told["first_event"] > first:
            raise EventsGone(f"events {first} to {told['first_event'] - 1} are not kept any more")
        return events, told["next"], told["next_event"]

    def events(
        self,
        first: int | None = None,
        end: int | None = None,
        *,
        kind: str | Iterable[str] | None = None,
        text: str | re.Pattern[str] | None = None,
    ) -> EventList:
        """The events from number `first` (None: the first that is kept) to before `end` (None: until now).

        `kind` takes those of a kind, or of one of several; `text` those that begin with these words, or have a pattern in
        them. Raises EventsGone where events from `first` on are let go.
        """
        return EventList(self._walk(first, end, kind, text))

    def _walk(
        self, first: int | None, end: int | None, kind: str | Iterable[str] | None,
        text: str | re.Pattern[str] | None,
    ) -> Iterator[Event]:
        kinds = kind if kind is None or isinstance(kind, str) else frozenset(kind)
        end = self.info().next_event if end is None else end
        while first is None or first < end:
            events, following, _ = self._page(first)
            for event in events:
                if event.number < end and matches(event, kinds, text):
                    yield event
            if not events:
                return
            first = following

    def follow(
        self,
        first: int | None = None,
        *,
        kind: str | Iterable[str] | None = None,
        text: str | re.Pattern[str] | None = None,
        real: float = 60.0,
    ) -> Iterator[Event]:
        """Events as they come, from number `first` on (None: the first that is kept), until the program has ended.

        Filters as `events` does. Raises WaitFailed where no event at all comes for `real` seconds of the machine's time.
        """
        kinds = kind if kind is None or isinstance(kind, str) else frozenset(kind)
        last = clock.monotonic()
        while True:
            over = not self.runs  # asked before the events, so that the last ones are not missed
            events, following, _ = self._page(first)
            for event in events:
                if matches(event, kinds, text):
                    yield event
            if events:
                first, last = following, clock.monotonic()
            elif over:
                return
            elif clock.monotonic() - last >= real:
                raise WaitFailed(f"no event for {real:g} s of real time; {self._seen()}")
            else:
                clock.sleep(_LOOK)

    @property
    def next_event(self) -> int:
        """The number that the next event will have: a mark for `events` and `wait_for`."""
        return self.info().next_event

    def violations(self) -> EventList:
        """The rules of the head that the program broke, as far as they are kept."""
        return self.events(kind="VIOLATION")

    # Waiting

    def wait_for(
        self,
        what: str | re.Pattern[str] | Callable[[State], object],
        *,
        within: float | None = None,
        since: int | None = None,
        real: float = 30.0,
    ) -> Any:
        """Waits until something has happened, or a state holds.

        A text is the words with which an event begins (`"GPIO RESET_B = 1"`), a pattern is in its text; the event is
        returned. Such waits go through the events in their order: each begins behind the event that the last one found,
        the first one at the beginning. So no event is missed, and none found twice. `since` begins elsewhere (`next_event`
        of a moment before).

        A function gets the state, again and again; the state for which it says something true is returned. What lasts
        shorter than 10 ms of the machine's time may be missed: wait for its event.

        `within` is the deadline in seconds of the head's time, from its time at the call; for a process that begins
        afterwards, from its beginning. `real` is one in seconds of the machine's time, in case the head's clock stands.
        Raises WaitFailed with what was last seen; ProgramEnded, which is one, where the program has ended.
        """
        if callable(what):
            return self._wait_for_state(what, within, real)
        return self._wait_for_event(what, within, since, real)

    def _wait_for_event(self, what: str | re.Pattern[str], within: float | None, since: int | None, real: float) -> Event:
        wanted = f'"{what}"' if isinstance(what, str) else f'"{what.pattern}"'
        limit = clock.monotonic() + real
        place = self._next if since is None else since
        begun = self.state()
        while True:
            over = not self.runs
            events, following, newest = self._page(place)
            for event in events:
                if _late(event.time_ns, event.process, begun, within):
                    raise WaitFailed(f"{wanted} did not come within {within:g} s of the head's time; {self._seen(event)}")
                if matches(event, None, what):
                    self._next = event.number + 1
                    return event
            if events:
                place = following
            if place is not None and place < newest and clock.monotonic() < limit:
                continue
            self._check(wanted, begun, within, over, limit, real)

    def _wait_for_state(self, holds: Callable[[State], object], within: float | None, real: float) -> State:
        wanted = f"the state that {getattr(holds, '__name__', 'a function')} waits for"
        limit = clock.monotonic() + real
        begun = self.state()
        state = begun
        while True:
            over = not self.runs
            state = self.state()
            if holds(state):
                return state
            self._check(wanted, begun, within, over, limit, real, state)

    def _check(self, wanted: str, begun: State, within: float | None, over: bool, limit: float, real: float,
               state: State | None = None) -> None:
        """Raises what ends a wait; pauses where nothing does."""
        now = self.state() if state is None else state
        if over:
            raise ProgramEnded(f"{wanted} did not come: the program has ended, with {self._status()}; {self._seen()}")
        if _late(now.time_ns, now.process.number if now.process else 0, begun, within):
            raise WaitFailed(f"{wanted} did not come within {within:g} s of the head's time; {self._seen()}")
        if clock.monotonic() >= limit:
            raise WaitFailed(f"{wanted} did not come within {real:g} s of real time; {self._seen()}")
        clock.sleep(_LOOK)

    def _status(self) -> str:
        try:
            return f"status {self.info().status}"
        except Unreachable:
            return "a status that nobody knows"

    def _seen(self, last: Event | None = None) -> str:
        """What was last seen, for people."""
        try:
            if last is None:
                info = self.info()
                newest = self._page(max(info.first_event, info.next_event - 1))[0]
                last = newest[-1] if newest else None
            return f"last event: {last if last else 'none'}; {self.state().summary()}"
        except HeadError as error:
            return f"the head says nothing more: {error}"

    # Faults

    def make_fault(
        self,
        what: str,
        *,
        name: str | None = None,
        at: float | str | None = None,
        after: str | None = None,
        lasts: float | str | None = None,
        until: float | str | None = None,
    ) -> Fault:
        """Makes a fault, in the words of a scenario: `what` and `after` as there; `at`, `lasts` (there: `for`) and `until`
        are milliseconds of the head's time, `until` may be an event, too. Without `at` and `after` it strikes at once.

        Raises Refused with the head's reason, and changes nothing then.
        """
        given = {"what": what, "name": name, "at": at, "after": after, "for": lasts, "until": until}
        body = {key: value if isinstance(value, str) else f"{value:.15g}" for key, value in given.items()
                if value is not None}
        made = Fault(self, str(self._client.post("/v1/faults", body)["name"]), what)
        with contextlib.suppress(Refused):  # it is made, whether the head tells of it or not
            self.settle()
        return made

    fault = make_fault
    """`with head.fault("lanes 3 lost"):` makes a fault that ends with the block."""

    def end_fault(self, name: str) -> None:
        """Ends a fault now. Raises Refused with the head's reason."""
        self._client.request("DELETE", "/v1/faults/" + urllib.parse.quote(name, safe=""))
        with contextlib.suppress(Refused):
            self.settle()

    def fault_kinds(self) -> list[str]:
        """The forms that `what` of a fault may have, for people."""
        return list(self._client.get("/v1/faults")["kinds"])

    # Pictures

    def picture(self) -> PictureInfo:
        """The latest picture, without its pixels. Raises Refused (404) where none was delivered yet."""
        told = self._client.get("/v1/picture")
        return PictureInfo(told["process"], told["pictures"], told["time_ns"], told["width"], told["height"],
                           MappingProxyType(dict(told["settings"])))

    def picture_png(self) -> bytes:
        """The latest picture as PNG of 16 bits. Raises as `picture` does."""
        return self._client.request("GET", "/v1/picture.png")[0]

    def picture_pixels(self) -> Any:
        """The latest picture's values: a NumPy array (`uint16`, rows and columns) where NumPy is installed, else Pixels,
        which is indexed alike. Raises as `picture` does."""
        raw, headers = self._client.request("GET", "/v1/picture.raw")
        return pixels_of(raw, int(headers["X-Width"]), int(headers["X-Height"]))

    # Time

    def time(self) -> Time:
        """The head's clock."""
        return _time(self._client.get("/v1/time"))

    def stop(self) -> Time:
        """Stops the program at its next use of the head. Virtual time only; raises Refused otherwise."""
        return _time(self._client.post("/v1/time", {"action": "stop"}))

    def step(self, events: int = 1, *, real: float = 30.0) -> Time:
        """Lets a stopped program go on to its next event, so many times, and waits for each.

        One call of the program may bring several events; the program stops behind it. `real` is the longest wait for
        one in seconds of the machine's time: a program that waits for something else than its head makes no step.
        Raises WaitFailed then; ProgramEnded, which is one, where the program has ended; Refused (409) where time is real.
        """
        if events < 1:
            raise ValueError(f"{events} steps; allowed is 1 or more")
        for _ in range(events):
            self.settle()
            self._step(self.next_event, clock.monotonic() + real)
        return self.time()

    def _step(self, before: int, limit: float) -> None:
        over = False
        try:
            self._client.post("/v1/time", {"action": "step"})
        except Refused:
            over = not self.runs
            if not over:
                raise
        while True:
            over = over or not self.runs
            self.settle()
            if self.next_event > before:
                return
            if over:
                raise ProgramEnded(f"no step: the program has ended, with {self._status()}; {self._seen()}")
            if clock.monotonic() >= limit:
                raise WaitFailed(f"no step: the program makes no use of its head; {self._seen()}")
            clock.sleep(_LOOK)

    def go(self) -> Time:
        """Lets a stopped program go on."""
        return _time(self._client.post("/v1/time", {"action": "go"}))

    @contextlib.contextmanager
    def stopped(self) -> Iterator[Time]:
        """Time stands for the block, and goes on behind it."""
        now = self.stop()
        try:
            yield now
        finally:
            with contextlib.suppress(Refused, Unreachable):  # the program has ended meanwhile
                self.go()


def _late(time_ns: int, process: int, begun: State, within: float | None) -> bool:
    if within is None:
        return False
    same = begun.process is not None and begun.process.number == process
    earlier = begun.process is not None and process < begun.process.number
    return not earlier and time_ns > (begun.time_ns if same else 0) + within * 1e9


def _time(told: Mapping[str, Any]) -> Time:
    return Time(told["time_ns"], told.get("time"), bool(told.get("running")), bool(told.get("stopped")))
