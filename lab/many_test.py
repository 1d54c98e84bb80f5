"""A thousand interfaces: descriptors and memory."""
import json
import os
import pathlib
import re
import subprocess
import sys
import time

from querier import Querier, run_once
from testcase import NO_DELAY, LabTestCase, main

INTERFACES = 1000

SANITIZED = os.environ.get("LAB_SANITIZED") == "1"


class ManyInterfacesTest(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router = self.lab.station(1)
        self.names = [f"v{number}" for number in range(INTERFACES)]
        lines = []
        for number, name in enumerate(self.names):
            lines += [f"link add name {name} type veth peer name p{number}",
                      f"link set {name} up", f"link set p{number} up",
                      f"address add 10.{100 + number // 250}.{number % 250}.1/24 dev {name}"]
        subprocess.run(("ip", "-n", self.router.namespace, "-batch", "-"), text=True, check=True,
                       input="\n".join(lines) + "\n")

    def ring_bytes(self, pid):
        maps = pathlib.Path(f"/proc/{pid}/maps").read_text(encoding="ascii")
        return sum(int(end, 16) - int(start, 16) for start, end in
                   re.findall(r"^(\w+)-(\w+) .*socket:", maps, re.MULTILINE))

    def test_a_thousand_interfaces_take_a_descriptor_each(self):
        querier = Querier(self.router, *NO_DELAY, verb=("run", *self.names))
        for name in (self.names[0], self.names[-1]):
            querier.expect("role", role="querier", interface=name, timeout=150)
        # What `ip netns exec` began is the agent itself.
        pid = querier.process.pid
        self.assertLessEqual(len(os.listdir(f"/proc/{pid}/fd")), 1100)
        size = self.ring_bytes(pid)
        self.assertGreaterEqual(size, INTERFACES * 32 * 1024)
        self.assertLessEqual(size, 64 * 1024 * 1024)
        begin = time.monotonic()
        done = run_once(self.router, "show", "interfaces", "--json", "--socket", querier.socket)
        print(f"show interfaces: {time.monotonic() - begin:.2f} s", file=sys.stderr)
        self.assertEqual("", done.stderr)
        self.assertEqual(INTERFACES, len(json.loads(done.stdout)))

    def test_it_ends_soon_while_it_opens_its_ports_and_after_that(self):
        for interface in (self.names[len(self.names) // 20], self.names[-1]):
            querier = Querier(self.router, *NO_DELAY, verb=("run", *self.names))
            querier.expect("interfaceUp", interface=interface, timeout=150)
            begin = time.monotonic()
            self.assertEqual(0, querier.stop())
            took = time.monotonic() - begin
            print(f"end after {interface}: {took:.2f} s", file=sys.stderr)
            # One port after the other would take the kernel 20 s.
            self.assertLess(took, 5)
            self.assertEqual([], querier.errors)
            opened = len(querier.seen("interfaceUp"))
            self.assertEqual(interface == self.names[-1], opened == INTERFACES)
            last = querier.events[-1]
            # On a slow machine the time is up before; with sanitizers even for that line.
            if last["event"] != "state" and not SANITIZED:
                self.assertIn("than can be shown before the end", last["text"])

    def test_an_answer_that_changes_interrupt_hides_no_interface(self):
        # Each change of an interface interrupts the answer in which the kernel lists them.
        changing = self.lab.spawn(
            self.router.namespace, "sh", "-c",
            "while :; do for mtu in 1400 1500; do ip link set p0 mtu $mtu; done; done")
        for _ in range(5):
            querier = Querier(self.router, *NO_DELAY, verb=("run", self.names[-1]))
            querier.expect("interfaceUp", interface=self.names[-1])
            querier.stop()
            self.assertEqual([], querier.seen("interfaceGone"))
            self.assertEqual([], querier.seen("interfaceDown"))
        self.assertIsNone(changing.poll())


if __name__ == "__main__":
    main()
