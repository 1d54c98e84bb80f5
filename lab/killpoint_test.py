"""Agents that are killed at points which they reach, and the agents that come after them."""
import collections
import json
import random
import statistics
import subprocess
import sys
import threading
import time

import frames
import killed
from killed import KilledQuerier, Point
from lab import wait_until
from store_test import DECODER, GROUP, OTHER, run
from takeover_test import TakeOverTestCase
from testcase import NO_DELAY, QUIET, main

LATE = "239.1.1.3"
MANY = [f"239.2.{number // 250}.{number % 250 + 1}" for number in range(1000)]
HALF = len(MANY) // 2
# The role of a router that is silent passes to this one after 2 * 5 + 1 / 2 = 10.5 s, and a group
# lives as long.
SOON = (*NO_DELAY, "--query-interval", "5", "--query-response-interval", "1",
        "--startup-query-count", "1", "--querier-version", "2")
# A group that its host leaves lives for another 8 s.
SLOW_LEAVES = (*NO_DELAY, "--query-interval", "1000", "--query-response-interval", "1",
               "--startup-query-count", "1", "--querier-version", "2",
               "--last-member-query-interval", "4")

RECEIVED = Point("a report that was received and not published",
                 "Gmp::Igmp::QuerierGroupSm::handleRxV2Report", call=HALF, at_end=True)
ADOPTION = Point("the adoption", "Gmp::Igmp::querierSmFactory")
REBUILD = Point("the rebuilding of groups",
                "Gmp::Igmp::QuerierSm::handleQuerierGroupStatus(Ilvo::IpAddr)", call=HALF)
FIRST_WALK = Point("the first walk for the store", "Mox::NboAttrLog::EntitySa::sendMember",
                   call=HALF)
# Interfaces are started one after the other, and the store is sent the state meanwhile: it connects
# within 0.2 s, and the kernel takes more than a millisecond for each.
OTHERS = [f"other{number}" for number in range(250)]
START = Point("the start of the last interface", "Agent::InterfaceQuerier::linkIs",
              call=len(OTHERS) + 1)
ELECTION = Point("a lost election", "Gmp::Igmp::QuerierSm::doQuerierElection", at_end=True)
# The first call is of the constructor.
HAND_OVER = Point("the end of another querier", "Gmp::Igmp::QuerierSm::handleOtherQuerierTimer",
                  call=2, at_end=True)
PAIRS = 5


class Readings:
    """Reads the groups of the store and of the agent in turn, from its construction until `end`.

    `missing` has the groups that a reading should have had and had not.
    """

    def __init__(self, test, groups):
        self.test, self.groups = test, set(groups)
        self.count = collections.Counter()
        self.missing = set()
        self.ending = threading.Event()
        self.thread = threading.Thread(target=self.read)
        self.thread.start()
        test.addCleanup(self.end)

    def read(self):
        while not self.ending.is_set():
            for path in (self.test.socket, self.test.agent_socket):
                done = self.test.igmpq("show", "groups", "--json", at=path)
                if done.returncode != 0: continue  # no agent serves there now
                self.count[path.name] += 1
                self.missing |= self.groups - {each["group"] for each in json.loads(done.stdout)}

    def wait_next(self, path):
        """A reading of that socket that begins after this call."""
        wanted = self.count[path.name] + 2
        wait_until(lambda: self.count[path.name] >= wanted, 60, f"readings of {path.name}")

    def end(self):
        self.ending.set()
        self.thread.join()


