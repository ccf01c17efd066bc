"""Heads that tests start, ask and break. The program is the shipped host."""

import os
import re
import subprocess
import threading
import time

import pytest

import virtual_head
from virtual_head import Camhost, Head

DATA = os.environ["VIRTUAL_HEAD_DATA"]
CAMHOST = os.environ["CAMHOST"]
PLUGIN = os.environ["CAMHOST_PLUGIN"]


def job(*commands):
    """camhost that carries out commands and ends."""
    words = [CAMHOST, "--plugin", PLUGIN, "--spi", "/dev/spidev1.0"]
    for command in commands:
        words += ["-c", command]
    return words


@pytest.fixture
def up(camhost):
    camhost.run("init")
    return camhost


class TestBeginAndEnd:
    def test_a_program_that_ends_leaves_its_head_to_be_asked(self):
        with Head.start(job("init"), workdir=DATA, errors=None) as head:
            assert head.wait() == 0
            assert not head.runs
            assert head.info().status == 0
            assert head.info().program[0] == CAMHOST
            assert head.state().violations == 0
            assert head.state().event == head.next_event - 1
            assert "init: result 0: success" in head.output
            assert head.exit_status is None
            assert head.summary == ""
        assert head.exit_status == 0
        assert "violations: none" in head.summary
        with pytest.raises(virtual_head.Unreachable):
            head.state()
        assert head.close() == 0

    def test_the_status_of_a_program_that_failed(self):
        with Head.start(job("exposure no-number"), workdir=DATA, errors=None) as head:
            assert head.wait() == 6
        assert head.exit_status == 6
        assert "exposure" in head.errors

    def test_standard_error_is_passed_on_without_waiting_for_the_end(self):
        lines = []
        with Head.start(["sh", "-c", "echo to standard error >&2; exec sleep 100"], time="real", errors=lines.append) as head:
            head.wait_for_error("^to standard error$", real=20)
            assert "to standard error\n" in lines
            assert head.runs

    def test_a_program_that_takes_no_signal_is_killed_with_all_that_it_started(self):
        head = Head.start(["sh", "-c", "trap '' TERM; echo ready $$ >&2; while :; do sleep 1; done"], errors=None)
        process = int(head.wait_for_error(r"^ready ([0-9]+)$", real=20)[1])
        begun = time.monotonic()
        assert head.close(real=0.5) == 128 + 9
        assert time.monotonic() - begun < 15
        for _ in range(500):
            if not os.path.exists(f"/proc/{process}") or open(f"/proc/{process}/stat").read().split()[2] == "Z":
                break
            time.sleep(0.01)
        else:
            pytest.fail("the program goes on")

    def test_what_cannot_be_started(self, tmp_path):
        with pytest.raises(virtual_head.NotStarted, match="no-such-launcher"):
            Head.start(["true"], launcher=tmp_path / "no-such-launcher")
        with pytest.raises(virtual_head.NotStarted, match="unknown key|Suplies|section"):
            Head.start(["true"], scenario="[Suplies]\nVDD1.2 = 1\n", errors=None)
        try:
            with Head.start([tmp_path / "no-program"], errors=None) as head:
                assert head.wait() == 127
        except virtual_head.NotStarted as error:  # the launcher was quicker
            assert "no-program" in str(error)

    def test_without_a_launcher_in_path_or_environment(self, monkeypatch):
        monkeypatch.delenv("VIRTUAL_HEAD")
        monkeypatch.setenv("PATH", "/nonexistent")
        with pytest.raises(virtual_head.NotStarted, match="camera-head-tools"):
            Head.start(["true"])

    def test_the_launcher_in_path(self, monkeypatch, tmp_path):
        (tmp_path / "virtual-head").symlink_to(os.environ["VIRTUAL_HEAD"])
        monkeypatch.delenv("VIRTUAL_HEAD")
        monkeypatch.setenv("PATH", f"{tmp_path}:{os.environ['PATH']}")
        with Head.start(["true"], errors=None) as head:
            assert head.wait() == 0

    def test_a_second_client_attaches(self, up):
        other = Head.attach(up.head.address)
        assert other.state().link.aligned == up.head.state().link.aligned
        assert other.close() is None
        assert up.head.runs
        with pytest.raises(virtual_head.HeadError, match="attached"):
            other.wait_for_error("x")

    def test_addresses_that_are_none(self):
        for address in ("http://127.0.0.1/", "ftp://127.0.0.1:1/", "127.0.0.1:99999999", "nonsense"):
            with pytest.raises(virtual_head.HeadError, match="no address"):
                Head.attach(address)
        with pytest.raises(virtual_head.Unreachable, match="127.0.0.1:1/"):
            Head.attach("127.0.0.1:1")

    def test_files_of_the_run(self, tmp_path):
        with Head.start(job("init", "capture 300"), workdir=DATA, log=tmp_path / "log", report=tmp_path / "report.html",
                        vcd=tmp_path / "vcd", record=tmp_path / "rec", frames=tmp_path / "frames", max_frames=1,
                        summary=tmp_path / "summary", errors=None) as head:
            assert head.wait() == 0
            told = [event for event in head.events() if event.kind not in ("STATE", "NOTE")]
        assert "violations: none" in (tmp_path / "summary").read_text() == head.summary
        assert "<html" in (tmp_path / "report.html").read_text()
        assert "$timescale" in (tmp_path / "vcd").read_text()
        assert len(list((tmp_path / "frames").glob("*.png"))) == 1
        kept = virtual_head.log.read(tmp_path / "log")
        assert not kept.truncated
        assert kept.texts == [event.text for event in told]
        assert [event.time_ns for event in kept] == [event.time_ns for event in told]
        recording = virtual_head.recording.read(tmp_path / "rec")
        sent = [event.data for event in kept if event.data]
        assert len(recording.select("ioctl", "/dev/spidev1.0")) >= len(sent) > 90


