"""What a file says about an image, as plain Python values.

Windows keep the library's coordinates: columns left..right and lines
bottom..top, inclusive, with line numbers growing upwards (window.top is the
picture's top row).  Arrays put row 0 at the top, so array row r is library
line window.top - r and array column x is library column window.left + x.
"""
from __future__ import annotations

from dataclasses import dataclass, field as _field, replace
from typing import Any, NamedTuple

from ._ffi import HAS_ATTRIBUTES, ffi, lib

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
    # Named attributes the format reports beyond the fixed fields (ICC
    # profile, orientation, part names...: orx/attributes.h, names as
    # OpenImageIO's); a library without them gives the header texts and the
    # format's key here instead.
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


_NULL, _string = ffi.NULL, ffi.string


def _text(p) -> str | None:
    return _string(p).decode(errors="replace") if p != _NULL else None


def _group(g) -> Group:
    return Group(_text(g.name), int(g.count), int(g.type), int(g.bits))


def _window(w) -> Window:
    return Window(int(w.left), int(w.right), int(w.bottom), int(w.top))


ATTR_STRING, ATTR_INT, ATTR_FLOAT, ATTR_DOUBLE, ATTR_BYTES = 1, 2, 3, 4, 5
_ATTR_C = {ATTR_INT: "int32_t", ATTR_FLOAT: "float", ATTR_DOUBLE: "double"}


def has_attributes() -> bool:
    """Whether the loaded library keeps named attributes (orx/attributes.h)."""
    return HAS_ATTRIBUTES


def _attributes(info, i: int) -> dict[str, Any]:
    """Image i's named attributes: str, bytes, or a number (a list for arrays)."""
    found: dict[str, Any] = {}
    if ffi.typeof(info).kind != "pointer":  # a record inside an object
        info = ffi.addressof(info)
    for k in range(int(lib.ORX_attr_count(info, i))):
        a = lib.ORX_attr_at(info, i, k)
        name, n = _text(a.name), int(a.count)
        if a.type == ATTR_STRING:
            value: Any = _text(ffi.cast("const char *", a.data))
        elif a.type == ATTR_BYTES:
            value = ffi.unpack(ffi.cast("const char *", a.data), n)
        elif a.type in _ATTR_C:
            value = ffi.unpack(ffi.cast(_ATTR_C[a.type] + " *", a.data), n)
            value = value[0] if n == 1 else value
        else:
            continue
        found[name] = value
    return found


def set_attributes(info, i: int, attributes: dict[str, Any]) -> None:
    """Put attributes on image i of a request (the format keeps what it can)."""
    for name, value in attributes.items():
        if isinstance(value, str):
            kind, data, n = ATTR_STRING, ffi.new("char[]", value.encode()), 1
        elif isinstance(value, (bytes, bytearray)):
            kind, data, n = ATTR_BYTES, ffi.from_buffer(bytes(value)), len(value)
        else:
            values = list(value) if isinstance(value, (list, tuple)) else [value]
            if not values:
                continue
            kind = ATTR_INT if all(isinstance(v, int) for v in values) else ATTR_FLOAT
            data, n = ffi.new(_ATTR_C[kind] + "[]", values), len(values)
        lib.ORX_attr_set(info, i, name.encode(), kind, n, data)


def from_info(info, i: int, format_key: str | None = None) -> Description:
    """The description of image i of an ORX_INFO (a cffi struct)."""
    d = info.images[i]
    texts = {k: v for k in TEXTS if (v := _text(getattr(info, k))) is not None}
    chroma = {k: (float(getattr(info, k)[0]), float(getattr(info, k)[1]))
              for k in ("red", "green", "blue", "white")}
    if HAS_ATTRIBUTES:
        attributes = _attributes(info, i)
    else:  # a library without named attributes: what the header has
        attributes = dict(texts, **({"format": format_key} if format_key else {}))
    return Description(
        window=_window(d.window), active=_window(d.active), image=_group(d.image),
        matte=_group(d.matte), aux=_group(d.aux), index=_group(d.index),
        gamma=float(d.curve.gamma), orientation=int(d.orientation), aspect=_text(d.aspect),
        aspect_ratio=float(d.aspect_ratio), resolution=(int(d.x_resolution), int(d.y_resolution)),
        field=int(d.field), frame=int(info.frame), job=int(info.job), format=format_key,
        chromaticities=chroma, texts=texts, attributes=attributes)
