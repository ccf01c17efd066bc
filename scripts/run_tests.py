#!/usr/bin/env python3
"""Runs the tests of one GoogleTest program in as few processes as they need, and tells what became of each.

    run_tests.py --name NAME --results FILE [--shard I/N] [--leave-out FILE] [--hang SECONDS] -- COMMAND...

All tests of a shard run in one process. A test that ends its process (crash, exit) or hangs is named and
counts as failed, and the others go on in a new process. Failures are told once more at the end. The exit
status is 0 only when every test that the program lists has passed or says itself that it is skipped.

A shard takes every N-th test, so that neighbours, which tend to take equally long, are shared out.

    run_tests.py --collect FOLDER

reads CTest's results of a build folder (tests.xml) and those of every shard (results/), writes them as one list
of tests to all-tests.xml, and prints how many there were. It fails when a shard left no results.
"""

from __future__ import annotations

import argparse
import dataclasses
import fnmatch
import os
import re
import selectors
import signal
import subprocess
import sys
import time
import xml.etree.ElementTree as ElementTree
from pathlib import Path
from typing import BinaryIO, Optional

PASSED, FAILED, SKIPPED, DISABLED = "passed", "failed", "skipped", "disabled"
# CTest's words in a JUnit file; a failed test has an element of its own, too.
STATUS = {PASSED: "run", FAILED: "fail", SKIPPED: "notrun", DISABLED: "disabled"}

# A line of GoogleTest's. What a test prints itself may stand before it.
MARK = re.compile(rb"\[( RUN      |       OK |  FAILED  |  SKIPPED )\] ([^\s,]+)")
ENDED = {b"       OK ": PASSED, b"  FAILED  ": FAILED, b"  SKIPPED ": SKIPPED}

# The longest filter of one process: the kernel takes 128 KiB an argument.
LONGEST_FILTER = 100_000


@dataclasses.dataclass
class Result:
    status: str
    seconds: float
    output: bytes = b""


def listed(text: str) -> list[str]:
    """The tests of `--gtest_list_tests`, with those that are disabled."""
    tests = []
    suite = ""
    for line in text.splitlines():
        name = line.split("#")[0].rstrip()
        if re.fullmatch(r"\S+\.", name):
            suite = name
        elif re.fullmatch(r"  \S+", name) and suite:
            tests.append(suite + name.strip())
    return tests


def is_disabled(test: str) -> bool:
    return any(part.startswith("DISABLED_") for part in re.split(r"[./]", test))


def patterns_of(text: str) -> list[str]:
    """What a file leaves out: patterns, one a line, and comments."""
    lines = (line.strip() for line in text.splitlines())
    return [line for line in lines if line and not line.startswith("#")]


def left_out(test: str, patterns: list[str]) -> bool:
    return any(fnmatch.fnmatchcase(test, "*" + pattern) for pattern in patterns)


