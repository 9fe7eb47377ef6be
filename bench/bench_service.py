"""The vpath command answered by the path service, beside the same command without it and outside
baselines, on the same generated tree in the same run.

  python3 bench_service.py --vpath BIN --tree-tool BIN [--size small|A|B] [--keep-tree DIR]
                           [--folders N] [--files N] [--repetitions R] [--tmpdir DIR] ...

Sizes: small 2,000 folders x 50 files (the default), A 10,000 x 100, B 100,000 x 10; --folders and
--files override them. The socket baseline (vpath_bench_socket) and the stat floor are looked for
beside the tree tool.

Rows, each printed with its baselines and the ratio of vpath's figure to each:
  which NAME          through the service (median and p90 of many fresh processes), taking turns
                      with vpath --version (a process that reads no path), --no-service (warm
                      cache), vpath_bench_stat_floor (one stat per folder), a fresh C client that
                      connects to a resident server, reads its greeting, asks and prints the
                      answer, and python3 walking the folders with importlib FileFinders; and the
                      round trip on an open connection to that server
  loop / batch        --loop `vpath which NAME` of different names in one shell loop, through the
                      service and without it, beside one `which --batch` of the same names
  batch per name      `which --batch` of --batch-names names on standard input, less a batch of
                      none, per name; through the service and without it
  add / rm            vpath add DIR and vpath rm DIR of one folder, the service running and not,
                      beside a text edit of a copy of the path definition file, saved with fsync
  sync                a file made (then removed) just before `which`: how many answers saw it,
                      and the time of `which` right after making a file beside one after no change
  start               `service start` from a warm cache until it answers; its resident memory per
                      file and the processor time the service spent starting
The load (/proc/loadavg) is printed at the start, before each part and at the end.
"""

import argparse
import math
import os
import random
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from bench_cli_cache import FILEFINDER_WALK, SETTLE_SECONDS, write_pathdef  # noqa: E402

SIZES = {"small": (2000, 50), "A": (10000, 100), "B": (100000, 10)}


def load():
    with open("/proc/loadavg") as f:
        return " ".join(f.read().split()[:3])


def run_timed(argv, env, stdin=None, expect=(0, 1)):
    """Wall and processor time (user and system, of the child) of one run of `argv`."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    done = subprocess.run(argv, env=env, stdin=stdin, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE)
    wall = time.perf_counter() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if done.returncode not in expect:
        sys.exit(f"bench_service: {argv[:4]} ended with {done.returncode}: "
                 f"{done.stderr.decode(errors='replace')}")
    return wall, (after.ru_utime + after.ru_stime) - (before.ru_utime + before.ru_stime)


def in_turn(commands, env, rounds):
    """Samples of wall and processor time of each of `commands` (name => (argv, runs per round)),
    run in turn so that a change in the machine's load falls on all of them alike."""
    wall = {name: [] for name in commands}
    cpu = {name: [] for name in commands}
    for _ in range(rounds):
        for name, (argv, runs) in commands.items():
            for _ in range(runs):
                w, c = run_timed(argv, env)
                wall[name].append(w)
                cpu[name].append(c)
    return wall, cpu


def p90(values):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, math.ceil(0.9 * len(ordered)) - 1)]


def ms(seconds):
    return f"{seconds * 1e3:.2f} ms" if seconds < 10 else f"{seconds:.2f} s"


def ratio(a, b):
    return f"{a / b:.2f}x" if b > 0 else "-"


def make_tree(args, scratch):
    """The tree's folders, written afresh in the scratch folder or kept in --keep-tree DIR, where
    a later run with the same shape finds it again."""
    shape = f"folders={args.folders} files={args.files} seed=1\n"
    if args.keep_tree:
        root = os.path.abspath(args.keep_tree)
        marker, listing = os.path.join(root, "shape"), os.path.join(root, "folders")
        if os.path.exists(marker) and open(marker).read() == shape:
            folders = open(listing).read().split("\n")[:-1]
            print(f"tree: kept in {root}")
            return folders, False
        if os.path.exists(root) and os.listdir(root):
            sys.exit(f"bench_service: {root} holds something other than a tree of this shape")
    else:
        root = os.path.join(scratch, "keep")
    tree = os.path.join(root, "tree")
    os.makedirs(tree)
    started = time.perf_counter()
    folders = subprocess.run([args.tree_tool, tree, f"--folders={args.folders}",
                              f"--files={args.files}"], check=True, stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, text=True).stdout.strip().split(":")
    print(f"tree: {len(folders)} folders written in {time.perf_counter() - started:.1f} s")
    with open(os.path.join(root, "folders"), "w") as f:
        f.write("".join(folder + "\n" for folder in folders))
    with open(os.path.join(root, "shape"), "w") as f:
        f.write(shape)
    return folders, True


