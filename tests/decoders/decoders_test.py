#!/usr/bin/env python3
"""The protocol decoders say what was on the wires.

Signals by hand with their numbers worked out by hand, and runs of the virtual head, whose own list of what it saw is the
truth. Environment: HEAD_BUILD, the build folder."""

import ast
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import types
import unittest
from pathlib import Path

from wires import I2c, Spi

SOURCE = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ["HEAD_BUILD"])
DECODERS = BUILD / "share/libsigrokdecode/decoders"
NAMES = ("monitor_3u5mgxs", "sensor_3u5mgxs")
TABLE = "sensor_board_3u5mgxs.registers.json"
PICTURE = SOURCE / "tests/decoders/packets"  # a decoder that shows what another one hands on


def bits(number, count=32):
    return format(number, f"0{count}b")


class Analyser(unittest.TestCase):
    """A folder for dumps, and the distribution's analyser, which finds our decoders."""

    maxDiff = None
    read = "vcd:compress=100000"  # how a dump is read: idle times cut short

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.decoders = DECODERS
        self.dump = self.folder / "wires.vcd"

    def analyse(self, *arguments, environment=None):
        variables = dict(os.environ, PYTHONDONTWRITEBYTECODE="1", SIGROKDECODE_DIR=str(self.decoders))
        variables.update(environment or {})
        return subprocess.run(["sigrok-cli", "-I", self.read, "-i", str(self.dump), *arguments],
                              env=variables, capture_output=True, check=False)

    def output(self, *arguments, **options):
        done = self.analyse(*arguments, **options)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        return done.stdout.decode("ascii")

    def annotations(self, stack, shown):
        """Texts of a decoder's annotations, in their order."""
        lines = self.output("-P", stack, "-A", shown).splitlines()
        return [line.partition(": ")[2] for line in lines]

    def sensor(self, wires=None, kinds="word:write:field:warning", options="", spi=""):
        if wires is not None:
            wires.write(self.dump)
        return self.annotations(f"spi:clk=CLK:mosi=MOSI:cs=CS{spi},sensor_3u5mgxs{options}", f"sensor_3u5mgxs={kinds}")

    def monitor(self, wires=None, kinds="command:reading:supply:warning", i2c=""):
        if wires is not None:
            wires.write(self.dump)
        return self.annotations(f"i2c:scl=SCL:sda=SDA{i2c},monitor_3u5mgxs", f"monitor_3u5mgxs={kinds}")


