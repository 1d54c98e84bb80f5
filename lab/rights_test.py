"""The rights of a running agent, those of its clients, its sockets, and what it leaves behind."""
import json
import os
import pathlib
import pwd
import signal
import socket
import stat
import struct
import subprocess
import sys
import time

from attrlog_test import LASTING, REPORTS, Watch
from lab import ip, wait_until
from querier import NOBODY, Querier, as_nobody, program, run_once
from testcase import QUIET, SHORT, LabTestCase, main

GROUP, OTHER, THIRD, FOURTH = (f"239.1.1.{number}" for number in range(1, 5))
NET_RAW = f"{1 << 13:016x}"
NONE = f"{0:016x}"
USER = pwd.getpwnam("nobody")
PACKETS_ONLY = ("--inh-caps=-all,+net_raw", "--ambient-caps=-all,+net_raw")
REFUSE = (sys.executable, pathlib.Path(__file__).with_name("refuse.py"))
MAGIC = 0x4d6f784c  # of the attribute log
SO_PEERCRED, TIOCOUTQ = "17", "0x5411"


def status_of(querier):
    """The fields of /proc/PID/status; what `ip netns exec` began is the agent itself."""
    lines = pathlib.Path(f"/proc/{querier.process.pid}/status").read_text("ascii").splitlines()
    return {key: rest.split() for key, _, rest in (line.partition(":") for line in lines)}


