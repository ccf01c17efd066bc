#!/usr/bin/env python3
"""Makes docs/diagnostics.md of the table of failures beside the plug-in. Argument: --check, to compare only."""

from __future__ import annotations

import json
import sys
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parent.parent
TABLE = ROOT / "plugin" / "sensor_board_3u5mgxs.failures.json"
PAGE = ROOT / "docs" / "diagnostics.md"

HEAD = """# Diagnostics

What a host and its user see when something is wrong with a camera head, why, and where to look.

`scripts/diagnostics_page.py` makes this page of the [table of failures](failure-table.md) that lies beside the
plug-in. camhost reads the same table: after a command that the board refused it names the failure, its likely causes
and what to measure. Each row of the tables happens on the virtual head in a test
(`tests/system/diagnostics_test.cpp`), which compares result and texts with the row, to the byte.

Find the line that you have on standard error, or the result, then read on to the right.

- **Command, result**: camhost's commands, and what the last one gave. `signal 11` ended the process. `--diagnose`
  is an option in place of commands, and `status` what camhost ends with.
- **camhost says**: its line below the result, or the verdict of a diagnosis, by the table.
- **Standard output**: its error lines (`[4]`), and lines that tell something. `\\t` is a tab. Lines that
  repeat stand here once; progress is left out.
- **Standard error**: all of it but for camhost's own last lines.
- **Cause**, **What to measure**: words in braces are filled in, as `{path}` of a device file.
- **Fault**: a file of `data/scenarios/`, or the lines of a section `[Fault NAME]` of one, or of the section that they
  begin with ([scenarios.md](scenarios.md)).

To see a failure for yourself, a dead lane for example:

    build/run/bin/virtual-head --workdir data --scenario data/scenarios/dead-lane.ini -- \\
        build/run/bin/camhost -c init

With `--diagnose --power` in place of `-c init` the same head is examined step by step, and everything that the table
knows of the failure is shown.

The virtual head may complain on standard error as well, of what the plug-in then does to a head that
is not ready. `virtual-head --vcd` shows when which lock, supply or line went.
"""

COLUMNS = ("Command, result", "camhost says", "Standard output", "Standard error", "Cause", "What to measure", "Fault")


def code(lines: list[str]) -> str:
    return "<br>".join("`" + line.replace("\t", "\\t") + "`" for line in lines if line)


def row(example: dict[str, Any], failures: dict[str, Any]) -> str:
    cause = example
    if "failure" in example:
        cause = failures[example["failure"]]["causes"][example["cause"] - 1]
    kinds = [kind for kind in ("signal", "status") if kind in example]
    result = f"{kinds[0]} {example[kinds[0]]}" if kinds else str(example["result"])
    fault = [example["scenario"]] if "scenario" in example else example["fault"]
    cells = (
        f"`{'; '.join(example['commands'])}`: {result}",
        example.get("says", ""),
        code(example["output"]),
        code(example["errors"]),
        cause["cause"],
        cause["measure"],
        code(fault),
    )
    return "|" + "|".join(f" {cell} " if cell else " " for cell in cells) + "|"


def page(table: dict[str, Any]) -> str:
    failures = {failure["name"]: failure for failure in table["failures"]}
    lines = [HEAD]
    for section in table["sections"]:
        lines += [f"## {section['title']}", ""]
        if section["about"]:
            lines += [section["about"], ""]
        lines.append("| " + " | ".join(COLUMNS) + " |")
        lines.append("|" + "---|" * len(COLUMNS))
        lines += [row(example, failures) for example in section["examples"]]
        lines.append("")
    return "\n".join(lines)


def main() -> int:
    text = page(json.loads(TABLE.read_text(encoding="utf-8")))
    if "--check" not in sys.argv[1:]:
        PAGE.write_text(text, encoding="utf-8")
    elif PAGE.read_text(encoding="utf-8") != text:
        print(f"{PAGE} is not what {TABLE} makes: run scripts/diagnostics_page.py", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
