"""Image processes (mipmap textures, swatches), field merging and texture
lookups."""
from __future__ import annotations

import os
import weakref

import numpy as np

from . import _errors
from ._ffi import ffi, lib, start, state_lock
from ._handle import ImageFile
from ._output import SafeOutput

TEXTURE_TYPES = {"color": 0, "scalar": 1, "bump": 2}
WRAPS = {"black": 0, "clamp": 1, "periodic": 2, "mirror": 3}


def _through_process(source: str | os.PathLike, target: str | os.PathLike, request) -> None:
    """Stream image 0 of source into target through the process request names."""
    with ImageFile(source) as src:
        obj = src._object()
        output = SafeOutput(target)
        info = ffi.new("ORX_INFO *")
        lib.ORX_info_init(info)
        handle = ffi.new("char[]", os.fsencode(output.path))
        info.handle = handle
        info.full_path = 1
        image = ffi.new("ORX_IFD *", obj.info.images[0])  # copied by the open
        info.images = image
        info.image_count = 1
        with state_lock:  # the process database
            _errors.clear()
            out = lib.IMP_open(info, request, b"w")
        if out == ffi.NULL:
            raise output.told(_errors.fail(-16, os.fspath(target)))
        try:
            w = image.window
            for y in range(w.bottom, w.top + 1):
                rows = src._line(y)
                if lib.ORX_scan_write(out, y, rows) != 0:
                    raise output.told(_errors.fail(-20, os.fspath(target)))
        except BaseException:
            lib.ORX_close(out)
            output.discard()
            raise
        _errors.clear()
        if lib.ORX_close(out) != 0:
            output.discard()
            raise output.told(_errors.fail(-20, os.fspath(target)))
        output.commit()


def maketx(source: str | os.PathLike, target: str | os.PathLike, *, type: str = "color") -> None:
    """Write a mipmap texture of the first image of source: every level down
    to 1x1 in one file (type color, scalar or bump)."""
    start()
    if type not in TEXTURE_TYPES:
        raise ValueError("the texture type is color, scalar or bump")
    request = ffi.new("IMP_REQUEST *", {"key": _keep(b"mipmap"), "texture_type": TEXTURE_TYPES[type]})
    _through_process(source, target, request)


def swatch(source: str | os.PathLike, target: str | os.PathLike, *, size: int = 64) -> None:
    """Write source's first image with a preview image of `size` pixels on
    its longer side appended as the file's last image."""
    start()
    if size < 1:
        raise ValueError("the swatch size is at least 1")
    request = ffi.new("IMP_REQUEST *", {"key": _keep(b"swatch"), "swatch_size": size})
    _through_process(source, target, request)


_keys: dict[bytes, object] = {}


def _keep(key: bytes):
    return _keys.setdefault(key, ffi.new("char[]", key))


def fields(path: str | os.PathLike) -> ImageFile:
    """Open a field file (odd frame number: first field) with its partner and
    read the interlaced frame: line 2k from the first field, 2k+1 from the
    second."""
    f = ImageFile(path)
    with state_lock:
        _errors.clear()
        merged = lib.ORX__field_merge(f._object())
    if merged == f._object():
        f.close()
        raise _errors.BadInputError(_errors.last_message() or
                                    f"{path}: not a field file with its partner", -1)
    f._cell[0] = merged
    f._images, f._description = None, None
    return f


class Texture:
    """Filtered lookups from a texture (a mipmap written by maketx, or any
    image as one level).  Coordinates s, t in 0..1: s = 0 the left edge,
    t = 0 the bottom edge (as the library numbers lines).  One object per
    thread."""

    def __init__(self, path: str | os.PathLike, type: str = "color") -> None:
        start()
        _errors.clear()
        self._tex = lib.ORX_tex_open(os.fsencode(path), TEXTURE_TYPES[type])
        if self._tex == ffi.NULL:
            raise _errors.fail(0, os.fspath(path))
        self._close = weakref.finalize(self, lib.ORX_tex_close, self._tex)
        self.levels = int(lib.ORX_tex_levels(self._tex))
        self.channels = int(lib.ORX_tex_channels(self._tex))
        self._out = ffi.new("float[]", max(self.channels, 1))

    def size(self, level: int = 0) -> tuple[int, int]:
        """(width, height) of a level."""
        w, h = ffi.new("int32_t *"), ffi.new("int32_t *")
        if lib.ORX_tex_level_size(self._tex, level, w, h) != 0:
            raise IndexError(f"no level {level}")
        return int(w[0]), int(h[0])

    def lookup(self, s, t, ds=0.0, dt=0.0, *, wrap: str = "clamp") -> np.ndarray:
        """The filtered colour at (s, t) for a footprint ds x dt; arrays of
        coordinates give an array of colours (..., channels)."""
        s, t, ds, dt = np.broadcast_arrays(*(np.asarray(v, np.float32) for v in (s, t, ds, dt)))
        out = np.empty(s.shape + (self.channels,), np.float32)
        flat = out.reshape(-1, self.channels)
        mode = WRAPS[wrap]
        for i, (a, b, c, d) in enumerate(zip(s.flat, t.flat, ds.flat, dt.flat)):
            if lib.ORX_tex_lookup(self._tex, a, b, c, d, mode, self._out) != 0:
                raise _errors.fail(-18, "texture lookup")
            flat[i] = ffi.unpack(self._out, self.channels)
        return out

    def close(self) -> None:
        """Release the texture and its row cache."""
        self._close()

    def __enter__(self) -> "Texture":
        return self

    def __exit__(self, *exc) -> None:
        self.close()


def texture(path: str | os.PathLike, type: str = "color") -> Texture:
    """Open a texture for lookups."""
    return Texture(path, type)
