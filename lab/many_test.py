"""A thousand interfaces: descriptors and memory."""
import json
import os
import pathlib
import re
import subprocess

from querier import Querier, run_once
from testcase import NO_DELAY, LabTestCase, main

INTERFACES = 1000


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
        done = run_once(self.router, "show", "interfaces", "--json", "--socket", querier.socket)
        self.assertEqual(INTERFACES, len(json.loads(done.stdout)))


if __name__ == "__main__":
    main()
