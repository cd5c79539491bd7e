"""Databases that the tests of the Python package read."""
import json
import os
import pathlib
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["QIM_SOURCE_DIR"])
BUILD = pathlib.Path(os.environ["QIM_BUILD_DIR"])
EXAMPLES = SOURCE / "examples"


def qimctl(*arguments):
    return subprocess.run([BUILD / "bin/qimctl", *arguments], check=True, stdout=subprocess.PIPE).stdout


class DatabaseTest(unittest.TestCase):
    def setUp(self):
        work = tempfile.TemporaryDirectory()
        self.addCleanup(work.cleanup)
        self.work = pathlib.Path(work.name)
        self.path = str(self.work / "db")

    def load(self, *files):
        qimctl("--db", self.path, "import", *files)

    def load_nodes(self, nodes):
        document = {"format": "qim-policy", "version": 1, "nodes": nodes}
        (self.work / "nodes.json").write_text(json.dumps(document), encoding="utf-8")
        self.load(self.work / "nodes.json")
