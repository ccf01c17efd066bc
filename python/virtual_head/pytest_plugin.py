"""A plug-in for pytest: virtual heads as fixtures.

`camhost` is the shipped host on a head, `head` a program of your own on one, by the marker `virtual_head`; `start_head`
starts as many as a test wants. `scenario` says what is wrong with them: by the marker `scenario`, or parametrized.

Each run has a folder with its log, report and waveforms. It stays when the test fails, and the failure says where; else it
goes with the head. A rule of the head that was broken fails the test, unless `virtual_head_strict = false` is in pytest's
settings, or the test has the marker `rules_may_break`.
"""

from __future__ import annotations

import contextlib
import os
import re
import shutil
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest

from . import log
from .camhost import Camhost, demonstration_data
from .errors import HeadError
from .head import Head


class Bench:
    """The heads of one test, and the folders of their runs."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self._runs: list[tuple[Path, Head]] = []

    def place(self) -> Path:
        """A new folder for a run."""
        number = len(self._runs) + 1
        while True:  # a start that failed has one already
            path = self.folder if number == 1 else self.folder / f"run-{number}"
            if not (path / "head.log").exists() and not any(path == taken for taken, _ in self._runs):
                path.mkdir(parents=True, exist_ok=True)
                return path
            number += 1

    @staticmethod
    def files(place: Path) -> dict[str, Any]:
        """The options of `Head.start` with which a run leaves its files behind."""
        return {"log": place / "head.log", "report": place / "report.html", "vcd": place / "waveform.vcd"}

    def keep(self, place: Path, head: Head) -> None:
        """Takes a run over, to end it with the test."""
        self._runs.append((place, head))

    def told(self) -> str:
        """Where the files are, for who reads a failure; empty where there was no run."""
        return "\n".join(f"log, report and waveforms of the run: {place}" for place, _ in self._runs)

    def close(self) -> list[str]:
        """Ends all runs and completes their files. Returns the rules that were broken."""
        broken: list[str] = []
        for place, head in reversed(self._runs):
            with contextlib.suppress(HeadError):
                (place / "scenario.ini").write_text(head.scenario(), encoding="utf-8")
            with contextlib.suppress(HeadError):
                (place / "waveform.svg").write_text(head.waveform(), encoding="utf-8")
            head.close()
            for name, text in (("output.txt", head.output), ("errors.txt", head.errors), ("summary.txt", head.summary)):
                (place / name).write_text(text, encoding="utf-8")
            with contextlib.suppress(OSError):  # a program that used no head has no log
                broken += [str(event) for event in log.read(place / "head.log").violations]
        return broken

    def forget(self) -> None:
        """Removes the files."""
        if self._runs:
            shutil.rmtree(self.folder, ignore_errors=True)


_BENCH = pytest.StashKey[Bench]()
_FAILED = pytest.StashKey[bool]()


def pytest_addoption(parser: pytest.Parser) -> None:
    """The settings in pytest's own file."""
    parser.addini("virtual_head_output", "folder for the runs of tests that failed; default: virtual-head in the test's tmp_path")
    parser.addini("virtual_head_strict", "a rule of the head that was broken fails the test", type="bool", default=True)


def pytest_configure(config: pytest.Config) -> None:
    """The markers."""
    config.addinivalue_line("markers", "scenario(which): what is wrong with the head: a file, a name of one that ships, a text")
    config.addinivalue_line("markers", "virtual_head(program, **options): the program of the fixture head; options of Head.start")
    config.addinivalue_line("markers", "camhost(**options): options of Camhost.start for the fixture camhost")
    config.addinivalue_line("markers", "rules_may_break: the test passes although the program broke a rule of the head")


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item: pytest.Item, call: pytest.CallInfo[None]) -> Iterator[None]:
    """Says with a failure where the files of the run are."""
    outcome = yield
    report = outcome.get_result()  # type: ignore[attr-defined]
    if report.failed:
        item.stash[_FAILED] = True
        told = item.stash[_BENCH].told() if _BENCH in item.stash else ""
        if told:
            report.sections.append(("virtual head", told))


