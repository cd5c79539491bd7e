"""Nodes as objects."""
import ast
import unittest

import qim
from support import EXAMPLES, SOURCE, DatabaseTest


class Nodes(DatabaseTest):
    def setUp(self):
        super().setUp()
        self.load(EXAMPLES / "edge-all-types.json")
        database = qim.Database(self.path)
        self.addCleanup(database.close)
        self.session = database.session()
        self.addCleanup(self.session.close)

    def test_have_the_types_and_members_of_their_records(self):
        node = self.session.node(0x04100010)
        self.assertIsInstance(node, qim.Filter)
        self.assertEqual((node.id, node.kind, node.group), (0x04100010, "Filter", 7))
        self.assertEqual((node.match, node.nomatch, node.flags), ("True", "Next", 1))
        self.assertEqual([str(each) for each in node.crit],
                         ["ipv4.protocol 6", "ipv4.destination-ipv4-network 192.0.2.0/24",
                          "tcp.destination-port eq 22"])
        self.assertEqual(node.crit[0].args, b"\x06")
        police = self.session.node(0x04100050)
        self.assertEqual(police.peak_bw.burst, 2**64 - 1)
        self.assertEqual((police.ln_202.node, police.ln_202.val), (0x04100030, 2))
        self.assertEqual(self.session.node(0x04100070).args, b"\x00\xff")
        self.assertEqual(list(police.members()), ["comt_bw", "peak_bw"])
        self.assertEqual(repr(node), "<qim.Filter 0x04100010>")

    def test_lead_to_others_and_back(self):
        node = self.session.node(0x04100010)
        self.assertEqual([each.name for each in node.links()], ["ln_081", "0x8082"])
        self.assertEqual(repr(node.links()[0]), "<qim.Link ln_081 to 0x04100011>")
        self.assertEqual(node.follow(0x081).id, 0x04100011)
        self.assertIsNone(node.follow(0x202))
        self.assertEqual([each.id for each in node.follow(0x081).referrers()], [node.id])
        edest = self.session.node(0x04100090)
        self.assertEqual(edest.dset["dest"]["vlan"], 100)
        self.assertIsNone(edest.name)
        self.assertIsNone(node.dset)
        self.assertEqual(node.stored.private[qim.CLIENT_ID], b"mgmt-ssh")

    def test_that_are_not_there_are_errors(self):
        with self.assertRaises(qim.Error) as raised:
            self.session.node(1)
        self.assertEqual(raised.exception.name, "ROV_ERR_NO_ITEM")
        self.assertEqual(qim.status_name(raised.exception.status), "ROV_ERR_NO_ITEM")
        self.assertIn("no such node", qim.status_text(raised.exception.status))
        with self.assertRaises(qim.Error):
            qim.Database(self.work / "nowhere")
        with self.assertRaises(ValueError):
            qim.Database(self.path, mode="write")

    def test_of_a_session_that_is_closed_are_not_read(self):
        node = self.session.node(0x04100010)
        nodes = iter(self.session)
        self.session.close()
        self.assertEqual(node.follow(0x081).id, 0x04100011)
        self.assertEqual(next(nodes).id, 0x04100001)
        with self.assertRaises(ValueError):
            self.session.node(0x04100010)


class Stub(unittest.TestCase):
    def test_names_what_there_is(self):
        tree = ast.parse((SOURCE / "bindings/python/qim/_qim.pyi").read_text(encoding="utf-8"))
        classes = [node for node in tree.body if isinstance(node, ast.ClassDef)]
        self.assertGreater(len(classes), 20)
        special = {"__iter__", "__next__", "__enter__", "__exit__", "__init__"}
        for one in classes:
            there = {name for name in vars(getattr(qim, one.name)) if not name.startswith("__")}
            named = {node.name for node in one.body if isinstance(node, ast.FunctionDef)} - special
            if not issubclass(getattr(qim, one.name), Exception):
                self.assertEqual(named, there, one.name)
        public = {name for name in vars(qim) if not name.startswith("_")}
        listed = {one.name for one in tree.body if isinstance(one, (ast.ClassDef, ast.FunctionDef))}
        self.assertEqual(public - {"CLIENT_ID", "MAX_JSON_NUMBER"}, listed)
