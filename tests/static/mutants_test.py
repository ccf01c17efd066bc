#!/usr/bin/env python3
"""What scripts/mutants.py changes, and what it leaves alone. Nothing is built here."""

from __future__ import annotations

import hashlib
import subprocess
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "scripts"))

import mutants  # noqa: E402


def changed(source: str, kind: str) -> list[str]:
    """The source, once for each change of a kind."""
    found = [change for change in mutants.Code(source).changes() if change.kind == kind]
    return [source[: change.start] + change.text + source[change.end :] for change in found]


class Changes(unittest.TestCase):
    def test_an_operator_is_replaced_and_a_template_or_a_reference_is_not(self) -> None:
        source = "bool f(const tsA& a, std::array<int, 2>* b) { return a.x < b->y && -a.z != *b + c; }\n"
        self.assertEqual(
            changed(source, "operator"),
            [
                source.replace("x < b", "x <= b"),
                source.replace("&&", "||"),
                source.replace("!=", "=="),
                source.replace("*b + c", "*b - c"),
            ],
        )

    def test_a_number_keeps_its_notation(self) -> None:
        for text, up, down in (
            ("9", "10", "8"),
            ("0U", "1U", None),
            ("0x3F'FFFF", "0x40'0000", "0x3F'FFFE"),
            ("0x0F0F", "0x0F10", "0x0F0E"),
            ("0xFFFFFFFF", None, "0xFFFFFFFE"),
            ("10'000'000", "10'000'001", "9'999'999"),
            ("300000us", "300001us", "299999us"),
            ("1.3F", "1.4F", "1.2F"),
            ("0.0F", "0.1F", None),
        ):
            self.assertEqual((mutants.stepped(text, 1), mutants.stepped(text, -1)), (up, down), text)

    def test_a_condition_is_turned_round_once(self) -> None:
        source = "void f() { if (a) { b(); } if (c == d) { while (!e) { } } g(h ? 1 : 2); for (;; i) { } }\n"
        self.assertEqual(
            changed(source, "condition"),
            [source.replace("(a)", "(!(a))"), source.replace("!e", "e"), source.replace("h ?", "!(h) ?")],
        )

    def test_a_statement_is_left_out_and_a_declaration_is_not(self) -> None:
        source = (
            "struct tsA { void f(int); int m{0}; };\n"
            "void tsA::f(int a) {\n"
            "    const tcGuard guard(m_lock);\n"
            "    int b = a;\n"
            "    tsB used(a);\n"
            "    call([this] { m = 1; }, used);\n"
            "    b += 2;\n"
            "    return;\n"
            "}\n"
        )
        left_out = [
            "const tcGuard guard(m_lock);", "m = 1;", "call([this] { m = 1; }, used);", "b += 2;", "return;"
        ]  # fmt: skip
        self.assertEqual(
            sorted(changed(source, "statement")), sorted(source.replace(text, ";") for text in left_out)
        )

    def test_one_character_of_a_text_changes(self) -> None:
        self.assertEqual(changed('f("a9\\n");\n', "text"), ['f("b9\\n");\n', 'f("a0\\n");\n', 'f("a9 ");\n'])

    def test_comments_directives_and_static_assertions_stay(self) -> None:
        source = (
            '#include "a1.h"\n#define B \\\n  1\n'
            '// 1 + 1\n/* true */\nstatic_assert(1 + 1 == 2, "text");\n'
        )
        self.assertEqual(mutants.Code(source).changes(), [])


class List(unittest.TestCase):
    @staticmethod
    def listed(seed: int) -> str:
        program = str(ROOT / "scripts" / "mutants.py")
        command = [sys.executable, "-B", program, "--list", f"--seed={seed}", "--files", "common/*"]
        return subprocess.run(command, check=True, capture_output=True, text=True).stdout

    @staticmethod
    def sums() -> dict[str, str]:
        return {
            file: hashlib.sha256((ROOT / file).read_bytes()).hexdigest() for file in mutants.all_files(ROOT)
        }

    def test_is_the_same_for_a_seed_and_leaves_the_sources_alone(self) -> None:
        before = self.sums()
        once = self.listed(1)
        self.assertEqual(once, self.listed(1))
        self.assertNotEqual(once, self.listed(2))
        self.assertEqual(before, self.sums())

    def test_names_the_lines_that_change(self) -> None:
        files = mutants.all_files(ROOT)
        sources = {file: (ROOT / file).read_text(encoding="utf-8").split("\n") for file in files}
        everything = mutants.in_order(ROOT, 1, files)
        self.assertGreater(len(everything), 1000)
        self.assertEqual(len({mutant.name for mutant in everything}), len(everything))
        for mutant in everything:
            self.assertNotEqual(mutant.old, mutant.new)
            first = mutant.line - 1
            self.assertEqual(tuple(sources[mutant.file][first : first + len(mutant.old)]), mutant.old)


if __name__ == "__main__":
    unittest.main()
