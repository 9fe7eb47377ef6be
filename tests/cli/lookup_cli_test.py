"""vpath which --from/--batch and vpath ls, as users run them."""

import unittest

import cli_test
from cli_test import example, run


class WhichFrom(unittest.TestCase):
    def test_a_folders_private_files_are_seen_only_from_it(self):
        status, out, _ = run("--example", "which", "--from", example("geometry"), "validate_shape")
        self.assertEqual((status, out.splitlines()),
                         (0, [example("geometry", "private", "validate_shape.vl")]))
        status, _, err = run("--example", "which", "--from", example("utils"), "validate_shape")
        self.assertEqual((status, "validate_shape: not found on the path" in err), (1, True), err)
        self.assertEqual(run("--example", "which", "validate_shape")[0], 1)


class Batch(unittest.TestCase):
    def test_one_answer_line_per_question_line(self):
        # A name asked again gets the same answer, and a miss the same message.
        status, out, err = cli_test.run_raw("--example", "which", "--batch",
                                            stdin=b"area\nnope\r\nshapes/circle\nnope\narea\n")
        self.assertEqual((status, err), (1, b"vpath: nope: not found on the path\n" * 2))
        self.assertEqual(out.split(b"\n"), [
            example("geometry", "area.vl"), b"", example("geometry", "+shapes", "circle.vl"), b"",
            example("geometry", "area.vl"), b""])


class Ls(cli_test.OwnPathDefinition, unittest.TestCase):
    def test_packages_and_classes_on_request(self):
        plain = run("--example", "ls")[1].splitlines()
        everything = run("ls", "--packages", "--example")[1].splitlines()
        self.assertNotIn(example("geometry", "+shapes", "circle.vl"), plain)
        self.assertIn(example("geometry", "+shapes", "circle.vl"), everything)
        self.assertIn(example("geometry", "private", "validate_shape.vl"), everything)
        self.assertEqual(len(plain), 7)

    def test_names_that_are_not_utf8_are_listed_as_bytes(self):
        name = self.file(b"x\xfe/n\xe9.vl")
        self.assertEqual(self.vpath("--path", b"x\xfe", "ls", "--ext", ".vl"),
                         (0, name + b"\n", b""))


if __name__ == "__main__":
    cli_test.main("--examples")