class Process:
    """One process of the program, and what its output says of tests."""

    def __init__(self, command: list[str], tests: list[str], hang: float) -> None:
        self.results: dict[str, Result] = {}
        self.running: Optional[str] = None
        self.last: Optional[str] = None
        self.hung = False
        self._expected = set(tests)
        self._hang = hang
        self._pending = b"" # of the line that is not whole yet
        self._output: list[bytes] = [] # since the last test ended
        self._began = time.monotonic()
        arguments = ["--gtest_filter=" + ":".join(tests), "--gtest_color=no"]
        self._process = subprocess.Popen(
            command + arguments,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            start_new_session=True,
        )

    def run(self) -> int:
        """Until the process is over. Its status, negative when a signal ended it."""
        pipe = self._process.stdout
        assert pipe is not None
        os.set_blocking(pipe.fileno(), False)
        with selectors.DefaultSelector() as selector:
            selector.register(pipe, selectors.EVENT_READ)
            while True:
                # A child that a test left behind may keep the pipe open: the process is asked, too.
                over = self._process.poll() is not None
                ready = selector.select(0 if over else 0.1)
                if ready and not self._read(pipe):
                    break
                if over and not ready:
                    break
                self._watch()
        self._line(self._pending)
        status = self._process.wait()
        self._end_group()
        pipe.close()
        return status

    def output(self) -> bytes:
        """What was printed since the last test ended."""
        return b"".join(self._output)

    def seconds(self) -> float:
        return time.monotonic() - self._began

    def _watch(self) -> None:
        if self.seconds() > self._hang and not self.hung:
            self.hung = True
            self._end_group()

    def _end_group(self) -> None:
        try:
            os.killpg(self._process.pid, signal.SIGKILL)
        except (ProcessLookupError, PermissionError):
            pass

    def _read(self, pipe: BinaryIO) -> bool:
        try:
            data = os.read(pipe.fileno(), 1 << 16)
        except BlockingIOError:
            return True
        if not data:
            return False
        *lines, self._pending = (self._pending + data).split(b"\n")
        for line in lines:
            self._line(line + b"\n")
        return True

    def _line(self, line: bytes) -> None:
        sys.stdout.buffer.write(line)
        sys.stdout.buffer.flush()
        self._output.append(line)
        for kind, encoded in MARK.findall(line):
            name = encoded.decode(errors="replace")
            if kind == b" RUN      ":
                if self.running is None and name in self._expected:
                    self.running, self._began, self._output = name, time.monotonic(), [line]
            elif name == self.running:
                output = self.output() if ENDED[kind] == FAILED else b""
                self.results[name] = Result(ENDED[kind], self.seconds(), output)
                self.running, self.last, self._output = None, name, []
                self._began = time.monotonic()


def how(status: int, hung: bool, hang: float) -> str:
    """How a process ended, in words."""
    if hung:
        return f"hung for {hang:g} s"
    if status < 0:
        return f"was ended by {signal.Signals(-status).name}"
    if status > 128 and status - 128 in set(signal.Signals): # so says an emulator or a shell
        return f"was ended by {signal.Signals(status - 128).name}"
    return f"ended with status {status}"


def batches(tests: list[str]) -> list[list[str]]:
    found: list[list[str]] = [[]]
    length = 0
    for test in tests:
        if length + len(test) + 1 > LONGEST_FILTER:
            found.append([])
            length = 0
        found[-1].append(test)
        length += len(test) + 1
    return found


def run_all(command: list[str], tests: list[str], hang: float) -> tuple[dict[str, Result], list[str]]:
    """Results of tests, and what else went wrong."""
    results: dict[str, Result] = {}
    faults: list[str] = []
    for batch in batches(tests):
        rest = batch
        while rest:
            process = Process(command, rest, hang)
            status = process.run()
            results.update(process.results)
            if process.running is not None:
                text = f"{process.running} {how(status, process.hung, hang)}"
                print(text, flush=True)
                results[process.running] = Result(
                    FAILED, process.seconds(), process.output() + text.encode() + b"\n"
                )
            elif process.hung or status not in (0, 1):
                where = f"after {process.last}" if process.last else "before its first test"
                faults.append(f"{where} the process {how(status, process.hung, hang)}")
            elif status == 1 and not any(item.status == FAILED for item in process.results.values()):
                faults.append(f"no test failed, but the process ended with status 1, last {process.last}")
            before, rest = len(rest), [test for test in rest if test not in results]
            if len(rest) == before: # nothing ran, nor will it
                break
    return results, faults


def junit(program: str, results: dict[str, Result]) -> ElementTree.ElementTree:
    suite = ElementTree.Element("testsuite", name=program, tests=str(len(results)))
    for test, result in results.items():
        case = ElementTree.SubElement(
            suite,
            "testcase",
            name=f"{program}.{test}",
            classname=program,
            time=f"{result.seconds:.3f}",
            status=STATUS[result.status],
        )
        if result.status == FAILED:
            ElementTree.SubElement(case, "failure", message="")
            text = result.output.decode(errors="replace")
            # XML has no way to write other control characters.
            ElementTree.SubElement(case, "system-out").text = re.sub(r"[^\t\n\x20-\ud7ff\ue000-\ufffd]", "?", text)
        elif result.status != PASSED:
            ElementTree.SubElement(case, "skipped", message="")
    return ElementTree.ElementTree(suite)


