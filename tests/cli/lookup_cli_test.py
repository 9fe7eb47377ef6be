"""vpath which -a/--from/--batch and vpath ls, as users run them."""

import argparse
import os
import subprocess
import sys
import tempfile
import unittest

import cli_test
from cli_test import example, run


class WhichAll(unittest.TestCase):
    def test_every_file_in_path_order_with_the_shadowed_marked(self):
        status, out, err = run("--example", "which", "-a", "area", "clamp")
        self.assertEqual(status, 0, err)
        self.assertEqual(out.splitlines(), [
            example("geometry", "area.vl"),
            example("utils", "area.vl") + b"  (shadowed)",
            example("utils", "clamp.vl"),
        ])

    def test_class_folders_take_part(self):
        status, out, err = run("--example", "which", "-a", "Sample")
        self.assertEqual(status, 0, err)
        self.assertEqual(out.splitlines(), [example("stats", "@Sample", "Sample.vl")])


class WhichFrom(unittest.TestCase):
    def test_a_folders_private_files_are_seen_only_from_it(self):
        status, out, _ = run("--example", "which", "--from", example("geometry"), "validate_shape")
        self.assertEqual((status, out.splitlines()),
                         (0, [example("geometry", "private", "validate_shape.vl")]))
        status, out, err = run("--example", "which", "--from", example("utils"), "validate_shape")
        self.assertEqual(status, 1)
        self.assertIn("validate_shape: not found on the path", err)
        self.assertEqual(run("--example", "which", "validate_shape")[0], 1)


class Batch(unittest.TestCase):
    def test_one_answer_line_per_question_line(self):
        import subprocess
        # A name asked again gets the same answer, and a miss the same message.
        done = subprocess.run([cli_test.VPATH, "--example", "which", "--batch"],
                              input=b"area\nnope\r\nshapes/circle\nnope\narea\n",
                              capture_output=True, timeout=120, env=cli_test.UNSAVED_ENV)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout.split(b"\n"), [
            example("geometry", "area.vl"), b"", example("geometry", "+shapes", "circle.vl"), b"",
            example("geometry", "area.vl"), b""])
        self.assertEqual(done.stderr, b"vpath: nope: not found on the path\n" * 2)


class WhichOnAWrittenTree(unittest.TestCase):
    def test_each_answer_is_the_first_of_which_all(self):
        # which tells a plain name from the path's index of names; -a always takes the whole
        # lookup, so that its first line is the answer to expect, from a scan and from the cache.
        with tempfile.TemporaryDirectory() as tmp:
            root = os.fsencode(os.path.realpath(tmp))
            files = {b"a/@tool/tool.vl", b"b/tool.vl", b"a/m.vl", b"a/m.vlp", b"b/m.vlx",
                     b"a/k.vl", b"b/k.vlx", b"b\xfe/n\xe9.vl", b"b\xfe/private/p.vl",
                     b"b/p.vl"}
            for name in files:
                os.makedirs(os.path.dirname(os.path.join(root, name)), exist_ok=True)
                open(os.path.join(root, name), "wb").close()
            path = b":".join(os.path.join(root, f) for f in (b"a", b"b\xfe", b"b"))
            names = [b"tool", b"m", b"k", b"m.vl", b"n\xe9", b"p", b"none"]
            expected = []
            for name in names:
                status, out, _ = run("--no-cache", "--path", path, "which", "-a", name)
                expected.append(out.splitlines()[0] if status == 0 else b"")
            self.assertEqual(expected[:3], [os.path.join(root, b"a/@tool/tool.vl"),
                                            os.path.join(root, b"a/m.vlp"),
                                            os.path.join(root, b"a/k.vl")])
            for cache in (["--no-cache"], [], []):
                for name, answer in zip(names, expected):
                    with self.subTest(cache=cache, name=name):
                        status, out, _ = run(*cache, "--path", path, "which", name)
                        self.assertEqual((status, out), (0, answer + b"\n") if answer else (1, b""))
                done = subprocess.run([cli_test.VPATH, *cache, "--path", path, "which", "--batch"],
                                      input=b"\n".join(names) + b"\n", capture_output=True,
                                      timeout=120, env=cli_test.UNSAVED_ENV)
                self.assertEqual(done.stdout.split(b"\n"), expected + [b""])


class Ls(unittest.TestCase):
    def test_files_by_extension_in_path_order(self):
        status, out, err = run("--example", "ls", "--ext", ".vlp", "--ext", ".vlx")
        self.assertEqual(status, 0, err)
        self.assertEqual(out.splitlines(), [example("stats", "histogram.vlx"),
                                            example("stats", "median.vlp")])

    def test_packages_and_classes_on_request(self):
        plain = run("--example", "ls")[1].splitlines()
        everything = run("ls", "--packages", "--example")[1].splitlines()
        self.assertNotIn(example("geometry", "+shapes", "circle.vl"), plain)
        self.assertIn(example("geometry", "+shapes", "circle.vl"), everything)
        self.assertIn(example("geometry", "private", "validate_shape.vl"), everything)
        self.assertEqual(len(plain), 7)

    def test_names_that_are_not_utf8_are_listed_as_bytes(self):
        with tempfile.TemporaryDirectory() as tmp:
            folder = os.path.join(os.fsencode(os.path.realpath(tmp)), b"x\xfe")
            os.makedirs(folder)
            with open(os.path.join(folder, b"n\xe9.vl"), "wb"):
                pass
            status, out, err = run("--path", folder, "ls", "--ext", ".vl")
            self.assertEqual(status, 0, err)
            self.assertEqual(out.splitlines(), [os.path.join(folder, b"n\xe9.vl")])


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--vpath", required=True)
    parser.add_argument("--examples", required=True)
    args, rest = parser.parse_known_args()
    cli_test.VPATH = args.vpath
    cli_test.EXAMPLES = os.path.realpath(args.examples)
    # As in cli_test: an empty saved path, whatever the user running the tests saved.
    with tempfile.TemporaryDirectory() as unsaved:
        cli_test.UNSAVED_ENV = dict(os.environ,
                                    VPATH_PATHDEF=os.path.join(unsaved, "never", "pathdef"))
        unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)
