#!/usr/bin/python3
"""The Python package beside its peers, in one run:

  1. orx.read of a 3840x2160 RGBA image (8-bit PNG, 16-bit TIFF, half EXR,
     8-bit RLA) against OpenImageIO's Python ImageInput.read_image() and
     ImageBuf(path).get_pixels() at their defaults (float pixels), and the
     library's own C read (c_read.c, the examples/host.c way: one memcpy per
     row and channel);
  2. opening and describing 1,000 small files against `orx info` over the
     same files (one process for all), per file;
  3. orx.sequence over 100 HD frames (half EXR, resized to 960x540 RLA)
     with jobs=2 against jobs=1, beside the orx tool's own -j 2 and -j 1.

  bench/python/bench.py BUILD_DIR [--repeat N] [--frames N]
Times are the best of N runs; ratios > 1 favour orx.
"""
from __future__ import annotations

import argparse
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np

ROOT = Path(__file__).resolve().parents[2]


def best(fn, repeat):
    times = []
    for _ in range(repeat):
        t = time.perf_counter()
        fn()
        times.append(time.perf_counter() - t)
    return min(times)


def content(h, w, c, dtype, seed=1):
    """A plate-like image: smooth gradients plus a little grain."""
    y, x = np.mgrid[0:h, 0:w].astype(np.float32)
    rng = np.random.default_rng(seed)
    planes = [(0.5 + 0.4 * np.sin(x / (97 + 13 * k) + y / (61 + 7 * k))) for k in range(c)]
    v = np.clip(np.dstack(planes) + rng.normal(0, 0.01, (h, w, c)).astype(np.float32), 0, 1)
    if c == 4:
        v[..., 3] = 1.0
    dt = np.dtype(dtype)
    return (v * np.iinfo(dt).max).round().astype(dt) if dt.kind == "u" else v.astype(dt)


def main() -> int:
    ap = argparse.ArgumentParser()
    ap.add_argument("build", type=Path)
    ap.add_argument("--repeat", type=int, default=5)
    ap.add_argument("--frames", type=int, default=100)
    args = ap.parse_args()
    build = args.build.resolve()
    os.environ.setdefault("ORX_LIBRARY", str(build / "src" / "liborx.so.0"))
    sys.path.insert(0, str(ROOT / "python"))
    import orx
    import OpenImageIO as oiio

    work = Path(tempfile.mkdtemp(prefix="orx-pybench-"))
    plugins = build / "lib" / "orx" / "plugins"
    c_read = work / "c_read"
    subprocess.run(["cc", "-O2", "-std=c99", "-o", str(c_read), str(Path(__file__).with_name("c_read.c")),
                    f"-I{ROOT / 'include'}", f"-L{build / 'src'}", "-lorx", "-ldl",
                    f"-Wl,-rpath,{build / 'src'}"], check=True)

    print("## orx.read of 3840x2160 RGBA into numpy (seconds, best of %d)" % args.repeat)
    print("| file | orx.read | C read | OIIO read_image | OIIO ImageBuf.get_pixels | orx vs C | read_image / orx | get_pixels / orx |")
    print("|---|---|---|---|---|---|---|---|")
    cases = [("png", np.uint8, {}), ("tif", np.uint16, {}), ("exr", np.float32, {}),
             ("rla", np.uint8, {})]
    for ext, dtype, _ in cases:
        path = str(work / f"uhd.{ext}")
        orx.write(path, content(2160, 3840, 4, dtype))  # EXR stores half by default
        ours = best(lambda: orx.read(path), args.repeat)
        out = subprocess.run([str(c_read), str(args.repeat), str(plugins), path], check=True,
                             capture_output=True, text=True).stdout
        c_time = float(out.split()[-1])

        def read_image():
            inp = oiio.ImageInput.open(path)
            inp.read_image()
            inp.close()

        def get_pixels():
            # ImageBuf reads through the process's shared ImageCache: empty
            # it, or the runs after the first time a copy in memory.
            oiio.ImageCache(True).invalidate_all(True)
            oiio.ImageBuf(path).get_pixels()

        peer1 = best(read_image, args.repeat)
        peer2 = best(get_pixels, args.repeat)
        print(f"| {ext} {np.dtype(dtype).name if ext != 'exr' else 'half'} | {ours:.4f} | {c_time:.4f} | "
              f"{peer1:.4f} | {peer2:.4f} | {ours / c_time:.2f}x | {peer1 / ours:.2f} | {peer2 / ours:.2f} |")

    small = work / "small"
    small.mkdir()
    names = []
    for i in range(1000):
        names.append(str(small / f"s{i:04d}.rla"))
        orx.write(names[-1], content(16, 16, 3, np.uint8, seed=i))
    tool = build / "tools" / "orx"

    def describe_all():
        for n in names:
            with orx.open(n) as f:
                f.description

    ours = best(describe_all, 3) / len(names)
    theirs = best(lambda: subprocess.run([str(tool), "info", *names], check=True,
                                         stdout=subprocess.DEVNULL), 3) / len(names)
    print("\n## opening and describing 1,000 small RLA files (per file)")
    print("| orx.open + description | orx info | ratio orx.open / orx info |")
    print("|---|---|---|")
    print(f"| {ours * 1e6:.1f} us | {theirs * 1e6:.1f} us | {ours / theirs:.2f} |")

    seq = work / "seq"
    seq.mkdir()
    frame = content(1080, 1920, 4, np.float32)
    for n in range(1, args.frames + 1):
        orx.write(seq / f"in.{n:04d}.exr", frame)
    frames = range(1, args.frames + 1)
    # RLA output: it encodes each line as it comes, whereas the plug-ins
    # encode at close, which the library runs under its one library lock.
    times = {}
    for jobs in (1, 2):
        t = time.perf_counter()
        orx.sequence(lambda f: f.resize(960, 540, filter="lanczos3"), seq / "in.####.exr",
                     seq / f"out{jobs}.####.rla", frames, jobs=jobs)
        times[jobs] = time.perf_counter() - t
    # The same conversion by the orx tool on its own threads: what the
    # machine allows right now, beside what the package gets.
    tool_times = {}
    for jobs in (1, 2):
        t = time.perf_counter()
        subprocess.run([str(tool), "resize", str(seq / "in.####.exr"), str(seq / f"tool{jobs}.####.rla"),
                        "--size", "960x540", "--filter", "lanczos3", "--frames",
                        f"1-{args.frames}", "-j", str(jobs)], check=True, stderr=subprocess.DEVNULL)
        tool_times[jobs] = time.perf_counter() - t
    print(f"\n## {args.frames} HD frames, half EXR resized to 960x540 RLA")
    print("| | jobs=1 | jobs=2 | speed-up |")
    print("|---|---|---|---|")
    for name, t in (("orx.sequence", times), ("orx resize --frames -j", tool_times)):
        print(f"| {name} | {t[1]:.2f} s | {t[2]:.2f} s | {t[1] / t[2]:.2f}x |")
    subprocess.run(["rm", "-rf", str(work)])
    return 0


if __name__ == "__main__":
    sys.exit(main())
