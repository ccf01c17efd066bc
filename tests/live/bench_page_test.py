#!/usr/bin/env python3
"""The bench's page in a real browser, beside the shipped host application.

usage: bench_page_test.py BUILD SOURCE [unittest's arguments]
       bench_page_test.py BUILD SOURCE --pictures FOLDER   makes the pictures of docs/bench.md
"""

import base64
import json
import os
import re
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.request
import zlib

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from browser import PATIENCE_S, Browser  # noqa: E402

BUILD, SOURCE = (os.path.abspath(one) for one in sys.argv[1:3])
# Before each program of the target; the browser is this machine's.
EMULATOR = os.environ.get("EMULATOR", "").split()


class Run:
    """camhost's console on a head that is served. What it prints goes to files, so that it never waits."""

    def __init__(self, *options, port=0, program=()):
        self.folder = tempfile.TemporaryDirectory()
        self.printed = os.path.join(self.folder.name, "printed")
        self.complained = os.path.join(self.folder.name, "complained")
        camhost = (f"{BUILD}/bin/camhost", "--plugin", f"{BUILD}/lib/sensor_board_3u5mgxs.so", "--spi",
                   "/dev/spidev1.0", "--keep-going")
        program = program or camhost
        if program[0].startswith(BUILD):
            program = (*EMULATOR, *program)
        with open(self.printed, "w", encoding="utf-8") as output:
            self.process = subprocess.Popen(
                [*EMULATOR, f"{BUILD}/bin/virtual-head", "--workdir", f"{SOURCE}/data", "--serve", str(port), *options,
                 "--", *program], stdin=subprocess.PIPE, stdout=output, stderr=subprocess.PIPE, text=True,
                cwd=self.folder.name)
        said = self.process.stderr.readline()
        self.url = re.search(r"http://\S+", said)[0]
        self.obeyed = 0
        # A pipe that nobody reads would hold the program up.
        with open(self.complained, "w", encoding="utf-8") as errors:
            self.drain = subprocess.Popen(["cat"], stdin=self.process.stderr, stdout=errors)

    def send(self, *lines):
        self.process.stdin.write("".join(line + "\n" for line in lines))
        self.process.stdin.flush()

    def output(self):
        text = ""
        for path in (self.printed, self.complained):
            with open(path, encoding="utf-8") as file:
                text += file.read()
        return text

    def wait_printed(self, text, times=1):
        until = time.monotonic() + PATIENCE_S
        while self.output().count(text) < times:
            if time.monotonic() > until:
                raise TimeoutError(f"{text!r} was not printed {times} times:\n{self.output()}")
            time.sleep(0.05)

    def obey(self, *lines):
        """Returns when the console has carried them out."""
        self.obeyed += 1
        self.send(*lines, "status")
        self.wait_printed("test pattern", self.obeyed)

    def get(self, path):
        """Answers of the interface, when it has heard of all that has happened until now."""
        look = urllib.request.Request(self.url + "v1/look", method="POST")
        urllib.request.urlopen(look, timeout=PATIENCE_S).close()
        with urllib.request.urlopen(self.url.rstrip("/") + path, timeout=PATIENCE_S) as answer:
            return json.load(answer)

    def events(self):
        events = []
        while True:
            some = self.get(f"/v1/events?from={len(events)}")["events"]
            if not some:
                return events
            events += some

    def end(self):
        """The program's input ends. Returns the launcher's exit status."""
        if not self.process.stdin.closed:
            self.process.stdin.close()
        return self.process.wait(PATIENCE_S)

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        if self.process.poll() is None:
            self.process.terminate()
        if not self.process.stdin.closed:
            self.process.stdin.close()
        self.process.wait()
        self.drain.wait()
        self.process.stderr.close()
        self.folder.cleanup()


