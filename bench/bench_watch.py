"""How fast vpath watch reports a change, beside inotifywait on the same generated tree in the
same run.

  python3 bench_watch.py --vpath BIN --tree-tool BIN [--folders N] [--files N]
                         [--repetitions R] [--tmpdir DIR]

Cases:
  setup     from starting the process to its first report of a probe file (made every 5 ms),
            so the path's load and the watches on every folder are inside; median of R starts.
            beside: inotifywait -m -r ROOT, from start to "Watches established."
  latency   from creating an empty file in a random path folder to the line that reports it,
            with both watchers running at once; median and 99th percentile of 20 x R files.
            beside: inotifywait -m -r ROOT reporting the same file
"""

import argparse
import os
import random
import selectors
import shutil
import statistics
import subprocess
import sys
import tempfile
import time


def write_pathdef(path, folders):
    with open(path, "w") as f:
        for folder in folders:
            f.write(folder + "\n")


def percentile(values, fraction):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(fraction * len(ordered)))]


class Watcher:
    """A watching process whose lines are read as they come."""

    def __init__(self, argv, env, stream="stdout"):
        self.process = subprocess.Popen(argv, env=env, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE)
        self.selector = selectors.DefaultSelector()
        self.selector.register(self.process.stdout, selectors.EVENT_READ, "out")
        self.selector.register(self.process.stderr, selectors.EVENT_READ, "err")
        self.pending = {"out": b"", "err": b""}

    def line(self, stream, timeout):
        """The next line of `stream` ("out" or "err") within `timeout` seconds, else None."""
        deadline = time.perf_counter() + timeout
        while b"\n" not in self.pending[stream]:
            left = deadline - time.perf_counter()
            if left <= 0:
                return None
            for key, _ in self.selector.select(left):
                chunk = os.read(key.fileobj.fileno(), 65536)
                if not chunk:
                    return None
                self.pending[key.data] += chunk
        line, self.pending[stream] = self.pending[stream].split(b"\n", 1)
        return line

    def stop(self):
        self.process.kill()
        self.process.wait()


def setup_time(start_watcher, ready):
    start = time.perf_counter()
    watcher = start_watcher()
    try:
        if not ready(watcher):
            sys.exit("bench_watch: a watcher never became ready")
        return time.perf_counter() - start, watcher
    except BaseException:
        watcher.stop()
        raise


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--vpath", required=True)
    parser.add_argument("--tree-tool", required=True)
    parser.add_argument("--folders", type=int, default=2000)
    parser.add_argument("--files", type=int, default=2)
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--tmpdir", default=os.environ.get("VPATH_BENCH_TMPDIR"))
    args = parser.parse_args()
    if shutil.which("inotifywait") is None:
        sys.exit("bench_watch: inotifywait is missing (scripts/install-deps.sh installs it)")

    scratch = tempfile.mkdtemp(prefix="vpath-bench-watch-", dir=args.tmpdir)
    try:
        tree = os.path.join(scratch, "tree")
        os.mkdir(tree)
        folders = subprocess.run([args.tree_tool, tree, f"--folders={args.folders}",
                                  f"--files={args.files}"], check=True, stdout=subprocess.PIPE,
                                 text=True).stdout.strip().split(":")
        pathdef = os.path.join(scratch, "pathdef")
        write_pathdef(pathdef, folders)
        env = dict(os.environ, HOME=scratch, XDG_CACHE_HOME=os.path.join(scratch, "cache"),
                   VPATH_PATHDEF=pathdef)
        probes = iter(range(10**9))

        def vpath_ready(watcher):
            # Probes until one is reported: the watch is up and answering.
            deadline = time.perf_counter() + 600
            while time.perf_counter() < deadline:
                open(os.path.join(folders[0], f"probe{next(probes)}.vl"), "w").close()
                if watcher.line("out", 0.005) is not None:
                    while watcher.line("out", 0.2) is not None:
                        pass
                    return True
            return False

        def inotifywait_ready(watcher):
            while True:
                line = watcher.line("err", 600)
                if line is None:
                    return False
                if b"Watches established" in line:
                    return True

        start_vpath = lambda: Watcher([args.vpath, "watch"], env)
        start_inotifywait = lambda: Watcher(
            ["inotifywait", "-m", "-r", "-e", "create", "--format", "%w%f", tree], env)

        setups = {"vpath": [], "inotifywait": []}
        for _ in range(args.repetitions):
            for name, start, ready in (("vpath", start_vpath, vpath_ready),
                                       ("inotifywait", start_inotifywait, inotifywait_ready)):
                seconds, watcher = setup_time(start, ready)
                setups[name].append(seconds)
                watcher.stop()

        _, vpath = setup_time(start_vpath, vpath_ready)
        _, inotifywait = setup_time(start_inotifywait, inotifywait_ready)
        latencies = {"vpath": [], "inotifywait": []}
        rng = random.Random(1)
        # Both watchers' lines are read as they come, so neither waits for the other.
        both = selectors.DefaultSelector()
        for name, watcher in (("vpath", vpath), ("inotifywait", inotifywait)):
            both.register(watcher.process.stdout, selectors.EVENT_READ, (name, watcher))
        try:
            for n in range(20 * args.repetitions):
                folder = rng.choice(folders)
                start = time.perf_counter()
                open(os.path.join(folder, f"new{n}.vl"), "w").close()
                waiting = {"vpath", "inotifywait"}
                while waiting:
                    ready = both.select(30)
                    if not ready:
                        sys.exit(f"bench_watch: {sorted(waiting)} did not report a new file")
                    now = time.perf_counter()
                    for key, _ in ready:
                        name, watcher = key.data
                        chunk = os.read(key.fileobj.fileno(), 65536)
                        if not chunk:
                            sys.exit(f"bench_watch: {name} ended")
                        watcher.pending["out"] += chunk
                        if name in waiting and b"\n" in watcher.pending["out"]:
                            watcher.pending["out"] = watcher.pending["out"].split(b"\n", 1)[1]
                            latencies[name].append(now - start)
                            waiting.discard(name)
        finally:
            vpath.stop()
            inotifywait.stop()

        load = os.getloadavg()[0]
        print(f"bench_watch: {args.folders} folders, {args.files} files each, load {load:.1f}")
        print(f"{'case':<28}{'vpath':>12}{'inotifywait':>14}{'ratio':>8}")

        def row(case, ours, theirs):
            print(f"{case:<28}{ours * 1000:>9.2f} ms{theirs * 1000:>11.2f} ms"
                  f"{ours / theirs:>8.2f}")

        row("setup (median)", statistics.median(setups["vpath"]),
            statistics.median(setups["inotifywait"]))
        row("file to line (median)", statistics.median(latencies["vpath"]),
            statistics.median(latencies["inotifywait"]))
        row("file to line (99th pct)", percentile(latencies["vpath"], 0.99),
            percentile(latencies["inotifywait"], 0.99))
    finally:
        shutil.rmtree(scratch, ignore_errors=True)


if __name__ == "__main__":
    main()