def draw_names(folders, count, rng):
    """`count` names drawn with repetition from the files of a sample of the folders, one in ten a
    name no folder holds, as a build asks for them."""
    pool = set()
    for folder in rng.sample(folders, min(len(folders), 500)):
        pool.update(os.path.splitext(f)[0] for f in os.listdir(folder)
                    if f.startswith(("fn_", "shared_")))
    pool = sorted(pool)
    return [rng.choice(pool) if rng.random() < 0.9 else f"absent_{k}" for k in range(count)]


def service_pid(vpath, env):
    status = subprocess.run(vpath + ["service", "status"], env=env, stdout=subprocess.PIPE,
                            text=True)
    if status.returncode != 0:
        return None, {}
    fields = dict(line.split(" ", 1) for line in status.stdout.splitlines() if " " in line)
    return int(fields["pid"]), fields


def proc_figures(pid):
    """The process's resident memory (kB), its peak, and its processor time so far (s)."""
    rss = hwm = 0
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith("VmRSS:"):
                rss = int(line.split()[1])
            elif line.startswith("VmHWM:"):
                hwm = int(line.split()[1])
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    ticks = os.sysconf("SC_CLK_TCK")
    return rss, hwm, (int(fields[11]) + int(fields[12])) / ticks


class Table:
    def __init__(self):
        self.rows = []

    def row(self, label, *cells):
        self.rows.append((label,) + cells)

    def print(self):
        widths = [max(len(r[i]) if i < len(r) else 0 for r in self.rows)
                  for i in range(max(map(len, self.rows)))]
        for r in self.rows:
            print("  " + r[0].ljust(widths[0]) + "".join(
                "  " + cell.rjust(widths[i + 1]) for i, cell in enumerate(r[1:])))
        self.rows = []


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--vpath", required=True)
    parser.add_argument("--tree-tool", required=True)
    parser.add_argument("--stat-floor", help="default: beside the tree tool")
    parser.add_argument("--socket-tool", help="vpath_bench_socket; default: beside the tree tool")
    parser.add_argument("--size", choices=sorted(SIZES), default="small")
    parser.add_argument("--folders", type=int)
    parser.add_argument("--files", type=int)
    parser.add_argument("--keep-tree", metavar="DIR",
                        help="write the tree in DIR and leave it there; reuse one of this shape")
    parser.add_argument("--repetitions", type=int, default=9,
                        help="rounds of the which rows, and runs of add, rm and batch")
    parser.add_argument("--which-runs", type=int, default=5,
                        help="runs of which through the service in each round (for its p90)")
    parser.add_argument("--loop", type=int, default=100)
    parser.add_argument("--batch-names", type=int, default=100000)
    parser.add_argument("--sync-trials", type=int)
    parser.add_argument("--starts", type=int, default=3)
    parser.add_argument("--tmpdir", default=os.environ.get("VPATH_BENCH_TMPDIR"))
    args = parser.parse_args()
    args.folders = args.folders or SIZES[args.size][0]
    args.files = args.files or SIZES[args.size][1]
    if args.sync_trials is None:
        args.sync_trials = 200 if args.size == "B" else 1000
    tools = os.path.dirname(args.tree_tool)
    stat_floor = args.stat_floor or os.path.join(tools, "vpath_bench_stat_floor")
    socket_tool = args.socket_tool or os.path.join(tools, "vpath_bench_socket")

    print(f"path service benchmark, size {args.size}: {args.folders} folders x {args.files} files; "
          f"load {load()}")
    scratch = tempfile.mkdtemp(prefix="vpath-bench-service-", dir=args.tmpdir)
    # A socket's path has at most 107 bytes: the runtime folder is a short one of its own.
    run = tempfile.mkdtemp(prefix="vpath-run-")
    vpath = [args.vpath]
    env = dict(os.environ, HOME=scratch, XDG_CACHE_HOME=os.path.join(scratch, "cache"),
               XDG_RUNTIME_DIR=run, XDG_STATE_HOME=os.path.join(scratch, "state"),
               VPATH_PATHDEF=os.path.join(scratch, "pathdef"))
    env.pop("XDG_CONFIG_HOME", None)
    env.pop("VPATH_SERVICE", None)
    server = None
    failures = []
    try:
        folders, fresh = make_tree(args, scratch)
        middle = folders[len(folders) // 2]
        for leftover in os.listdir(middle):
            if leftover.startswith("sync_"):
                os.remove(os.path.join(middle, leftover))
        if fresh:
            time.sleep(SETTLE_SECONDS)
        pathdef = env["VPATH_PATHDEF"]
        write_pathdef(pathdef, folders)
        name = sorted(f for f in os.listdir(folders[-1]) if f.startswith("fn_"))[0]
        name = os.path.splitext(name)[0]
        rng = random.Random(1)
        reps = args.repetitions
        table = Table()

        # Warm the cache (the first start scans), then start the service from it, a few times.
        subprocess.run(vpath + ["which", name], env=env, check=True, stdout=subprocess.DEVNULL)
        print(f"\nservice start from a warm cache until it answers (load {load()})")
        starts, start_cpu, service_cpu = [], [], []
        for k in range(args.starts):
            if k:
                subprocess.run(vpath + ["service", "stop"], env=env, check=True)
            wall, cpu = run_timed(vpath + ["service", "start", "--idle-timeout", "0"], env,
                                  expect=(0,))
            pid, fields = service_pid(vpath, env)
            starts.append(wall)
            start_cpu.append(cpu)
            service_cpu.append(proc_figures(pid)[2])
        rss, hwm, _ = proc_figures(pid)
        files = int(fields.get("files", "0"))
        no_service_cpu = [run_timed(vpath + ["--no-service", "which", name], env)[1]
                          for _ in range(3)]
        table.row("service start (median)", ms(statistics.median(starts)),
                  f"of {args.starts}: " + ", ".join(ms(s) for s in starts))
        table.row("  processor time: the service", ms(statistics.median(service_cpu)),
                  f"the start command {ms(statistics.median(start_cpu))}")
        table.row("  beside: which --no-service (cpu)", ms(statistics.median(no_service_cpu)),
                  "start / it " + ratio(statistics.median(starts),
                                        statistics.median(no_service_cpu)))
        table.row("resident memory (VmRSS)", f"{rss} kB",
                  f"{rss * 1024 / files:.0f} bytes per file of {files}" if files else "",
                  f"peak {hwm} kB; status says {fields.get('memory', '?')}")
        table.print()

        with_service = subprocess.run(vpath + ["which", name], env=env, stdout=subprocess.PIPE)
        alone = subprocess.run(vpath + ["--no-service", "which", name], env=env,
                               stdout=subprocess.PIPE)
        if with_service.stdout != alone.stdout or with_service.returncode != 0:
            failures.append("the service answers which otherwise than the command alone")

        sock = os.path.join(run, "baseline.sock")
        server = subprocess.Popen([socket_tool, "serve", sock], stdout=subprocess.PIPE, text=True)
        server.stdout.readline()
        print(f"\nwhich {name}: {reps} rounds in turn, {args.which_runs} runs through the service "
              f"in each (load {load()})")
        wall, cpu = in_turn({
            "service": (vpath + ["which", name], args.which_runs),
            "version": (vpath + ["--version"], 1),
            "no-service": (vpath + ["--no-service", "which", name], 1),
            "stat floor": ([stat_floor, pathdef], 1),
            "C socket client": ([socket_tool, "ask", sock], 1),
            "python walk": ([sys.executable, "-I", "-S", "-c", FILEFINDER_WALK, pathdef, name], 1),
        }, env, reps)
        round_trip = statistics.median(
            int(subprocess.run([socket_tool, "ask", sock, "100000"], check=True,
                               stdout=subprocess.PIPE, text=True).stdout.split("\n")[1])
            for _ in range(3)) / 1e9
        service = statistics.median(wall["service"])
        labels = {"version": "vpath --version", "no-service": "vpath --no-service which (warm)",
                  "stat floor": "stat floor (one stat per folder)",
                  "C socket client": "C socket client, fresh process",
                  "python walk": "Python walking the folders"}
        table.row("", "median", "p90", "cpu", "service / it")
        table.row("vpath which (service)", ms(service), ms(p90(wall["service"])),
                  ms(statistics.median(cpu["service"])), "")
        for key, label in labels.items():
            table.row(label, ms(statistics.median(wall[key])), ms(p90(wall[key])),
                      ms(statistics.median(cpu[key])),
                      ratio(service, statistics.median(wall[key])))
        table.row("C socket round trip, open connection", f"{round_trip * 1e6:.1f} us", "", "",
                  ratio(service, round_trip))
        table.print()

        loop_names = draw_names(folders, args.loop, rng)
        loop_file = os.path.join(scratch, "loop-names")
        with open(loop_file, "w") as f:
            f.write("".join(n + "\n" for n in loop_names))
        print(f"\n{args.loop} names, one `vpath which` each in a shell loop, beside one "
              f"`which --batch` of them (load {load()})")
        loop = 'vpath="$0"; while read -r n; do "$vpath" "$@" "$n" >/dev/null; done < "$LOOP"'
        loop_env = dict(env, LOOP=loop_file)
        loop_service = run_timed(["sh", "-c", loop, args.vpath, "which"], loop_env, expect=(0,))
        loop_alone = run_timed(["sh", "-c", loop, args.vpath, "--no-service", "which"], loop_env,
                               expect=(0,))
        with open(loop_file) as stdin:
            batch_small = run_timed(vpath + ["which", "--batch"], env, stdin=stdin)
        table.row("", "wall", "cpu", "loop / batch")
        table.row("shell loop, service", ms(loop_service[0]), ms(loop_service[1]),
                  ratio(loop_service[0], batch_small[0]))
        table.row("shell loop, --no-service", ms(loop_alone[0]), ms(loop_alone[1]),
                  ratio(loop_alone[0], batch_small[0]))
        table.row("one which --batch of them", ms(batch_small[0]), ms(batch_small[1]), "")
        table.print()

        names = draw_names(folders, args.batch_names, rng)
        names_file = os.path.join(scratch, "names")
        empty_file = os.path.join(scratch, "no-names")
        with open(names_file, "w") as f:
            f.write("".join(n + "\n" for n in names))
        open(empty_file, "w").close()
        outputs = []
        for options in ([], ["--no-service"]):
            with open(names_file) as stdin:
                outputs.append(subprocess.run(vpath + options + ["which", "--batch"], env=env,
                                              stdin=stdin, stdout=subprocess.PIPE,
                                              stderr=subprocess.DEVNULL).stdout)
        if outputs[0] != outputs[1]:
            failures.append("which --batch answers otherwise through the service")
        print(f"\nwhich --batch of {args.batch_names} names on standard input, less a batch of "
              f"none, per name; {reps} runs (load {load()})")
        table.row("", "per name", "full batch", "empty batch", "cpu per name")
        for label, options in (("service", []), ("--no-service", ["--no-service"])):
            full, empty = [], []
            for _ in range(reps):
                with open(names_file) as stdin:
                    full.append(run_timed(vpath + options + ["which", "--batch"], env, stdin))
                with open(empty_file) as stdin:
                    empty.append(run_timed(vpath + options + ["which", "--batch"], env, stdin))
            fw = statistics.median(w for w, _ in full)
            ew = statistics.median(w for w, _ in empty)
            fc = statistics.median(c for _, c in full)
            ec = statistics.median(c for _, c in empty)
            table.row(label, f"{max(fw - ew, 0) / args.batch_names * 1e9:.0f} ns", ms(fw), ms(ew),
                      f"{max(fc - ec, 0) / args.batch_names * 1e9:.0f} ns (client)")
        table.print()

        add_load = load()
        extra = os.path.join(scratch, "extra")
        os.mkdir(extra)

        def add_rm(options):
            adds, rms = [], []
            for _ in range(reps):
                adds.append(run_timed(vpath + options + ["add", extra], env, expect=(0,))[0])
                rms.append(run_timed(vpath + options + ["rm", extra], env, expect=(0,))[0])
            return statistics.median(adds), statistics.median(rms)

        add_service, rm_service = add_rm([])
        copy = os.path.join(scratch, "pathdef-copy")
        shutil.copy(pathdef, copy)

        def save(text):
            # The saved path's own way: a new file beside it, fsynced, renamed over it, the folder
            # fsynced.
            temporary = copy + ".new"
            with open(temporary, "w") as f:
                f.write(text)
                f.flush()
                os.fsync(f.fileno())
            os.rename(temporary, copy)
            directory = os.open(scratch, os.O_RDONLY)
            os.fsync(directory)
            os.close(directory)

        edit_add, edit_rm = [], []
        for _ in range(reps):
            start = time.perf_counter()
            with open(copy) as f:
                lines = f.read().split("\n")
            save("\n".join(lines[:1] + [extra] + lines[1:]))
            edit_add.append(time.perf_counter() - start)
            start = time.perf_counter()
            with open(copy) as f:
                lines = [line for line in f.read().split("\n") if line != extra]
            save("\n".join(lines))
            edit_rm.append(time.perf_counter() - start)
        edit_add, edit_rm = statistics.median(edit_add), statistics.median(edit_rm)
        # Whether the service takes up a change made without it: the next which through it sees
        # the folder, first.
        marker = os.path.join(extra, f"{name}.vl")
        open(marker, "w").close()
        subprocess.run(vpath + ["--no-service", "add", extra], env=env, check=True,
                       stdout=subprocess.DEVNULL)
        seen_add = subprocess.run(vpath + ["which", name], env=env, stdout=subprocess.PIPE,
                                  text=True).stdout.strip() == marker
        subprocess.run(vpath + ["--no-service", "rm", extra], env=env, check=True,
                       stdout=subprocess.DEVNULL)
        os.remove(marker)
        if not seen_add:
            failures.append("the service did not take up an add made without it")

        # The sync: a file made, then removed, just before which; each which right after a change
        # is timed beside a which with no change since the one before it (an untimed which takes
        # in whatever work a change leaves behind).
        print(f"\nsync: {args.sync_trials} files made, then removed, just before which through "
              f"the service (load {load()})")
        seen_made = seen_gone = 0
        after_make, after_remove, after_nothing = [], [], []

        def which_timed(target):
            start = time.perf_counter()
            done = subprocess.run(vpath + ["which", target], env=env, stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL, text=True)
            return time.perf_counter() - start, done

        for i in range(args.sync_trials):
            folder = folders[(i * 7919) % len(folders)]
            made = os.path.join(folder, f"sync_{i}.vl")
            subprocess.run(vpath + ["which", name], env=env, stdout=subprocess.DEVNULL)
            after_nothing.append(which_timed(name)[0])
            open(made, "w").close()
            took, done = which_timed(f"sync_{i}")
            after_make.append(took)
            seen_made += done.stdout.strip() == made
            os.remove(made)
            took, done = which_timed(f"sync_{i}")
            after_remove.append(took)
            seen_gone += done.returncode == 1 and done.stdout == ""
        if seen_made != args.sync_trials or seen_gone != args.sync_trials:
            failures.append("which missed a file made or removed just before it")
        nothing_median = statistics.median(after_nothing)
        table.row("file made just before: seen", f"{seen_made} of {args.sync_trials}")
        table.row("file removed just before: seen gone", f"{seen_gone} of {args.sync_trials}")
        table.row("which, no change since the last", ms(nothing_median),
                  f"p90 {ms(p90(after_nothing))}", "")
        for label, times in (("which right after making a file", after_make),
                             ("which right after removing it", after_remove)):
            table.row(label, ms(statistics.median(times)), f"p90 {ms(p90(times))}",
                      f"the sync's cost {ms(statistics.median(times) - nothing_median)}")
        table.print()

        subprocess.run(vpath + ["service", "stop"], env=env, check=True)
        add_alone, rm_alone = add_rm(["--no-service"])
        table.row("", "add", "rm", "add / edit", "rm / edit")
        table.row("through the service", ms(add_service), ms(rm_service),
                  ratio(add_service, edit_add), ratio(rm_service, edit_rm))
        table.row("no service", ms(add_alone), ms(rm_alone), ratio(add_alone, edit_add),
                  ratio(rm_alone, edit_rm))
        table.row("text edit + fsync of the file", ms(edit_add), ms(edit_rm), "", "")
        print(f"\nadd / rm of one folder, {reps} runs each (load {add_load} through the service, "
              f"{load()} without)")
        table.print()

        print(f"\nload at the end {load()}")
        for failure in failures:
            print(f"bench_service: {failure}", file=sys.stderr)
        return 1 if failures else 0
    finally:
        if server is not None:
            server.kill()
            server.wait()
        subprocess.run(vpath + ["service", "stop"], env=env, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
        subprocess.run(["rm", "-rf", scratch, run])


if __name__ == "__main__":
    sys.exit(main())
