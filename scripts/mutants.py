#!/usr/bin/env python3
"""Breaks the product at one place at a time and shows which changes no test notices.

A mutant is the product with one change in common/, sensor/, fpga/ or plugin/: an operator replaced, a
number off by one, a boolean or a condition turned round, a statement left out, a character of a text
changed. Each mutant is built and tested until the first test fails: a short run of the second model,
the tests of tools, driver, FPGA access, main job, register reference and board, a long run of the
second model.

The tree stays as it is: every worker has a copy of its own in build/mutants, and changes that.
"""

from __future__ import annotations

import argparse
import fcntl
import fnmatch
import hashlib
import json
import os
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import threading
import time
from collections import Counter
from dataclasses import dataclass, field
from pathlib import Path
from typing import Iterator, Optional, Sequence

ROOT = Path(__file__).resolve().parent.parent
HOME = ROOT / "build" / "mutants"
FOLDERS = ("common", "fpga", "plugin", "sensor")

EPILOG = """\
examples:
  scripts/mutants.py                          300 mutants of seed 1, one worker for each processor
  scripts/mutants.py --count 1000             the same 300, not run again, and 700 more
  scripts/mutants.py --files 'fpga/*' --list  what would be changed there
  scripts/mutants.py --report                 the score, and what no test noticed
  scripts/mutants.py --again                  the same survivors, with today's tests

A run that was stopped (Ctrl+C) goes on where it was when it is started again.

outcomes:
  noticed            a test failed twice, did not end, or could not be built any more
  survived           every test passed; "same object code": the compiler makes nothing else of it
  does not compile   the product could not be built; not part of the score

exit status: 0 the run is complete, 1 it could not start or go on, 2 wrong usage, 130 stopped
"""

# ---------------------------------------------------------------------------------------------
# Reading C++, as far as it is needed to change it

