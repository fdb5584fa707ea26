"""Operators, processes and sequences against the orx tool and numpy."""
import subprocess

import numpy as np
import pytest

import orx
from conftest import needs, pattern

BT709 = "0.64,0.33,0.3,0.6,0.15,0.06,0.3127,0.329"
# (name, source dtype, the chain, the same through the orx tool)
CHAINS = [
    ("cast", np.uint8, lambda f: f.cast(linear=True), ["copy", "--depth", "float"]),
    ("astype", np.uint16, lambda f: f.astype(np.uint8), ["copy", "--depth", "int8"]),
    ("gamma", np.uint8, lambda f: f.gamma(1.0), ["copy", "--gamma", "1.0"]),
    ("min_max", np.uint8, lambda f: f.min_max(0.25, 1.0), ["copy", "--range", "0.25,1"]),
    ("transform", np.uint16, lambda f: f.transform(primaries=[float(v) for v in BT709.split(",")]),
     ["copy", "--primaries", BT709]),
    ("xyz", np.uint16, lambda f: f.transform(xyz=True), ["copy", "--xyz"]),
    ("display", np.uint8, lambda f: f.display(), ["copy", "--display", "default"]),
    ("reduce", np.uint16, lambda f: f.resize(21, 13, filter="lanczos3"),
     ["resize", "--size", "21x13", "--filter", "lanczos3"]),
    ("enlarge", np.uint16, lambda f: f.resize(90, 70, filter="catmull-rom"),
     ["resize", "--size", "90x70", "--filter", "catmull-rom"]),
]


def scaled(a):
    return a / float(np.iinfo(a.dtype).max) if a.dtype.kind == "u" else a.astype(np.float64)


@pytest.mark.parametrize("ext", ["rla", "png"])  # lines kept bottom or top row first
@pytest.mark.parametrize("name,dtype,chain,args", CHAINS, ids=[c[0] for c in CHAINS])
def test_chain_matches_the_tool(tmp_path, tool, ext, name, dtype, chain, args):
    needs(ext)
    src = tmp_path / f"src.{ext}"
    orx.write(src, pattern(40, 50, 4, dtype))
    with orx.open(src) as f:
        ours = chain(f).read()
    subprocess.run([tool, *args[:1], str(src), str(tmp_path / "t.rla"), *args[1:]], check=True)
    theirs = orx.read(tmp_path / "t.rla")
    assert ours.shape == theirs.shape
    # The tool writes a resize at the input's type, rounded and clamped.
    step = 1.0 / np.iinfo(theirs.dtype).max if theirs.dtype.kind == "u" else 1e-6
    assert np.abs(np.clip(scaled(ours), 0, 1) - np.clip(scaled(theirs), 0, 1)).max() <= step


@pytest.mark.parametrize("dtype", [np.uint8, np.float32])
def test_crop_is_a_slice(tmp_path, dtype):
    a = pattern(30, 40, 3, dtype)
    orx.write(tmp_path / "c.rla", a)
    with orx.open(tmp_path / "c.rla") as f:
        got = f.crop(5, 7, 33, 20).read()
    assert got.dtype == a.dtype and np.array_equal(got, a[7:20, 5:33])


def test_mipmap_texture_lookups(tmp_path):
    a = np.full((64, 128, 3), (64, 128, 255), np.uint8)
    a[:, :64] = 0  # left half black
    orx.write(tmp_path / "t.rla", a)
    orx.maketx(tmp_path / "t.rla", tmp_path / "t.tx.rla")
    with orx.texture(tmp_path / "t.tx.rla") as tex:
        assert tex.levels == 8 and tex.size(0) == (128, 64) and tex.size(7) == (1, 1)
        right, left = tex.lookup([0.9, 0.1], 0.5)
        assert np.allclose(right, [64 / 255, 128 / 255, 1.0], atol=1e-3) and not left.any()
        assert np.allclose(tex.lookup(0.5, 0.5, 1.0, 1.0), [32 / 255, 64 / 255, 0.5], atol=2e-3)


def test_fields_interlace(tmp_path):
    first, second = pattern(6, 8, 3, np.uint8), pattern(6, 8, 3, np.uint8)[::-1]
    # The library names the partner without the extension: take.0008.
    for name, a, code in [("take.0007.rla", first, 1), ("take.0008", second, 2)]:
        orx.write(tmp_path / name, orx.Image.wrap(a, orx.Description(field=code)), type="rla")
    with orx.fields(tmp_path / "take.0007.rla") as f:
        frame = f.read()
    assert np.array_equal(frame[0::2], second) and np.array_equal(frame[1::2], first)


def test_parallel_sequence_equals_serial(tmp_path):
    for n in range(1, 7):
        orx.write(tmp_path / f"in.{n:04d}.rla", pattern(48, 64, 4, np.uint16) // n)
    resize = lambda f: f.resize(32, 24)
    orx.sequence(resize, tmp_path / "in.####.rla", tmp_path / "one.####.exr", range(1, 7))
    orx.sequence(resize, tmp_path / "in.####.rla", tmp_path / "two.####.exr", range(1, 7), jobs=3)
    serial = dict(orx.frames(tmp_path / "one.####.exr", range(1, 7)))
    with orx.open(tmp_path / "in.0003.rla") as f:
        assert np.abs(serial[3] - resize(f).read()).max() < 1e-3  # half floats
    for n, image in orx.frames(tmp_path / "two.####.exr", range(1, 7)):
        assert np.array_equal(image, serial[n])
