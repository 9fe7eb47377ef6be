"""vpath as a Unix command: '--', help, output to a terminal or a pipe, NUL-separated output, usage
errors, change reports, suggestions, the progress of a long start, and the bash completion."""

import os
import pty
import re
import subprocess
import tempfile
import unittest

import cli_test
from cli_test import example, run

BASH_COMPLETION = "/usr/share/bash-completion/bash_completion"


def on_terminal(args, stream, env=None):
    """Runs vpath with `stream` ("stdout" or "stderr") on a terminal and the other one a pipe;
    returns (status, what the terminal showed, what the pipe got)."""
    leader, follower = pty.openpty()
    pipe = {"stdout": "stderr", "stderr": "stdout"}[stream]
    with subprocess.Popen([cli_test.VPATH] + args, stdin=subprocess.DEVNULL,
                          **{stream: follower, pipe: subprocess.PIPE},
                          env=env or cli_test.UNSAVED_ENV) as process:
        os.close(follower)
        shown = b""
        while True:
            try:
                chunk = os.read(leader, 4096)
            except OSError:  # the terminal's other side closed
                break
            if not chunk:
                break
            shown += chunk
        piped = getattr(process, pipe).read()
        status = process.wait(timeout=120)
    os.close(leader)
    return status, shown.replace(b"\r\n", b"\n"), piped


