#!/usr/bin/env python3
"""Runs the same jobs with the programs of two builds, and compares all that came of them to the byte:
output, status, log, summary, report, waveform, its drawing, recording and pictures. For a change of the
virtual head that must not be seen from outside.

The jobs are the main job on every scenario of data/scenarios/, random jobs of camhost on heads with random
faults, and random calls of the plug-in (tests/target/random_operations.cpp). Both builds get the same ones:
the seed is fixed unless given.

    scripts/compare-runs.py BUILD OTHER-BUILD [--lives N] [--seed N]

Exit status: 0 when all is the same, 1 when something differs, 2 for wrong usage."""

import argparse
import filecmp
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

SOURCE = Path(__file__).resolve().parent.parent
DEVICE = "/dev/spidev1.0"
# Says when the programs were built, which no two builds have in common.
BUILT = re.compile(rb'("|&quot;)SW:.*?("|&quot;)')


def any_milliseconds(chance):
    return chance.choice(["0.25", "3", "4.5", "20", "130", "400", "650"])


def any_lanes(chance):
    return "all" if chance.random() < 0.1 else " ".join(
        str(lane) for lane in sorted(chance.sample(range(12), chance.randint(1, 3))))


def any_fault(chance):
    rail = chance.choice(["VDD1.2", "VDD3.3AVDDH", "VDD3.3SVDD"])
    block = chance.choice(["base", "clock", "frame-control", "pwm", "bad-pixel", "pixel-shift"])
    how = chance.choice(["never", "lost", "late " + any_milliseconds(chance)])
    return chance.choice([
        chance.choice(["PLL", "locked", "rgLocked", "gbLocked"]) + " " + how,
        f"lanes {any_lanes(chance)} {how}",
        f"alignment {how}",
        "polarity " + chance.choice(["0x5D8", "0x000"]),
        f"rail {rail} {chance.choice(['0.9', '-0.3', '+0.1', 'unreadable', 'droops 0.3 over 20'])}",
        "ADC " + chance.choice(["fails ENXIO", "fails ETIMEDOUT", "short", "floats"]),
        "I2C missing",
        f"line {chance.choice(['RESET_B', 'PS_1.2V_EN', 'EXT_TRIG_EN'])} {chance.choice(['missing', 'busy'])}",
        "SPI " + chance.choice(["missing", "settings refused", "fails EIO", "short"]),
        "memory fails EACCES",
        f"block {block} {chance.choice(['unmappable', 'stuck'])}",
    ])


def any_scenario(chance):
    """The text of a scenario. Half of them leave the head healthy enough to capture."""
    lines = []
    if chance.random() < 0.15:
        lines += ["[Link]", f"lane{chance.randint(0, 11)} = {chance.choice(['never', '2', '7.5'])}"]
    if chance.random() < 0.1:
        lines += ["[Supplies]", f"VDD1.2 = {chance.choice(['1.25', '-0.05', '0.9'])}"]
    if chance.random() < 0.2:
        lines += ["[Failures]", f"one = ioctl {DEVICE} {chance.randint(1, 260)} "
                  f"{chance.choice(['EIO', 'short', 'ETIMEDOUT'])}"]
    if chance.random() < 0.2:
        lines += ["[Defects]", f"one = {chance.randint(0, 2591)} {chance.randint(0, 2055)} 4095"]
    for number in range(chance.choice([0, 0, 0, 1, 2])):
        lines += [f"[Fault f{number}]", f"what = {any_fault(chance)}"]
        begins = chance.choice([
            None, f"at = {any_milliseconds(chance)}", "after = 3 GPIO RESET_B = 1", "after = SPI 03 00 00 04"])
        lines += [begins] if begins else []
        lines += [f"for = {any_milliseconds(chance)}"] if chance.random() < 0.4 else []
    return "\n".join(lines) + "\n"


def any_command(chance):
    number = lambda *values: str(chance.choice(values))  # noqa: E731
    return chance.choice([
        lambda: "exposure " + number(0, 10, 100, 20000, 500000, 0x7FFFFFFF, -1),
        lambda: "interval " + number(0, 10, 5000, 50000, 1000000, -5),
        lambda: f"roi {number(0, 8, 512, 1024)} {number(0, 8, 512)} {number(64, 1024, 2592)} "
                f"{number(8, 514, 1028, 2056)}",
        lambda: "vbin " + number(1, 2, 3),
        lambda: f"mirror {chance.choice(['v', 'h'])} {chance.choice(['on', 'off'])}",
        lambda: "gain " + number(0, 1, 6, 100),
        lambda: "pattern " + chance.choice(["off", "sensor1", "sensor2", "bogus"]),
        lambda: "trigger " + chance.choice(["free", "external", "bogus"]),
        lambda: f"regfile write {chance.choice(['0x3D004', '0x3A004', '0x3A200'])} {number(0, 1, 2, 20000)}",
        lambda: "regfile read " + chance.choice(["0x3D004", "0x3A004", "0x3D000"]),
        lambda: f"poke {number('0x20', '0x436', '0x2')} {number(0, 1, 4)}",
        lambda: f"peek {number('0x20', '0x436', '0x2')}",
        lambda: "capture " + number(1, 60, 300),
        lambda: "start", lambda: "stop", lambda: "init", lambda: "info", lambda: "status", lambda: "dump",
        lambda: "wait " + number(1, 50),
        lambda: "clock " + number(0, 1, 2),
    ])()