class TestState:
    def test_of_a_head_that_is_up(self, up):
        state = up.head.state()
        assert {name: round(supply.volts, 3) for name, supply in state.supplies.items()} == {
            "VDD1.2": 1.2, "VDD3.3SVDD": 3.3, "VDD3.3AVDDH": 3.3}
        measured = state.supplies["VDD1.2"].measured
        assert measured.good and measured.lowest < measured.volts < measured.highest
        assert state.reset.level == 1
        assert state.clock_mhz == 36.0
        assert len(state.link.lanes) == 12
        assert state.lines["RESET_B"].direction == "out"
        assert state.spi["BITS"] == 32
        assert state.process.time == "virtual" and state.process.running
        assert state.conversions[0].steps > 0
        assert "12" not in state.raw

    def test_behind_an_event(self, up):
        released = up.head.events(text="GPIO RESET_B = 1")[0]
        assert up.head.state(at=released.number).reset.level == 1
        assert up.head.state(at=released.number - 1).reset.level == 0
        with pytest.raises(virtual_head.Refused, match="is not kept") as refused:
            up.head.state(at=10**9)
        assert refused.value.status == 404

    def test_members_that_nobody_knows_yet_break_nothing(self, up, monkeypatch):
        told = dict(up.head._client.get("/v1/state"))
        told["weather"] = "fine"
        told["link"] = {**told["link"], "colour": "red"}
        told["supplies"] = [{**one, "maker": "unknown"} for one in told["supplies"]]
        state = virtual_head.state.build(virtual_head.State, told)
        assert state.raw["weather"] == "fine"
        assert state.link.locked_lanes == up.head.state().link.locked_lanes

    def test_a_member_that_is_missing_is_named(self, up):
        told = dict(up.head._client.get("/v1/state"))
        del told["link"]
        with pytest.raises(virtual_head.HeadError, match='"link" of State'):
            virtual_head.state.build(virtual_head.State, told)

    def test_it_cannot_be_changed(self, up):
        state = up.head.state()
        with pytest.raises(AttributeError):
            state.time_ns = 0
        with pytest.raises(TypeError):
            state.supplies["VDD1.2"] = None


class TestRegisters:
    def test_by_name(self, up):
        up.run("interval 50000")
        registers = up.head.registers()
        assert registers["hd_max"] == up.run("peek hd_max")["value"]
        assert registers.register("0x012")["hd_max"] == registers["hd_max"]
        assert registers.register(0x12).value == registers["hd_max"]
        assert "hd_max" in registers
        assert registers.differences == ()

    def test_of_the_fpga(self, up):
        register = up.head.registers().register(0xFF210000)
        assert register.block == "Frame control"
        assert up.head.registers().field(register.fields[0].name, block="Frame control") == register.fields[0].value

    def test_of_an_area(self, up):
        told = dict(up.head._client.get("/v1/registers"))
        first = next(one for one in told["sensor"] if one["fields"])
        name = first["fields"][0]["name"]
        second = {**first, "address": "0x7FF", "area": 2, "fields": [{**first["fields"][0], "value": 4711}]}
        told["sensor"] = [*told["sensor"], second]
        registers = virtual_head.state.build(virtual_head.Registers, told)
        assert registers.field(name, area=2) == 4711
        assert registers[name] == first["fields"][0]["value"]

    def test_names_that_there_are_not(self, up):
        registers = up.head.registers()
        with pytest.raises(KeyError, match="near are .*hd_max"):
            registers["hd_mox"]
        with pytest.raises(KeyError, match="not known"):
            registers.register("0xFFF")
        with pytest.raises(KeyError, match="has no field"):
            registers.register("0x012")["no_such"]


