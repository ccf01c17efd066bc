#!/usr/bin/env python3
"""Packs a folder as the guest's first root: what the kernel unpacks into memory before it starts /init.

Everything belongs to root there, whoever packs it, and the time of every file is 0: the same folder gives the
same bytes. The form is cpio's "newc", in which the kernel takes it; no program for it is needed.
"""

import os
import stat
import sys
from pathlib import Path
from typing import BinaryIO

HEADER = "070701"
DIRECTORY_MODE = 0o755
CONSOLE_MODE = stat.S_IFCHR | 0o600
CONSOLE_DEVICE = (5, 1)


class Archive:
    def __init__(self, out: BinaryIO) -> None:
        self._out = out
        self._inode = 0

    def add(self, name: str, mode: int, data: bytes = b"", device: tuple[int, int] = (0, 0)) -> None:
        """One file. `name` without a leading slash."""
        self._inode += 1
        encoded = name.encode() + b"\0"
        fields = [self._inode, mode, 0, 0, 1, 0, len(data), 0, 0, *device, len(encoded), 0]
        self._padded((HEADER + "".join(f"{field:08x}" for field in fields)).encode() + encoded)
        self._padded(data)

    def _padded(self, data: bytes) -> None:
        self._out.write(data + b"\0" * (-len(data) % 4))


def add_file(archive: Archive, path: Path, name: str) -> None:
    mode = path.lstat().st_mode
    if stat.S_ISLNK(mode):
        archive.add(name, mode, os.readlink(path).encode())
    elif stat.S_ISDIR(mode):
        archive.add(name, stat.S_IFDIR | DIRECTORY_MODE)
    elif stat.S_ISREG(mode):
        archive.add(name, mode, path.read_bytes())
    else:
        raise ValueError(f"{path} is neither file, folder nor link")


def pack(folder: Path, out: BinaryIO) -> None:
    archive = Archive(out)
    for path in sorted(folder.rglob("*")):
        add_file(archive, path, str(path.relative_to(folder)))
    # init's standard output, before there is a /dev.
    if not (folder / "dev").exists():
        archive.add("dev", stat.S_IFDIR | DIRECTORY_MODE)
    archive.add("dev/console", CONSOLE_MODE, device=CONSOLE_DEVICE)
    archive.add("TRAILER!!!", 0)


if __name__ == "__main__":
    pack(Path(sys.argv[1]), sys.stdout.buffer)