class Sensor(Analyser):
    # 0x012 << 22 = 0x04800000
    HD_MAX = 0x04800FA0
    HD_MAX_SAYS = ["Word 0x04800FA0", "0x012 hd_max: 0x000FA0", "hd_max = 4000 lines (frame length)"]

    def test_a_word_is_named_with_its_fields(self):
        self.assertEqual(self.sensor(Spi().selected(bits(self.HD_MAX))), self.HD_MAX_SAYS)

    def test_fields_come_as_their_bits_do_over_the_wire(self):
        # 0x041 << 22 = 0x10400000; fine 42 = 101010 in bits 9:4, coarse2 5 = 101 in bits 2:0
        self.assertEqual(self.sensor(Spi().selected(bits(0x10400000 | 42 << 4 | 5))), [
            "Word 0x104002A5", "0x041 again_coarse2, again_fine: 0x0002A5",
            "again_fine = 42 (analogue gain, fine)", "again_coarse2 = 5 (analogue gain, second stage)"])

    def test_each_annotation_lies_over_its_bits(self):
        Spi().selected(bits(0x10400000 | 42 << 4 | 5)).write(self.dump)
        lines = self.output("-P", "spi:clk=CLK:mosi=MOSI:cs=CS,sensor_3u5mgxs", "-A", "sensor_3u5mgxs",
                            "--protocol-decoder-samplenum").splitlines()
        places = [line.partition(" ")[0] for line in lines]
        # Selected at 20, the first bit from 25 on, its clock rises at 30. Bit n of the word rises at 30 + 10 (31 - n);
        # it ends where the next one begins.
        self.assertEqual(places, ["30-350", "30-350", "250-310", "320-350"])

    def test_several_words_of_a_selection_and_a_word_in_pieces(self):
        pieces = [bits(self.HD_MAX)[:5], bits(self.HD_MAX)[5:27], bits(self.HD_MAX)[27:]]
        for spi in ("", ":wordsize=16", ":wordsize=32", ":bitorder=lsb-first"):
            with self.subTest(spi):
                self.assertEqual(self.sensor(Spi().selected(bits(self.HD_MAX) * 2), spi=spi), 2 * self.HD_MAX_SAYS)
                self.assertEqual(self.sensor(Spi().selected(*pieces, pause=300), spi=spi), self.HD_MAX_SAYS)

    def test_a_word_that_is_cut_short_is_dropped_and_the_next_one_is_whole(self):
        wires = Spi().selected("000001001000000000001111").selected(bits(self.HD_MAX))
        self.assertEqual(self.sensor(wires), [
            "Word cut short: 24 of 32 bits, 0x04800F; the sensor drops them", *self.HD_MAX_SAYS])
        # The decoder below keeps the rest of its own word to itself: only the selection shows it.
        self.assertEqual(self.sensor(spi=":wordsize=32"), [
            "Selected without a word: no clock, or a word that was cut short", *self.HD_MAX_SAYS])

    def test_a_rest_behind_a_word(self):
        self.assertEqual(self.sensor(Spi().selected(bits(self.HD_MAX) + "10100101")), [
            *self.HD_MAX_SAYS, "Word cut short: 8 of 32 bits, 0xA5; the sensor drops them"])

    def test_selected_without_a_clock(self):
        self.assertEqual(self.sensor(Spi().selected("")), [
            "Selected without a word: no clock, or a word that was cut short"])
        self.assertEqual(self.sensor(Spi().selected(bits(self.HD_MAX)).selected("")), [
            *self.HD_MAX_SAYS, "Selected without a word: no clock, or a word that was cut short"])

    def test_an_analyser_that_was_started_in_the_middle_of_a_word(self):
        wires = Spi(cs=0)
        wires.bits("11110000")
        wires.release()
        self.assertEqual(self.sensor(wires.selected(bits(self.HD_MAX))), [
            "Word cut short: 8 of 32 bits, 0xF0; the sensor drops them", *self.HD_MAX_SAYS])

    def test_a_register_that_the_table_does_not_have(self):
        wires = Spi().selected(bits(0xFFC00001))
        says = ["Word 0xFFC00001", "0x3FF unknown: 0x000001"]
        self.assertEqual(self.sensor(wires), [*says, "Register 0x3FF is not in the table"])
        self.assertEqual(self.sensor(options=":unknown=no"), says)

    def test_bits_outside_the_fields(self):
        # 0x010 << 22 = 0x04000000; bits 2:0 and 9:8 are fields: 0x307
        wires = Spi().selected(bits(0x04000000 | 0x200403))
        self.assertEqual(self.sensor(wires, "warning"), ["Bits 0x200400 of 0x010 belong to no field"])
        self.assertEqual(self.sensor(kinds="warning", options=":unknown=no"), [])

    def test_what_comes_back_is_no_matter(self):
        wires = Spi()
        wires.set("MISO", 1)
        wires.selected(bits(self.HD_MAX)).write(self.dump)
        self.assertEqual(self.sensor(spi=":miso=MISO"), self.HD_MAX_SAYS)
        self.assertEqual(self.annotations("spi:clk=CLK:miso=MISO:cs=CS,sensor_3u5mgxs", "sensor_3u5mgxs"),
                         ["No MOSI: nothing to decode"])

    def test_without_chip_select_words_are_counted(self):
        Spi().selected(bits(self.HD_MAX)).selected(bits(self.HD_MAX)).write(self.dump)
        self.assertEqual(self.annotations("spi:clk=CLK:mosi=MOSI,sensor_3u5mgxs", "sensor_3u5mgxs"),
                         ["No chip select: words are counted from the first bit", *2 * self.HD_MAX_SAYS])

    def test_a_clock_that_is_too_fast(self):
        # 7 periods of 8 samples and at most one sample more, at 100 million samples in a second: 12.28 MHz
        wires = Spi(period=8).selected(bits(self.HD_MAX))
        self.assertEqual(self.sensor(wires), [
            *self.HD_MAX_SAYS, "Clock of at least 12.3 MHz: the sensor follows at most 10 MHz"])
        self.assertEqual(self.sensor(options=":clock=no"), self.HD_MAX_SAYS)
        # Pauses within a word hide no fast byte.
        wires = Spi(period=8).selected(*re.findall("........", bits(self.HD_MAX)), pause=500)
        self.assertEqual(len(self.sensor(wires, "warning")), 1)
        # Nor do slow bytes before it: the last one has 8 samples a bit, the others 16.
        wires = Spi(period=16)
        wires.select()
        wires.bits(bits(self.HD_MAX)[:24])
        wires.period = 8
        wires.bits(bits(self.HD_MAX)[24:])
        wires.release()
        self.assertEqual(len(self.sensor(wires, "warning")), 1)

    def test_options(self):
        wires = Spi().selected(bits(self.HD_MAX))
        self.assertEqual(self.sensor(wires, options=":fields=no"), self.HD_MAX_SAYS[:2])
        # 14 bits are four digits
        self.assertEqual(self.sensor(options=":numbers=hexadecimal")[2], "hd_max = 0x0FA0 lines (frame length)")

    def test_writes_are_lines_of_a_settings_file(self):
        Spi().selected(bits(self.HD_MAX) + bits(0xFFC00001)).selected("1" * 8).write(self.dump)
        text = self.output("-P", "spi:clk=CLK:mosi=MOSI:cs=CS,sensor_3u5mgxs", "-B", "sensor_3u5mgxs=settings")
        self.assertEqual(text, "0x012 0x000FA0 hd_max\n0x3FF 0x000001\n")

    def test_what_it_hands_on(self):
        Spi().selected(bits(0x10400000 | 42 << 4 | 5) + "10100101").selected(bits(0xFFC00001)).write(self.dump)
        self.decoders = self.folder / "decoders"
        shutil.copytree(DECODERS, self.decoders)
        shutil.copytree(PICTURE, self.decoders / "packets")
        self.assertEqual(self.annotations("spi:clk=CLK:mosi=MOSI:cs=CS,sensor_3u5mgxs,packets", "packets"), [
            "['WRITE', 65, 677, [['again_coarse2', 5], ['again_fine', 42]]]", "['REST', 8, 165]", "['WRITE', 1023, 1, []]"])