class TestEvents:
    def test_all_of_them_in_their_order(self, up):
        up.run("start")
        up.run("wait 20000")
        up.run("stop")
        events = up.head.events()
        assert len(events) > 1000  # more than one page
        assert [event.number for event in events] == list(range(len(events)))
        assert all(earlier.time_ns <= later.time_ns for earlier, later in zip(events, events[1:]))
        assert up.head.events(10, 20) == events[10:20]
        assert up.head.events(10, 10) == events[10:10]

    def test_filters(self, up):
        events = up.head.events()
        assert up.head.events(kind="SPI") == events.select(kind="SPI")
        assert {event.kind for event in up.head.events(kind=["SPI", "ADC"])} == {"SPI", "ADC"}
        assert up.head.events(text="GPIO RESET_B = 1").texts == ["GPIO RESET_B = 1"]
        assert up.head.events(text="GPIO RESET_B =").texts != []
        assert up.head.events(text="GPIO RESET_").texts == []
        assert up.head.events(text=re.compile("RESET_B = [01]$")) == events.select(text=re.compile("RESET_B = [01]$"))

    def test_as_they_come(self):
        with Head.start(job("init"), workdir=DATA, stopped=True, errors=None) as head:
            threading.Timer(0.3, head.go).start()
            seen = list(head.follow(kind="SPI"))
            assert seen == list(head.events(kind="SPI"))
            assert len(seen) > 90

    def test_nothing_comes(self):
        with Head.start(["sleep", "100"], time="real", errors=None) as head:
            with pytest.raises(virtual_head.WaitFailed, match="no event for 0.2 s"):
                list(head.follow(real=0.2))


class TestWaiting:
    def test_for_events_in_their_order(self, up):
        head = up.head
        low = head.wait_for("GPIO RESET_B out 0")
        high = head.wait_for("GPIO RESET_B = 1")
        assert high.number > low.number
        first = head.wait_for(re.compile("^ADC 0 "), since=0)
        second = head.wait_for(re.compile("^ADC "))
        assert second.number > first.number

    def test_an_event_that_comes_later(self, up):
        mark = up.head.next_event
        timer = threading.Timer(0.3, lambda: up.run("exposure 1000"))
        timer.start()
        event = up.head.wait_for(re.compile("^SPI "), since=mark)
        timer.join()
        assert event.number >= mark

    def test_for_a_state(self, up):
        up.run("start")
        state = up.head.wait_for(lambda state: state.sensor.doing == "streaming")
        assert state.sensor.doing == "streaming"

    def test_a_clock_that_stands_ends_the_wait_by_real_time(self, up):
        begun = time.monotonic()
        with pytest.raises(virtual_head.WaitFailed) as failed:
            up.head.wait_for("GPIO NO_SUCH_LINE = 1", within=1000, real=0.3)
        assert time.monotonic() - begun < 10
        text = str(failed.value)
        assert '"GPIO NO_SUCH_LINE = 1" did not come within 0.3 s of real time' in text
        assert f"last event: {up.head.events()[-1]}" in text
        assert "lanes locked" in text
        with pytest.raises(virtual_head.WaitFailed, match="real time"):
            up.head.wait_for(lambda state: False, real=0.2)

    def test_a_deadline_of_the_heads_time(self, up):
        up.run("start")
        timer = threading.Timer(0.2, lambda: up.run("wait 5000"))
        timer.start()
        with pytest.raises(virtual_head.WaitFailed, match="within 2 s of the head's time"):
            up.head.wait_for(lambda state: False, within=2, real=60)
        timer.join()
        # An event behind the deadline is no success.
        mark = up.head.next_event
        timer = threading.Timer(0.2, lambda: (up.run("wait 3000"), up.run("stop"), up.run("exposure 2000")))
        timer.start()
        with pytest.raises(virtual_head.WaitFailed, match="within 1 s of the head's time"):
            up.head.wait_for("NOTE never", within=1, since=mark, real=60)
        timer.join()

    def test_a_program_that_has_ended(self):
        with Head.start(job("init"), workdir=DATA, errors=None) as head:
            begun = time.monotonic()
            with pytest.raises(virtual_head.ProgramEnded, match="ended, with status 0; last event: .*GPIO|status 0"):
                head.wait_for("NOTE never", real=100)
            with pytest.raises(virtual_head.ProgramEnded):
                head.wait_for(lambda state: False, real=100)
            assert time.monotonic() - begun < 30
            assert head.wait_for("GPIO RESET_B = 1").text == "GPIO RESET_B = 1"

    def test_an_error_that_is_never_said(self):
        with Head.start(["sh", "-c", "echo said >&2"], errors=None) as head:
            with pytest.raises(virtual_head.ProgramEnded, match="said"):
                head.wait_for_error("not that")
            assert isinstance(virtual_head.ProgramEnded(""), TimeoutError)


