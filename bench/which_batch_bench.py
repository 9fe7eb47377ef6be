"""which_batch_bench: the time `vpath which --batch` takes per name, beside a Python dict loop on
the same names, on a generated tree (see README.md).

vpath's figure is (time to answer N names - time to answer none) / N, so that starting and scanning
the path are left out; the baseline's is the time of its loop alone, after its dict is built: read
a name, look it up, write the answer, for every line of the same file. Both write to /dev/null.
Times are processor time (user and system), since on a shared machine the wall time mostly
measures the other work. Each is run several times and the median kept.

The start, left out of the figure per name, is shown apart, between its floor and an alternative:
vpath answering no names (from its path cache unless --no-cache), vpath_bench_stat_floor (a C++
process that stat()s each folder of the path once, the least a start that trusts a cache does)
and a fresh python3 that lists every folder to build the dict the loop uses.
"""

import argparse
import os
import random
import resource
import statistics
import subprocess
import sys
import tempfile
import time

# Longer than the path cache's window for stamps too recent to trust.
SETTLE_SECONDS = 2.5

EXTENSIONS = [".vlx", ".vlp", ".vl"]


def make_tree(tool, root, folders, files):
    out = subprocess.run([tool, root, f"--folders={folders}", f"--files={files}"],
                         check=True, capture_output=True, text=True).stdout
    return out.strip()


def first_files(path):
    """Python's own index of the path: name => the file a lookup answers, by path order and then
    by extension preference."""
    index = {}
    for folder in path.split(":"):
        by_name = {}
        for entry in os.listdir(folder):
            stem, ext = os.path.splitext(entry)
            if ext in EXTENSIONS:
                by_name.setdefault(stem, []).append(ext)
        for stem, exts in by_name.items():
            if stem not in index:
                best = min(exts, key=EXTENSIONS.index)
                index[stem] = os.path.join(folder, stem + best)
    return index


# The baseline's start: a fresh interpreter that builds first_files' index of the path.
PYTHON_INDEX = """
import os, sys
EXTENSIONS = [".vlx", ".vlp", ".vl"]
index = {}
for folder in open(sys.argv[1]).read().splitlines():
    by_name = {}
    for entry in os.listdir(folder):
        stem, ext = os.path.splitext(entry)
        if ext in EXTENSIONS:
            by_name.setdefault(stem, []).append(ext)
    for stem, exts in by_name.items():
        if stem not in index:
            index[stem] = os.path.join(folder, stem + min(exts, key=EXTENSIONS.index))
"""


def child_seconds(argv, **kwargs):
    """Processor time (user and system) of running `argv` to its end."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    done = subprocess.run(argv, **kwargs)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if done.returncode != 0:
        sys.exit(f"which_batch_bench: {argv[0]} ended with status {done.returncode}")
    return (after.ru_utime + after.ru_stime) - (before.ru_utime + before.ru_stime)


def python_loop(names_file, index):
    with open(names_file) as names, open(os.devnull, "w") as out:
        start = time.process_time()
        get = index.get
        write = out.write
        for line in names:
            write(get(line[:-1], "") + "\n")
        return time.process_time() - start


def vpath_run(vpath, options, path, names_file, env):
    with open(names_file, "rb") as names, open(os.devnull, "wb") as out:
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run([vpath, *options, "--path", path, "which", "--batch"], stdin=names,
                       stdout=out, stderr=subprocess.DEVNULL, check=False, env=env)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        return (after.ru_utime + after.ru_stime) - (before.ru_utime + before.ru_stime)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--vpath", required=True)
    parser.add_argument("--tree-tool", required=True)
    parser.add_argument("--stat-floor",
                        help="vpath_bench_stat_floor (default: beside the tree tool)")
    parser.add_argument("--folders", type=int, default=2000)
    parser.add_argument("--files", type=int, default=50)
    parser.add_argument("--names", type=int, default=400000)
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--no-cache", action="store_true",
                        help="scan the path at each start instead of reading its path cache")
    args = parser.parse_args()

    with tempfile.TemporaryDirectory() as scratch:
        root = os.path.join(scratch, "tree")
        os.mkdir(root)
        path = make_tree(args.tree_tool, root, args.folders, args.files)
        # A folder changed less than two seconds before the path cache is written has its stamp
        # saved as unknown and is listed again at each start until a later write; a user's path is
        # older than that, so the new tree settles before vpath first starts on it.
        time.sleep(SETTLE_SECONDS)
        index = first_files(path)
        rng = random.Random(1)
        pool = sorted(index)
        # Mostly names on the path, one in ten a miss.
        names = [rng.choice(pool) if rng.random() < 0.9 else f"absent_{k}"
                 for k in range(args.names)]
        names_file = os.path.join(scratch, "names")
        empty_file = os.path.join(scratch, "none")
        with open(names_file, "w") as f:
            f.write("\n".join(names) + "\n")
        open(empty_file, "w").close()
        folders_file = os.path.join(scratch, "folders")
        with open(folders_file, "w") as f:
            f.write(path.replace(":", "\n") + "\n")
        stat_floor = args.stat_floor or os.path.join(os.path.dirname(args.tree_tool),
                                                     "vpath_bench_stat_floor")
        # The path cache goes to the scratch folder, written once before anything is timed.
        env = dict(os.environ, XDG_CACHE_HOME=os.path.join(scratch, "cache"))
        options = ["--no-cache"] if args.no_cache else []
        vpath_run(args.vpath, options, path, empty_file, env)

        vp, py, starts, floors, indexes = [], [], [], [], []
        for _ in range(args.repetitions):
            full = vpath_run(args.vpath, options, path, names_file, env)
            start = vpath_run(args.vpath, options, path, empty_file, env)
            vp.append(max(full - start, 0.0) / args.names)
            py.append(python_loop(names_file, index) / args.names)
            starts.append(start)
            floors.append(child_seconds([stat_floor, folders_file]))
            indexes.append(child_seconds([sys.executable, "-I", "-S", "-c", PYTHON_INDEX,
                                          folders_file]))
        v, p = statistics.median(vp), statistics.median(py)
        s, f, i = (statistics.median(starts), statistics.median(floors),
                   statistics.median(indexes))
        print(f"which --batch on {args.folders} folders x {args.files} files, {args.names} names, "
              f"{'no path cache, ' if args.no_cache else ''}"
              f"median of {args.repetitions} runs (load {os.getloadavg()[0]:.1f})")
        print(f"{'vpath which --batch':<24} {v * 1e9:10.1f} ns/name")
        print(f"{'baseline (Python dict)':<24} {p * 1e9:10.1f} ns/name")
        print(f"{'vpath / baseline':<24} {v / p if p else 0:10.2f}x")
        print(f"start, processor time: vpath {'scanning the path' if args.no_cache else 'from its cache'}"
              f" between the floor and a Python index")
        print(f"{'floor (stat per folder)':<24} {f * 1e3:10.2f} ms")
        print(f"{'vpath, no names':<24} {s * 1e3:10.2f} ms")
        print(f"{'Python lists the folders':<24} {i * 1e3:10.2f} ms")
        print(f"{'vpath / floor':<24} {s / f if f else 0:10.2f}x")
        print(f"{'vpath / Python':<24} {s / i if i else 0:10.2f}x")


if __name__ == "__main__":
    sys.exit(main())
