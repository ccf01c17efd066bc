"""Says of two sides that they are the same, or shows both."""

from __future__ import annotations

import dataclasses
import difflib
import re
from pathlib import Path
from typing import Any

import witnesses

SHOWN = 40 # lines of a difference
NOT_RUN = -1 # status of a job that left none


class Report:
    """Lines of "same", and differences."""

    def __init__(self, quiet: bool = False) -> None:
        self.differences: list[str] = [] # titles
        self._quiet = quiet

    def compare(self, title: str, expected: Any, given: Any) -> bool:
        """Lists are compared line by line. \\return whether they are the same"""
        if expected == given:
            size = f" ({len(given)})" if isinstance(given, list) else ""
            self._say(f"same: {title}{size}")
            return True
        self.differences.append(title)
        self._say(f"DIFFERENT: {title}")
        if isinstance(expected, list) and isinstance(given, list):
            lines = difflib.unified_diff(
                [str(item) for item in expected], [str(item) for item in given], "expected", "given", lineterm="", n=2
            )
            for line in list(lines)[:SHOWN]:
                self._say("    " + line)
        else:
            self._say(f"    expected: {expected}\n    given:    {given}")
        return False

    def expect(self, title: str, holds: bool, shown: str = "") -> bool:
        """Something that must hold by itself. `shown`: what was found"""
        self._say(f"{'same' if holds else 'DIFFERENT'}: {title}{': ' + shown if shown else ''}")
        if not holds:
            self.differences.append(title)
        return holds

    def _say(self, text: str) -> None:
        if not self._quiet:
            print(text, flush=True)


@dataclasses.dataclass
class Run:
    """What a run of a job left: texts."""

    output: str
    errors: str
    status: int
    log: str # of the head: the virtual one's, or that of its wires
    trace: str = "" # of the kernel

    @staticmethod
    def of(folder: Path, log: Path) -> Run:
        def text(name: str) -> str:
            path = folder / name
            return path.read_text(encoding="utf-8", errors="replace") if path.exists() else ""

        seen = log.read_text(encoding="utf-8") if log.exists() else ""
        return Run(text("output"), text("errors"), int(text("status") or NOT_RUN), seen, text("trace"))


def said(text: str) -> list[str]:
    """Without the plug-in's folder and the time at which it was built."""
    text = re.sub(r"(?m)^camhost: \S*/(?=\w+\.so serves)", "camhost: ", text)
    return re.sub(r'"SW:[^"]*"', '"SW:..."', text).splitlines()


def compare_runs(report: Report, name: str, virtual: Run, board: Run) -> None:
    """A job on the virtual head and on the board's kernel, as every witness saw it."""
    head = witnesses.HeadLog(virtual.log)
    wires = witnesses.HeadLog(board.log)
    trace = witnesses.Trace(board.trace)

    def same(what: str, expected: Any, given: Any) -> None:
        report.compare(f"{name}: {what}", expected, given)

    same("exit status", virtual.status, board.status)
    same("standard output", said(virtual.output), said(board.output))
    same("standard error", said(virtual.errors), said(board.errors))
    same("SPI words on the wires", head.words(), wires.words())
    same("SPI words by the kernel", head.words(), trace.words())
    given = trace.setups()
    first_bits = re.search(r", (\d+) bits", given[0] if given else ", 0 bits")
    expected = witnesses.setups(head.settings(), first_bits[1] if first_bits else "")
    same("SPI mode, bits and speed by the kernel", expected, given)
    same("levels on the wires", witnesses.changes(head.levels()), witnesses.changes(wires.levels()))
    same("levels by the kernel", head.levels(), trace.levels())
    same("ADC on the wires", head.conversions(), wires.conversions())
    same("ADC by the kernel", head.conversions(), trace.conversions())
    same("register accesses", head.registers(), wires.registers())
    same("rules broken on the wires", [], wires.violations())
    compare_sleeps(report, name, head.sleeps(), trace.sleeps())


def compare_sleeps(report: Report, name: str, asked: list[int], slept: list[witnesses.Sleep]) -> None:
    if not report.compare(f"{name}: number of sleeps", len(asked), len(slept)):
        return
    # The trace's times are microseconds.
    resolution = 1000
    short = [f"{sleep.duration()} ns instead of {wanted}" for wanted, sleep in zip(asked, slept)
             if sleep.duration() + resolution < wanted]
    late = max((sleep.duration() - wanted for wanted, sleep in zip(asked, slept)), default=0)
    report.expect(f"{name}: no sleep is shorter than asked for", not short,
                  "; ".join(short) or f"at most {late / 1e6:.2f} ms longer")
