#!/usr/bin/env python3
"""The documents hold together: links lead somewhere, docs/README.md lists each page, and what a page shows of a file is
what is in the file. The first day's device tree is compiled, and says what the plug-in looks for."""

import re
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]


def documents(folder):
    """Markdown files of the repository, not of build folders."""
    return sorted(path for path in folder.rglob("*.md") if "build" not in path.relative_to(folder).parts[:1])


def without_code(text):
    """A page without what is shown as it stands: fenced and indented blocks, code in a line."""
    text = re.sub(r"^```.*?^```$", "", text, flags=re.MULTILINE | re.DOTALL)
    text = re.sub(r"^    .*$", "", text, flags=re.MULTILINE)
    return re.sub(r"`[^`\n]*`", "", text)


def anchors(text):
    """The names by which headings can be linked: small letters, hyphens for blanks, no other signs."""
    fenced = re.sub(r"^```.*?^```$", "", text, flags=re.MULTILINE | re.DOTALL)
    headings = re.findall(r"^#+ (.*)$", fenced, flags=re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-") for heading in headings}


def dead_links(folder):
    """"PAGE: LINK" for each link of a page that leads nowhere."""
    dead = []
    for page in documents(folder):
        text = page.read_text(encoding="utf-8")
        for link in re.findall(r"\]\(([^)\s]+)\)", without_code(text)):
            if re.match(r"[a-z]+:", link):
                continue
            path, _, anchor = link.partition("#")
            target = (page.parent / path).resolve() if path else page
            found = target.exists() and folder.resolve() in (target, *target.parents)
            if found and anchor:
                found = target.suffix == ".md" and anchor in anchors(target.read_text(encoding="utf-8"))
            if not found:
                dead.append(f"{page.relative_to(folder)}: {link}")
    return dead


def index_faults(folder):
    """What is wrong with the index of the pages in a folder's docs/."""
    text = (folder / "docs/README.md").read_text(encoding="utf-8")
    listed = re.findall(r"^- \[([^\]]*)\]\(([^)]*)\): \S", text, flags=re.MULTILINE)
    pages = {path.name for path in (folder / "docs").glob("*.md")} - {"README.md"}
    names = [link for _, link in listed]
    faults = [f"{page} is not listed" for page in sorted(pages - set(names))]
    faults += [f"{name} is listed twice" for name in sorted({name for name in names if names.count(name) > 1})]
    faults += [f"{link} is called {title}" for title, link in listed if title != link]
    return faults


def blocks(page, language):
    """Fenced blocks of a page in a language."""
    text = (SOURCE / "docs" / page).read_text(encoding="utf-8")
    return re.findall(rf"^```{language}\n(.*?)^```$", text, flags=re.MULTILINE | re.DOTALL)


class Documents(unittest.TestCase):
    def test_links_lead_somewhere(self):
        self.assertEqual(dead_links(SOURCE), [])

    def test_the_index_has_each_page_once(self):
        self.assertEqual(index_faults(SOURCE), [])

    def test_what_porting_shows_of_the_examples_is_in_them(self):
        examples = "".join(path.read_text(encoding="utf-8") for path in sorted(SOURCE.glob("examples/*/*.cpp")))
        shown = blocks("porting.md", "cpp")
        self.assertGreaterEqual(len(shown), 3)
        for block in shown:
            self.assertTrue(block in examples, f"not in any example:\n{block}")

    def test_the_rules_that_are_shown_are_those_that_ship(self):
        rules = (SOURCE / "plugin/udev/60-camera-head.rules").read_text(encoding="utf-8")
        lines = [line + "\n" for line in rules.splitlines() if line and not line.startswith("#")]
        self.assertEqual(blocks("first-day.md", "udev"), ["".join(lines)])
        # Conditions, then what they do; udev passes over a line that it cannot read.
        pattern = r'(?:[A-Z]+=="[^"]+", )+GROUP="camera-head", MODE="0660"'
        for line in lines:
            self.assertRegex(line, rf"^{pattern}\n$")


class PlantedFaults(unittest.TestCase):
    """The checks above notice what they are for."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        (self.folder / "docs").mkdir()
        self.write("README.md", "# A title\n\n[page](docs/page.md), [part](docs/page.md#a-part-of-it), [web](https://x.example)\n")
        self.write("docs/page.md", "# Page\n\n## A `part`, of it\n\n`[code](nowhere.md)`\n\n    [shown](nowhere.md)\n")
        self.write("docs/README.md", "# Index\n\n- [page.md](page.md): a page\n")

    def write(self, name, text):
        (self.folder / name).write_text(text, encoding="utf-8")

    def test_sound_documents_pass(self):
        self.assertEqual(dead_links(self.folder), [])
        self.assertEqual(index_faults(self.folder), [])

    def test_a_missing_page(self):
        self.write("docs/page.md", "# Page\n\n## A part of it\n\n[other](other.md)\n")
        self.assertEqual(dead_links(self.folder), ["docs/page.md: other.md"])

    def test_a_missing_heading(self):
        self.write("docs/page.md", "# Page\n\n[here](#nowhere)\n")
        self.assertEqual(dead_links(self.folder), ["README.md: docs/page.md#a-part-of-it", "docs/page.md: #nowhere"])

    def test_a_link_out_of_the_repository(self):
        self.write("docs/page.md", "# Page\n\n## A part of it\n\n[out](../../)\n")
        self.assertEqual(dead_links(self.folder), ["docs/page.md: ../../"])

    def test_pages_that_the_index_lacks_or_has_twice(self):
        self.write("docs/other.md", "# Other\n")
        self.write("docs/README.md", "# Index\n\n- [page.md](page.md): a\n- [page.md](page.md): b\n- [Page](page.md): c\n")
        self.assertEqual(
            index_faults(self.folder), ["other.md is not listed", "page.md is listed twice", "page.md is called Page"])


class DeviceTree(unittest.TestCase):
    """The excerpt behind a tree with the labels that it needs."""

    BOARD = """/dts-v1/;
/ {
    #address-cells = <1>;
    #size-cells = <1>;
    soc {
        compatible = "simple-bus";
        #address-cells = <1>;
        #size-cells = <1>;
        ranges;
        spi1: spi@1000 { reg = <0x1000 0x100>; #address-cells = <1>; #size-cells = <0>; };
        i2c1: i2c@2000 { reg = <0x2000 0x100>; #address-cells = <1>; #size-cells = <0>; };
        gpio0: gpio@3000 { reg = <0x3000 0x100>; gpio-controller; #gpio-cells = <2>; };
    };
};
"""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.tree = Path(folder.name) / "board.dtb"
        excerpts = blocks("first-day.md", "dts")
        self.assertEqual(len(excerpts), 1)
        compiled = subprocess.run(
            ["dtc", "-I", "dts", "-O", "dtb", "-o", str(self.tree), "-"],
            input=self.BOARD + excerpts[0], capture_output=True, text=True, check=False)
        self.assertEqual((compiled.returncode, compiled.stderr), (0, ""))

    def get(self, node, name, kind="s"):
        got = subprocess.run(["fdtget", "--type", kind, str(self.tree), node, name], capture_output=True, text=True, check=True)
        return got.stdout.rstrip("\n")

    def test_the_port_is_spidev1_0(self):
        self.assertEqual(self.get("/aliases", "spi1"), "/soc/spi@1000")
        self.assertEqual(self.get("/soc/spi@1000/sensor@0", "reg", "u"), "0")
        # As the tree of the emulated board, with which Debian's kernel makes the device file.
        board = (SOURCE / "tests/kernel/device-tree.sh").read_text(encoding="utf-8")
        self.assertIn("compatible " + self.get("/soc/spi@1000/sensor@0", "compatible") + "\n", board)
        registers = (SOURCE / "sensor/registers.h").read_text(encoding="utf-8")
        clock = int(re.search(r"kClockHz = ([0-9']+);", registers)[1].replace("'", ""))
        self.assertEqual(int(self.get("/soc/spi@1000/sensor@0", "spi-max-frequency", "u")), clock)

    def test_the_lines_are_those_that_the_plug_in_looks_for(self):
        sources = "".join(path.read_text(encoding="utf-8") for path in sorted(SOURCE.glob("sensor/*.cpp")))
        sources += "".join(path.read_text(encoding="utf-8") for path in sorted(SOURCE.glob("plugin/*.cpp")))
        wanted = set(re.findall(r'"(PS_[0-9A-Z._]+_EN|RESET_B|EXT_TRIG_EN)"', sources))
        self.assertEqual(len(wanted), 5)
        names = self.get("/soc/gpio@3000", "gpio-line-names").split(" ")
        self.assertEqual({name for name in names if name}, wanted)
        board = (SOURCE / "tests/kernel/device-tree.sh").read_text(encoding="utf-8")
        places = {name: int(line) for line, name in re.findall(r"^    (\d+)\) names\+=\((\S+)\)", board, re.MULTILINE)}
        self.assertEqual({name: names.index(name) for name in wanted}, places)

    def test_the_bus_is_i2c_1_and_has_no_driver_for_the_monitor(self):
        self.assertEqual(self.get("/aliases", "i2c1"), "/soc/i2c@2000")
        nodes = subprocess.run(["fdtget", "--list", str(self.tree), "/soc/i2c@2000"], capture_output=True, text=True, check=True)
        self.assertEqual(nodes.stdout, "")


if __name__ == "__main__":
    unittest.main()
