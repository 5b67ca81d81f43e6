"""What the documents show runs as it stands."""

import doctest
import re
import shutil
from pathlib import Path

import kavo
import kavo.batch

ROOT = Path(__file__).resolve().parents[3]


def test_the_examples_in_texts(tmp_path, monkeypatch):
    for module in (kavo, kavo.batch):
        failed, attempted = doctest.testmod(module)
        assert attempted > 0 and failed == 0
    # What the tutorial has made by then.
    shutil.copytree(ROOT / "examples/own_robot", tmp_path / "my_robot")
    for kind in ("urdf", "srdf"):
        (tmp_path / f"my_robot/arm.{kind}").rename(tmp_path / f"my_robot/robot.{kind}")
    monkeypatch.chdir(tmp_path)
    for text in ("README.md", "docs/batch.md", "docs/python.md", "docs/tutorial.md"):
        blocks = re.findall(r"^```python\n(.*?)^```", (ROOT / text).read_text(), re.MULTILINE | re.DOTALL)
        assert blocks
        for block in blocks:
            exec(block, {})
