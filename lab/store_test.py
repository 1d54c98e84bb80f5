"""`igmpq store` beside real agents that are killed, stopped and restarted."""
import json
import pathlib
import random
import signal
import socket
import subprocess
import sys

from attrlog_test import LASTING, REPORTS
from lab import wait_until
from querier import Querier, as_nobody, program
from testcase import QUIET, LabTestCase, main

GROUP = "239.1.1.1"
OTHER = "239.1.1.2"
GROUPS = 4000
DECODER = pathlib.Path(__file__).resolve().parent.parent / "test/attrlog/decode.py"
NO_CAPABILITY = f"{0:016x}"


def run(*command):
    return subprocess.run(tuple(map(str, command)), capture_output=True, text=True, timeout=60,
                          check=False)


class StoreTestCase(LabTestCase):
    ROUTER = 1  # its number on the link

    def setUp(self):
        super().setUp()
        self.router, self.host = self.lab.station(self.ROUTER), self.lab.station(11, 2)
        self.agent_socket = pathlib.Path(self.lab.scratch.name, "agent.sock")
        self.socket = pathlib.Path(self.lab.scratch.name, "store.sock")
        self.store = self.new_store()

    def new_store(self):
        return Querier(self.router, "--agent", self.agent_socket, verb=("store",),
                       path=self.socket)

    def agent(self, *options):
        return Querier(self.router, *(options or QUIET), path=self.agent_socket)

    def kill(self, process):
        process.process.kill()
        process.process.wait(10)

    def igmpq(self, *arguments, at=None):
        return run(program(), *arguments, "--socket", at or self.socket)

    def json_of(self, *arguments, at=None):
        done = self.igmpq(*arguments, "--json", at=at)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        return json.loads(done.stdout)

    def groups(self, at=None):
        return {group["group"] for group in self.json_of("show", "groups", at=at)}

    def shown(self):
        return self.json_of("store", "--show")

    def is_copied(self, *groups, at=None):
        done = self.igmpq("show", "groups", "--json", at=at)
        return done.returncode == 0 and set(groups) <= {
            group["group"] for group in json.loads(done.stdout)}

    def wait_copied(self, *groups):
        wait_until(lambda: self.is_copied(*groups), 20, "the store to have the groups")

    def is_complete(self):
        done = self.igmpq("store", "--show", "--json")
        if done.returncode != 0: return False
        shown = json.loads(done.stdout)
        return shown["complete"] and shown["agentLostSeconds"] is None

    def wait_complete(self):
        wait_until(self.is_complete, 20, "the store to have a copy of the agent that runs")


