"""What a file says about an image, as plain Python values.

Windows keep the library's coordinates: columns left..right and lines
bottom..top, inclusive, with line numbers growing upwards (window.top is the
picture's top row).  Arrays put row 0 at the top, so array row r is library
line window.top - r and array column x is library column window.left + x.
"""
from __future__ import annotations

from dataclasses import dataclass, field as _field, replace
from typing import Any, NamedTuple

from ._ffi import ffi

INTEGER, FLOAT, DOUBLE = 1, 2, 3
TEXTS = ("name", "desc", "program", "machine", "user", "date", "time", "filter", "compression")


class Window(NamedTuple):
    """An inclusive rectangle: columns left..right, lines bottom..top."""
    left: int
    right: int
    bottom: int
    top: int

    @property
    def width(self) -> int:
        return self.right - self.left + 1

    @property
    def height(self) -> int:
        return self.top - self.bottom + 1


class Group(NamedTuple):
    """One channel group: its name (or None), count, sample type and width."""
    name: str | None
    count: int
    type: int
    bits: int


@dataclass
class Description:
    """The description of one image of a file, and the file's texts."""
    window: Window = Window(0, 0, 0, 0)
    active: Window = Window(0, 0, 0, 0)
    image: Group = Group(None, 0, INTEGER, 8)
    matte: Group = Group(None, 0, INTEGER, 8)
    aux: Group = Group(None, 0, INTEGER, 8)
    index: Group = Group(None, 0, INTEGER, 8)
    gamma: float = 2.2
    orientation: int = 1
    aspect: str | None = None
    aspect_ratio: float = 1.0
    resolution: tuple[int, int] = (0, 0)
    field: int = 0
    frame: int = 1
    job: int = -1
    format: str | None = None
    chromaticities: dict[str, tuple[float, float]] = _field(default_factory=dict)
    texts: dict[str, str] = _field(default_factory=dict)
    # Named attributes the format reports beyond the fixed fields; today the
    # header texts and the format's name, a place for plug-in metadata.
    attributes: dict[str, Any] = _field(default_factory=dict)

    @property
    def channels(self) -> int:
        """Channels per pixel: colour, matte and auxiliary (or colour index)."""
        total = self.image.count + self.matte.count + self.aux.count
        return total if total else self.index.count

    @property
    def channel_names(self) -> list[str]:
        """Names in array order, as other tools call them (R, G, B, A, Z...)."""
        names: list[str] = []
        n = self.image.count
        if n == 3 or (self.image.name == "rgb" and n >= 3):
            names += ["R", "G", "B"] + [f"image{i}" for i in range(3, n)]
        elif n == 1:
            names.append("Y")
        else:
            names += [f"image{i}" for i in range(n)]
        names += ["A"] if self.matte.count == 1 else [f"A{i}" for i in range(self.matte.count)]
        aux = (self.aux.name or "").split(",")
        names += aux if len(aux) == self.aux.count and all(aux) else \
            [f"aux{i}" for i in range(self.aux.count)]
        if not (self.image.count + self.matte.count + self.aux.count):
            names += ["index"] * self.index.count
        return names

    @property
    def alpha_channel(self) -> int | None:
        """Array index of the first matte channel, or None."""
        return self.image.count if self.matte.count else None

    @property
    def shape(self) -> tuple[int, int, int]:
        """(height, width, channels) of the image as an array."""
        return (self.window.height, self.window.width, self.channels)

    def replace(self, **changes: Any) -> "Description":
        """A copy with some fields changed."""
        return replace(self, **changes)


def _text(p) -> str | None:
    return ffi.string(p).decode(errors="replace") if p != ffi.NULL else None


def _group(g) -> Group:
    return Group(_text(g.name), int(g.count), int(g.type), int(g.bits))


def _window(w) -> Window:
    return Window(int(w.left), int(w.right), int(w.bottom), int(w.top))


def from_info(info, i: int, format_key: str | None = None) -> Description:
    """The description of image i of an ORX_INFO (a cffi struct)."""
    d = info.images[i]
    texts = {k: v for k in TEXTS if (v := _text(getattr(info, k))) is not None}
    chroma = {k: (float(getattr(info, k)[0]), float(getattr(info, k)[1]))
              for k in ("red", "green", "blue", "white")}
    attributes: dict[str, Any] = dict(texts)
    if format_key:
        attributes["format"] = format_key
    return Description(
        window=_window(d.window), active=_window(d.active), image=_group(d.image),
        matte=_group(d.matte), aux=_group(d.aux), index=_group(d.index),
        gamma=float(d.curve.gamma), orientation=int(d.orientation), aspect=_text(d.aspect),
        aspect_ratio=float(d.aspect_ratio), resolution=(int(d.x_resolution), int(d.y_resolution)),
        field=int(d.field), frame=int(info.frame), job=int(info.job), format=format_key,
        chromaticities=chroma, texts=texts, attributes=attributes)
