#!/usr/bin/env python3
"""What must hold on the board. Arguments: the check, the stage's folder, the build machine's build folder."""

from __future__ import annotations

import argparse
import dataclasses
import json
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path
from typing import Callable

import compare
import jobs
import witnesses
from compare import Report, Run

DATA = jobs.SOURCE / "data"
HERE = Path(__file__).resolve().parent
TRACED = {"main": jobs.MAIN, "short": jobs.SHORT}


class Stage:
    """The results of the last boot, and the virtual head on the build machine to compare them with."""

    def __init__(self, folder: Path, release: Path) -> None:
        self.folder = folder
        self.release = release
        self.results = folder / "results"
        self.plan = json.loads((folder / "plan.json").read_text(encoding="utf-8"))

    def board(self, name: str) -> Run:
        return Run.of(self.results / name, self.folder / "wires" / f"{name}.wires")

    def text(self, name: str) -> str:
        """A file of the results; empty where the guest left none."""
        path = self.results / name
        return path.read_text(encoding="utf-8", errors="replace") if path.exists() else ""

    def launcher(self, *options: str | Path) -> list[str]:
        words = [self.release / "bin/virtual-head", "--workdir", DATA, *options, "--"]
        return [str(word) for word in words]

    def camhost(self, arguments: str) -> list[str]:
        words = shlex.split(arguments.replace("$data", str(DATA)))
        plugin = self.release / "lib/sensor_board_3u5mgxs.so"
        return [str(self.release / "bin/camhost"), "--plugin", str(plugin), "--spi", "/dev/spidev1.0", *words]

    def virtual(self, name: str) -> Run:
        """The job on the build machine."""
        with tempfile.TemporaryDirectory() as folder:
            log = Path(folder) / "log"
            command = self.launcher("--log", log, "--summary", Path(folder) / "summary") + self.camhost(TRACED[name])
            done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
            return Run(done.stdout, done.stderr, done.returncode, log.read_text(encoding="utf-8"))


def of_jobs(stage: Stage, report: Report) -> None:
    """Jobs on the kernel and on the virtual head, as all witnesses saw them."""
    for name in TRACED:
        compare.compare_runs(report, name, stage.virtual(name), stage.board(name))


def guest(stage: Stage, report: Report) -> None:
    """The guest came up as it should, and said nothing else."""
    report.compare("what the guest's first process said", "", stage.text("log"))
    done = [path.parent.name for path in stage.results.glob("*/status")]
    report.compare("jobs that were done", sorted(stage.plan["jobs"]), sorted(done))
    said = stage.text("dmesg")
    report.compare("faults of the kernel's own", [], re.findall(r".*(?:\bBUG\b|WARNING:|Oops|Call trace).*", said))
    violated = [path.stem for path in (stage.folder / "wires").glob("*.wires")
                if path.stem.startswith(("main", "short")) and " VIOLATION " in path.read_text(encoding="utf-8")]
    report.compare("jobs whose head saw a broken rule", [], sorted(violated))