TOKEN = re.compile(
    r"""
      (?P<space>\s+)
    | (?P<comment>//[^\n]*|/\*.*?\*/)
    | (?P<raw>R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)")
    | (?P<string>"(?:[^"\\\n]|\\.)*")
    | (?P<number>0[xX][0-9A-Fa-f']+[A-Za-z_]*|(?:\d[\d']*(?:\.\d*)?|\.\d+)[A-Za-z_]*)
    | (?P<character>'(?:[^'\\\n]|\\.)+')
    | (?P<name>[A-Za-z_]\w*)
    | (?P<operator><<=|>>=|<=>|\.\.\.|->|::|\+\+|--|[-+*/%&|^]=|<<|>>|[<>=!]=|&&|\|\||.)
    """,
    re.VERBOSE | re.DOTALL,
)
DIRECTIVE = re.compile(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", re.MULTILINE)

OPENING, CLOSING = ("(", "[", "{"), (")", "]", "}")
# Keywords that start what is no call and no assignment. `throw` is left out like one.
NO_EXPRESSION = frozenset(
    "return using typedef static_assert if for while do else switch case default goto try catch "
    "class struct enum union template friend namespace public private protected".split()
)
REPLACEMENTS = {
    "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "+": "-", "-": "+",
    "*": "/", "/": "*", "%": "/", "&": "|", "|": "&", "&&": "||", "||": "&&", "<<": ">>",
    ">>": "<<", "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|=",
}  # fmt: skip


@dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int
    end: int


@dataclass(frozen=True)
class Change:
    """One place of one file, changed in one way."""

    kind: str
    start: int
    end: int
    text: str


def tokens_of(source: str) -> list[Token]:
    """Everything that is neither space nor comment nor directive."""
    blank = DIRECTIVE.sub(lambda found: " " * len(found[0]), source)
    result = []
    for found in TOKEN.finditer(blank):
        kind = found.lastgroup or ""
        if kind == "mark":
            kind = "raw"
        if kind not in ("space", "comment"):
            result.append(Token(kind, found[0], found.start(), found.end()))
    return result


class Code:
    """The tokens of a file, and every change that can be made to them."""

    def __init__(self, source: str):
        self.source = source
        self.tokens = tokens_of(source)
        self.partner = self._partners()
        self.asserted = self._static_asserts()

    def lines(self) -> int:
        """How many lines hold code."""
        return len({self.source.count("\n", 0, token.start) for token in self.tokens})

    def changes(self) -> list[Change]:
        found: list[Change] = []
        for at, token in enumerate(self.tokens):
            if at in self.asserted:
                continue
            if token.kind == "operator":
                found.extend(self._operator(at))
            elif token.kind == "number":
                found.extend(self._number(at))
            elif token.kind in ("string", "character"):
                found.extend(self._text(at))
            elif token.text in ("true", "false"):
                other = "false" if token.text == "true" else "true"
                found.append(Change("boolean", token.start, token.end, other))
            elif token.text in ("if", "while", "for"):
                found.extend(self._condition(at))
        for first, last in self._statements():
            start, end = self.tokens[first].start, self.tokens[last].end
            found.append(Change("statement", start, end, ";"))
        return found

    # ---- Where things are

    def _text_at(self, at: int) -> str:
        return self.tokens[at].text if 0 <= at < len(self.tokens) else ""

    def _partners(self) -> dict[int, int]:
        """For each bracket the one that belongs to it."""
        open_at: list[int] = []
        partner: dict[int, int] = {}
        for at, token in enumerate(self.tokens):
            if token.kind != "operator":
                continue
            if token.text in OPENING:
                open_at.append(at)
            elif token.text in CLOSING and open_at:
                partner[at] = open_at.pop()
                partner[partner[at]] = at
        return partner

    def _static_asserts(self) -> set[int]:
        inside: set[int] = set()
        for at, token in enumerate(self.tokens):
            if token.text == "static_assert" and self._text_at(at + 1) == "(":
                inside.update(range(at, self.partner.get(at + 1, at) + 1))
        return inside

    def _spaced(self, token: Token) -> bool:
        """Whether space is on both sides. Sources are formatted by a program: binary operators have
        it, and brackets of templates, pointers, references and signs do not."""
        return self.source[token.start - 1].isspace() and self.source[token.end].isspace()

    # ---- Operators and numbers

    def _operator(self, at: int) -> Iterator[Change]:
        token = self.tokens[at]
        if token.text in ("++", "--"):
            other = "--" if token.text == "++" else "++"
            yield Change("operator", token.start, token.end, other)
        elif token.text in REPLACEMENTS and self._spaced(token):
            yield Change("operator", token.start, token.end, REPLACEMENTS[token.text])
        elif token.text == "!":
            yield Change("condition", token.start, token.end, "")
        elif token.text == "?":
            first = self._start_of_choice(at)
            if first < at and not self._is_one_comparison(first, at):
                start, end = self.tokens[first].start, self.tokens[at - 1].end
                yield Change("condition", start, end, f"!({self.source[start:end]})")

    def _number(self, at: int) -> Iterator[Change]:
        token = self.tokens[at]
        declaration = self._text_at(at - 2) in (")", "const", "noexcept", "override")
        if token.text == "0" and self._text_at(at - 1) == "=" and declaration:
            return  # a pure virtual function
        for step in (1, -1):
            text = stepped(token.text, step)
            if text is not None:
                yield Change("number", token.start, token.end, text)

    # ---- Conditions

    def _condition(self, at: int) -> Iterator[Change]:
        opening = at + 1
        if self._text_at(opening) != "(" or opening not in self.partner:
            return  # `if constexpr` for example
        first, end = opening + 1, self.partner[opening]
        parts = [
            here for here in range(first, end) if self.tokens[here].text == ";" and self._flat(first, here)
        ]
        if self.tokens[at].text == "for":
            if len(parts) != 2:
                return  # over a range
            first, end = parts[0] + 1, parts[1]
        elif parts:
            first = parts[0] + 1
        if first >= end or self._is_one_comparison(first, end) or self._is_one_denial(first, end):
            return  # its operator is turned round in its own right
        start, stop = self.tokens[first].start, self.tokens[end - 1].end
        yield Change("condition", start, stop, f"!({self.source[start:stop]})")

    def _flat(self, first: int, at: int) -> bool:
        """Whether no bracket that opens from `first` on is open at `at`."""
        return not any(
            self.tokens[here].text in OPENING and self.partner.get(here, 0) > at for here in range(first, at)
        )

    def _top(self, first: int, end: int) -> Iterator[str]:
        """The tokens that stand in no bracket."""
        at = first
        while at < end:
            yield self.tokens[at].text
            at = self.partner.get(at, at) + 1 if self.tokens[at].text in OPENING else at + 1

    def _is_one_comparison(self, first: int, end: int) -> bool:
        top = list(self._top(first, end))
        return any(text in ("==", "!=") for text in top) and not {"&&", "||"} & set(top)

    def _is_one_denial(self, first: int, end: int) -> bool:
        top = list(self._top(first, end))
        return top[0] == "!" and not {"&&", "||", "==", "!=", "<", ">", "<=", ">="} & set(top)

    def _start_of_choice(self, question: int) -> int:
        """Where the condition of `condition ? a : b` starts."""
        at = question - 1
        while at >= 0:
            text = self.tokens[at].text
            if text in CLOSING and at in self.partner:
                at = self.partner[at]
            elif text in OPENING or text in (",", ";", "?", ":", "=", "return", "<<", "+=", "-="):
                return at + 1
            at -= 1
        return 0

    # ---- Texts

    def _text(self, at: int) -> Iterator[Change]:
        token = self.tokens[at]
        if self._text_at(at - 1) == "extern":
            return
        body = token.text[1:-1]
        quote = token.text[0]
        if body == "":
            yield Change("text", token.start, token.end, quote + "x" + quote)
        for unit in re.finditer(r"\\(?:x[0-9A-Fa-f]+|[0-7]{1,3}|.)|.", body):
            start = token.start + 1 + unit.start()
            yield Change("text", start, start + len(unit[0]), another_character(unit[0]))

    # ---- Statements

    def _statements(self) -> Iterator[tuple[int, int]]:
        """Calls, assignments and what else can be left out: index of first and last token."""

        @dataclass
        class Level:
            block: bool  # statements, not declarations or values
            start: int
            brackets: int = 0

        levels = [Level(False, 0)]
        for at, token in enumerate(self.tokens):
            level = levels[-1]
            text = token.text if token.kind in ("operator", "name") else ""
            if text in ("(", "["):
                level.brackets += 1
            elif text in (")", "]"):
                level.brackets -= 1
            elif text == "{":
                levels.append(Level(self._opens_block(at, level.start), at + 1))
            elif text == "}" and len(levels) > 1:
                closed = levels.pop()
                outer = levels[-1]
                goes_on = self._text_at(at + 1) in (";", ",", ")", "(", ".")
                if outer.brackets == 0 and not goes_on and (closed.block or not outer.block):
                    outer.start = at + 1
            elif text == ":" and level.block and self._text_at(level.start) in ("case", "default"):
                level.start = at + 1
            elif text == ";" and level.brackets == 0:
                if level.block and self._can_be_left_out(level.start, at):
                    yield level.start, at
                level.start = at + 1

    def _opens_block(self, at: int, start: int) -> bool:
        before = self._text_at(at - 1)
        if before in (")", "const", "noexcept", "override", "final", "mutable", "else", "do", "try", "]"):
            return True
        if before in (";", "{", "}", ":"):
            return self._text_at(at - 1) != "{" or self._is_block_brace(at - 1)
        return any(self.tokens[here].text == "->" for here in range(max(start, at - 6), at))

    def _is_block_brace(self, at: int) -> bool:
        return self._text_at(at - 1) in (")", "const", "noexcept", "else", "do", "try")

    def _can_be_left_out(self, first: int, last: int) -> bool:
        if first >= last:
            return False
        start = self.tokens[first].text
        if start in NO_EXPRESSION:
            return start == "return" and last == first + 1
        name = self._declared_name(first, last)
        return name is None or (name != "" and not self._used_later(name, last))

    def _declared_name(self, first: int, last: int) -> Optional[str]:
        """The name that a declaration with a constructor call declares, "" for other declarations,
        None for what is none."""
        names = 0
        at = first
        while at < last:
            token = self.tokens[at]
            if token.kind == "operator" and token.text not in ("::", "<", ">", "*", "&", "&&"):
                break
            if token.text == "<" and self.source[token.start - 1].isalnum():  # of a template
                while at < last and self.tokens[at].text not in (">", ";"):
                    at += 1
            elif token.kind == "name" and self._text_at(at - 1) != "::" and token.text != "throw":
                names += 1
            at += 1
        if names < 2:
            return None
        return self.tokens[at - 1].text if self._text_at(at) == "(" else ""

    def _used_later(self, name: str, last: int) -> bool:
        depth = 0
        for token in self.tokens[last + 1 :]:
            depth += (token.text == "{") - (token.text == "}")
            if depth < 0:
                return False
            if token.text == name:
                return True
        return False


NUMBER = re.compile(r"(0[xX][0-9A-Fa-f']+|[\d']+(?:\.\d*)?|\.\d+)([uUlLzZ]*|[fF]|[a-z]+)")


def stepped(text: str, step: int) -> Optional[str]:
    """The number with its last digit's place changed by one, in the same notation; none below zero."""
    found = NUMBER.fullmatch(text)
    if found is None:
        return None
    digits, suffix = found[1], found[2]
    if "." in digits:
        places = len(digits.split(".")[1])
        value = round(float(digits.replace("'", "")) * 10**places) + step
        return None if value < 0 else f"{value / 10**places:.{places}f}" + suffix
    prefix = digits[:2] if digits[:2] in ("0x", "0X") else ""
    plain = digits[len(prefix) :].replace("'", "")
    value = int(plain, 16 if prefix else 10) + step
    if value < 0 or value > 0xFFFFFFFF:
        return None
    new = (f"{value:X}" if prefix else str(value)).rjust(len(plain) if prefix else 1, "0")
    if "'" in digits:
        group = len(digits) - digits.rindex("'") - 1
        new = re.sub(rf"(?<=.)(?=(?:.{{{group}}})+$)", "'", new)
    return prefix + new + suffix


def another_character(unit: str) -> str:
    if len(unit) > 1:
        return " "  # for an escape
    if unit.isascii() and unit.isalnum():
        return {"z": "a", "Z": "A", "9": "0"}.get(unit) or chr(ord(unit) + 1)
    return "-" if unit == "_" else "_"


# ---------------------------------------------------------------------------------------------
# The mutants of a seed


def as_text(place: str, old: Sequence[str], new: Sequence[str]) -> str:
    return "\n".join([place] + [f"- {text}" for text in old] + [f"+ {text}" for text in new])


@dataclass(frozen=True)
class Mutant:
    file: str
    line: int
    kind: str
    old: tuple[str, ...]  # the lines that the change touches
    new: tuple[str, ...]
    change: Change
    name: str  # the same as long as these lines are in the file, wherever they are in it

    def shown(self) -> str:
        return as_text(f"{self.file}:{self.line}", self.old, self.new)


def mutants_of(root: Path, file: str) -> list[list[Mutant]]:
    """Every mutant of a file, by places."""
    source = (root / file).read_text(encoding="utf-8")
    code = Code(source)
    places: dict[object, list[Mutant]] = {}
    results = {source}
    seen: Counter[str] = Counter()
    for change in code.changes():
        mutated = source[: change.start] + change.text + source[change.end :]
        if mutated in results:
            continue
        results.add(mutated)
        first = source.rfind("\n", 0, change.start) + 1
        end = source.find("\n", change.end)
        old = source[first:end]
        new = source[first : change.start] + change.text + source[change.end : end]
        told = f"{file}\n{old}\n{new}"
        seen[told] += 1
        name = hashlib.sha1(f"{told}\n{seen[told]}".encode()).hexdigest()[:12]
        line = source.count("\n", 0, change.start) + 1
        mutant = Mutant(
            file, line, change.kind, tuple(old.split("\n")), tuple(new.split("\n")), change, name
        )
        place: object = (change.kind, change.start)
        if change.kind == "text":  # a text is one place
            place = ("text", next(t.start for t in code.tokens if t.start < change.end <= t.end))
        places.setdefault(place, []).append(mutant)
    return list(places.values())


def all_files(root: Path) -> list[str]:
    found = [
        path.relative_to(root).as_posix()
        for folder in FOLDERS
        for path in (root / folder).rglob("*")
        if path.suffix in (".cpp", ".h") and path.is_file()
    ]
    return sorted(found)


def in_order(root: Path, seed: int, files: Sequence[str]) -> list[Mutant]:
    """All mutants of these files. Those in front are spread over the files as their code is, and over
    the places of a file: a place has its second change only when each other has had one."""
    waiting: dict[str, list[Mutant]] = {}
    weight: dict[str, int] = {}
    for file in files:
        chance = random.Random(f"{seed} {file}")
        places = mutants_of(root, file)
        chance.shuffle(places)
        for changes in places:
            chance.shuffle(changes)
        turns = max((len(changes) for changes in places), default=0)
        row = [changes[turn] for turn in range(turns) for changes in places if turn < len(changes)]
        if row:
            waiting[file] = row[::-1]
            weight[file] = Code((root / file).read_text(encoding="utf-8")).lines()
    taken = dict.fromkeys(waiting, 0)
    result = []
    while waiting:
        file = max(waiting, key=lambda name: (weight[name] / (2 * taken[name] + 1), name))
        result.append(waiting[file].pop())
        taken[file] += 1
        if not waiting[file]:
            del waiting[file]
    return result


# ---------------------------------------------------------------------------------------------
# Results

NOTICED, SURVIVED, BROKEN = "noticed", "survived", "does not compile"


class Results:
    """A file of JSON, one mutant a line. Of several lines for a mutant the last one counts."""

    def __init__(self, path: Path):
        self.path = path
        self.by_name: dict[str, dict] = {}
        self._lock = threading.Lock()
        if path.exists():
            for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
                try:
                    result = json.loads(line)
                    self.by_name[result["name"]] = result
                except (ValueError, KeyError, TypeError):
                    print(f"{path}:{number}: not a result, left out", file=sys.stderr)

    def add(self, result: dict) -> None:
        with self._lock:
            self.by_name[result["name"]] = result
            self.path.parent.mkdir(parents=True, exist_ok=True)
            with self.path.open("a", encoding="utf-8") as file:
                file.write(json.dumps(result) + "\n")

    def survivors(self) -> list[dict]:
        return [result for result in self.by_name.values() if result["outcome"] == SURVIVED]


def lines_of(result: dict) -> str:
    place = f"{result['file']}:{result['line']}"
    if result.get("same"):
        place += "  (same object code)"
    return as_text(place, result["old"], result["new"])


def print_report(results: Results, files: Sequence[str]) -> None:
    known = [result for result in results.by_name.values() if result["file"] in files]
    known.sort(key=lambda result: (result["file"], result["line"]))
    outcomes = Counter(result["outcome"] for result in known)
    tried = outcomes[NOTICED] + outcomes[SURVIVED]
    print(f"{results.path}: {len(known)} mutants")
    print(f"  {outcomes[NOTICED]:5} noticed")
    for step, count in Counter(r["by"] for r in known if r["outcome"] == NOTICED).most_common():
        print(f"        {count:5} by {step}")
    print(f"  {outcomes[SURVIVED]:5} survived")
    print(f"  {outcomes[BROKEN]:5} do not compile, not counted")
    if tried:
        print(f"  score {100 * outcomes[NOTICED] / tried:.1f} % ({outcomes[NOTICED]} of {tried})")
    unsteady = [result for result in known if result.get("passed_again")]
    if unsteady:
        print(f"  {len(unsteady)} met a test that failed once and passed once:")
        for result in unsteady:
            print(f"        {result['file']}:{result['line']}: {', '.join(result['passed_again'])}")
    survivors = [result for result in known if result["outcome"] == SURVIVED]
    if survivors:
        print("\nNot noticed:")
        for result in survivors:
            print("\n" + lines_of(result))


# ---------------------------------------------------------------------------------------------
# Programs that are started


class Stopped(Exception):
    """The user stops the run."""


class Failure(Exception):
    """The run cannot start, or not go on."""


@dataclass
class Ended:
    code: Optional[int]  # None: the time was over
    output: str
    seconds: float


class Programs:
    """Starts programs in process groups of their own, so that all that they start ends with them."""

    def __init__(self) -> None:
        self.stopping = threading.Event()

    def run(self, command: Sequence[str], folder: Path, limit: float, log: Path, environment: dict) -> Ended:
        if self.stopping.is_set():
            raise Stopped
        began = time.monotonic()
        with log.open("wb") as output:
            process = subprocess.Popen(
                command,
                cwd=folder,
                env=environment,
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=subprocess.STDOUT,
                start_new_session=True,
            )
            over = False
            # Not waited for before its group is ended: its number stays taken until then.
            while os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOHANG | os.WNOWAIT) is None:
                over = time.monotonic() - began > limit
                if over or self.stopping.is_set():
                    break
                time.sleep(0.01)
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            code = process.wait()
        if self.stopping.is_set():
            raise Stopped
        text = log.read_bytes()[-100_000:].decode("utf-8", "replace")
        return Ended(None if over else code, text, time.monotonic() - began)


