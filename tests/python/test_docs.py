"""What the guide shows runs."""

import os
import re
import tempfile
import unittest
from pathlib import Path

import material

ROOT = Path(__file__).resolve().parents[2]


class Guide(unittest.TestCase):
    def test_runs(self):
        text = (ROOT / "docs" / "python.md").read_text()
        blocks = re.findall(r"^```python\n(.*?)^```", text, re.MULTILINE | re.DOTALL)
        self.assertGreater(len(blocks), 4)
        before = os.getcwd()
        with tempfile.TemporaryDirectory() as folder:
            os.chdir(folder)
            try:
                os.symlink(material.movie(), "clip.mp4")
                for block in blocks:
                    exec(compile(block, block.splitlines()[0], "exec"), {})
            finally:
                os.chdir(before)


if __name__ == "__main__":
    unittest.main()
