"""The vpath command answered by the path service, beside the same command without it and outside
baselines, on the same generated tree in the same run.

  python3 bench_service.py --vpath BIN --tree-tool BIN [--stat-floor BIN] [--folders N]
                           [--files N] [--repetitions R] [--loop N] [--tmpdir DIR]

Rows (median wall time of R fresh processes, taking turns so that the machine's load falls on all
alike):
  which NAME          through the service; with --no-service (warm cache); vpath --version (a
                      process that reads no path); vpath_bench_stat_floor (one stat per folder);
                      a Unix-socket client: a fresh python3 that connects to a tiny server, asks
                      and gets an answer; python3 walking the folders with importlib FileFinders
  N which in a loop   N `vpath which` in one shell loop, through the service and without it
  add / rm            vpath add DIR then rm DIR of one folder, through the service running (the
                      service takes the change up) and without one
  sync                a file made just before each `which`: how many answers saw it
  start               vpath service start from a warm cache until it answers, and its memory
"""

import argparse
import os
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from bench_cli_cache import FILEFINDER_WALK, SETTLE_SECONDS, timed, timed_in_turn, write_pathdef  # noqa: E402

# A fresh Python client of a Unix-socket server that answers at once: the cost of a process that
# only connects, asks and prints.
SOCKET_CLIENT = """
import socket, sys
s = socket.socket(socket.AF_UNIX)
s.connect(sys.argv[1])
s.sendall(b"area\\n")
sys.stdout.write(s.recv(4096).decode())
"""


def socket_server(path, stop):
    server = socket.socket(socket.AF_UNIX)
    server.bind(path)
    server.listen(16)
    server.settimeout(0.2)
    while not stop.is_set():
        try:
            connection, _ = server.accept()
        except socket.timeout:
            continue
        with connection:
            connection.recv(4096)
            connection.sendall(b"/tree/area.vl\n")
    server.close()


