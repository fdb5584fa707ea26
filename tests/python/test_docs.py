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
