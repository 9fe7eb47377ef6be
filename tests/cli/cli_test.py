"""The vpath command as users run it: outputs, exit statuses and file names as bytes, parse errors,
global options, the generated documents, which --explain, shadows and the JSON forms, and the
saved path under concurrent and careless use."""

import argparse
import fcntl
import json
import os
import re
import subprocess
import sys
import tempfile
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

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


def commands():
    """The subcommands, as help lists them."""
    _, out, _ = run("--help")
    section = out.decode().split("Subcommands:\n")[1].split("\n\n")[0]
    return [line.split()[0] for line in section.splitlines()]


class ParseErrors(unittest.TestCase):
    def test_mistakes_are_named_with_the_nearest_valid_names(self):
        cases = [
            (["whcih", "area"], "vpath: unknown command 'whcih'; did you mean 'which'?"),
            (["frobnicate"], "vpath: unknown command 'frobnicate'\n"),
            (["which", "--fomr", "x", "area"],
             "vpath: which: unknown option '--fomr'; did you mean '--from'?"),
            (["--pth", "x", "path"], "vpath: unknown option '--pth'; did you mean '--path'?"),
            (["path", "--path-f=x"], "vpath: path: unknown option '--path-f'; "
                                     "did you mean '--path-file'?"),
            # The unknown option explains the missing folders better than "folders is required".
            (["add", "--ennd"], "vpath: add: unknown option '--ennd'; did you mean '--end'?"),
            (["path", "extra"], "vpath: path: unexpected argument 'extra'\n"),
            (["which"], "vpath: which: names (or --batch) is required\n"),
            ([], "vpath: a command is required: which, ls, path, add, rm, split, diff"),
        ]
        for args, first_line in cases:
            with self.subTest(args=args):
                status, out, err = run(*args)
                self.assertEqual((status, out), (2, b""))
                lines = err.splitlines()
                self.assertTrue((lines[0] + "\n").startswith(first_line), err)
                self.assertTrue(all(line.startswith("vpath: ") for line in lines), err)
                self.assertIn("--help'", lines[-1])


class GlobalOptions(OwnPathDefinition, unittest.TestCase):
    def test_accepted_after_the_command_and_listed_in_its_help(self):
        for command in commands():
            with self.subTest(command=command):
                status, out, _ = run(command, "--help")
                self.assertEqual(status, 0)
                for text in (b"--path FOLDERS", b"--path-file FILE", b"--example",
                             b"--pathdef FILE", b"Exit status:"):
                    self.assertIn(text, out)
        forms = [
            (["--example", "which", "area"], ["which", "area", "--example"]),
            (["--path", example("utils"), "ls"], ["ls", "--path", example("utils")]),
            (["--pathdef", self.at(b"p"), "path"], ["path", "--pathdef", self.at(b"p")]),
        ]
        self.assertEqual(run("add", "--pathdef", self.at(b"p"), example("utils"))[0], 0)
        for before, after in forms:
            with self.subTest(before=before):
                first = run(*before)
                self.assertEqual(first[0], 0, first[2])
                self.assertNotEqual(first[1], b"")
                self.assertEqual(first, run(*after))

    def test_one_given_path_at_a_time(self):
        status, _, err = run("--example", "path", "--path", "/x")
        self.assertEqual((status, "give one of --path, --path-file and --example" in err), (2, True))


class ExitStatuses(OwnPathDefinition, unittest.TestCase):
    def test_trouble_is_status_2_for_every_command(self):
        # (What is found is 0, what is not found or refused 1, and a bad saved path 2: shown
        # with each command's own tests.)
        for args in (["--example", "add", self.root], ["--path-file", b"no_such_file", "path"]):
            with self.subTest(args=args):
                self.assertEqual(self.vpath(*args)[0], 2)

    def test_an_error_writing_the_output_fails(self):
        if not os.path.exists("/dev/full"):
            self.skipTest("no /dev/full")
        for args in (["--example", "which", "area"], ["--example", "path"], ["--help"],
                     ["--version"], ["split", "a:b"]):
            with self.subTest(args=args), open("/dev/full", "wb") as full:
                done = subprocess.run([VPATH] + args, stdout=full, stderr=subprocess.PIPE,
                                      env=UNSAVED_ENV, timeout=120)
                self.assertEqual(done.returncode, 2)
                self.assertEqual(done.stderr,
                                 b"vpath: error writing standard output: No space left on device\n")


class FirstRun(OwnPathDefinition, unittest.TestCase):
    def test_no_saved_path_is_an_empty_path_with_a_hint(self):
        hint = b"vpath: the search path is empty: add a folder with 'vpath add FOLDER'"
        for args, status in ((["path"], 0), (["which", "area"], 1), (["ls"], 0)):
            with self.subTest(args=args):
                got, out, err = self.vpath(*args)
                self.assertEqual((got, out), (status, b""))
                self.assertIn(hint, err)