def ms(seconds):
    return f"{seconds * 1000:.2f} ms"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--vpath", required=True)
    parser.add_argument("--tree-tool", required=True)
    parser.add_argument("--stat-floor")
    parser.add_argument("--folders", type=int, default=2000)
    parser.add_argument("--files", type=int, default=50)
    parser.add_argument("--repetitions", type=int, default=9)
    parser.add_argument("--loop", type=int, default=100)
    parser.add_argument("--tmpdir", default=os.environ.get("VPATH_BENCH_TMPDIR"))
    args = parser.parse_args()

    scratch = tempfile.mkdtemp(prefix="vpath-bench-service-", dir=args.tmpdir)
    stop = threading.Event()
    vpath = [args.vpath]
    env = None
    try:
        tree = os.path.join(scratch, "tree")
        os.mkdir(tree)
        folders = subprocess.run([args.tree_tool, tree, f"--folders={args.folders}",
                                  f"--files={args.files}"], check=True, stdout=subprocess.PIPE,
                                 text=True).stdout.strip().split(":")
        time.sleep(SETTLE_SECONDS)
        pathdef = os.path.join(scratch, "pathdef")
        write_pathdef(pathdef, folders)
        # A socket's path has at most 107 bytes: the runtime folder is a short one of its own.
        run = tempfile.mkdtemp(prefix="vpath-run-")
        env = dict(os.environ, HOME=scratch, XDG_CACHE_HOME=os.path.join(scratch, "cache"),
                   XDG_RUNTIME_DIR=run, XDG_STATE_HOME=os.path.join(scratch, "state"),
                   VPATH_PATHDEF=pathdef)
        env.pop("XDG_CONFIG_HOME", None)
        env.pop("VPATH_SERVICE", None)
        stat_floor = args.stat_floor or os.path.join(os.path.dirname(args.tree_tool),
                                                     "vpath_bench_stat_floor")
        name = sorted(f for f in os.listdir(folders[-1]) if f.startswith("fn_"))[0]
        name = os.path.splitext(name)[0]
        reps = args.repetitions

        # Warm the cache, then start the service from it.
        subprocess.run(vpath + ["which", name], env=env, check=True, stdout=subprocess.DEVNULL)
        started = time.perf_counter()
        subprocess.run(vpath + ["service", "start"], env=env, check=True)
        start_time = time.perf_counter() - started
        status = subprocess.run(vpath + ["service", "status"], env=env, check=True,
                                stdout=subprocess.PIPE, text=True).stdout
        fields = dict(line.split(" ", 1) for line in status.splitlines())
        with_service = subprocess.run(vpath + ["which", name], env=env, stdout=subprocess.PIPE)
        alone = subprocess.run(vpath + ["--no-service", "which", name], env=env,
                               stdout=subprocess.PIPE)
        if with_service.stdout != alone.stdout:
            sys.exit("bench_service: the service answers otherwise than the command alone")

        sock = os.path.join(scratch, "echo.sock")
        threading.Thread(target=socket_server, args=(sock, stop), daemon=True).start()
        while not os.path.exists(sock):
            time.sleep(0.01)
        wall, cpu = timed_in_turn({
            "service": vpath + ["which", name],
            "no-service": vpath + ["--no-service", "which", name],
            "version": vpath + ["--version"],
            "stat floor": [stat_floor, pathdef],
            "socket client": [sys.executable, "-I", "-S", "-c", SOCKET_CLIENT, sock],
            "python walk": [sys.executable, "-I", "-S", "-c", FILEFINDER_WALK, pathdef, name],
        }, env, reps)

        loop = f'for i in $(seq {args.loop}); do "$0" "$@" >/dev/null; done'
        loop_service = timed(["sh", "-c", loop, args.vpath, "which", name], env, 1)
        loop_alone = timed(["sh", "-c", loop, args.vpath, "--no-service", "which", name], env, 1)

        extra = os.path.join(scratch, "extra")
        os.mkdir(extra)
        change = 'vpath="$0"; "$vpath" add "$1" >/dev/null && "$vpath" rm "$1" >/dev/null'
        add_rm_service = timed(["sh", "-c", change, args.vpath, extra], env, reps)

        seen = 0
        trials = min(args.loop, 200)
        for i in range(trials):
            made = os.path.join(folders[len(folders) // 2], f"sync_{i}.vl")
            open(made, "w").close()
            done = subprocess.run(vpath + ["which", f"sync_{i}"], env=env, stdout=subprocess.PIPE,
                                  text=True)
            seen += done.stdout.strip() == made
            os.remove(made)

        subprocess.run(vpath + ["service", "stop"], env=env, check=True)
        add_rm_alone = timed(["sh", "-c", change, args.vpath, extra], env, reps)

        print(f"path service: {len(folders)} folders x {args.files} files, "
              f"{reps} repetitions, load {os.getloadavg()[0]:.1f}")
        print(f"  which {name}")
        for row in wall:
            print(f"    {row:<14} {ms(wall[row]):>12}  (cpu {ms(cpu[row])})")
        print(f"  {args.loop} which in a shell loop: service {loop_service:.2f} s, "
              f"--no-service {loop_alone:.2f} s")
        print(f"  add + rm one folder: service running {ms(add_rm_service)}, "
              f"none {ms(add_rm_alone)}")
        print(f"  a file made just before which: seen {seen} of {trials}")
        print(f"  service start (warm cache) until it answers: {ms(start_time)}; "
              f"memory {fields.get('memory', '?')} for {fields.get('files', '?')} files")
        return 0 if seen == trials else 1
    finally:
        stop.set()
        if env is not None:
            subprocess.run(vpath + ["service", "stop"], env=env, stderr=subprocess.DEVNULL)
        subprocess.run(["rm", "-rf", scratch])
        if env is not None:
            subprocess.run(["rm", "-rf", env["XDG_RUNTIME_DIR"]])


if __name__ == "__main__":
    sys.exit(main())
