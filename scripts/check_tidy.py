#!/usr/bin/env python3
"""Static analysis by clang-tidy of what ships, as .clang-tidy sets it. Argument: a configured build folder. With a
commit in HEAD_CHANGED_SINCE: of what changed since then. The status is 0 when nothing was found.

Most of what clang-tidy does for a small source it does in its headers, so it reads several at once: a file with their
texts, one behind the other. Where it says anything of such a file, or cannot read it, it reads each source by itself,
and what it then says counts.
"""

from __future__ import annotations

import dataclasses
import json
import os
import re
import shlex
import subprocess
import sys
import tempfile
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Iterable, Optional

ROOT = Path(__file__).resolve().parent.parent

# Sources that are read at once.
GROUP = 16

# What stands at the start of a line and has a name: two sources that share one cannot be read at once.
NAMED = re.compile(r"^(?!namespace|using|#|//|\s|\})[^\n=(;{]*?(?<![:\w])(\w+)\s*(?=[({=;\[])", re.MULTILINE)

# Likewise a name for a type.
ALIAS = re.compile(r"^using\s+(\w+)\s*=", re.MULTILINE)

# A namespace that is opened for all that follows. Those of registers have members of the same names.
OPENED = re.compile(r"^\s*using namespace \w*?(Registers|);", re.MULTILINE)

# Sources that differ in nothing but these are read at once, with all of them: where a library looks for headers, and
# what its own sources are told.
PLACES = ("-I", "-isystem", "-D")

# The analyzer takes each function by itself, too. As a rule it leaves out what it has followed from a caller, and a
# source that is read with others has more callers.
EACH_FUNCTION = ["--extra-arg=-Xclang", "--extra-arg=-analyzer-inlining-mode=all"]


@dataclasses.dataclass
class Said:
    """What clang-tidy said of a file."""

    clean: bool
    text: str


@dataclasses.dataclass
class Source:
    """A source and how it is compiled."""

    file: Path
    flags: tuple[str, ...]
    settings: str
    text: str

    def places(self) -> list[tuple[str, ...]]:
        """The flags of PLACES, each with its value."""
        pairs = zip(self.flags, (*self.flags[1:], ""))
        return [
            (flag, value) if flag in PLACES else (flag,) for flag, value in pairs if flag.startswith(PLACES)
        ]

    def alike(self) -> tuple[tuple[str, ...], str]:
        """What sources that are read at once must have in common."""
        apart = {word for place in self.places() for word in place}
        return tuple(flag for flag in self.flags if flag not in apart), self.settings

    def names(self) -> set[str]:
        """What no other source of a group may have."""
        return {name for kind in (NAMED, ALIAS, OPENED) for name in kind.findall(self.text) if name}


def compiled(build: Path, files: Iterable[Path]) -> list[Source]:
    """The sources with their flags. A source of two libraries is taken as the first of them has it."""
    first: dict[Path, dict[str, str]] = {}
    for entry in json.loads((build / "compile_commands.json").read_text(encoding="utf-8")):
        first.setdefault(Path(entry["file"]), entry)
    sources = []
    settings: dict[Path, str] = {}
    for file in files:
        if file not in first:
            raise LookupError(f"{file} is not compiled in {build}")
        words = shlex.split(first[file]["command"])
        flags = words[: words.index("-o")]
        # Which library a source belongs to means nothing to it.
        flags = [word for word in flags if not re.fullmatch(r"-D\w+_EXPORTS", word)]
        room = next(folder for folder in file.parents if (folder / ".clang-tidy").exists())
        if room not in settings:
            settings[room] = subprocess.run(
                ["clang-tidy", "--dump-config", str(file), "--"], stdout=subprocess.PIPE, text=True, check=True
            ).stdout
        sources.append(Source(file, tuple(flags), settings[room], file.read_text(encoding="utf-8")))
    return sources


def grouped(sources: list[Source]) -> list[list[Source]]:
    """Groups of alike sources without a name twice; long ones first."""
    shared = Counter(name for source in sources for name in source.names())
    groups: list[list[Source]] = []
    for kind in sorted({source.alike() for source in sources}):
        # Whoever shares most names finds a place first.
        alike = [source for source in sources if source.alike() == kind]
        alike.sort(key=lambda source: -sum(shared[name] - 1 for name in source.names()))
        shares: list[list[Source]] = []
        for source in alike:
            for share in shares:
                if len(share) < GROUP and not any(source.names() & other.names() for other in share):
                    share.append(source)
                    break
            else:
                shares.append([source])
        groups += shares
    return sorted(groups, key=lambda group: -sum(len(source.text) for source in group))


class Tidy:
    """Runs clang-tidy. The folder is for what it is given to read."""

    def __init__(self, build: Path, folder: Path) -> None:
        self.build = build
        self.folder = folder

    def run(self, file: Path, *options: str, database: Optional[Path] = None) -> Said:
        # fmt: off
        done = subprocess.run(
            ["clang-tidy", "--quiet", "--warnings-as-errors=*", "-p", str(database or self.build), *options, str(file)],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False,
        )
        # fmt: on
        return Said(done.returncode == 0 and not done.stdout.strip(), done.stdout)

    def together(self, number: int, group: list[Source]) -> Said:
        """What clang-tidy says of a file that has the texts of the sources."""
        folder = self.folder / str(number)
        folder.mkdir()
        file = folder / "sources.cpp"
        # Namespaces that a source opens are open in those behind it.
        ordered = sorted(group, key=lambda source: bool(OPENED.search(source.text)))
        # Not by including them: some checks, and the analyzer, look at nothing but the file that they are given.
        file.write_text("".join(f'#line 1 "{source.file}"\n{source.text}\n' for source in ordered), encoding="utf-8")
        places = dict.fromkeys(place for source in group for place in source.places())
        compiler, *others = group[0].alike()[0]
        beside = [f"-iquote{place}" for place in sorted({source.file.parent for source in group})]
        flags = [compiler, *(word for place in places for word in place), *others, *beside]
        entry = {"directory": str(folder), "file": str(file), "arguments": [*flags, "-c", str(file)]}
        (folder / ".clang-tidy").write_text(group[0].settings, encoding="utf-8")
        (folder / "compile_commands.json").write_text(json.dumps([entry]), encoding="utf-8")
        return self.run(file, *EACH_FUNCTION, database=folder)

    def read(self, number: int, group: list[Source]) -> Said:
        """What clang-tidy says of the sources of a group."""
        if len(group) > 1:
            together = self.together(number, group)
            if together.clean:
                return together
        said = [self.run(source.file) for source in group]
        return Said(all(one.clean for one in said), "".join(one.text for one in said))


def main() -> int:
    build = Path(sys.argv[1]).resolve()
    listed = subprocess.run([ROOT / "scripts" / "shipped-sources.sh"], stdout=subprocess.PIPE, text=True, check=True)
    files = [ROOT / line for line in listed.stdout.split()]
    if not files:
        print("nothing that ships changed")
        return 0
    groups = grouped(compiled(build, files))
    with tempfile.TemporaryDirectory() as folder:
        tidy = Tidy(build, Path(folder))
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            said = list(pool.map(tidy.read, range(len(groups)), groups))
    print("".join(one.text for one in said), end="")
    print(f"{len(files)} files")
    return 0 if all(one.clean for one in said) else 1


if __name__ == "__main__":
    sys.exit(main())
