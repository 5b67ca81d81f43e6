"""What the documents show runs as it stands."""

import doctest
import re
from pathlib import Path

import kavo
import kavo.batch

ROOT = Path(__file__).resolve().parents[3]


def test_the_examples_in_texts():
    for module in (kavo, kavo.batch):
        failed, attempted = doctest.testmod(module)
        assert attempted > 0 and failed == 0
    for text in ("README.md", "docs/batch.md", "docs/python.md"):
        blocks = re.findall(r"^```python\n(.*?)^```", (ROOT / text).read_text(), re.MULTILINE | re.DOTALL)
        assert blocks
        for block in blocks:
            exec(block, {})
