#!/usr/bin/env python3
"""A second model of the 3U5MGXS sensor board, its sensor driver and its FPGA access.

It was written without a look at the first and compares itself with it: it reads what the program
random_operations printed, life by life, and takes from it only what the code cannot know by itself,
which is the files it finds, the arguments of each operation, and what the hardware answered (values
of loads, ADC samples, failed calls). It predicts every other line: SPI frames, FPGA loads and
stores, GPIO levels, pauses, ADC commands, standard output and error, status lines, published words,
and the result of each operation, in order. A line's time is not compared.

Usage: random_operations SEED LIVES OPERATIONS | board_model.py [LABEL]
Exit status: 0 no difference, 1 differences or nothing to compare, 2 wrong usage.
"""

from __future__ import annotations

import math
import re
import struct
import sys
from typing import Callable, Iterable, Iterator, Optional

# ---------------------------------------------------------------------------------------------
# Arithmetic of the target

_F32 = struct.Struct("f")


def f32(value: float) -> float:
    """The nearest number of single precision. Products and quotients of two single-precision
    numbers, computed in double precision and rounded once more, come out as in single precision."""
    try:
        return _F32.unpack(_F32.pack(value))[0]
    except OverflowError:
        return math.inf if value > 0 else -math.inf


def divide(dividend: float, divisor: float) -> float:
    """IEEE division in single precision."""
    if divisor == 0:
        if dividend == 0 or dividend != dividend:
            return math.nan
        return math.inf if dividend > 0 else -math.inf
    return f32(dividend / divisor)


def truncate(value: float, bits: int) -> int:
    """To an unsigned integer as the target converts: towards zero, held at the ends, NaN is 0."""
    if value != value or value <= 0:
        return 0
    if value >= 2.0**bits:
        return (1 << bits) - 1
    return int(value)


def s32(value: int) -> int:
    value &= 0xFFFFFFFF
    return value - 0x100000000 if value & 0x80000000 else value


def s64(value: int) -> int:
    value &= 0xFFFFFFFFFFFFFFFF
    return value - (1 << 64) if value >> 63 else value


def quotient(dividend: int, divisor: int) -> int:
    """Integer division towards zero."""
    result = abs(dividend) // abs(divisor)
    return result if (dividend < 0) == (divisor < 0) else -result


# ---------------------------------------------------------------------------------------------
# The trace

OPERATION = re.compile(r"NOTE (?!OUT |ERR |STATUS |WORD |PIPELINE |BASE |shadow|sensor|words)")
ERRNO = {
    "EPERM": (1, "Operation not permitted"),
    "EIO": (5, "Input/output error"),
    "ENXIO": (6, "No such device or address"),
    "EAGAIN": (11, "Resource temporarily unavailable"),
    "EBUSY": (16, "Device or resource busy"),
    "ENODEV": (19, "No such device"),
    "EINVAL": (22, "Invalid argument"),
    "ETIMEDOUT": (110, "Connection timed out"),
}


ESCAPE = re.compile(r"\\(n|x[0-9A-F]{2})")


def unescape(found: re.Match[str]) -> str:
    return "\n" if found[1] == "n" else chr(int(found[1][1:], 16))


def one_line(text: str) -> str:
    """As the trace shows text."""
    return "".join(
        "\\n" if c == "\n" else c if " " <= c < "\x7f" else f"\\x{ord(c):02X}" for c in text
    )


class Difference(Exception):
    def __init__(self, expected: str, actual: str, at: int):
        super().__init__(expected)
        self.expected = expected
        self.actual = actual
        self.at = at


class Trace:
    """The lines of one life, in order, and where in them the model is."""

    def __init__(self) -> None:
        self.whose = ""
        self.files: dict[str, str] = {}
        self.settings: dict[str, dict[tuple[str, str], str]] = {}
        self.wrong: list[str] = []
        self.lines: list[str] = []
        self.lost: set[int] = set()  # lines of SPI words that the sensor did not get as sent
        self.at = 0
        # Standard output's base: what it is, where it was set, and where it was looked at.
        self.base = "dec"
        self.base_set: dict[int, str] = {}
        self.base_seen: dict[int, str] = {}

    def setting(self, file: str, section: str, key: str) -> Optional[str]:
        """A value of an INI file, if it is there. What comes first in a file counts."""
        values = self.settings.get(file)
        if values is None:
            values = {}
            inside = ""
            for line in self.files.get(file, "").split("\n"):
                if line.startswith("["):
                    inside = line[1:].split("]")[0]
                elif "=" in line:
                    name, value = line.split("=", 1)
                    values.setdefault((inside, name.strip()), value.strip())
            self.settings[file] = values
        return values.get((section, key))

    def add(self, raw: str) -> None:
        line = raw[raw.index("]") + 2 :]
        if line.startswith("VIOLATION "):
            if line.startswith(("VIOLATION sensor-asleep", "VIOLATION spi-word")):
                self.lost.add(len(self.lines) - 1)
            return
        if line.startswith("NOTE BASE set "):
            self.base_set[len(self.lines)] = line[14:]
        elif line.startswith("NOTE BASE now "):
            self.base_seen[len(self.lines)] = line[14:]
        else:
            self.lines.append(line)

    def expect(self, line: str) -> None:
        """The next line is exactly this."""
        if self.lines[self.at] != line:
            raise Difference(line, self.lines[self.at], self.at)
        self.at += 1

    def call(self, line: str) -> Optional[str]:
        """The next line is this call on a device. Returns the name of its error, or none."""
        actual = self.lines[self.at]
        if actual == line:
            self.at += 1
            return None
        if actual.startswith(line + " failed "):
            self.at += 1
            return actual[len(line) + 8 :]
        raise Difference(line, actual, self.at)

    def answer(self, start: str) -> str:
        """The next line starts so; what follows is the hardware's answer."""
        actual = self.lines[self.at]
        if not actual.startswith(start):
            raise Difference(start + "...", actual, self.at)
        self.at += 1
        return actual[len(start) :]

    def operation(self) -> tuple[str, list[str], str]:
        """The next operation that was asked for: its name, its arguments, its whole note."""
        for at in range(self.at, len(self.lines)):
            line = self.lines[at]
            if line.startswith("NOTE ") and OPERATION.match(line):
                asked = line[5:].rsplit(" -> ", 1)[0].split(" ", 1)
                return asked[0], asked[1:], line
        return "", [], ""

    def operations(self) -> Iterator[tuple[str, list[str], str]]:
        """Each operation that was asked for, once those before it are dealt with."""
        while (operation := self.operation())[0]:
            self.base = self.base_set.get(self.at, "dec")
            yield operation
            seen = self.base_seen.get(self.at, "dec" if self.base == "dec" else "not told")
            if seen != self.base:
                raise Difference(f"base {self.base}", f"base {seen}", self.at)

    def made(self) -> int:
        """How many operations lie before where the model is."""
        return sum(1 for line in self.lines[: self.at] if OPERATION.match(line))


# ---------------------------------------------------------------------------------------------
# Host library and board-support library, as far as they show in the trace


class Complaints:
    """Errors of one device object: each is said once."""

    def __init__(self, trace: Trace, who: str):
        self.trace = trace
        self.who = who
        self.said: set[str] = set()

    def say(self, what: str) -> None:
        if what not in self.said:
            self.said.add(what)
            self.trace.expect(f"NOTE ERR {self.who}{what}\\n")

    def failed(self, operation: str, error: str) -> None:
        number, text = ERRNO[error]
        self.say(f"{operation}: {text} (errno {number})")


class Gpio:
    """One output line, looked up by its name."""

    NUMBERS = {"PS_1.2V_EN": 5, "PS_3.3SVDD_EN": 6, "PS_3.3AVDDH_EN": 7, "RESET_B": 11, "EXT_TRIG_EN": 12}

    def __init__(self, trace: Trace, name: str):
        self.trace = trace
        self.name = name
        self.held = False
        self.complaints: Optional[Complaints] = None
        # The look-up asks one chip after the other.
        trace.expect("OPEN /dev/gpiochip0")
        if trace.lines[trace.at].startswith("NOTE ERR tcGpio: /dev/gpiochip0: "):
            trace.at += 1  # a call without an event of its own
        trace.expect("CLOSE /dev/gpiochip0")
        if trace.lines[trace.at] == "OPEN /dev/gpiochip1 failed ENOENT":
            for chip in range(1, 32):
                trace.expect(f"OPEN /dev/gpiochip{chip} failed ENOENT")
            trace.expect(f"NOTE ERR ERROR: GPIO {name} not found in DT\\n")
            self.complaints = Complaints(trace, "tcGpioSingle: pin -1: ")
            self.complaints.failed("SetDirection", "ENODEV")
            return
        number = self.NUMBERS[name]
        trace.expect(f"NOTE OUT GPIO {name}\\x09\\x09{number}\\n")
        self.complaints = Complaints(trace, f"tcGpioSingle: /dev/gpiochip0 line {number}: ")
        trace.expect("OPEN /dev/gpiochip0")
        error = trace.call(f"GPIO {name} out 0")
        if error:
            self.complaints.failed("GPIO_V2_GET_LINE", error)
        else:
            self.held = True
        trace.expect("CLOSE /dev/gpiochip0")

    def set(self, level: int) -> bool:
        if not self.held:
            self.complaints.failed("SetValue", "EPERM")
            return False
        error = self.trace.call(f"GPIO {self.name} = {level}")
        if error:
            self.complaints.failed("GPIO_V2_LINE_SET_VALUES", error)
        return not error

    def release(self) -> None:
        if self.held:
            self.trace.expect(f"GPIO {self.name} released")


