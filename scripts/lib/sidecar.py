"""Runs the recorder as a parent does."""

import json
import os
import subprocess


class Sidecar:
    """Returns from its construction once it records."""

    def __init__(self, program, path):
        self.process = subprocess.Popen(
            [program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
            text=True, env=os.environ | {"TMPDIR": os.path.dirname(path)})
        self.send(json.dumps({"mode": "mixed", "outputPath": path, "title": "Measured"}))
        if "ready" not in self.process.stdout.readline():
            raise RuntimeError(f"{program} did not become ready; status {self.process.wait()}")

    def send(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def stop(self):
        """Returns once the result has come."""
        self.send("stop")
        self.process.stdout.readline()

    def wait(self):
        self.process.stdin.close()
        if self.process.wait() != 0:
            raise RuntimeError(f"the recorder ended with status {self.process.returncode}")
