"""Changes, policy and threads."""
import os
import shutil
import subprocess
import sys
import threading
import time
import zipfile

import qim
from support import BUILD, EXAMPLES, SOURCE, DatabaseTest, qimctl

ROUTER = str(EXAMPLES / "edge-router.rfc8519.json")


class Policies(DatabaseTest):
    def test_are_applied_whole_and_once(self):
        with qim.Database(self.path, mode="create") as database:
            dry = database.apply([ROUTER], dry_run=True, lossy=True)
            self.assertGreater(dry.edits, 10)
            applied = database.apply([ROUTER], lossy=True)
            self.assertEqual((applied.edits, applied.revision), (dry.edits, dry.revision + 1))
            self.assertIn("added", applied.lists[0][1])
            self.assertEqual(database.apply([ROUTER], lossy=True).edits, 0)
            self.assertEqual(sorted(name for name, _ in applied.lists), sorted(database.policy().lists))
            with self.assertRaises(qim.InputError) as raised:
                database.apply([str(self.work / "nowhere.json")])
            self.assertEqual(len(raised.exception.problems), 1)
            with self.assertRaises(qim.InputError):
                database.apply([ROUTER], format="yaml")
        with qim.Database(self.path) as database, self.assertRaises(qim.Error):
            database.apply([ROUTER], lossy=True, prune=True)

    def test_say_what_becomes_of_a_packet(self):
        qimctl("--db", self.path, "apply", "--lossy", ROUTER)
        words = "tcp 192.0.2.5:4000 > 198.51.100.7:22 syn"
        with qim.Database(self.path) as database:
            policy = database.policy()
            self.assertGreater(database.revision, 0)
            for name in policy.lists:
                trace = policy.trace(name, words)
                said = qimctl("--db", self.path, "--json", "trace", name, words).decode()
                self.assertEqual(trace.certain, '"certain": true' in said)
                self.assertEqual(trace.verdict is None, not trace.certain)
                self.assertIn(f'"verdict": "{trace.outcomes[-1].verdict}"', said)
                self.assertEqual(trace.outcomes[-1].list, name)
            frame = bytes.fromhex("00005e00530100005e00530208060001")
            self.assertIn("arp", policy.trace(policy.lists[0], frame).packet)
            with self.assertRaises(LookupError):
                policy.trace("if:nowhere", words)
            with self.assertRaises(qim.InputError):
                policy.trace(policy.lists[0], "a packet")


class Watches(DatabaseTest):
    def test_tell_what_is_committed(self):
        self.load_nodes([{"id": 7, "type": "Action"}])
        with qim.Database(self.path) as database:
            before = database.revision
            with database.watch(timeout=0.05) as watch:
                self.assertEqual(list(watch), [])
            with database.watch(timeout=60) as watch:
                self.assertGreaterEqual(watch.fileno(), 0)
                self.load_nodes([{"id": 8, "type": "Def"}])
                change = next(watch)
                self.assertEqual((change.kind, change.node, change.revision), ("node put", 8, before + 1))
                self.assertNotEqual(change.user, 0)
            with self.assertRaises(ValueError):
                watch.fileno()
            self.assertEqual([each.node for each in database.watch(since=before, timeout=0)], [8])


class Threads(DatabaseTest):
    def test_read_beside_each_other(self):
        self.load(EXAMPLES / "edge-all-types.json", ROUTER)
        with qim.Database(self.path) as database:
            with database.session() as session:
                expected = [repr(node) for node in session]
            found = []

            def read():
                for _ in range(10):
                    with database.session() as session:
                        found.append([repr(node) for node in session])
                    found.append(len(database.policy().lists))

            threads = [threading.Thread(target=read) for _ in range(4)]
            for each in threads:
                each.start()
            for each in threads:
                each.join()
        self.assertEqual([each for each in found if each == expected], [expected] * 40)
        self.assertEqual(len(found), 80)

    def test_go_on_while_one_waits(self):
        self.load_nodes([{"id": 7, "type": "Action"}])
        with qim.Database(self.path, mode="change") as database:
            watch = database.watch()
            told = []
            waiting = threading.Thread(target=lambda: told.extend(watch))
            waiting.start()
            (self.work / "more.json").write_text(
                '{"format":"qim-policy","version":1,"nodes":[{"id":9,"type":"Action"}]}', encoding="utf-8")
            database.apply([str(self.work / "more.json")])
            limit = time.monotonic() + 60
            while not told and time.monotonic() < limit:
                time.sleep(0.001)
            watch.close()
            waiting.join(60)
        self.assertFalse(waiting.is_alive())
        self.assertEqual([each.node for each in told], [9])


class Wheel(DatabaseTest):
    def test_works_where_nothing_else_is(self):
        self.load_nodes([{"id": 7, "type": "Action"}])
        program = SOURCE / "bindings/python/wheel.py"
        made = subprocess.run([sys.executable, "-B", program, BUILD, os.environ["QIM_VERSION"], self.work],
                              check=True, stdout=subprocess.PIPE, text=True).stdout.strip()
        with zipfile.ZipFile(made) as archive:
            archive.extractall(self.work / "site")
        code = f"import qim; print([n.kind for n in qim.Database({self.path!r}).session()], qim.__file__)"
        said = subprocess.run([sys.executable, "-B", "-c", code], check=True, stdout=subprocess.PIPE, text=True,
                              env={"PYTHONPATH": str(self.work / "site")}).stdout
        self.assertTrue(said.startswith("['Action']"), said)
        self.assertIn(str(self.work), said)
        shutil.rmtree(self.work / "site")
