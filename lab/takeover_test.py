"""An agent that begins with what the store beside it has kept of the agent before."""
import os
import socket
import subprocess
import threading

from lab import wait_until
from querier import NOBODY, Querier
from store_test import GROUP, StoreTestCase
from testcase import QUIET, main

SILENT = """
import os, socket, sys, time
serving = socket.socket(socket.AF_UNIX)
serving.bind(sys.argv[1])
os.chmod(sys.argv[1], 0o666)
serving.listen()
print("serves", flush=True)
time.sleep(600)
"""


class TakeOverTestCase(StoreTestCase):
    def setUp(self):
        super().setUp()
        wait_until(lambda: self.igmpq("store", "--show").returncode == 0, 20, "the store")

    def successor(self, *options, store=None):
        return self.agent(*(options or QUIET), "--store", store or self.socket)

    def agent_groups(self):
        return self.groups(at=self.agent_socket)

    def killed_with(self, group, *options):
        """An agent that had the group, and so has the store."""
        agent = self.successor(*options)
        self.host.join(group)
        agent.expect("groupJoined", group=group)
        self.wait_copied(group)
        self.wait_complete()
        self.kill(agent)


class TakeOverTest(TakeOverTestCase):
    def test_a_first_agent_takes_nothing_over(self):
        agent = self.successor()
        agent.expect("role", role="querier")
        for kind in ("takenOver", "error", "notice"): self.assertEqual([], agent.seen(kind))

    def test_groups_outlive_the_agent(self):
        self.killed_with(GROUP)
        before = self.json_of("show", "groups")[0]
        agent = self.successor(*QUIET, "--queries")
        agent.expect("takenOver", interface="eth0", groups=1)
        # Before it reports its role, which a router does before it asks after a random delay.
        agent.expect("querySent", group="0.0.0.0")
        agent.expect("role", role="querier")
        after = self.json_of("show", "groups", at=self.agent_socket)[0]
        self.assertEqual(GROUP, after["group"])
        self.assertGreaterEqual(after["upSeconds"], before["upSeconds"])
        self.assertEqual([], agent.seen("groupJoined"))
        agent.wait_last_reporter(GROUP, self.host.address)
        shown = self.json_of("show", "interfaces", at=self.agent_socket)[0]
        self.assertEqual(1, shown["takenOverGroups"])
        self.assertGreaterEqual(shown["takenOverSeconds"], 0)
        text = self.igmpq("show", "interfaces", at=self.agent_socket).stdout
        self.assertIn("TAKEN OVER  WITH GROUPS", text)

    def test_what_was_set_at_run_time_returns_where_the_configuration_is_the_same(self):
        agent = self.successor()
        agent.expect("role", role="querier")
        self.assertEqual(0, self.igmpq("set", "eth0", "robustness=4", "max-groups=77",
                                       at=self.agent_socket).returncode)
        self.wait_complete()
        wait_until(lambda: "max-groups=77" in self.shown()["interfaces"][0]["setAtRunTime"], 20,
                   "the settings in the store")
        self.kill(agent)
        self.store.expect("agentLost")
        agent = self.successor(*QUIET, "--max-groups", "55")
        agent.expect("role", role="querier")
        done = self.igmpq("show", "config", "eth0", at=self.agent_socket).stdout
        self.assertRegex(done, r"\neth0 +robustness +4 +set at run time\n")
        self.assertRegex(done, r"\neth0 +max-groups +55 +command line\n")

    def test_another_interface_of_the_same_name_begins_anew(self):
        self.killed_with(GROUP)
        self.router.ip("link", "set", "eth0", "address", "02:00:00:00:00:63")
        agent = self.successor()
        agent.expect("notice", interface="eth0", text=lambda text: "its MAC address is" in text)
        agent.expect("role", role="querier")
        self.assertEqual([], agent.seen("takenOver"))


class BadStoreTest(TakeOverTestCase):
    def assert_begins_empty(self, why):
        agent = self.successor(store=self.bad)
        agent.expect("error", text=lambda text: why in text and "begins without groups" in text)
        agent.expect("role", role="querier")
        self.assertEqual([], agent.seen("takenOver"))

    def setUp(self):
        super().setUp()
        self.bad = self.agent_socket.with_name("bad.sock")

    def serve(self, answer=b""):
        serving = socket.socket(socket.AF_UNIX)
        self.addCleanup(serving.close)
        serving.bind(str(self.bad))
        serving.listen()
        if not answer: return

        def send():
            connection = serving.accept()[0]
            self.addCleanup(connection.close)
            connection.sendall(answer)
        thread = threading.Thread(target=send)
        thread.start()
        self.addCleanup(thread.join)

    def test_without_a_store_it_begins_empty(self):
        self.assert_begins_empty("no store is running")

    def test_with_a_store_that_hangs_it_begins_empty(self):
        self.serve()
        self.assert_begins_empty("did not begin within 1 s")

    def test_with_garbage_it_begins_empty(self):
        self.serve(b"HTTP/1.1 400 Bad Request\r\n\r\n")
        self.assert_begins_empty("is not understood")

    def test_with_an_agent_in_its_place_it_begins_empty(self):
        other = Querier(self.lab.station(2), *QUIET, path=self.bad)
        other.expect("role")
        self.assert_begins_empty("is no store")

    def test_with_the_store_of_another_user_it_begins_empty(self):
        self.bad = self.bad.with_name("other") / self.bad.name
        self.bad.parent.mkdir()
        os.chmod(self.bad.parent.parent, 0o755)
        os.chmod(self.bad.parent, 0o777)
        serving = self.lab.spawn(self.router.namespace, *NOBODY, "/usr/bin/python3", "-c", SILENT,
                                 self.bad, stdout=subprocess.PIPE)
        self.assertEqual("serves\n", serving.stdout.readline())
        self.assert_begins_empty("runs as user 65534")


if __name__ == "__main__":
    main()