class GivenPaths(OwnPathDefinition, unittest.TestCase):
    def test_path_file_from_standard_input_with_relative_folders_and_file_iris(self):
        root = self.root
        for name in (b"a", b"b c", b"d\xff", b"e"):
            self.folder(name)
        listing = (b"# folders\n" + root + b"/a\r\n\nb c\nfile://" + root + b"/d%FF\n" +
                   root + b"/e\n")
        expected = [root + b"/a", root + b"/b c", root + b"/d\xff", root + b"/e"]
        self.assertEqual(self.vpath("path", "--path-file", "-", stdin=listing),
                         (0, b"".join(folder + b"\n" for folder in expected), b""))


class AddWarnings(OwnPathDefinition, unittest.TestCase):
    def test_package_class_private_and_resources_folders_are_named_with_their_parent(self):
        for name, kind in (("+pkg", "package"), ("@Cls", "class"), ("private", "private"),
                           ("resources", "resources"), ("plain", None)):
            folder = os.fsdecode(self.folder(b"tb/" + name.encode()))
            with self.subTest(name=name):
                status, _, err = run("add", folder, env=self.env)
                self.assertEqual(status, 0)
                if kind is None:
                    self.assertEqual(err, "")
                else:
                    self.assertEqual(err, f"vpath: warning: {folder} is a {kind} " +
                                     err.split(f"is a {kind} ")[1])
                    self.assertIn(f"add {os.fsdecode(self.root)}/tb instead", err)


class GeneratedDocuments(unittest.TestCase):
    def test_the_man_page_renders_cleanly_and_lists_every_command(self):
        done = subprocess.run(["groff", "-man", "-Tutf8", "-P-cbou", "-ww", os.path.join(ARGS.docs, "vpath.1")],
                              capture_output=True, text=True)
        self.assertEqual(done.stderr, "")
        for command in commands():
            self.assertIn(f"vpath {command}", done.stdout)
        self.assertIn("EXIT STATUS", done.stdout)


