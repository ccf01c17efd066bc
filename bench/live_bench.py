#!/usr/bin/env python3
"""What it costs a program that somebody looks at its head while it runs.

    bench/live_bench.py build/release

A register access and an `initialize`, each without --serve, with it, and with a client that follows every event, in
turns; the best of each counts. Only the ratios mean anything. Aims: 1.0 with --serve and nobody there, at most 1.1 with a
client, of a register access and of an initialize with the time that it sleeps.
"""

import pathlib
import re
import resource
import subprocess
import sys
import threading
import urllib.request

ROUNDS = 8
INITIALIZATIONS = 300


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


def cost_of_child(command: list[str]) -> None:
    """Prints the CPU seconds that a command takes, as the head's program."""
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    print(usage.ru_utime + usage.ru_stime)


def main() -> None:
    build = pathlib.Path(sys.argv[1]).resolve()
    data = pathlib.Path(__file__).resolve().parent.parent / "data"
    launcher = [str(build / "bin/virtual-head"), "--workdir", str(data)]
    camhost = [str(build / "bin/camhost"), "--plugin", str(build / "lib/sensor_board_3u5mgxs.so"), "--spi",
               "/dev/spidev1.0", *["-c", "init"] * INITIALIZATIONS]
    programs = {
        "register access [ns]": [str(build / "bin/live_cost")],
        "initialize [us]": [sys.executable, __file__, "--cost", *camhost],
    }
    ways = {"without": ([], False), "served": (["--serve", "0"], False), "followed": (["--serve", "0"], True)}
    for what, program in programs.items():
        best = dict.fromkeys(ways, float("inf"))
        for _ in range(ROUNDS):
            for way, (options, client) in ways.items():
                best[way] = min(best[way], float(run(launcher, options, program, client).split()[0]))
        scale = 1e6 / INITIALIZATIONS if "initialize" in what else 1
        print(what, *(f"{way} {cost * scale:.0f} ({cost / best['without']:.2f})" for way, cost in best.items()),
              sep="\n  ")


if __name__ == "__main__":
    if sys.argv[1:2] == ["--cost"]:
        cost_of_child(sys.argv[2:])
    else:
        main()
