"""A path given on the command line: --path-file read within bounds and its lines shown whole, and
IRI schemes in --path recognised as the rest of vpath recognises them."""

import os
import unittest

import cli_test

MIB = 1 << 20


class GivenPath(cli_test.OwnPathDefinition, unittest.TestCase):
    def test_a_path_file_is_a_regular_file_or_standard_input_within_the_cap(self):
        a = self.folder(b"a")
        big = self.file(b"big", b"a\n" + b"#" * (16 * MIB))
        fifo = self.at(b"fifo")
        os.mkfifo(fifo)
        # The first failure ends the test: what follows the FIFO, unbounded, would use up memory.
        for file, stdin, said in [
                (fifo, b"", b"it is not a regular file"),
                (b"/dev/zero", b"", b"it is not a regular file"),
                (big, b"", b"it is larger than 16 MiB"),
                (b"-", b"a\n" + b"#" * (16 * MIB), b"standard input is larger than 16 MiB"),
                # A bad line is shown whole.
                (self.file(b"list", b"# folders\n/x\x00y\\z/\x00\n"), b"",
                 b'line 2 ("/x\\0y\\\\z/\\0") is not a folder: it holds a NUL')]:
            status, out, err = self.vpath("--path-file", file, "path", stdin=stdin)
            self.assertEqual((status, out), (2, b""), file)
            self.assertIn(said, err)
        # Standard input may be a pipe, and a file may be up to the cap.
        self.assertEqual(self.vpath("--path-file", "-", "path", stdin=b"a\n")[:2], (0, a + b"\n"))
        os.truncate(big, 16 * MIB)
        self.assertEqual(self.vpath("--path-file", big, "path")[:2], (0, a + b"\n"))

    def test_a_path_file_reads_its_lines_as_the_saved_path_does(self):
        # The last line ends in a carriage return with no line feed: it is part of the name.
        content = b"# folders\r\n" + self.folder(b"a") + b"\r\n\r\n" + self.folder(b"b\r")
        self.folder(b"b")
        for file in (self.pathdef, b"list"):
            self.file(file, content)
        saved = self.vpath("path")
        self.assertEqual(saved[0], 0)
        self.assertIn(b"b\r\n", saved[1])
        self.assertEqual(self.vpath("--path-file", "list", "path"), saved)

    def test_schemes_are_recognised_whatever_their_case(self):
        for text, folders in [
                (b"FILE:/tmp/x", [b"FILE:/tmp/x"]),
                (b"a:File:///b:c", [b"a", b"File:///b", b"c"]),
                (b"HTTP://h/x;files:/y", [b"HTTP://h/x", b"files", b"/y"])]:
            with self.subTest(text=text):
                self.assertEqual(self.vpath("split", text), (0, b"".join(
                    f + b"\n" for f in folders), b""))
        self.assertEqual(self.vpath("--path", "FILE:/tmp", "path")[:2], (0, b"/tmp\n"))


if __name__ == "__main__":
    cli_test.main()
