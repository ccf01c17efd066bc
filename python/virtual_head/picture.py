"""Pictures that a head delivers."""

from __future__ import annotations

import sys
from array import array
from collections.abc import Iterator, Mapping
from dataclasses import dataclass
from typing import Any


@dataclass(frozen=True)
class PictureInfo:
    """The latest picture: `width` and `height` [pixels], `time_ns` when it was whole [ns of the head's clock], `settings`
    of sensor and FPGA with which it was taken. `pictures` counts those of the process `process`."""

    process: int
    pictures: int
    time_ns: int
    width: int
    height: int
    settings: Mapping[str, str]


class Pixels:
    """A picture without NumPy: rows and columns of 16-bit values, indexed as a NumPy array of two dimensions is.

    `pixels[row, column]` is a value, `pixels[row]` a row, `pixels[2:4, 10:20]` a part. Negative indices count from the
    end; steps are taken; IndexError where there is nothing. A part is a copy.
    """

    def __init__(self, width: int, height: int, values: array[int]) -> None:
        if len(values) != width * height:
            raise ValueError(f"{len(values)} values are no {width} x {height} pixels")
        self._width = width
        self._height = height
        self._values = values

    @property
    def shape(self) -> tuple[int, int]:
        """Rows and columns."""
        return self._height, self._width

    @property
    def size(self) -> int:
        """Number of pixels."""
        return len(self._values)

    def __len__(self) -> int:
        return self._height

    def __iter__(self) -> Iterator[array[int]]:
        return (self._row(row) for row in range(self._height))

    def _row(self, row: int) -> array[int]:
        return self._values[row * self._width : (row + 1) * self._width]

    def __getitem__(self, index: Any) -> Any:
        rows, columns = index if isinstance(index, tuple) else (index, slice(None))
        if not isinstance(rows, slice):
            row = self._row(range(self._height)[rows])
            return row[columns]
        across = range(self._width)[columns]
        chosen = range(self._height)[rows]
        values = array("H")
        if not isinstance(across, range):
            return array("H", (self._values[row * self._width + across] for row in chosen))
        for row in chosen:
            values.extend(self._row(row)[columns])
        return Pixels(len(across), len(chosen), values)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Pixels):
            return NotImplemented
        return self.shape == other.shape and self._values == other._values

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        return f"<pixels, {self._height} rows of {self._width}>"

    def tolist(self) -> list[list[int]]:
        """All values, a list a row."""
        return [row.tolist() for row in self]

    def min(self) -> int:
        """The lowest value."""
        return min(self._values)

    def max(self) -> int:
        """The highest value."""
        return max(self._values)

    def mean(self) -> float:
        """The mean of all values."""
        return sum(self._values) / len(self._values)


def pixels_of(raw: bytes, width: int, height: int) -> Any:
    """Words of 16 bits, low byte first, as NumPy array (`uint16`, rows and columns) where NumPy is installed, else as
    Pixels. Raises ValueError where the bytes are too many or too few."""
    if len(raw) != 2 * width * height:
        raise ValueError(f"{len(raw)} bytes are no {width} x {height} pixels")
    try:
        import numpy
    except ImportError:
        values = array("H", raw)
        if sys.byteorder == "big":
            values.byteswap()
        return Pixels(width, height, values)
    return numpy.frombuffer(raw, dtype="<u2").reshape(height, width).astype(numpy.uint16)