class Monitor(Analyser):
    def reading(self, command, high, low):
        """A command byte, and the two bytes that come back, all hexadecimal."""
        return f"S 92 {command} S 93 {high} {low}- P "

    def supply(self, command, number):
        return self.monitor(I2c().message(self.reading(command, number[:2], number[2:])), "supply:warning")

    def test_a_reading_with_its_supply(self):
        # 0x7AE = 1966, of 4096 steps of 2.5 V: 1.19995 V
        self.assertEqual(self.monitor(I2c().message(self.reading("8C", "07", "AE"))), [
            "Command 0x8C: channel 0, reference on, converter on", "Channel 0: 0x7AE, 1.19995 V at the pin",
            "VDD1.2: 1.19995 V, within 1.1 to 1.3 V"])
        self.assertEqual(self.monitor(i2c=":address_format=unshifted")[2], "VDD1.2: 1.19995 V, within 1.1 to 1.3 V")

    def test_dividers_are_undone(self):
        # 0xA8F = 2703: 1.64978 V, times two
        self.assertEqual(self.supply("CC", "0A8F"), ["VDD3.3AVDDH_DIV2: 3.29956 V, within 3.2 to 3.4 V"])
        self.assertEqual(self.supply("AC", "0A8F"), ["VDD3.3SVDD_DIV2: 3.29956 V, within 3.2 to 3.4 V"])

    def test_the_last_step_within_the_limits_and_the_first_one_outside(self):
        # A step is 0.61 mV, behind a divider 1.22 mV.
        for command, number, says in [
                ("8C", "070A", ["VDD1.2: 1.09985 V, below 1.1 V"] * 2),
                ("8C", "070B", ["VDD1.2: 1.10046 V, within 1.1 to 1.3 V"]),
                ("8C", "0851", ["VDD1.2: 1.29944 V, within 1.1 to 1.3 V"]),
                ("8C", "0852", ["VDD1.2: 1.30005 V, above 1.3 V"] * 2),
                ("CC", "0A3D", ["VDD3.3AVDDH_DIV2: 3.19946 V, below 3.2 V"] * 2),
                ("CC", "0A3E", ["VDD3.3AVDDH_DIV2: 3.20068 V, within 3.2 to 3.4 V"]),
                ("AC", "0AE1", ["VDD3.3SVDD_DIV2: 3.39966 V, within 3.2 to 3.4 V"]),
                ("AC", "0AE2", ["VDD3.3SVDD_DIV2: 3.40088 V, above 3.4 V"] * 2)]:
            with self.subTest(number):
                self.assertEqual(self.supply(command, number), says)

    def test_each_channel(self):
        commands = ["8C", "CC", "9C", "DC", "AC", "EC", "BC", "FC"]
        wires = I2c()
        for command in commands:
            wires.message(self.reading(command, "08", "00"))
        self.assertEqual(self.monitor(wires, "reading"),
                         [f"Channel {channel}: 0x800, 1.25 V at the pin" for channel in range(8)])

    def test_a_channel_against_its_neighbour_is_no_supply(self):
        wires = I2c().message(self.reading("0C", "08", "00")).message(self.reading("4C", "08", "00"))
        self.assertEqual(self.monitor(wires), [
            "Command 0x0C: channel 0 against 1, reference on, converter on", "Channel 0 against 1: 0x800, 1.25 V at the pin",
            "Command 0x4C: channel 1 against 0, reference on, converter on", "Channel 1 against 0: 0x800, 1.25 V at the pin"])

    def test_a_reference_that_is_off(self):
        self.assertEqual(self.monitor(I2c().message(self.reading("80", "0F", "FF"))), [
            "Command 0x80: channel 0, reference off, converter off between readings", "Channel 0: 0xFFF, 2.49939 V at the pin",
            "Read with the reference off: the number means nothing"])

    def test_a_bus_that_nobody_drives(self):
        self.assertEqual(self.supply("8C", "FFFF"), ["0xFFFF has bits that are never set: nobody drives SDA"])
        self.assertEqual(self.supply("8C", "1000"), ["0x1000 has bits that are never set: nobody drives SDA"])

    def test_a_monitor_that_does_not_answer(self):
        self.assertEqual(self.monitor(I2c().message("S 92- P S 93- P")), ["The monitor does not answer"] * 2)
        self.assertEqual(self.monitor(I2c().message("S 92- 8C- P")), ["The monitor does not answer"])
        self.assertEqual(self.monitor(I2c().message("S 92 8C- P"), "warning"), ["The monitor refuses the command"])

    def test_another_chip_on_the_bus(self):
        self.assertEqual(self.monitor(I2c().message("S 90 8C S 91 07 AE- P S 90- P S 96 8C P")), [])

    def test_the_command_of_a_message_before(self):
        wires = I2c().message("S 92 CC P S 90 8C P S 93 0A 8F- P")
        self.assertEqual(self.monitor(wires, "reading"), ["Channel 1: 0xA8F, 1.64978 V at the pin"])
        self.assertEqual(self.monitor(I2c().message("S 93 07 AE- P")), [
            "Unknown channel: 0x7AE, 1.19995 V at the pin", "No command was seen: the channel is not known"])

    def test_too_few_bytes_and_too_many(self):
        self.assertEqual(self.monitor(I2c().message("S 92 8C S 93 07- P"), "warning:reading"),
                         ["Reading cut short: 1 of 2 bytes"])
        # Somebody who looks whether there is a chip reads a byte.
        self.assertEqual(self.monitor(I2c().message("S 92 8C P S 93 07- P"), "warning:reading"), [])
        self.assertEqual(self.monitor(I2c().message("S 92 8C S 93 07 AE FF- P"), "warning:reading"), [
            "Channel 0: 0x7AE, 1.19995 V at the pin", "Bytes more than a reading has: 1"])

    def test_supplies_are_the_drivers_lines(self):
        I2c().message(self.reading("8C", "08", "52") + self.reading("9C", "08", "00")).write(self.dump)
        self.assertEqual(self.output("-P", "i2c:scl=SCL:sda=SDA,monitor_3u5mgxs", "-B", "monitor_3u5mgxs=supplies"),
                         "VDD1.2: 1.30005\n")

    def test_what_it_hands_on(self):
        I2c().message(self.reading("CC", "08", "00") + self.reading("9C", "08", "00")).write(self.dump)
        self.decoders = self.folder / "decoders"
        shutil.copytree(DECODERS, self.decoders)
        shutil.copytree(PICTURE, self.decoders / "packets")
        self.assertEqual(self.annotations("i2c:scl=SCL:sda=SDA,monitor_3u5mgxs,packets", "packets"), [
            "['COMMAND', 204]", "['READING', 1, 2048, 1.25, 'VDD3.3AVDDH_DIV2', 2.5, 'low']",
            "['COMMAND', 156]", "['READING', 2, 2048, 1.25, None, None, None]"])


