"""Open images: streaming reads with operators layered on, and streaming writes."""
from __future__ import annotations

import os
import weakref
from typing import Iterator, Mapping, Sequence

import numpy as np

from . import _errors
from ._ffi import ffi, lib, start, state_lock
from ._output import SafeOutput
from ._settings import by_position
from ._rows import RowView, channel_dtypes, group_of
from .description import (INTEGER, TEXTS, Description, from_info, has_attributes,
                          set_attributes)
from .image import Image

REGION_LAYOUTS = {(1, 1): 7, (1, 2): 1, (3, 1): 8, (4, 1): 5, (4, 2): 3}  # (channels, bytes)


def _region_layout(d: Description, dtype: np.dtype) -> int | None:
    """The region layout that is exactly the image's grey, RGB or RGBA
    pixels of 8 or 16 bits, or None: such lines the library interleaves."""
    groups = [g for g in (d.image, d.matte, d.aux) if g.count]
    exact = all(g.type == INTEGER and g.bits == dtype.itemsize * 8 for g in groups)
    if not exact or dtype.kind != "u" or d.aux.count or d.image.count not in (1, 3):
        return None
    return REGION_LAYOUTS.get((d.channels, dtype.itemsize))


def _close_cell(cell) -> None:
    if cell[0] != ffi.NULL:
        obj, cell[0] = cell[0], ffi.NULL
        lib.ORX_close(obj)


def _save(text) -> object:
    """A library-owned copy of text (the record frees it), or NULL."""
    if text is None:
        return ffi.NULL
    return lib.STR_save(os.fsencode(text) if isinstance(text, os.PathLike) else
                        str(text).encode())


def _installed(what: str) -> None:
    """Raise when the install just made on this thread reported a refusal."""
    if _errors.last_message():
        raise _errors.fail(-16, what)


_formats: list | None = None


def formats() -> list[tuple[str, str, str]]:
    """(key, extension, name) of every registered format: plug-ins, then the
    built-in ones."""
    global _formats
    start()
    if _formats is None:
        with state_lock:
            found = []
            lib.ORX_init(ffi.NULL, ffi.NULL)  # already started: rewinds the walk
            while (f := lib.ORX_info()) != ffi.NULL:
                found.append(f)
            found += [f for k in (b"rla", b"pipe", b"mem") if (f := lib.ORX_find(k)) != ffi.NULL]
            s = lambda p: ffi.string(p).decode() if p != ffi.NULL else ""
            _formats = [(s(f.key), s(f.extension), s(f.name)) for f in found]
    return _formats


def _by_contents(path: str) -> str | None:
    """The key of the format that recognises the file's contents, for a name
    no format's extension claims (x.ppm, x.pic); None leaves the choice to
    the library (by extension, else its default format)."""
    if any(ext and path.endswith(ext) for _, ext, _ in formats()) or not os.path.isfile(path):
        return None
    key = lib.ORX_get_file_type(os.fsencode(path), ffi.NULL, ffi.NULL)
    found = ffi.string(key).decode() if key != ffi.NULL else "__none_"
    return None if found == "__none_" else found


