"""A dump in Python beside that of the tool."""
import os
import subprocess
import sys

from support import EXAMPLES, DatabaseTest, qimctl


class Dump(DatabaseTest):
    def same(self):
        program = EXAMPLES / "dump.py"
        dumped = subprocess.run([sys.executable, "-B", program, self.path], check=True,
                                stdout=subprocess.PIPE).stdout
        self.assertEqual(dumped, qimctl("--db", self.path, "dump"))
        lines = program.read_text(encoding="utf-8").split('"""', 2)[2].splitlines()
        self.assertLessEqual(sum(1 for line in lines if line), 40)

    def test_in_python_is_the_same_byte_for_byte(self):
        self.load(EXAMPLES / "edge-all-types.json", EXAMPLES / "edge-router.rfc8519.json")
        self.load_nodes([{"id": 1, "type": "Raw", "body": {"tlv": "deadbeef"}, "links": {"0x81": 0x04100080}},
                         {"id": 2, "type": "Raw", "body": {"flags": 9, "tlv": ""}, "dset": "00" * 21},
                         {"id": 3, "type": "Action", "private": {"0x00000007": "00ff"}}])
        self.same()

    def test_of_many_nodes_is_the_same(self):
        self.load_nodes([{"id": 0x04100000 + n, "type": "Filter", "group": n,
                          "body": {"match": "True", "nomatch": n,
                                   "crit": [{"type": 0x50a, "args": f"01{n:04x}{n:04x}"}]},
                          "links": {"ln_081": 0x04100000 + n // 2} if n else {}}
                         for n in range(1000 * int(os.environ.get("QIM_SOAK", "1")))])
        self.same()
