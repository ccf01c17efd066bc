#!/usr/bin/env python3
"""Makes the guest's root out of the target's packages and test programs, boots the emulated board with it, and
unpacks what the guest hands over. See README.md."""

from __future__ import annotations

import argparse
import json
import os
import shutil
import subprocess
import sys
import tarfile
import time
from pathlib import Path

import jobs
import root_archive

SOURCE = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "scripts"))
import run_tests # noqa: E402

HERE = Path(__file__).resolve().parent

# The guest's processor does an instruction in 8 ns of its time, however long the emulator takes, and where it has
# nothing to do, its time goes on at once. So a busy machine changes nothing, and a sleep takes no time of ours.
CLOCK = "shift=3,align=off,sleep=off"
LONGEST = 1100 # [s], for a machine that is busy; less than CTest waits


def run(*command: str | Path) -> None:
    subprocess.run([str(word) for word in command], check=True, stdout=subprocess.DEVNULL)


def strip(program: Path, to: Path) -> None:
    to.parent.mkdir(parents=True, exist_ok=True)
    run("arm-linux-gnueabihf-strip", "-o", to, program)


class Guest:
    """The guest's root, and one run of it."""

    def __init__(self, folder: Path, armhf: Path, release: Path) -> None:
        self.folder = folder
        self.armhf = armhf
        self.release = release
        self.root = folder / "root"
        self.tests = tests_for_the_guest(armhf)
        self.jobs = jobs.jobs(armhf, self.tests)
        self.write_plan()

    def write_plan(self) -> None:
        """For the checks: what is to be found in the results."""
        plan = {"jobs": [job.name for job in self.jobs], "tests": self.tests}
        self.folder.joinpath("plan.json").write_text(json.dumps(plan, indent=1) + "\n", encoding="utf-8")

    def make_root(self) -> None:
        shutil.rmtree(self.root, ignore_errors=True)
        libraries = self.folder / "libraries"
        run(SOURCE / "scripts/armhf-root.sh", libraries)
        shutil.copytree(libraries, self.root, symlinks=True, ignore=shutil.ignore_patterns("doc", "DEBIAN", "man"))
        for package in sorted((self.armhf / "packages").glob("*_armhf.deb")):
            run("dpkg-deb", "--extract", package, self.root)
        kernel = self.folder / "kernel"
        shutil.copy(kernel / "busybox", self.made("bin/busybox"))
        (self.root / "bin/sh").symlink_to("busybox")
        shutil.copytree(kernel / "modules", self.root / "lib/modules")
        for name in ("proc", "sys", "dev", "mnt", "tmp", "etc"):
            (self.root / name).mkdir(exist_ok=True)
        shutil.copy(HERE / "guest/init", self.root / "init")
        shutil.copy(HERE / "guest/qemu-arm-static", self.made("usr/bin/qemu-arm-static"))
        shutil.copy(HERE / "guest/functions", self.made("guest/functions"))
        (self.root / "guest/jobs").write_text(jobs.script(self.jobs), encoding="utf-8")
        for name in ("kernel_lines", "kernel_questions"):
            strip(self.armhf / "bin" / name, self.root / "usr/bin" / name)
        self.add_tests()

    def add_tests(self) -> None:
        """Test programs where they were built: they know the folders."""
        build = self.root / self.armhf.relative_to("/")
        for name in [*self.tests, "camhost", "virtual-head", "head_program"]:
            strip(self.armhf / "bin" / name, build / "bin" / name)
        for library in (self.armhf / "lib").iterdir():
            if library.is_symlink():
                (build / "lib").mkdir(exist_ok=True)
                (build / "lib" / library.name).symlink_to(os.readlink(library))
            elif ".so" in library.name:
                strip(library, build / "lib" / library.name)
        shutil.copytree(SOURCE / "data", self.root / SOURCE.relative_to("/") / "data")

    def made(self, name: str) -> Path:
        """A place in the root, with its folder."""
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        return path

    def make_heads(self) -> None:
        heads = self.folder / "heads"
        shutil.rmtree(heads, ignore_errors=True)
        heads.mkdir()
        for job in self.jobs:
            if job.scenario:
                (heads / f"{job.name}.ini").write_text(job.scenario, encoding="utf-8")
        lines = jobs.head_lines(self.jobs, str(heads))
        (heads / "list").write_text("\n".join(lines) + "\n", encoding="utf-8")

    def boot(self) -> None:
        with open(self.folder / "root.cpio", "wb") as out:
            root_archive.pack(self.root, out)
        wires = self.folder / "wires"
        for last in (wires, self.folder / "results"): # nothing of an earlier boot is taken for this one's
            shutil.rmtree(last, ignore_errors=True)
        wires.mkdir()
        kernel = self.folder / "kernel"
        command = [
            "qemu-system-arm", "-M", "sabrelite", "-m", "1024M", "-display", "none", "-monitor", "none",
            "-nic", "none", "-no-reboot", "-icount", CLOCK,
            "-serial", f"file:{self.folder}/results.tar.gz", "-serial", f"file:{self.folder}/console",
            "-kernel", str(kernel / "vmlinuz"), "-dtb", str(kernel / "board.dtb"),
            "-initrd", str(self.folder / "root.cpio"),
            "-append", "console=ttymxc1 loglevel=4",
            "-plugin", f"file={self.release}/lib/emulated_board.so,folder={wires},heads={self.folder}/heads/list",
        ]
        began = time.monotonic()
        before = os.times()
        try:
            outcome = subprocess.run(command, stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                                     check=False, timeout=LONGEST)
        except subprocess.TimeoutExpired:
            sys.exit(f"the emulator did not end within {LONGEST} s; the guest's console:\n{self.console()}")
        after = os.times()
        processor = after.children_user - before.children_user + after.children_system - before.children_system
        if outcome.returncode != 0:
            sys.exit(f"the emulator ended with {outcome.returncode}: {outcome.stderr}")
        print(f"booted, did {len(self.jobs)} jobs and switched off in {time.monotonic() - began:.0f} s, "
              f"{processor:.0f} s of a processor")

    def unpack(self) -> None:
        try:
            with tarfile.open(self.folder / "results.tar.gz") as archive:
                archive.extractall(self.folder / "results")
        except (tarfile.TarError, EOFError, OSError) as error:
            sys.exit(f"the guest handed nothing over ({error}); its console:\n{self.console()}")

    def console(self) -> str:
        """The end of what the guest's kernel said."""
        return (self.folder / "console").read_text(encoding="utf-8", errors="replace")[-4000:]


