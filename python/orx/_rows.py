"""Moving channel scanline buffers in and out of numpy rows.

A channel scanline buffer holds one row per channel (colour, matte,
auxiliary, then colour index), each only 2-byte aligned: numpy copies from
and to them byte-wise safe views, one row per channel, the copies the C
host makes.
"""
from __future__ import annotations

import numpy as np

from ._ffi import ffi
from .description import DOUBLE, FLOAT, Description

DTYPES = {np.dtype(t): t for t in (np.uint8, np.uint16, np.uint32, np.float32, np.float64)}


def group_dtype(type_: int, bits: int) -> np.dtype:
    """The numpy type that holds samples of a channel group."""
    if type_ == FLOAT:
        return np.dtype(np.float32)
    if type_ == DOUBLE:
        return np.dtype(np.float64)
    return np.dtype(np.uint8 if bits <= 8 else np.uint16 if bits <= 16 else np.uint32)


def group_of(dtype) -> tuple[int, int]:
    """(type, bits) of the library's groups for a numpy type."""
    dt = np.dtype(dtype)
    if dt not in DTYPES:
        from ._errors import UnsupportedError
        raise UnsupportedError(f"sample type {dt} is not one of uint8, uint16, uint32, "
                               "float32, float64", -16)
    if dt.kind == "f":
        return (FLOAT, 32) if dt.itemsize == 4 else (DOUBLE, 64)
    return (1, dt.itemsize * 8)


def channel_dtypes(d: Description) -> list[np.dtype]:
    groups = [d.image, d.matte, d.aux] if d.image.count + d.matte.count + d.aux.count \
        else [d.index._replace(bits=16)]
    return [group_dtype(g.type, g.bits) for g in groups for _ in range(g.count)]


class RowView:
    """numpy views of the rows of a channel scanline buffer, remade only when
    the buffer moves.  A line moves one channel at a time: each copy reads a
    contiguous row, which numpy does faster than one strided copy of the
    whole line."""

    def __init__(self, d: Description) -> None:
        self.width = d.window.width
        self.dtypes = channel_dtypes(d)
        self.channels = len(self.dtypes)
        self._key = None
        self._views: list[np.ndarray] = []

    def view(self, rows) -> list[np.ndarray]:
        """The line in rows (a void ** of the library), one array per channel."""
        key = tuple(int(ffi.cast("uintptr_t", rows[c])) for c in range(self.channels))
        if key != self._key:
            self._views = [np.frombuffer(ffi.buffer(rows[c], self.width * dt.itemsize), dt)
                           for c, dt in enumerate(self.dtypes)]
            self._key = key
        return self._views

    def get(self, rows, out: np.ndarray) -> None:
        """Copy the line into out, (width, channels)."""
        for c, row in enumerate(self.view(rows)):
            out[:, c] = row

    def put(self, rows, line: np.ndarray) -> None:
        """Copy line, (width, channels), into the buffer rows."""
        for c, row in enumerate(self.view(rows)):
            row[...] = line[:, c]
