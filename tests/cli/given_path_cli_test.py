"""A path given on the command line: IRI schemes in --path recognised as the rest of vpath
recognises them."""

import os
import subprocess
import unittest

import cli_test


class GivenPath(cli_test.OwnPathDefinition, unittest.TestCase):
    def given(self, *args, stdin=b""):
        done = subprocess.run([cli_test.VPATH] + list(args), input=stdin, capture_output=True,
                              cwd=self.root, env=self.env, timeout=20)
        return done.returncode, done.stdout, done.stderr

    def test_schemes_are_recognised_whatever_their_case(self):
        for text, folders in [
                (b"FILE:/tmp/x", [b"FILE:/tmp/x"]),
                (b"a:File:///b:c", [b"a", b"File:///b", b"c"]),
                (b"HTTP://h/x;files:/y", [b"HTTP://h/x", b"files", b"/y"])]:
            with self.subTest(text=text):
                self.assertEqual(self.given("split", text), (0, b"".join(
                    f + b"\n" for f in folders), b""))
        self.assertEqual(self.given("--path", "FILE:/tmp", "path")[:2], (0, b"/tmp\n"))


if __name__ == "__main__":
    cli_test.main()