def counts(results: dict[str, Result]) -> str:
    kinds = [result.status for result in results.values()]
    others = [f"{kinds.count(kind)} {kind}" for kind in (FAILED, SKIPPED, DISABLED) if kind in kinds]
    return ", ".join([f"{kinds.count(PASSED)} tests passed", *others])


def run(options: argparse.Namespace) -> int:
    results_file = Path(options.results)
    results_file.unlink(missing_ok=True)
    part, parts = (int(number) for number in options.shard.split("/"))
    patterns = patterns_of(Path(options.leave_out).read_text(encoding="utf-8")) if options.leave_out else []
    program = subprocess.run(
        [*options.command, "--gtest_list_tests"], stdout=subprocess.PIPE, text=True, check=False
    )
    everything = [test for test in listed(program.stdout) if not left_out(test, patterns)]
    if program.returncode != 0 or not everything:
        print(f"{options.name}: lists {len(everything)} tests, {how(program.returncode, False, 0)}")
        return 1
    mine = everything[part - 1 :: parts]
    results, faults = run_all(options.command, [test for test in mine if not is_disabled(test)], options.hang)
    for test in mine:
        if is_disabled(test):
            results[test] = Result(DISABLED, 0)
        elif test not in results:
            results[test] = Result(FAILED, 0, b"It is listed, but did not run.\n")
    failed = {test: result for test, result in results.items() if result.status == FAILED}
    for test, result in failed.items():
        print(f"\n== FAILED {options.name}.{test}", flush=True)
        sys.stdout.buffer.write(result.output)
        sys.stdout.buffer.flush()
    for fault in faults:
        print(f"\n== FAILED {options.name}: {fault}")
    for test in failed:
        print(f"FAILED: {options.name}.{test}")
    print(f"{options.name} {options.shard}: {counts(results)}")
    results_file.parent.mkdir(parents=True, exist_ok=True)
    unfinished = results_file.with_suffix(".part")
    junit(options.name, results).write(unfinished, encoding="utf-8", xml_declaration=True)
    unfinished.replace(results_file)
    return 1 if failed or faults else 0


def collect(folder: Path) -> int:
    whole = ElementTree.Element("testsuite", name=folder.name)
    missing = []
    for case in ElementTree.parse(folder / "tests.xml").getroot().iter("testcase"):
        name = case.get("name", "")
        if not re.search(r"\.\d+$", name):
            whole.append(case)
        elif case.get("status") == "disabled":
            continue
        elif (folder / "results" / f"{name}.xml").exists():
            whole.extend(ElementTree.parse(folder / "results" / f"{name}.xml").getroot())
        else:
            missing.append(name)
    kinds = {word: kind for kind, word in STATUS.items()}
    results = {case.get("name", ""): Result(kinds[case.get("status", "")], 0) for case in whole}
    for case in whole: # one a line, without output: for grep and sed
        case[:] = [child for child in case if child.tag != "system-out" and child.tag != "properties"]
        case.text, case.tail = None, "\n"
    whole.text = "\n"
    ElementTree.ElementTree(whole).write(folder / "all-tests.xml", encoding="utf-8", xml_declaration=True)
    for name in missing:
        print(f"{name} left no results")
    print(f"{folder.name}: {counts(results)}, each test counted")
    return 1 if missing else 0


def main(arguments: list[str]) -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--collect", type=Path, metavar="FOLDER")
    parser.add_argument("--name")
    parser.add_argument("--results")
    parser.add_argument("--shard", default="1/1")
    parser.add_argument("--leave-out", metavar="FILE")
    parser.add_argument("--hang", type=float, default=1800)
    parser.add_argument("command", nargs="*")
    options = parser.parse_args(arguments)
    if options.collect:
        return collect(options.collect)
    if not (options.name and options.results and options.command):
        parser.error("--name, --results and a command are needed")
    return run(options)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