class Conventions(unittest.TestCase):
    def test_double_dash_ends_the_options_of_every_command(self):
        with tempfile.TemporaryDirectory() as tmp:
            os.mkdir(os.path.join(tmp, "-odd"))
            with open(os.path.join(tmp, "-odd", "-x.vl"), "w"):
                pass
            odd = os.path.join(os.path.realpath(tmp), "-odd").encode()
            for name, content in (("-old", odd + b"\n"), ("-new", b"")):
                with open(os.path.join(tmp, name), "wb") as f:
                    f.write(content)
            env = dict(cli_test.UNSAVED_ENV, VPATH_PATHDEF=os.path.join(tmp, "pathdef"))
            cases = [
                (["add", "--", "-odd"], 0, b"added " + odd + b"\n"),
                (["which", "--", "-x"], 0, odd + b"/-x.vl\n"),
                (["ls", "--"], 0, odd + b"/-x.vl\n"),
                (["entries", "--", "-odd"], 0, odd + b"\n"),
                (["split", "--", "-a:b"], 0, b"-a\nb\n"),
                (["diff", "--", "-old", "-new"], 1, b"removed " + odd + b"\n"),
                # A command's name after '--' is an argument too.
                (["which", "--", "ls"], 1, b""),
                (["rm", "--", "-odd"], 0, b"removed " + odd + b"\n"),
            ]
            for args, status, out in cases:
                with self.subTest(args=args):
                    self.assertEqual(run(*args, cwd=tmp, env=env)[:2], (status, out))

    def test_help_prints_what_help_options_print(self):
        for command in ["", "which", "cache", "help"]:
            with self.subTest(command=command):
                asked = run("help", *([command] if command else []))
                self.assertEqual(asked[0], 0)
                self.assertEqual(asked, run(*([command] if command else []), "--help"))
        status, out, _ = run("help", "pathdef")
        self.assertEqual((status, b"THE PATH DEFINITION FILE" in out), (0, True), out)
        status, _, err = run("help", "wacth")
        self.assertEqual((status, "unknown command or topic 'wacth'; did you mean 'watch'?" in err),
                         (2, True), err)

    def test_which_all_marks_shadowed_files_on_a_terminal_only(self):
        area = [example("geometry", "area.vl"), example("utils", "area.vl")]
        piped = run("--example", "which", "-a", "area")
        self.assertEqual(piped[:2], (0, b"\n".join(area) + b"\n"))
        status, shown, _ = on_terminal(["--example", "which", "-a", "area"], "stdout")
        self.assertEqual((status, shown), (0, area[0] + b"\n" + area[1] + b"  (shadowed)\n"))

    def test_null_ends_each_path_with_a_nul(self):
        with tempfile.TemporaryDirectory() as tmp:
            root = os.path.realpath(tmp).encode()
            for folder in (b"a\nb", b"c"):
                os.makedirs(os.path.join(root, folder, b"+p"))
                with open(os.path.join(root, folder, b"f.vl"), "w"):
                    pass
            given = ["--path", b"a\nb:c"]
            files = [root + b"/a\nb/f.vl", root + b"/c/f.vl"]
            cases = [
                (["which", "-z", "f"], files[0] + b"\0"),
                (["which", "--null", "-a", "f"], files[0] + b"\0" + files[1] + b"\0"),
                (["ls", "-z"], b"\0".join(files) + b"\0"),
                (["path", "-z"], root + b"/a\nb\0" + root + b"/c\0"),
                (["entries", "-z", "p"], root + b"/a\nb/+p\0" + root + b"/c/+p\0"),
                # The file in use, the shadowed, an empty record ending the name.
                (["shadows", "-z"], files[0] + b"\0" + files[1] + b"\0\0"),
            ]
            for args, out in cases:
                with self.subTest(args=args):
                    self.assertEqual(run(*given, *args, cwd=root), (0, out, ""))
            # A batch reads names ended by NUL and ends each answer with one.
            done = subprocess.run([cli_test.VPATH, *given, "which", "-z", "--batch"], cwd=root,
                                  input=b"f\0nope\0", capture_output=True, env=cli_test.UNSAVED_ENV)
            self.assertEqual((done.returncode, done.stdout), (1, files[0] + b"\0\0"))
            self.assertEqual(run(*given, "ls", "-z", "--json", cwd=root)[0], 2)

    def test_a_missing_from_folder_is_bad_usage(self):
        with tempfile.TemporaryDirectory() as tmp:
            open(os.path.join(tmp, "file"), "w").close()
            for folder, why in (("nowhere", "No such file or directory"),
                                ("file", "Not a directory")):
                with self.subTest(folder=folder):
                    status, out, err = run("--example", "which", "--from", folder, "area", cwd=tmp)
                    self.assertEqual((status, out), (2, b""))
                    self.assertEqual(err.splitlines()[0],
                                     f"vpath: which: --from: {folder}: {why}")

    def test_a_change_reports_the_folders_it_was_asked_to_change(self):
        with tempfile.TemporaryDirectory() as tmp:
            root = os.path.realpath(tmp).encode()
            for name in (b"a", b"b", b"c", b"d"):
                os.mkdir(os.path.join(root, name))
            env = dict(cli_test.UNSAVED_ENV, VPATH_PATHDEF=os.path.join(tmp, "pathdef"))
            at = lambda name: os.path.join(root, name)
            cases = [
                (["add", "a", "b", "c"], [b"added " + at(n) for n in (b"a", b"b", b"c")]),
                # c goes first; a and b only shift.
                (["add", "c"], [b"moved " + at(b"c")]),
                (["add", "--end", "c"], [b"moved " + at(b"c")]),
                (["add", "d", "b"], [b"added " + at(b"d"), b"moved " + at(b"b")]),
                (["add", "d"], []),
                (["rm", "d"], [b"removed " + at(b"d")]),
            ]
            for args, lines in cases:
                with self.subTest(args=args):
                    status, out, err = run(*args, cwd=root, env=env)
                    self.assertEqual((status, err), (0, ""))
                    self.assertEqual(sorted(out.splitlines()), sorted(lines))

    def test_short_options_are_suggested_by_their_letter(self):
        cases = [
            (["-V"], "vpath: unknown option '-V'; did you mean '--version'?"),
            (["which", "-A", "x"], "vpath: which: unknown option '-A'; did you mean '-a'?"),
            (["-q", "path"], "vpath: unknown option '-q'\n"),
        ]
        for args, first_line in cases:
            with self.subTest(args=args):
                status, _, err = run(*args)
                self.assertEqual(status, 2)
                self.assertTrue((err.splitlines()[0] + "\n").startswith(first_line), err)

    def test_a_start_shows_its_progress_on_a_terminal_only(self):
        args = ["--no-cache", "--example", "ls"]
        env = dict(cli_test.UNSAVED_ENV, VPATH_PROGRESS_DELAY="0")
        status, shown, out = on_terminal(args, "stderr", env)
        self.assertEqual(status, 0)
        self.assertNotEqual(out, b"")
        count = re.fullmatch(rb"(?:\rvpath: reading folders: \d+)*\rvpath: reading folders: "
                             rb"(\d+), done\.\n", shown)
        self.assertIsNotNone(count, shown)
        self.assertGreaterEqual(int(count.group(1)), 3)  # the toolbox's folders at least
        # Before its delay, and to a pipe, nothing.
        slow = dict(env, VPATH_PROGRESS_DELAY="60")
        self.assertEqual(on_terminal(args, "stderr", slow)[1], b"")
        self.assertEqual(run(*args, env=env)[2], "")