def words_of_png(path):
    """Width, height and the words of a grey PNG of 16 bits."""
    with open(path, "rb") as file:
        data = file.read()
    at, packed = 8, b""
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at:at + 8])
        if kind == b"IHDR":
            width, height, bits, colour = struct.unpack(">IIBB", data[at + 8:at + 18])
        elif kind == b"IDAT":
            packed += data[at + 8:at + 8 + length]
        at += 12 + length
    assert (bits, colour) == (16, 0)
    raw, stride = zlib.decompress(packed), 2 * width
    before, rows = bytearray(stride), []
    for row in range(height):
        start = row * (stride + 1)
        line = bytearray(raw[start + 1:start + 1 + stride])
        kind = raw[start]
        if kind == 2:
            line = bytearray((one + up) & 255 for one, up in zip(line, before))
        elif kind:
            for i in range(stride):
                left = line[i - 2] if i > 1 else 0
                up, corner = before[i], before[i - 2] if i > 1 else 0
                if kind == 1:
                    guess = left
                elif kind == 3:
                    guess = (left + up) // 2
                else:
                    guess = min((abs(up - corner), 0, left), (abs(left - corner), 1, up),
                                (abs(left + up - 2 * corner), 2, corner))[2]
                line[i] = (line[i] + guess) & 255
        rows.append(struct.unpack(f">{width}H", line))
        before = line
    return width, height, [word for row in rows for word in row]


def shown_values(browser):
    """What the drawing says, by the keys of its lines; lanes by their labels."""
    return browser.run("""(() => {
        const shown = {};
        for (const one of document.querySelectorAll('.slot')) shown[one.dataset.key] = one.querySelector('.value').textContent;
        for (const one of document.querySelectorAll('.lane-button')) shown['lane' + one.dataset.lane] = one.getAttribute('aria-label');
        shown.event = document.querySelector('#drawing').dataset.event;
        return shown; })()""")


def expected_values(state):
    """What the drawing has to say of a state of the interface."""
    yes = {True: "yes", False: "no"}
    link = state["link"]
    expected = {"doing": state["sensor"]["doing"], "sensor": "awake" if state["sensor"]["awake"] else "asleep",
                "reset": "-" if state["reset"]["level"] is None else str(state["reset"]["level"]),
                "clock": f"{state['clock_mhz']:g} MHz", "core": yes[link["enabled"]],
                "pll": yes[link["pll"]["locked"]], "pll-rg": yes[link["pll"]["rg_locked"]],
                "pll-gb": yes[link["pll"]["gb_locked"]], "aligned": yes[link["aligned"]],
                "bad-pixels": yes[state["pipeline"]["bad_pixels_run"]],
                "violations": str(state["violations"]), "failed": str(state["failed_calls"]),
                "event": str(state["event"])}
    for number, supply in enumerate(state["supplies"]):
        nominal = re.search(r"\d\.\d", supply["name"])[0]
        expected[f"supply{number}-volts"] = f"{supply['volts']:.4f} V of {nominal} V"
        measured = supply["measured"]
        expected[f"supply{number}-measured"] = f"{measured['volts']:.4f} V" if measured else "-"
        expected[f"supply{number}-verdict"] = measured["verdict"] if measured else "not measured"
    for number, lane in enumerate(link["lanes"]):
        word = "in reset" if lane["reset"] else \
            ("locked, held" if lane["held"] else "locked") if lane["locked"] else \
            "not locked" if link["enabled"] or lane["event"] is not None else "off"
        expected[f"lane{number}"] = f"Lane {number}: {word}"
    return expected