class KillPointTest(TakeOverTestCase):
    ROUTER = 5

    kills = []
    first_queries = []
    answers = []
    readings = collections.Counter()

    @classmethod
    def tearDownClass(cls):
        for name, calls in cls.kills: print(f"killed in {name}: call {calls}", file=sys.stderr)
        for what, times in (("start to first query", cls.first_queries),
                            ("first query to answer", cls.answers)):
            if times:
                print(f"{what}: {len(times)} times, {min(times) * 1e3:.0f} ms at least, median "
                      f"{statistics.median(times) * 1e3:.0f} ms, {max(times) * 1e3:.0f} ms at most",
                      file=sys.stderr)
        print(f"readings: {dict(cls.readings)}", file=sys.stderr)

    def setUp(self):
        super().setUp()
        self.lower = self.lab.station(1)

    def agent_to_kill(self, point, *options, **others):
        return KilledQuerier(self.router, point, *(options or QUIET), "--store", self.socket,
                             path=self.agent_socket, **others)

    def wait_killed(self, agent):
        self.kills.append((agent.point.name, agent.wait_killed()))

    def report(self, *groups):
        frames.send(self.host, *((1, frames.report_frame(self.host.address, group))
                                 for group in groups))

    def creations(self, path):
        """When each group began, read by a reader that shares no code with igmpq.

        The agent can be killed between the frame that adds a group and that of its values. Such a
        group has no time, and is not taken over: its hosts report it again.
        """
        done = run(sys.executable, DECODER, path)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        groups = json.loads(done.stdout)["eth0"]["status"]["group"]
        return {group: each["creationTime"] for group, each in groups.items()
                if each["creationTime"] != 0}

    def start_with_group(self, agent):
        self.host.join(GROUP)
        agent.expect("groupJoined", timeout=30, group=GROUP)
        self.wait_copied(GROUP)
        self.wait_complete()
        return self.creations(self.socket)

    def leave_many(self):
        """What a killed agent has left in the store: when each of its many groups began."""
        agent = self.successor()
        agent.expect("role", role="querier")
        self.start_with_group(agent)
        self.report(*MANY)
        self.wait_copied(*MANY)
        before = self.creations(self.socket)
        self.kill(agent)
        return before

    def wait_lost(self):
        wait_until(lambda: self.shown()["agentLostSeconds"] is not None, 30, "the end of the agent")

    def assert_continued(self, before):
        """Starts the next agent after a kill, and requires of it what hosts and routers need."""
        self.wait_lost()
        readings = Readings(self, before)
        kept = self.creations(self.socket)
        self.assertEqual({}, {group: began for group, began in before.items()
                              if kept.get(group) != began})
        was_querier = self.shown()["interfaces"][0]["role"] == "querier"
        self.host.join(LATE)
        start = time.monotonic()
        agent = self.successor(*QUIET, "--queries")
        agent.expect("takenOver", timeout=30, groups=len(kept))
        # Only a router that is new on the link reports its role before it asks, as it delays that.
        if not was_querier: agent.expect("role", timeout=30, role="querier")
        query = agent.expect("querySent", timeout=30, group="0.0.0.0")
        if was_querier:
            self.first_queries.append(query["time"] - start)
            agent.expect("role", timeout=30, role="querier")
        joined, _ = agent.find(0, "groupJoined", 30, {"group": LATE, "reporter": self.host.address})
        self.answers.append(joined["time"] - query["time"])
        after = self.creations(self.agent_socket)
        self.assertEqual({}, {group: began for group, began in kept.items()
                              if after.get(group) != began})
        self.lower.query(2)
        agent.expect("role", timeout=30, role="nonQuerier", querier=self.lower.address)
        for path in (self.socket, self.agent_socket): readings.wait_next(path)
        readings.end()
        self.assertEqual(set(), readings.missing)
        self.readings.update(readings.count)
        return agent

    def test_between_receiving_and_publishing(self):
        agent = self.agent_to_kill(RECEIVED)
        before = self.start_with_group(agent)
        self.report(*MANY)
        self.wait_killed(agent)
        self.assert_continued(before)

    def test_in_the_first_walk_for_the_store(self):
        before = self.leave_many()
        self.wait_killed(self.agent_to_kill(FIRST_WALK))
        self.assert_continued(before)

    def test_while_groups_are_rebuilt(self):
        before = self.leave_many()
        self.wait_killed(self.agent_to_kill(REBUILD))
        self.assert_continued(before)

    def test_in_the_adoption(self):
        before = self.leave_many()
        self.wait_killed(self.agent_to_kill(ADOPTION))
        self.assert_continued(before)

    def test_before_the_last_interface_is_started(self):
        before = self.leave_many()
        lines = []
        for number, name in enumerate(OTHERS):
            lines += [f"link add name {name} type veth peer name {name}p", f"link set {name} up",
                      f"link set {name}p up", f"address add 10.200.{number}.1/24 dev {name}"]
        subprocess.run(("ip", "-n", self.router.namespace, "-batch", "-"), text=True, check=True,
                       input="\n".join(lines) + "\n")
        self.wait_killed(self.agent_to_kill(START, verb=("run", *OTHERS, "eth0")))
        self.assert_continued(before)

    def test_in_a_lost_election(self):
        agent = self.agent_to_kill(ELECTION)
        before = self.start_with_group(agent)
        self.lower.query(2)
        self.wait_killed(agent)
        self.assert_continued(before)

    def test_when_another_querier_has_gone(self):
        agent = self.agent_to_kill(HAND_OVER, *SOON)
        before = self.start_with_group(agent)
        self.lower.query(2)
        agent.expect("role", timeout=30, role="nonQuerier", querier=self.lower.address)
        while not agent.is_killed(): self.report(GROUP)  # its time begins anew
        self.wait_killed(agent)
        self.assert_continued(before)

    def test_twice_within_a_tenth_of_a_second(self):
        agent = self.successor()
        before = self.start_with_group(agent)
        chance = random.Random(2)
        pairs = 0
        for _ in range(20 * PAIRS):
            self.kill(agent)
            first = time.monotonic()
            agent = self.successor()
            try:
                agent.process.wait(chance.uniform(0.0, 0.08))
            except subprocess.TimeoutExpired:
                pass
            agent.process.kill()
            pairs += time.monotonic() - first <= 0.1
            agent.process.wait(10)
            self.assertEqual(before, self.creations(self.socket))
            if pairs == PAIRS: break
            agent = self.successor()
            agent.expect("takenOver", timeout=30, groups=1)
        self.assertEqual(PAIRS, pairs, "kills that came so soon after another one")
        self.kills.append(("the start, within 0.1 s of the kill before", f"1, {pairs} times"))
        self.assert_continued(before)

    def test_a_group_that_ran_out_does_not_come_back(self):
        agent = self.successor(*SLOW_LEAVES)
        before = self.start_with_group(agent)
        self.host.join(OTHER)
        self.wait_copied(OTHER)
        self.host.leave(OTHER)

        def left(group):
            return next(each["timeLeftSeconds"] for each in self.json_of("show", "groups")
                        if each["group"] == group)
        wait_until(lambda: left(OTHER) <= 8, 30, "the leave in the store")
        self.kill(agent)
        self.assertEqual({GROUP, OTHER}, self.groups())
        wait_until(lambda: left(OTHER) <= 0, 30, "the end of its time")
        agent = self.successor(*SLOW_LEAVES)
        agent.expect("takenOver", timeout=30, groups=1)
        self.assertEqual(before, self.creations(self.agent_socket))
        wait_until(lambda: self.groups() == {GROUP}, 30, "the store to follow")


if __name__ == "__main__":
    main(killed.why_not)
