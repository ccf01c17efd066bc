"""The example of docs/python.md does what the page says."""

import re
from pathlib import Path


def test_the_first_example(capsys):
    page = (Path(__file__).parents[2] / "docs" / "python.md").read_text(encoding="utf-8")
    (code,) = re.findall(r"^```python\n(.*?)^```$", page, re.M | re.S)
    exec(compile(code, "python.md", "exec"), {})
    told = capsys.readouterr().out.split()
    assert told == ["20000", "False"]
    assert f"It prints `{told[0]}` and `{told[1]}`." in page
