#!/usr/bin/env python3
"""Whether clang-tidy, as .clang-tidy sets it, finds defects at the end of the functions that take it longest.

The analyzer gives a function up after so many steps (max-nodes). With less than it needs, what stands at the
end of a long function is never looked at: this test shows that it still is. It puts defects there, in a copy of the
source, and reads what clang-tidy says of it. Argument: a configured build folder.
"""

from __future__ import annotations

import json
import re
import shlex
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent

# Declared here, defined nowhere: the analyzer knows nothing of what they do.
DECLARATIONS = """
#include <cstdlib>
#include <string>
#include <utility>
int plantedChance();
void plantedTake(int);
extern int* plantedPointer;
"""

DEFECTS = {
    "null dereference": "int* p = nullptr; if (plantedChance() == 1) { *p = 1; }",
    "leak of malloc": "void* p = std::malloc(3); if (plantedChance() == 2) { std::free(p); }",
    "use after delete": "int* p = new int(3); delete p; if (plantedChance() == 3) { plantedTake(*p); }",
    "double delete": "int* p = new int(3); delete p; if (plantedChance() == 4) { delete p; }",
    "uninitialised read": "int v; if (plantedChance() == 5) { v = 1; } if (v == 3) { plantedTake(1); }",
    "division by zero": "const int d = plantedChance(); if (d == 0) { plantedTake(7 / d); }",
    "dead store": "int v = plantedChance(); plantedTake(v); v = 3;",
    "use after move": 'std::string s("text"); const std::string t(std::move(s)); s.at(1) = t[0];',
    "delete of an array": "int* p = new int[3]; delete p;",
}

# Functions that the analyzer walked longest without this bound, seconds each, by the name of their definition.
FUNCTIONS = ("tcLink::setInputs", "tcLink::frames", "gallery", "clamps", "listed", "parseAddress")


def definition(function: str) -> tuple[Path, int, int]:
    """The source that defines a function, and where its body begins and ends."""
    start = re.compile(
        r"^(?!\s|//|#|\}|namespace)[^\n;]*(?<![\w:])(?:\w+::)*" + re.escape(function) + r"\((?:[^;{}]|\{\})*\{\n",
        re.MULTILINE,
    )
    for folder in ("sim", "apps"):
        for file in sorted((ROOT / folder).rglob("*.cpp")):
            text = file.read_text(encoding="utf-8")
            found = start.search(text)
            if found:
                return file, found.end(), text.index("\n}\n", found.end()) + 1
    raise LookupError(f"nothing in sim and apps defines {function}: name another long function here")


def planted(function: str, defect: str) -> tuple[Path, str]:
    """A source with the defect at the end of a function, before what it returns."""
    file, begin, end = definition(function)
    text = file.read_text(encoding="utf-8")
    returns = text.rfind("\n    return ", begin, end) + 1
    # Nothing but the value may follow: a statement of its own begins in the fourth column.
    if returns and not re.search(r"\n    \w", text[returns + 4 : end]):
        end = returns
    return file, DECLARATIONS + text[:end] + "{ /* PLANTED */ " + DEFECTS[defect] + " }\n" + text[end:]


def flags_of(file: Path, build: Path) -> list[str]:
    for entry in json.loads((build / "compile_commands.json").read_text(encoding="utf-8")):
        if Path(entry["file"]) == file:
            words = shlex.split(entry["command"])
            # What the compiler itself would say of the planted code is not asked.
            return [word for word in words[1 : words.index("-o")] if not re.match(r"-W|--param|ggc", word)] + ["-w"]
    raise LookupError(f"{file} is not compiled in {build}")


class Planted(unittest.TestCase):
    build: Path

    def findings(self, function: str, defect: str) -> list[str]:
        """What clang-tidy says of the line with the defect."""
        file, text = planted(function, defect)
        line = text[: text.index("/* PLANTED */")].count("\n") + 1
        with tempfile.TemporaryDirectory() as folder:
            copy = Path(folder) / file.name
            copy.write_text(text, encoding="utf-8")
            settings = ROOT / ".clang-tidy"
            # fmt: off
            done = subprocess.run(
                ["clang-tidy", "--quiet", f"--config-file={settings}", "--checks=-*,clang-analyzer-*", str(copy), "--"]
                + flags_of(file, self.build) + [f"-iquote{file.parent}"],
                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False,
            )
            # fmt: on
        self.assertNotIn("clang-diagnostic-error", done.stdout)
        # A leak is told where the pointer is gone, which may be the next line.
        return re.findall(rf":(?:{line}|{line + 1}):\d+: (?:warning|error): .*\[(clang-analyzer-[\w.]+)", done.stdout)

    def test_a_defect_at_the_end_of_a_long_function_is_found(self) -> None:
        # Each defect in one function, each function with a defect: all pairs would take minutes.
        defects = list(DEFECTS)
        for number in range(len(defects)):
            function = FUNCTIONS[number % len(FUNCTIONS)]
            with self.subTest(function=function, defect=defects[number]):
                self.assertTrue(self.findings(function, defects[number]), "clang-tidy says nothing")


class Bound(unittest.TestCase):
    def test_settings_are_those_that_were_tried(self) -> None:
        settings = (ROOT / ".clang-tidy").read_text(encoding="utf-8")
        self.assertIn("clang-analyzer-*", settings)
        self.assertNotIn("-clang-analyzer", settings)


if __name__ == "__main__":
    Planted.build = Path(sys.argv.pop(1)).resolve()
    unittest.main()