def recordings(stage: Stage, report: Report) -> None:
    """What was recorded on the kernel plays to its end on the build machine."""
    for name, arguments in TRACED.items():
        recorded = stage.board(f"{name}-recorded")
        recording = stage.results / f"{name}-recorded" / "run.rec"
        played = subprocess.run(stage.launcher("--replay", recording) + stage.camhost(arguments),
                                stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        report.compare(f"{name}: exit status, recorded and played", recorded.status, played.returncode)
        report.compare(f"{name}: standard output, recorded and played",
                       compare.said(recorded.output), compare.said(played.stdout))
        calls = re.search(r"calls: (\d+) of", played.stderr)
        report.expect(f"{name}: the recording is played to its end", "\n  played to its end\n" in played.stderr,
                      f"{calls[1] if calls else 'no'} calls")
        report.compare(f"{name}: SPI words on the wires while it was recorded",
                       witnesses.HeadLog(stage.virtual(name).log).words(),
                       witnesses.HeadLog(recorded.log).words())


def inside(stage: Stage, report: Report) -> None:
    """The virtual head in the guest sees what it sees on the build machine, to the nanosecond."""
    for name in TRACED:
        expected = stage.virtual(name)
        given = stage.board(f"{name}-inside")
        report.compare(f"{name}: exit status on the virtual head inside", expected.status, given.status)
        report.compare(f"{name}: standard output on the virtual head inside",
                       compare.said(expected.output), compare.said(given.output))
        report.compare(f"{name}: log of the virtual head inside", expected.log.splitlines(),
                       stage.text(f"{name}-inside/log").splitlines())
        report.compare(f"{name}: what reached the wires past the virtual head inside", "", given.log)


# As tests/system/diagnostics_test.cpp reads what a host sees.

COMMAND = "camhost: command line: "


def product_errors(lines: list[str]) -> list[str]:
    """Without camhost's own words: what failed, and below it what that means."""
    return lines[:next((number for number, line in enumerate(lines) if line.startswith(COMMAND)), len(lines))]


def last_words(lines: list[str]) -> list[str]:
    return lines[len(product_errors(lines)):]


def telling(lines: list[str], wanted: list[str]) -> list[str]:
    found: list[str] = []
    for line in lines:
        if ("[4] " in line or line in wanted) and (not found or found[-1] != line):
            found.append(line)
    return found


def result_of(words: list[str], status: int) -> str:
    failed = re.fullmatch(COMMAND + r".* failed, result (-?[0-9]+): .*", words[0]) if words else None
    if failed:
        return failed[1]
    return f"signal {status - 128}" if status > 128 else "0" if status == 0 else f"status {status}"


# Where the emulator's I2C controller is unlike hardware, as questions/emulator.txt says: nobody acknowledges, and the
# driver gives up. The page's own row of that has the texts.
AS_ANOTHER_ROW = {"what = ADC fails ENXIO": "what = ADC fails ETIMEDOUT"}


def failures(stage: Stage, report: Report) -> None:
    """Examples of the table of failures on the board: result and texts."""
    rows = jobs.rows()
    played = 0
    for row in rows:
        if jobs.job_of(row) is None:
            continue
        fault = "; ".join(row.fault)
        other = AS_ANOTHER_ROW.get(fault)
        wanted = next(item for item in rows if item.fault == [other]) if other else row
        run = stage.board(row.name())
        errors = run.errors.splitlines()
        words = last_words(errors)
        given = [result_of(words, run.status), words[1].strip() if len(words) > 1 else "",
                 telling(run.output.splitlines(), wanted.output), product_errors(errors)]
        title = f"row {row.number}: {fault}" + (f", as \"{other}\"" if other else "")
        report.compare(title, [wanted.result, wanted.says, wanted.output, wanted.errors], given)
        played += 1
    print(f"{played} of {len(rows)} rows happen on the board")
    report.expect("there are rows of every kind", played > 50, str(played))


def tree(text: str) -> list[str]:
    """A diagnosis without what differs from machine to machine: folders, real time, what a line was used for before,
    further GPIO chips."""
    for pattern, instead in ((r"settings in \S+", "settings in FOLDER"), (r"\S+/(3U5MGXS_)", r"\1"),
                             (r"\d+ ms", "N ms"), (r"(input|output), free", "free")):
        text = re.sub(pattern, instead, text)
    return [line for line in text.splitlines() if not re.search(r"/dev/gpiochip[1-9]", line)]


def diagnoses(stage: Stage, report: Report) -> None:
    """camhost's diagnosis of a head is the same on the kernel and on the virtual head."""
    for name, scenario in jobs.DIAGNOSED.items():
        with tempfile.TemporaryDirectory() as folder:
            file = Path(folder) / "head.ini"
            file.write_text(scenario, encoding="utf-8")
            command = stage.launcher("--scenario", file, "--summary", Path(folder) / "summary")
            expected = subprocess.run(command + stage.camhost(jobs.DIAGNOSE), stdin=subprocess.DEVNULL,
                                      capture_output=True, text=True, check=False)
        given = stage.board(name)
        report.compare(f"{name}: exit status", expected.returncode, given.status)
        report.compare(f"{name}: the tree", tree(expected.stdout), tree(given.output))
        report.compare(f"{name}: standard error", "", given.errors)


def levels(stage: Stage, report: Report) -> None:
    """What the kernel leaves on the lines when a program ends, in whatever way."""
    powered = ["PS_1.2V_EN out 1", "PS_3.3SVDD_EN out 1", "PS_3.3AVDDH_EN out 1", "RESET_B out 1", "EXT_TRIG_EN out 0"]
    for name, title in (("main", "after the program's end"), ("killed", "after SIGKILL in a capture")):
        given = stage.text(f"{name}/lines").splitlines()
        report.compare(f"lines {title}", powered, given)
    run = stage.board("killed")
    report.compare("the program that was killed: exit status", 128 + 9, run.status)
    report.expect("the program that was killed: it was capturing", "Starting capture" in run.output
                  and "Ending capture" not in run.output)
    # Then camhost did `init` on the same head: it asks for its lines as outputs, low at first.
    levels_then = witnesses.HeadLog(run.log).lines
    start = levels_then.index("SPI 03 00 00 04") if "SPI 03 00 00 04" in levels_then else -1
    after = levels_then[start + 1:] if start >= 0 else []
    lines = [line for line in after if line.startswith(("GPIO ", "SPI "))]
    report.compare("the program that was killed: the next on the wires is the next program's",
                   [f"GPIO {name} = 0" for name in ("PS_1.2V_EN", "PS_3.3SVDD_EN", "PS_3.3AVDDH_EN", "RESET_B")],
                   lines[:4])
    report.compare("init after it: exit status", "0", stage.text("killed/again.status").strip())


def questions(stage: Stage, report: Report) -> None:
    """The kernel's answers are those that are kept, which the virtual head gives, too."""
    own = [line for line in (HERE / "questions/emulator.txt").read_text(encoding="utf-8").splitlines()
           if line and not line.startswith("#")]
    answers = {line.split(": ", 1)[0]: line for line in own}
    kept = (HERE / "questions/kernel.txt").read_text(encoding="utf-8").splitlines()
    expected = [answers.pop(line.split(": ", 1)[0], line) for line in kept]
    report.compare("answers of the emulator's own that are no question's", {}, answers)
    run = stage.board("questions")
    report.compare("the kernel's answers", expected, run.output.splitlines())
    report.compare("the questions' exit status", 0, run.status)


def programs(stage: Stage, report: Report) -> None:
    """Tests that the user-mode emulator cannot run."""
    for program, tests in stage.plan["tests"].items():
        output = stage.text(f"test-{program}/output")
        passed = re.findall(r"^\[       OK \] (\S+)", output, re.MULTILINE)
        for test in tests:
            report.expect(f"{program}.{test}", test in passed, "passed" if test in passed else "did not pass")
        if not report.compare(f"{program}: exit status", "0", stage.text(f"test-{program}/status").strip()):
            print(output[-4000:], stage.text(f"test-{program}/errors")[-2000:])
    report.expect("there are such tests", bool(stage.plan["tests"]))


# Changed places: the text that has it, what stands there, what is put there, and who must notice.
PLANTED = [
    ("output", r"applied 49500 us", "applied 49501 us", "standard output"),
    ("errors", r"\Z", "tcSPIDevice: something\n", "standard error"),
    ("log", r"SPI 05 00 00 08", "SPI 05 00 00 09", "SPI words on the wires"),
    ("trace", r"tx=\[ff-0f-00-14\]", "tx=[ff-0f-00-15]", "SPI words by the kernel"),
    ("trace", r"32 bits/w, 10000000 Hz", "32 bits/w, 12000000 Hz", "SPI mode, bits and speed by the kernel"),
    ("log", r"(?m)^.*GPIO RESET_B = 1\n", "", "levels on the wires"),
    ("trace", r"gpio_value: 6 set 1", "gpio_value: 7 set 1", "levels by the kernel"),
    ("log", r"ADC 1 0xA8F", "ADC 1 0xA8E", "ADC on the wires"),
    ("trace", r"\[0a-8f\]", "[0a-8e]", "ADC by the kernel"),
    ("log", r"WRITE 0xFF210028 0x00000FFF", "WRITE 0xFF210028 0x00000FFE", "register accesses"),
    ("log", r"\Z", "[    1.000000000] VIOLATION spi-clock: too fast\n", "rules broken on the wires"),
    ("trace", r"(?m)^.*sys_enter: .*\n", "", "number of sleeps"),
]


# The same in files of the results, for the other checks: the file, what stands there, what is put there.
PLANTED_FILES = {
    "guest": ("results/log", r"\Z", "insmod: a module is not loaded\n", "what the guest's first process said"),
    "recordings": ("results/main-recorded/run.rec", r"(?m)^(.* store 0xFF210028 4) 0x00000FFF", r"\1 0x00000FFE",
                   "main: exit status, recorded and played"),
    "inside": ("results/main-inside/log", r"SLEEP 300000000 ns", "SLEEP 300000001 ns",
               "main: log of the virtual head inside"),
    "diagnoses": ("results/diagnosed-lane/output", r"not lane 3", "not lane 4", "diagnosed-lane: the tree"),
    "failures": ("results/row-{pll}/errors", r"PLL failed", "PLL has failed",
                 "row {pll}: what = PLL never"),
    "levels": ("results/killed/lines", r"RESET_B out 1", "RESET_B out 0", "lines after SIGKILL in a capture"),
    "programs": ("results/test-sensor_locks_test/output", r"\[       OK \] Locks\.", "[  FAILED  ] Locks.",
                 "sensor_locks_test.Locks."),
    "questions": ("results/questions/output", r"SET_VALUES of no line: -1 EINVAL", "SET_VALUES of no line: 0",
                  "the kernel's answers"),
}


def planted(stage: Stage, report: Report) -> None:
    """Each witness notices a change at one place of what the board left, and nobody else does."""
    planted_in_runs(stage, report)
    pll = next(row.number for row in jobs.rows() if row.fault == ["what = PLL never"])
    for check, (file, pattern, replacement, title) in PLANTED_FILES.items():
        with tempfile.TemporaryDirectory() as folder:
            copy = Path(folder) / "stage"
            shutil.copytree(stage.folder, copy, ignore=shutil.ignore_patterns("root", "libraries", "kernel", "*.cpio"))
            path = copy / file.format(pll=pll)
            text = path.read_text(encoding="utf-8", errors="replace")
            changed, count = re.subn(pattern, replacement, text, count=1)
            path.write_text(changed, encoding="utf-8")
            noticed = Report(quiet=True)
            CHECKS[check](Stage(copy, stage.release), noticed)
        found = bool(count) and bool(noticed.differences) and noticed.differences[0].startswith(title.format(pll=pll))
        report.expect(f"the check {check} noticed {replacement.strip()!r}", found, "; ".join(noticed.differences))


def planted_in_runs(stage: Stage, report: Report) -> None:
    virtual, board = stage.virtual("main"), stage.board("main")
    for field, pattern, replacement, witness in PLANTED:
        text = getattr(board, field)
        changed, count = re.subn(pattern, replacement, text, count=1)
        if not report.expect(f"a place to change: {pattern}", count == 1 and changed != text):
            continue
        noticed = Report(quiet=True)
        compare.compare_runs(noticed, "main", virtual, dataclasses.replace(board, **{field: changed}))
        what = repr(replacement.strip()) if replacement else f"that {pattern} is missing"
        report.compare(f"who noticed {what}", [f"main: {witness}"], noticed.differences)
    sleepless(report, virtual, board)


def sleepless(report: Report, virtual: Run, board: Run) -> None:
    """A sleep that ends too early."""
    lines = board.trace.splitlines(keepends=True)
    longest = max(witnesses.Trace(board.trace).sleeps(), key=lambda sleep: sleep.duration())
    end = f" {longest.ended:.6f}: sys_exit"
    early = f" {longest.began + 0.001:.6f}: sys_exit"
    trace = "".join(line.replace(end, early) for line in lines)
    noticed = Report(quiet=True)
    compare.compare_runs(noticed, "main", virtual, dataclasses.replace(board, trace=trace))
    report.compare("who noticed a sleep of 1 ms instead of 300", ["main: no sleep is shorter than asked for"],
                   noticed.differences)


CHECKS: dict[str, Callable[[Stage, Report], None]] = {
    "guest": guest,
    "jobs": of_jobs,
    "recordings": recordings,
    "inside": inside,
    "failures": failures,
    "diagnoses": diagnoses,
    "levels": levels,
    "programs": programs,
    "questions": questions,
    "planted": planted,
}


def main(arguments: list[str]) -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("check", choices=CHECKS)
    parser.add_argument("folder", type=Path)
    parser.add_argument("release", type=Path)
    options = parser.parse_args(arguments)
    report = Report()
    CHECKS[options.check](Stage(options.folder.resolve(), options.release.resolve()), report)
    for title in report.differences:
        print(f"FAILED: {title}")
    return 1 if report.differences else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
