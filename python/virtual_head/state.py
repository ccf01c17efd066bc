"""The head's state and registers, read-only. Members that a later head adds are passed over; `raw` has them."""

from __future__ import annotations

import dataclasses
import difflib
from collections.abc import Callable, Iterator, Mapping
from dataclasses import dataclass, field
from types import MappingProxyType
from typing import Any, TypeVar

from .errors import HeadError

_Part = TypeVar("_Part")


def build(kind: type[_Part], data: Mapping[str, Any]) -> _Part:
    """Makes a part of its JSON object. Raises HeadError where a member is missing: the head is of another interface."""
    values: dict[str, Any] = {}
    for one in dataclasses.fields(kind):  # type: ignore[arg-type]
        if one.name == "raw":
            values["raw"] = MappingProxyType(dict(data))
            continue
        if one.name not in data:
            if "absent" in one.metadata:
                values[one.name] = one.metadata["absent"]
                continue
            raise HeadError(f'the head does not tell "{one.name}" of {kind.__name__}; is it of another version?')
        value = data[one.name]
        values[one.name] = one.metadata["of"](value) if "of" in one.metadata and value is not None else value
    return kind(**values)


def _part(kind: type[Any]) -> Any:
    return field(metadata={"of": lambda data: build(kind, data)})


def _parts(kind: type[Any]) -> Any:
    return field(metadata={"of": lambda data: tuple(build(kind, one) for one in data)})


def _by(make: Callable[[Mapping[str, Any]], dict[str, Any]]) -> Any:
    return field(metadata={"of": lambda data: MappingProxyType(make(data))})


@dataclass(frozen=True)
class Measured:
    """What the program's last conversion said of a supply [V], and the limits with which it is compared."""

    volts: float
    verdict: str
    good: bool
    lowest: float
    highest: float
    event: int | None


@dataclass(frozen=True)
class Supply:
    """A supply: where it stands or goes to [V]; `enable` is the level of its line, None before anybody set it."""

    name: str
    enable_line: str
    enable: int | None
    volts: float
    good: bool
    event: int | None
    measured: Measured | None = _part(Measured)


@dataclass(frozen=True)
class Reset:
    """The sensor's reset line; level 0 holds the sensor, None: nobody set it."""

    line: str
    level: int | None


@dataclass(frozen=True)
class Sensor:
    """The sensor. `doing`: "asleep", "stopped", "lanes on", "streaming" or "something else"."""

    awake: bool
    doing: str
    frame_state: int
    triggered: bool
    event: int | None


@dataclass(frozen=True)
class Pll:
    """The flags of the receiver's PLL."""

    locked: bool
    rg_locked: bool
    gb_locked: bool
    event: int | None


@dataclass(frozen=True)
class Lane:
    """One lane of the link."""

    locked: bool
    reset: bool
    held: bool
    event: int | None


@dataclass(frozen=True)
class Link:
    """The serial link; `lanes` in their order, lane 0 first."""

    enabled: bool
    aligned: bool
    aligned_event: int | None
    pll: Pll = _part(Pll)
    lanes: tuple[Lane, ...] = _parts(Lane)

    @property
    def locked_lanes(self) -> list[int]:
        """The numbers of the lanes that are locked."""
        return [number for number, lane in enumerate(self.lanes) if lane.locked]


@dataclass(frozen=True)
class Pipeline:
    """What runs behind the link."""

    bad_pixels_run: bool
    pixel_shift_runs: bool


@dataclass(frozen=True)
class Pulses:
    """The frame-start pulses [ns]."""

    period_ns: int
    length_ns: int
    low_pulses: bool
    event: int | None


@dataclass(frozen=True)
class Frames:
    """The frames that the sensor sends [ns]: their period, and how long their rows take."""

    period_ns: int
    rows_ns: int
    event: int | None


@dataclass(frozen=True)
class Line:
    """A GPIO line: direction "in" or "out", level None where nobody knows it."""

    direction: str
    level: int | None
    event: int | None


@dataclass(frozen=True)
class Conversion:
    """The last conversion of a channel of the supply monitor [steps]; None: it failed."""

    channel: int
    steps: int | None
    event: int | None
    time_ns: int


@dataclass(frozen=True)
class Process:
    """The process that is shown, as it is now. `pictures` counts those that it was delivered."""

    number: int
    pid: int
    time: str
    running: bool
    stopped: bool
    pictures: int


