"""End-to-end timings of the vpath command with its path cache, each beside an outside baseline
measured on the same generated tree in the same run.

  python3 bench_cli_cache.py --vpath BIN --tree-tool BIN [--stat-floor BIN] [--folders N]
                             [--files N] [--repetitions R] [--tmpdir DIR]

Cases (median wall time of R fresh processes; in the which rows the three commands take turns):
  which, warm cache   vpath which NAME, the cache written by an earlier start, for a name held by
                      the first folder, one held by the middle folder, and a name on no folder
                      floor: vpath_bench_stat_floor, a C++ process that stat()s each folder of the
                      path once, as a start that trusts its cache must
                      beside: a fresh python3 that walks the folders in path order with one
                      importlib FileFinder each (it lists the folder and tries .vlx, .vlp, .vl in
                      that order) until one finds NAME; a miss lists every folder
                      (wall time and processor time), and vpath's own cold scan (--no-cache)
  add one folder      vpath add DIR on the saved path, warm cache (then rm, untimed)
                      beside: appending one line to a copy of the path definition file + fsync
  diff                vpath diff OLD NEW of two saved paths that differ in a few folders, warm
                      caches; beside: GNU diff OLD NEW
It also prints the cache's size per file and per folder, and the peak memory (/usr/bin/time -v)
of a warm and a cold which.
"""

import argparse
import os
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

# Longer than the path cache's window for stamps too recent to trust.
SETTLE_SECONDS = 2.5


