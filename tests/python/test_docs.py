"""The examples of docs/python.md run, in order, in one namespace."""
import re
from pathlib import Path

DOC = Path(__file__).resolve().parents[2] / "docs" / "python.md"


def test_python_guide_examples_run(tmp_path, monkeypatch):
    blocks = re.findall(r"```python\n(.*?)```", DOC.read_text(), re.S)
    assert len(blocks) >= 6
    monkeypatch.chdir(tmp_path)
    namespace = {}
    for block in blocks:
        exec(compile(block, str(DOC), "exec"), namespace)
    assert sorted(p.name for p in tmp_path.glob("proxy.*.png")) == \
        [f"proxy.{n:04d}.png" for n in range(1, 5)]


def test_readme_python_program(tmp_path, capsys):
    readme = (DOC.parents[1] / "README.md").read_text()
    program = re.search(r"## Using the library.*?```python\n(.*?)```", readme, re.S).group(1)
    namespace = {"__name__": "readme"}
    exec(compile(program, "README.md", "exec"), namespace)
    import numpy as np
    import orx
    orx.write(tmp_path / "a.rla", np.zeros((16, 64, 3), np.uint8))
    assert namespace["main"](str(tmp_path / "a.rla")) == 0
    assert capsys.readouterr().out.startswith("64 x 16, 3 colour channels of 8 bits\nrow 0: 0\n")
    assert namespace["main"](str(tmp_path / "missing.rla")) == 1
    assert "status -5" in capsys.readouterr().err
