"""The path service as users run it: the same answers as without it, never stale, a command that
answers by itself whenever the service is absent, dead, hung or broken, and vpath watch through it."""

import json
import os
import queue
import re
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time
import unittest

import cli_test


def service_processes(pathdef):
    """The ids of the running `vpath service run` processes of `pathdef`."""
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/cmdline", "rb") as f:
                argv = f.read().split(b"\0")
            with open(f"/proc/{pid}/stat", "rb") as f:
                state = f.read().rsplit(b")", 1)[1].split()[0]
        except OSError:
            continue
        if state != b"Z" and b"service" in argv and b"run" in argv and pathdef in argv:
            found.append(int(pid))
    return found


class OwnService(cli_test.OwnPathDefinition):
    """A fixture: the test's own runtime, state and cache folders, the saved path holding
    `FILES`' folders a and b, and no service left running after the test."""

    FILES = (b"a/area.vl", b"b/clamp.vl")

    def setUp(self):
        super().setUp()
        run = os.path.join(self.root, b"run")
        os.makedirs(run, mode=0o700)
        self.env.update(XDG_RUNTIME_DIR=os.fsdecode(run),
                        XDG_STATE_HOME=os.fsdecode(os.path.join(self.root, b"state")),
                        XDG_CACHE_HOME=os.fsdecode(os.path.join(self.root, b"cache")))
        self.env.pop("VPATH_SERVICE", None)
        for name in self.FILES:
            self.file(name)
        self.assertEqual(self.vpath("add", "--end", "a", "b")[0], 0)

    def tearDown(self):
        for pid in service_processes(self.pathdef):
            os.kill(pid, signal.SIGCONT)
        self.vpath("service", "stop")
        for pid in service_processes(self.pathdef):
            os.kill(pid, signal.SIGKILL)
        super().tearDown()

    def start(self):
        status, out, err = self.vpath("service", "start")
        self.assertEqual(status, 0, err)


