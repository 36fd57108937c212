"""Runs every command and snippet of these pages, next to a sound server."""

import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PAGES = ("README.md", "docs/protocol.md", "docs/troubleshooting.md", "examples/node/README.md",
         "examples/python/README.md")
# Whoever runs this has run these.
BUILDING = ("scripts/", "cmake ")
RUNNERS = {"sh": ["sh", "-e", "-c"], "python": [sys.executable, "-c"],
           "js": ["node", "--input-type=module", "-e"]}


class CommandsTest(unittest.TestCase):
    def test_every_block_runs_and_the_recording_is_there(self):
        for page in PAGES:
            with self.subTest(page), tempfile.TemporaryDirectory() as name:
                folder = Path(name)
                (folder / "build").symlink_to(os.environ["QUENLOR_BUILD"])
                (folder / "examples").symlink_to(ROOT / "examples")
                for language, block in re.findall(rf"```({'|'.join(RUNNERS)})\n(.*?)```",
                                                  (ROOT / page).read_text(), re.DOTALL):
                    if block.startswith(BUILDING):
                        continue
                    run = subprocess.run([*RUNNERS[language], block], cwd=folder, timeout=60,
                                         capture_output=True, text=True)
                    self.assertEqual(run.returncode, 0, block + run.stdout + run.stderr)
                self.assertGreater((folder / "meeting.wav").stat().st_size, 44)