class Head(Analyser):
    """Runs of the virtual head. What it saw is in its log and its report, made of C++ tables."""

    def run_on_head(self, program, *options):
        """Returns what the program printed."""
        done = subprocess.run(
            [str(BUILD / "bin/virtual-head"), "--workdir", str(SOURCE / "data"), "--vcd", str(self.dump), "--log",
             str(self.folder / "log"), "--report", str(self.folder / "run.html"), *options, "--", *program],
            capture_output=True, text=True, check=False)
        self.log = (self.folder / "log").read_text(encoding="utf-8")
        return done

    def camhost(self, *commands, script=None, options=()):
        arguments = [str(BUILD / "bin/camhost"), "--plugin", str(BUILD / "lib/sensor_board_3u5mgxs.so"), "--spi", "/dev/spidev1.0"]
        for command in commands:
            arguments += ["-c", command]
        if script is not None:
            arguments.append(str(script))
        return self.run_on_head(arguments, *options)

    def stack(self, options=""):
        return f"spi:clk=SPI-CLK:mosi=SPI-MOSI:cs=SPI-CS,sensor_3u5mgxs{options}"

    def logged_writes(self):
        """Address and value of each message; the port's buffer has the lowest byte first."""
        words = [int("".join(reversed(line.split())), 16) for line in re.findall(r"^\[.*\] SPI ([0-9A-F ]+)$", self.log, re.M)]
        return [(word >> 22, word & 0x3FFFFF) for word in words]

    def reported_writes(self):
        """Address, value and names of fields, as the report's list has them."""
        page = (self.folder / "run.html").read_text(encoding="utf-8")
        rows = re.findall(r"<td>sensor</td><td>(0x\w+)</td><td>([^<]*)</td><td>[^<]*</td><td>(0x\w+)</td>", page)
        return [(int(address, 16), int(value, 16), self.names(fields)) for address, fields, value in rows]

    @staticmethod
    def names(fields):
        """"area 1: row_start 2047, row_end 0 to 3" is area1_row_start, area1_row_end."""
        area = re.match(r"area (\d): ", fields)
        prefix = f"area{area.group(1)}_" if area else ""
        return [prefix + field.split()[0] for field in re.sub(r"^area \d: ", "", fields).split(", ") if field]

    def test_every_write_of_a_run_comes_back(self):
        done = self.camhost(script=SOURCE / "data/main-job.camhost")
        writes = self.logged_writes()
        self.assertIn("  sensor register writes: 256\n", done.stderr)
        self.assertEqual(len(writes), 256)
        self.assertEqual(writes[:3], [(0x010, 0), (0x020, 5), (0x050, 0xFFF)])
        reported = self.reported_writes()
        self.assertEqual([write[:2] for write in reported], writes)
        expected = [f"0x{address:03X} {', '.join(names) or 'unknown'}: 0x{value:06X}" for address, value, names in reported]
        for stack in (self.stack(), self.stack().replace("cs=SPI-CS", "cs=SPI-CS:wordsize=32")):
            self.assertEqual(self.annotations(stack, "sensor_3u5mgxs=write"), expected)
        self.assertEqual(self.annotations(self.stack(), "sensor_3u5mgxs=warning"),
                         ["Register 0x050 is not in the table", "Register 0x051 is not in the table"])

    def test_at_forty_million_samples_in_a_second_no_write_is_lost(self):
        self.camhost("init")
        writes = self.annotations(self.stack(), "sensor_3u5mgxs=write")
        self.assertEqual(len(writes), len(self.logged_writes()))
        self.assertGreater(len(writes), 80)
        # The dump has 1,000 million.
        for slower, same in ((25, True), (62, False)):
            self.read = f"vcd:compress=100000:downsample={slower}"
            self.assertEqual(self.annotations(self.stack(), "sensor_3u5mgxs=write") == writes, same)

    def test_every_field_of_a_run_has_its_number(self):
        self.camhost("init", "poke again_fine 3", "poke dgain_coarse 2")
        page = (self.folder / "run.html").read_text(encoding="utf-8")
        expected = []
        for fields in re.findall(r"<td>sensor</td><td>0x\w+</td><td>([^<]*)</td>", page):
            if fields:
                numbers = [field.split()[-1] for field in fields.split(", ")]
                expected.append(list(zip(self.names(fields), numbers)))
        shown = iter(self.annotations(self.stack(), "sensor_3u5mgxs=field"))
        for fields in expected:
            found = {tuple(re.match(r"(\w+) = (\d+)", next(shown)).groups()) for _ in fields}
            self.assertEqual(found, set(fields))
        self.assertEqual(list(shown), [])
        self.assertGreater(sum(map(len, expected)), 135)

    def test_every_reading_comes_back(self):
        for scenario, warnings in (("healthy", []), ("supply-low", ["VDD3.3AVDDH_DIV2: 2.95044 V, below 3.2 V"])):
            with self.subTest(scenario):
                done = self.camhost("init", options=["--scenario", str(SOURCE / f"data/scenarios/{scenario}.ini")])
                readings = [(int(channel), int(number, 16)) for channel, number
                            in re.findall(r"^\[.*\] ADC (\d) 0x([0-9A-F]+)$", self.log, re.M)]
                self.assertEqual([channel for channel, _ in readings], [0, 0, 1, 4])
                stack = "i2c:scl=I2C-SCL:sda=I2C-SDA,monitor_3u5mgxs"
                self.assertEqual(self.annotations(stack, "monitor_3u5mgxs=reading"), [
                    f"Channel {channel}: 0x{number:03X}, {number / 4096 * 2.5:.6g} V at the pin" for channel, number in readings])
                commands = re.findall(r"^\[.*\] ADC-COMMAND (0x[0-9A-F]+)$", self.log, re.M)
                self.assertEqual([text.split(":")[0] for text in self.annotations(stack, "monitor_3u5mgxs=command")],
                                 [f"Command {command}" for command in commands])
                # The driver throws its first reading away, and prints the others.
                lines = self.output("-P", stack, "-B", "monitor_3u5mgxs=supplies").splitlines()
                self.assertEqual(lines[1:], re.findall(r"^VDD.*$", done.stdout, re.M))
                self.assertEqual(self.annotations(stack, "monitor_3u5mgxs=warning"), warnings)

    def test_a_bus_that_floats(self):
        scenario = self.folder / "floats.ini"
        scenario.write_text("[Fault floating]\nwhat = ADC floats\nat = 0\n", encoding="ascii")
        self.camhost("init", options=["--scenario", str(scenario)])
        self.assertIn("ADC 0 0xFFFF", self.log)
        self.assertEqual(self.annotations("i2c:scl=I2C-SCL:sda=I2C-SDA,monitor_3u5mgxs", "monitor_3u5mgxs=reading:warning"),
                         ["0xFFFF has bits that are never set: nobody drives SDA"] * 4)

    # With words of 8 bits: a word in two transfers, two words in one, a word cut short, one with a rest behind it.
    PORT = """
import fcntl, os, struct, ctypes
port = os.open("/dev/spidev1.0", os.O_RDWR)
fcntl.ioctl(port, 0x40046b04, struct.pack("I", 10000000))
def message(*pieces):
    buffers = [ctypes.create_string_buffer(piece, len(piece)) for piece in pieces]
    transfers = b"".join(struct.pack("QQIIHBBBBBB", ctypes.addressof(buffer), 0, len(buffer), 0, 0, 0, 0, 0, 0, 0, 0)
                         for buffer in buffers)
    fcntl.ioctl(port, 0x40006b00 | len(transfers) << 16, transfers)
message(bytes.fromhex("0480"), bytes.fromhex("0FA0"))
message(bytes.fromhex("0400000004800FA0"))
message(bytes.fromhex("04800F"))
message(bytes.fromhex("04800FA0A5"))
"""

    def test_words_in_pieces_on_the_heads_own_wires(self):
        self.run_on_head([sys.executable, "-c", self.PORT])
        self.assertEqual(re.findall(r"\] SPI ([0-9A-F ]+)$", self.log, re.M),
                         ["04 80", "0F A0", "04 00 00 00 04 80 0F A0", "04 80 0F", "04 80 0F A0 A5"])
        self.assertEqual(re.findall(r"a rest of (\d+) bits was dropped", self.log), ["24", "8"])
        self.assertEqual(self.annotations(self.stack(), "sensor_3u5mgxs=word:warning"), [
            "Word 0x04800FA0", "Word 0x04000000", "Word 0x04800FA0",
            "Word cut short: 24 of 32 bits, 0x04800F; the sensor drops them",
            "Word 0x04800FA0", "Word cut short: 8 of 32 bits, 0xA5; the sensor drops them"])

    def test_the_writes_of_one_head_are_settings_for_another(self):
        self.camhost("init")
        first = self.logged_writes()
        settings = self.folder / "settings"
        shutil.copytree(SOURCE / "data", settings)
        (settings / "3U5MGXS_12bit.txt").write_text(
            self.output("-P", self.stack(), "-B", "sensor_3u5mgxs=settings"), encoding="ascii")
        self.camhost("init", options=["--workdir", str(settings)])
        self.assertEqual(self.logged_writes()[:len(first)], first)


