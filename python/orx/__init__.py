"""liborx for Python: image files as numpy arrays, streamed, layered with
operators and converted over frame sequences.  See docs/python.md.

    import orx
    img = orx.read("plate.exr")          # orx.Image, (height, width, channels)
    orx.write("plate.png", img)          # the format follows the extension
"""
from __future__ import annotations

import os

import numpy as np

from ._errors import (BadInputError, Error, NotFoundError, OutOfMemoryError,
                      UnsupportedError, WriteError)
from ._ffi import ffi as _cffi, lib as _lib, library_path, plugin_directories
from ._handle import ImageFile, Writer, formats
from .description import Description, Group, Window
from .image import Image
from ._settings import table as format_settings
from .process import Texture, fields, maketx, swatch, texture
from .sequence import frame_path, frames, sequence

__all__ = ["read", "write", "open", "formats", "format_settings", "version", "Image", "ImageFile", "Writer",
           "Description", "Window", "Group", "Error", "NotFoundError", "BadInputError",
           "UnsupportedError", "OutOfMemoryError", "WriteError", "maketx", "swatch", "fields",
           "texture", "Texture", "frames", "sequence", "frame_path", "plugin_directories",
           "library_path"]


def version() -> str:
    """The loaded library's version, "MAJOR.MINOR.PATCH"."""
    return _cffi.string(_lib.ORX_version(_cffi.NULL, _cffi.NULL, _cffi.NULL)).decode()


def open(path: str | os.PathLike, mode: str = "r", *, type: str | None = None,
         **kwargs) -> ImageFile | Writer:
    """Open an image file.  "r": an ImageFile (description now, pixels on
    demand, operators as chainable methods).  "w": a Writer taking rows one at
    a time; give shape=(height, width, channels) and dtype=, plus description
    keywords as for write()."""
    if mode == "r":
        if kwargs:
            raise TypeError(f"unexpected arguments for reading: {', '.join(kwargs)}")
        return ImageFile(path, type=type)
    if mode == "w":
        shape = kwargs.pop("shape")
        return Writer(path, shape, kwargs.pop("dtype", np.uint8), type=type, **kwargs)
    raise ValueError(f"mode is \"r\" or \"w\", not {mode!r}")


def read(path: str | os.PathLike, *, image: int = 0, type: str | None = None,
         dtype=None) -> Image:
    """Image `image` of a file as an orx.Image.  dtype (uint8, uint16,
    uint32, float32, float64) converts through the library's cast and
    quantize operators; integers become floats scaled to 0..1."""
    with ImageFile(path, type=type) as f:
        return f.select(image).read(dtype=dtype)


def write(path: str | os.PathLike, image: np.ndarray, *, type: str | None = None,
          **description) -> None:
    """Write an array (height, width[, channels]) to path, the format chosen
    by the extension (or type=), atomically: a temporary file renamed into
    place once complete.  An orx.Image keeps its description; keywords
    override it: matte= (matte channel count), gamma=, chromaticities=,
    frame=, job=, image_name=, aux_name= and the header texts (name, desc,
    program, machine, user, date, time, filter).  settings= asks for the
    format's own settings by name, as `orx formats` lists them
    ({"compression": "dwaa", "pixel type": "float"}, {"quality": 95}), or
    by position in its table (README, "Format plug-ins": [None, 1]).
    attributes= adds named attributes ({"ICCProfile": b"..."}) where the
    library keeps them; the format stores those it can.  The samples are stored as
    they are typed (uint8, uint16, uint32, float32, float64) where the format
    can hold them; formats narrower than the data convert as their plug-in
    says (README, "Format plug-ins")."""
    array = np.asarray(image)
    if array.ndim == 2:
        array = array[:, :, None]
    if array.ndim != 3:
        raise ValueError(f"an image is (height, width[, channels]), not {array.shape}")
    like = getattr(image, "description", None)
    with Writer(path, array.shape, array.dtype, type=type, like=like, **description) as out:
        for r in out.row_order:
            out.write_row(r, array[r])