class ImageFile:
    """An image file open for reading.  The description is there without
    reading pixels; lines are read on demand; operators are layers pushed
    onto the open file, each returning the same object so that they chain
    (`orx.open(p).select(1).resize(64, 64).read()`).  Close it (or use it as
    a context manager) to release the file at once."""

    def __init__(self, path: str | os.PathLike, *, type: str | None = None) -> None:
        start()
        self.path = os.fspath(path)
        self._cell = ffi.new("ORX_OBJECT **")
        request = ffi.new("ORX_INFO *")
        lib.ORX_info_init(request)
        request.handle = _save(self.path)
        request.type = _save(type or _by_contents(self.path))
        request.full_path = 1
        _errors.clear()
        obj = lib.ORX_open(request, b"r")
        lib.ORX_info_cleanup(request, 1)
        if obj == ffi.NULL:
            error = _errors.fail(0, self.path)
            # Some plug-ins report a missing file as not of their format, and
            # without a per-thread status another thread may have cleared it.
            vague = error.__class__ is _errors.Error or isinstance(error, _errors.BadInputError)
            if vague and not os.path.lexists(self.path):
                error = _errors.NotFoundError(error.message, _errors.ORX_E_FIELD_MISSING)
            raise error
        self._cell[0] = obj
        self._finalizer = weakref.finalize(self, _close_cell, self._cell)
        self._images: list[Description] | None = None
        self._description: Description | None = None
        self._rows = ffi.new("void ***")
        # A resampling layer hands its lines out bottom row first, in
        # sequence, whatever order the file keeps them in.
        self._upwards_only = False

    # --- the description ---------------------------------------------------
    def _object(self):
        obj = self._cell[0]
        if obj == ffi.NULL:
            raise ValueError("I/O operation on a closed image")
        return obj

    def _describe(self, i: int) -> Description:
        obj = self._object()
        key = ffi.string(obj.format.key).decode() if obj.format != ffi.NULL else None
        return from_info(obj.info, i, key)

    @property
    def description(self) -> Description:
        """The image as reading will hand it out now (after the layers)."""
        if self._description is None:
            self._description = self._describe(0)
        return self._description

    @property
    def images(self) -> list[Description]:
        """Every image of the file, as opened (before any layer)."""
        if self._images is None:
            self._images = [self._describe(i) for i in range(self._object().info.image_count)]
        return self._images

    @property
    def shape(self) -> tuple[int, int, int]:
        """(height, width, channels) as reading will hand the image out."""
        return self.description.shape

    # --- closing -------------------------------------------------------------
    def close(self) -> None:
        """Close the file; the object may not be used after."""
        if self._cell[0] != ffi.NULL:
            obj, self._cell[0] = self._cell[0], ffi.NULL
            self._finalizer.detach()
            _errors.clear()
            if lib.ORX_close(obj) != 0:
                raise _errors.fail(0, self.path)

    def __enter__(self) -> "ImageFile":
        return self

    def __exit__(self, *exc) -> None:
        self.close()

    # --- operators -------------------------------------------------------------
    def _push(self, what: str, install, *args) -> "ImageFile":
        self.images  # the file's images as opened, kept before a layer changes them
        obj = self._object()
        self._description = None
        with state_lock:
            _errors.clear()
            install(obj, *args)
            _installed(what)
        return self

    def select(self, image: int) -> "ImageFile":
        """Read image `image` of a multi-image file (select before other layers)."""
        if not 0 <= image < self._object().info.image_count:
            raise IndexError(f"{self.path}: image {image} of {self._object().info.image_count}")
        return self._push("select", lib.ORX__select, image) if image else self

    def _coded(self, push) -> None:
        """Push layers that would linearise 8-bit codes with a gamma, with the
        gamma set aside so that codes are scaled as they are (0..255 to 0..1)."""
        self.images
        d = self._object().info.images[0]
        gamma = d.curve.gamma
        d.curve.gamma = 1.0
        try:
            push()
        finally:
            self._object().info.images[0].curve.gamma = gamma

    def cast(self, *, linear: bool = False) -> "ImageFile":
        """Every channel group as 32-bit float, integers scaled to 0..1.  With
        linear=True an 8-bit image with a gamma is linearised through it."""
        if linear:
            return self._push("cast", lib.orx__cast_operator)
        self._coded(lambda: self._push("cast", lib.orx__cast_operator))
        return self

    def quantize(self, dtype) -> "ImageFile":
        """Floating-point groups to unsigned integers of dtype (uint8/16/32),
        through the library's quantizer (truncating, not clamping)."""
        type_, bits = group_of(dtype)
        if type_ != INTEGER:
            raise _errors.UnsupportedError("quantize makes uint8, uint16 or uint32", -16)
        target = ffi.new("int32_t[2]", [type_, bits])
        targets = ffi.new("int32_t *[3]", [target, target, target])
        self._keep = (target, targets)
        return self._push("quantize", lib.orx__quantize_read_operator, targets)

    def astype(self, dtype) -> "ImageFile":
        """Convert to dtype through the library's operators: cast for float,
        cast then quantize for another integer width."""
        want = np.dtype(dtype)
        group_of(want)
        have = set(channel_dtypes(self.description))
        if have == {want}:
            return self
        if want.kind == "f":
            if have - {np.dtype(np.float32), np.dtype(np.float64)} or want.itemsize == 4:
                self.cast()
            return self
        if have - {np.dtype(np.float32), np.dtype(np.float64)}:
            self.cast()
        return self.quantize(want)

    def gamma(self, gamma: float) -> "ImageFile":
        """Re-encode 8-bit colour channels for a response of `gamma`."""
        target = ffi.new("ORX_RESPONSE_CURVE *", {"kind": 1, "gamma": gamma, "channels": 1,
                                                  "length": 256, "type": INTEGER, "depth": 8})
        return self._push("gamma", lib.orx__gamma_operator, target)

    def min_max(self, low: float, high: float) -> "ImageFile":
        """8-bit samples into the sub-range low..high."""
        return self._push("min-max", lib.orx__min_max_operator, float(low), float(high))

    def clamp(self) -> "ImageFile":
        """Float colour and matte into 0..1 (premultiplied colour kept in gamut)."""
        return self._push("clamp", lib.orx__clamp_operator)

    def resize(self, width: int, height: int, *, filter: str = "mitchell") -> "ImageFile":
        """Resample to width x height (float samples out) with a named filter:
        box, triangle, gaussian, mitchell, catmull-rom or lanczos3."""
        kernel = lib.ORX_filter_find(filter.encode())
        if kernel == ffi.NULL:
            names = [ffi.string(n).decode() for i in range(64)
                     if (n := lib.ORX_filter_name(i)) != ffi.NULL]
            raise _errors.UnsupportedError(f"filter {filter!r}: the filters are "
                                           + ", ".join(names), -16)
        d = self.description
        chosen = ffi.new("ORX_FILTER *", kernel[0])
        # Kernels are sampled in destination pixels: enlarging, they are
        # stretched back to source pixels (argument and width scaled).
        keep = [chosen]
        for axis, ratio in (("x", d.window.width / width), ("y", d.window.height / height)):
            if ratio < 1.0:
                base = getattr(kernel[0], f"{axis}_kernel")
                fn = ffi.cast("double(*)(double)", base)
                cb = ffi.callback("double(double)", lambda t, fn=fn, r=ratio: fn(t * r))
                keep.append(cb)
                setattr(chosen, f"{axis}_kernel", ffi.cast("void *", cb))
                setattr(chosen, f"{axis}_width", getattr(kernel[0], f"{axis}_width") / ratio)
        self._filter = keep  # the layer keeps a pointer to the filter
        self._coded(lambda: self._push("resize", lib.orx__resample_operator, chosen,
                                       0, width - 1, 0, height - 1))
        self._upwards_only = True
        return self

    def crop(self, x0: int, y0: int, x1: int, y1: int) -> "ImageFile":
        """Columns x0..x1-1 and rows y0..y1-1 (array coordinates: row 0 at the
        top), keeping the sample types."""
        d = self.description
        if not (x1 > x0 and y1 > y0):
            raise ValueError("crop needs x0 < x1 and y0 < y1")
        h = d.window.height
        before = [d.image, d.matte, d.aux]
        self._coded(lambda: self._push("crop", lib.orx__scale_operator, float(x0),
                                       float(h - y1), float(x1), float(h - y0), x1 - x0, y1 - y0))
        pairs = [ffi.new("int32_t[2]", [g.type, g.bits]) if g.type == INTEGER else ffi.NULL
                 for g in before]
        targets = ffi.new("int32_t *[3]", pairs)
        self._keep = (pairs, targets)
        return self._push("crop", lib.orx__quantize_read_operator, targets)

    def transform(self, primaries: str | Sequence[float] | None = None, *,
                  xyz: bool = False) -> "ImageFile":
        """Colour to other primaries (eight chromaticities xr yr xg yg xb yb xw
        yw, or a framebuffer's name), or to CIE XYZ with xyz=True."""
        if primaries is not None:
            target = ffi.new("float[8]")
            if isinstance(primaries, str):
                if lib.ORX_chromaticities_of_framebuffer(primaries.encode(), target) != 0:
                    raise _errors.UnsupportedError(f"no framebuffer {primaries!r}", -4)
            else:
                target[0:8] = [float(v) for v in primaries]
            self._push("color transform", lib.orx__rgb_transform_operator, target)
        if xyz:
            self._push("color transform", lib.orx__xyz_transform_operator, 1)
        return self

    def display(self, framebuffer: str | None = None) -> "ImageFile":
        """What a framebuffer shows: primaries, size, depth and gamma."""
        fb = framebuffer.encode() if framebuffer else ffi.NULL
        self._push("display", lib.ORX__display, fb)
        self._upwards_only = True  # the chain may resize
        return self

    # --- reading -----------------------------------------------------------------
    def _line(self, y: int):
        """The library's buffer holding line y (library numbering)."""
        if lib.ORX_scan_read(self._object(), y, self._rows) != 0:
            raise _errors.fail(-18, f"{self.path}: line {y}")
        return self._rows[0]

    def _order(self, d: Description, rows: range, upwards: bool = False) -> list[int]:
        """Array rows in the order the lines come: as the file stores them,
        bottom row first after a resampling layer or when asked to."""
        up = upwards or self._upwards_only or d.orientation & 1
        return list(rows)[::-1] if up else list(rows)

    def lines(self, y0: int = 0, y1: int | None = None, *, dtype=None) -> Iterator[np.ndarray]:
        """Rows y0..y1-1 (row 0 at the top) as (width, channels) arrays, one
        at a time; each array is new (the library's buffer is reused)."""
        if self._upwards_only:
            raise _errors.UnsupportedError(
                f"{self.path}: a resized image comes bottom row first, in sequence: "
                "read() or copy_to() it", -16)
        if dtype is not None:
            self.astype(dtype)
        d = self.description
        y1 = d.window.height if y1 is None else y1
        view = RowView(d)
        out_dtype = np.dtype(dtype) if dtype is not None else view.dtypes[0]
        _errors.clear()
        for r in range(y0, y1):
            row = np.empty((d.window.width, view.channels), out_dtype)
            view.get(self._line(d.window.top - r), row)
            yield row

    def read(self, *, dtype=None) -> Image:
        """The whole image as an orx.Image, (height, width, channels)."""
        if dtype is not None:
            self.astype(dtype)
        d = self.description
        view = RowView(d)
        kinds = set(view.dtypes)
        if len(kinds) > 1 and dtype is None:  # groups of different types
            self.cast()
            return self.read()
        out = np.empty(d.shape, np.dtype(dtype) if dtype is not None else view.dtypes[0])
        _errors.clear()
        layout = _region_layout(d, out.dtype)
        if layout:
            self._read_regions(d, out, layout)
        else:
            top = d.window.top
            for r in self._order(d, range(d.window.height)):
                view.get(self._line(top - r), out[r])
        return Image.wrap(out, self._describe(0))

    def _read_regions(self, d: Description, out: np.ndarray, layout: int) -> None:
        """Lines converted to interleaved pixels by the library, one call each."""
        w = d.window
        base = ffi.cast("char *", ffi.from_buffer(out))
        step = out.strides[0]
        for r in self._order(d, range(w.height)):
            y = w.top - r
            status = lib.ORX_get_region(self._cell, w.left, w.right, y, y, base + r * step,
                                        -1, layout)
            if status != 0:
                raise _errors.fail(status, self.path)

    def region(self, x0: int, y0: int, x1: int, y1: int, dtype=np.uint8) -> np.ndarray:
        """Columns x0..x1-1 of rows y0..y1-1 (row 0 at the top) as 8- or 16-bit
        grey, RGB or RGBA pixels (by the image's channels): (y1-y0, x1-x0, n)."""
        dt = np.dtype(dtype)
        if dt not in (np.dtype(np.uint8), np.dtype(np.uint16)):
            raise _errors.UnsupportedError("regions are uint8 or uint16", -16)
        d = self.description
        n = 1 if d.image.count < 3 else 4 if d.matte.count or d.image.count > 3 else 3
        if dt.itemsize == 2 and n == 3:
            n = 4
        layout = REGION_LAYOUTS[(n, dt.itemsize)]
        out = np.empty((y1 - y0, x1 - x0, n), dt)
        top = d.window.top
        _errors.clear()
        status = lib.ORX_get_region(self._cell, d.window.left + x0, d.window.left + x1 - 1,
                                    top - (y1 - 1), top - y0, ffi.from_buffer(out), -1, layout)
        if status != 0:
            raise _errors.fail(status, self.path)
        return out[::-1].copy()

    def copy_to(self, path: str | os.PathLike, *, type: str | None = None,
                **description) -> None:
        """Stream the image (as the layers make it) into another file, line
        by line, without holding it in memory."""
        d = self.description
        with Writer(path, d.shape, channel_dtypes(d)[0], type=type, like=self,
                    **description) as out:
            for r in self._order(d, range(d.window.height), out.row_order[0] != 0):
                rows = self._line(d.window.top - r)
                out._write_rows(r, rows)


