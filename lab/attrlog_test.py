"""The attribute log between real processes: readers that come, go and stall, and random bytes."""
import json
import os
import pathlib
import random
import signal
import socket
import subprocess
import sys
import time

from lab import wait_until
from querier import Querier, program
from testcase import NO_DELAY, LabTestCase, main

GROUPS = 10000
# Groups live longer than a test; one that its host leaves ends after two queries in 0.2 s.
LASTING = (*NO_DELAY, "--query-interval", "1000", "--query-response-interval", "100",
           "--startup-query-count", "1", "--last-member-query-interval", "0.1",
           "--querier-version", "2")
REPORTS = pathlib.Path(__file__).with_name("reports.py")
STALL_SECONDS = float(os.environ.get("LAB_STALL_SECONDS", "60"))
# A sanitizer keeps freed memory, so the resident size of its program proves nothing.
SANITIZED = os.environ.get("LAB_SANITIZED") == "1"


def resident_kib(process):
    # `ip netns exec` replaces itself by the program.
    for line in pathlib.Path("/proc", str(process.pid), "status").read_text().splitlines():
        if line.startswith("VmRSS:"): return int(line.split()[1])
    raise AssertionError("no VmRSS")


class Watch:
    """`igmpq watch --json` on the same machine, and the groups that it reports as present."""

    def __init__(self, router, path):
        self.groups = set()
        self.events = []
        self.lines = 0
        self.process = router.lab.spawn(
            router.namespace, program(), "watch", "--json", "--existing", "--socket", path,
            stdout=subprocess.PIPE)
        router.lab.read(self.process.stdout, self.line_arrived)

    def stop(self):
        """Stops the reader, then waits until all of its earlier lines are read."""
        self.process.send_signal(signal.SIGSTOP)
        before = None
        while before != self.lines:
            before = self.lines
            time.sleep(0.5)

    def line_arrived(self, line):
        self.lines += 1
        event = json.loads(line)
        if event["event"] == "groupJoined": self.groups.add(event["group"])
        if event["event"] == "groupLeft": self.groups.discard(event["group"])
        if not event["event"].startswith("group"): self.events.append(event)


class AttrLogTest(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router, self.host = self.lab.station(1), self.lab.station(11, 2)
        self.querier = Querier(self.router, *LASTING, "--stall-timeout", "300")
        self.querier.expect("role", role="querier")
        self.socket = str(self.querier.socket)

    def show(self, *arguments):
        done = subprocess.run((program(), "show", *arguments, "--json", "--socket", self.socket),
                              capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        return json.loads(done.stdout)

    def shown_groups(self):
        return {group["group"] for group in self.show("groups")}

    def agent_groups(self):
        return {group["group"] for group in self.querier.state()["groups"]}

    def change(self, seconds, seed=1):
        return self.lab.spawn(self.host.namespace, sys.executable, REPORTS, GROUPS, seconds, seed)

    def assert_ended(self, changing):
        self.assertEqual(0, changing.wait(120))

    def test_readers_come_and_go_while_groups_change(self):
        changing = self.change(10.0)
        chance = random.Random(2)
        readers = []
        while changing.poll() is None:
            while len(readers) < 50:
                readers.append(self.lab.spawn(
                    self.router.namespace, program(), chance.choice(("show", "watch")),
                    "--socket", self.socket, stdout=subprocess.DEVNULL))
            time.sleep(0.05)
            for reader in chance.sample(readers, 10):
                reader.send_signal(chance.choice((signal.SIGKILL, signal.SIGTERM)))
                readers.remove(reader)
                reader.wait(20)
        for reader in readers:
            reader.kill()
            reader.wait(20)
        self.assert_ended(changing)
        # A machine that is busy with readers may lose packets: only the agent's own state counts.
        self.assertGreater(len(self.agent_groups()), GROUPS // 4)
        wait_until(lambda: self.agent_groups() == self.shown_groups(), 30, "equal copies")

    def test_a_stopped_reader_costs_no_memory_and_catches_up(self):
        watch = Watch(self.router, self.socket)
        self.assert_ended(self.change(1.0))
        wait_until(lambda: watch.groups == self.agent_groups(), 30, "the reader to see every group")
        before = resident_kib(self.querier.process)
        watch.stop()
        seen = set(watch.groups)
        # A group that is certainly new: the agent keeps ended ones while the log is congested.
        self.host.join("239.3.3.3")
        self.assert_ended(self.change(max(1.0, STALL_SECONDS - GROUPS / 2000), seed=3))
        # A dirty mark for each group, 64 bytes; the rest is the allocator's.
        if not SANITIZED: self.assertLess(resident_kib(self.querier.process) - before, 4096)
        wait_until(lambda: "239.3.3.3" in self.agent_groups(), 10, "the agent to see a new group")
        self.assertEqual(seen, watch.groups)
        self.assertNotIn("239.3.3.3", seen)
        watch.process.send_signal(signal.SIGCONT)
        wait_until(lambda: watch.groups == self.agent_groups(), 30, "the reader to catch up")

    def test_a_killed_agent_that_comes_back_is_followed(self):
        watch = Watch(self.router, self.socket)
        self.host.join("239.1.1.1")
        wait_until(lambda: "239.1.1.1" in watch.groups, 10, "the reader to see the group")
        self.querier.process.kill()
        self.querier.process.wait(10)
        self.host.leave("239.1.1.1")
        self.host.join("239.2.2.2")
        self.querier = Querier(self.router, *LASTING)
        wait_until(lambda: watch.groups == {"239.2.2.2"}, 30, "the reader to follow the new agent")
        self.assertIsNone(watch.process.poll())

    def test_garbage_does_not_affect_other_connections(self):
        watch = Watch(self.router, self.socket)
        chance = random.Random(4)
        for size in (1, 2, 3, 20, 70000):
            for head in (b"", b"\xff\xff", b"\x00\x00", b"\x00\x20\x01Mox"):
                with socket.socket(socket.AF_UNIX) as foreign:
                    foreign.connect(self.socket)
                    try:
                        foreign.sendall(head + chance.randbytes(size))
                    except OSError:
                        pass  # the agent closed the connection
        self.host.join("239.1.1.1")
        wait_until(lambda: "239.1.1.1" in watch.groups, 10, "the reader to see the group")
        self.assertEqual({"239.1.1.1"}, self.shown_groups())


if __name__ == "__main__":
    main()
