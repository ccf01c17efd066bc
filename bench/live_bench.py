#!/usr/bin/env python3
"""What it costs a program that somebody looks at its head while it runs.

    bench/live_bench.py build/release

A register access, an `initialize` as a person waits for it, and the processor's time of one, each without --serve, with
it, and with a client that follows every event, in turns; the best of each counts. Only the ratios mean anything. Aims: at
most 1.1 with a client, of a register access and of an initialize in real time. An initialize sleeps for most of its time;
of what is left, which is all that takes time in virtual time, some 580 events are a fifth.
"""

import pathlib
import re
import resource
import subprocess
import sys
import threading
import time
import urllib.request

ROUNDS = 8
INITIALIZATIONS = 300
REAL_INITIALIZATIONS = 2


def follow(address: str) -> None:
    try:
        with urllib.request.urlopen(address + "v1/stream?from=0") as stream:
            while stream.read1(65536):
                pass
    except OSError:
        pass  # the run is over


def run(launcher: list[str], options: list[str], program: list[str], client: bool) -> str:
    process = subprocess.Popen([*launcher, "--summary", "/dev/null", *options, "--", *program], text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if client:
        line = process.stderr.readline()
        threading.Thread(target=follow, args=[re.search(r"http://\S+", line)[0]], daemon=True).start()
    output, errors = process.communicate()
    if process.returncode != 0:
        sys.exit(f"live_bench: {program[0]} failed:\n{output}{errors}")
    return output


def cost_of_child(what: str, command: list[str]) -> None:
    """Prints the seconds that a command takes, as the head's program: "--cpu" or "--wall"."""
    begun = time.monotonic()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    wall = time.monotonic() - begun
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    print(wall if what == "--wall" else usage.ru_utime + usage.ru_stime)


def main() -> None:
    build = pathlib.Path(sys.argv[1]).resolve()
    data = pathlib.Path(__file__).resolve().parent.parent / "data"
    launcher = [str(build / "bin/virtual-head"), "--workdir", str(data)]
    camhost = [str(build / "bin/camhost"), "--plugin", str(build / "lib/sensor_board_3u5mgxs.so"), "--spi",
               "/dev/spidev1.0"]
    measured = [sys.executable, __file__]
    real = ["--time", "real"]
    many, few = ["-c", "init"] * INITIALIZATIONS, ["-c", "init"] * REAL_INITIALIZATIONS
    # What, its program, options of the head, its unit in what the program prints.
    rows = [
        ("register access [ns]", [str(build / "bin/live_cost")], [], 1),
        ("initialize in real time [ms]", [*measured, "--wall", *camhost, *few], real, 1e3 / REAL_INITIALIZATIONS),
        ("initialize, processor [us]", [*measured, "--cpu", *camhost, *many], [], 1e6 / INITIALIZATIONS),
    ]
    ways = {"without": ([], False), "served": (["--serve", "0"], False), "followed": (["--serve", "0"], True)}
    for what, program, common, unit in rows:
        best = dict.fromkeys(ways, float("inf"))
        for _ in range(ROUNDS):
            for way, (options, client) in ways.items():
                best[way] = min(best[way], float(run(launcher, [*common, *options], program, client).split()[0]))
        print(what, *(f"{way} {cost * unit:.0f} ({cost / best['without']:.2f})" for way, cost in best.items()), sep="\n  ")


if __name__ == "__main__":
    if sys.argv[1:2] in (["--cpu"], ["--wall"]):
        cost_of_child(sys.argv[1], sys.argv[2:])
    else:
        main()
