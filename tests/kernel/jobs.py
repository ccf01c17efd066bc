"""What is done on the board: jobs, each on a head of its own, and what a head is like."""

from __future__ import annotations

import dataclasses
import json
import re
import shlex
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]

# How the guest's shell writes them: guest/functions.
CAMHOST = "$camhost"
LAUNCHER = "virtual-head --workdir $data"

MAIN = "--echo $data/main-job.camhost"
SHORT = "-c init -c 'exposure 5000' -c 'capture 100' -c status"


DIAGNOSE = "--diagnose --power"
# Heads that are diagnosed, by the job's name.
DIAGNOSED = {"diagnosed": "", "diagnosed-lane": (SOURCE / "data/scenarios/dead-lane.ini").read_text(encoding="utf-8")}


@dataclasses.dataclass
class Job:
    """One run in the guest. Its results are in a folder of its name."""

    name: str
    command: str # of the guest's shell
    scenario: str = "" # of the head behind the pins; empty: a healthy one
    traced: bool = False # by the kernel's tracepoints as well
    before: str = "" # commands of the guest's shell that break the machine
    after: str = "" # and mend it


@dataclasses.dataclass
class Row:
    """An example of the table of failures, which docs/diagnostics.md shows as a row."""

    number: int
    commands: list[str]
    result: str # "-2", "signal 11"
    says: str # what camhost says below its result; may be empty
    output: list[str] # telling lines of standard output
    errors: list[str] # all of standard error
    fault: list[str] # "what = ...", or one name of a file

    def scenario(self) -> str:
        if len(self.fault) == 1 and self.fault[0].endswith(".ini"):
            return (SOURCE / "data/scenarios" / self.fault[0]).read_text(encoding="utf-8")
        return "[Fault row]\n" + "".join(line + "\n" for line in self.fault)

    def name(self) -> str:
        return f"row-{self.number}"

    def arguments(self) -> str:
        return " ".join("-c " + shlex.quote(command) for command in self.commands)


def rows() -> list[Row]:
    table = json.loads((SOURCE / "plugin/sensor_board_3u5mgxs.failures.json").read_text(encoding="utf-8"))
    # Those that end with a status are diagnoses: what they say of a device file is the machine's own affair.
    examples = [
        example for section in table["sections"] for example in section["examples"] if "status" not in example
    ]
    return [
        Row(
            number,
            example["commands"],
            f"signal {example['signal']}" if "signal" in example else str(example["result"]),
            example.get("says", ""),
            example["output"],
            example["errors"],
            [example["scenario"]] if "scenario" in example else example["fault"],
        )
        for number, example in enumerate(examples, 1)
    ]


# What is wrong with the head itself: the model behind the pins plays it.
OF_THE_HEAD = re.compile(
    r"what = (rail |ADC fails ENXIO|ADC floats|PLL |locked |rgLocked |gbLocked |lanes |alignment |polarity |"
    r"block \S+ (silent|stuck)|word )"
)
FILES_OF_THE_HEAD = {"supply-droop.ini", "pll-never.ini", "dead-lane.ini", "no-alignment.ini", "lanes-lost.ini"}

SPI_DRIVER = "/sys/bus/spi/drivers/spidev"
I2C_DRIVER = "/sys/bus/platform/drivers/imx-i2c"

# What is wrong with the machine: made so before the job, and mended afterwards. `{}` is the job's command.
NO_SPIDEV = (f"echo spi1.0 >{SPI_DRIVER}/unbind", "{}", f"echo spi1.0 >{SPI_DRIVER}/bind")
OF_THE_MACHINE = {
    "spidev-missing.ini": NO_SPIDEV,
    "what = SPI missing": NO_SPIDEV,
    "what = I2C missing": (f"echo 21a4000.i2c >{I2C_DRIVER}/unbind", "{}", f"echo 21a4000.i2c >{I2C_DRIVER}/bind"),
    "what = line RESET_B busy": ("", "kernel_lines hold RESET_B -- {}", ""),
    "what = line PS_1.2V_EN busy": ("", "kernel_lines hold PS_1.2V_EN -- {}", ""),
    "what = line EXT_TRIG_EN busy": ("", "kernel_lines hold EXT_TRIG_EN -- {}", ""),
    "what = GPIO missing": (
        "mkdir /dev/away && mv /dev/gpiochip* /dev/away",
        "{}",
        "mv /dev/away/* /dev && rmdir /dev/away",
    ),
    # A file system on which device files are not opened: root has the right to all others.
    "what = memory fails EACCES": (
        "mount -t tmpfs -o nodev tmpfs /mnt && mknod /mnt/mem c 1 1 && mount --bind /mnt/mem /dev/mem",
        "{}",
        "umount /dev/mem && umount /mnt",
    ),
}


def job_of(row: Row) -> Job | None:
    """The row on the board; none where only the virtual head can play it."""
    command = f"{CAMHOST} {row.arguments()}"
    if len(row.fault) == 1 and row.fault[0] in OF_THE_MACHINE:
        before, form, after = OF_THE_MACHINE[row.fault[0]]
        return Job(row.name(), form.format(command), before=before, after=after)
    if OF_THE_HEAD.match(row.fault[0]) or row.fault[0] in FILES_OF_THE_HEAD:
        return Job(row.name(), command, scenario=row.scenario())
    return None


def test_job(program: str, folder: Path, tests: list[str]) -> Job:
    """Tests of a program that the user-mode emulator cannot run."""
    words = [str(folder / "bin" / program), "--gtest_color=no", "--gtest_filter=" + ":".join(tests)]
    return Job(f"test-{program}", shlex.join(words))


def jobs(build: Path, tests: dict[str, list[str]]) -> list[Job]:
    """`build`: the target's build folder, as test programs know it; `tests`: of each program, those for the guest."""
    everything = [
        # The port is as the kernel made it, until somebody sets it.
        Job("questions", "kernel_questions"),
        Job("main", f"{CAMHOST} {MAIN}", traced=True, after="kernel_lines show >$results/main/lines"),
        Job("short", f"{CAMHOST} {SHORT}", traced=True),
        Job("main-recorded", f"{LAUNCHER} --hardware --record $results/main-recorded/run.rec -- {CAMHOST} {MAIN}"),
        Job("short-recorded", f"{LAUNCHER} --hardware --record $results/short-recorded/run.rec -- {CAMHOST} {SHORT}"),
        Job("main-inside", f"{LAUNCHER} --log $results/main-inside/log -- {CAMHOST} {MAIN}"),
        Job("short-inside", f"{LAUNCHER} --log $results/short-inside/log -- {CAMHOST} {SHORT}"),
        Job("killed", "killed_in_a_capture", after="after_the_death"),
    ]
    everything += [Job(name, f"{CAMHOST} {DIAGNOSE}", scenario=scenario) for name, scenario in DIAGNOSED.items()]
    everything += [test_job(program, build, names) for program, names in tests.items()]
    everything += [job for row in rows() if (job := job_of(row)) is not None]
    return everything


def head_lines(everything: list[Job], folder: str) -> list[str]:
    """The plug-in's list of heads."""
    return [job.name + (f" {folder}/{job.name}.ini" if job.scenario else "") for job in everything]


def script(everything: list[Job]) -> str:
    """What the guest's shell does."""
    lines = [". /guest/functions", "start_tracing"]
    for number, job in enumerate(everything):
        words = {"traced": "yes" if job.traced else "", "before": job.before, "after": job.after}
        lines += [f"{name}={shlex.quote(value)}" for name, value in words.items()]
        lines.append(f"job {job.name} {number} {job.command}")
    return "\n".join(lines) + "\n"
