import os
import shutil

import numpy as np
import pytest

import orx

FORMATS = {key for key, _, _ in orx.formats()}


KEYS = {"tif": "tiff", "jpg": "jpeg"}


def needs(ext):
    """Skip when the plug-in of a file extension was not built."""
    key = KEYS.get(ext, ext)
    if key not in FORMATS:
        pytest.skip(f"no {key} plug-in built")


@pytest.fixture
def tool():
    path = os.environ.get("ORX_TOOL") or shutil.which("orx")
    if not path:
        pytest.skip("the orx tool is not built")
    return path


def pattern(h, w, c, dtype):
    """Distinct, format-friendly samples: multiples of 1/256 for floats (exact
    in half), a ramp per channel for integers.  With two or four channels the
    last is a matte and the colour lies within it (associated alpha, the
    library's convention), so formats that store straight alpha round-trip."""
    y, x, k = np.mgrid[0:h, 0:w, 0:c]
    v = (x * 7 + y * 13 + k * 61) % 256
    if c in (2, 4):
        v[..., :-1] = np.minimum(v[..., :-1], v[..., -1:])
    dt = np.dtype(dtype)
    if dt.kind == "f":
        return (v / 256.0).astype(dt)
    return (v * ((1 << (8 * dt.itemsize)) - 1) // 255).astype(dt)
