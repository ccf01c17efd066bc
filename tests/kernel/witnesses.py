"""Who saw what of a job, told in the words of the virtual head's log.

Three of them: the virtual head itself, when it stood in the place of the kernel; the wires behind the kernel's
drivers; and the kernel's own tracepoints.
"""

from __future__ import annotations

import dataclasses
import re

# Lines of /dev/gpiochip0.
LINES = {5: "PS_1.2V_EN", 6: "PS_3.3SVDD_EN", 7: "PS_3.3AVDDH_EN", 11: "RESET_B", 12: "EXT_TRIG_EN"}
MONITOR = "049"
TIMED = re.compile(r"\[ *([0-9.]+)\] (.*)")


class HeadLog:
    """A log that the virtual head's model wrote, in front of a program or behind the wires."""

    def __init__(self, text: str) -> None:
        matches = (TIMED.fullmatch(line) for line in text.splitlines())
        self.lines = [match[2] for match in matches if match]

    def those(self, *starts: str) -> list[str]:
        return [line for line in self.lines if line.startswith(starts)]

    def words(self) -> list[str]:
        return self.those("SPI ")

    def settings(self) -> list[str]:
        return self.those("SPI-")

    def levels(self) -> list[str]:
        """Every level that was set, also one that was so before."""
        return [line for line in self.those("GPIO ") if re.search(r" (out|=) [01]$", line)]

    def conversions(self) -> list[str]:
        return self.those("ADC")

    def registers(self) -> list[str]:
        return self.those("READ ", "WRITE ")

    def violations(self) -> list[str]:
        return self.those("VIOLATION ")

    def sleeps(self) -> list[int]:
        """[ns]"""
        return [int(line.split()[1]) for line in self.those("SLEEP ")]


def changes(levels: list[str]) -> list[str]:
    """What of levels a wire shows: the first one, and each that is another than before."""
    now: dict[str, str] = {}
    shown = []
    for line in levels:
        _, name, _, level = line.split()
        if now.get(name) != level:
            shown.append(f"{name} {level}")
        now[name] = level
    return shown


@dataclasses.dataclass
class Sleep:
    began: float # [s]
    ended: float

    def duration(self) -> int:
        """[ns]"""
        return round((self.ended - self.began) * 1e9)


def channel_of(command: int) -> int:
    """The supply monitor's channel of a command: the even ones, then the odd ones."""
    bits = command >> 4 & 7
    return (bits & 3) << 1 | bits >> 2


class Trace:
    """The kernel's tracepoints, of the process that did the job."""

    LINE = re.compile(r"\s*(\S+)-\d+\s+\[\d+\]\s+\S+\s+([0-9.]+): (\w+): (.*)")

    def __init__(self, text: str) -> None:
        matches = (self.LINE.fullmatch(line) for line in text.splitlines())
        self.events = [(float(match[2]), match[3], match[4]) for match in matches if match and match[1] == "camhost"]

    def those(self, *names: str) -> list[tuple[str, str]]:
        return [(name, text) for _, name, text in self.events if name in names]

    def words(self) -> list[str]:
        sent = [re.search(r" tx=\[([0-9a-f-]*)\]", text) for _, text in self.those("spi_transfer_start")]
        return ["SPI " + match[1].replace("-", " ").upper() for match in sent if match]

    def setups(self) -> list[str]:
        """The port after each setting: "mode 0, 32 bits, 10000000 Hz". The kernel drives the chip select as a pin of
        its own, and takes it for one that is active high then."""
        found = []
        for _, text in self.those("spi_setup"):
            match = re.search(r"setup mode (\d), (?:cs_high, )?(\d+) bits/w, (\d+) Hz max --> 0", text)
            found.append(f"mode {match[1]}, {match[2]} bits, {match[3]} Hz" if match else text)
        return found

    def levels(self) -> list[str]:
        """The kernel tells a new output's level before its direction."""
        found: list[str] = []
        for name, text in self.those("gpio_value", "gpio_direction"):
            line, what, level = text.split()[:3]
            known = LINES.get(int(line))
            if known is None:
                continue
            if name == "gpio_value" and what == "set":
                found.append(f"GPIO {known} = {level}")
            elif name == "gpio_direction" and what == "out" and found and found[-1].startswith(f"GPIO {known} ="):
                found[-1] = found[-1].replace(" = ", " out ")
            else:
                found.append(f"GPIO {known} {what} {level}")
        return found

    def conversions(self) -> list[str]:
        found = []
        command = 0
        for name, text in self.those("i2c_write", "i2c_reply"):
            match = re.search(rf"a={MONITOR} .*\[([0-9a-f-]+)\]", text)
            if match is None:
                found.append(text)
                continue
            data = bytes.fromhex(match[1].replace("-", ""))
            if name == "i2c_write":
                for command in data:
                    found.append(f"ADC-COMMAND 0x{command:02X}")
            else:
                found.append(f"ADC {channel_of(command)} 0x{int.from_bytes(data, 'big'):03X}")
        return found

    def sleeps(self) -> list[Sleep]:
        found = []
        began = None
        for time, name, _ in self.events:
            if name == "sys_enter":
                began = time
            elif name == "sys_exit" and began is not None:
                found.append(Sleep(began, time))
                began = None
        return found


def setups(settings: list[str], first_bits: str) -> list[str]:
    """The port after each setting of the virtual head's log. `first_bits`: a word's before it is set, since a port
    keeps that when it is closed."""
    port = {"MODE": "0", "LSB": "0", "BITS": first_bits, "HZ": "1000000"}
    found = []
    for line in settings:
        name, value = line[len("SPI-"):].split()
        port[name] = value
        found.append(f"mode {port['MODE']}, {port['BITS']} bits, {port['HZ']} Hz")
    return found
