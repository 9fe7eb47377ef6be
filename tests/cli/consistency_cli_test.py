"""The lookups agree with each other on random trees whose special folders stand on the path too.

Each case builds a small tree of ordinary folders with private, resources, package and class
folders, puts some ordinary folders and some special ones on the path in a random order, and asks
`which`, `which -a`, `which --batch`, `which --explain`, `shadows` and `ls`, from a scan, a cold
cache and a warm cache. A special folder whose holder is on the path is reached through the
holder only, so the answers must be those of the path without it, wherever it stands.
"""

import json
import os
import random
import tempfile
import unittest

import cli_test

STEMS = ["f", "g", "K", "m.so"]
EXTENSIONS = [".vlx", ".vlp", ".vl", ".txt"]
SPECIALS = ["private", "resources", "+pkg", "@K", "+pkg/@K", "@K/private"]
SEEDS = range(24)


def vpath(env, *args, stdin=b""):
    return cli_test.run_raw(*args, env=env, stdin=stdin)[:2]


def make_tree(rng, root):
    """Folders A, B, C with random files and special folders; the folders that exist."""
    folders = []
    for top in ["A", "B", "C"]:
        for sub in [""] + [s for s in SPECIALS if rng.random() < 0.5]:
            folder = os.path.join(root, top, sub) if sub else os.path.join(root, top)
            os.makedirs(folder, exist_ok=True)
            folders.append(folder)
            for stem in STEMS:
                for extension in EXTENSIONS:
                    if rng.random() < 0.3:
                        open(os.path.join(folder, stem + extension), "wb").close()
            if sub.endswith("@K") and rng.random() < 0.7:
                open(os.path.join(folder, "helper.vl"), "wb").close()
    return sorted(set(folders))


def holder_on_path(folder, path):
    """Whether a folder of the path holds `folder` as a special subfolder."""
    above = folder
    while True:
        name = os.path.basename(above)
        if not (name[:1] in "+@" or name in ("private", "resources")):
            return False
        above = os.path.dirname(above)
        if above in path:
            return True


class Answers:
    """Everything the commands say about a path, keyed so that two paths can be compared."""

    def __init__(self, env, path, names, cache):
        args = [*cache, "--path", ":".join(path)]
        stdin = b"".join(name.encode() + b"\n" for name in names)
        _, batch = vpath(env, *args, "which", "--batch", stdin=stdin)
        self.first = batch.split(b"\n")[:len(names)]
        # With -a each name's lines end with a blank line; a miss is the blank line alone.
        _, groups = vpath(env, *args, "which", "-a", "--batch", stdin=stdin)
        self.all = [[]]
        for line in groups.split(b"\n"):
            if line:
                self.all[-1].append(line)
            else:
                self.all.append([])
        self.all = self.all[:len(names)]
        _, explained = vpath(env, *args, "which", "--explain", "--json", *names)
        self.explained = [json.loads(line) for line in explained.splitlines()]
        _, shadows = vpath(env, *args, "shadows", "--json")
        self.shadows = [json.loads(line) for line in shadows.splitlines()]
        _, self.ls = vpath(env, *args, "ls")

    def key(self):
        return (self.first, self.all, self.explained, self.shadows, self.ls)