# ---------------------------------------------------------------------------------------------
# What notices


@dataclass(frozen=True)
class Step:
    name: str
    targets: tuple[str, ...]
    command: tuple[str, ...]  # {source} and {build} stand for the worker's folders


def program_step(name: str, *options: str) -> Step:
    return Step(name, (name,), ("{build}/bin/" + name, "--gtest_fail_fast", "--gtest_brief=1", *options))


def model_step(lives: int, operations: int) -> Step:
    script, program = "{source}/tests/model/compare.sh", "random_operations"
    command = (script, "{build}/bin/" + program, str(lives), str(operations))
    return Step(f"model ({lives} lives)", (program,), command)


# First what is quick and notices most.
STEPS = (
    model_step(30, 60),
    program_step("sensor_tools_test"),
    program_step("sensor_test"),
    program_step("fpga_test"),
    program_step("sensor_locks_test"),
    program_step("sensor_allocation_test"),
    program_step("system_test"),
    program_step("virtual_head_test", "--gtest_filter=Documents.*"),
    program_step("plugin_test"),
    model_step(600, 100),
)


def steps_for(file: str) -> Sequence[Step]:
    """Every step. For a header the long run of the model comes early: nearly every source of the tests
    would be compiled again before it."""
    return (STEPS[0], STEPS[-1], *STEPS[1:-1]) if file.endswith(".h") else STEPS