class BenchPage(unittest.TestCase):
    """The page with camhost's console beside it."""

    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)

    def setUp(self):
        self.browser.size(1280, 900)

    def open(self, run):
        self.browser.go("about:blank")
        self.browser.wait("location.href === 'about:blank'")
        self.browser.said.clear()
        self.browser.requests.clear()
        self.browser.go(run.url)
        self.browser.wait(f"location.href.startsWith({json.dumps(run.url)}) && document.body?.dataset.run", "the page")

    def shows(self, state):
        """Waits until the drawing shows a state."""
        expected, until = expected_values(state), time.monotonic() + PATIENCE_S
        while True:
            shown = shown_values(self.browser)
            differences = {key: (value, shown.get(key)) for key, value in expected.items() if shown.get(key) != value}
            if not differences:
                return
            if time.monotonic() > until:
                self.fail(f"expected and shown: {differences}")
            time.sleep(0.05)

    def quiet(self, run):
        """The browser complains of nothing, and the page asked nobody but its own bench."""
        self.assertEqual(self.browser.said, [])
        strange = [one for one in self.browser.requests if not one.startswith((run.url, "data:", "about:"))]
        self.assertEqual(strange, [])

    def test_follows_an_init(self):
        with Run() as run:
            self.open(run)
            self.browser.wait_text("#connection-text", "connected")
            run.obey("init")
            self.browser.wait("document.querySelector('[data-lane=\"11\"]').getAttribute('aria-label') === "
                              "'Lane 11: locked, held'", "lane 11 locks")
            self.browser.wait_text("[data-key=doing] .value", "stopped")
            self.shows(run.get("/v1/state"))
            shown = shown_values(self.browser)
            self.assertEqual(shown["supply0"], "VDD1.2 good")
            self.assertEqual(shown["locked"], "12 of 12")
            registers = run.get("/v1/registers")
            self.browser.wait(f"document.querySelectorAll('#register-fpga tr').length === {len(registers['fpga'])}")
            rows = self.browser.run("""[...document.querySelectorAll('#register-sensor tr')].map((row) =>
                [row.dataset.address, row.children[1].firstChild.textContent, row.querySelector('a').textContent])""")
            self.assertEqual(rows, [[one["address"], one["hex"], f"event {one['event']}"]
                                    for one in registers["sensor"]])
            self.assertGreater(len(rows), 30)
            self.assertIn("hd_max 1980 frame length [lines]".split()[0], self.browser.text("[data-address='0x012']"))
            self.quiet(run)

    def test_makes_a_dead_lane_and_ends_it(self):
        with Run() as run:
            self.open(run)
            run.obey("init")
            self.browser.wait_text("[data-key=locked] .value", "12 of 12")
            self.browser.click("[data-lane='3']")
            self.browser.wait_text("#fault-list", "lanes 3 lost")
            self.browser.wait("document.querySelector('[data-lane=\"3\"]').getAttribute('aria-label') === "
                              "'Lane 3: not locked, made dead'", "lane 3 is dead")
            self.assertEqual(run.get("/v1/state")["faults"], ["fault 1"])
            run.obey("init")
            run.wait_printed("lane 3 of 12 did not lock")
            texts = [event["text"] for event in run.events()]
            self.browser.run(f"location.hash = '#event-{len(texts) - 1 - texts[::-1].index('STATE LANE11-LOCK 1')}'")
            self.browser.wait_text("[data-key=locked] .value", "11 of 12")
            self.browser.click("#event-now")
            self.assertIn("lanes 3 lost", urllib.request.urlopen(run.url + "v1/scenario").read().decode())
            self.browser.click("[data-fault='fault 1'] button")
            self.browser.wait_text("[data-fault='fault 1']", "over")
            run.obey("init")
            self.browser.wait_text("[data-key=locked] .value", "12 of 12")
            self.assertEqual(run.get("/v1/state")["faults"], [])
            self.quiet(run)

    def test_shows_the_picture_to_the_last_bit(self):
        with Run("--frames", "shots") as run:
            self.open(run)
            run.obey("init", "mirror v off", "mirror h off", "roi 1024 0 2592 256", "bpp 16bit", "capture 200")
            about = run.get("/v1/picture")
            count = about["pictures"]
            self.browser.wait(f"document.querySelector('#picture-canvas').dataset.picture === '1 {count}'", "the picture")
            shades = base64.b64decode(self.browser.run("""(() => {
                const canvas = document.querySelector('#picture-canvas');
                const { data } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
                let text = '';
                for (let at = 0; at < data.length; at += 4) text += String.fromCharCode(data[at]);
                return btoa(text); })()"""))
            left, top, width, height = self.browser.place("#picture-canvas")
            read = []
            for across, down in ((0.003, 0.01), (0.5, 0.5), (0.31, 0.73), (0.997, 0.99)):
                self.browser.hover(left + across * width, top + down * height)
                read.append(self.browser.text("#pixel"))
            self.browser.run("document.querySelector('#picture-canvas').focus()")
            self.browser.key("ArrowLeft")
            self.browser.key("ArrowUp", modifiers=8)  # with Shift
            read.append(self.browser.text("#pixel"))
            settings = self.browser.text("#picture-settings")
            self.quiet(run)
            self.assertEqual(run.end(), 0)
            with open(os.path.join(run.folder.name, "shots", f"frame-{count:04}.png"), "rb") as file:
                width, height, words = words_of_png(file.name)
        self.assertEqual((width, height), (2592, 256))
        self.assertEqual(shades, bytes(word >> 8 for word in words))
        self.assertGreater(len(set(words)), 1000)
        places = []
        for text in read:
            x, y, word = (int(one) for one in re.match(r"x (\d+), y (\d+): (\d+) ", text).groups())
            self.assertEqual(word, words[y * width + x], text)
            places.append((x, y))
        self.assertEqual(places[4], (places[3][0] - 1, places[3][1] - 10))
        self.assertEqual(len(set(places)), 5)
        self.assertIn("exposure" + about["settings"]["exposure"], settings)

    def test_goes_back_to_any_event(self):
        with Run("--log", "log") as run:
            self.open(run)
            run.obey("init")
            events = run.events()
            with open(os.path.join(run.folder.name, "log"), encoding="utf-8") as file:
                log = [line.rstrip("\n").split("] ", 1)[1] for line in file]
            self.assertEqual([one["text"] for one in events if one["kind"] != "STATE"], log)
            texts = [one["text"] for one in events]
            for text in ("GPIO RESET_B = 1", "STATE LANE5-LOCK 1", "STATE VDD3.3SVDD-GOOD 1"):
                number = texts.index(text)
                self.browser.run(f"location.hash = '#event-{number}'")
                self.shows(run.get(f"/v1/state?at={number}"))
                self.browser.wait_text("tr[aria-current]", text)
                self.browser.wait_text("#past-text", f"event {number}, ")
                # by keyboard, one event back
                self.browser.run("document.querySelector('#event-range').focus()")
                self.browser.key("ArrowLeft")
                before = run.get(f"/v1/state?at={number - 1}")
                self.shows(before)
                levels = [line.split()[-1] for line in texts[:number] if re.match(r"GPIO RESET_B .*[01]$", line)]
                self.assertEqual(shown_values(self.browser)["reset"], levels[-1] if levels else "-")
                registers = run.get(f"/v1/registers?at={number - 1}")
                self.browser.wait(f"document.querySelectorAll('#register-sensor tr[data-address]').length === "
                                  f"{len(registers['sensor'])}")
            self.assertNotEqual(before["event"], run.get("/v1/state")["event"])
            self.assertTrue(self.browser.run("document.querySelector('[data-lane=\"0\"]').disabled"))
            self.browser.wait("document.querySelector('#waveform').naturalWidth > 0", "the waveform")
            # what happens meanwhile does not take the user away
            run.obey()
            self.shows(before)
            # by kind, and back to now
            self.browser.run("const kind = document.querySelector('#event-kind'); kind.value = 'GPIO'; "
                             "kind.dispatchEvent(new Event('change'))")
            self.browser.click("#event-back")
            self.browser.wait_text("tr[aria-current]", "GPIO ")
            self.browser.click("#event-now")
            self.shows(run.get("/v1/state"))
            self.assertTrue(self.browser.run("document.querySelector('#past').hidden"))
            self.quiet(run)

    def test_survives_the_end_and_takes_up_a_new_run(self):
        with Run() as run:
            self.open(run)
            self.browser.run("window.sameDocument = true")
            run.send("init")
            self.browser.wait_text("[data-key=locked] .value", "12 of 12")
            self.browser.run("location.hash = '#event-20'")
            self.browser.wait_text("#past-text", "event 20, ")
            self.assertEqual(run.end(), 0)
            self.browser.wait_text("#connection-text", "the program has ended with status 0; connection lost, trying again")
            port = run.url.rstrip("/").rsplit(":", 1)[1]
        with Run(port=port, program=("sh", "-c", "read line; exit 7", "<b id=injected>bold</b>")) as run:
            self.browser.wait("document.querySelector('#connection').dataset.state === 'connected'", "the new run")
            self.browser.wait_text("#program", "<b id=injected>bold</b>")
            self.assertIsNone(self.browser.text("#injected"))
            self.assertIsNone(run.get("/v1/state")["process"])
            self.browser.wait_text("#time-kind", "no program uses the head")
            self.browser.wait_text("[data-key=locked] .value", "0 of 12")
            self.assertEqual(self.browser.run("document.querySelectorAll('#event-rows tr').length"), 0)
            self.assertTrue(self.browser.run("window.sameDocument"))
            self.assertTrue(self.browser.run("document.querySelector('#past').hidden"))
            self.assertEqual(self.browser.text("#complaint"), "")
            run.process.stdin.close()
            self.browser.wait_text("#connection-text", "the program has ended with status 7")

    def test_stays_when_the_bench_does(self):
        with Run("--keep-serving", program=(f"{BUILD}/bin/camhost", "--version")) as run:
            self.open(run)
            self.browser.wait_text("#connection-text", "the program has ended with status 0")
            self.assertEqual(self.browser.run("document.querySelector('#connection').dataset.state"), "ended")
            self.quiet(run)

    def test_tells_violations_with_reason_and_remedy(self):
        with Run() as run:
            self.open(run)
            run.obey("init", "mirror v off", "mirror h off", "roi 1536 192 192 64", "poke 0x90 0x20000", "poke 0x6C 8",
                     "capture 200")
            self.browser.wait_text("#news-list .violation", "pairs-flip")
            text = self.browser.text("#news-list .violation")
            self.assertIn("Why: Every two lines of the image change places.", text)
            self.assertIn("Instead: Set pairs flip together with the vertical scan direction.", text)
            self.browser.wait_text("#news-count", f"{run.get('/v1/state')['violations']} violations")
            number = int(self.browser.run("document.querySelector('#news-list .violation').dataset.event"))
            self.assertEqual(run.events()[number]["kind"], "VIOLATION")
            self.browser.click("#news-list .violation a")
            self.shows(run.get(f"/v1/state?at={number}"))

    def test_tells_first_what_the_sensor_does_not_hold(self):
        with Run() as run:
            self.open(run)
            run.obey("init")
            self.browser.wait_text("#register-differences", "The sensor holds what the program sent.")
            held = {one["address"] for one in run.get("/v1/registers")["sensor"]}
            # a supply that fails and comes back: the sensor wakes without its registers
            self.browser.run("""fetch('/v1/faults', {method: 'POST', headers: {'Content-Type': 'application/json'},
                body: JSON.stringify({what: 'rail VDD1.2 0.2', name: 'dip', for: '20'})})""")
            self.browser.wait_text("#fault-list", "rail VDD1.2 0.2")
            run.obey("capture 100")
            differences = run.get("/v1/registers")["differences"]
            self.assertGreater(len(differences), 20)
            self.assertLessEqual({one["address"] for one in differences}, held)
            self.browser.wait_text("#register-differences h3", f"was sent: {len(differences)}")
            row = self.browser.text(f"[data-difference='{differences[0]['address']}']")
            self.assertIn(f"{differences[0]['sent']:#010x}".upper().replace("0X", "0x"), row)
            self.assertIn("nothing", row)
            self.assertIn(f"event {differences[0]['event']}", row)
            self.quiet(run)

    def test_says_what_the_interface_refuses(self):
        with Run() as run:
            self.open(run)
            self.browser.run("document.querySelector('#fault-form').closest('details').open = true")
            self.browser.run("document.querySelector('#fault-form [name=what]').value = 'cat on keyboard'")
            self.browser.click("#fault-form button")
            self.browser.wait_text("#complaint", "what \"cat on keyboard\" is no fault; GET /v1/faults lists the kinds")
            self.browser.run("document.querySelector('#fault-form [name=what]').value = 'PLL lost'")
            self.browser.run("document.querySelector('#fault-form [name=name]').value = 'early'")
            self.browser.click("#fault-form button")
            self.browser.wait_text("[data-fault=early]", "PLL lost")
            self.assertEqual(self.browser.text("#complaint"), "")
            self.assertEqual(run.get("/v1/faults")["made"][0]["name"], "early")

    def test_stops_steps_and_goes(self):
        with Run("--stopped") as run:
            self.open(run)
            self.browser.wait_text("#time-note", "stopped")
            self.browser.click("#time-step")
            self.browser.wait_text("#event-rows", "OPEN")
            self.assertEqual(run.get("/v1")["next_event"], 1)
            self.browser.click("#time-go")
            run.send("init")
            self.browser.wait_text("[data-key=locked] .value", "12 of 12")
            self.assertFalse(run.get("/v1/time")["stopped"])

    def test_lights_up_what_changed(self):
        self.addCleanup(self.browser.media)
        with Run("--time", "real") as run:
            self.open(run)
            run.send("init", "capture 600000")
            self.browser.wait_text("[data-key=doing] .value", "streaming")
            self.browser.wait_text("#time-note", "real time cannot be stopped")
            self.browser.wait("document.querySelector('#time-stop').disabled", "time cannot be stopped")
            self.browser.wait("!document.querySelector('.slot.changed:not([data-key=pictures])')", "all is quiet")
            self.browser.run("""window.lit = {}; new MutationObserver((all) => { for (const { target } of all) {
                if (!target.classList.contains('changed')) continue;
                const light = target.querySelector('.light') ?? target;
                lit[target.dataset.key ?? target.dataset.lane] = getComputedStyle(light).animationName; } }).observe(
                  document.querySelector('.head-drawing'), {subtree: true, attributes: true, attributeFilter: ['class']});""")
            self.browser.click("[data-lane='3']")
            self.browser.wait("window.lit.locked && window.lit.aligned && window.lit.faults")
            lit = self.browser.run("window.lit")
            self.assertEqual(lit["3"], "fade-button")
            self.assertEqual(lit["locked"], "fade")
            self.assertLessEqual(set(lit), {"3", "locked", "aligned", "faults", "frames", "pictures"})
            self.browser.wait("!document.querySelector('[data-key=locked].changed')", "the light goes out")
            self.browser.media(prefers_reduced_motion="reduce")
            self.browser.run("window.lit = {}")
            self.browser.click("[data-lane='3']")
            self.browser.wait("window.lit.faults")
            self.assertEqual(self.browser.run("window.lit.faults"), "none")
            self.quiet(run)

    def test_asks_seldom_and_not_when_nobody_looks(self):
        with Run() as run:
            self.open(run)
            self.browser.wait_text("#connection-text", "connected")
            self.browser.run("""const fetched = window.fetch; window.states = [];
                window.fetch = (path, ...rest) => {
                  if (String(path).startsWith('/v1/state')) window.states.push(performance.now());
                  return fetched(path, ...rest); };""")
            for _ in range(20):
                run.send("init")
                time.sleep(0.03)
            run.obey()
            self.shows(run.get("/v1/state"))
            times = self.browser.run("window.states")
            self.assertGreater(len(times), 1)
            self.assertGreaterEqual(min(after - before for before, after in zip(times, times[1:])), 95)
            hide = "Object.defineProperty(document, 'hidden', {{value: {}, configurable: true}}); " \
                   "document.dispatchEvent(new Event('visibilitychange')); window.states.length"
            time.sleep(0.3)
            asked = self.browser.run(hide.format("true"))
            run.obey("init")
            self.browser.wait(f"Number(document.querySelector('#event-range').max) === {run.get('/v1')['next_event'] - 1}",
                              "the stream goes on")
            self.assertEqual(self.browser.run("window.states.length"), asked)
            self.browser.run(hide.format("false"))
            self.shows(run.get("/v1/state"))

    def test_is_worked_by_keyboard(self):
        with Run() as run:
            self.open(run)
            run.obey("init")
            self.browser.wait_text("[data-key=locked] .value", "12 of 12")
            for _ in range(60):
                self.browser.key("Tab")
                if self.browser.run("document.activeElement.dataset?.lane === '7'"):
                    break
            else:
                self.fail("the tab key does not reach lane 7")
            self.assertNotEqual(self.browser.run("getComputedStyle(document.activeElement).outlineStyle"), "none")
            self.browser.key("Enter", text="\r")
            self.browser.wait("document.querySelector('[data-lane=\"7\"]').getAttribute('aria-pressed') === 'true'")
            self.assertTrue(self.browser.run("document.activeElement.dataset.lane === '7'"))
            self.browser.key("Enter", text="\r")
            self.browser.wait("document.querySelector('[data-lane=\"7\"]').getAttribute('aria-pressed') === 'false'")
            self.assertEqual(run.get("/v1/state")["faults"], [])
            unnamed = self.browser.run("""[...document.querySelectorAll('button, input, select')].filter((one) =>
                !one.textContent.trim() && !one.labels?.length && !one.getAttribute('aria-label')).map((one) => one.id)""")
            self.assertEqual(unnamed, [])

    def test_fits_wherever_it_is_shown(self):
        with Run() as run:
            self.open(run)
            run.obey("init", "capture 100")
            self.shows(run.get("/v1/state"))
            for width in (360, 768, 1280, 2560):
                self.browser.size(width, 900)
                self.browser.wait(f"innerWidth === {width}")
                self.assertLessEqual(self.browser.run("document.documentElement.scrollWidth"), width)
                state = run.get("/v1/state")
                self.shows(state)
                out = self.browser.run("""(() => { const frame = document.querySelector('.head-drawing').getBoundingClientRect();
                    return [...document.querySelectorAll('.slot text')].filter((one) => { const box = one.getBoundingClientRect();
                      return box.right > frame.right || box.bottom > frame.bottom; }).map((one) => one.textContent); })()""")
                self.assertEqual(out, [], f"at {width} pixels")