@unittest.skipUnless(os.path.exists(BASH_COMPLETION), "bash-completion is not installed")
class BashCompletion(unittest.TestCase):
    def complete(self, line, cwd):
        """What the completion offers for `line` typed up to its end, the words split as
        readline splits them ("=" and ":" break words)."""
        words = re.findall(r"[^ :=]+|[:=]", line)
        if line.endswith(" "):
            words.append("")
        words[0] = cli_test.VPATH
        program = (f'source {BASH_COMPLETION}; source "$0"; COMP_WORDS=("$@"); '
                   'COMP_CWORD=$(($# - 1)); COMP_LINE=$LINE; COMP_POINT=${#LINE}; '
                   '_vpath vpath "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD-1]}"; '
                   "printf '%s\\0' \"${COMPREPLY[@]}\"")
        env = dict(self.env, LINE=cli_test.VPATH + line[len("vpath"):])
        script = os.path.join(cli_test.ARGS.docs, "vpath.bash")
        done = subprocess.run(["bash", "-c", program, script] + words, capture_output=True,
                              cwd=cwd, env=env, timeout=60)
        self.assertEqual(done.stderr, b"")
        return sorted(w.decode() for w in done.stdout.split(b"\0") if w)

    def test_each_argument_completes_to_what_it_takes(self):
        with tempfile.TemporaryDirectory() as tmp:
            root = os.path.realpath(tmp)
            for folder in ("space dir", "spot", "col:on"):
                os.mkdir(os.path.join(root, folder))
            open(os.path.join(root, "spare.vl"), "w").close()
            self.env = dict(cli_test.UNSAVED_ENV, VPATH_PATHDEF=os.path.join(root, "pathdef"),
                            XDG_CACHE_HOME=os.path.join(root, "cache"))
            self.assertEqual(run("add", "space dir", "spot", cwd=root, env=self.env)[0], 0)
            on_path = [os.path.join(root, "space dir"), os.path.join(root, "spot")]
            cases = [
                ("vpath wh", ["which"]),
                ("vpath which --fr", ["--from"]),
                ("vpath help wh", ["which"]),
                ("vpath cache ", ["clear", "status"]),
                # Folders only, spaces and all; ':' and '=' break no name.
                ("vpath add sp", ["space dir", "spot"]),
                ("vpath add col:o", ["on"]),
                ("vpath which --from=sp", ["space dir", "spot"]),
                ("vpath --path spot:spa", ["space dir"]),
                ("vpath rm ", on_path),
                ("vpath rm " + on_path[1][:-1], [on_path[1]]),
                ("vpath rm col", ["col:on"]),  # not on the path: a folder on disk
                ("vpath --example which ar", ["area"]),
                ("vpath --example entries sh", ["shapes"]),
            ]
            for line, offered in cases:
                with self.subTest(line=line):
                    self.assertEqual(self.complete(line, root), offered)


if __name__ == "__main__":
    cli_test.main("--examples", "--docs")
