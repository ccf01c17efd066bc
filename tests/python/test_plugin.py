"""The plug-in for pytest, by tests that pytest runs inside of these."""

import os
import re
from pathlib import Path

import pytest


@pytest.fixture
def inner(pytester):
    """Runs a file of tests as a camera stack does."""

    def run(text, settings=""):
        pytester.makeini("[pytest]\naddopts = --strict-markers\n" + settings)
        pytester.makepyfile(text)
        return pytester.runpytest_subprocess("-p", "virtual_head.pytest_plugin", "-p", "no:cacheprovider", "-rA")

    return run


FILES = ["errors.txt", "head.log", "output.txt", "report.html", "scenario.ini", "summary.txt", "waveform.svg", "waveform.vcd"]


def test_a_failure_says_where_the_run_is(inner):
    result = inner("""
        def test_fails(camhost):
            camhost.run("init")
            camhost.head.make_fault("lanes 3 lost", name="late")
            assert camhost.run("exposure 20004")["applied"] == 1
    """)
    result.assert_outcomes(failed=1)
    place = Path(re.search(r"^log, report and waveforms of the run: (.*)$", result.stdout.str(), re.M)[1])
    assert sorted(path.name for path in place.iterdir()) == FILES
    assert "SPI " in (place / "head.log").read_text()
    assert "<html" in (place / "report.html").read_text()
    assert "<svg" in (place / "waveform.svg").read_text()
    assert "[Fault late]" in (place / "scenario.ini").read_text()
    assert "violations: none" in (place / "summary.txt").read_text()
    assert place.parts[-1] == "virtual-head"


def test_a_failure_in_the_folder_of_the_settings(inner, pytester):
    result = inner("""
        import pytest
        @pytest.mark.parametrize("which", ["a/b"])
        def test_fails(camhost, which):
            assert False
        def test_passes(camhost):
            pass
    """, "virtual_head_output = kept\n")
    result.assert_outcomes(failed=1, passed=1)
    places = list((pytester.path / "kept").iterdir())
    assert [place.name for place in places] == [
        "test_a_failure_in_the_folder_of_the_settings.py-test_fails-a-b"]
    assert str(places[0]) in result.stdout.str()


def test_a_run_that_passes_leaves_nothing(inner):
    result = inner("""
        def test_passes(camhost, tmp_path):
            camhost.run("init")
            print("FOLDER", tmp_path)
    """)
    result.assert_outcomes(passed=1)
    folder = Path(re.search(r"^FOLDER (.*)$", result.stdout.str(), re.M)[1])
    assert list(folder.iterdir()) == []
    assert "log, report" not in result.stdout.str()


def test_scenarios(inner, pytester):
    (pytester.path / "low.ini").write_text("[Supplies]\nVDD1.2 = 1.0\n")
    inner("""
        import pytest

        def lost(camhost):
            camhost.run("init", check=False)
            state = camhost.head.state()
            return [name for name, supply in state.supplies.items() if supply.volts < 1.1], state.link.locked_lanes

        def test_healthy(camhost, scenario):
            assert scenario is None
            assert lost(camhost)[0] == []

        @pytest.mark.scenario("low.ini")
        def test_a_file_beside_the_test(camhost):
            camhost.run("init", check=False)
            assert camhost.head.events(text="ADC 0")[0].text != "ADC 0 0x7AE"
            assert camhost.head.scenario().startswith("[Supplies]")

        @pytest.mark.scenario("dead-lane")
        def test_one_that_ships(camhost, scenario):
            assert scenario.endswith("dead-lane.ini")
            assert 3 not in lost(camhost)[1]

        @pytest.mark.parametrize("scenario", ["dead-lane", "[Link]\\nlane5 = never\\n"], indirect=True)
        def test_parametrized(camhost, scenario):
            assert len(lost(camhost)[1]) == 11

        @pytest.mark.parametrize("scenario", ["dead-lane"])
        def test_parametrized_directly(camhost, scenario):
            assert len(lost(camhost)[1]) == 11
    """).assert_outcomes(passed=6)


def test_a_scenario_that_there_is_not(inner):
    result = inner("""
        import pytest
        @pytest.mark.scenario("no-such")
        def test_it(camhost):
            pass
    """)
    result.assert_outcomes(errors=1)
    result.stdout.fnmatch_lines(["*there is no scenario no-such; looked for *no-such.ini*"])


def test_heads_of_programs_of_ones_own(inner):
    data = os.environ["VIRTUAL_HEAD_DATA"]
    inner(f"""
        import os, pytest
        PROGRAM = [os.environ["CAMHOST"], "--plugin", os.environ["CAMHOST_PLUGIN"], "-c", "init"]

        @pytest.mark.virtual_head(PROGRAM, workdir="{data}")
        def test_by_marker(head):
            assert head.wait() == 0

        def test_two(start_head, virtual_head_bench):
            heads = [start_head(PROGRAM, workdir="{data}") for _ in range(2)]
            assert [head.wait() for head in heads] == [0, 0]
            assert heads[0].address != heads[1].address
            assert (virtual_head_bench.folder / "run-2" / "head.log").exists()
    """).assert_outcomes(passed=2)
    result = inner("def test_without_a_marker(head):\n    pass\n")
    result.assert_outcomes(errors=1)
    result.stdout.fnmatch_lines(["*which program? Give the test the marker*"])


BREAKS = """
    import os, pytest
    def breaks(start_head):
        # A driver that writes a register which is not there.
        program = ["sh", "-c", "exec " + os.environ["HEAD_PYTHON"] + " -c 'import fcntl, os; "
                   "fcntl.ioctl(os.open(\\"/dev/gpiochip0\\", os.O_RDWR), 0x1234)'"]
        assert start_head(program).wait() != 0
"""


def test_a_rule_that_was_broken_fails_the_test(inner, monkeypatch):
    monkeypatch.setenv("HEAD_PYTHON", os.sys.executable)
    result = inner(BREAKS + """
    def test_it(start_head):
        breaks(start_head)
    @pytest.mark.rules_may_break
    def test_on_purpose(start_head):
        breaks(start_head)
    """)
    result.assert_outcomes(passed=2, errors=1)
    result.stdout.fnmatch_lines(["*the program broke rules of the head:", "*VIOLATION *"])
    result.stdout.fnmatch_lines(["log, report and waveforms of the run: *"])
    inner(BREAKS + """
    def test_it(start_head):
        breaks(start_head)
    """, "virtual_head_strict = false\n").assert_outcomes(passed=1)


def test_no_program_is_left(inner):
    result = inner("""
        def test_it(camhost):
            print("PROCESS", camhost.head.wait_for(lambda state: state.process is not None).process.pid)
    """)
    result.assert_outcomes(passed=1)
    process = re.search(r"^PROCESS ([0-9]+)$", result.stdout.str(), re.M)[1]
    assert not os.path.exists(f"/proc/{process}")