def _fill_ifd(ifd, d: Description, width: int, height: int, dtype: np.dtype,
              channels: int, groups: dict) -> None:
    lib.orx__init_ifd(ifd)
    type_, bits = group_of(dtype)
    win = (d.window.left, d.window.left + width - 1, d.window.bottom, d.window.bottom + height - 1)
    ifd.window = ifd.active = win
    ifd.curve.gamma = groups.get("gamma", d.gamma)
    image, matte, aux = groups["image"], groups["matte"], channels - groups["image"] - groups["matte"]
    if aux < 0:
        raise ValueError(f"{channels} channels cannot hold {image} colour and {matte} matte")
    for g, count, name in ((ifd.image, image, groups.get("image_name")),
                           (ifd.matte, matte, None), (ifd.aux, aux, groups.get("aux_name"))):
        g.count, g.type, g.bits = count, type_, bits
        g.name = _save(name)
    ifd.aspect_ratio = d.aspect_ratio if d.aspect_ratio > 0 else width / height
    ifd.x_resolution, ifd.y_resolution = width, height
    ifd.field = d.field


def _layout(channels: int, like: Description | None) -> tuple[int, int]:
    """(colour, matte) counts: those of the description when it fits, else
    grey, grey+alpha, RGB, RGBA, then RGBA plus auxiliary channels."""
    if like is not None and like.image.count + like.matte.count <= channels and like.image.count:
        return like.image.count, like.matte.count
    return {1: (1, 0), 2: (1, 1), 3: (3, 0)}.get(channels, (3, 1))


