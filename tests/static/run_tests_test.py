#!/usr/bin/env python3
"""Whether scripts/run_tests.py tells the truth of a program whose tests end it in every way.

The program (troubled_program.cpp), with its emulator before it, is in TROUBLED_PROGRAM.
"""

from __future__ import annotations

import os
import re
import shlex
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path
from typing import Optional

ROOT = Path(__file__).resolve().parent.parent.parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "scripts"))

import run_tests  # noqa: E402

STATUS = {
    "Good.Passes": "run",
    "Good.PrintsLikeAnEnd": "run",
    "Good.PassesAfterAllThat": "run",
    "Bad.Fails": "fail",
    "Bad.BreaksMemory": "fail",
    "Bad.Aborts": "fail",
    "Bad.EndsTheProcessAsIfAllWereWell": "fail",
    "Bad.Hangs": "fail",
    "Skips.SaysSo": "notrun",
    "Off.DISABLED_NeverRuns": "disabled",
    "Some/Numbers.AreOdd/0": "run",
    "Some/Numbers.AreOdd/1": "fail",
    "Some/Numbers.AreOdd/2": "run",
    "Late.EndsBadly": "run",
}


class OfAProgram(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.results = self.folder / "results" / "troubled.1.xml"

    def run_program(
        self,
        leave_out: str = "",
        shard: str = "1/1",
        command: Optional[list[str]] = None,
        more: Optional[dict[str, str]] = None,
    ) -> tuple[int, str]:
        """Status and output of a run that leaves tests out by patterns, one a line."""
        patterns = self.folder / "patterns"
        patterns.write_text(leave_out, encoding="utf-8")
        # fmt: off
        options = ["--name", "troubled", "--results", str(self.results), "--shard", shard, "--hang", "3",
                   "--leave-out", str(patterns), "--"]
        # fmt: on
        done = subprocess.run(
            [sys.executable, str(ROOT / "scripts" / "run_tests.py"), *options]
            + (command or shlex.split(os.environ["TROUBLED_PROGRAM"])),
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            env={**os.environ, **(more or {})},
            timeout=120,
            check=False,
        )
        return done.returncode, done.stdout.decode(errors="replace")

    def statuses(self) -> dict[str, str]:
        cases = ElementTree.parse(self.results).getroot().iter("testcase")
        return {case.get("name", "").removeprefix("troubled."): case.get("status", "") for case in cases}

    def script(self, text: str) -> list[str]:
        """A program that says it has the tests A.One and A.Two, and does as the text says."""
        program = self.folder / "program"
        listing = r'case $* in *--gtest_list_tests*) printf "A.\n  One\n  Two\n"; exit 0;; esac'
        program.write_text(f"#!/bin/sh\n{listing}\n{text}\n", encoding="utf-8")
        program.chmod(0o755)
        return [str(program)]

    def test_every_test_is_told_by_name(self) -> None:
        status, output = self.run_program()
        self.assertEqual(status, 1)
        self.assertEqual(self.statuses(), STATUS)
        for text in (
            "Bad.BreaksMemory was ended by SIGSEGV",
            "Bad.Aborts was ended by SIGABRT",
            "Bad.EndsTheProcessAsIfAllWereWell ended with status 0",
            "Bad.Hangs hung for 3 s",
            "troubled 1/1: 6 tests passed, 6 failed, 1 skipped, 1 disabled",
        ):
            self.assertIn(text, output)
        told = re.findall(r"^FAILED: troubled\.(.*)$", output, re.MULTILINE)
        self.assertEqual(sorted(told), sorted(name for name, text in STATUS.items() if text == "fail"))
        # What a test printed before it ended is told with it, at the end once more.
        last = output[output.index("== FAILED troubled.Bad.BreaksMemory") :]
        self.assertIn("before the signal", last[: last.index("== FAILED", 5)])
        self.assertIn("seven", output[output.rindex("== FAILED troubled.Bad.Fails") :])

    def test_is_green_when_nothing_failed(self) -> None:
        status, output = self.run_program(leave_out="# why\nBad.*\nNumbers.AreOdd/1\n")
        self.assertEqual(status, 0, output)
        self.assertNotIn("FAILED", output)
        wanted = {name: text for name, text in STATUS.items() if text != "fail"}
        self.assertEqual(self.statuses(), wanted)

    def test_a_skipped_test_has_not_passed(self) -> None:
        _, output = self.run_program(leave_out="Bad.*\nNumbers.*\nGood.*\nLate.*\n")
        self.assertIn("troubled 1/1: 0 tests passed, 1 skipped, 1 disabled", output)

    def test_a_status_after_the_last_test_is_a_failure(self) -> None:
        status, output = self.run_program(leave_out="Bad.*\nNumbers.*\n", more={"END_BADLY": "yes"})
        self.assertEqual(status, 1)
        self.assertIn("after Late.EndsBadly the process ended with status 23", output)

    def test_shards_have_every_test_once(self) -> None:
        seen: list[str] = []
        for shard in ("1/3", "2/3", "3/3"):
            self.run_program(leave_out="Bad.*\n", shard=shard)
            seen += self.statuses()
        self.assertEqual(sorted(seen), sorted(name for name in STATUS if not name.startswith("Bad.")))

    def test_a_test_that_is_listed_and_does_not_run_is_a_failure(self) -> None:
        status, output = self.run_program(
            command=self.script('echo "[ RUN      ] A.One"; echo "[       OK ] A.One (0 ms)"')
        )
        self.assertEqual(status, 1)
        self.assertEqual(self.statuses(), {"A.One": "run", "A.Two": "fail"})
        self.assertIn("FAILED: troubled.A.Two", output)

    def test_a_program_without_tests_or_that_cannot_list_them_is_a_failure(self) -> None:
        self.assertEqual(self.run_program(leave_out="*\n")[0], 1)
        self.assertFalse(self.results.exists())
        self.assertEqual(self.run_program(command=["/bin/true"])[0], 1)
        self.assertEqual(self.run_program(command=["/bin/false"])[0], 1)

    def test_a_child_that_is_left_behind_holds_nobody_up(self) -> None:
        line = 'echo "[ RUN      ] A.%s"; echo "[       OK ] A.%s (0 ms)"'
        text = f"sleep 100 & {line % ('One', 'One')}; {line % ('Two', 'Two')}"
        status, output = self.run_program(command=self.script(text))
        self.assertEqual(status, 0, output)


class Collected(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        (self.folder / "results").mkdir()
        self.write("tests.xml", ("static.format", "run"), ("a_test.1", "run"), ("a_test.2", "fail"))
        self.write("results/a_test.1.xml", ("a_test.A.One", "run"), ("a_test.A.Two", "notrun"))

    def write(self, file: str, *cases: tuple[str, str]) -> None:
        lines = "".join(f'<testcase name="{name}" status="{status}"/>' for name, status in cases)
        (self.folder / file).write_text(f"<testsuite>{lines}</testsuite>", encoding="utf-8")

    def test_is_every_test_of_every_shard(self) -> None:
        self.write("results/a_test.2.xml", ("a_test.B.One", "fail"))
        self.assertEqual(run_tests.main(["--collect", str(self.folder)]), 0)
        lines = (self.folder / "all-tests.xml").read_text(encoding="utf-8").splitlines()
        found = [re.search(r'<testcase name="(.*?)".* status="(.*?)"', line) for line in lines]
        self.assertEqual(
            [match.groups() for match in found if match],
            [
                ("static.format", "run"),
                ("a_test.A.One", "run"),
                ("a_test.A.Two", "notrun"),
                ("a_test.B.One", "fail"),
            ],
        )

    def test_a_shard_without_results_is_a_failure(self) -> None:
        self.assertEqual(run_tests.main(["--collect", str(self.folder)]), 1)


class Lists(unittest.TestCase):
    def test_parameters_and_types_are_no_part_of_a_name(self) -> None:
        text = "A.\n  One\nT/0.  # TypeParam = int\n  Two\nP/B.\n  Three/0  # GetParam() = (1, \"x. y\")\n"
        self.assertEqual(run_tests.listed(text), ["A.One", "T/0.Two", "P/B.Three/0"])

    def test_many_tests_go_into_several_processes(self) -> None:
        tests = [f"Suite.ATestWithAName{number:06}" for number in range(10_000)]
        found = run_tests.batches(tests)
        self.assertEqual([test for batch in found for test in batch], tests)
        self.assertTrue(all(len(":".join(batch)) < 128 * 1024 for batch in found))
        self.assertEqual(len(found), 3)


if __name__ == "__main__":
    unittest.main()