class Folders(Analyser):
    """A decoder is a folder that stands alone, and says what its table says."""

    def copy(self, name, change=lambda table: None):
        """A decoder's folder, copied alone, with its table changed."""
        self.decoders = self.folder / "copied"
        shutil.copytree(DECODERS / name, self.decoders / name)
        path = self.decoders / name / TABLE
        table = json.loads(path.read_text(encoding="utf-8"))
        change(table)
        path.write_text(json.dumps(table), encoding="utf-8")
        return path

    def test_the_tables_are_the_plug_ins(self):
        for name in NAMES:
            self.assertEqual((DECODERS / name / TABLE).read_bytes(), (SOURCE / "plugin" / TABLE).read_bytes())

    def test_both_tables_of_the_plug_in_agree_about_the_supplies(self):
        registers = json.loads((SOURCE / "plugin" / TABLE).read_text(encoding="utf-8"))["monitor"]
        failures = json.loads((SOURCE / "plugin/sensor_board_3u5mgxs.failures.json").read_text(encoding="utf-8"))
        self.assertEqual({supply["name"]: {"least": supply["least"], "most": supply["most"]} for supply in registers["supplies"]},
                         failures["supplies"])
        self.assertEqual({key: registers[key] for key in ("chip", "bus", "address")},
                         {key: failures["head"]["monitor"][key] for key in ("chip", "bus", "address")})

    def test_names_and_places_of_the_sensor_are_the_tables(self):
        def change(table):
            table["sensor"].update(address_bits=8, value_bits=8, fastest_clock=1000000)
            table["sensor"]["fields"] = [{"name": "shade", "address": "0x0A5", "low_bit": 4, "bits": 2, "meaning": "grey [steps]"}]
        self.copy("sensor_3u5mgxs", change)
        # 0x30: the field is 3
        self.assertEqual(self.sensor(Spi().selected(bits(0xA530, 16))), [
            "Word 0xA530", "0xA5 shade: 0x30", "shade = 3 steps (grey)",
            "Clock of at least 9.9 MHz: the sensor follows at most 1 MHz"])

    def test_names_and_numbers_of_the_supplies_are_the_tables(self):
        def change(table):
            table["monitor"].update(address="0x48", reference=5.0, value_bits=13)
            table["monitor"]["supplies"] = [{"name": "VDD5", "channel": 2, "scale": 3, "least": 4.5, "most": 5.5}]
        self.copy("monitor_3u5mgxs", change)
        # 0x1000 of 0x2000: 2.5 V
        self.assertEqual(self.monitor(I2c().message("S 90 9C S 91 10 00- P"), "reading:supply"), [
            "Channel 2: 0x1000, 2.5 V at the pin", "VDD5: 7.5 V, above 5.5 V"])

    def test_a_table_that_is_missing_or_no_table_is_named(self):
        wires = {"sensor_3u5mgxs": (Spi(), "spi:clk=CLK:mosi=MOSI:cs=CS,sensor_3u5mgxs"),
                 "monitor_3u5mgxs": (I2c(), "i2c:scl=SCL:sda=SDA,monitor_3u5mgxs")}
        for name in NAMES:
            wires[name][0].write(self.dump)
            path = self.copy(name)
            for text, says in ((None, "No such file or directory"), ("{", "Error: "), ('{"format": 2}', "ValueError: format 2 is not known"),
                               ('{"format": 1}', "KeyError: "), ('{"format": 1, "sensor": {}, "monitor": {}}', "KeyError: ")):
                with self.subTest(f"{name}: {text}"):
                    path.unlink()
                    if text is not None:
                        path.write_text(text, encoding="ascii")
                    done = self.analyse("-P", wires[name][1], "-A", name)
                    self.assertEqual((done.returncode, done.stdout), (1, b""))
                    self.assertIn(f"TableError: Protocol decoder instance {name}-1: {path}: ", done.stderr.decode("utf-8"))
                    self.assertIn(says, done.stderr.decode("utf-8"))
                    if text is None:
                        path.touch()
            shutil.rmtree(self.decoders)

    def test_in_the_users_own_folder(self):
        Spi().selected(bits(Sensor.HD_MAX)).write(self.dump)
        shutil.copytree(DECODERS, self.folder / ".local/share/libsigrokdecode/decoders")
        home = dict(HOME=str(self.folder), SIGROKDECODE_DIR="", XDG_DATA_HOME="")
        text = self.output("-P", "spi:clk=CLK:mosi=MOSI:cs=CS,sensor_3u5mgxs", "-A", "sensor_3u5mgxs=write", environment=home)
        self.assertEqual(text, "sensor_3u5mgxs-1: 0x012 hd_max: 0x000FA0\n")

    def test_an_installation_has_them(self):
        subprocess.run(["cmake", "--install", str(BUILD), "--prefix", str(self.folder), "--component", "decoders"],
                       capture_output=True, check=True)
        installed = self.folder / "share/libsigrokdecode/decoders"
        files = sorted(str(path.relative_to(installed)) for path in installed.rglob("*") if path.is_file())
        self.assertEqual(files, [f"{name}/{file}" for name in NAMES for file in ("__init__.py", "pd.py", TABLE)])
        self.decoders = installed
        self.assertEqual(self.sensor(Spi().selected(bits(Sensor.HD_MAX))), Sensor.HD_MAX_SAYS)

    def test_they_run_on_the_python_that_comes_with_old_installations(self):
        for name in NAMES:
            for path in (DECODERS / name).glob("*.py"):
                ast.parse(path.read_text(encoding="utf-8"), feature_version=(3, 4))