def timed(argv, env, repetitions, check=True):
    times = []
    for _ in range(repetitions):
        start = time.perf_counter()
        done = subprocess.run(argv, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        times.append(time.perf_counter() - start)
        if check and done.returncode not in (0, 1):
            sys.exit(f"bench_cli_cache: {argv[:3]} failed: {done.stderr.decode(errors='replace')}")
    return statistics.median(times)


def timed_in_turn(commands, env, repetitions):
    """The median wall time and the median processor time (user and system) of each of `commands`
    (name => argv), run in turn, so that a change in the machine's load falls on all of them alike.
    """
    wall = {name: [] for name in commands}
    processor = {name: [] for name in commands}
    for _ in range(repetitions):
        for name, argv in commands.items():
            before = resource.getrusage(resource.RUSAGE_CHILDREN)
            wall[name].append(timed(argv, env, 1))
            after = resource.getrusage(resource.RUSAGE_CHILDREN)
            processor[name].append(after.ru_utime + after.ru_stime - before.ru_utime -
                                   before.ru_stime)
    return ({name: statistics.median(values) for name, values in wall.items()},
            {name: statistics.median(values) for name, values in processor.items()})


# The baseline's lookup: Python's import system on a path of folders, as it walks sys.path. A
# FileFinder lists its folder on its first lookup and then tries the extensions in the order given.
FILEFINDER_WALK = """
import sys
from importlib.machinery import FileFinder, SourceFileLoader
with open(sys.argv[1]) as f:
    folders = [l.rstrip("\\n") for l in f if l.strip() and not l.startswith("#")]
for folder in folders:
    spec = FileFinder(folder, (SourceFileLoader, [".vlx", ".vlp", ".vl"])).find_spec(sys.argv[2])
    if spec is not None:
        print(spec.origin)
        sys.exit(0)
sys.exit(1)
"""


def answer(argv, env):
    """What `argv` prints for one lookup, or None for a miss."""
    done = subprocess.run(argv, env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if done.returncode not in (0, 1):
        sys.exit(f"bench_cli_cache: {argv[:3]} failed: {done.stderr}")
    return os.path.realpath(done.stdout.strip()) if done.returncode == 0 else None


def peak_kib(argv, env):
    done = subprocess.run(["/usr/bin/time", "-v"] + argv, env=env, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True)
    for line in done.stderr.splitlines():
        if "Maximum resident set size" in line:
            return int(line.split(":")[1])
    return -1


def write_pathdef(path, folders):
    with open(path, "w") as f:
        f.write("# vpath search path\n")
        for folder in folders:
            f.write(folder + "\n")


def ms(seconds):
    return f"{seconds * 1000:.1f} ms"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--vpath", required=True)
    parser.add_argument("--tree-tool", required=True)
    parser.add_argument("--stat-floor",
                        help="vpath_bench_stat_floor (default: beside the tree tool)")
    parser.add_argument("--folders", type=int, default=2000)
    parser.add_argument("--files", type=int, default=50)
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--tmpdir", default=os.environ.get("VPATH_BENCH_TMPDIR"))
    args = parser.parse_args()

    scratch = tempfile.mkdtemp(prefix="vpath-bench-cli-", dir=args.tmpdir)
    try:
        tree = os.path.join(scratch, "tree")
        os.mkdir(tree)
        path_text = subprocess.run([args.tree_tool, tree, f"--folders={args.folders}",
                                    f"--files={args.files}"], check=True, stdout=subprocess.PIPE,
                                   text=True).stdout.strip()
        folders = path_text.split(":")
        # A folder changed less than two seconds before the path cache is written has its stamp
        # saved as unknown and is listed again at each start until a later write; a user's path is
        # older than that, so the new tree settles before vpath first starts on it.
        time.sleep(SETTLE_SECONDS)
        pathdef = os.path.join(scratch, "pathdef")
        write_pathdef(pathdef, folders)
        env = dict(os.environ, HOME=scratch, XDG_CACHE_HOME=os.path.join(scratch, "cache"),
                   VPATH_PATHDEF=pathdef)
        env.pop("XDG_CONFIG_HOME", None)
        vpath = [args.vpath]
        stat_floor = args.stat_floor or os.path.join(os.path.dirname(args.tree_tool),
                                                     "vpath_bench_stat_floor")

        def own_name(folder):
            held = sorted(f for f in os.listdir(folder) if f.startswith("fn_"))
            return os.path.splitext(held[0])[0]

        names = [("name in the first folder", own_name(folders[0])),
                 ("name in the middle folder", own_name(folders[len(folders) // 2])),
                 ("name on no folder", "absent_name")]
        name = names[0][1]
        reps = args.repetitions

        # which: the floor, vpath from its cache and the path-walking baseline, which must all
        # agree on the answers before any time counts.
        subprocess.run(vpath + ["which", name], env=env, check=True, stdout=subprocess.DEVNULL)
        if subprocess.run([stat_floor, pathdef]).returncode != 0:
            sys.exit(f"bench_cli_cache: {stat_floor} could not stat every folder")
        walk = [sys.executable, "-I", "-S", "-c", FILEFINDER_WALK, pathdef]
        which_rows = []
        for label, looked_up in names:
            ours, theirs = answer(vpath + ["which", looked_up], env), answer(walk + [looked_up], env)
            if ours != theirs:
                sys.exit(f"bench_cli_cache: which {looked_up}: vpath answers {ours}, "
                         f"the FileFinder walk {theirs}")
            which_rows.append((label, *timed_in_turn({"floor": [stat_floor, pathdef],
                                                      "vpath": vpath + ["which", looked_up],
                                                      "python": walk + [looked_up]}, env, reps)))
        cold = timed(vpath + ["--no-cache", "which", name], env, reps)
        warm = which_rows[0][1]["vpath"]

        # add one folder
        extra = os.path.join(scratch, "extra")
        os.mkdir(extra)
        for k in range(args.files):
            open(os.path.join(extra, f"x_{k}.vl"), "w").close()
        add_times = []
        for _ in range(reps):
            start = time.perf_counter()
            subprocess.run(vpath + ["add", extra], env=env, check=True, stdout=subprocess.DEVNULL)
            add_times.append(time.perf_counter() - start)
            subprocess.run(vpath + ["rm", extra], env=env, check=True, stdout=subprocess.DEVNULL)
        add = statistics.median(add_times)
        copy = os.path.join(scratch, "pathdef.copy")
        shutil.copy(pathdef, copy)
        edit = timed(["sh", "-c", 'printf "%s\\n" "$1" >> "$2" && sync "$2"', "sh", extra, copy],
                     env, reps)

        # diff of two saved paths, both caches warm
        other = os.path.join(scratch, "pathdef.new")
        changed = folders[:]
        changed.insert(len(changed) // 2, extra)
        del changed[len(changed) // 4]
        write_pathdef(other, changed)
        subprocess.run(vpath + ["diff", pathdef, other], env=env, stdout=subprocess.DEVNULL)
        diff = timed(vpath + ["diff", pathdef, other], env, reps)
        gnu_diff = timed(["diff", pathdef, other], env, reps)

        caches = os.path.join(scratch, "cache", "vpath")
        sizes = [os.path.getsize(os.path.join(caches, f)) for f in os.listdir(caches)]
        cache_size = max(sizes) if sizes else 0
        files = args.folders * args.files
        peak_warm = peak_kib(vpath + ["which", name], env)
        peak_cold = peak_kib(vpath + ["--no-cache", "which", name], env)

        print(f"\nvpath with its path cache: {args.folders} folders x {args.files} files, "
              f"median of {reps} runs, load average {os.getloadavg()[0]:.1f}")
        print("which, warm cache: vpath between the floor (a C++ process that stat()s each "
              "folder once)\nand a fresh python3 that walks the path with importlib FileFinders")
        for kind, column in (("wall time", 1), ("processor time (user + system)", 2)):
            print(f"{kind:28} {'floor':>10} {'vpath':>10} {'Python':>10} {'vpath/floor':>12} "
                  f"{'vpath/Python':>13}")
            for row in which_rows:
                label, m = row[0], row[column]
                print(f"  {label:26} {ms(m['floor']):>10} {ms(m['vpath']):>10} "
                      f"{ms(m['python']):>10} {m['vpath'] / m['floor']:>11.2f}x "
                      f"{m['vpath'] / m['python']:>12.2f}x")
        print()
        print(f"{'case':28} {'vpath':>12} {'baseline':>34} {'ratio':>8}")
        rows = [
            ("which, warm cache", warm, cold, "vpath cold scan (--no-cache)"),
            ("add one folder, warm cache", add, edit, "text edit + fsync"),
            ("diff, warm caches", diff, gnu_diff, "GNU diff"),
        ]
        for label, ours, base, what in rows:
            print(f"{label:28} {ms(ours):>12} {what + ' ' + ms(base):>34} "
                  f"{ours / base:>7.2f}x")
        print(f"cache file: {cache_size} bytes = {cache_size / files:.1f} B per file "
              f"(or {cache_size / args.folders:.0f} B per folder)")
        print(f"peak memory of which: warm {peak_warm} KiB, cold {peak_cold} KiB "
              f"({peak_warm / peak_cold:.2f}x)")
    finally:
        shutil.rmtree(scratch, ignore_errors=True)


if __name__ == "__main__":
    main()
