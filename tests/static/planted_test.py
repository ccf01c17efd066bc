#!/usr/bin/env python3
"""Whether clang-tidy, as .clang-tidy sets it and scripts/check_tidy.py runs it, finds what is planted.

First at the end of the functions that take it longest.

The analyzer gives a function up after so many steps (max-nodes). With less than it needs, what stands at the
end of a long function is never looked at: this test shows that it still is. It puts defects there, in a copy of the
source, and reads what clang-tidy says of it.

Then in a source that is read together with others: whatever clang-tidy finds in a source by itself it must find there.
Argument: a configured build folder.
"""

from __future__ import annotations

import dataclasses
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
FUNCTIONS = ("tcLink::setInputs", "tcLink::frames", "pictures", "clamps", "registerWrites", "parseAddress")


sys.path.insert(0, str(ROOT / "scripts"))
import check_tidy  # noqa: E402

# What is planted in a source that is read with others: the check that must find it. Nothing calls
# these functions.
IN_A_GROUP = {
    "misc-unused-parameters": "int plantedHelper(int unused) { return 1; }",
    "performance-unnecessary-value-param": "int plantedHelper(std::string text) { return text.empty() ? 1 : 2; }",
    "performance-for-range-copy": "int plantedHelper(const std::vector<std::string>& all)"
    " { int n = 0; for (const auto one : all) { n += one.empty() ? 1 : 0; } return n; }",
    "bugprone-use-after-move": "char plantedHelper(std::string s)"
    " { const std::string t(std::move(s)); return s.empty() ? t[0] : t[1]; }",
    "bugprone-macro-parentheses": "#define PLANTED(x) x * 2",
    "bugprone-suspicious-include": '#include "nothing.cpp"',
    # GCC's warning of it is off where several sources are compiled at once.
    "google-build-namespaces": '#include "unnamed.h"',
    "misc-unused-alias-decls": "namespace inner {} namespace i = inner;",
    "misc-unused-using-decls": "namespace inner { struct tsInner { int a; }; } using inner::tsInner;",
    "modernize-use-nullptr": "int* plantedHelper() { return 0; }",
    "modernize-use-override": "struct tsPlanted { virtual ~tsPlanted(); };"
    " struct tsOther : tsPlanted { virtual ~tsOther(); };",
    "readability-container-size-empty": "bool plantedHelper(const std::string& s) { return s.size() == 0; }",
    "readability-redundant-control-flow": "void plantedHelper() { plantedTake(1); return; }",
    "readability-redundant-declaration": "int plantedTwice(); int plantedTwice();",
    "clang-analyzer-core.NullDereference": "int plantedHelper(int* p)"
    " { if (p == nullptr) { plantedTake(1); } return *p; }",
    "clang-analyzer-core.DivideZero": "int plantedHelper() { const int d = plantedChance();"
    " return d == 0 ? 7 / d : 1; }",
    "clang-analyzer-deadcode.DeadStores": "void plantedHelper() { int v = plantedChance(); plantedTake(v); v = 3; }",
    "clang-analyzer-cplusplus.NewDelete": "int plantedHelper() { int* p = new int(3); delete p; return *p; }",
    "clang-analyzer-unix.Malloc": "int plantedHelper() { void* p = std::malloc(3); if (plantedChance() == 2)"
    " { std::free(p); } return 1; }",
}

# Two sources may have it.
SHARED = f"""#ifndef PLANTED_DECLARED
#define PLANTED_DECLARED
#include <vector>
{DECLARATIONS}
int plantedHelper(int* p);
#endif
"""

# Another source of the group calls it with what does no harm.
CALLED = "int plantedHelper(int* p) { if (p == nullptr) { plantedTake(1); } return *p; }\n"
CALLER = "int plantedCaller() { int one = 1; return plantedHelper(&one); }\n"


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


