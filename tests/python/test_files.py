"""Logs, recordings and pictures without a head."""

from array import array

import pytest

from virtual_head import BadFile, Pixels, log, recording
from virtual_head.picture import pixels_of

LOG = """\
[    0.000000000] OPEN /dev/mem
[    0.301003200] SPI 0F B9 04 36
[    1.301003201] OPEN /dev/gpiochip1 failed ENOENT
[  100.000000000] VIOLATION reset: the reset has failed EVERY time
"""

RECORDING = """\
virtual-head recording 1
[    0.000000000] open /dev/spidev1.0 rw cloexec = #1
[    0.000003200] ioctl #1 SPI_IOC_MESSAGE 0F B9 04 36 (10000000 Hz, 32 bits, read) = 4 | 00 00 00 01
[    0.000003200] open /dev/gpiochip0 rw = #2
[    0.000003200] ioctl #2 GPIO_V2_GET_LINE 5 as "pe\\20llum" flags 0x8 attribute 2 0x0 for 0x1 = #3
[    0.000003200] ioctl #3 GPIO_V2_LINE_SET_VALUES 0x1 = 0
[    0.000453200] load 0xFF210004 4 = 0x0000000F
[    0.000453200] read #4 2 = EIO
[    0.300453200] sleep 300000000 = EINTR left 1000
"""


class TestLog:
    def test_what_it_says(self, tmp_path):
        (tmp_path / "log").write_text(LOG)
        events = log.read(tmp_path / "log")
        assert events.texts[1] == "SPI 0F B9 04 36"
        assert [event.time_ns for event in events] == [0, 301003200, 1301003201, 100 * 10**9]
        assert events[1].data == bytes.fromhex("0FB90436")
        assert [event.failed for event in events] == [None, None, "ENOENT", None]
        assert events.violations.texts == [events[3].text]
        assert [str(event) for event in events] == LOG.splitlines()
        assert not events.truncated

    def test_a_line_that_was_cut_is_left_out(self):
        events = log.parse(LOG[:-1])
        assert len(events) == 3 and events.truncated

    def test_what_is_no_log(self, tmp_path):
        with pytest.raises(BadFile, match=r'here:2: "SPI" is no line'):
            log.parse("[    0.000000000] OPEN /dev/mem\nSPI\n", "here")
        with pytest.raises(OSError):
            log.read(tmp_path / "none")


class TestRecording:
    def test_what_it_says(self, tmp_path):
        (tmp_path / "run.rec").write_text(RECORDING)
        (tmp_path / "run.rec.2").write_text(recording.HEADING + "\n")
        calls, other = recording.read_all(tmp_path / "run.rec")
        assert len(other) == 0
        assert [call.name for call in calls] == ["open", "ioctl", "open", "ioctl", "ioctl", "load", "read", "sleep"]
        assert [call.result for call in calls] == [1, 4, 2, 3, 0, 15, None, None]
        assert [call.error for call in calls] == [None] * 6 + ["EIO", "EINTR"]
        assert [call.file for call in calls] == [1, 1, 2, 2, 3, None, 4, None]
        assert calls[1].data == b"\0\0\0\1"
        assert calls[1].time_ns == 3200 and calls[1].line == 3
        assert calls[3].arguments[4] == '"pe\\20llum"'
        assert [call.line for call in calls.select(device="/dev/gpiochip0")] == [4, 5, 6]
        assert [call.line for call in calls.select("ioctl", "/dev/spidev1.0")] == [3]
        assert [call.line for call in calls.failed] == [8, 9]

    def test_half_a_line(self):
        assert recording.parse(RECORDING + "[    0.3004").truncated

    def test_what_is_no_recording(self):
        for text in ("", "something\n", "virtual-head recording 2\n"):
            with pytest.raises(BadFile, match="x:1: this is no recording"):
                recording.parse(text, "x")
        for line in ("[    0.000000000] close #1", "close #1 = 0", "[    0.000000000] close #1 = "):
            with pytest.raises(BadFile, match="x:2: "):
                recording.parse(f"{recording.HEADING}\n{line}\n", "x")


class TestPixels:
    WIDTH, HEIGHT = 5, 4

    def both(self):
        numpy = pytest.importorskip("numpy")
        values = array("H", range(100, 100 + self.WIDTH * self.HEIGHT))
        return Pixels(self.WIDTH, self.HEIGHT, values), numpy.array(values).reshape(self.HEIGHT, self.WIDTH)

    @pytest.mark.parametrize(
        "index",
        [(1, 2), (-1, -1), (0, slice(1, 3)), (slice(1, 3), 2), (slice(1, 3), slice(0, 2)), 2, -4, slice(None, None, 2),
         (slice(None), slice(None, None, -1)), (slice(3, 0, -2), -2), (slice(4, 9), slice(1, 2))])
    def test_are_indexed_as_an_array(self, index):
        pixels, expected = self.both()
        given, wanted = pixels[index], expected[index]
        assert (given if isinstance(given, int) else list(given) if isinstance(given, array) else given.tolist()
                ) == wanted.tolist()
        assert not isinstance(given, Pixels) or given.shape == wanted.shape

    @pytest.mark.parametrize("index", [4, -5, (0, 5), (0, -6), (slice(None), 5), (4, slice(None))])
    def test_outside(self, index):
        pixels, expected = self.both()
        for one in (pixels, expected):
            with pytest.raises(IndexError):
                one[index]

    def test_the_rest(self):
        pixels, expected = self.both()
        assert (pixels.shape, pixels.size, len(pixels)) == (expected.shape, expected.size, len(expected))
        assert (pixels.min(), pixels.max(), pixels.mean()) == (expected.min(), expected.max(), expected.mean())
        assert [list(row) for row in pixels] == expected.tolist() == pixels.tolist()
        assert pixels == pixels[:] and pixels != pixels[1:]

    def test_of_bytes(self):
        assert pixels_of(b"\x01\x02\xff\xff", 2, 1).tolist() == [[0x0201, 0xFFFF]]
        with pytest.raises(ValueError, match="3 bytes are no 2 x 1 pixels"):
            pixels_of(b"123", 2, 1)