class OnATree(OwnPathDefinition, unittest.TestCase):
    #  a/ area.vl clamp.vl Mean.vl notes.txt n\xe9.vl +shapes/circle.vl +shapes/@Poly/Poly.vl
    #     private/helper.vl resources/units.vl
    #  b/ area.vl (as a's) clamp.vl (differs) @Sample/Sample.vl
    def setUp(self):
        super().setUp()
        for name in (b"a/Mean.vl", b"a/notes.txt", b"a/n\xe9.vl", b"a/+shapes/circle.vl",
                     b"a/+shapes/@Poly/Poly.vl", b"a/private/helper.vl", b"a/resources/units.vl",
                     b"b/@Sample/Sample.vl"):
            self.file(name)
        for name, content in ((b"a/area.vl", b"same"), (b"b/area.vl", b"same"),
                              (b"a/clamp.vl", b"one"), (b"b/clamp.vl", b"two")):
            self.file(name, content)

    def vpath(self, *args, folders=(b"a", b"b")):
        return super().vpath("--path", b":".join(self.at(f) for f in folders), *args)

    def test_entries_in_path_order_lenient_and_strict(self):
        cases = [
            (("entries", "shapes"), 0, [self.at(b"a", b"+shapes")]),
            (("entries", "--strict", "shapes"), 1, []),
            (("entries", "--strict", "+shapes"), 0, [self.at(b"a", b"+shapes")]),
            (("entries", "Poly"), 1, []),  # +shapes above must be named
            (("entries", "shapes/Poly", "Sample"), 0,
             [self.at(b"a", b"+shapes", b"@Poly"), self.at(b"b", b"@Sample")]),
            (("entries", "--strict", "private"), 0, [self.at(b"a", b"private")]),
        ]
        for args, status, lines in cases:
            with self.subTest(args=args):
                got_status, out, err = self.vpath(*args)
                self.assertEqual((got_status, out.splitlines()), (status, lines), err)
        status, out, _ = self.vpath("entries", "--json", "resources")
        self.assertEqual(json.loads(out), {"partial": "resources", "entries": [
            {"path": os.fsdecode(self.at(b"a", b"resources")),
             "iri": "file://" + os.fsdecode(self.at(b"a", b"resources")), "kind": "resources"}]})

    def test_explain_tells_each_kind_of_near_miss(self):
        cases = [
            ("helper", "private", b"a/private/helper.vl", "seen only with --from " +
             os.fsdecode(self.at(b"a"))),
            ("circle", "package", b"a/+shapes/circle.vl", "ask for shapes/circle"),
            ("vertices", None, None, None),
            ("Poly", "package", b"a/+shapes/@Poly/Poly.vl", "ask for shapes/Poly/Poly"),
            ("mean", "case", b"a/Mean.vl", "ask for Mean"),
            ("sample", "case", b"b/@Sample/Sample.vl", "ask for Sample"),
            ("units", "resources", b"a/resources/units.vl", "never searched"),
            ("notes", "extension", b"a/notes.txt", "ask for notes.txt"),
        ]
        for name, kind, file, hint in cases:
            with self.subTest(name=name):
                status, out, _ = self.vpath("which", "--explain", name)
                self.assertEqual(status, 1)
                lines = out.splitlines()
                self.assertEqual(lines[:4], [b"which " + name.encode()] + [
                    b"tried " + self.at(folder) + b": " + b" ".join(
                        name.encode() + ext for ext in (b".vlx", b".vlp", b".vl"))
                    for folder in (b"a", b"b")] + [b"answer: not found on the path"])
                misses = [l for l in lines if l.startswith(b"near miss")]
                if kind is None:
                    self.assertEqual(misses, [])
                    continue
                self.assertEqual(len(misses), 1, misses)
                self.assertTrue(misses[0].startswith(
                    b"near miss (" + kind.encode() + b") " + self.at(file) + b": "), misses[0])
                self.assertIn(hint.encode(), misses[0])

    def test_explain_stops_at_the_answer_and_names_what_it_shadows(self):
        status, out, err = self.vpath("which", "--explain", "area")
        self.assertEqual(status, 0, err)
        self.assertEqual(out.splitlines(), [
            b"which area",
            b"tried " + self.at(b"a") + b": area.vlx area.vlp area.vl",
            b"answer " + self.at(b"a", b"area.vl"),
            b"near miss (shadowed) " + self.at(b"b", b"area.vl") + b": shadowed by " +
            self.at(b"a", b"area.vl")])
        # From a's folder its private folder comes first, and answers.
        status, out, _ = self.vpath("which", "--explain", "--json", "--from", self.at(b"a"),
                                    "helper")
        answer = json.loads(out)
        self.assertEqual(status, 0)
        self.assertEqual([t["kind"] for t in answer["tried"]], ["private"])
        self.assertEqual(answer["answer"]["file"]["path"],
                         os.fsdecode(self.at(b"a", b"private", b"helper.vl")))
        self.assertEqual(answer["nearMisses"], [])

    def test_json_keeps_the_bytes_of_names_that_are_not_utf8(self):
        status, out, _ = self.vpath("which", "--json", "-a", b"n\xe9", "area", "nope")
        self.assertEqual(status, 1)
        odd, area, nope = [json.loads(l) for l in out.splitlines()]
        self.assertEqual(odd["hits"][0]["file"]["iri"],
                         "file://" + os.fsdecode(self.at(b"a")) + "/n%E9.vl")
        self.assertEqual(odd["hits"][0]["file"]["path"],
                         os.fsdecode(self.at(b"a")) + "/n\ufffd.vl")
        self.assertEqual([(h["inUse"], h["kind"], h.get("shadowedBy", {}).get("path"))
                          for h in area["hits"]],
                         [(True, "folder", None),
                          (False, "folder", os.fsdecode(self.at(b"a", b"area.vl")))])
        self.assertEqual(nope, {"name": "nope", "found": False, "hits": []})
        status, out, _ = self.vpath("ls", "--json", "--packages", "--ext", ".txt")
        self.assertEqual([(h["file"]["path"], h["kind"]) for h in json.loads(out)],
                         [(os.fsdecode(self.at(b"a", b"notes.txt")), "folder")])
        status, out, _ = self.vpath("path", "--json", folders=(b"a", b"gone"))
        self.assertEqual([(f["path"], f["exists"]) for f in json.loads(out)],
                         [(os.fsdecode(self.at(b"a")), True), (os.fsdecode(self.at(b"gone")), False)])

    def test_batch_answers_each_name_before_the_next_is_written(self):
        # A line may end in CRLF; a name asked again gets the same answer, a miss the same message.
        for all_files, questions in [
                (False, [(b"area", [self.at(b"a", b"area.vl")]), (b"nope\r", [b""]),
                         (b"shapes/circle", [self.at(b"a", b"+shapes", b"circle.vl")]),
                         (b"nope", [b""]), (b"area", [self.at(b"a", b"area.vl")])]),
                (True, [(b"area", [self.at(b"a", b"area.vl"),
                                   self.at(b"b", b"area.vl"), b""]),
                        (b"nope", [b""]), (b"Sample", [self.at(b"b", b"@Sample", b"Sample.vl"), b""])])]:
            argv = [VPATH, "--path", b":".join([self.at(b"a"), self.at(b"b")]), "which",
                    "--batch"] + (["-a"] if all_files else [])
            with subprocess.Popen(argv, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE, env=self.env) as co:
                for name, answer in questions:
                    co.stdin.write(name + b"\n")
                    co.stdin.flush()
                    # Blocks until the answer arrives: the next name is not written before.
                    got = [co.stdout.readline().rstrip(b"\n") for _ in answer]
                    self.assertEqual(got, answer, name)
                co.stdin.close()
                self.assertEqual(co.stdout.read(), b"")
                self.assertEqual(co.wait(timeout=60), 1)
                self.assertEqual(co.stderr.read(), b"vpath: nope: not found on the path\n" * sum(
                    name.startswith(b"nope") for name, _ in questions))


class SavedPath(OwnPathDefinition, unittest.TestCase):
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
    main("--examples", "--docs")
