"""vpath as a command: parse errors, global options, exit statuses, output errors, the first run,
--path-file, and the generated man page and completion."""

import os
import subprocess
import unittest

import cli_test
from cli_test import example, run

def commands():
    """The subcommands, as help lists them."""
    _, out, _ = run("--help")
    section = out.decode().split("Subcommands:\n")[1].split("\n\n")[0]
    return [line.split()[0] for line in section.splitlines()]


class ParseErrors(unittest.TestCase):
    def test_mistakes_are_named_with_the_nearest_valid_names(self):
        cases = [
            (["whcih", "area"], "vpath: unknown command 'whcih'; did you mean 'which'?"),
            (["wtach"], "vpath: unknown command 'wtach'; did you mean 'watch'?"),
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


class GlobalOptions(cli_test.OwnPathDefinition, unittest.TestCase):
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


class ExitStatuses(cli_test.OwnPathDefinition, unittest.TestCase):
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
                done = subprocess.run([cli_test.VPATH] + args, stdout=full, stderr=subprocess.PIPE,
                                      env=cli_test.UNSAVED_ENV, timeout=120)
                self.assertEqual(done.returncode, 2)
                self.assertEqual(done.stderr,
                                 b"vpath: error writing standard output: No space left on device\n")


class FirstRun(cli_test.OwnPathDefinition, unittest.TestCase):
    def test_no_saved_path_is_an_empty_path_with_a_hint(self):
        hint = b"vpath: the search path is empty: add a folder with 'vpath add FOLDER'"
        for args, status in ((["path"], 0), (["which", "area"], 1), (["ls"], 0)):
            with self.subTest(args=args):
                got, out, err = self.vpath(*args)
                self.assertEqual((got, out), (status, b""))
                self.assertIn(hint, err)


class GivenPaths(cli_test.OwnPathDefinition, unittest.TestCase):
    def test_path_file_from_standard_input_and_file_iris(self):
        root = self.root
        for name in (b"a", b"b c", b"d\xff", b"e"):
            self.folder(name)
        listing = (b"# folders\n" + root + b"/a\r\n\nb c\nfile://" + root + b"/d%FF\n" +
                   root + b"/e\n")
        expected = [root + b"/a", root + b"/b c", root + b"/d\xff", root + b"/e"]
        self.assertEqual(self.vpath("path", "--path-file", "-", stdin=listing),
                         (0, b"".join(folder + b"\n" for folder in expected), b""))
        given = b"file://" + root + b"/a:e;file:" + root + b"/b c"
        self.assertEqual(self.vpath("--path", given, "path"),
                         (0, root + b"/a\n" + root + b"/e\n" + root + b"/b c\n", b""))


class AddWarnings(cli_test.OwnPathDefinition, unittest.TestCase):
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
        done = subprocess.run(["groff", "-man", "-Tutf8", "-P-cbou", "-ww", os.path.join(cli_test.ARGS.docs, "vpath.1")],
                              capture_output=True, text=True)
        self.assertEqual(done.stderr, "")
        for command in commands():
            self.assertIn(f"vpath {command}", done.stdout)
        self.assertIn("EXIT STATUS", done.stdout)


if __name__ == "__main__":
    cli_test.main("--examples", "--docs")
