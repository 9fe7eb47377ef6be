"""The vpath command's path cache: a start from the cache sees what changed on disk, the cache
follows changes of the path, and `vpath cache` and --no-cache do what they say."""

import os
import subprocess
import time
import unittest

import cli_test


class OnASavedFolder(cli_test.OwnPathDefinition):
    """A saved path of one folder, tb, holding area.vl and a package folder; vpath, and
    the temporary folder as `home`, in text."""

    def setUp(self):
        super().setUp()
        self.file(b"tb/area.vl")
        self.folder(b"tb/+pkg")
        self.file(self.pathdef, self.at(b"tb\n"))
        self.home, self.tb = os.fsdecode(self.root), os.fsdecode(self.at(b"tb"))
        self.cache_folder = os.path.join(self.home, "cache", "vpath")

    def vpath(self, *args):
        status, out, err = super().vpath(*args)
        return status, out.decode(), err.decode()

    def caches(self):
        return sorted(os.listdir(self.cache_folder)) if os.path.isdir(self.cache_folder) else []


class PathCache(OnASavedFolder, unittest.TestCase):
    def test_start_writes_the_cache_and_later_starts_see_changes(self):
        self.assertEqual(self.vpath("which", "area")[1], os.path.join(self.tb, "area.vl") + "\n")
        self.assertEqual(len(self.caches()), 1)
        self.assertIn("state: usable", self.vpath("cache", "status")[1])
        # Files added to a folder and to a special subfolder after the cache was written.
        open(os.path.join(self.tb, "+pkg", "circle.vl"), "w").close()
        os.remove(os.path.join(self.tb, "area.vl"))
        open(os.path.join(self.tb, "volume.vl"), "w").close()
        self.assertEqual(self.vpath("which", "pkg/circle", "volume")[1].splitlines(),
                         [os.path.join(self.tb, "+pkg", "circle.vl"),
                          os.path.join(self.tb, "volume.vl")])
        self.assertEqual(self.vpath("which", "area")[0], 1)

    def test_add_and_rm_keep_the_cache_in_step_with_the_path(self):
        other = os.path.join(self.home, "other")
        os.mkdir(other)
        open(os.path.join(other, "only.vl"), "w").close()
        self.vpath("path")
        self.assertEqual(self.vpath("add", other)[0], 0)
        self.assertEqual(self.vpath("which", "only")[1], os.path.join(other, "only.vl") + "\n")
        self.assertEqual(self.vpath("rm", other)[0], 0)
        self.assertEqual(self.vpath("which", "only")[0], 1)

    def test_watch_leaves_the_cache_of_the_path_it_last_saw(self):
        self.vpath("which", "area")
        [cache] = self.caches()
        written = os.stat(os.path.join(self.cache_folder, cache)).st_ino
        self.until_exit(self.watch("--count", "1"),
                        lambda n: open(os.path.join(self.tb, "new%d.vl" % n), "w").close())
        # Written anew (to a new file renamed over the old) with a file that the watch saw.
        self.assertNotEqual(os.stat(os.path.join(self.cache_folder, cache)).st_ino, written)
        files = [line for line in self.vpath("cache", "status")[1].splitlines()
                 if line.startswith("files: ")]
        self.assertGreaterEqual(int(files[0].split()[1]), 2)

    def test_diff_with_warm_caches_reports_only_what_differs(self):
        # A folder on both paths, with a special subfolder, is one entry to the comparison even
        # when each path's cache holds its own copy of it.
        other = os.path.join(self.home, "other")
        os.mkdir(other)
        before = os.path.join(self.home, "before")
        with open(before, "w") as f:
            f.write(self.tb + "\n" + other + "\n")
        for pathdef in (before, self.pathdef):
            self.vpath("--pathdef", pathdef, "which", "area")
        for attempt in range(2):
            with self.subTest(attempt=attempt):
                code, out, _ = self.vpath("diff", before, self.pathdef)
                self.assertEqual((code, out), (1, "removed " + other + "\n"))

    def test_no_cache_and_clear(self):
        self.assertEqual(self.vpath("--no-cache", "which", "area")[0], 0)
        self.assertEqual(self.caches(), [])
        self.vpath("which", "area")
        self.assertEqual(len(self.caches()), 1)
        self.assertEqual(self.vpath("cache", "clear")[0], 0)
        self.assertEqual(self.caches(), [])
        self.assertIn("state: none", self.vpath("cache", "status")[1])

    def test_a_damaged_cache_is_ignored(self):
        self.vpath("which", "area")
        [cache] = self.caches()
        with open(os.path.join(self.cache_folder, cache), "r+b") as f:
            f.seek(40)
            f.write(b"\xff\xff\xff\xff")
        self.assertIn("unusable", self.vpath("cache", "status")[1])
        self.assertEqual(self.vpath("which", "area")[1], os.path.join(self.tb, "area.vl") + "\n")
        self.assertIn("state: usable", self.vpath("cache", "status")[1])



