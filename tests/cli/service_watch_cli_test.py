"""vpath watch through the path service: the lines it prints without it, no watches of its own,
and a clear end when the service goes."""

import json
import os
import queue
import re
import threading
import time
import unittest

import cli_test
from service_cli_test import OwnService

STAMP = re.compile(rb"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z ")


class Watcher:
    """A running `vpath watch` whose lines are read as they come."""

    def __init__(self, process):
        self.process = process
        self.lines = queue.Queue()
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        for line in self.process.stdout:
            self.lines.put(line)

    def take(self, wait):
        """The lines printed so far, waiting at most `wait` seconds for the first."""
        taken = []
        try:
            taken.append(self.lines.get(timeout=wait))
            while True:
                taken.append(self.lines.get(timeout=0.3))
        except queue.Empty:
            return taken

    def watches_by_itself(self):
        fds = f"/proc/{self.process.pid}/fd"
        return any("inotify" in os.readlink(os.path.join(fds, fd)) for fd in os.listdir(fds))

    def stop(self):
        self.process.kill()
        self.process.communicate(timeout=30)


def without_time(line):
    if line.startswith(b"{"):
        report = json.loads(line)
        report.pop("time")
        return report
    return STAMP.sub(b"", line)


class WatchThroughService(OwnService, unittest.TestCase):
    def ready(self, watchers):
        """Touches files until every watcher has printed a line, then drops what they printed."""
        n = 0
        heard = [False] * len(watchers)
        while not all(heard):
            self.file(b"a/prime%d.vl" % n)
            n += 1
            for i, watcher in enumerate(watchers):
                heard[i] = heard[i] or bool(watcher.take(0.3))
            self.assertLess(n, 100)
        for watcher in watchers:
            watcher.take(0.5)

    def test_watch_through_the_service_prints_what_watch_prints_without_it(self):
        self.start()
        c = self.folder(b"c")
        steps = [lambda: self.file(b"a/new%d.vl" % len(mode)),
                 lambda: self.vpath("add", c),
                 lambda: self.vpath("add", "--end", c),
                 lambda: self.vpath("rm", c)]
        for mode in ([], ["--json"]):
            with self.subTest(mode=mode):
                served = Watcher(self.watch(*mode))
                alone = Watcher(self.watch("--no-service", *mode))
                try:
                    self.ready([served, alone])
                    self.assertFalse(served.watches_by_itself())
                    self.assertTrue(alone.watches_by_itself())
                    for step in steps:
                        step()
                        lines = [list(map(without_time, w.take(10))) for w in (served, alone)]
                        self.assertNotEqual(lines[1], [])
                        self.assertEqual(lines[0], lines[1])
                finally:
                    served.stop()
                    alone.stop()
        # --count ends it the same way.
        counted = self.watch("--count", "1")
        out = self.until_exit(counted, lambda n: self.file(b"a/counted%d.vl" % n))
        self.assertRegex(out, b"^" + STAMP.pattern[1:] + b"refreshed " + re.escape(self.at(b"a"))
                         + b"\n$")

    def test_watch_ends_with_a_message_when_the_service_goes(self):
        self.start()
        watcher = Watcher(self.watch())
        self.ready([watcher])
        self.assertEqual(self.vpath("service", "stop")[0], 0)
        out, err = watcher.process.communicate(timeout=30)
        self.assertEqual(watcher.process.returncode, 2)
        self.assertEqual(out, b"")
        self.assertIn(b"the path service ended while watching", err)


if __name__ == "__main__":
    cli_test.main()
