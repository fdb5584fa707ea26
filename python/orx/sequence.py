"""Frame sequences: numbered file names, lazy reading, parallel conversion."""
from __future__ import annotations

import os
import re
from concurrent.futures import ThreadPoolExecutor
from typing import Callable, Iterable, Iterator

import numpy as np

from ._handle import ImageFile
from .image import Image

_HASHES = re.compile(r"#+")


def frame_path(pattern: str | os.PathLike, frame: int) -> str:
    """The name of a frame: the last run of '#' becomes the frame number,
    zero-padded to its length ("shot.####.exr", 7 -> "shot.0007.exr"); a
    printf pattern ("shot.%04d.exr") is formatted."""
    text = os.fspath(pattern)
    runs = list(_HASHES.finditer(text))
    if runs:
        m = runs[-1]
        return f"{text[:m.start()]}{frame:0{len(m.group())}d}{text[m.end():]}"
    if "%" in text:
        return text % frame
    raise ValueError(f"{text}: no #### or %d for the frame number")


def frames(pattern: str | os.PathLike, frames: Iterable[int], *, dtype=None) -> Iterator[tuple[int, Image]]:
    """(frame, Image) for each frame, each read only when it is reached."""
    for n in frames:
        with ImageFile(frame_path(pattern, n)) as f:
            yield n, f.read(dtype=dtype)


Op = Callable[[ImageFile], "ImageFile | np.ndarray | None"]


def _convert(op: Op | None, source: str, target: str, kwargs: dict) -> None:
    with ImageFile(source) as f:
        result = op(f) if op is not None else f
        if isinstance(result, ImageFile):
            result.copy_to(target, **kwargs)
        elif result is not None:
            from . import write
            write(target, result, **kwargs)


def sequence(op: Op | None, in_pattern: str | os.PathLike, out_pattern: str | os.PathLike,
             frames: Iterable[int], *, jobs: int = 1, **write_options) -> list[int]:
    """Convert every frame: op receives the open input (an ImageFile) and
    returns it with layers pushed (streamed into the output line by line),
    or an array to write, or None when it wrote nothing; op=None copies.
    Frames run on `jobs` threads (the library's calls release the GIL, and
    each frame has its own objects).  Returns the frames done; the first
    failure is raised after the frames under way have finished."""
    numbers = list(frames)
    work = [(frame_path(in_pattern, n), frame_path(out_pattern, n)) for n in numbers]
    if jobs <= 1:
        for s, t in work:
            _convert(op, s, t, write_options)
        return numbers
    with ThreadPoolExecutor(max_workers=jobs) as pool:
        for future in [pool.submit(_convert, op, s, t, write_options) for s, t in work]:
            future.result()
    return numbers