# All sources of the product: a mutant that breaks one of these does not compile.
PRODUCT = ("sensor_board_3u5mgxs", "random_operations")
TEST_FOLDERS = "support;sim;fpga;sensor;plugin;system;target;model"

SHORTEST_LIMIT = 20.0  # s for a step that is quick
SLOWER = 10.0  # times a step's usual time: it hangs
BUILD_LIMIT = 900.0  # s
FIRST_BUILD_LIMIT = 7200.0  # s


def linker_flags() -> list[str]:
    for program, name in (("ld.lld", "lld"), ("ld.gold", "gold")):
        if shutil.which(program):
            kinds = ("EXE", "SHARED", "MODULE")
            return [f"-DCMAKE_{kind}_LINKER_FLAGS=-fuse-ld={name}" for kind in kinds]
    return []


def told(ended: Ended) -> str:
    """What failed, on one line."""
    if ended.code is None:
        return "did not end"
    failed = re.findall(r"^\[  FAILED  \] ([\w/]+\.[\w/]+)", ended.output, re.MULTILINE)
    if failed:
        return ", ".join(dict.fromkeys(failed))
    if ended.code < 0:
        return f"ended by signal {-ended.code}"
    lines = [line.strip() for line in ended.output.splitlines() if line.strip()]
    return " | ".join(lines[:3])[:300]