class Service(OwnService, unittest.TestCase):
    FILES = (b"a/area.vl", b"a/+pkg/inner.vl", b"a/private/helper.vl", b"b/area.vlp",
             b"b/clamp.vl", b"b/@Shape/Shape.vl", b"a/caf\xe9.vl")

    def status(self):
        """(exit status, {field: value}) of `vpath service status`."""
        status, out, _ = self.vpath("service", "status")
        fields = {}
        for line in out.decode().splitlines():
            key, _, value = line.partition(" ")
            fields[key] = value
        return status, fields

    def answered(self):
        return int(self.status()[1]["answered"])

    def test_status_exits_0_only_while_a_service_runs(self):
        self.assertEqual(self.status()[0], 1)
        self.start()
        status, fields = self.status()
        self.assertEqual(status, 0)
        self.assertEqual(service_processes(self.pathdef), [int(fields["pid"])])
        self.assertTrue(os.path.exists(fields["socket"]))
        self.assertEqual((fields["folders"], fields["files"]), ("2", "7"))
        self.assertEqual(self.vpath("service", "stop")[0], 0)
        self.assertEqual(self.status()[0], 1)
        self.assertEqual(service_processes(self.pathdef), [])

    def test_commands_print_and_exit_as_they_do_without_it(self):
        commands = [("which", "area"), ("which", "-a", "area"), ("which", "--json", "area"),
                    ("which", "--explain", "area"), ("which", "nothing", "clamp"),
                    ("which", "--from", "a", "helper"), ("which", b"caf\xe9"),
                    ("which", "--all", "--json", "Shape"), ("ls",), ("path",),
                    ("entries", "pkg"), ("shadows",), ("which",), ("cache",),
                    ("cache", "status")]
        without = [self.vpath(*command) for command in commands]
        self.start()
        before = self.answered()
        for command, alone in zip(commands, without):
            with self.subTest(command=command):
                self.assertEqual(self.vpath(*command), alone)
                self.assertEqual(self.vpath("--no-service", *command), alone)
        # The service answered each once (the usage error too); --no-service none.
        self.assertEqual(self.answered() - before, len(commands))

    def test_add_and_rm_change_the_saved_path_through_it_as_without_it(self):
        self.file(b"c/cone.vl")
        changes = [("add", "c"), ("rm", "c"), ("add", "--end", "c", "nowhere"), ("rm", "a")]
        without = []
        for change in changes:
            without.append(self.vpath(*change))
        self.vpath("--no-service", "add", "a")
        self.vpath("--no-service", "rm", "c")
        self.start()
        before = self.answered()
        for change, alone in zip(changes, without):
            with self.subTest(change=change):
                self.assertEqual(self.vpath(*change), alone)
        self.assertEqual(self.answered() - before, len(changes))
        # What was saved is what the service answers from, and what a process alone reads.
        self.assertEqual(self.vpath("path"), self.vpath("--no-service", "path"))

    def test_a_batch_is_answered_as_names_come_and_alone_once_the_service_dies(self):
        names = b"area\nnothing\nclamp\n"
        expected = self.vpath("--no-service", "which", "--batch", "-a", "Shape", stdin=names)
        self.start()
        self.assertEqual(self.vpath("which", "--batch", "-a", "Shape", stdin=names), expected)
        batch = subprocess.Popen([cli_test.VPATH, "which", "--batch"], env=self.env,
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                 stderr=subprocess.DEVNULL)

        def ask(name):
            batch.stdin.write(name + b"\n")
            batch.stdin.flush()
            return batch.stdout.readline()

        self.assertEqual(ask(b"late"), b"\n")
        # Each name is answered on the path as it is when the name comes.
        late = self.file(b"b/late.vl")
        self.assertEqual(ask(b"late"), late + b"\n")
        os.kill(int(self.status()[1]["pid"]), signal.SIGKILL)
        self.assertEqual(ask(b"clamp"), os.path.join(self.root, b"b/clamp.vl") + b"\n")
        batch.stdin.close()
        self.assertEqual(batch.stdout.read(), b"")
        self.assertEqual(batch.wait(30), 1)

    def test_a_file_made_or_removed_just_before_which_is_seen(self):
        self.start()
        before = self.answered()
        for i in range(50):
            made = self.file(b"b/new%d.vl" % i)
            self.assertEqual(self.vpath("which", "new%d" % i), (0, made + b"\n", b""))
            os.remove(made)
            self.assertEqual(self.vpath("which", "new%d" % i)[0], 1)
        self.assertEqual(self.answered() - before, 100)

    def test_commands_answer_alone_when_the_service_is_killed_hung_or_absent(self):
        expected = self.vpath("--no-service", "which", "-a", "area")
        self.assertEqual(self.vpath("which", "-a", "area"), expected)  # absent
        self.start()
        pid = int(self.status()[1]["pid"])
        os.kill(pid, signal.SIGSTOP)
        started = time.monotonic()
        self.assertEqual(self.vpath("which", "-a", "area"), expected)  # hung
        self.assertLess(time.monotonic() - started, 5)
        os.kill(pid, signal.SIGKILL)
        while service_processes(self.pathdef):
            time.sleep(0.01)
        self.assertEqual(self.vpath("which", "-a", "area"), expected)  # dead, its socket left
        self.assertEqual(self.status()[0], 1)
        # A new service takes the dead one's place.
        self.start()
        self.assertEqual(self.status()[0], 0)

    def test_a_reply_cut_short_or_malformed_is_never_printed(self):
        self.start()
        place = self.status()[1]["socket"]
        expected = self.vpath("--no-service", "which", "-a", "area")
        self.vpath("service", "stop")
        hello = b"VPhi" + struct.pack("<II", 1, os.getpid())
        # The reply's frame promises more than it holds; then a reply of another version.
        for reply in (struct.pack("<I", 64) + b"VPrp" + struct.pack("<IiI", 1, 0, 40) + b"x" * 8,
                      self.frame(b"VPrp" + struct.pack("<IiI", 9, 0, 4) + b"half" +
                                 struct.pack("<I", 0))):
            with self.subTest(reply=reply), self.fake_service(place, hello, reply):
                self.assertEqual(self.vpath("which", "-a", "area"), expected)

    @staticmethod
    def frame(payload):
        return struct.pack("<I", len(payload)) + payload

    def fake_service(self, place, hello, reply):
        """A service that greets, reads a request, sends `reply` and hangs up."""
        test = self

        class Fake:
            def __enter__(self):
                self.server = socket.socket(socket.AF_UNIX)
                if os.path.exists(place):
                    os.remove(place)
                self.server.bind(place)
                self.server.listen()
                self.thread = threading.Thread(target=self.serve, daemon=True)
                self.thread.start()

            def serve(self):
                connection, _ = self.server.accept()
                with connection:
                    connection.sendall(test.frame(hello))
                    connection.recv(1 << 16)
                    connection.sendall(reply)

            def __exit__(self, *exc):
                self.thread.join(5)
                self.server.close()
                os.remove(place)

        return Fake()

    def test_two_starts_at_once_leave_one_service(self):
        starts = [subprocess.Popen([cli_test.VPATH, "service", "start"], env=self.env,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                  for _ in range(2)]
        self.assertEqual([p.wait(60) for p in starts], [0, 0])
        # The loser of the race may still be on its way to the lock that turns it away.
        deadline = time.monotonic() + 10
        while len(service_processes(self.pathdef)) > 1 and time.monotonic() < deadline:
            time.sleep(0.05)
        self.assertEqual(service_processes(self.pathdef), [int(self.status()[1]["pid"])])

    def test_a_service_left_idle_ends_by_itself(self):
        run = subprocess.Popen([cli_test.VPATH, "service", "run", "--idle-timeout", "1"],
                               env=self.env, stderr=subprocess.DEVNULL)
        self.assertEqual(run.wait(30), 0)
        self.assertEqual(self.status()[0], 1)

    def test_off_and_a_path_of_its_own_answer_without_it(self):
        self.start()
        before = self.answered()
        off = dict(self.env, VPATH_SERVICE="off")
        self.assertEqual(self.vpath("which", "area", env=off)[0], 0)
        self.assertEqual(self.vpath("--path", "a", "which", "area")[0], 0)
        self.assertEqual(self.answered(), before)

    # The service as the user's systemd runs it: vpath.socket listens at the usual path's
    # place and hands its socket over (descriptor 3, LISTEN_FDS, LISTEN_PID) as it starts
    # vpath.service, which runs `vpath service run`.
    def usual_path(self):
        """Moves the saved path to the usual location, the one the units serve; gives the place
        where the socket unit listens."""
        config = self.at(b"config")
        os.makedirs(os.path.join(config, b"vpath"))
        shutil.copy(self.pathdef, os.path.join(config, b"vpath", b"pathdef"))
        del self.env["VPATH_PATHDEF"]
        self.env["XDG_CONFIG_HOME"] = os.fsdecode(config)
        os.makedirs(self.at(b"run", b"vpath"), mode=0o700)
        return self.at(b"run", b"vpath", b"default.sock")

    def systemd_socket(self, place):
        listener = socket.socket(socket.AF_UNIX)
        self.addCleanup(listener.close)
        listener.bind(place)
        listener.listen()
        return listener

    def service_run(self, **handing):
        process = subprocess.Popen(handing.pop("argv", [cli_test.VPATH, "service", "run"]),
                                   cwd=self.root, stderr=subprocess.PIPE, **handing)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.wait)
        self.addCleanup(lambda: process.poll() is not None or process.kill())
        return process

    def activated(self, listener):
        def hand_over():
            os.dup2(listener.fileno(), 3)
            os.set_inheritable(3, True)

        return self.service_run(
            argv=["/bin/sh", "-c", 'LISTEN_PID=$$ exec "$0" service run', cli_test.VPATH],
            env=dict(self.env, LISTEN_FDS="1"), close_fds=False, preexec_fn=hand_over)

    def until_served_by(self, process):
        deadline = time.monotonic() + 30
        while self.status()[1].get("pid") != str(process.pid) and time.monotonic() < deadline:
            if process.poll() is not None:
                self.fail(process.stderr.read())
        self.assertEqual(self.status()[1].get("pid"), str(process.pid))

    def test_a_socket_handed_over_by_systemd_is_served_and_left_to_it(self):
        place = self.usual_path()
        listener = self.systemd_socket(place)
        expected = self.vpath("--no-service", "which", "-a", "area")
        service = self.activated(listener)
        self.until_served_by(service)
        before = self.answered()
        self.assertEqual(self.vpath("which", "-a", "area"), expected)
        self.assertEqual(self.answered(), before + 1)
        stop = subprocess.Popen([cli_test.VPATH, "service", "stop"], env=self.env)
        self.assertEqual(service.wait(30), 0)
        self.assertEqual(stop.wait(5), 0)  # not waiting on a socket that stays
        # The socket is still systemd's, to start the next service when a command connects.
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(place)
            listener.settimeout(5)
            listener.accept()[0].close()

    def test_services_of_systemd_and_of_the_user_never_serve_at_once(self):
        place = self.usual_path()
        listener = self.systemd_socket(place)
        made = os.stat(place).st_ino
        # While the socket unit listens, one started by hand leaves the place to systemd's.
        status, _, err = self.vpath("service", "run", "--idle-timeout", "2")
        self.assertEqual((status, b"vpath.socket" in err), (1, True), err)
        self.assertEqual(os.stat(place).st_ino, made)
        listener.close()
        os.remove(place)
        # One started by hand holds the lock when the socket unit starts (systemd replaces the
        # socket): systemd's waits for it to end, then serves.
        by_hand = self.service_run(env=self.env)
        self.until_served_by(by_hand)
        os.remove(place)
        service = self.activated(self.systemd_socket(place))
        self.assertIn(b"waiting for the path service", service.stderr.readline())
        by_hand.terminate()
        by_hand.wait(10)
        self.until_served_by(service)
        service.terminate()
        service.wait(10)