def make_pictures(folder):
    """Wide light, wide dark, narrow, a dead lane."""
    with Browser() as browser, Run() as run:
        run.obey("init", "mirror v off", "mirror h off", "bpp 16bit", "capture 200")
        browser.size(1440, 900)
        browser.go(run.url)
        browser.wait("document.querySelector('#picture-canvas')?.dataset.picture", "the picture")
        browser.run("document.querySelector('#program').textContent = 'camhost --plugin sensor_board_3u5mgxs.so'")
        for name, width, height, scheme in (("wide-light", 1440, 1180, "light"), ("wide-dark", 1440, 1180, "dark"),
                                            ("narrow", 360, 1100, "light")):
            browser.size(width, height)
            browser.media(prefers_color_scheme=scheme)
            time.sleep(2)
            browser.shot(os.path.join(folder, f"bench-{name}.png"))
    # in real time, a lane dies while pictures come
    with Browser(1200, 760) as browser, Run("--time", "real") as run:
        run.send("init", "capture 20000")
        browser.go(run.url)
        browser.wait_text("[data-key=doing] .value", "streaming")
        browser.wait("document.querySelector('#picture-canvas')?.dataset.picture", "the picture")
        browser.click("[data-lane='3']")
        browser.wait_text("[data-key=locked] .value", "11 of 12")
        browser.wait_text("#fault-list", "lasts")
        time.sleep(2)
        browser.run("document.querySelector('#head').scrollIntoView({block: 'start', behavior: 'instant'})")
        browser.shot(os.path.join(folder, "bench-dead-lane.png"))


if __name__ == "__main__":
    if sys.argv[3:4] == ["--pictures"]:
        make_pictures(sys.argv[4])
    else:
        unittest.main(argv=[sys.argv[0], *sys.argv[3:]], verbosity=2)
