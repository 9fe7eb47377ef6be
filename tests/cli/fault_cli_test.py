"""which --explain and shadows where class folders define names and files cannot be read."""

import os
import unittest

import cli_test


class ClassFoldersAndUnreadableFiles(cli_test.OwnPathDefinition, unittest.TestCase):
    #  a/ clamp.vl area.vl @Cls/Cls.vl empty.vl (cannot be read) both.vl (cannot be read)
    #  b/ clamp.vl (cannot be read) area.vl (as a's) @Cls/Cls.vl empty.vl (empty) both.vl (cannot
    #     be read)
    def setUp(self):
        super().setUp()
        for name in (b"a/clamp.vl", b"a/area.vl", b"b/area.vl", b"a/@Cls/Cls.vl",
                     b"b/@Cls/Cls.vl"):
            self.file(name, b"same")
        self.file(b"b/empty.vl")
        # A regular file whose every read fails, even for root: memory at address 0.
        for name in (b"b/clamp.vl", b"a/empty.vl", b"a/both.vl", b"b/both.vl"):
            os.symlink(b"/proc/self/mem", self.at(name))

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
        # Whichever of the two cannot be read, and when neither can, the pair counts as differing.
        self.assertEqual(out.split(b"\n\n"), [
            self.at(b"a", n) + b"\n" + self.at(b"b", n) + b"  (shadowed)"
            for n in (b"both.vl", b"clamp.vl", b"empty.vl")] + [b""])


if __name__ == "__main__":
    cli_test.main()
