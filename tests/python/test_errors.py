"""Failures raise the family's subclass with the library's own message."""
import threading

import numpy as np
import pytest

import orx
from conftest import needs, pattern


def corrupt(tmp_path, ext):
    good = tmp_path / f"good.{ext}"
    orx.write(good, pattern(64, 64, 3, np.uint8))
    bad = tmp_path / f"bad.{ext}"
    bad.write_bytes(good.read_bytes()[: 40])
    return bad


CASES = [  # (what, extension, call, exception, words of the message)
    *[("missing", ext, lambda p, ext: orx.open(p / f"nope.{ext}"), orx.NotFoundError, "nope.")
      for ext in ("rla", "png", "exr")],
    *[("cut short", ext, lambda p, ext: orx.read(corrupt(p, ext)), orx.BadInputError, "bad.")
      for ext in ("rla", "png", "exr")],
    ("unknown extension", "rla", lambda p, ext: orx.write(p / "a.xyz", np.zeros((2, 2, 3), np.uint8)),
     orx.UnsupportedError, "\".xyz\""),
    ("wrong dtype", "rla", lambda p, ext: orx.write(p / "a.rla", np.zeros((2, 2, 3), np.int8)),
     orx.UnsupportedError, "int8"),
    ("unknown type", "rla", lambda p, ext: orx.read(corrupt(p, ext), type="nosuch"),
     orx.UnsupportedError, "nosuch"),
    ("unknown filter", "rla", lambda p, ext: orx.open(corrupt(p, "rla").with_name("good.rla"))
     .resize(4, 4, filter="nosuch"), orx.UnsupportedError, "lanczos3"),
]


@pytest.mark.parametrize("what,ext,call,kind,words", CASES, ids=[c[0] + "-" + c[1] for c in CASES])
def test_failure_raises_its_family(tmp_path, capfd, what, ext, call, kind, words):
    needs(ext)
    with pytest.raises(kind) as caught:
        call(tmp_path, ext)
    assert isinstance(caught.value, orx.Error) and caught.value.status < 0
    assert words in str(caught.value)
    assert "ERROR" not in capfd.readouterr().err  # captured, not printed


def test_each_thread_gets_its_own_message(tmp_path):
    """Failures on several threads at once each carry their own file's name."""
    orx.write(tmp_path / "ok.rla", pattern(32, 32, 3, np.uint8))
    seen = {i: [] for i in range(4)}

    def work(i):
        for _ in range(50):
            orx.read(tmp_path / "ok.rla")
            try:
                orx.read(tmp_path / f"missing{i}.rla")
            except orx.Error as e:
                seen[i].append((type(e), e.status, f"missing{i}.rla" in str(e)))

    threads = [threading.Thread(target=work, args=(i,)) for i in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert seen == {i: [(orx.NotFoundError, -5, True)] * 50 for i in range(4)}


def test_no_growth_over_many_open_read_close_cycles(tmp_path):
    orx.write(tmp_path / "s.rla", pattern(16, 16, 4, np.uint16))

    def resident():
        with open("/proc/self/statm") as f:
            return int(f.read().split()[1]) * 4096

    for _ in range(1000):
        with orx.open(tmp_path / "s.rla") as f:
            f.read()
    before = resident()
    for _ in range(10000):
        with orx.open(tmp_path / "s.rla") as f:
            f.read()
    assert resident() - before < 2 << 20