class TestFaults:
    def test_for_a_block(self, up):
        up.run("start")
        up.run("wait 500")
        assert up.head.state().link.aligned
        with up.head.fault("lanes 3 lost") as fault:
            up.run("wait 100")
            assert fault.lasts
            assert up.head.state().link.locked_lanes == [0, 1, 2, 4, 5, 6, 7, 8, 9, 10, 11]
        assert not fault.lasts
        assert f"[Fault {fault.name}]" in up.head.scenario()

    def test_at_an_event_and_for_a_time(self, camhost):
        fault = camhost.head.make_fault("rail VDD1.2 0.9", name="low rail", after="1 GPIO PS_1.2V_EN = 1", lasts=5000)
        reply = camhost.run("init", check=False)
        assert not reply.ok
        assert camhost.head.wait_for("NOTE fault low rail begins").process == 1
        fault.end()
        assert camhost.head.state().faults == ()

    def test_refusals_have_the_heads_reason(self, up):
        with pytest.raises(virtual_head.Refused, match='"lanes 99 lost"') as refused:
            up.head.make_fault("lanes 99 lost")
        assert refused.value.status in (400, 409)
        with pytest.raises(virtual_head.Refused, match="is no fault; GET"):
            up.head.make_fault("coffee spilled")
        with pytest.raises(virtual_head.Refused):
            up.head.end_fault("nobody's / own?")
        assert any("lanes" in kind for kind in up.head.fault_kinds())
        assert up.head.state().faults == ()

    def test_a_block_whose_program_ends_ends_well(self, camhost):
        with camhost.head.fault("lanes 3 never"):
            camhost.close()

    def test_the_first_error_of_a_block_is_the_one_that_is_seen(self, camhost):
        with pytest.raises(ZeroDivisionError):
            with camhost.head.fault("lanes 3 never") as fault:
                fault.end()
                raise ZeroDivisionError


class TestTime:
    def test_stops_steps_and_goes(self):
        with Head.start(job("init"), workdir=DATA, stopped=True, errors=None) as head:
            head.wait_for(lambda state: state.process is not None and state.process.stopped)
            assert head.next_event == 0
            head.step()
            assert [event.text for event in head.events()] == ["OPEN /dev/mem"]
            head.step(2)
            assert len(head.events()) == 3
            assert head.time().stopped and head.time().mode == "virtual"
            assert head.info().status is None
            head.go()
            assert head.wait() == 0
            with pytest.raises(virtual_head.ProgramEnded, match="no step: the program has ended, with status 0"):
                head.step()
        with pytest.raises(ValueError, match="0 steps"):
            head.step(0)

    def test_a_block_in_which_time_stands(self, up):
        with up.head.stopped() as now:
            assert now.stopped
        assert not up.head.time().stopped
        assert up.run("exposure 1000").ok

    def test_a_program_that_is_stopped_can_be_ended(self):
        head = Head.start(job("init"), workdir=DATA, stopped=True, errors=None)
        head.wait_for(lambda state: state.process is not None)
        begun = time.monotonic()
        head.close(real=20)
        assert time.monotonic() - begun < 15

    def test_real_time_cannot_be_stopped(self):
        with Head.start(job("init", "wait 3000"), workdir=DATA, time="real", errors=None) as head:
            head.wait_for(lambda state: state.process is not None)
            assert head.time().mode == "real"
            with pytest.raises(virtual_head.Refused, match="time is real") as refused:
                head.stop()
            assert refused.value.status == 409