class Adc:
    """The ADS7828: a command byte, then a sample of 12 bits."""

    def __init__(self, trace: Trace):
        self.trace = trace
        self.complaints = Complaints(trace, "tcADS7828: /dev/i2c-1: ")
        trace.expect("OPEN /dev/i2c-1")

    def command(self, channel: int) -> bool:
        # Single-ended; internal reference and converter on. The chip numbers even channels first.
        code = 0x8C | (channel & 1) << 6 | (channel >> 1) << 4
        error = self.trace.call(f"ADC-COMMAND 0x{code:02X}")
        if error:
            self.complaints.failed("I2C_RDWR", error)
        return not error

    def volts(self, channel: int) -> float:
        if not self.command(channel):
            return 0.0
        sample = int(self.trace.answer(f"ADC {channel} 0x"), 16)
        return f32(sample * 2.5 / 4096)


class Fpga:
    """Registers by physical address. What was written is read back, but for what the hardware sets."""

    CONTROL, STATUS, LANES = 0xFF210000, 0xFF210004, 0xFF210008
    IRQ_FLAGS, IRQ_MASK, ROI_COUNT = 0xFF210010, 0xFF210014, 0xFF210018
    RESOLUTION, ROI, DPA_RESET = 0xFF210020, 0xFF210024, 0xFF210028
    DPA_HOLD, DPA_LOCK, PORCH, CORE = 0xFF21002C, 0xFF210030, 0xFF21003C, 0xFF210200
    PWM, SHIFT, PIXELS, PIXEL_TABLE = 0xFF211000, 0xFF217000, 0xFF215000, 0xFF212000
    PLL, SYSTEM = 0xFF204000, 0xFF200000

    def __init__(self, trace: Trace):
        self.trace = trace
        self.held: dict[int, int] = {
            self.CONTROL: 0, self.PWM: 0, self.PWM + 4: 0, self.PWM + 8: 0,
            self.PLL + 0x300: 0x0F0F, self.SHIFT: 0x80000000, self.PORCH: 0,
        }
        self.clock = 36.0
        self.speed = 1
        self.pwm_clock = 36.0
        self.pixels_found = False
        self.pixels_complaints = Complaints(trace, "tcBadPixelReplacement at 0xFF215000: ")

    def read(self, address: int) -> int:
        value = self.held.get(address)
        if value is not None:
            self.trace.expect(f"READ 0x{address:08X} 0x{value:08X}")
            return value
        return int(self.trace.answer(f"READ 0x{address:08X} 0x"), 16)

    def write(self, address: int, value: int) -> None:
        self.trace.expect(f"WRITE 0x{address:08X} 0x{value:08X}")
        if address != self.IRQ_FLAGS:  # cleared by what is written
            self.held[address] = value

    def change(self, address: int, mask: int, value: int) -> None:
        self.write(address, self.read(address) & ~mask | value)

    # The cores

    def map_all(self) -> None:
        for address, length in ((self.SYSTEM, 16384), (self.PLL, 16384), (self.CONTROL, 16384), (self.PWM, 4096)):
            self.map(address, length)
        self.read(self.PWM + 0x200)
        self.map(self.SHIFT, 4096)
        self.read(self.SHIFT + 0x200)
        for address in (self.PIXELS, 0xFF213000, self.PIXEL_TABLE):
            self.map(address, 4096)

    def map(self, address: int, length: int) -> None:
        self.trace.expect("OPEN /dev/mem")
        self.trace.expect(f"MAP 0x{address:08X} {length}")
        self.trace.expect("CLOSE /dev/mem")

    def unmap_all(self) -> None:
        for address in (self.PIXEL_TABLE, 0xFF213000, self.PIXELS, self.SHIFT, self.PWM, self.CONTROL, self.PLL, self.SYSTEM):
            self.trace.expect(f"UNMAP 0x{address:08X} 4096")

    def initialize(self) -> int:
        self.read(self.PIXELS + 0x200)
        self.pixels_found = True
        self.write(self.PIXELS, 0)
        self.write(self.PIXELS + 0x14, 0x12000000)
        self.write(self.PIXELS + 0x08, 0)
        self.write(self.PIXELS + 0x0C, 2056 << 16 | 2592)
        self.pixels_data()
        self.write(self.PIXELS, 1)
        return 0

    def pixels_there(self, operation: str) -> bool:
        if not self.pixels_found and not self.pixels_complaints.said:
            self.pixels_complaints.say(f"{operation}: the core is not there")
        return self.pixels_found

    def pixels_data(self) -> None:
        """No pixels: the maps that are loaded here hold none."""
        self.write(self.PIXELS + 0x10, 0)
        self.write(self.PIXEL_TABLE, 1)

    def pixels_roi(self, roi: Roi) -> None:
        inside = (
            roi.y >= 0 and roi.x >= 0 and roi.width > 0 and roi.height > 0
            and roi.y + roi.height <= 2056 and roi.x + roi.width <= 2592
        )
        if inside:
            self.write(self.PIXELS + 0x08, roi.y << 16 | roi.x)
            self.write(self.PIXELS + 0x0C, roi.height << 16 | roi.width)
        else:
            self.trace.expect(
                f"NOTE ERR tcBadPixelReplacement: setRoi: {roi} is not inside the full frame "
                f"{FULL_FRAME}; the region in force stays\\n"
            )

    def pixels_color(self, color: bool) -> None:
        if self.pixels_there("setColor"):
            self.change(self.PIXELS, 4, 4 if color else 0)

    def reset_pipeline(self, reset: bool) -> bool:
        self.change(self.SHIFT, 0x80000000, 0x80000000 if reset else 0)
        if self.pixels_there("reset"):
            self.change(self.PIXELS, 0x80000000, 0x80000000 if reset else 0)
        return True

    def set_clock(self, speed: int) -> int:
        if speed not in (0, 1):
            return 3
        self.write(self.PLL + 0x300, (0x1617, 0x0F0F)[speed])
        self.write(self.PLL, 1)
        self.speed = speed
        self.clock = self.pwm_clock = (24.0, 36.0)[speed]
        return 0

    def pwm_enable(self, enable: bool) -> None:
        self.change(self.PWM, 0x80000000, 0x80000000 if enable else 0)

    def pwm_period(self, microseconds: int) -> Optional[str]:
        """Returns the text of the exception, if there is one."""
        clocks = microseconds * int(self.pwm_clock)
        if not 2 <= clocks <= 0xFFFFFFFF:
            return (
                f"tcPwm at 0xFF211000: a period of {microseconds} us is {clocks} clocks; "
                "it takes 2 to 4294967295"
            )
        self.write(self.PWM + 4, clocks)
        return None

    def system_id(self) -> str:
        first = self.read(self.SYSTEM)
        return f"{first:x}.{self.read(self.SYSTEM + 4):x}"

    # The frame-control core and its serial link

    def read_status(self) -> tuple[int, str]:
        """Returns the four flags, and the line that shows them. Each flag has a load of its own."""
        flags = [self.read(self.STATUS) >> bit & 1 for bit in (3, 2, 1, 0)]
        text = "NOTE OUT Status: Aligned {} Locked {} rgLocked {} gbLocked {}\\n".format(*flags)
        return flags[0] << 3 | flags[1] << 2 | flags[2] << 1 | flags[3], text

    def wait_for_status(self, flags: int, milliseconds: int) -> bool:
        tries = 0
        status, text = self.read_status()
        while status & flags != flags and tries != 10:
            self.trace.expect(text)
            self.trace.expect(f"NOTE OUT  tries: {tries}\\n")
            self.trace.expect(f"SLEEP {milliseconds}000000 ns")
            tries += 1
            status, text = self.read_status()
        self.trace.expect(text)
        return status & flags == flags

    def enable_core(self, enable: bool) -> int:
        expect = self.trace.expect
        if not enable:
            self.change(self.CONTROL, 0x80000000, 0)
            return 0
        self.change(self.CONTROL, 0x80000000, 0x80000000)
        if not self.wait_for_status(7, 10):
            expect("NOTE ERR PLL failed to lock\\n")
            return -1
        self.write(self.DPA_HOLD, 0)
        self.write(self.DPA_RESET, 0xFFF)
        self.write(self.DPA_RESET, 0xFFF000)
        self.write(self.DPA_RESET, 0)
        lock = self.read(self.DPA_LOCK) & 0xFFF
        tries = 0
        while lock != 0xFFF and tries < 10:
            expect(f"NOTE OUT DPA Lock: {lock:x} tries: {tries}\\n")
            expect("SLEEP 10000000 ns")
            tries += 1
            lock = self.read(self.DPA_LOCK) & 0xFFF
        expect(f"NOTE OUT DPA Lock: {lock:x}\\n")
        self.trace.base = "dec"
        if lock != 0xFFF:
            expect("NOTE ERR DPA failed to lock\\n")
            return -2
        self.write(self.DPA_RESET, 0)
        self.write(self.DPA_HOLD, 0xFFF)
        if not self.wait_for_status(8, 40):
            expect("NOTE ERR Frame failed to align\\n")
            return -1
        return 0

    def set_geometry(self, image: Roi) -> None:
        height, width = image.height & 0xFFFF, image.width & 0xFFFF
        self.write(self.RESOLUTION, height << 16 | width)
        self.write(self.ROI_COUNT, width // 6 | (height >> 1 & 0x7FFF) << 16)
        self.write(self.ROI, (image.y & 0xFFFF) << 16 | image.x & 0xFFFF)

    def dump(self) -> None:
        self.out(f"Fpga sys id: {self.system_id()}")
        self.out(f"Pll 0xC0 = 0x{self.read(self.PLL + 0x300):x}")
        self.trace.base = "dec"
        self.dump_core()
        values = [self.read(self.PWM + offset) for offset in (0x204, 0, 4, 8)]
        self.out(
            "tcPwm at 0xFF211000: revision 0x{:08X}, control 0x{:08X}, period {} clocks, "
            "pulse {} clocks".format(*values)
        )
        if not self.pixels_found:
            self.out("tcBadPixelReplacement at 0xFF215000: the core is not there")
            return
        values = [self.read(self.PIXELS + offset) for offset in (0x204, 0, 4, 8, 0xC, 0x14, 0x10)]
        values.append(self.read(self.PIXEL_TABLE + 4))
        self.out(
            "tcBadPixelReplacement at 0xFF215000: revision 0x{:08X}, control 0x{:08X}, "
            "status 0x{:08X}, origin 0x{:08X}, size 0x{:08X}, buffer 0x{:08X}, pixels {}, "
            "in force {}".format(*values)
        )

    def out(self, text: str) -> None:
        self.trace.expect(f"NOTE OUT {text}\\n")

    def dump_core(self) -> None:
        out = self.out

        def scaled(address: int) -> tuple[int, int]:
            value = self.read(address)
            return value >> 15 & 0xFFFE, (value & 0xFFFF) * 6 & 0xFFFF

        out("FPGA register dump")
        out(f"Core enabled:\\x09{self.read(self.CONTROL) >> 31}")
        out(f"Core ID:\\x090x{self.read(self.CORE):x}")
        out(f"Core Rev:\\x090x{self.read(self.CORE + 4):x}")
        out(f"Core Caps:\\x090x{self.read(self.CORE + 8):x}")
        self.trace.expect(self.read_status()[1])
        out(f"Lane Inversion:\\x090x{self.read(self.LANES):x}")
        out(f"Irq Flags:\\x090x{self.read(self.IRQ_FLAGS):x}")
        out(f"Irq Mask:\\x090x{self.read(self.IRQ_MASK):x}")
        out("Roi Res Cnt Cfg:\\x09H: {} W: {}".format(*scaled(self.ROI_COUNT)))
        value = self.read(self.RESOLUTION)
        out(f"Resol Cfg:\\x09H: {value >> 16} W: {value & 0xFFFF}")
        value = self.read(self.ROI)
        out(f"ROI Cfg:\\x09x: {value & 0xFFFF} y: {value >> 16}")
        y, x = scaled(self.PORCH)
        out(f"BP Cfg:\\x09x: {x} y: {y}")
        out(f"DPA Reset:\\x090x{self.read(self.DPA_RESET) & 0xFFF:x}")
        out(f"DPA Fifo Reset:\\x090x{self.read(self.DPA_RESET) >> 12 & 0xFFF:x}")
        out(f"DPA Hold:\\x090x{self.read(self.DPA_HOLD):x}")
        out(f"DPA Lock:\\x090x{self.read(self.DPA_LOCK) & 0xFFF:x}")
        self.trace.base = "dec"


class RegisterFile:
    """The host's published words. One for the process, whatever boards come and go."""

    def __init__(self) -> None:
        self.words: dict[int, int] = {}

    def update_word(self, trace: Trace, address: int, value: int) -> None:
        value &= 0xFFFFFFFF
        trace.expect(f"NOTE WORD {address:X} = {value}")
        self.words[address] = value


# ---------------------------------------------------------------------------------------------
# The sensor driver


class Roi:
    __slots__ = ("y", "x", "width", "height")

    def __init__(self, y: int, x: int, width: int, height: int):
        self.y, self.x, self.width, self.height = y, x, width, height

    def __str__(self) -> str:
        return f"[y: {self.y}, x: {self.x}, width: {self.width}, height: {self.height}]"


FULL_FRAME = Roi(0, 0, 2592, 2056)


class SettingsError(Exception):
    """A line of a settings file that is none."""


class HexReader:
    """Reads hexadecimal numbers from a line as a C++ stream does."""

    DIGITS = frozenset("0123456789abcdefABCDEF")

    def __init__(self, line: str):
        self.line = line
        self.at = 0
        self.eof = False
        self.fail = False

    def read(self, before: int, limit: int) -> int:
        """Returns the number, or what was there before where nothing could be read."""
        if self.eof or self.fail:
            self.fail = True
            return before
        line, end = self.line, len(self.line)
        while self.at < end and line[self.at] in " \t\r\v\f":
            self.at += 1
        if self.at == end:
            self.eof = self.fail = True
            return before
        negative = line[self.at] == "-"
        if line[self.at] in "+-":
            self.at += 1
        if line[self.at : self.at + 2] in ("0x", "0X"):
            self.at += 2
        start = self.at
        while self.at < end and line[self.at] in self.DIGITS:
            self.at += 1
        self.eof = self.at == end
        if start == self.at:
            self.fail = True
            return 0
        value = int(line[start : self.at], 16)
        if value > limit:
            self.fail = True
            return limit
        return -value & limit if negative else value


class Sensor:
    def __init__(self, trace: Trace):
        self.trace = trace
        self.mclk = 0.0
        self.rows = 0
        self.exposure = 0
        self.mode = 0
        self.shadow: dict[int, int] = {}
        self.wire: dict[int, int] = {}  # what the sensor itself holds
        self.adc = Adc(trace)
        trace.expect("OPEN /dev/spidev1.0")
        self.spi_complaints = Complaints(trace, "tcSPIDevice: /dev/spidev1.0: ")
        trace.expect("NOTE OUT tc3U5MGXS::tc3U5MGXS: Constructing tc3U5MGXS\\n")
        trace.expect("NOTE OUT tc3U5MGXS::tc3U5MGXS: Exporting/configuring 3U5MGXS control GPIOs\\n")
        self.line_1v2 = Gpio(trace, "PS_1.2V_EN")
        self.line_svdd = Gpio(trace, "PS_3.3SVDD_EN")
        self.line_avddh = Gpio(trace, "PS_3.3AVDDH_EN")
        self.line_reset = Gpio(trace, "RESET_B")
        trace.expect("NOTE OUT tc3U5MGXS::tc3U5MGXS: Configuring voltage check ADC...\\n")
        # Power-down off and reference on go out as one command.
        self.adc.command(0)
        trace.expect("NOTE OUT tc3U5MGXS::tc3U5MGXS: Done!\\n")

    def out(self, text: str) -> None:
        self.trace.expect("NOTE OUT " + text)

    # Registers

    def write(self, address: int, value: int) -> None:
        word = (address & 0x3FF) << 22 | value & 0x3FFFFF
        at = self.trace.at
        error = self.trace.call(
            f"SPI {word & 0xFF:02X} {word >> 8 & 0xFF:02X} {word >> 16 & 0xFF:02X} {word >> 24:02X}"
        )
        if error:
            self.spi_complaints.failed("SPI_IOC_MESSAGE", error)
        elif at not in self.trace.lost:
            self.wire[address & 0x3FF] = value & 0x3FFFFF
        self.shadow[address] = value & 0xFFFFFFFF

    def set_field(self, address: int, value: int, mask: int, shift: int = 0) -> None:
        old = self.shadow.get(address, 0)
        self.write(address, old & ~(mask << shift) & 0xFFFFFFFF | (value & mask) << shift)

    def field(self, address: int, mask: int, shift: int = 0) -> int:
        return self.shadow.setdefault(address, 0) >> shift & mask

    def set_clock(self, mhz: float) -> None:
        self.mclk = mhz
        self.write(0xD8, 0x2D90F if mhz >= 36.0 else 0x4B90F)

    def load(self, name: str) -> None:
        """Sends a file of register settings."""
        text = self.trace.files.get(name)
        if text is None:
            return
        address = value = 0
        lines = text.split("\n")
        if lines[-1] == "":
            lines.pop()
        for number, line in enumerate(lines, 1):
            if line.startswith("#"):
                continue
            reader = HexReader(line)
            address = reader.read(address, 0xFFFF)
            value = reader.read(value, 0xFFFFFFFF)
            if not reader.eof and reader.fail:
                self.trace.expect(f"NOTE ERR \\nError writing registers: {name} {number}: {line}\\n")
                self.trace.expect("NOTE ERR eof: 0 good: 0 fail: 1 bad: 0\\n")
                raise SettingsError
            if address == 0x400:
                self.sleep(value)
            else:
                self.write(address, value)

    def sleep(self, microseconds: int) -> None:
        self.trace.expect(f"SLEEP {microseconds * 1000} ns")

    # Power

    def configure_port(self) -> bool:
        self.unseen("tcSPIDevice: /dev/spidev1.0: SPI_IOC_RD_", self.spi_complaints)
        for line, operation in (
            ("SPI-MODE 0", "SPI_IOC_WR_MODE32"),
            ("SPI-LSB 0", "SPI_IOC_WR_LSB_FIRST"),
            ("SPI-BITS 32", "SPI_IOC_WR_BITS_PER_WORD"),
            ("SPI-HZ 10000000", "SPI_IOC_WR_MAX_SPEED_HZ"),
        ):
            error = self.trace.call(line)
            if error == "EINVAL" and operation == "SPI_IOC_WR_MODE32":
                # An older kernel has a mode of eight bits only.
                operation = "SPI_IOC_WR_MODE"
                error = self.trace.call(line)
            if error:
                self.spi_complaints.failed(operation, error)
                return False
        return True

    def unseen(self, start: str, complaints: Complaints) -> None:
        """Calls that leave no event of their own may have failed: then it is said."""
        while (line := self.trace.lines[self.trace.at]).startswith("NOTE ERR " + start):
            said = line[len("NOTE ERR " + complaints.who) : -2]
            if said in complaints.said:
                break
            complaints.say(said)

    SUPPLIES = (
        (0, "VDD1.2", 1.0, f32(1.3), f32(1.1)),
        (1, "VDD3.3AVDDH_DIV2", 2.0, f32(3.4), f32(3.2)),
        (4, "VDD3.3SVDD_DIV2", 2.0, f32(3.4), f32(3.2)),
    )

    def limit(self, section: str, name: str, default: float) -> float:
        text = self.trace.setting("3u5mgxs_sensor.ini", section, name)
        return default if text is None else float(text)

    def power_up(self) -> int:
        out = self.out
        out("tc3U5MGXS::powerUp: Opening spidev...")
        out("tc3U5MGXS::powerUp: Done!\\n")
        out("tc3U5MGXS::powerUp: Configuring spidev...")
        if not self.configure_port():
            return 1
        out("tc3U5MGXS::powerUp: Done!\\n")
        out("tc3U5MGXS::powerUp: toggling power supplies on\\n")
        if self.line_reset.set(0):
            self.wire.clear()
        self.line_1v2.set(1)
        self.sleep(1000)
        self.line_svdd.set(1)
        self.line_avddh.set(1)
        self.sleep(1)
        self.sleep(300000)
        self.line_reset.set(1)
        self.sleep(10000)
        out("tc3U5MGXS::powerUp: Verifying voltages...\\n")
        self.adc.volts(0)
        self.sleep(5000)
        good = True
        for channel, name, scale, most, least in self.SUPPLIES:
            voltage = f32(self.adc.volts(channel) * scale)
            out(f"{name}: {voltage:g}\\n")
            most = self.limit("Voltages_Max", name, most)
            least = self.limit("Voltages_Min", name, least)
            if voltage > most or voltage < least:
                good = False
        if not good:
            return -4
        out("tc3U5MGXS::powerUp: Configuring initial settings 12-bit...")
        self.load("3U5MGXS_12bit.txt")
        out("tc3U5MGXS::powerUp: Done!\\n")
        self.set_frame_state(0)
        return 0

    # Timing

    def period(self) -> int:
        return self.field(0xB0, 0xFFF) + 1

    def lines(self, microseconds: int, hd_prd: int) -> int:
        product = f32(f32(float(microseconds)) * self.mclk)
        return truncate(divide(product, float(hd_prd + 1)), 32)

    def readout_time(self) -> int:
        """In microseconds, signed 64 bits."""
        clocks = ((self.rows >> 1) + 57) * self.period()
        time = truncate(divide(f32(float(clocks)), self.mclk), 64)
        if self.mode == 1:
            time *= 2
        time = s64(time)
        self.out(f"getFrameReadoutTime(): {time} uS\\n")
        return time

    def set_hd_max(self, microseconds: int) -> int:
        if self.control_mode() != 0:
            return 0
        lines = self.lines(microseconds, self.field(0xB0, 0xFFF)) & 0xFFFF
        hd_max = min(lines, 16383)
        self.out(f"tc3U5MGXS::setHDMax: hd_max: {hd_max}\\n")
        self.set_field(0x12, hd_max, 0x3FFF)
        return 0

    def set_exposure(self, microseconds: int) -> int:
        control = self.control_mode()
        field = self.set_field
        if control == 1:
            field(0x12, 1086, 0x3FFF)
            field(0x14, 100, 0x3FFF)
            field(0x15, 0, 0x3FFF)
            field(0x16, 0, 0x3FFF)
            return 0
        if control == 3:
            count = self.lines(microseconds, self.field(0xB0, 0xFFF))
            if count >= 16384:
                self.out("tc3U5MGXS::setExposure: Limiting exposure: exposure duration: 16383\\n")
                count, end = 16383, 16381
            else:
                count = max(count, 2)
                end = count - 2
            field(0x12, 1086, 0x3FFF)
            field(0x14, count, 0x3FFF)
            field(0x15, 50, 0x3FFF)
            field(0x16, end, 0x3FFF)
            return 0
        if control == 2:
            return 0
        if self.mode == 2:
            return 4
        if self.mode not in (0, 1):
            return 0
        hd_prd = self.field(0xB0, 0xFFF)
        hd_max = self.field(0x12, 0x3FFF)
        last = hd_max - 2 & 0xFFFF  # the line with which the exposure ends
        field(0x14, 0x3FFF, 0x3FFF)
        field(0x15, 0x3FFF, 0x3FFF)
        field(0x1A, 0, 0x3FFF)
        field(0x3B, 0x3FFF, 0x3FFF)
        name = "gs_pos1" if self.mode == 0 else "gs_pos2"
        if self.mode == 0:
            field(0x1C, 0x3FFF, 0x3FFF)
            field(0x1B, last, 0x3FFF)
            field(0x16, hd_max - 4, 0x3FFF)
        else:
            field(0x1C, last, 0x3FFF)
        count = self.lines(microseconds, hd_prd)
        if last < count:
            self.out(
                f"tc3U5MGXS::setExposure: Limiting exposure: exposure duration: {count}, gs_pos1: {last}\\n"
            )
            first = 0
        else:
            first = last - count
        self.out(f"tc3U5MGXS::setExposure: hd_prd: {hd_prd}, {name}: {last}, acc_fpos: {first}\\n")
        if last <= first:
            self.out(f"tc3U5MGXS::setExposure Increasing exposure: acc_fpos: {first}, {name}: {last}\\n")
            first = last - (1 if self.mode == 0 else 2) & 0xFFFFFFFF
        length = last - first & 0xFFFFFFFF
        if self.mode == 1:
            if length & 1:
                self.out(
                    "tc3U5MGXS::setExposure Increasing exposure to make even: "
                    f"acc_fpos: {first}, gs_pos2: {last}\\n"
                )
                first += 1
                length -= 1
            middle = first + length // 2 & 0xFFFF
            reset = middle - 2 & 0xFFFF
        field(0x19, first, 0x3FFF)
        if self.mode == 1:
            field(0x1B, middle, 0x3FFF)
            field(0x16, reset, 0x3FFF)
            self.out(f"tc3U5MGXS::setExposure: gs_pos1: {middle}, gres_pos: {reset}\\n")
        clocks = (hd_prd + 1) * length & 0xFFFFFFFF
        self.exposure = s64(truncate(divide(f32(float(clocks)), self.mclk), 64))
        self.out(f"tc3U5MGXS::setExposure after: {self.exposure}\\n")
        return 0

    # Features

    def control_mode(self) -> int:
        return self.field(0x10, 3, 8)

    def set_control_mode(self, mode: int) -> None:
        self.set_field(0x10, mode, 3, 8)

    def set_frame_state(self, state: int) -> None:
        self.set_field(0x10, state, 7)

    def set_bin(self, factor: int) -> None:
        self.set_field(0x90, 1 if factor == 2 else 0, 3, 18)

    def reset_areas(self) -> None:
        self.write(0x94, 0x201800)
        self.write(0x95, 0x1AF000)
        for address in range(0x96, 0xA4, 2):
            self.write(address, 0x3FFFFF)
            self.write(address + 1, 0x1FF1FF)
        self.rows = 0

    def set_area(self, number: int, row_start: int, row_end: int, col_start: int, col_end: int) -> int:
        self.out(
            f"setROIArea Num: {number} RowS: {row_start} RowE: {row_end} "
            f"ColS: {col_start} ColE: {col_end}\\n"
        )
        if number < 8:
            self.write(0x94 + 2 * number, (row_end & 0xFFE) << 10 | (row_start & 0xFFF) >> 1)
            self.write(0x95 + 2 * number, (col_end // 6 & 0x1FF) << 12 | col_start // 6 & 0x1FF)
            self.rows = self.rows + row_end - row_start & 0xFFFFFFFF
        return 0


# ---------------------------------------------------------------------------------------------
# The board

Operation = Callable[["Board", list[str]], object]


def integers(arguments: list[str]) -> list[int]:
    return [int(text) for text in arguments[0].split()] if arguments else []


class Board:
    SLOTS = 8

    def __init__(self, trace: Trace, words: RegisterFile):
        self.trace = trace
        self.words = words
        self.fpga = Fpga(trace)
        self.fpga.map_all()
        self.sensor = Sensor(trace)
        self.exposure = 0
        self.interval = 0
        self.trigger = 0
        self.internal = True
        self.bin = 1
        self.capturing = False
        self.pattern = 0
        self.roi = FULL_FRAME
        self.count = 0
        self.regions = [Roi(0, 0, 0, 0) for _ in range(self.SLOTS)]
        self.out("Constructing tc3U5MGXSSensorBoard\\n")
        self.line_trigger = Gpio(trace, "EXT_TRIG_EN")

    def out(self, text: str) -> None:
        self.trace.expect("NOTE OUT " + text)

    def status(self, level: int, text: str) -> None:
        self.trace.expect(f"NOTE STATUS {level} {text}")

    def destroy(self) -> None:
        self.line_trigger.release()
        sensor = self.sensor
        for line in (sensor.line_reset, sensor.line_avddh, sensor.line_svdd, sensor.line_1v2):
            line.release()
        self.trace.expect("CLOSE /dev/spidev1.0")
        self.trace.expect("CLOSE /dev/i2c-1")
        self.fpga.unmap_all()

    # Initialization and capture

    def setting(self, key: str, default: int) -> int:
        text = self.trace.setting("3u5mgxs_config.ini", "Settings", key)
        if text is None or not re.match(r"[+-]?\d", text):
            return default
        # As a `long` of 32 bits, whatever the machine.
        return max(-0x80000000, min(0x7FFFFFFF, int(text, 0)))

    def lane_inversion(self) -> int:
        text = self.trace.setting("3u5mgxs_config.ini", "Settings", "LaneInvertMask")
        if text is None or not re.match(r"[+-]?\d", text):
            return 0x5D9
        return int(text, 0) & 0xFFF

    def initialize(self) -> int:
        sensor, fpga = self.sensor, self.fpga
        self.status(6, "Powering up sensor...")
        try:
            result = sensor.power_up()
        except SettingsError:
            self.status(4, "std::exception")
            result = 6
        if result:
            self.status(4, "Sensor powerup error!")
            return result
        self.status(6, "Initializing FPGA...")
        result = fpga.initialize()
        fpga.write(fpga.LANES, self.lane_inversion())
        fpga.change(fpga.PWM, 1, 1)
        fpga.write(fpga.PWM + 8, 10)
        fpga.write(fpga.PWM + 4, int(fpga.pwm_clock * 1000000) // 30)
        self.status(6, "FPGA Initialization done")
        sensor.set_clock(fpga.clock)
        roi = Roi(
            s32(self.setting("RoiY", 0)),
            s32(self.setting("RoiX", 0)),
            s32(self.setting("RoiWidth", 2592)),
            s32(self.setting("RoiHeight", 2056)),
        )
        self.exposure = self.setting("ExposureTime", 30000)
        self.set_frame_interval(s32(self.setting("FrameInterval", 100000)))
        self.count = 1
        self.set_roi(roi)
        self.set_vertical_bin(s32(self.setting("VerticalBin", 1)))
        self.set_mirroring(False, True)
        self.set_mirroring(True, True)
        result = self.bring_up()
        fpga.pwm_enable(False)
        sensor.set_frame_state(0)
        if result == 0:
            self.trace.expect(
                "NOTE ERR tcBadPixelReplacement: setData: text (no readable file of that name), line 1: "
                '"bad_pixel_map.txt" is not a pixel "X Y"; the map in force stays\\n'
            )
            fpga.pixels_roi(roi)
            fpga.pixels_color(False)
        self.set_bpp(0)
        update = self.words.update_word
        update(self.trace, 0x3A020, 0x01080001)
        update(self.trace, 0x3B00C, 1)
        update(self.trace, 0x3D000, sensor.mode)
        update(self.trace, 0x3D004, self.get_d_gain())
        fpga.dump()
        return result

    def bring_up(self) -> int:
        self.sensor.set_frame_state(4)
        self.fpga.pwm_enable(True)
        return self.fpga.enable_core(True)

    def start(self) -> int:
        if self.capturing:
            self.out("Error starting capture (failed to get all channels synced)\\n")
            return 6
        self.fpga.reset_pipeline(False)
        if self.trigger == 0:
            self.sensor.set_frame_state(4)
            self.sensor.sleep(200)
            self.fpga.pwm_enable(True)
            self.sensor.sleep(8000)
            self.sensor.sleep(8)
        self.sensor.set_frame_state(3)
        self.capturing = True
        self.status(0, "Starting capture...")
        return 0

    def stop(self) -> int:
        self.sensor.set_frame_state(0)
        if self.interval > 0:  # for less there is nothing to wait for
            self.sensor.sleep(self.interval)
        self.fpga.pwm_enable(False)
        self.fpga.reset_pipeline(True)
        self.capturing = False
        self.status(1, "Ending capture...")
        return 0

    # Exposure, frame interval, triggers

    def min_interval(self) -> int:
        return s32(self.sensor.readout_time())

    def get_exposure(self) -> int:
        self.out(f"getExposure: {self.exposure}\\n")
        return s32(self.exposure)

    def set_exposure(self, microseconds: int) -> int:
        self.status(6, f"setExposure {microseconds} uS")
        result = self.sensor.set_exposure(microseconds)
        self.exposure = self.sensor.exposure
        self.words.update_word(self.trace, 0x3A004, self.exposure)
        self.status(6, f"setExposure updated to {s32(self.exposure)} uS")
        return result

    def set_frame_interval(self, microseconds: int) -> int:
        period = self.sensor.period()
        interval = quotient(microseconds, period) * period
        self.status(-1, f"setFrameInterval: {interval} uS")
        result = self.sensor.set_hd_max(interval)
        if result:
            return result
        if interval < self.exposure:
            self.status(
                6,
                "setFrameInterval: Exposure higher than frame interval. "
                f"Interval {interval} uS, Exposure {s32(self.exposure)} uS",
            )
            result = self.set_exposure(interval)
        else:
            result = self.set_exposure(s32(self.exposure))
        problem = self.fpga.pwm_period(interval)
        if problem:
            self.status(4, problem)
            result = 3
        self.interval = interval
        return result

    def configure_triggers(self) -> int:
        if self.trigger == 1:
            self.line_trigger.set(1)
            self.sensor.set_control_mode(3 if self.internal else 1)
        else:
            self.line_trigger.set(0)
            self.sensor.set_control_mode(0)
        return self.set_exposure(s32(self.exposure))

    def set_internal(self, internal: bool) -> int:
        self.out(f"Setting internal mode: {int(internal)}\\n")
        self.internal = internal
        return self.configure_triggers()

    def set_trigger(self, mode: int) -> int:
        if self.capturing:
            return 5
        if mode == 0:
            self.trigger = 0
            self.set_internal(True)
            self.configure_triggers()
            return 0
        if mode == 1:
            self.trigger = 1
            self.configure_triggers()
            return 0
        self.configure_triggers()
        return 3

    def set_exposure_mode(self, mode: int) -> int:
        self.sensor.mode = mode
        least = self.min_interval()
        result = 0
        if self.interval < least:
            result = self.set_frame_interval(least)
            self.words.update_word(self.trace, 0x3A000, self.interval)
        self.words.update_word(self.trace, 0x3C020, self.min_interval())
        self.set_exposure(s32(self.exposure))
        return result

    def set_clock(self, index: int) -> int:
        if self.capturing:
            self.status(4, "Can't change clock while running")
            return 5
        self.status(6, "Changing clock settings")
        self.fpga.reset_pipeline(True)
        self.fpga.enable_core(False)
        clock = self.fpga.set_clock(index)
        link = self.bring_up()
        self.sensor.set_frame_state(0)
        self.fpga.pwm_enable(False)
        if link:
            self.status(4, f"PLL/DPA lock failed. rv={link}")
            return 6
        self.sensor.sleep(5000)
        if clock:
            return clock
        self.sensor.set_clock(self.fpga.clock)
        self.status(6, f"clock: {self.fpga.clock:f}")
        exposure = self.get_exposure()
        interval = self.interval
        self.set_exposure(exposure)
        self.set_frame_interval(s32(interval))
        return 0

    # Regions, binning, mirroring

    def set_roi(self, roi: Roi) -> int:
        if self.capturing:
            self.status(-1, "ROI: Capture in progress")
            result = 5
        elif not (
            roi.y >= 0 and roi.x >= 0 and roi.width > 0 and roi.height > 0
            and roi.y + roi.height <= 2056 and roi.x + roi.width <= 2592
            and roi.x % 24 == 0 and roi.width % 24 == 0
            and roi.y % 2 == 0 and roi.height % 2 == 0
        ):
            self.status(-1, "ROI not valid")
            result = 3
        else:
            self.roi = roi
            result = self.program_regions()
        least = self.min_interval() & 0xFFFFFFFF
        if self.interval < least:
            result = self.set_frame_interval(s32(least))
            self.words.update_word(self.trace, 0x3A000, self.interval)
        self.words.update_word(self.trace, 0x3C020, self.min_interval())
        return result

    def program_regions(self) -> int:
        self.out(f"programMultipleROI {self.roi}\\n")
        self.sensor.reset_areas()
        # However many are asked for, there are no more than the slots.
        regions = [self.roi] if self.count == 1 else self.regions[: max(self.count, 0)]
        for number, roi in enumerate(regions):
            self.sensor.set_area(
                number,
                roi.y * self.bin & 0xFFFF,
                (roi.y + roi.height - 1) * self.bin & 0xFFFF,
                roi.x & 0xFFFF,
                roi.x + roi.width - 1 & 0xFFFF,
            )
        exposure = self.get_exposure()
        interval = self.interval
        self.set_exposure(exposure)
        self.set_frame_interval(s32(interval))
        image = self.image_roi()
        self.out(f"image{image}\\n")
        self.fpga.set_geometry(image)
        return 0

    def image_roi(self) -> Roi:
        if self.count == 1:
            return self.roi
        first = self.regions[0]
        regions = self.regions[: max(self.count, 0)]
        top = min([first.y, *(roi.y for roi in regions)])
        return Roi(top, first.x, first.width, sum(roi.height for roi in regions) & 0xFFFF)

    def set_vertical_bin(self, factor: int) -> int:
        if factor > 2:
            return 3
        self.bin = factor & 0xFFFF
        self.sensor.set_bin(self.bin)
        image = self.image_roi()
        update = self.words.update_word
        update(self.trace, 0x3A008, image.width)
        update(self.trace, 0x3A00C, image.height)
        update(self.trace, 0x3A010, image.x)
        update(self.trace, 0x3A014, image.y)
        return 0

    def set_mirroring(self, horizontal: bool, enable: bool) -> int:
        if horizontal:
            self.sensor.set_field(0x90, enable, 1, 16)
            self.sensor.set_field(0x6D, enable, 1, 0)
        else:
            self.sensor.set_field(0x90, enable, 1, 17)
            self.sensor.set_field(0x6C, enable, 1, 3)
            self.fpga.change(self.fpga.CONTROL, 2, 2 if enable else 0)
        return 0

    # Pixels

    def set_bpp(self, mode: int) -> int:
        self.status(6, f"setBPP: {mode & 0xFFFFFFFF}")
        if mode not in (0, 2, 3):
            return 4
        self.fpga.change(self.fpga.SHIFT, 0x1F, 0 if mode == 0 else 1 << 4 | 4)
        self.trace.expect("NOTE PIPELINE {}".format({0: 2, 2: 1, 3: 3}[mode]))
        return 0

    def set_color(self, color: bool) -> int:
        self.status(-1, f"setColor: {int(color)}")
        self.fpga.pixels_color(color)
        return 0

    def set_test_pattern(self, pattern: int) -> int:
        codes = {0: 0, 1: 3, 16: 3, 17: 4}
        if pattern not in codes:
            return 3
        self.sensor.set_field(0x300, codes[pattern], 7, 16)
        self.pattern = pattern
        return 0

    def set_d_gain(self, gain: int) -> int:
        self.sensor.set_field(0x42, gain, 3)
        return 0

    def get_d_gain(self) -> int:
        return self.sensor.field(0x42, 3)

    # Registers and words

    def peek(self, register: int, before: int) -> tuple[int, int]:
        shown = register & 0xFFFFFFFF
        if register >= 0x10000:
            self.status(6, f"Peek: Register 0x{shown:03X} too large")
            return 3, before
        value = self.sensor.shadow.get(register & 0xFFFF)
        result = 0
        if value is None:
            self.status(6, f"Peek: Register 0x{shown:03X} not found")
            value = before & 0xFFFFFFFF
            result = 3
        self.status(6, f"Peek: Register 0x{shown:03X}: Value: 0x{value:04X}")
        return result, s32(value)

    def poke(self, register: int, value: int) -> int:
        shown = register & 0xFFFFFFFF
        self.status(6, f"Poke: Register 0x{shown:03X}: Value: 0x{value & 0xFFFFFFFF:04X}")
        if register >= 0x10000:
            self.status(6, f"Poke: Register 0x{shown:03X} too large")
            return 3
        self.sensor.write(register & 0xFFFF, value & 0xFFFFFFFF)
        return 0

    def write_word(self, address: int, value: int) -> str:
        """A client writes a word of the register file."""
        self.out(f"tcRegFileObs::update register: {address}\\n")
        handled = address in (0x3D000, 0x3D004)
        failed = False
        if address == 0x3D000:
            failed = self.set_exposure_mode(value) != 0
        elif address == 0x3D004:
            failed = value > 3 or self.set_d_gain(value) != 0
        if not failed:
            self.words.words[address] = value
        return f"{int(handled)} {0x8FFF if failed else 0} {self.words.words.get(address, 0):X}"

    # Text commands

    @staticmethod
    def next_integer(token: str) -> Optional[int]:
        if not re.fullmatch(r"[+-]?(0[xX][0-9a-fA-F]+|\d+)", token):
            return None
        value = int(token, 0)
        return value if -0x80000000 <= value <= 0x7FFFFFFF else None

    def command(self, keyword: str, text: str) -> str:
        tokens = [token for token in text.split(" ") if token]
        value = self.next_integer(tokens[0]) if tokens else None
        if keyword == "EXPM":
            if not tokens:
                return f"<ack>^{0 if self.internal else 1}"
            self.set_internal((value or 0) == 0)
            return "<nack 0>"
        if keyword == "CLKS":
            if not tokens:
                return f"<ack ^{self.fpga.speed}>"
            if value is None:
                return "<nack 3>"
            result = self.set_clock(value)
            return f"<nack {result}>" if result else "<ack>"
        if keyword in ("SBPR", "SBPRM"):
            if not tokens:
                return "<nack 2>"
            if value is None:
                return "<nack 3>"
            if keyword == "SBPR":
                if self.fpga.pixels_there("setData"):
                    self.fpga.pixels_data()
            elif self.fpga.pixels_there("setMapState"):
                self.fpga.change(self.fpga.PIXELS, 2, 2 if value else 0)
            return "<ack>"
        if keyword == "GBPR":
            state = self.fpga.pixels_there("onState") and self.fpga.read(self.fpga.PIXELS + 4) & 1
            return f"<ack ^{int(state)}>"
        if keyword == "GBPRM":
            state = self.fpga.pixels_there("mapState") and self.fpga.read(self.fpga.PIXELS) >> 1 & 1
            return f"<ack ^{int(state)}>"
        return "<nack 1>"


# ---------------------------------------------------------------------------------------------
# The operations by the names the trace gives them; each returns its result as the trace has it


def _regions(board: Board, arguments: list[str]) -> object:
    numbers = integers(arguments)
    board.count = numbers[0]
    board.regions = [Roi(*numbers[at : at + 4]) for at in range(1, 33, 4)]
    result = board.program_regions()
    if numbers[33:] != [1]:
        board.count = 1
    return result


def _word(board: Board, arguments: list[str]) -> object:
    address, value = arguments[0].split()
    return board.write_word(int(address, 16), int(value, 16))


def _command(board: Board, arguments: list[str]) -> object:
    keyword, text = arguments[0].split(" ", 1)
    return board.command(keyword, text[1:-1])


def _peek(board: Board, arguments: list[str]) -> object:
    return "{} {}".format(*board.peek(int(arguments[0]), -7))


def _mirroring(board: Board, _arguments: list[str]) -> object:
    horizontal = board.sensor.field(0x90, 1, 16)
    return f"00{horizontal}{board.sensor.field(0x90, 1, 17)}"


VERSION_FILES = (
    "cam_part", "serial", "sensor_part", "sensor_serial",
    "sensor_board_rev", "soc_io_board_rev", "io_board_rev", "kernel_version",
)  # fmt: skip


def _version(board: Board, _arguments: list[str]) -> object:
    text = ""
    for name in VERSION_FILES:
        content = board.trace.files.get(f"version/{name}.txt")
        line = "???" if content is None else content.split("\n")[0]
        text += f'"{line}" '
    # The program leaves the time of the build out.
    return one_line(f'{text}"SW:..." SYSID:{board.fpga.system_id()}')


def _update(board: Board, arguments: list[str]) -> object:
    """A handler sees a write of a word."""
    keyword, kind, address, value = arguments[0].split()
    served = {"EXPM": ("3A200",)}.get(keyword, ("3A070", "3A074"))
    if kind != "1" or address not in served:
        return "0 0"
    on = value != "0"
    fpga = board.fpga
    if address == "3A200":
        board.set_internal(on)
    elif address == "3A070":
        if fpga.pixels_there("setData"):
            fpga.pixels_data()
    elif fpga.pixels_there("setMapState"):
        fpga.change(fpga.PIXELS, 2, 2 if on else 0)
    return "1 0"


def _camera_info(_board: Board, _arguments: list[str]) -> object:
    record = struct.pack(
        "<16s24s4iHxxii", b"3U5MGXS", b"Canon", 0, 0, 2592, 2056, 0, 2592, 2056
    )
    return f"0 {record.hex().upper()}"


def _first(call: Callable[[Board, int], object]) -> Operation:
    return lambda board, arguments: call(board, int(arguments[0]))


def _plain(call: Callable[[Board], object]) -> Operation:
    return lambda board, _arguments: call(board)


_REFUSED: Operation = _plain(lambda b: 7)

OPERATIONS: dict[str, Operation] = {
    "setExposure": _first(Board.set_exposure),
    "getExposure": _plain(Board.get_exposure),
    "getMinFrameIntervalMicroS": _plain(Board.min_interval),
    "setFrameInterval": _first(Board.set_frame_interval),
    "getFrameInterval": _plain(lambda b: s32(b.interval)),
    "setROI": lambda b, a: b.set_roi(Roi(*integers(a))),
    "getROI": _plain(lambda b: b.roi),
    "getImageROI": _plain(Board.image_roi),
    "programMultipleROI": _regions,
    "setVerticalBin": _first(Board.set_vertical_bin),
    "getVerticalBin": _plain(lambda b: 1),
    "setHorizontalBin": _REFUSED,
    "getHorizontalBin": _plain(lambda b: 1),
    "setShutterMode": _REFUSED,
    "getShutterMode": _plain(lambda b: 1),
    "setBPP": _first(Board.set_bpp),
    "setColor": _first(lambda b, flag: b.set_color(flag != 0)),
    "setTestPattern": _first(Board.set_test_pattern),
    "getTestPattern": _plain(lambda b: b.pattern),
    "setTrigger": _first(Board.set_trigger),
    "getTrigger": _plain(lambda b: b.trigger),
    "peek": _peek,
    "poke": lambda b, a: b.poke(*integers(a)),
    "validate": _plain(lambda b: 0),
    "isCapturing": _plain(lambda b: int(b.capturing)),
    "start": _plain(Board.start),
    "stop": _plain(Board.stop),
    "getTemperature": _plain(lambda b: -275),
    "getVersion": _version,
    "save": _REFUSED,
    "recall": _REFUSED,
    "power": _REFUSED,
    "setMirroring": lambda b, a: b.set_mirroring(*(flag != 0 for flag in integers(a))),
    "getMirroring": _mirroring,
    "setAnalogGain": _REFUSED,
    "getAnalogGain": _plain(lambda b: "7 -7"),
    "setBlackLevel": _REFUSED,
    "getBlackLevel": _plain(lambda b: "7 -7"),
    "setWhiteBalance": _REFUSED,
    "setGamma": _REFUSED,
    "setStrobe": _REFUSED,
    "GetSkipFrames": _plain(lambda b: "10" if b.trigger == 0 else "00"),
    "setInternalExposureMode": _first(lambda b, flag: b.set_internal(flag != 0)),
    "getInternalExposureMode": _plain(lambda b: int(b.internal)),
    "setClockSetting": _first(Board.set_clock),
    "getClockSetting": _plain(lambda b: f"0 {b.fpga.speed}"),
    "resetFpga": _plain(lambda b: int(b.fpga.reset_pipeline(True))),
    "configureTriggers": _plain(Board.configure_triggers),
    "setExposureMode": _first(Board.set_exposure_mode),
    "setDGain": _first(Board.set_d_gain),
    "getDGain": _plain(Board.get_d_gain),
    "word": _word,
    "command": _command,
    "update": _update,
    "GetCameraInfo": _camera_info,
    "getCustomHandlers": _plain(lambda b: "CLKS EXPM GBPR GBPRM SBPR SBPRM"),
}


# ---------------------------------------------------------------------------------------------
# The same for a sensor driver without a board, and for the FPGA without one


def nothing(_result: object) -> str:
    """For operations that return nothing."""
    return "-"


def _write_register(sensor: Sensor, address: int, value: int) -> object:
    sensor.write(address, value)
    return 0


def _read_shadow_register(sensor: Sensor, address: int) -> object:
    value = sensor.shadow.get(address)
    return "-1 77" if value is None else f"0 {value}"


def _set_register_field(sensor: Sensor, address: int, value: int, mask: int, shift: int) -> object:
    old = sensor.shadow.get(address, 0)
    if shift >= 32:  # beyond the register
        return nothing(sensor.write(address, old))
    kept = old & ~(mask << shift) & 0xFFFFFFFF
    return nothing(sensor.write(address, kept | (value & mask) << shift & 0xFFFFFFFF))


def _get_register_field(sensor: Sensor, address: int, mask: int, shift: int) -> object:
    value = sensor.shadow.setdefault(address, 0)
    return 0 if shift >= 32 else value >> shift & mask


def _dump_register_map(sensor: Sensor) -> object:
    for address in sorted(sensor.shadow):
        sensor.out(f"SPI: {address}    :    {sensor.shadow[address]}\\n")
    return "-"


def _set_clock(sensor: Sensor, tenths: int) -> object:
    sensor.set_clock(divide(f32(float(tenths)), 10.0))
    return 0


def _load(sensor: Sensor, name: str) -> object:
    try:
        sensor.load(name)
    except SettingsError:
        return "std::exception"
    return 0


def _power_up(sensor: Sensor) -> object:
    try:
        return sensor.power_up()
    except SettingsError:
        return "std::exception"


def _power_down(sensor: Sensor) -> object:
    sensor.out("tc3U5MGXS::powerDown: Powering down...")
    if sensor.line_reset.set(0):
        sensor.wire.clear()
    for line in (sensor.line_1v2, sensor.line_svdd, sensor.line_avddh):
        line.set(0)
    return nothing(sensor.out("Done!\\n"))


def _set_mode(sensor: Sensor, mode: int) -> object:
    sensor.mode = mode
    return "-"


def _set_vertical_scan(sensor: Sensor, inverted: int) -> object:
    sensor.set_field(0x90, inverted, 1, 17)
    return nothing(sensor.set_field(0x6C, inverted, 1, 3))


def _set_horizontal_scan(sensor: Sensor, inverted: int) -> object:
    sensor.set_field(0x90, inverted, 1, 16)
    return nothing(sensor.set_field(0x6D, inverted, 1, 0))


def _set_test_signal(sensor: Sensor, on: int) -> object:
    sensor.write(0x201, 0x203 if on else 0)
    return 0


def _reset_areas(sensor: Sensor) -> object:
    sensor.reset_areas()
    return 0


SENSOR_OPERATIONS: dict[str, Callable[..., object]] = {
    "writeRegister": _write_register,
    "readShadowRegister": _read_shadow_register,
    "setRegisterField": _set_register_field,
    "getRegisterField": _get_register_field,
    "dumpRegisterMap": _dump_register_map,
    "setMClockMhz": _set_clock,
    "writeRegistersFromFile": _load,
    "powerUp": _power_up,
    "powerDown": _power_down,
    "getHorizontalPeriod": Sensor.period,
    "getFrameReadoutTime": Sensor.readout_time,
    "setHDMax": Sensor.set_hd_max,
    "setExposure": Sensor.set_exposure,
    "setExposureMode": _set_mode,
    "setFrameState": lambda s, state: nothing(s.set_frame_state(state)),
    "setFrameControlMode": lambda s, mode: nothing(s.set_control_mode(mode)),
    "getFrameControlMode": Sensor.control_mode,
    "setBin": lambda s, factor: nothing(s.set_bin(factor)),
    "setVScanInvert": _set_vertical_scan,
    "setHScanInvert": _set_horizontal_scan,
    "getVScanInvert": lambda s: s.field(0x90, 1, 17),
    "getHScanInvert": lambda s: s.field(0x90, 1, 16),
    "setAGainCourse": lambda s, _gain: 4,  # not with 12 bits a pixel
    "setAGainFine": lambda s, _gain: 4,
    "getAGainCourse": lambda s: s.field(0x40, 3) + s.field(0x41, 7),
    "getAGainFine": lambda s: s.field(0x41, 0x3F, 4),
    "setDGainCourse": lambda s, gain: nothing(s.set_field(0x42, gain, 3)),
    "setDGainFine": lambda s, gain: nothing(s.set_field(0x42, gain, 0xF, 4)),
    "getDGainCourse": lambda s: s.field(0x42, 3),
    "getDGainFine": lambda s: s.field(0x42, 0xF, 4),
    "setTestPattern": lambda s, pattern: nothing(s.set_field(0x300, pattern, 7, 16)),
    "setTestSigEnable": _set_test_signal,
    "resetROIAreas": _reset_areas,
    "setROIArea": Sensor.set_area,
}


def _header_update(fpga: Fpga) -> object:
    fpga.change(fpga.CONTROL, 0, 1)
    fpga.held[fpga.CONTROL] &= ~1  # the hardware takes it back
    return "-"


def _status(fpga: Fpga) -> object:
    return "".join(str(fpga.read(fpga.STATUS) >> bit & 1) for bit in (3, 2, 1, 0))


def _scaled(fpga: Fpga, address: int) -> object:
    value = fpga.read(address)
    return f"{value >> 15 & 0xFFFE} {(value & 0xFFFF) * 6 & 0xFFFF}"


def _halves(fpga: Fpga, address: int) -> object:
    value = fpga.read(address)
    return f"{value >> 16} {value & 0xFFFF}"


def _set_scaled(address: int) -> Callable[..., object]:
    return lambda f, height, width: nothing(
        f.write(address, width // 6 | (height >> 1 & 0x7FFF) << 16)
    )


def _set_halves(address: int) -> Callable[..., object]:
    return lambda f, first, second: nothing(f.write(address, first << 16 | second))


def _set_masked(address: int, mask: int = 0xFFFFFFFF, shift: int = 0) -> Callable[..., object]:
    return lambda f, value: nothing(f.write(address, (value & mask) << shift))


def _read_masked(address: int, mask: int = 0xFFFFFFFF, shift: int = 0) -> Callable[..., object]:
    return lambda f: f.read(address) >> shift & mask


FPGA_OPERATIONS: dict[str, Callable[..., object]] = {
    "initialize": Fpga.initialize,
    "resetPipeline": lambda f, reset: int(f.reset_pipeline(reset != 0)),
    "setMClk": Fpga.set_clock,
    "getClockMhz": lambda f: f"{f.clock:f}",
    "setExposureMode": lambda f, _on: "-",
    "setExternalTrigger": lambda f, _on: "-",
    "getSysId": Fpga.system_id,
    "dumpRegisters": lambda f: nothing(f.dump()),
    "initialized": lambda f: 1,
    "readCoreEnabled": _read_masked(Fpga.CONTROL, 1, 31),
    "enableCore": lambda f, enable: f.enable_core(enable != 0),
    "readPairsFlip": _read_masked(Fpga.CONTROL, 1, 1),
    "enablePairsFlip": lambda f, on: nothing(f.change(f.CONTROL, 2, 2 if on else 0)),
    "triggerHdrUpdate": _header_update,
    "readStatus": _status,
    "readLaneInversion": _read_masked(Fpga.LANES),
    "setLaneInversion": _set_masked(Fpga.LANES, 0xFFF),
    "readIrqFlags": _read_masked(Fpga.IRQ_FLAGS),
    "clearIrqFlags": _set_masked(Fpga.IRQ_FLAGS),
    "readIrqMask": _read_masked(Fpga.IRQ_MASK),
    "setIrqMask": _set_masked(Fpga.IRQ_MASK),
    "readRoiResCntConfig": lambda f: _scaled(f, f.ROI_COUNT),
    "setRoiResCntConfig": _set_scaled(Fpga.ROI_COUNT),
    "readResolutionConfig": lambda f: _halves(f, f.RESOLUTION),
    "setResolutionConfig": _set_halves(Fpga.RESOLUTION),
    "readRoiConfig": lambda f: _halves(f, f.ROI),
    "setRoiConfig": _set_halves(Fpga.ROI),
    "readBackPorchConfig": lambda f: _scaled(f, f.PORCH),
    "setBackPorchConfig": _set_scaled(Fpga.PORCH),
    "readDPAReset": _read_masked(Fpga.DPA_RESET, 0xFFF),
    "readDPAFifoReset": _read_masked(Fpga.DPA_RESET, 0xFFF, 12),
    "readDPAHold": _read_masked(Fpga.DPA_HOLD),
    "readDPALock": _read_masked(Fpga.DPA_LOCK, 0xFFF),
    "setDPAReset": _set_masked(Fpga.DPA_RESET, 0xFFF),
    "setDPAFifoReset": _set_masked(Fpga.DPA_RESET, 0xFFF, 12),
    "setDPAHold": _set_masked(Fpga.DPA_HOLD, 0xFFF),
    "setIndexSync": _set_masked(0xFF210034),
    "setFrameTimestamp": _set_masked(0xFF210038),
    "readCoreId": _read_masked(Fpga.CORE),
    "readCoreRev": _read_masked(Fpga.CORE + 4),
    "readCoreCaps": _read_masked(Fpga.CORE + 8),
    "dumpCore": lambda f: nothing(f.dump_core()),
}


# ---------------------------------------------------------------------------------------------
# Comparison


def final_state(board: Board, trace: Trace) -> None:
    shadow = ""
    for address in range(0x400):
        result, value = board.peek(address, 0)
        if result == 0:
            shadow += f" {address:X}={value & 0xFFFFFFFF:X}"
    trace.expect("NOTE shadow" + shadow)

    def listed(registers: dict[int, int]) -> str:
        return "".join(f" {address:X}={registers[address]:X}" for address in sorted(registers))

    trace.expect("NOTE sensor" + listed(board.sensor.wire))
    trace.expect("NOTE words" + listed(board.words.words))


def take(trace: Trace, note: str, result: object) -> None:
    """The operation's note is next, with this result."""
    trace.expect(note.rsplit(" -> ", 1)[0] + f" -> {result}")


def live_as_board(trace: Trace, words: RegisterFile) -> None:
    board = Board(trace, words)
    trace.expect(f"NOTE initialize {board.initialize()}")
    for name, arguments, note in trace.operations():
        if name == "fault" or note == "NOTE initialize -> not now":
            trace.expect(note)
        elif name == "initialize":
            take(trace, note, board.initialize())
        else:
            take(trace, note, OPERATIONS[name](board, arguments))
    final_state(board, trace)
    board.destroy()


def numbers(arguments: list[str]) -> list[object]:
    """Arguments of a driver: numbers, or a file's name."""
    words = arguments[0].split() if arguments else []
    return [int(word) if re.fullmatch(r"-?\d+", word) else word for word in words]


def live_as_sensor(trace: Trace) -> None:
    sensor = Sensor(trace)
    for name, arguments, note in trace.operations():
        take(trace, note, SENSOR_OPERATIONS[name](sensor, *numbers(arguments)))
    for line in (sensor.line_reset, sensor.line_avddh, sensor.line_svdd, sensor.line_1v2):
        line.release()
    trace.expect("CLOSE /dev/spidev1.0")
    trace.expect("CLOSE /dev/i2c-1")


def live_as_fpga(trace: Trace) -> None:
    fpga = Fpga(trace)
    fpga.map_all()
    fpga.map(fpga.CONTROL, 16384)  # the other frame-control core
    for name, arguments, note in trace.operations():
        take(trace, note, FPGA_OPERATIONS[name](fpga, *numbers(arguments)))
    trace.expect("UNMAP 0xFF210000 4096")
    fpga.unmap_all()


def live(trace: Trace, words: RegisterFile) -> None:
    """Lives one life."""
    if trace.whose == "a board":
        live_as_board(trace, words)
    elif trace.whose == "a sensor driver":
        live_as_sensor(trace)
    else:
        live_as_fpga(trace)
    if trace.at != len(trace.lines):
        raise Difference("(end)", trace.lines[trace.at], trace.at)


def traces(lines: Iterable[str]) -> Iterator[Trace]:
    trace = Trace()
    for raw in lines:
        raw = raw.rstrip("\n")
        if raw.startswith("["):
            trace.add(raw)
        elif raw.startswith("life "):
            trace = Trace()
        elif raw.startswith("LIFE of "):
            trace.whose = raw[8:]
        elif raw.startswith("FILE "):
            _, name, text = raw.split(" ", 2)
            trace.files[name] = ESCAPE.sub(unescape, text)
        elif raw.startswith("WRONG "):
            trace.wrong.append(raw)
        elif raw == "what the virtual head saw":
            yield trace


def resume(words: RegisterFile, trace: Trace) -> None:
    """After a difference: the register file as this board left it."""
    for line in reversed(trace.lines):
        if line.startswith("NOTE words"):
            pairs = (pair.split("=") for pair in line.split()[2:])
            words.words = {int(address, 16): int(value, 16) for address, value in pairs}
            return


def main(arguments: list[str]) -> int:
    if len(arguments) > 2:
        print(__doc__, file=sys.stderr)
        return 2
    label = arguments[1] if len(arguments) == 2 else "-"
    words = RegisterFile()
    lives = operations = differences = compared = 0
    for number, trace in enumerate(traces(sys.stdin)):
        lives += 1
        try:
            live(trace, words)
        except (Difference, IndexError, KeyError, TypeError, ValueError) as difference:
            differences += 1
            place = f"{label} life {number} of {trace.whose}, operation {trace.made()}"
            print(f"{place}: {trace.operation()[2]}")
            for wrong in trace.wrong:
                print(f"    {wrong}")
            if isinstance(difference, Difference):
                print(f"    expected {difference.expected[:300]}")
                print(f"    actual   {difference.actual[:300]}")
            else:
                print(f"    {difference!r}")
            resume(words, trace)
        compared += trace.at
        operations += trace.made()
    print(
        f"{label}: {lives} lives, {operations} operations, {compared} lines compared, "
        f"{differences} lives differ"
    )
    return 1 if differences or not operations else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