class RightsTestCase(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router, self.host = self.lab.station(1), self.lab.station(11, 2)
        # Other users can enter it, but not write to it.
        self.folder = pathlib.Path(self.lab.scratch.name)
        self.folder.chmod(0o711)

    def folder_of_nobody(self):
        folder = self.folder / "own"
        folder.mkdir(mode=0o755)
        os.chown(folder, USER.pw_uid, USER.pw_gid)
        return folder

    def run_as_nobody(self, *options, wrapper=(), rights=PACKETS_ONLY):
        """An agent of an ordinary user with the one capability."""
        return Querier(self.router, *options, path=self.folder_of_nobody() / "agent.sock",
                       command=(*wrapper, *as_nobody(*rights)))

    def run_with_user(self, *options, wrapper=()):
        """An agent that root starts, and that becomes an ordinary user."""
        return Querier(self.router, "--user", USER.pw_name, *options, command=(*wrapper, program()),
                       path=self.folder / "made" / "agent.sock")


class CapabilitiesTest(RightsTestCase):
    def assert_rights(self, querier, user, bounding=NET_RAW):
        status = status_of(querier)
        self.assertEqual(
            [NET_RAW, NET_RAW, bounding, NONE, NONE, "1", str(user)],
            [status[key][0] for key in
             ("CapPrm", "CapEff", "CapBnd", "CapInh", "CapAmb", "NoNewPrivs", "Uid")])
        self.assertEqual({str(user)}, set(status["Uid"]))

    def assert_works(self, querier):
        """Everything that opens something: the link goes down, and is deleted and made again."""
        self.host.join(GROUP)
        querier.expect("groupJoined", group=GROUP)
        self.router.down()
        querier.expect("interfaceDown")
        self.router.up()
        querier.expect("interfaceUp")
        self.host.join(OTHER)
        querier.expect("groupJoined", group=OTHER)
        self.router.unplug()
        querier.expect("interfaceGone")
        self.router.plug()
        querier.expect("interfaceUp")
        querier.expect("querySent", group="0.0.0.0")
        self.host.join(THIRD)
        querier.expect("groupJoined", group=THIRD)
        self.host.leave(THIRD)
        querier.expect("querySent", group=THIRD)
        querier.expect("groupLeft", group=THIRD)
        shown = run_once(self.router, "show", "groups", "--json", "--socket", querier.socket)
        self.assertEqual({GROUP, OTHER}, {group["group"] for group in json.loads(shown.stdout)})
        folder = querier.socket.parent
        self.assertEqual(0, querier.stop())
        self.assertEqual([], querier.errors)
        # A machine that is busy may lose packets.
        self.assertEqual([], querier.seen("error", text=lambda text: "lost so far" not in text))
        self.assertEqual([], os.listdir(folder))

    def test_root_keeps_the_right_to_packets_and_no_other(self):
        querier = Querier(self.router, *SHORT, "--queries")
        querier.expect("role")
        self.assert_rights(querier, 0)
        self.assert_works(querier)

    def test_with_a_user_it_has_that_one_and_its_groups(self):
        querier = self.run_with_user(*SHORT, "--queries")
        querier.expect("role")
        self.assert_rights(querier, USER.pw_uid)
        status = status_of(querier)
        self.assertEqual({str(USER.pw_gid)}, set(status["Gid"]))
        self.assertEqual(list(map(str, os.getgrouplist(USER.pw_name, USER.pw_gid))),
                         status["Groups"])
        self.assertEqual((USER.pw_uid, 0o40755), (os.stat(querier.socket.parent).st_uid,
                                                  os.stat(querier.socket.parent).st_mode))
        self.assert_works(querier)

    def test_an_ordinary_user_needs_the_one_capability_only(self):
        # Its bounding set can be shrunk by root only: `setpriv` did it, or nobody can.
        querier = self.run_as_nobody(*SHORT, "--queries",
                                     rights=(*PACKETS_ONLY, "--bounding-set=-all,+net_raw"))
        querier.expect("role")
        self.assert_rights(querier, USER.pw_uid)
        self.assert_works(querier)

    def test_an_ordinary_user_gets_large_rings_and_all_descriptors_that_it_may_have(self):
        before = status_of_self("CapBnd")
        querier = self.run_as_nobody(
            *SHORT, "--ring-size", "65536", wrapper=("prlimit", "--memlock=0", "--nofile=64:512"))
        querier.expect("role")
        self.assert_rights(querier, USER.pw_uid, bounding=before)
        limits = pathlib.Path(f"/proc/{querier.process.pid}/limits").read_text("ascii")
        self.assertRegex(limits, r"Max open files +512 +512")
        self.assertRegex(limits, r"Max locked memory +0 +0")
        self.host.join(GROUP)
        querier.expect("groupJoined", group=GROUP)

    def test_the_usual_folder_goes_to_the_user_of_the_agent(self):
        # `ip netns exec` has mounts of its own. Each agent ends when its socket has been seen.
        serve = """
            {0} run eth0 {1} >/dev/null & until test -S /run/igmpq/request.sock; do sleep 0.1; done
            stat -c '%U %a' /run/igmpq /run/igmpq/attrlog.sock
            {0} get config/eth0/robustness
            kill $!; wait $!; ls -A /run/igmpq"""
        script = "mount -t tmpfs -o mode=755 none /run" + "".join(
            serve.format(program(), user) for user in ("--user nobody", "", "--user nobody"))
        done = run_once(self.router, command=("timeout", "15", "sh", "-c", script))
        self.assertEqual(["nobody 755", "nobody 666", "2", "root 755", "root 666", "2",
                          "nobody 755", "nobody 666", "2"], done.stdout.splitlines(), done)

    def test_all_groups_are_received_without_the_rights_of_root(self):
        querier = self.run_with_user(*SHORT)
        querier.expect("role")
        shown = json.loads(ip("-n", self.router.namespace, "-d", "-j", "link", "show", "eth0"))
        self.assertEqual(1, shown[0]["allmulti"])

    def test_users_and_groups_that_do_not_exist_are_refused(self):
        for option in ("--user", "--read-group", "--configure-group"):
            done = run_once(self.router, "run", "eth0", option, "no-such-name")
            self.assertEqual((2, ""), (done.returncode, done.stdout))
            self.assertIn(f"{option} no-such-name: there is no ", done.stderr)
        done = run_once(self.router, "run", "eth0", "--user", "root",
                        command=as_nobody(*PACKETS_ONLY))
        self.assertEqual((2, ""), (done.returncode, done.stdout))
        self.assertIn("--user root: only root can become another user", done.stderr)


def status_of_self(key):
    text = pathlib.Path("/proc/self/status").read_text("ascii")
    return next(line.split()[1] for line in text.splitlines() if line.startswith(key))


class ClientsTest(RightsTestCase):
    WRITES = (("set", "eth0", "robustness=4"), ("call", "eth0", "becomeQuerier"),
              ("trace", "--level", "9"), ("clear", "groups"))
    READS = (("show",), ("get", "config/eth0/robustness"), ("trace", "--handles"))

    def serve(self, *options, wrapper=()):
        self.querier = Querier(self.router, *QUIET, *options, command=(*wrapper, program()))
        self.querier.expect("role", role="querier")

    def igmpq(self, *arguments, command=()):
        return run_once(self.router, *arguments, "--socket", self.querier.socket, command=command)

    def assert_permitted(self, verbs, command=()):
        for arguments in verbs:
            done = self.igmpq(*arguments, command=command)
            self.assertEqual((0, ""), (done.returncode, done.stderr), arguments)

    def assert_refused(self, verbs, command=()):
        for arguments in verbs:
            done = self.igmpq(*arguments, command=command)
            self.assertEqual((1, ""), (done.returncode, done.stdout), arguments)
            self.assertIn("not permitted to ", done.stderr)
            self.assertIn("be root or the user that the agent runs as", done.stderr)
        self.assertEqual(2, self.querier.state()["robustness"])

    def test_other_users_can_do_nothing(self):
        self.serve()
        self.assert_refused((*self.READS, *self.WRITES), as_nobody())
        self.querier.expect("error", text=lambda text: "Refused user 65534 the access to the "
                            "attribute log: not permitted to read" in text)

    def test_every_user_can_read_where_that_is_asked_for(self):
        self.serve("--read-group", "all")
        self.assert_permitted(self.READS, as_nobody())
        self.assert_refused(self.WRITES, as_nobody())

    def test_members_of_a_group_can_read(self):
        self.serve("--read-group", "daemon")
        member = (*NOBODY[:-1], "--groups", "daemon", *as_nobody()[len(NOBODY):])
        self.assert_permitted(self.READS, member)
        self.assert_refused(self.WRITES, member)
        self.assert_refused(self.READS, as_nobody())

    def test_members_of_a_group_can_configure(self):
        self.serve("--configure-group", "nogroup")
        self.assert_permitted((*self.READS, *self.WRITES), as_nobody())
        self.assertEqual(4, self.querier.state()["robustness"])

    def test_the_user_of_the_agent_can_configure(self):
        self.querier = self.run_with_user(*QUIET)
        self.querier.expect("role", role="querier")
        self.assert_permitted((*self.READS, *self.WRITES), as_nobody())

    def test_a_client_whose_credentials_cannot_be_read_can_do_nothing(self):
        self.serve("--read-group", "all", "--configure-group", "root",
                   wrapper=(*REFUSE, "getsockopt", "2", SO_PEERCRED))
        self.assert_refused((*self.READS, *self.WRITES))
        self.querier.expect("error", text=lambda text: "Refused an unknown process" in text)

    def test_readers_beyond_the_most_are_refused(self):
        self.serve("--max-readers", "2")
        for _ in range(2):
            watch = self.lab.spawn(self.router.namespace, program(), "watch", "--existing",
                                   "--json", "--socket", self.querier.socket,
                                   stdout=subprocess.PIPE)
            watch.stdout.readline()
        done = self.igmpq("show")
        self.assertEqual((1, ""), (done.returncode, done.stdout))
        self.assertIn("the agent has 2 readers, and takes no more; end one", done.stderr)
        watch.terminate()
        wait_until(lambda: self.igmpq("show").returncode == 0, 10, "a place to be free")


class SlowReaderTest(RightsTestCase):
    GROUPS = 10000

    def test_a_reader_that_takes_a_little_now_and_then_is_disconnected(self):
        querier = Querier(self.router, *LASTING, "--stall-timeout", "3")
        querier.expect("role", role="querier")
        quick = Watch(self.router, str(querier.socket))
        with socket.socket(socket.AF_UNIX) as slow:
            slow.connect(str(querier.socket))
            hello = struct.pack("!BIHdBH4s", 1, MAGIC, 1, 0.0, 0, 4, b"slow")
            slow.sendall(struct.pack("!H", len(hello)) + hello)
            self.lab.spawn(self.host.namespace, sys.executable, REPORTS, self.GROUPS, 0, 1,
                           stdout=subprocess.DEVNULL)
            end = time.monotonic() + 60
            while not self.disconnected(querier):
                self.assertLess(time.monotonic(), end, "it is still connected")
                self.assertNotEqual(b"", slow.recv(4096))
                time.sleep(0.2)  # 20 KiB/s: it takes something between any two polls
        wait_until(lambda: quick.groups == set(querier.groups()), 30, "the quick reader to see all")
        self.assertIsNone(quick.process.poll())
        self.assertEqual(1, len(self.disconnected(querier)))
        self.assertIn("it took less than 64 KiB/s for 3 s", self.disconnected(querier)[0]["text"])

    @staticmethod
    def disconnected(querier):
        return querier.seen("error", text=lambda text: text.startswith("Disconnected"))


class SocketsTest(RightsTestCase):
    def serve_at(self, path, *, user=()):
        return run_once(self.router, "run", "eth0", "--socket", path,
                        wrapper=("timeout", "10", *user))

    def test_of_agents_that_start_together_one_serves(self):
        path = self.folder / "together" / "agent.sock"
        for _ in range(3):
            agents = [Querier(self.router, *QUIET, path=path) for _ in range(8)]
            wait_until(lambda: sum(agent.process.poll() is None for agent in agents) <= 1, 20,
                       "all agents but one to end")
            served = [agent for agent in agents if agent.process.poll() is None]
            self.assertEqual(1, len(served))
            for agent in agents:
                if agent in served: continue
                self.assertEqual(1, agent.process.wait(10))
                agent.readers[1].join(10)
                self.assertIn("another agent serves there", "".join(agent.errors))
            done = run_once(self.router, "get", "config/eth0/robustness", "--socket", path)
            self.assertEqual((0, ""), (done.returncode, done.stderr))
            modes = {entry.name: stat.S_IMODE(entry.stat().st_mode)
                     for entry in path.parent.iterdir()}
            self.assertEqual({"agent.sock": 0o666, "agent.request": 0o666,
                              "agent.sock.lock": 0o600, "agent.request.lock": 0o600}, modes)
            served[0].expect("role")
            self.assertEqual(0, served[0].stop())
            self.assertEqual([], os.listdir(path.parent))

    def test_the_files_of_a_killed_agent_are_replaced(self):
        path = self.folder / "killed" / "agent.sock"
        for _ in range(2):
            querier = Querier(self.router, *QUIET, path=path)
            querier.expect("role")
            querier.process.kill()
            querier.process.wait(10)
            self.assertEqual(4, len(os.listdir(path.parent)))
        querier = Querier(self.router, *QUIET, path=path)
        querier.expect("role")
        self.assertEqual(0, querier.stop())
        self.assertEqual([], os.listdir(path.parent))

    def test_a_folder_that_others_can_write_is_refused(self):
        for mode in (0o1777, 0o775):
            self.folder.chmod(mode)
            done = self.serve_at(self.folder / "agent.sock")
            self.assertEqual(1, done.returncode)
            self.assertIn(f"other users can write to {self.folder}; choose a path in a folder of "
                          f"this user alone, such as --socket {self.folder}/igmpq/agent.sock",
                          done.stderr)
            self.assertEqual([], os.listdir(self.folder))

    def test_links_are_not_followed(self):
        victim = self.folder / "victim"
        victim.write_text("kept")
        for name in ("agent.sock", "agent.request", "agent.sock.lock"):
            link = self.folder / name
            link.symlink_to(victim)
            done = self.serve_at(self.folder / "agent.sock")
            self.assertEqual(1, done.returncode)
            self.assertIn("remove it", done.stderr)
            self.assertEqual({name, "victim"}, set(os.listdir(self.folder)))
            self.assertEqual("kept", victim.read_text())
            link.unlink()


class FatalTest(RightsTestCase):
    """The kernel refuses to say how full a socket is, which is a fatal assertion of the agent."""
    BROKEN = (*REFUSE, "ioctl", "1", TIOCOUTQ)

    def fail(self, querier, folder, owner):
        querier.expect("role", role="querier")
        victim = self.folder / "victim"
        victim.write_text("kept")
        trace = folder / f"igmpq-trace-{querier.process.pid}.txt"
        trace.symlink_to(victim)
        watch = self.lab.spawn(self.router.namespace, program(), "watch", "--existing", "--json",
                               "--socket", querier.socket, stdout=subprocess.PIPE)
        watch.stdout.readline()
        self.host.join(GROUP)
        querier.expect("groupJoined", group=GROUP)
        # Its socket is watched within a second; what follows a leave asks how full it is.
        end = time.monotonic() + 60
        while querier.process.poll() is None and time.monotonic() < end:
            self.host.join(OTHER)
            time.sleep(0.1)  # a host sends nothing about a group that it leaves at once
            self.host.leave(OTHER)
        self.assertEqual(-signal.SIGABRT, querier.process.wait(10))
        querier.readers[1].join(10)
        errors = "".join(querier.errors)
        self.assertIn("getAttrLogKernBufferUsage", errors)
        self.assertIn(f"igmpq: the trace up to here is in {trace}\n", errors)
        self.assertFalse(trace.is_symlink())
        status = trace.stat()
        self.assertEqual((owner, 0), (status.st_uid, stat.S_IMODE(status.st_mode) & 0o137))
        lines = trace.read_text().splitlines()
        self.assertTrue(any(GROUP in line for line in lines))
        self.assertEqual("kept", victim.read_text())

    def test_root_leaves_its_traces_beside_the_socket(self):
        querier = Querier(self.router, *SHORT, command=(*self.BROKEN, program()))
        self.fail(querier, self.folder, 0)

    def test_with_a_user_the_traces_are_of_that_user(self):
        querier = self.run_with_user(*SHORT, wrapper=self.BROKEN)
        self.fail(querier, querier.socket.parent, USER.pw_uid)

    def test_an_ordinary_user_leaves_its_traces_beside_the_socket(self):
        querier = self.run_as_nobody(*SHORT, wrapper=self.BROKEN)
        self.fail(querier, querier.socket.parent, USER.pw_uid)


if __name__ == "__main__":
    main()
