"""End-to-end timings of the vpath command with its path cache, each beside an outside baseline
measured on the same generated tree in the same run.

  python3 bench_cli_cache.py --vpath BIN --tree-tool BIN [--folders N] [--files N]
                             [--repetitions R] [--tmpdir DIR]

Cases (median wall time of R fresh processes):
  which, warm cache   vpath which NAME, the cache written by an earlier start
                      beside: a fresh python3 asking importlib's FileFinder for NAME in the first
                      folder, and vpath's own cold scan (--no-cache)
  add one folder      vpath add DIR on the saved path, warm cache (then rm, untimed)
                      beside: appending one line to a copy of the path definition file + fsync
  diff                vpath diff OLD NEW of two saved paths that differ in a few folders, warm
                      caches; beside: GNU diff OLD NEW
It also prints the cache's size per file and per folder, and the peak memory (/usr/bin/time -v)
of a warm and a cold which.
"""

import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time


def timed(argv, env, repetitions, check=True):
    times = []
    for _ in range(repetitions):
        start = time.perf_counter()
        done = subprocess.run(argv, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        times.append(time.perf_counter() - start)
        if check and done.returncode not in (0, 1):
            sys.exit(f"bench_cli_cache: {argv[:3]} failed: {done.stderr.decode(errors='replace')}")
    return statistics.median(times)


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
        pathdef = os.path.join(scratch, "pathdef")
        write_pathdef(pathdef, folders)
        env = dict(os.environ, HOME=scratch, XDG_CACHE_HOME=os.path.join(scratch, "cache"),
                   VPATH_PATHDEF=pathdef)
        env.pop("XDG_CONFIG_HOME", None)
        vpath = [args.vpath]
        first = sorted(os.listdir(folders[0]))
        name = os.path.splitext(next(f for f in first if f.startswith("fn_")))[0]
        reps = args.repetitions

        # which
        cold = timed(vpath + ["--no-cache", "which", name], env, reps)
        subprocess.run(vpath + ["which", name], env=env, check=True, stdout=subprocess.DEVNULL)
        warm = timed(vpath + ["which", name], env, reps)
        python = timed([sys.executable, "-c",
                        "import sys; from importlib.machinery import FileFinder, "
                        "SourceFileLoader as L; "
                        "sys.exit(FileFinder(sys.argv[1], (L, ['.vlx', '.vlp', '.vl']))"
                        ".find_spec(sys.argv[2]) is None)", folders[0], name], env, reps)

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
        print(f"{'case':28} {'vpath':>12} {'baseline':>34} {'ratio':>8}")
        rows = [
            ("which, warm cache", warm, python, "fresh Python FileFinder"),
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