class Worker:
    """A copy of the tree with a build of its own. Every mutant starts from the same build: what it
    changed there is put back, so that nothing is compiled twice."""

    def __init__(self, number: int, jobs: int, programs: Programs):
        self.folder = HOME / f"worker-{number}"
        self.source = self.folder / "source"
        self.build = self.folder / "build"
        self.clean = self.folder / "clean"  # the build as it is without a mutant
        self.log = self.folder / "log.txt"
        self.jobs = jobs
        self.programs = programs
        self.limits: dict[str, float] = {}
        self.state: dict[str, tuple[int, int, int]] = {}
        self.environment = {
            key: value
            for key, value in os.environ.items()
            if not key.startswith(("GTEST_", "HEAD_", "CCACHE_")) and key not in ("EMULATOR", "MAKEFLAGS")
        }
        self.environment["TMPDIR"] = str(self.folder / "tmp")

    # ---- The copy

    def prepare(self, files: Sequence[str]) -> None:
        """Makes copy and build those of the tree."""
        for folder in (self.source, self.folder / "tmp"):
            folder.mkdir(parents=True, exist_ok=True)
        self._copy_tree(files)
        self._configure()
        targets = sorted({target for step in STEPS for target in step.targets} | set(PRODUCT))
        ended = self._ninja(targets, FIRST_BUILD_LIMIT)
        if ended.code != 0:
            raise Failure(
                f"The copy in {self.source} cannot be built, although nothing is changed in it.\n"
                f"{ended.output[-3000:]}\nMend the build of the tree first; see also {self.log}."
            )
        self._keep_build()

    def _copy_tree(self, files: Sequence[str]) -> None:
        wanted = set(files)
        for path in list(self.source.rglob("*")):
            if not path.is_dir() and path.relative_to(self.source).as_posix() not in wanted:
                path.unlink()
        for name in files:
            original, copy = ROOT / name, self.source / name
            copy.parent.mkdir(parents=True, exist_ok=True)
            if original.is_symlink():
                if not copy.is_symlink() or os.readlink(copy) != os.readlink(original):
                    copy.unlink(missing_ok=True)
                    copy.symlink_to(os.readlink(original))
                continue
            content = original.read_bytes()
            # The same content keeps its time, and is not built again.
            if copy.is_symlink() or not copy.exists() or copy.read_bytes() != content:
                copy.unlink(missing_ok=True)
                copy.write_bytes(content)
            shutil.copymode(original, copy)

    def _configure(self) -> None:
        command = [
            "cmake", "-S", str(self.source), "-B", str(self.build), "-G", "Ninja",
            "-DCMAKE_BUILD_TYPE=Debug",
            # -w: what only a warning would notice is not noticed. -Wno-error would stand before -Werror.
            "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -g0 -w",
            f"-DHEAD_TEST_FOLDERS={TEST_FOLDERS}",
            *linker_flags(),
        ]  # fmt: skip
        ended = self.programs.run(command, self.folder, BUILD_LIMIT, self.log, self.environment)
        if ended.code != 0:
            raise Failure(f"CMake cannot configure the copy in {self.source}.\n{ended.output[-3000:]}")

    def _ninja(self, targets: Sequence[str], limit: float) -> Ended:
        command = ["ninja", "-C", str(self.build), "-j", str(self.jobs), *targets]
        return self.programs.run(command, self.folder, limit, self.log, self.environment)

    # ---- The build as it was

    def _files_of_build(self) -> dict[str, tuple[int, int, int]]:
        found = {}
        for folder, _, names in os.walk(self.build):
            for name in names:
                path = os.path.join(folder, name)
                status = os.lstat(path)
                found[os.path.relpath(path, self.build)] = (status.st_mtime_ns, status.st_size, status.st_ino)
        return found

    def _keep_build(self) -> None:
        shutil.rmtree(self.clean, ignore_errors=True)
        shutil.copytree(self.build, self.clean, symlinks=True)
        self.state = self._files_of_build()

    def _put_back(self, file: str, content: bytes, status: os.stat_result) -> None:
        """The build first: as long as the source is the mutant's, a run that was ended in between finds
        that out and builds again."""
        now = self._files_of_build()
        for name, state in now.items():
            path = self.build / name
            if name not in self.state:
                path.unlink()
            elif state != self.state[name]:
                fresh = path.with_name(path.name + ".clean")
                shutil.copy2(self.clean / name, fresh, follow_symlinks=False)
                os.replace(fresh, path)
        for name in self.state.keys() - now.keys():
            (self.build / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(self.clean / name, self.build / name, follow_symlinks=False)
        self.state = self._files_of_build()
        self._replace_source(file, content)
        os.utime(self.source / file, ns=(status.st_atime_ns, status.st_mtime_ns))

    def _replace_source(self, file: str, content: bytes) -> None:
        path = self.source / file
        fresh = path.with_name(path.name + ".new")
        fresh.write_bytes(content)
        os.replace(fresh, path)

    def _same_objects(self) -> bool:
        """Whether every object file that was made anew is as it was."""
        for name, state in self._files_of_build().items():
            if name.endswith(".o") and state != self.state.get(name):
                if (self.build / name).read_bytes() != (self.clean / name).read_bytes():
                    return False
        return True

    # ---- Tests

    def run_step(self, step: Step, limit: float) -> Ended:
        places = {"source": str(self.source), "build": str(self.build)}
        command = [part.format(**places) for part in step.command]
        for name in ("tmp", "run"):
            shutil.rmtree(self.folder / name, ignore_errors=True)
            (self.folder / name).mkdir()
        return self.programs.run(command, self.folder / "run", limit, self.log, self.environment)

    def check(self) -> None:
        """Every test passes without a mutant."""
        for step in STEPS:
            ended = self.run_step(step, 600)
            if ended.code != 0:
                raise Failure(
                    f"{step.name} fails in {self.source}, although nothing is changed there: {told(ended)}\n"
                    f"No mutant was tried. Make ./test pass first; the whole output is in {self.log}."
                )
            usual = max(ended.seconds, self.limits.get(step.name, 0.0) / SLOWER)
            self.limits[step.name] = max(SHORTEST_LIMIT, SLOWER * usual)

    def try_out(self, mutant: Mutant) -> dict:
        path = self.source / mutant.file
        content = path.read_bytes()
        status = path.stat()
        source = content.decode("utf-8")
        change = mutant.change
        began = time.monotonic()
        try:
            mutated = source[: change.start] + change.text + source[change.end :]
            self._replace_source(mutant.file, mutated.encode("utf-8"))
            result = self._judge(steps_for(mutant.file))
        finally:
            self._put_back(mutant.file, content, status)
        result["seconds"] = round(time.monotonic() - began, 1)
        return result

    def _judge(self, steps: Sequence[Step]) -> dict:
        if self._ninja(PRODUCT, BUILD_LIMIT).code != 0:
            return {"outcome": BROKEN}
        passed_again: list[str] = []
        more: dict = {}
        for step in steps:
            if self._ninja(step.targets, BUILD_LIMIT).code != 0:
                return {"outcome": NOTICED, "by": step.name, "what": "does not compile any more", **more}
            ended = self.run_step(step, self.limits[step.name])
            if ended.code == 0:
                continue
            # Once more: what fails by chance says nothing of the mutant.
            if ended.code is None or self.run_step(step, self.limits[step.name]).code != 0:
                return {"outcome": NOTICED, "by": step.name, "what": told(ended), **more}
            passed_again.append(f"{step.name}: {told(ended)}")
            more = {"passed_again": passed_again}
        return {"outcome": SURVIVED, "same": self._same_objects(), **more}


# ---------------------------------------------------------------------------------------------
# A run


@dataclass
class Run:
    mutants: list[Mutant]
    results: Results
    workers: list[Worker]
    programs: Programs
    seed: int
    checks: int
    files: list[str]
    next: int = 0
    done: int = 0
    failure: Optional[str] = None
    lock: threading.Lock = field(default_factory=threading.Lock)

    def go(self) -> int:
        def on_signal(*_: object) -> None:
            self.programs.stopping.set()

        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, on_signal)
        count = len(self.mutants)
        print(f"{count} mutants to try, {len(self.workers)} workers; the unmutated copies first", flush=True)
        ready = threading.Barrier(len(self.workers))
        threads = [threading.Thread(target=self._work, args=(worker, ready)) for worker in self.workers]
        for thread in threads:
            thread.start()
        for thread in threads:
            while thread.is_alive():
                thread.join(0.2)
        if self.failure:
            print(self.failure, file=sys.stderr)
            return 1
        if self.programs.stopping.is_set():
            print("Stopped. The same command goes on from here.", file=sys.stderr)
            return 130
        return 0

    def _work(self, worker: Worker, ready: threading.Barrier) -> None:
        try:
            worker.prepare(self.files)
            ready.wait()  # the tests meet the load that they meet later
            for _ in range(self.checks):
                worker.check()
            print(f"{worker.folder.name}: every test passes, {self.checks} times", flush=True)
            while (mutant := self._take()) is not None:
                result = worker.try_out(mutant)
                self._tell(mutant, result)
        except (Stopped, threading.BrokenBarrierError):
            pass
        except Failure as failure:
            self._give_up(str(failure))
        except Exception as error:  # the others end as well
            self._give_up(f"{worker.folder}: {type(error).__name__}: {error}")
        finally:
            if self.programs.stopping.is_set():
                ready.abort()

    def _give_up(self, text: str) -> None:
        with self.lock:
            self.failure = self.failure or text
        self.programs.stopping.set()

    def _take(self) -> Optional[Mutant]:
        with self.lock:
            if self.next == len(self.mutants):
                return None
            self.next += 1
            return self.mutants[self.next - 1]

    def _tell(self, mutant: Mutant, result: dict) -> None:
        result = {
            "name": mutant.name, "seed": self.seed, "file": mutant.file, "line": mutant.line,
            "kind": mutant.kind, "old": mutant.old, "new": mutant.new, **result,
        }  # fmt: skip
        self.results.add(result)
        by = f" by {result['by']}" if "by" in result else ""
        with self.lock:
            self.done += 1
            outcome = f"{mutant.file}:{mutant.line}: {result['outcome']}{by}, {result['seconds']} s"
            print(f"[{self.done}/{len(self.mutants)}] {outcome}")
            if result["outcome"] == SURVIVED:
                print("\n" + lines_of(result) + "\n")
            sys.stdout.flush()