class Writer:
    """A file open for writing, rows one at a time.  Write every row of
    `row_order` (array rows, row 0 at the top, in the order the format stores
    them), then close: the file appears under its name only when complete."""

    def __init__(self, path: str | os.PathLike, shape: tuple[int, int, int], dtype=np.uint8, *,
                 type: str | None = None, like=None, matte: int | None = None,
                 gamma: float | None = None, image_name: str | None = None,
                 aux_name: str | None = None, chromaticities: dict | None = None,
                 frame: int | None = None, job: int | None = None,
                 settings: Mapping[str, str | int | float] | Sequence[int | float | None]
                 | None = None,
                 attributes: dict | None = None, **texts: str) -> None:
        start()
        self.path = os.fspath(path)
        height, width, channels = shape
        self.dtype = np.dtype(dtype)
        source = like.description if isinstance(like, ImageFile) else \
            like if isinstance(like, Description) else None
        d = source or Description()
        unknown = set(texts) - set(TEXTS)
        if unknown:
            raise TypeError(f"unknown description keywords: {', '.join(sorted(unknown))}")
        if type is None and not any(ext and self.path.endswith(ext) for _, ext, _ in formats()):
            ext = os.path.splitext(self.path)[1]
            raise _errors.UnsupportedError(
                (f"no format claims the extension \"{ext}\"" if ext else
                 "the name has no extension that names a format") + "; name one with type=: "
                + ", ".join(f"{k} ({e})" for k, e, _ in formats()), -4)
        if isinstance(settings, Mapping):  # checked before anything is written
            settings = by_position(self._format_key(type), settings)
        image, mattes = _layout(channels, source)
        if matte is not None:
            image, mattes = channels - matte - (d.aux.count if source else 0), matte
            image = max(image, 1)
        groups = {"image": image, "matte": mattes,
                  "image_name": image_name or (source.image.name if source else
                                               "rgb" if image == 3 else None),
                  "aux_name": aux_name or (source.aux.name if source else None)}
        if gamma is not None:
            groups["gamma"] = gamma
        self._output = SafeOutput(self.path)
        request = ffi.new("ORX_INFO *")
        lib.ORX_info_init(request)
        request.handle = _save(self._output.path)
        request.type = _save(type)
        request.full_path = 1
        try:  # the record owns what is saved into it, whatever happens here
            merged = dict(d.texts) if source else {}
            merged.update(texts)
            merged.pop("compression", None)
            for k, v in merged.items():
                setattr(request, k, _save(v))
            for k, xy in {**(d.chromaticities if source else {}), **(chromaticities or {})}.items():
                getattr(request, k)[0:2] = [float(xy[0]), float(xy[1])]
            if settings:
                request.settings = self._settings(settings)
            request.frame = d.frame if frame is None else frame
            request.job = d.job if job is None else job
            request.images = ffi.cast("ORX_IFD *", lib.ERR_malloc(ffi.sizeof("ORX_IFD")))
            if request.images == ffi.NULL:
                raise _errors.OutOfMemoryError("no memory for the image's descriptor", -10)
            request.image_count = 1
            _fill_ifd(request.images, d, width, height, self.dtype, channels, groups)
            if has_attributes():
                kept = d.attributes if source else {}
                set_attributes(request, 0, {**kept, **(attributes or {})})
            _errors.clear()
            obj = lib.ORX_open(request, b"w")
        finally:
            lib.ORX_info_cleanup(request, 1)
        if obj == ffi.NULL:
            self._output.discard()
            raise self._output.told(_errors.fail(0, self.path))
        self._cell = ffi.new("ORX_OBJECT **", obj)
        self._buffer_cell = ffi.new("void ***")
        self._finalizer = weakref.finalize(self, _abandon, self._cell, self._buffer_cell,
                                           self._output)
        self.description = from_info(obj.info, 0, ffi.string(obj.format.key).decode())
        upwards = obj.format != ffi.NULL and obj.format.orientation & 1
        self.row_order = list(range(height))[::-1] if upwards else list(range(height))
        self._buffer = lib.ORX_chan_alloc(obj.info.images, width, b"python", ffi.NULL)
        self._buffer_cell[0] = self._buffer
        if self._buffer == ffi.NULL:
            self.abandon()
            raise _errors.fail(-10, self.path)
        self._view = RowView(self.description)
        self._top = self.description.window.top

    def _format_key(self, type: str | None) -> str:
        """The key of the format that writes the file: type, or the one whose
        extension ends the name."""
        return type or next(k for k, ext, _ in formats() if ext and self.path.endswith(ext))

    def _settings(self, values: Sequence[int | float | None]):
        """The format's settings by position in its capability table (README,
        "Format plug-ins"): an int or a float, None to leave one unset.  Kept
        alive with the writer: the object refers to them until closed."""
        cells = ffi.new("ORX_CAP_SETTING[]", len(values))
        pointers = ffi.new("ORX_CAP_SETTING *[]", len(values) + 1)
        for i, v in enumerate(values):
            if v is None:
                cells[i].code = 65535
            elif isinstance(v, float):
                cells[i].code, cells[i].value.f = 1, v
            else:
                cells[i].code, cells[i].value.i = 0, int(v)
            pointers[i] = ffi.addressof(cells, i)
        self._kept_settings = (cells, pointers)
        return pointers

    def _write_rows(self, r: int, rows) -> None:
        _errors.clear()
        if lib.ORX_scan_write(self._cell[0], self._top - r, rows) != 0:
            raise self._output.told(_errors.fail(-20, self.path))

    def write_row(self, r: int, row: np.ndarray) -> None:
        """Write array row r (width, channels) of the image."""
        if self._cell[0] == ffi.NULL:
            raise ValueError("I/O operation on a closed image")
        self._view.put(self._buffer, np.asarray(row).reshape(self._view.width, -1))
        self._write_rows(r, self._buffer)

    def close(self) -> None:
        """Complete the file and put it in place."""
        if self._cell[0] == ffi.NULL:
            return
        self._finalizer.detach()
        obj, self._cell[0] = self._cell[0], ffi.NULL
        _free_buffer(self._buffer_cell)
        _errors.clear()
        if lib.ORX_close(obj) != 0:
            self._output.discard()
            raise self._output.told(_errors.fail(-20, self.path))
        self._output.commit()

    def abandon(self) -> None:
        """Close without keeping anything written."""
        self._finalizer.detach()
        _abandon(self._cell, self._buffer_cell, self._output)

    def __enter__(self) -> "Writer":
        return self

    def __exit__(self, kind, *exc) -> None:
        if kind is None:
            self.close()
        else:
            self.abandon()


def _free_buffer(cell) -> None:
    if cell[0] != ffi.NULL:
        buffer, cell[0] = cell[0], ffi.NULL
        lib.ORX_chan_free(buffer)


def _abandon(cell, buffer_cell, output: SafeOutput) -> None:
    _free_buffer(buffer_cell)
    _close_cell(cell)
    output.discard()
