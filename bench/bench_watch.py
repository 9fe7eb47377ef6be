"""How fast vpath watch reports a change, beside inotifywait on the same generated tree in the
same run.

  python3 bench_watch.py --vpath BIN --tree-tool BIN [--stat-floor BIN] [--folders N]
                         [--files N] [--repetitions R] [--tmpdir DIR]

Cases:
  setup     from starting the process to its first report of a probe file (made every 5 ms),
            so the path's load and the watches on every folder are inside; median of R starts.
            The path is read from its cache, written beforehand by one `vpath path`, as at every
            start but the first; "no cache" is the first start, which lists every folder.
            beside: inotifywait -m -r ROOT, from start to "Watches established."
            floor: vpath_bench_stat_floor, a C++ process that stat()s each folder of the path
            once, start to exit; a watcher asks the kernel about each folder at least as often
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

# Longer than the path cache's window for stamps too recent to trust.
SETTLE_SECONDS = 2.5


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

    def why(self):
        """What the stopped watcher said last on standard error, and how it ended."""
        rest = self.pending["err"] + self.process.stderr.read()
        text = rest.decode(errors="replace").strip().splitlines()
        return f"exit status {self.process.returncode}: " + " | ".join(text[-3:])


def setup_time(name, start_watcher, ready):
    """Seconds from start to ready, and the running watcher. `ready` returns the moment the watcher
    was ready, or None. A watcher that cannot set up its watches because those of one just stopped
    are not yet given back is started again."""
    for attempt in range(40):
        start = time.perf_counter()
        watcher = start_watcher()
        try:
            ready_at = ready(watcher)
            if ready_at is not None:
                return ready_at - start, watcher
            watcher.stop()
            why = watcher.why()
            if "upper limit on inotify watches" not in why and "out of inotify watches" not in why:
                sys.exit(f"bench_watch: {name} never became ready: {why}")
            time.sleep(0.25)
        except BaseException:
            watcher.stop()
            raise
    sys.exit(f"bench_watch: {name} never had its watches: {why}")


def watches_needed(tree):
    return sum(1 for _ in os.walk(tree))


def max_user_watches():
    try:
        with open("/proc/sys/fs/inotify/max_user_watches") as f:
            return int(f.read())
    except OSError:
        return None


def measure_latency(watchers, folders, prefix, latencies):
    """Creates one file in each of `folders` in turn, and times each watcher's line for it; the
    watchers' lines are read as they come, so that none waits for another."""
    both = selectors.DefaultSelector()
    for name, watcher in watchers:
        both.register(watcher.process.stdout, selectors.EVENT_READ, (name, watcher))
    try:
        for n, folder in enumerate(folders):
            start = time.perf_counter()
            open(os.path.join(folder, f"{prefix}{n}.vl"), "w").close()
            waiting = {name for name, _ in watchers}
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
        for _, watcher in watchers:
            watcher.stop()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--vpath", required=True)
    parser.add_argument("--tree-tool", required=True)
    parser.add_argument("--stat-floor",
                        help="vpath_bench_stat_floor (default: beside the tree tool)")
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
        # A folder changed less than two seconds before the path cache is written has its stamp
        # saved as unknown and is listed again at each start until a later write; a user's path is
        # older than that, so the new tree settles before vpath first starts on it.
        time.sleep(SETTLE_SECONDS)
        pathdef = os.path.join(scratch, "pathdef")
        write_pathdef(pathdef, folders)
        env = dict(os.environ, HOME=scratch, XDG_CACHE_HOME=os.path.join(scratch, "cache"),
                   VPATH_PATHDEF=pathdef)
        probes = iter(range(10**9))

        def vpath_ready(watcher):
            # Probes until one is reported: the watch is up and answering, and that is the moment
            # timed. A vpath that had to poll some folders, because the watches of one stopped
            # just before were not yet given back, is not ready: it is started again.
            deadline = time.perf_counter() + 600
            while time.perf_counter() < deadline and watcher.process.poll() is None:
                open(os.path.join(folders[0], f"probe{next(probes)}.vl"), "w").close()
                if watcher.line("out", 0.005) is not None:
                    ready_at = time.perf_counter()
                    while watcher.line("out", 0.2) is not None:
                        pass
                    while (line := watcher.line("err", 0.05)) is not None:
                        if b"out of inotify watches" in line:
                            watcher.pending["err"] = line + b"\n" + watcher.pending["err"]
                            return None
                    return ready_at
            return None

        def inotifywait_ready(watcher):
            while True:
                line = watcher.line("err", 600)
                if line is None:
                    return None
                if b"Watches established" in line:
                    return time.perf_counter()

        # Every start but the first reads the path from its cache: written now, so that the first
        # timed start is like the others (a watch that is stopped soon after it starts never
        # writes it).
        subprocess.run([args.vpath, "path"], env=env, check=True, stdout=subprocess.DEVNULL)
        start_vpath = lambda: Watcher([args.vpath, "watch"], env)
        start_vpath_cold = lambda: Watcher([args.vpath, "--no-cache", "watch"], env)
        start_inotifywait = lambda: Watcher(
            ["inotifywait", "-m", "-r", "-e", "create", "--format", "%w%f", tree], env)

        stat_floor = args.stat_floor or os.path.join(os.path.dirname(args.tree_tool),
                                                     "vpath_bench_stat_floor")
        setups = {"vpath": [], "vpath, no cache": [], "inotifywait": []}
        floors = []
        for _ in range(args.repetitions):
            start = time.perf_counter()
            if subprocess.run([stat_floor, pathdef]).returncode != 0:
                sys.exit(f"bench_watch: {stat_floor} could not stat every folder")
            floors.append(time.perf_counter() - start)
            for name, start, ready in (("vpath", start_vpath, vpath_ready),
                                       ("vpath, no cache", start_vpath_cold, vpath_ready),
                                       ("inotifywait", start_inotifywait, inotifywait_ready)):
                seconds, watcher = setup_time(name, start, ready)
                setups[name].append(seconds)
                watcher.stop()

        # Both watchers run at once when both sets of watches fit in the user's limit; else one
        # after the other, on the same folders.
        limit = max_user_watches()
        together = limit is None or 2 * watches_needed(tree) <= limit
        latencies = {"vpath": [], "inotifywait": []}
        rng = random.Random(1)
        sample = [rng.choice(folders) for _ in range(20 * args.repetitions)]
        starts = (("vpath", start_vpath, vpath_ready),
                  ("inotifywait", start_inotifywait, inotifywait_ready))
        if together:
            running = []
            try:
                for name, start, ready in starts:
                    running.append((name, setup_time(name, start, ready)[1]))
            except BaseException:
                for _, watcher in running:
                    watcher.stop()
                raise
            measure_latency(running, sample, "new", latencies)
        else:
            for name, start, ready in starts:
                measure_latency([(name, setup_time(name, start, ready)[1])], sample, name,
                                latencies)

        load = os.getloadavg()[0]
        print(f"bench_watch: {args.folders} folders, {args.files} files each, load {load:.1f}")
        if not together:
            print(f"bench_watch: latency measured one watcher at a time: two sets of watches do "
                  f"not fit in fs.inotify.max_user_watches ({limit})")
        print("floor: a C++ process that stat()s each folder of the path once (setup only)")
        print(f"{'case':<28}{'floor':>12}{'vpath':>12}{'inotifywait':>14}{'vpath/floor':>13}"
              f"{'vpath/inotifywait':>19}")

        def row(case, ours, theirs, floor=None):
            floor_text = f"{floor * 1000:>9.2f} ms" if floor else f"{'-':>12}"
            ratio_text = f"{ours / floor:>12.2f}x" if floor else f"{'-':>13}"
            print(f"{case:<28}{floor_text}{ours * 1000:>9.2f} ms{theirs * 1000:>11.2f} ms"
                  f"{ratio_text}{ours / theirs:>18.2f}x")

        floor = statistics.median(floors)
        row("setup (median)", statistics.median(setups["vpath"]),
            statistics.median(setups["inotifywait"]), floor)
        row("setup, no cache (median)", statistics.median(setups["vpath, no cache"]),
            statistics.median(setups["inotifywait"]), floor)
        row("file to line (median)", statistics.median(latencies["vpath"]),
            statistics.median(latencies["inotifywait"]))
        row("file to line (99th pct)", percentile(latencies["vpath"], 0.99),
            percentile(latencies["inotifywait"], 0.99))
    finally:
        shutil.rmtree(scratch, ignore_errors=True)


if __name__ == "__main__":
    main()
