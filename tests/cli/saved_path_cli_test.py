"""The saved path under concurrent and careless use: nothing that vpath add and rm save is lost."""

import fcntl
import os
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

import cli_test
from cli_test import HEADER


class SavedPath(cli_test.OwnPathDefinition, unittest.TestCase):
    def setUp(self):
        super().setUp()
        self.file(self.pathdef, HEADER)

    def test_a_special_folder_added_with_its_holder_is_searched_through_it(self):
        p = self.folder(b"P")
        for name in (b"P/resources/r.vl", b"P/private/q.vl"):
            self.file(name)
        resources = os.path.join(p, b"resources")
        self.assertEqual(self.vpath("add", "P")[0], 0)
        # Saved and told, though the folder is searched through P as before.
        status, out, err = self.vpath("add", "P/resources")
        self.assertEqual((status, out), (0, b"added " + resources + b"\n"))
        self.assertIn(b"resources folder", err)
        self.assertEqual(self.vpath("which", "r")[0], 1)
        # In the other order too: the holder added after it.
        status, out, _ = self.vpath("rm", "P")
        self.assertEqual((status, out.splitlines()),
                         (0, [b"removed " + p, b"removed " + os.path.join(p, b"private")]))
        self.assertEqual(self.vpath("which", "r")[1], os.path.join(resources, b"r.vl\n"))
        self.assertEqual(self.vpath("add", "--end", "P")[0], 0)
        self.assertEqual(self.vpath("which", "r")[0], 1)
        status, out, _ = self.vpath("rm", "P/resources")
        self.assertEqual((status, out), (0, b"removed " + resources + b"\n"))

    def test_concurrent_adds_and_removals_lose_nothing(self):
        workers, each = 8, 50
        names = [[b"w%d/f%02d" % (w, k) for k in range(each)] for w in range(workers)]
        for name in (n for group in names for n in group):
            self.folder(name)

        def in_parallel(command):
            with ThreadPoolExecutor(workers) as pool:
                results = pool.map(lambda g: [self.vpath(command, n) for n in g], names)
                self.assertEqual([r for rs in results for r in rs if r[0] != 0], [])

        in_parallel("add")
        lines = self.saved().splitlines()
        self.assertEqual(lines[0], HEADER.rstrip(b"\n"))
        self.assertEqual({self.at(n) for group in names for n in group} - set(lines), set())
        # Each worker's folders keep the order in which it added them: each went to the front.
        for group in names:
            where = [lines.index(self.at(n)) for n in group]
            self.assertEqual(where, sorted(where, reverse=True))
        in_parallel("rm")
        self.assertEqual(self.saved(), HEADER)

    def test_one_folder_under_two_names_is_on_the_path_once(self):
        real = self.folder(b"real")
        os.symlink(real, self.at(b"link"))
        link = self.at(b"link")
        other = self.folder(b"other")
        self.assertEqual(self.vpath("add", "real", "other")[0], 0)
        # Adding it under its other name moves it, under that name.
        status, out, err = self.vpath("add", "--end", "link")
        self.assertEqual(status, 0, err)
        self.assertEqual(self.saved(), HEADER + other + b"\n" + link + b"\n")
        # rm finds it from either name.
        self.assertEqual(self.vpath("rm", "real"), (0, b"removed " + link + b"\n", b""))
        self.assertEqual(self.saved(), HEADER + other + b"\n")

    def test_rm_speaks_as_add_does(self):
        gone = self.folder(b"gone")
        self.assertEqual(self.vpath("add", "gone")[0], 0)
        os.rmdir(gone)
        # A folder that has left the disk is still taken off, and said to be.
        self.assertEqual(self.vpath("rm", "gone"), (0, b"removed " + gone + b"\n", b""))
        # A text that names no location gets the same message and status from both.
        for text in ["", "http://host/x"]:
            with self.subTest(text=text):
                add, rm = self.vpath("add", text), self.vpath("rm", text)
                self.assertEqual(add[0], 1)
                self.assertEqual(rm, add)

    def test_a_waiting_change_says_so(self):
        # Another change holds the lock for two seconds: the waiting one says so, once.
        a = self.folder(b"a")
        with open(self.at(b"cfg", b".pathdef.lock"), "wb") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            with ThreadPoolExecutor(1) as pool:
                waiting = pool.submit(self.vpath, "add", "a")
                time.sleep(2)
                self.assertFalse(waiting.done())
                fcntl.flock(lock, fcntl.LOCK_UN)
                status, out, err = waiting.result()
        self.assertEqual((status, out), (0, b"added " + a + b"\n"))
        self.assertEqual(err.count(b"waiting for another change"), 1, err)


if __name__ == "__main__":
    cli_test.main()