class CachePlace(OnASavedFolder, unittest.TestCase):
    """Only a folder and a file of the user's own are used as the cache, whatever is put there."""


    def cache_file(self):
        self.vpath("which", "area")
        [cache] = self.caches()
        return os.path.join(self.cache_folder, cache)

    def test_what_is_at_the_cache_place(self):
        cache = self.cache_file()
        plants = [("a FIFO", lambda: os.mkfifo(cache), True),
                  ("a folder", lambda: os.mkdir(cache), True),
                  ("a folder", lambda: os.makedirs(os.path.join(cache, "x")), False)]
        for kind, plant, ours_to_replace in plants:
            with self.subTest(kind=kind, replaced=ours_to_replace):
                if os.path.lexists(cache):
                    os.remove(cache)
                plant()
                self.assertIn(kind + " is there", self.vpath("cache", "status")[1])
                code, out, err = self.vpath("which", "area")
                self.assertEqual((code, out), (0, os.path.join(self.tb, "area.vl") + "\n"))
                self.assertEqual(os.path.isfile(cache), ours_to_replace)
                self.assertEqual(err == "", ours_to_replace, err)
                if not ours_to_replace:
                    code, _, err = self.vpath("cache", "clear")
                    self.assertEqual((code, "left as it is" in err), (1, True), err)
                    os.rmdir(os.path.join(cache, "x"))
                if ours_to_replace:
                    os.remove(cache)
                    os.mkfifo(cache)
                self.assertEqual(self.vpath("cache", "clear")[0], 0)
                self.assertFalse(os.path.lexists(cache))

    def test_a_folder_others_can_write_is_not_used_and_said_once(self):
        cache = self.cache_file()
        written = os.stat(cache).st_mtime_ns
        os.chmod(self.cache_folder, 0o777)
        code, out, err = self.vpath("which", "area")
        self.assertEqual((code, out), (0, os.path.join(self.tb, "area.vl") + "\n"))
        self.assertEqual(len(err.splitlines()), 1, err)
        self.assertIn(self.cache_folder + " is writable by others", err)
        self.assertIn("chmod go-w " + self.cache_folder, err)
        self.assertEqual(os.stat(cache).st_mtime_ns, written)
        self.assertIn("state: not used", self.vpath("cache", "status")[1])

    def test_clear_all_removes_every_cache(self):
        self.cache_file()
        self.vpath("--path", self.tb, "which", "area")
        self.assertEqual(len(self.caches()), 2)
        self.assertEqual(self.vpath("cache", "clear", "--all")[0], 0)
        self.assertEqual(self.caches(), [])

    def test_a_batch_outlives_its_cache_truncated(self):
        # Folders older than the window of stamps too new to trust: the batch answers from the
        # cache, not from listings of its own.
        time.sleep(2.1)
        cache = self.cache_file()
        batch = subprocess.Popen([cli_test.VPATH, "which", "--batch"], env=self.env, text=True,
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE)
        batch.stdin.write("area\n")
        batch.stdin.flush()
        self.assertEqual(batch.stdout.readline(), os.path.join(self.tb, "area.vl") + "\n")
        os.truncate(cache, 0)
        out, _ = batch.communicate("area\nnowhere\narea\n", timeout=60)
        self.assertEqual(batch.returncode, 1)
        self.assertEqual(out.count("area.vl"), 2)


if __name__ == "__main__":
    cli_test.main()