class Grouped(unittest.TestCase):
    """Sources that are read at once by scripts/check_tidy.py."""

    build: Path

    def group(self, folder: Path, texts: list[str]) -> list[check_tidy.Source]:
        """Three small sources of the largest group, the first of them with the texts at their end."""
        listed = subprocess.run([ROOT / "scripts" / "shipped-sources.sh"], stdout=subprocess.PIPE, text=True, check=True)
        files = [ROOT / line for line in listed.stdout.split() if line.startswith("platform/")]
        group = max(check_tidy.grouped(check_tidy.compiled(self.build, files)), key=len)
        group = group[-3:]
        self.assertEqual(len(group), 3)
        # What is included counts by the folder that it is in.
        room = folder / "sim"
        room.mkdir()
        (room / "nothing.cpp").write_text("", encoding="utf-8")
        (room / "unnamed.h").write_text("namespace { struct tsUnnamed { int a; }; }\n", encoding="utf-8")
        (room / ".clang-tidy").write_text(group[0].settings, encoding="utf-8")
        folders = [f"-iquote{place}" for place in sorted({source.file.parent for source in group})]
        group = [dataclasses.replace(source, flags=(*source.flags, *folders)) for source in group]
        for number, text in enumerate(texts):
            source = group[number]
            copy = room / source.file.name
            copy.write_text(SHARED + source.text + text, encoding="utf-8")
            group[number] = dataclasses.replace(source, file=copy, text=copy.read_text(encoding="utf-8"))
        database = [
            {"directory": str(room), "file": str(source.file), "arguments": [*source.flags, "-c", str(source.file)]}
            for source in group
        ]
        (folder / "compile_commands.json").write_text(json.dumps(database), encoding="utf-8")
        return group

    def said(self, texts: list[str], at_once: bool) -> check_tidy.Said:
        """What is said of the group: of the file that has its sources' texts, or by all that the script does."""
        with tempfile.TemporaryDirectory() as name:
            folder = Path(name)
            group = self.group(folder, texts)
            tidy = check_tidy.Tidy(folder, folder)
            return tidy.together(0, group) if at_once else tidy.read(0, group)

    def test_a_group_without_a_defect_is_read_at_once(self) -> None:
        said = self.said([""], at_once=True)
        self.assertTrue(said.clean, said.text)

    def test_what_a_source_has_is_found_in_its_group(self) -> None:
        own = [
            text if text.startswith("#") else f"namespace planted{number} {{ {text} }}"
            for number, text in enumerate(IN_A_GROUP.values())
        ]
        said = self.said(["\n" + "\n".join(own) + "\n"], at_once=True)
        self.assertFalse(said.clean)
        for check in IN_A_GROUP:
            with self.subTest(check=check):
                self.assertIn(f"[{check}", said.text)

    def test_sources_that_have_a_name_in_common_are_in_groups_of_their_own(self) -> None:
        texts = ("using tmLine = int;\n", "using tmLine = long;\n", "using tmOther = long;\n")
        sources = [check_tidy.Source(Path(f"{n}.cpp"), (), "", text) for n, text in enumerate(texts)]
        groups = check_tidy.grouped(sources)
        self.assertEqual(len(groups), 2)
        self.assertFalse(any(sources[0] in group and sources[1] in group for group in groups))

    def test_a_function_is_also_analyzed_without_its_callers(self) -> None:
        self.assertIn("[clang-analyzer-core.NullDereference", self.said([CALLED, CALLER], at_once=True).text)

    def test_sources_that_cannot_be_read_at_once_are_read_one_by_one(self) -> None:
        same = (
            "namespace { int plantedName() { return 1; } }\nint plantedHelper%d(int unused) { return plantedName(); }\n"
        )
        said = self.said([same % 1, same % 2], at_once=False)
        self.assertNotIn("[clang-diagnostic-error", said.text)
        self.assertEqual(said.text.count("[misc-unused-parameters"), 2, said.text)
        self.assertFalse(said.clean)


class Bound(unittest.TestCase):
    def test_settings_are_those_that_were_tried(self) -> None:
        settings = (ROOT / ".clang-tidy").read_text(encoding="utf-8")
        self.assertIn("clang-analyzer-*", settings)
        self.assertNotIn("-clang-analyzer", settings)


if __name__ == "__main__":
    Planted.build = Grouped.build = Path(sys.argv.pop(1)).resolve()
    unittest.main()