STAMP = re.compile(rb"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z ")


class Watcher:
    """A running `vpath watch` whose lines are read as they come."""

    def __init__(self, process):
        self.process = process
        self.lines = queue.Queue()
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        for line in self.process.stdout:
            self.lines.put(line)

    def take(self, wait):
        """The lines printed so far, waiting at most `wait` seconds for the first."""
        taken = []
        try:
            taken.append(self.lines.get(timeout=wait))
            while True:
                taken.append(self.lines.get(timeout=0.3))
        except queue.Empty:
            return taken

    def watches_by_itself(self):
        fds = f"/proc/{self.process.pid}/fd"
        return any("inotify" in os.readlink(os.path.join(fds, fd)) for fd in os.listdir(fds))

    def stop(self):
        self.process.kill()
        self.process.communicate(timeout=30)


def without_time(line):
    if line.startswith(b"{"):
        report = json.loads(line)
        report.pop("time")
        return report
    return STAMP.sub(b"", line)


class WatchThroughService(OwnService, unittest.TestCase):
    def ready(self, watchers):
        """Touches files until every watcher has printed a line, then drops what they printed."""
        n = 0
        heard = [False] * len(watchers)
        while not all(heard):
            self.file(b"a/prime%d.vl" % n)
            n += 1
            for i, watcher in enumerate(watchers):
                heard[i] = heard[i] or bool(watcher.take(0.3))
            self.assertLess(n, 100)
        for watcher in watchers:
            watcher.take(0.5)

    def test_watch_through_the_service_prints_what_watch_prints_without_it(self):
        self.start()
        c = self.folder(b"c")
        steps = [lambda: self.file(b"a/new%d.vl" % len(mode)),
                 lambda: self.vpath("add", c),
                 lambda: self.vpath("add", "--end", c),
                 lambda: self.vpath("rm", c)]
        for mode in ([], ["--json"]):
            with self.subTest(mode=mode):
                served = Watcher(self.watch(*mode))
                alone = Watcher(self.watch("--no-service", *mode))
                try:
                    self.ready([served, alone])
                    self.assertFalse(served.watches_by_itself())
                    self.assertTrue(alone.watches_by_itself())
                    for step in steps:
                        step()
                        lines = [list(map(without_time, w.take(10))) for w in (served, alone)]
                        self.assertNotEqual(lines[1], [])
                        self.assertEqual(lines[0], lines[1])
                finally:
                    served.stop()
                    alone.stop()
        # --count ends it the same way.
        counted = self.watch("--count", "1")
        out = self.until_exit(counted, lambda n: self.file(b"a/counted%d.vl" % n))
        self.assertRegex(out, b"^" + STAMP.pattern[1:] + b"refreshed " + re.escape(self.at(b"a"))
                         + b"\n$")

    def test_watch_ends_with_a_message_when_the_service_goes(self):
        self.start()
        watcher = Watcher(self.watch())
        self.ready([watcher])
        self.assertEqual(self.vpath("service", "stop")[0], 0)
        out, err = watcher.process.communicate(timeout=30)
        self.assertEqual(watcher.process.returncode, 2)
        self.assertEqual(out, b"")
        self.assertIn(b"the path service ended while watching", err)


if __name__ == "__main__":
    cli_test.main()