class TestCamhost:
    def test_replies(self, up):
        reply = up.run("exposure 20004")
        assert (reply["asked"], reply["applied"], reply.result, reply.status) == (20004, 20000, 0, 0)
        assert reply.text.startswith("exposure: asked 20004 us")
        assert set(reply) >= {"command", "ok", "applied"}

    def test_failures_are_raised_or_told(self, up):
        with pytest.raises(virtual_head.CommandFailed, match='did you mean "exposure"') as failed:
            up.run("exposur 1")
        assert failed.value.status == 6 and failed.value.result is None
        assert not up.run("exposur 1", check=False).ok
        assert up.run("exposure").ok
        for command in ("", "  ", "start\nstop", "start\rstop"):
            with pytest.raises(ValueError, match="no command"):
                up.run(command)

    @pytest.mark.scenario("dead-lane")
    def test_a_dead_lane_is_explained(self, camhost):
        with pytest.raises(virtual_head.CommandFailed) as failed:
            camhost.run("init")
        assert failed.value.result == -2
        assert "lane 3" in failed.value.reply["explanation"]["what"] or "lane 3" in str(failed.value)
        assert failed.value.reply["explanation"]["causes"]

    def test_after_its_end(self, camhost):
        camhost.head.close()
        with pytest.raises(virtual_head.Unreachable, match="gone"):
            camhost.run("status")

    def test_a_command_that_takes_too_long(self):
        with Camhost.start(time="real", errors=None) as camhost:
            with pytest.raises(virtual_head.WaitFailed, match='"wait 60000" within 0.3 s'):
                camhost.run("wait 60000", real=0.3)
            with pytest.raises((virtual_head.Unreachable, ValueError)):
                camhost.run("status")

    def test_a_host_that_does_not_start(self, tmp_path):
        with pytest.raises(virtual_head.ProgramEnded, match="nothing.so"):
            Camhost.start(plugin=tmp_path / "nothing.so", errors=None)

    def test_the_progress_of_a_diagnosis(self, camhost):
        reply = camhost.run("diagnose power")
        assert reply["verdict"]["status"] == 0
        assert reply.ok


class TestPictures:
    def test_none_yet(self, camhost):
        for ask in (camhost.head.picture, camhost.head.picture_png, camhost.head.picture_pixels):
            with pytest.raises(virtual_head.Refused, match="no picture") as refused:
                ask()
            assert refused.value.status == 404

    def test_info_png_and_pixels(self, up):
        numpy = pytest.importorskip("numpy")
        up.run("capture 300")
        info = up.head.picture()
        assert (info.width, info.height) == (2592, 2056)
        assert info.pictures >= 1 and info.settings
        assert up.head.picture_png().startswith(b"\x89PNG\r\n")
        pixels = up.head.picture_pixels()
        assert isinstance(pixels, numpy.ndarray) and pixels.dtype == numpy.uint16
        assert pixels.shape == (2056, 2592)
        assert pixels.max() > pixels.min()
        pixels[0, 0] = 1  # it is the caller's own

    def test_without_numpy_they_are_the_same(self, up):
        numpy = pytest.importorskip("numpy")
        up.run("roi 512 0 2592 1028")
        up.run("capture 300")
        expected = up.head.picture_pixels()
        code = (
            "import sys; sys.modules['numpy'] = None\n"
            "from virtual_head import Head, Pixels\n"
            "pixels = Head.attach(sys.argv[1]).picture_pixels()\n"
            "assert type(pixels) is Pixels\n"
            "print(*pixels.shape, *[value for row in pixels for value in row])\n")
        told = subprocess.run([os.sys.executable, "-B", "-c", code, up.head.address], capture_output=True, text=True,
                              check=True)
        rows, columns, *values = map(int, told.stdout.split())
        assert (rows, columns) == expected.shape
        assert numpy.array_equal(numpy.array(values).reshape(rows, columns), expected)

    def test_the_waveform_of_some_events(self, up):
        assert up.head.waveform().lstrip().startswith("<svg") or "<svg" in up.head.waveform()
        assert "RESET_B" in up.head.waveform(0, 200)
        with pytest.raises(virtual_head.Refused, match="up to 2000 events"):
            up.head.waveform(0, 5000)