def tree_files() -> list[str]:
    """What git tracks or would: neither builds nor what a user keeps beside them."""
    command = ["git", "-C", str(ROOT), "ls-files", "-z", "--cached", "--others", "--exclude-standard"]
    listed = subprocess.run(command, capture_output=True, check=False)
    if listed.returncode != 0:
        raise Failure(
            f"{ROOT} cannot be listed: {listed.stderr.decode().strip()}\n"
            "Mutants need a git checkout: its files are what is copied."
        )
    names = {name for name in listed.stdout.decode().split("\0") if name}
    return sorted(name for name in names if (ROOT / name).is_symlink() or (ROOT / name).is_file())


def only_run() -> object:
    """No other run may work in the same folder. The lock lasts as long as what is returned."""
    HOME.mkdir(parents=True, exist_ok=True)
    lock = (HOME / "lock").open("w", encoding="utf-8")
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except OSError:
        raise Failure(f"Another run works in {HOME}. Wait for its end, or stop it.") from None
    return lock


def limit_resources() -> None:
    """A mutant may take memory or write a file without end."""
    limits = ((resource.RLIMIT_AS, 6 << 30), (resource.RLIMIT_FSIZE, 1 << 30), (resource.RLIMIT_CORE, 0))
    for kind, most in limits:
        soft, hard = resource.getrlimit(kind)
        if soft == resource.RLIM_INFINITY or soft > most:
            resource.setrlimit(kind, (most, hard))