def any_job(chance):
    commands = ["init"] if chance.random() < 0.9 else []
    commands += [any_command(chance) for _ in range(chance.randint(2, 14))]
    return "\n".join(commands + ["capture 120", "status"]) + "\n"


def jobs(seed, lives):
    """Name, scenario and commands of each job. A scenario or script is a path or a text."""
    for scenario in sorted((SOURCE / "data/scenarios").glob("*.ini")):
        yield scenario.stem, scenario, SOURCE / "data/main-job.camhost"
    for life in range(lives):
        chance = random.Random(f"{seed} {life}")
        yield f"life-{life}", any_scenario(chance), any_job(chance)


def anonymous(text, folder, build):
    """Without the names of the build and of the folder in which it ran, and without the build's time."""
    for place, name in ((build, b"BUILD"), (folder, b"FOLDER")):
        text = text.replace(os.fsencode(place), name)
    return BUILT.sub(rb'\1SW:\2', text)


def keep(folder, name, result, build):
    """Output and status."""
    (folder / f"{name}.out").write_bytes(anonymous(result.stdout, folder, build))
    (folder / f"{name}.err").write_bytes(anonymous(result.stderr, folder, build))
    (folder / f"{name}.status").write_text(f"{result.returncode}\n")


def run(build, folder, job):
    name, scenario, script = job
    folder = folder / name
    folder.mkdir()
    shutil.copytree(SOURCE / "data", folder / "data")
    given = []
    for what, text in (("scenario.ini", scenario), ("script", script)):
        if isinstance(text, str):
            (folder / what).write_text(text)
            text = what
        given.append(str(text))
    (folder / "frames").mkdir()
    options = ["--log", "log", "--summary", "summary", "--report", "report.html", "--vcd", "wires.vcd", "--record",
               "recording", "--workdir", "data", "--frames", "frames", "--max-frames", "2"]
    program = [f"{build}/bin/camhost", "--plugin", f"{build}/lib/sensor_board_3u5mgxs.so", "--spi", DEVICE,
               "--keep-going", "--echo", "../" + given[1] if given[1] == "script" else given[1]]
    keep(folder, "run", subprocess.run(
        [f"{build}/bin/virtual-head", "--scenario", given[0], *options, "--", *program],
        cwd=folder, capture_output=True, stdin=subprocess.DEVNULL, check=False), build)
    if (folder / "wires.vcd").exists():
        keep(folder, "draw", subprocess.run(
            [f"{build}/bin/virtual-head", "--draw", "wires.vcd", "wires.svg"], cwd=folder, capture_output=True,
            check=False), build)
    if (folder / "recording").exists():
        keep(folder, "replay", subprocess.run(
            [f"{build}/bin/virtual-head", "--replay", "recording", "--workdir", "data", "--", *program],
            cwd=folder, capture_output=True, stdin=subprocess.DEVNULL, check=False), build)
    for told in ("report.html", "summary", "log"):
        path = folder / told
        if path.exists():
            path.write_bytes(anonymous(path.read_bytes(), folder, build))


def random_calls(build, folder, seed):
    folder = folder / f"calls-{seed}"
    folder.mkdir()
    keep(folder, "calls", subprocess.run(
        [f"{build}/bin/random_operations", str(seed), "1", "60"], cwd=folder, capture_output=True, check=False), build)


def run_all(build, folder, arguments):
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        for done in [pool.submit(run, build, folder, job) for job in jobs(arguments.seed, arguments.lives)] + [
                pool.submit(random_calls, build, folder, arguments.seed + life) for life in range(arguments.lives)]:
            done.result()
    for option in ("--print-registers", "--print-rules", "--print-scenario-keys", "--help"):
        keep(folder, option, subprocess.run([f"{build}/bin/virtual-head", option], capture_output=True, check=False),
             build)


def files_of(folder):
    """What the programs made, by path. Not the settings files that they read."""
    paths = (path.relative_to(folder) for path in folder.rglob("*") if path.is_file())
    return {path for path in paths if "data" not in path.parts}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("builds", nargs=2, type=Path, metavar="BUILD")
    parser.add_argument("--lives", type=int, default=200)
    parser.add_argument("--seed", type=int, default=1)
    arguments = parser.parse_args()
    for build in arguments.builds:
        for program in ("virtual-head", "camhost", "random_operations"):
            if not (build / "bin" / program).is_file():
                parser.error(f"{build}/bin/{program} is missing: build all of this folder first")
    with tempfile.TemporaryDirectory() as temporary:
        # Folders of the same length: a path that is printed must not wrap or align otherwise.
        folders = [Path(temporary) / "1", Path(temporary) / "2"]
        # From a link of the same length, for the same reason.
        for folder, build in zip(folders, arguments.builds):
            link = Path(f"{folder}-build")
            link.symlink_to(build.resolve())
            folder.mkdir()
            run_all(str(link), folder, arguments)
        one, other = (files_of(folder) for folder in folders)
        differing = sorted(one ^ other) + sorted(
            path for path in one & other if not filecmp.cmp(folders[0] / path, folders[1] / path, shallow=False))
        for path in differing:
            print(f"differs: {path}")
        kinds = {}
        for path in one:
            kind = path.suffix or path.name
            kinds[kind] = kinds.get(kind, 0) + 1
        print(f"{len(one)} files compared, {len(differing)} differ: "
              + ", ".join(f"{count} {kind}" for kind, count in sorted(kinds.items())))
        return 1 if differing else 0


if __name__ == "__main__":
    sys.exit(main())