def tests_for_the_guest(armhf: Path) -> dict[str, list[str]]:
    """What the target's test programs have of tests/not-emulated.txt, by program."""
    listing = subprocess.run(["ctest", "--test-dir", armhf, "--show-only=json-v1"], check=True, stdout=subprocess.PIPE)
    patterns = run_tests.patterns_of((SOURCE / "tests/not-emulated.txt").read_text(encoding="utf-8"))
    not_here = run_tests.patterns_of((HERE / "not-here.txt").read_text(encoding="utf-8"))
    found: dict[str, list[str]] = {}
    for test in json.loads(listing.stdout)["tests"]:
        command = test.get("command", [])
        if "--leave-out" not in command or "--name" not in command:
            continue
        program = command[command.index("--name") + 1]
        if program in found:
            continue # another share of the same
        ask = [*command[command.index("--") + 1:], "--gtest_list_tests"]
        listed = subprocess.run(ask, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
        found[program] = [name for name in run_tests.listed(listed)
                          if run_tests.left_out(name, patterns) and not run_tests.left_out(name, not_here)]
    return {program: names for program, names in found.items() if names}


def main(arguments: list[str]) -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("folder", type=Path, help="of the stage")
    parser.add_argument("armhf", type=Path, help="build folder of the target")
    parser.add_argument("release", type=Path, help="build folder of the build machine")
    options = parser.parse_args(arguments)
    guest = Guest(options.folder.resolve(), options.armhf.resolve(), options.release.resolve())
    guest.make_root()
    guest.make_heads()
    guest.boot()
    guest.unpack()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
