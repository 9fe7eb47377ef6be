"""The vpath command as users run it: outputs, exit statuses and file names as bytes."""

import argparse
import json
import os
import re
import subprocess
import sys
import tempfile
import time
import unittest

VPATH = None
EXAMPLES = None
ARGS = None


# A path definition file that no test creates: without --pathdef or an environment of its own, a
# test sees an empty saved path, whatever the user running the tests has saved.
UNSAVED_ENV = None


def run_raw(*args, cwd=None, env=None, stdin=b""):
    """Runs vpath with byte or text arguments; returns (status, stdout bytes, stderr bytes)."""
    argv = [VPATH] + [a if isinstance(a, bytes) else a.encode() for a in args]
    done = subprocess.run(argv, input=stdin, capture_output=True, cwd=cwd, timeout=120,
                          env=UNSAVED_ENV if env is None else env)
    return done.returncode, done.stdout, done.stderr


def run(*args, cwd=None, env=None):
    """Runs vpath with byte or text arguments; returns (status, stdout bytes, stderr text)."""
    status, out, err = run_raw(*args, cwd=cwd, env=env)
    return status, out, err.decode(errors="replace")


def main(*options):
    """Runs the calling script's tests with --vpath and `options` (each required) from the
    command line; the options are left in ARGS."""
    global ARGS, VPATH, EXAMPLES, UNSAVED_ENV
    parser = argparse.ArgumentParser()
    for option in ("--vpath",) + options:
        parser.add_argument(option, required=True)
    ARGS, rest = parser.parse_known_args()
    VPATH = ARGS.vpath
    EXAMPLES = os.path.realpath(ARGS.examples) if "--examples" in options else None
    with tempfile.TemporaryDirectory() as unsaved:
        UNSAVED_ENV = dict(os.environ, VPATH_PATHDEF=os.path.join(unsaved, "never", "pathdef"))
        unittest.main(module="__main__", argv=[sys.argv[0]] + rest, verbosity=2)


def example(*parts):
    return os.path.join(EXAMPLES, *parts).encode()


class OnTheExampleToolbox(unittest.TestCase):
    def test_a_miss_is_reported_and_the_rest_still_resolve(self):
        status, out, err = run("which", "--example", "nothing_here", "clamp", "units")
        self.assertEqual((status, out.splitlines()), (1, [example("utils", "clamp.vl")]))
        self.assertIn("nothing_here: not found on the path", err)
        # Resources folders are never searched by name.
        self.assertIn("units: not found on the path", err)

    def test_the_example_toolbox_is_found_beside_the_program(self):
        status, out, err = run("path", "--example")
        self.assertEqual((status, err), (0, ""))
        self.assertEqual(out.splitlines(), [example(name) for name in TOOLBOX])

    def test_a_folders_private_files_are_seen_only_from_it(self):
        status, out, _ = run("--example", "which", "--from", example("geometry"), "validate_shape")
        self.assertEqual((status, out.splitlines()),
                         (0, [example("geometry", "private", "validate_shape.vl")]))
        status, _, err = run("--example", "which", "--from", example("utils"), "validate_shape")
        self.assertEqual((status, "validate_shape: not found on the path" in err), (1, True), err)
        self.assertEqual(run("--example", "which", "validate_shape")[0], 1)

    def test_batch_gives_one_answer_line_per_question_line(self):
        # A name asked again gets the same answer, and a miss the same message.
        status, out, err = run_raw("--example", "which", "--batch",
                                   stdin=b"area\nnope\r\nshapes/circle\nnope\narea\n")
        self.assertEqual((status, err), (1, b"vpath: nope: not found on the path\n" * 2))
        self.assertEqual(out.split(b"\n"), [
            example("geometry", "area.vl"), b"", example("geometry", "+shapes", "circle.vl"), b"",
            example("geometry", "area.vl"), b""])

    def test_ls_lists_packages_and_classes_on_request(self):
        plain = run("--example", "ls")[1].splitlines()
        everything = run("ls", "--packages", "--example")[1].splitlines()
        self.assertNotIn(example("geometry", "+shapes", "circle.vl"), plain)
        self.assertIn(example("geometry", "+shapes", "circle.vl"), everything)
        self.assertIn(example("geometry", "private", "validate_shape.vl"), everything)
        self.assertEqual(len(plain), 7)