class SpecialFoldersOnThePath(unittest.TestCase):
    def check_agreement(self, answers, names):
        for name, first, group, explained in zip(names, answers.first, answers.all,
                                                 answers.explained):
            with self.subTest(name=name):
                files = group
                # Listed once each, the first in use.
                self.assertEqual(len(files), len(set(files)), group)
                # which, -a and --explain give the same answer.
                self.assertEqual(first, files[0] if files else b"")
                answer = explained["answer"]
                self.assertEqual(answer["file"]["path"].encode() if answer else b"", first)
        # shadows lists exactly the groups of which -a under the names it shows, and every name of
        # several files that it can show.
        by_name = dict(zip(names, answers.all))
        shown = set()
        for group in answers.shadows:
            name = group["name"]
            shown.add(name)
            listed = [group["inUse"]["file"]["path"]] + [s["file"]["path"] for s in group["shadowed"]]
            self.assertIn(name, by_name)
            self.assertEqual([line.decode() for line in by_name[name]], listed)
        for name, group in by_name.items():
            if len(group) > 1 and "." not in name and "/" not in name:
                self.assertIn(name, shown)
        # Every file that ls lists is one that which -a lists under its name.
        for line in answers.ls.splitlines():
            stem, extension = os.path.splitext(os.path.basename(line.decode()))
            name = stem if "." not in stem else stem + extension
            self.assertIn(line, by_name[name])

    def test_random_trees_and_orders(self):
        names = sorted({*STEMS, *(s + e for s in STEMS for e in EXTENSIONS[:3]), "helper",
                        "pkg/f", "K/helper", "nothing"})
        with tempfile.TemporaryDirectory() as tmp:
            root = os.path.realpath(tmp)
            for seed in SEEDS:
                rng = random.Random(seed)
                tree = os.path.join(root, str(seed))
                folders = make_tree(rng, tree)
                path = rng.sample(folders, rng.randint(2, min(6, len(folders))))
                reduced = [f for f in path if not holder_on_path(f, path)]
                env = dict(os.environ, XDG_CACHE_HOME=os.path.join(tree, ".cache"),
                           VPATH_PATHDEF=os.path.join(tree, ".none", "pathdef"))
                with self.subTest(seed=seed, path=[os.path.relpath(f, tree) for f in path]):
                    scanned = Answers(env, path, names, ["--no-cache"])
                    self.check_agreement(scanned, names)
                    for _ in range(2):  # from a cold cache, then a warm one
                        self.assertEqual(Answers(env, path, names, []).key(), scanned.key())
                    # A folder reached through its holder adds nothing, wherever it stands.
                    if reduced != path:
                        self.assertEqual(Answers(env, reduced, names, ["--no-cache"]).key(),
                                         scanned.key())

    def test_the_cases_users_met_in_every_order(self):
        """Each case in each order, from a scan, a cold cache and a warm one: which -a lists a
        file once and every extension of a folder, and shadows groups under a name which takes."""
        files = ["P/resources/r.vl", "P/private/q.vl", "Q/@K/K.vl", "Q/@K/helper.vl", "a/x.vlp",
                 "a/x.vl", "c/m.so.vl", "d/m.so.vl"]
        cases = [  # orders of the path, what which -a lists of each name, the names shadows shows
            ([["P/resources", "P/private", "P"], ["P", "P/resources", "P/private"]],
             {"r": [], "q": []}, []),
            ([["Q/@K", "Q"], ["Q", "Q/@K"]], {"K": ["Q/@K/K.vl"], "helper": []}, []),
            ([["a"]], {"x": ["a/x.vlp", "a/x.vl"], "x.vl": ["a/x.vl"]}, ["x"]),
            ([["c", "d"]], {"m.so.vl": ["c/m.so.vl", "d/m.so.vl"], "m.so": []}, ["m.so.vl"]),
        ]
        with tempfile.TemporaryDirectory() as tmp:
            root = os.path.realpath(tmp)
            for name in files:
                os.makedirs(os.path.dirname(os.path.join(root, name)), exist_ok=True)
                open(os.path.join(root, name), "wb").close()
            env = dict(os.environ, XDG_CACHE_HOME=os.path.join(root, ".cache"),
                       VPATH_PATHDEF=os.path.join(root, ".none", "pathdef"))
            for orders, listed, shadowed in cases:
                names = sorted(listed)
                expected = [[os.path.join(root, f).encode() for f in listed[n]] for n in names]
                for order in orders:
                    path = [os.path.join(root, f) for f in order]
                    for cache in (["--no-cache"], [], []):
                        with self.subTest(path=order, cache=cache):
                            answers = Answers(env, path, names, cache)
                            self.assertEqual(answers.all, expected)
                            self.assertEqual([g["name"] for g in answers.shadows], shadowed)
                            self.check_agreement(answers, names)


if __name__ == "__main__":
    cli_test.main()