def _bench_folder(request: pytest.FixtureRequest) -> Path:
    output = request.config.getini("virtual_head_output")
    if not output:
        return Path(request.getfixturevalue("tmp_path")) / "virtual-head"
    name = re.sub(r"[^A-Za-z0-9_.-]+", "-", request.node.nodeid).strip("-")
    folder = request.config.rootpath / str(output) / name
    shutil.rmtree(folder, ignore_errors=True)  # of an earlier time
    return folder


@pytest.fixture
def virtual_head_bench(request: pytest.FixtureRequest) -> Iterator[Bench]:
    """The heads of this test. Fixtures of your own that start programs on heads build on it."""
    bench = Bench(_bench_folder(request))
    request.node.stash[_BENCH] = bench
    yield bench
    broken = bench.close()
    failed = request.node.stash.get(_FAILED, False)
    if (broken and not failed and request.config.getini("virtual_head_strict")
            and request.node.get_closest_marker("rules_may_break") is None):
        pytest.fail("the program broke rules of the head:\n" + "\n".join(broken), pytrace=False)
    if not failed:
        bench.forget()


def _found(which: Any, request: pytest.FixtureRequest) -> str | None:
    """A scenario's file or text, by what a test says of it."""
    if which is None or (isinstance(which, str) and "\n" in which):
        return which
    tried = []
    folders = [Path(request.node.path).parent, request.config.rootpath]
    with contextlib.suppress(HeadError):
        data = demonstration_data()
        if data is not None:
            folders.append(data / "scenarios")
    for folder in folders:
        for name in (os.fspath(which), os.fspath(which) + ".ini"):
            if (folder / name).is_file():
                return str(folder / name)
            tried.append(str(folder / name))
    raise pytest.UsageError(f"there is no scenario {which}; looked for {', '.join(tried)}")


@pytest.fixture
def scenario(request: pytest.FixtureRequest) -> str | None:
    """What is wrong with this test's heads: a scenario's file or text, None for a healthy head.

    It comes from the marker `scenario`, or from a parametrization of this name.
    """
    marker = request.node.get_closest_marker("scenario")
    return _found(getattr(request, "param", marker.args[0] if marker is not None and marker.args else None), request)


@pytest.fixture
def start_head(
    request: pytest.FixtureRequest, virtual_head_bench: Bench, scenario: str | None
) -> Callable[..., Head]:
    """Starts programs on heads: `start_head(program, **options)`, as `Head.start`. They end with the test."""

    def start(program: Any, **options: Any) -> Head:
        place = virtual_head_bench.place()
        options = {**virtual_head_bench.files(place), "scenario": _found(scenario, request), **options}
        head = Head.start(program, **options)
        virtual_head_bench.keep(place, head)
        return head

    return start


@pytest.fixture
def head(request: pytest.FixtureRequest, start_head: Callable[..., Head]) -> Head:
    """A head with the program that the marker `virtual_head` names. It ends with the test."""
    marker = request.node.get_closest_marker("virtual_head")
    if marker is None or not marker.args:
        raise pytest.UsageError("which program? Give the test the marker virtual_head(PROGRAM), or take start_head")
    return start_head(*marker.args, **marker.kwargs)


@pytest.fixture
def camhost(request: pytest.FixtureRequest, virtual_head_bench: Bench, scenario: str | None) -> Camhost:
    """The shipped host on a head, with the options of the marker `camhost`. It ends with the test."""
    marker = request.node.get_closest_marker("camhost")
    place = virtual_head_bench.place()
    options = {**virtual_head_bench.files(place), "scenario": _found(scenario, request),
               **(marker.kwargs if marker is not None else {})}
    host = Camhost.start(**options)
    virtual_head_bench.keep(place, host.head)
    request.addfinalizer(host.disconnect)  # the run itself ends with the others
    return host
