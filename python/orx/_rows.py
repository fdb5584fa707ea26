"""Moving channel scanline buffers in and out of numpy rows.

A channel scanline buffer holds one row per channel (colour, matte,
auxiliary, then colour index).  The buffers the library builds keep those
rows one after another in one block, each rounded up to an even byte count,
so one strided view of the block is the whole line as (width, channels): a
row moves with one numpy copy, which is the copy the C host makes.
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
    """Views of the rows of a channel scanline buffer as one (width, channels)
    array, remade only when the buffer moves."""

    def __init__(self, d: Description) -> None:
        self.width = d.window.width
        self.dtypes = channel_dtypes(d)
        self.channels = len(self.dtypes)
        self._key = None
        self._view = None

    def _row_bytes(self, c: int) -> int:
        n = self.width * self.dtypes[c].itemsize
        return n + (n & 1)

    def view(self, rows) -> np.ndarray | list[np.ndarray]:
        """The line in rows (a void ** of the library) as arrays."""
        first = int(ffi.cast("uintptr_t", rows[0]))
        if first == self._key:
            return self._view
        addresses = [int(ffi.cast("uintptr_t", rows[c])) for c in range(self.channels)]
        step = self._row_bytes(0)
        uniform = all(dt == self.dtypes[0] for dt in self.dtypes)
        if uniform and all(a == first + c * step for c, a in enumerate(addresses)):
            block = ffi.buffer(rows[0], step * self.channels)
            self._view = np.ndarray((self.width, self.channels), self.dtypes[0], block,
                                    strides=(self.dtypes[0].itemsize, step))
        else:
            self._view = [np.frombuffer(ffi.buffer(rows[c], self._row_bytes(c)), self.dtypes[c],
                                        self.width) for c in range(self.channels)]
        self._key = first
        return self._view

    def get(self, rows, out: np.ndarray) -> None:
        """Copy the line into out, (width, channels)."""
        v = self.view(rows)
        if isinstance(v, list):
            for c, row in enumerate(v):
                out[:, c] = row
        else:
            out[...] = v

    def put(self, rows, line: np.ndarray) -> None:
        """Copy line, (width, channels), into the buffer rows."""
        v = self.view(rows)
        if isinstance(v, list):
            for c, row in enumerate(v):
                row[...] = line[:, c]
        else:
            v[...] = line