HEADER = b"# vpath search path: one folder per line, searched first to last\n"
TOOLBOX = ["geometry", "stats", "utils"]


class OwnPathDefinition:
    """A fixture: a temporary folder as HOME, holding the test's own path definition file and
    cache home, with helpers that make files in it and run vpath there."""

    def setUp(self):
        tmp = tempfile.TemporaryDirectory()
        self.addCleanup(tmp.cleanup)
        self.root = os.fsencode(os.path.realpath(tmp.name))
        self.pathdef = self.at(b"cfg", b"pathdef")
        self.env = dict(os.environ, VPATH_PATHDEF=os.fsdecode(self.pathdef),
                        HOME=os.fsdecode(self.root), XDG_CACHE_HOME=os.fsdecode(self.at(b"cache")))
        self.env.pop("XDG_CONFIG_HOME", None)

    def at(self, *parts):
        return os.path.join(self.root, *parts)

    def vpath(self, *args, env=None, stdin=b""):
        return run_raw(*args, cwd=self.root, env=self.env if env is None else env, stdin=stdin)

    def folder(self, name):
        os.makedirs(self.at(name), exist_ok=True)
        return self.at(name)

    def file(self, name, content=b""):
        self.folder(os.path.dirname(self.at(name)))
        with open(self.at(name), "wb") as f:
            f.write(content)
        return self.at(name)

    def watch(self, *args):
        return subprocess.Popen([VPATH, "watch"] + list(args), cwd=self.root, env=self.env,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def until_exit(self, process, change):
        """Makes change(n) for n = 0, 1, ... until the process ends; returns its output."""
        deadline = time.monotonic() + 60
        n = 0
        while process.poll() is None and time.monotonic() < deadline:
            change(n)
            n += 1
            try:
                process.wait(timeout=0.2)
            except subprocess.TimeoutExpired:
                pass
        out, err = process.communicate(timeout=60)
        self.assertEqual((process.returncode, err), (0, b""))
        return out

    def saved(self, path=None):
        with open(path or self.pathdef, "rb") as f:
            return f.read()


class PathCommands(OwnPathDefinition, unittest.TestCase):
    """vpath path, add, rm and split on a path definition file of the test's own."""

    def listed(self, env=None):
        status, out, err = self.vpath("path", env=env)
        # An empty path comes with the hint how to add a folder.
        self.assertEqual((status, err == b""), (0, out != b""), err)
        return out.splitlines()

    def test_which_separators_relative_folders_and_missing_folders(self):
        for name in (b"a/f.vl", b"b/f.vl", b"b/g.vlp"):
            self.file(name)
        # Relative folders are taken from the current folder; ";" and ":" both separate.
        status, out, err = self.vpath("--path", b"b;missing:a", "which", "f", "g")
        self.assertEqual(status, 0, err)
        self.assertEqual(out.splitlines(), [self.at(b"b/f.vl"),
                                            self.at(b"b/g.vlp")])
        self.assertIn(b"warning: folder " + self.root + b"/missing does not exist", err)

    def test_which_names_that_are_not_utf8_round_trip_as_bytes(self):
        latin1, utf8 = self.file(b"d\xff/caf\xe9.vl"), self.file(b"d\xff/caf\xc3\xa9.vl")
        for name, found in ((b"caf\xe9", latin1), ("café", utf8)):
            status, out, err = self.vpath("--path", b"d\xff", "which", name)
            self.assertEqual((status, out.splitlines()), (0, [found]), err)
        # Added, listed and saved as the bytes they are.
        odd = os.path.dirname(latin1)
        self.assertEqual(self.vpath("add", b"d\xff"), (0, b"added " + odd + b"\n", b""))
        self.assertEqual(self.listed()[0], odd)
        self.assertEqual(self.saved().splitlines()[1], odd)

    def test_add_puts_folders_first_or_last_and_saves_the_path(self):
        a, b = self.folder(b"a"), self.folder(b"b")
        self.file(b"a/f.vl")
        # What the change did is printed, folder by folder.
        self.assertEqual(self.vpath("add", "a"), (0, b"added " + a + b"\n", b""))
        toolbox = [example(name) for name in TOOLBOX]
        self.assertEqual(self.vpath("add", "--end", *toolbox)[0], 0)
        self.assertEqual(self.listed(), [a] + toolbox)
        self.assertEqual(self.saved(), HEADER + b"".join(p + b"\n" for p in [a] + toolbox))
        # Re-adding moves a folder; repeats count once.
        self.assertEqual(self.vpath("add", "--end", "b", "a", "b/"),
                         (0, b"added " + b + b"\nmoved " + a + b"\n", b""))
        self.assertEqual(self.listed(), toolbox + [b, a])
        # which looks on the saved path.
        self.assertEqual(self.vpath("which", "f"), (0, os.path.join(a, b"f.vl") + b"\n", b""))
        self.assertEqual(self.vpath("rm", a, "b"),
                         (0, b"removed " + a + b"\nremoved " + b + b"\n", b""))
        self.assertEqual(self.listed(), toolbox)

    def test_any_message_means_nothing_changed(self):
        self.folder(b"a")
        self.folder(b"b")
        self.assertEqual(self.vpath("add", "a", "missing", "b"), (
            1, b"", b'vpath: "missing" does not exist or is not a folder. '
                    b"[VORLAN:vpath:nameNonexistentOrNotADirectory]\n"))
        # A carriage return at the end would be read back as part of a CRLF line ending.
        for name in (b"x\ny", b"dirA\r"):
            self.folder(name)
            self.assertEqual(self.vpath("add", "a", name), (
                1, b"", b'vpath: The folder "' + self.at(name) +
                        b'" cannot be saved in the path definition file: its name holds a line '
                        b"break or ends in a carriage return, which a line of the file cannot "
                        b"keep. [VELMORA:pathdef:lineBreakInName]\n"))
        self.assertFalse(os.path.exists(self.pathdef))
        self.assertEqual(self.vpath("add", "a")[0], 0)
        before = self.saved()
        self.assertEqual(self.vpath("rm", "a", "b"), (
            1, b"", b'vpath: "' + self.at(b"b") +
                    b'" is not on the search path. [VORLAN:rmpath:DirNotFound]\n'))
        self.assertEqual(self.saved(), before)

    def test_a_bad_line_in_the_saved_path_is_reported_by_number(self):
        self.file(self.pathdef, b"# mine\n/ok\nrelative\n")
        expected = (b'vpath: Line 3 of the path definition file "' + self.pathdef +
                    b'" is not an absolute folder path. [VELMORA:pathdef:badLine]\n')
        self.assertEqual(self.vpath("path"), (2, b"", expected))
        self.assertEqual(self.vpath("add", "."), (2, b"", expected))
        status, _, err = self.vpath("which", "area")
        self.assertEqual((status, err[:len(expected)]), (2, expected))

    def test_where_the_path_is_kept(self):
        a = self.folder(b"a")
        # --pathdef wins over the environment.
        other = self.at(b"other")
        self.assertEqual(self.vpath("--pathdef", other, "add", "a")[0], 0)
        self.assertEqual(self.saved(other).splitlines()[1], a)
        self.assertFalse(os.path.exists(self.pathdef))
        # Without VPATH_PATHDEF, the XDG configuration folder.
        env = dict(self.env, XDG_CONFIG_HOME=os.fsdecode(self.at(b"xdg")))
        del env["VPATH_PATHDEF"]
        self.assertEqual(self.vpath("add", "a", env=env)[0], 0)
        self.assertEqual(self.listed(env)[0], a)
        self.assertTrue(os.path.exists(self.at(b"xdg/vpath/pathdef")))
        # A path given with --path is shown but cannot be changed.
        self.assertEqual(self.vpath("--path", "a:/x/../b", "path"),
                         (0, a + b"\n/b\n", b""))
        self.assertEqual(self.vpath("--path", "a", "add", "a")[0], 2)

    def test_diff_compares_two_saved_paths(self):
        a, b, c, d = (self.folder(name) for name in (b"a", b"b", b"c", b"d"))
        old = self.file(b"old", a + b"\n" + b + b"\n" + c + b"\n")
        new = self.file(b"new", c + b"\n" + a + b"\n" + d + b"\n")
        status, out, err = self.vpath("diff", old, new)
        self.assertEqual((status, err), (1, b""))
        # Of a and c, which swapped, one is reported moved: the longest order kept decides.
        self.assertEqual(out, b"added " + d + b"\nremoved " + b + b"\nmoved " + a + b"\n")
        status, out, _ = self.vpath("diff", "--json", old, new)
        folder = lambda p: {"path": os.fsdecode(p), "iri": "file://" + os.fsdecode(p)}
        self.assertEqual(json.loads(out), {"added": [folder(d)], "removed": [folder(b)],
                                           "moved": [folder(a)], "refreshed": []})
        # The same path twice: no difference, status 0; a missing file is trouble, status 2.
        self.assertEqual(self.vpath("diff", old, old), (0, b"", b""))
        self.assertEqual(self.vpath("diff", old, b"nowhere")[0], 2)

    def test_watch_prints_a_timestamped_line_per_change(self):
        a = self.folder(b"a")
        self.assertEqual(self.vpath("add", "a")[0], 0)
        stamp = rb"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z "

        def touch(n):
            open(os.path.join(a, b"new%d.vl" % n), "wb").close()

        for mode in ([], ["--poll", "0.2"]):
            with self.subTest(mode=mode):
                out = self.until_exit(self.watch("--count", "1", *mode), touch)
                self.assertRegex(out, b"^" + stamp + b"refreshed " + re.escape(a) + b"\n$")
        out = self.until_exit(self.watch("--count", "1", "--json"), touch)
        report = json.loads(out)
        self.assertRegex(report.pop("time").encode(), b"^" + stamp[:-1] + b"$")
        self.assertEqual(report, {"added": [], "removed": [], "moved": [],
                                  "refreshed": [{"path": os.fsdecode(a),
                                                 "iri": "file://" + os.fsdecode(a)}]})

    def test_watch_refuses_bad_intervals_and_counts_in_one_line(self):
        for args in (["--poll", "nan"], ["--poll", "inf"], ["--poll", "-1"], ["--poll", "0"],
                     ["--poll", "1e300"], ["--poll", "2x"], ["--count", "0"], ["--count", "-3"]):
            with self.subTest(args=args):
                status, out, err = self.vpath("watch", *args)
                self.assertEqual((status, out), (2, b""))
                self.assertEqual(err.count(b"\n"), 1, err)
                self.assertIn(args[0].encode(), err)
                self.assertLess(len(err), 120, err)

    def test_ls_names_that_are_not_utf8_are_listed_as_bytes(self):
        name = self.file(b"x\xfe/n\xe9.vl")
        self.assertEqual(self.vpath("--path", b"x\xfe", "ls", "--ext", ".vl"),
                         (0, name + b"\n", b""))

    def test_split_prints_the_folders_of_a_path_list(self):
        self.assertEqual(self.vpath("split", b";a;;b:c d ;\xff:"), (0, b"a\nb\nc d \n\xff\n", b""))
        self.assertEqual(self.vpath("split", ";:"), (0, b"", b""))


if __name__ == "__main__":
    main("--examples")