@dataclass(frozen=True)
class State:
    """A head's state behind event number `event` (None: before the first one), at `time_ns` [ns of the head's clock].

    `faults` are the names of those that last. `process` is that of now, whatever event was asked for; None: no program
    has used the head yet.
    """

    event: int | None
    time_ns: int
    clock_mhz: float | None
    violations: int
    failed_calls: int
    lost_events: int
    ended: bool
    supplies: Mapping[str, Supply] = _by(lambda data: {one["name"]: build(Supply, one) for one in data})
    reset: Reset = _part(Reset)
    sensor: Sensor = _part(Sensor)
    link: Link = _part(Link)
    pipeline: Pipeline = _part(Pipeline)
    pulses: Pulses | None = _part(Pulses)
    frames: Frames | None = _part(Frames)
    lines: Mapping[str, Line] = _by(lambda data: {name: build(Line, one) for name, one in data.items()})
    conversions: Mapping[int, Conversion] = _by(lambda data: {one["channel"]: build(Conversion, one) for one in data})
    spi: Mapping[str, int] = _by(dict)
    faults: tuple[str, ...] = field(metadata={"of": tuple})
    process: Process | None = _part(Process)
    raw: Mapping[str, Any] = field(repr=False, compare=False)

    def summary(self) -> str:
        """One line for people: what a test that failed wants to know first."""
        supplies = ", ".join(f"{name} {supply.volts:g} V" for name, supply in self.supplies.items())
        link = f"lanes locked {self.link.locked_lanes}, aligned {'yes' if self.link.aligned else 'no'}"
        pictures = 0 if self.process is None else self.process.pictures
        faults = f", faults {', '.join(self.faults)}" if self.faults else ""
        return (f"{self.time_ns / 1e9:.9f} s: sensor {self.sensor.doing}, {link}, {pictures} pictures, {supplies}, "
                f"{self.violations} violations{faults}")


@dataclass(frozen=True)
class Field:
    """A field of a register: its value, and what it means, with its unit."""

    name: str
    value: int
    meaning: str


@dataclass(frozen=True)
class Register:
    """A register that somebody wrote or read. `block` is the FPGA's block, None for the sensor; `area` 1 to 7 for the
    registers of a readout area but the first."""

    address: str
    value: int
    hex: str
    event: int | None
    time_ns: int
    fields: tuple[Field, ...] = _parts(Field)
    area: int | None = field(metadata={"absent": None})
    block: str | None = field(metadata={"absent": None})

    def __getitem__(self, name: str) -> int:
        """The value of a field. Raises KeyError with the names that there are."""
        for one in self.fields:
            if one.name == name:
                return one.value
        raise KeyError(f'{self.address} has no field "{name}"; it has {", ".join(one.name for one in self.fields) or "none"}')


@dataclass(frozen=True)
class Difference:
    """A register of which the program sent something else than the sensor holds; `sensor` None: it holds nothing."""

    address: str
    sent: int
    sensor: int | None
    event: int | None


@dataclass(frozen=True)
class Registers(Mapping[str, int]):
    """The registers that are known, and their fields by name: `registers["hd_max"]` is a value.

    A name that is in several registers, such as those of the readout areas, means the sensor's area 0; `field` takes
    others. It is a mapping of the names of fields. KeyError says which names come near.
    """

    event: int | None
    sensor: tuple[Register, ...] = _parts(Register)
    fpga: tuple[Register, ...] = _parts(Register)
    differences: tuple[Difference, ...] = _parts(Difference)

    def __getitem__(self, name: str) -> int:
        return self.field(name)

    def __iter__(self) -> Iterator[str]:
        return iter(dict.fromkeys(one.name for register in self.sensor + self.fpga for one in register.fields))

    def __len__(self) -> int:
        return len(list(iter(self)))

    def field(self, name: str, *, area: int | None = None, block: str | None = None) -> int:
        """The value of a field.

        `area` 0 to 7 chooses a readout area of the sensor, `block` a block of the FPGA by its title. Raises KeyError where
        nobody knows the field's register, or where the name alone means several.
        """
        found = [(register, one.value) for register in self.sensor + self.fpga for one in register.fields
                 if one.name == name]
        if block is not None:
            found = [pair for pair in found if pair[0].block == block]
        elif area is not None or any(pair[0].block is None for pair in found):
            found = [pair for pair in found if pair[0].block is None and (pair[0].area or 0) == (area or 0)]
        if len(found) == 1:
            return found[0][1]
        if found:
            places = ", ".join(f"{register.address} ({register.block or 'sensor'})" for register, _ in found)
            raise KeyError(f'"{name}" is in several registers: {places}; choose a block, or register(ADDRESS)')
        where = f" in block {block}" if block is not None else f" of area {area}" if area else ""
        near = difflib.get_close_matches(name, list(self), n=3)
        raise KeyError(f'no register that is known has a field "{name}"{where}'
                       + (f"; near are {', '.join(near)}" if near else "; it was not written yet, or there is none"))

    def register(self, address: str | int) -> Register:
        """The register at an address, such as "0x012" (sensor) or 0xFF210000 (FPGA). Raises KeyError where it is not
        known."""
        wanted = int(address, 0) if isinstance(address, str) else address
        for one in self.sensor + self.fpga:
            if int(one.address, 16) == wanted:
                return one
        raise KeyError(f"register {address if isinstance(address, str) else hex(address)} is not known: nobody wrote it")
