"""which --explain and shadows where class folders define names and files cannot be read."""

import os
import unittest

import cli_test


class ClassFoldersAndUnreadableFiles(cli_test.OwnPathDefinition, unittest.TestCase):
    #  a/ clamp.vl area.vl @Cls/Cls.vl
    #  b/ clamp.vl (cannot be read) area.vl (as a's) @Cls/Cls.vl
    def setUp(self):
        super().setUp()
        for name in (b"a/clamp.vl", b"a/area.vl", b"b/area.vl", b"a/@Cls/Cls.vl",
                     b"b/@Cls/Cls.vl"):
            self.file(name, b"same")
        # A regular file whose every read fails, even for root: memory at address 0.
        os.symlink(b"/proc/self/mem", self.at(b"b/clamp.vl"))

    def vpath(self, *args):
        return super().vpath("--path", self.at(b"a") + b":" + self.at(b"b"), *args)

    def test_explain_lists_the_class_folders_it_tried(self):
        status, out, err = self.vpath("which", "--explain", "Cls")
        self.assertEqual(status, 0, err)
        self.assertEqual([l.split(b":")[0] for l in out.splitlines() if l.startswith(b"tried")],
                         [b"tried " + self.at(b"a"), b"tried " + self.at(b"a", b"@Cls")])

    def test_shadows_reports_names_of_class_folders_and_unreadable_files_as_differing(self):
        status, out, err = self.vpath("shadows")
        self.assertEqual((status, err), (0, b""))
        self.assertIn(self.at(b"a", b"@Cls", b"Cls.vl") + b"\n" +
                      self.at(b"b", b"@Cls", b"Cls.vl") + b"  (shadowed)\n", out)
        status, out, err = self.vpath("shadows", "--differ")
        self.assertEqual((status, err), (0, b""))
        self.assertEqual(out.split(b"\n"), [
            self.at(b"a", b"clamp.vl"), self.at(b"b", b"clamp.vl") + b"  (shadowed)", b"", b""])


if __name__ == "__main__":
    cli_test.main()