class Page(Analyser):
    """docs/logic-analyser.md: its commands run, and what it shows of their output is what they say."""

    def setUp(self):
        super().setUp()
        self.page = (SOURCE / "docs/logic-analyser.md").read_text(encoding="utf-8")
        (self.folder / "build").mkdir()
        (self.folder / "build/run").symlink_to(BUILD)
        (self.folder / "data").symlink_to(SOURCE / "data")

    def run_here(self, command, status=0):
        variables = dict(os.environ, PYTHONDONTWRITEBYTECODE="1",
                         SIGROKDECODE_DIR="build/run/share/libsigrokdecode/decoders")
        done = subprocess.run(["bash", "-euc", command], cwd=self.folder, env=variables, capture_output=True, text=True,
                              check=False)
        self.assertEqual(done.returncode, status, f"{command}: {done.stdout}{done.stderr}")
        return done.stdout

    def steps(self):
        """Commands, a line each, and blocks of output, in their order: one of each pair is None."""
        text = self.page.replace("\\\n        ", "")
        command = r"^    ((?:build/run/|sigrok-cli |printf ).*)$"
        output = r"^```decoded\n((?:[^`\n].*\n)+)```$"
        return [match.groups() for match in re.finditer(f"{command}|{output}", text, re.M)]

    def draws_a_sleeping_sensor(self, command):
        """Whether a rule is broken, as the page says."""
        return command.startswith("printf ")

    def test_commands_and_output(self):
        shown = commands = 0
        said = ""
        for command, output in self.steps():
            if command is not None:
                # Every build machine has this analyser, whose signals mean nothing.
                command = command.replace("-d DRIVER", "-d demo:analog_channels=0").replace("--samples 10m", "--samples 100k")
                said = self.run_here(command, 9 if self.draws_a_sleeping_sensor(command) else 0)
                commands += 1
            else:
                lines = output.splitlines()
                self.assertEqual(said.splitlines()[:len(lines)], lines)
                shown += 1
        self.assertEqual((commands, shown), (10, 4))

    def test_the_picture(self):
        for command, _ in self.steps():
            if command is not None and "word." in command:
                self.run_here(command, 9 if self.draws_a_sleeping_sensor(command) else 0)
        self.assertEqual((self.folder / "word.svg").read_text(encoding="utf-8"),
                         (SOURCE / "docs/word.svg").read_text(encoding="utf-8"),
                         "docs/word.svg is out of date: the page says how to make it")

    def test_every_option_and_annotation_is_in_it(self):
        named = 0
        for name in NAMES:
            text = self.run_here(f"sigrok-cli -P {name} --show")
            classes = text.partition("Annotation classes:\n")[2].partition("Annotation rows:")[0]
            for kind in re.findall(r"^- (\w+): ", classes, re.M):
                self.assertIn(f"| `{kind}` |", self.page)
                named += 1
            for option, default in re.findall(r"^- (\w+): .*default '(\w+)'\)$", text, re.M):
                self.assertIn(f"| `{option}` | `{default}` |", self.page)
                named += 1
        self.assertEqual(named, 12)


