"""A camera stack's tests on a virtual head, in its continuous integration.

Install the packages camera-head-tools, sensor-board-3u5mgxs, python3-virtual-head and python3-pytest, copy this file, and
run it:

    pytest test_my_camera_stack.py

The host here is camhost. For a program of your own see `test_my_program_ends_well`. When a test fails, pytest says where
the log, the report and the waveforms of its run are; `virtual_head_output = FOLDER` in pytest's settings puts them where
your integration collects files.
"""

import shutil

import pytest

from virtual_head import CommandFailed

MY_PROGRAM = [shutil.which("true")]  # put your own one here, with its arguments


@pytest.fixture
def camera(camhost):
    """A camera that is up."""
    camhost.run("init")
    return camhost


def test_the_supplies_are_on_before_the_reset_is_released(camera):
    released = camera.head.wait_for("GPIO RESET_B = 1")
    before = camera.head.state(at=released.number - 1)
    assert all(supply.good for supply in before.supplies.values())


@pytest.mark.parametrize("asked", [100, 20000, 99000])
def test_the_exposure_is_what_was_asked_for_to_a_line(camera, asked):
    assert camera.run(f"exposure {asked}")["applied"] == pytest.approx(asked, abs=25)


def test_a_picture_comes_in_three_frames(camera):
    interval = camera.run("interval 99900")["applied"] / 1e6
    begin = camera.head.time().time_ns / 1e9
    camera.run("capture 300")
    picture = camera.head.picture()
    assert picture.time_ns / 1e9 - begin < 3 * interval
    assert (picture.width, picture.height) == (2592, 2056)


def test_the_link_comes_back_after_a_lane_was_lost(camera):
    camera.run("start")
    camera.run("wait 300")
    with camera.head.fault("lanes 3 lost"):
        camera.run("wait 100")
        assert not camera.head.state().link.aligned
    camera.run("stop")
    camera.run("init")
    camera.run("start")
    camera.run("wait 300")
    assert camera.head.state().link.aligned


@pytest.mark.scenario("dead-lane")
def test_a_dead_lane_is_told(camhost):
    with pytest.raises(CommandFailed, match="lane 3"):
        camhost.run("init")


@pytest.mark.scenario("[Supplies]\nVDD1.2 = 1.0\n")
def test_a_low_supply_keeps_the_sensor_in_reset(camhost):
    assert not camhost.run("init", check=False).ok
    assert camhost.head.state().sensor.doing != "streaming"


@pytest.mark.virtual_head(MY_PROGRAM)
def test_my_program_ends_well(head):
    assert head.wait(real=60) == 0