class StoreTest(StoreTestCase):
    def test_a_killed_agent_leaves_what_it_had(self):
        agent = self.agent()
        self.host.join(GROUP)
        agent.expect("groupJoined", group=GROUP)
        self.wait_copied(GROUP)
        self.wait_complete()
        before = self.json_of("show", "groups", at=self.agent_socket)
        self.kill(agent)
        self.store.expect("agentLost", text=lambda text: text.endswith("1 interface, 1 group"))
        after = self.json_of("show", "groups")
        same = ("interface", "group", "filterMode", "compatibilityMode", "lastReporter")
        self.assertEqual([{key: group[key] for key in same} for group in before],
                         [{key: group[key] for key in same} for group in after])
        self.assertLessEqual(after[0]["timeLeftSeconds"], before[0]["timeLeftSeconds"])
        shown = self.shown()
        self.assertEqual((True, 1), (shown["complete"], shown["groupCount"]))
        self.assertGreaterEqual(shown["agentLostSeconds"], 0)
        self.assertEqual([("eth0", "querier", 1)], [
            (each["interface"], each["role"], each["groupCount"]) for each in shown["interfaces"]])

    def test_no_group_that_it_had_is_missing_after_a_kill_at_any_moment(self):
        chance = random.Random(15)
        for _ in range(5):
            agent = self.agent(*LASTING)
            self.wait_complete()
            wait_until(lambda: not self.groups(), 20, "the copy of an agent without groups")
            reports = self.lab.spawn(self.host.namespace, sys.executable, REPORTS, GROUPS, 0, 1)
            # A busy agent may lose some of the reports.
            wanted = chance.randrange(1, GROUPS // 2)
            wait_until(lambda: len(self.groups()) >= wanted, 120, f"{wanted} groups in the store")
            before = self.groups()
            self.kill(agent)
            self.store.expect("agentLost")
            self.assertEqual(set(), before - self.groups())
            reports.kill()
            reports.wait(10)

    def test_the_next_store_is_given_everything(self):
        agent = self.agent()
        self.host.join(GROUP)
        agent.expect("groupJoined", group=GROUP)
        self.wait_copied(GROUP)
        self.kill(self.store)
        self.host.join(OTHER)
        agent.expect("groupJoined", group=OTHER)
        self.store = self.new_store()
        self.wait_copied(GROUP, OTHER)
        self.assertEqual(0, agent.stop())
        self.store.expect("agentLost")
        self.assertEqual({GROUP, OTHER}, self.groups())

    def test_after_the_end_of_both_there_is_nothing(self):
        agent = self.agent()
        self.host.join(GROUP)
        self.wait_copied(GROUP)
        self.kill(agent)
        self.kill(self.store)
        self.store = self.new_store()
        wait_until(lambda: self.igmpq("store", "--show").returncode == 0, 10, "the next store")
        shown = self.shown()
        self.assertEqual((False, 0, []),
                         (shown["complete"], shown["groupCount"], shown["interfaces"]))

    def test_an_agent_that_hangs_before_its_hello_takes_nothing(self):
        agent = self.agent()
        self.host.join(GROUP)
        self.wait_copied(GROUP)
        self.kill(agent)
        self.store.expect("agentLost")
        self.agent_socket.unlink()
        with socket.socket(socket.AF_UNIX) as hanging:
            hanging.bind(str(self.agent_socket))
            hanging.listen()
            hanging.settimeout(20)
            connection, _ = hanging.accept()
            with connection:
                self.assertNotEqual(b"", connection.recv(1024))
                self.assertEqual({GROUP}, self.groups())
                self.assertIsNotNone(self.shown()["agentLostSeconds"])

    def test_garbage_takes_nothing_and_the_next_agent_is_copied(self):
        agent = self.agent()
        self.host.join(GROUP)
        self.wait_copied(GROUP)
        self.kill(agent)
        self.store.expect("agentLost")
        self.agent_socket.unlink()
        with socket.socket(socket.AF_UNIX) as other:
            other.bind(str(self.agent_socket))
            other.listen()
            other.settimeout(20)
            connection, _ = other.accept()
            with connection:
                connection.sendall(random.Random(3).randbytes(4096))
                self.store.expect("error", text=lambda text: "is not understood" in text)
        self.assertEqual({GROUP}, self.groups())
        self.agent_socket.unlink()
        agent = self.agent()
        agent.expect("role", role="querier")
        self.store.expect("agentBack", timeout=20)
        self.wait_complete()

    def test_it_has_no_right_and_no_network(self):
        agent = self.agent()
        agent.expect("role", role="querier")
        self.wait_complete()
        process = pathlib.Path("/proc", str(self.store.process.pid))
        status = dict(line.split(":\t", 1)
                      for line in (process / "status").read_text().splitlines())
        self.assertEqual([NO_CAPABILITY] * 5 + ["1"], [status[key] for key in (
            "CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb", "NoNewPrivs")])
        local = {line.split()[6] for line in (process / "net/unix").read_text().splitlines()[1:]}
        sockets = {link.readlink().name for link in (process / "fd").iterdir()
                   if link.readlink().name.startswith("socket:")}
        self.assertEqual(set(), {name[len("socket:["):-1] for name in sockets} - local)

    def test_other_users_read_nothing(self):
        agent = self.agent()
        self.host.join(GROUP)
        self.wait_copied(GROUP)
        for command in (("store", "--show"), ("store", "--forget", "eth0"), ("show", "groups")):
            done = run(*as_nobody(), *command, "--socket", self.socket)
            self.assertEqual((1, ""), (done.returncode, done.stdout), command)
        self.assertEqual({GROUP}, self.groups())
        self.assertEqual(0, agent.stop())

    def test_it_forgets_an_interface_while_no_agent_runs(self):
        agent = self.agent()
        self.host.join(GROUP)
        self.wait_copied(GROUP)
        done = self.igmpq("store", "--forget", "eth0")
        self.assertEqual((1, ""), (done.returncode, done.stdout))
        self.assertIn("end the agent first", done.stderr)
        self.kill(agent)
        self.store.expect("agentLost")
        done = self.igmpq("store", "--forget", "eth7")
        self.assertEqual((2, ""), (done.returncode, done.stdout))
        self.assertIn("eth0", done.stderr)
        done = self.igmpq("clear", "groups", "eth0", GROUP)
        self.assertEqual((1, ""), (done.returncode, done.stdout))
        self.assertEqual({GROUP}, self.groups())
        self.assertEqual("1 group of eth0 forgotten\n",
                         self.igmpq("store", "--forget", "eth0").stdout)
        self.assertEqual([], self.shown()["interfaces"])

    def test_the_decoder_reads_it(self):
        agent = self.agent()
        self.host.join(GROUP)
        self.wait_copied(GROUP)
        self.kill(agent)
        self.store.expect("agentLost")
        state = json.loads(run(sys.executable, DECODER, self.socket).stdout)
        self.assertEqual([GROUP], list(state["eth0"]["status"]["group"]))
        self.assertEqual(self.router.address, state["eth0"]["interface"]["address"])
        own = json.loads(run(sys.executable, DECODER, "--whole", self.socket).stdout)["storeState"]
        boot = pathlib.Path("/proc/sys/kernel/random/boot_id").read_text().strip()
        self.assertEqual((boot, True, 1), (own["bootId"], own["complete"], own["groups"]))
        self.assertGreater(own["lostTime"], 0)

    def test_signals_end_it_and_take_its_sockets_away(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            wait_until(lambda: self.igmpq("store", "--show").returncode == 0, 10, "the store")
            self.assertEqual(0, self.store.stop(number))
            self.assertFalse(self.socket.exists())
            self.store = self.new_store()

    def test_a_stopped_output_does_not_keep_it_from_copying(self):
        self.kill(self.store)
        reading, writing = socket.socketpair()
        with reading, writing:
            writing.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 1)
            writing.setblocking(False)
            try:
                while True: writing.send(b"x" * 1024)
            except BlockingIOError:
                writing.setblocking(True)
            store = self.lab.spawn(self.router.namespace, program(), "store", "--json", "--agent",
                                   self.agent_socket, "--socket", self.socket, stdout=writing)
            for group in (GROUP, OTHER, "239.1.1.3"):
                agent = self.agent()
                self.host.join(group)
                self.wait_copied(group)
                self.kill(agent)
                wait_until(lambda: self.shown()["agentLostSeconds"] is not None, 20, "the end")
            store.terminate()
            self.assertEqual(0, store.wait(10))


class TakeOverTest(StoreTestCase):
    """Agents that begin with the state in the store, on a link whose host answers nothing more."""

    def successor(self, *options):
        return self.agent(*QUIET, "--store", self.socket, *options)

    def start_with_group(self):
        agent = self.successor()
        self.host.join(GROUP)
        self.wait_copied(GROUP)
        self.wait_complete()
        self.host.cut()
        return agent

    def test_the_next_agent_continues_the_group(self):
        self.kill(self.start_with_group())
        before = self.json_of("show", "groups")[0]
        agent = self.successor()
        agent.expect("takenOver", groups=1)
        wait_until(lambda: self.is_copied(GROUP, at=self.agent_socket), 20, "the group")
        after = self.json_of("show", "groups", at=self.agent_socket)[0]
        self.assertGreaterEqual(after["upSeconds"], before["upSeconds"])
        same = ("group", "filterMode", "compatibilityMode")
        self.assertEqual([before[key] for key in same], [after[key] for key in same])
        # A group that is continued has the whole interval again: hosts were not asked meanwhile.
        self.assertGreater(after["timeLeftSeconds"], 1990)

    def test_agents_that_are_killed_one_after_the_other_lose_nothing(self):
        self.kill(self.start_with_group())
        chance = random.Random(7)
        for _ in range(10):
            agent = self.successor()
            try:
                agent.process.wait(chance.uniform(0.0, 0.1))
            except subprocess.TimeoutExpired:
                pass
            self.kill(agent)
            self.assertEqual({GROUP}, self.groups())
        agent = self.successor()
        agent.expect("takenOver", groups=1)
        self.assertEqual({GROUP}, self.groups())

    def test_settings_of_the_run_time_return(self):
        agent = self.start_with_group()
        done = self.igmpq("set", "eth0", "query-interval=777", at=self.agent_socket)
        self.assertEqual(0, done.returncode, done.stderr)
        wait_until(lambda: self.shown()["interfaces"][0]["setAtRunTime"] == "query-interval=777s",
                   20, "the setting in the store")
        self.kill(agent)
        agent = self.successor()
        agent.expect("takenOver")
        self.assertEqual("777\n", self.igmpq("get", "config/eth0/queryInterval",
                                             at=self.agent_socket).stdout)

    def test_after_forgetting_the_next_agent_begins_without_the_group(self):
        self.kill(self.start_with_group())
        self.store.expect("agentLost")
        done = self.igmpq("store", "--forget", "eth0", "--json")
        self.assertEqual({"interface": "eth0", "groupsForgotten": 1}, json.loads(done.stdout))
        agent = self.successor()
        agent.expect("role", role="querier")
        self.assertEqual([], agent.seen("takenOver"))
        self.assertEqual(set(), self.groups(at=self.agent_socket))

    def test_the_state_passes_from_the_agent_to_the_next_store_and_the_next_agent(self):
        agent = self.start_with_group()
        self.kill(self.store)
        self.store = self.new_store()
        self.wait_copied(GROUP)
        self.kill(agent)
        self.successor().expect("takenOver", groups=1)


if __name__ == "__main__":
    main()