class Zoom(unittest.TestCase):
    """A viewer takes the first text that fits: each annotation has several, the longest first."""

    def setUp(self):
        base = type("Decoder", (), {"register": lambda self, kind: kind})
        stub = types.SimpleNamespace(Decoder=base, OUTPUT_ANN=0, OUTPUT_BINARY=1, OUTPUT_PYTHON=2, SRD_CONF_SAMPLERATE=3)
        sys.modules["sigrokdecode"] = stub
        self.addCleanup(sys.modules.pop, "sigrokdecode")

    def texts(self, name, packets, **options):
        """Texts of the annotations that packets lead to."""
        scope = {"__file__": str(DECODERS / name / "pd.py"), "__name__": name}
        exec(compile((DECODERS / name / "pd.py").read_text(encoding="utf-8"), name, "exec"), scope)
        decoder = scope["Decoder"]()
        decoder.options = dict({option["id"]: option["default"] for option in scope["Decoder"].options}, **options)
        put = []
        decoder.put = lambda ss, es, output, data: put.append(data) if output == 0 else None
        decoder.start()
        decoder.metadata(3, 1000) if hasattr(decoder, "metadata") else None
        for packet in packets:
            decoder.decode(0, 1, packet)
        return put

    def test_a_word(self):
        word = [[int(bit), 0, 1] for bit in reversed(bits(Sensor.HD_MAX))]
        self.assertEqual(self.texts("sensor_3u5mgxs", [["BITS", word, None]]), [
            [0, ["Word 0x04800FA0", "0x04800FA0", "04800FA0"]],
            [1, ["0x012 hd_max: 0x000FA0", "hd_max: 0x000FA0", "0x012: 0x000FA0", "0x012"]],
            [2, ["hd_max = 4000 lines (frame length)", "hd_max = 4000 lines", "hd_max = 4000", "4000"]]])

    def test_texts_become_shorter(self):
        words = [bits(0x10400000 | 42 << 4 | 5), bits(0xFFC00001), bits(0x04200400), "1" * 9]
        packets = [["CS-CHANGE", None, None]]
        for word in words:
            packets.append(["BITS", [[int(bit), 0, 1] for bit in reversed(word)], None])
        packets += [["CS-CHANGE", 0, 1], ["TRANSFER", [], []], ["TRANSFER", [], []], ["BITS", None, []]]
        put = self.texts("sensor_3u5mgxs", packets)
        put += self.texts("monitor_3u5mgxs", [
            [kind, value] for message in ((0x8C, 0x08, 0x52), (0xCC, 0x0A, 0x8F), (0x80, 0x0F, 0xFF), (0x0C, 0xFF, 0xFF))
            for kind, value in (("START", None), ("BITS", [[0x92 >> place & 1, 0, 1] for place in range(8)]), ("ADDRESS WRITE", 0x49),
                                ("DATA WRITE", message[0]), ("NACK", None),
                                ("START REPEAT", None), ("BITS", [[0x93 >> place & 1, 0, 1] for place in range(8)]),
                                ("ADDRESS READ", 0x49), ("DATA READ", message[1]), ("DATA READ", message[2]), ("STOP", None))])
        self.assertEqual({kind for kind, _ in put}, {0, 1, 2, 3})
        self.assertGreater(len(put), 25)
        for kind, texts in put:
            self.assertGreaterEqual(len(texts), 2)
            lengths = [len(text) for text in texts]
            self.assertEqual(lengths, sorted(lengths, reverse=True), texts)


if __name__ == "__main__":
    unittest.main()
