"""The vpath command as users run it: outputs, exit statuses and file names as bytes."""

import argparse
import os
import subprocess
import sys
import tempfile
import unittest

VPATH = None
EXAMPLES = None


def run(*args, cwd=None):
    """Runs vpath with byte or text arguments; returns (status, stdout bytes, stderr text)."""
    argv = [VPATH] + [a if isinstance(a, bytes) else a.encode() for a in args]
    done = subprocess.run(argv, capture_output=True, cwd=cwd, timeout=120)
    return done.returncode, done.stdout, done.stderr.decode(errors="replace")


def example(*parts):
    return os.path.join(EXAMPLES, *parts).encode()


class WhichOnTheExampleToolbox(unittest.TestCase):
    def test_names_resolve_in_path_order(self):
        status, out, err = run("which", "area", "clamp", "median", "histogram", "mean.vl")
        self.assertEqual(status, 0, err)
        self.assertEqual(out.splitlines(), [
            example("geometry", "area.vl"),  # shadows utils/area.vl
            example("utils", "clamp.vl"),
            example("stats", "median.vlp"),
            example("stats", "histogram.vlx"),
            example("stats", "mean.vl"),
        ])

    def test_qualified_names_reach_packages_and_classes(self):
        status, out, err = run("which", "shapes/circle", "+shapes/square",
                               "shapes/@Polygon/vertices")
        self.assertEqual(status, 0, err)
        self.assertEqual(out.splitlines(), [
            example("geometry", "+shapes", "circle.vl"),
            example("geometry", "+shapes", "square.vl"),
            example("geometry", "+shapes", "@Polygon", "vertices.vl"),
        ])

    def test_a_miss_is_reported_and_the_rest_still_resolve(self):
        status, out, err = run("which", "nothing_here", "clamp", "units")
        self.assertEqual(status, 1)
        self.assertEqual(out.splitlines(), [example("utils", "clamp.vl")])
        self.assertIn("nothing_here: not found on the path", err)
        # Resources folders are never searched by name.
        self.assertIn("units: not found on the path", err)

    def test_bad_usage_is_status_2(self):
        self.assertEqual(run()[0], 2)
        self.assertEqual(run("which")[0], 2)
        self.assertEqual(run("frobnicate")[0], 2)


class WhichOnAPathOfYourOwn(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory()
        self.root = os.fsencode(os.path.realpath(self.tmp.name))

    def tearDown(self):
        self.tmp.cleanup()

    def make(self, relative, content=b""):
        path = os.path.join(self.root, relative)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as f:
            f.write(content)
        return path

    def test_separators_relative_folders_and_missing_folders(self):
        self.make(b"a/f.vl")
        self.make(b"b/f.vl")
        self.make(b"b/g.vlp")
        # Relative folders are taken from the current folder; ";" and ":" both separate.
        status, out, err = run("--path", b"b;missing:a", "which", "f", "g", cwd=self.root)
        self.assertEqual(status, 0, err)
        self.assertEqual(out.splitlines(), [os.path.join(self.root, b"b/f.vl"),
                                            os.path.join(self.root, b"b/g.vlp")])
        self.assertIn("warning: folder " + os.fsdecode(self.root) + "/missing does not exist", err)

    def test_names_that_are_not_utf8_round_trip_as_bytes(self):
        folder = os.path.join(self.root, b"d\xff")
        latin1 = self.make(b"d\xff/caf\xe9.vl")
        self.make(b"d\xff/caf\xc3\xa9.vl")
        status, out, err = run("--path", folder, "which", b"caf\xe9")
        self.assertEqual(status, 0, err)
        self.assertEqual(out.splitlines(), [latin1])
        status, out, err = run("--path", folder, "which", "café")
        self.assertEqual(out.splitlines(), [os.path.join(folder, b"caf\xc3\xa9.vl")])


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--vpath", required=True)
    parser.add_argument("--examples", required=True)
    args, rest = parser.parse_known_args()
    VPATH = args.vpath
    EXAMPLES = os.path.realpath(args.examples)
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)
