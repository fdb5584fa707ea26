"""Streaming: descriptions without pixels, lines, regions, images, writers,
and memory bounded by a few rows."""
import subprocess
import sys

import numpy as np
import pytest

import orx
from conftest import needs, pattern


@pytest.mark.parametrize("ext,dtype,channels", [("rla", np.uint8, 4), ("png", np.uint16, 4),
                                                 ("exr", np.float32, 3), ("tif", np.uint8, 1)])
def test_lines_and_regions_agree_with_the_whole_image(tmp_path, ext, dtype, channels):
    needs(ext)
    a = pattern(30, 40, channels, dtype)
    orx.write(tmp_path / f"s.{ext}", a)
    whole = orx.read(tmp_path / f"s.{ext}")
    with orx.open(tmp_path / f"s.{ext}") as f:
        assert f.shape == a.shape  # described before any pixel is read
        assert np.array_equal(np.stack(list(f.lines(5, 17))), whole[5:17])
        if whole.dtype.kind == "u":
            got = f.region(3, 4, 29, 21, dtype=whole.dtype)
            n = 1 if channels == 1 else 4
            assert np.array_equal(got[..., :min(n, channels)], whole[4:21, 3:29, :n])


def test_images_of_a_multi_image_file(tmp_path):
    orx.write(tmp_path / "src.rla", pattern(40, 64, 3, np.uint8))
    orx.swatch(tmp_path / "src.rla", tmp_path / "sw.rla", size=16)
    with orx.open(tmp_path / "sw.rla") as f:
        assert [d.shape for d in f.images] == [(40, 64, 3), (10, 16, 3)]
        small = f.select(1).read()
    assert small.shape == (10, 16, 3)
    assert np.array_equal(orx.read(tmp_path / "sw.rla", image=1), small)


def test_writer_takes_rows_one_at_a_time_and_an_abandoned_one_leaves_the_file(tmp_path):
    a = pattern(12, 20, 4, np.uint16)
    with orx.open(tmp_path / "w.rla", "w", shape=a.shape, dtype=a.dtype, name="rows") as out:
        for r in out.row_order:
            out.write_row(r, a[r])
    assert np.array_equal(orx.read(tmp_path / "w.rla"), a)
    before = (tmp_path / "w.rla").read_bytes()
    with pytest.raises(RuntimeError):
        with orx.open(tmp_path / "w.rla", "w", shape=(4, 4, 3)) as out:
            out.write_row(out.row_order[0], np.zeros((4, 3), np.uint8))
            raise RuntimeError("interrupted")
    assert (tmp_path / "w.rla").read_bytes() == before
    assert sorted(p.name for p in tmp_path.iterdir()) == ["w.rla"]


CHILD = r"""
import resource, sys
import numpy as np
import orx
path = sys.argv[1]
base = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
with orx.open(path) as f:
    total = sum(int(row[::4096, 0].sum()) for row in f.lines())
    corner = f.region(16000, 16000, 16384, 16384)
assert corner.shape == (384, 384, 3)
peak = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
print(total, (peak - base) * 1024, peak * 1024)
"""


def test_streaming_a_16384_square_image_stays_small(tmp_path):
    path = tmp_path / "big.rla"
    n = 16384
    row = np.empty((n, 3), np.uint8)
    with orx.open(path, "w", shape=(n, n, 3)) as out:
        for r in out.row_order:
            row[...] = r % 251
            out.write_row(r, row)
    done = subprocess.run([sys.executable, "-c", CHILD, str(path)], capture_output=True,
                          text=True, check=True)
    total, grown, peak = map(int, done.stdout.split())
    assert total == sum((r % 251) * 4 for r in range(n))
    assert grown < 64 << 20, done.stdout