def chosen_files(patterns: Sequence[str]) -> list[str]:
    files = all_files(ROOT)
    if not patterns:
        return files
    chosen = [file for file in files if any(fnmatch.fnmatch(file, pattern) for pattern in patterns)]
    if not chosen:
        raise Failure(
            f"No source matches {' '.join(patterns)}.\n"
            f"Give names or patterns from the top of the tree, such as 'plugin/*.cpp'; "
            f"sources of {', '.join(FOLDERS)} can be changed."
        )
    return chosen


def positive(text: str) -> int:
    value = int(text)
    if value < 1:
        raise ValueError
    return value


def arguments_of(values: Sequence[str]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        description=__doc__, epilog=EPILOG, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--seed", type=int, default=1, help="which mutants, and in which order (1)")
    parser.add_argument("--count", type=positive, default=300, help="how many, from the first one on (300)")
    parser.add_argument(
        "--jobs", type=positive, default=os.cpu_count() or 1, help="workers side by side (one a processor)"
    )
    parser.add_argument(
        "--files", nargs="+", default=[], metavar="FILE", help="only these: names or patterns"
    )
    parser.add_argument("--results", type=Path, metavar="FILE", help="results (build/mutants/seed-N.jsonl)")
    parser.add_argument(
        "--checks", type=positive, default=2, help="runs of all tests before the first mutant (2)"
    )
    what = parser.add_mutually_exclusive_group()
    what.add_argument("--list", action="store_true", help="print the mutants and run nothing")
    what.add_argument("--report", action="store_true", help="print score and survivors, and run nothing")
    what.add_argument(
        "--again", action="store_true", help="try the survivors of the results, with today's tests"
    )
    return parser.parse_args(values)


def survivors_again(results: Results, files: Sequence[str]) -> list[Mutant]:
    here = {m.name: m for file in files for place in mutants_of(ROOT, file) for m in place}
    survivors = [result for result in results.survivors() if result["file"] in files]
    gone = [result for result in survivors if result["name"] not in here]
    for result in gone:
        print(f"{result['file']}:{result['line']}: this code is there no more, not tried again")
    return [here[result["name"]] for result in survivors if result["name"] in here]


def run(arguments: argparse.Namespace) -> int:
    files = chosen_files(arguments.files)
    results_path = arguments.results or HOME / f"seed-{arguments.seed}.jsonl"
    if arguments.list:
        for mutant in in_order(ROOT, arguments.seed, files)[: arguments.count]:
            print(mutant.shown())
        return 0
    if arguments.report:
        if not results_path.exists():
            raise Failure(f"{results_path} does not exist: no mutant of this seed was tried yet.")
        print_report(Results(results_path), files)
        return 0

    for program in ("cmake", "ninja", "git", "bash"):
        if shutil.which(program) is None:
            raise Failure(f"{program} is missing. ./test installs what is needed.")
    lock = only_run()
    results = Results(results_path)
    if arguments.again:
        mutants = survivors_again(results, files)
    else:
        chosen = in_order(ROOT, arguments.seed, files)[: arguments.count]
        mutants = [mutant for mutant in chosen if mutant.name not in results.by_name]
        if len(mutants) < len(chosen):
            print(f"{len(chosen) - len(mutants)} of {len(chosen)} are in {results_path}")
    status = 0
    if mutants:
        limit_resources()
        count = min(arguments.jobs, len(mutants))
        programs = Programs()
        jobs_each = max(1, (os.cpu_count() or 1) // count)
        workers = [Worker(number + 1, jobs_each, programs) for number in range(count)]
        status = Run(
            mutants, results, workers, programs, arguments.seed, arguments.checks, tree_files()
        ).go()
    if status == 0:
        print()
        print_report(results, files)
    del lock
    return status


def main() -> int:
    arguments = arguments_of(sys.argv[1:])
    try:
        return run(arguments)
    except Failure as failure:
        print(failure, file=sys.stderr)
        return 1
    except BrokenPipeError:
        sys.stderr.close()
        return 1


if __name__ == "__main__":
    sys.exit(main())
