"""vpath entries, which --explain, shadows, the JSON forms and which --batch as a co-process,
on temporary folder trees."""

import json
import os
import subprocess
import tempfile
import unittest

import cli_test
from cli_test import run


class OnATree(unittest.TestCase):
    #  a/ area.vl clamp.vl Mean.vl notes.txt n\xe9.vl +shapes/circle.vl +shapes/@Poly/Poly.vl
    #     private/helper.vl resources/units.vl
    #  b/ area.vl (as a's) clamp.vl (differs) @Sample/Sample.vl
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory()
        self.root = os.fsencode(os.path.realpath(self.tmp.name))
        files = {b"a/area.vl": b"same", b"a/clamp.vl": b"one", b"a/Mean.vl": b"",
                 b"a/notes.txt": b"", b"a/n\xe9.vl": b"", b"a/+shapes/circle.vl": b"",
                 b"a/+shapes/@Poly/Poly.vl": b"", b"a/private/helper.vl": b"",
                 b"a/resources/units.vl": b"", b"b/area.vl": b"same", b"b/clamp.vl": b"two",
                 b"b/@Sample/Sample.vl": b""}
        for name, content in files.items():
            path = os.path.join(self.root, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as f:
                f.write(content)

    def tearDown(self):
        self.tmp.cleanup()

    def at(self, *parts):
        return os.path.join(self.root, *parts)

    def vpath(self, *args, folders=(b"a", b"b")):
        return run("--path", b":".join(self.at(f) for f in folders), *args)

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
        for all_files, questions in [
                (False, [(b"area", [self.at(b"a", b"area.vl")]), (b"nope", [b""]),
                         (b"shapes/circle", [self.at(b"a", b"+shapes", b"circle.vl")])]),
                (True, [(b"area", [self.at(b"a", b"area.vl"),
                                   self.at(b"b", b"area.vl"), b""]),
                        (b"nope", [b""]), (b"Sample", [self.at(b"b", b"@Sample", b"Sample.vl"), b""])])]:
            argv = [cli_test.VPATH, "--path", b":".join([self.at(b"a"), self.at(b"b")]), "which",
                    "--batch"] + (["-a"] if all_files else [])
            with subprocess.Popen(argv, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL, env=cli_test.UNSAVED_ENV) as co:
                for name, answer in questions:
                    co.stdin.write(name + b"\n")
                    co.stdin.flush()
                    # Blocks until the answer arrives: the next name is not written before.
                    got = [co.stdout.readline().rstrip(b"\n") for _ in answer]
                    self.assertEqual(got, answer, name)
                co.stdin.close()
                self.assertEqual(co.stdout.read(), b"")
                self.assertEqual(co.wait(timeout=60), 1)


if __name__ == "__main__":
    cli_test.main("--examples")
