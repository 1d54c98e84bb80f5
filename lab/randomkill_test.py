"""Agents that are killed at random moments under load, while a lower querier comes and goes.

LAB_KILLS is how often, 10 by default.
"""
import collections
import json
import os
import pathlib
import random
import statistics
import subprocess
import sys
import time

import frames
from attrlog_test import SANITIZED
from lab import wait_until
from members import staying_groups
from store_test import DECODER, StoreTestCase, run
from testcase import NO_DELAY, main

KILLS = int(os.environ.get("LAB_KILLS", "10"))
SEED = int(os.environ.get("LAB_SEED", "15"))
MEMBERS = pathlib.Path(__file__).with_name("members.py")
# A sanitizer takes minutes for what a usual build does in seconds.
STAYING = COMING = 1000 if SANITIZED else 10000
OPTIONS = (*NO_DELAY, "--query-interval", "1000", "--query-response-interval", "1",
           "--startup-query-count", "1", "--last-member-query-interval", "0.1",
           "--querier-version", "3", "--queries", "--events", "none")
LONG = 100  # seconds, which no cycle takes
# A lower querier that stays, and one that goes: the others wait for it for 2 * 2 + 1 / 2 s.
STAYS = frames.query_v3(code=10, robustness=2, interval=125)
GOES = frames.query_v3(code=10, robustness=2, interval=2)


class RandomKillTest(StoreTestCase):
    ROUTER = 5

    def setUp(self):
        super().setUp()
        self.lower = self.lab.station(1)
        self.chance = random.Random(SEED)
        self.staying = staying_groups(STAYING)
        self.sampled = sorted(self.staying)
        self.counts = collections.Counter()
        self.first_queries = []
        wait_until(lambda: self.igmpq("store", "--show").returncode == 0, 20, "the store")

    def start(self):
        self.started = time.monotonic()
        return self.agent(*OPTIONS, "--store", self.socket)

    def left(self, path):
        """The seconds that each group has left at least, from the moment before this call."""
        self.counts["readings"] += 1
        groups = {each["group"]: each["timeLeftSeconds"] or 0
                  for each in self.json_of("show", "groups", at=path)}
        self.assertEqual(set(), self.staying - groups.keys(), path.name)
        return groups

    def creation(self, group, path):
        return self.json_of("get", f"status/eth0/group[{group}]/creationTime", at=path)

    def creations(self):
        """Of all groups that stay, as another reader reads them."""
        done = run(sys.executable, DECODER, self.socket)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        groups = json.loads(done.stdout)["eth0"]["status"]["group"]
        return {group: groups[group]["creationTime"] for group in self.staying}

    def role(self, path):
        return self.json_of("show", "interfaces", at=path)[0]["role"]

    def query(self, message):
        frames.send(self.lower, (1, frames.frame(self.lower.address, "224.0.0.1", message)))

    def elect(self, agent):
        """The lower querier asks, or another one of it comes and goes again."""
        goes = self.cycle % 10 == 5
        if not goes and self.chance.random() < 0.3: return
        self.query(GOES if goes else STAYS)
        agent.expect("role", timeout=60, role="nonQuerier", querier=self.lower.address)
        self.counts["elections lost"] += 1
        if not goes: return
        agent.expect("role", timeout=60, role="querier", querier=self.router.address)
        self.counts["elections won"] += 1
        # The reports that came meanwhile have given them a few seconds only.
        wait_until(self.is_refreshed, 60, "reports of all groups")

    def is_refreshed(self):
        left = self.left(self.socket)
        return min(left[group] for group in self.staying) > LONG

    def follow(self, agent, kept, read, was_querier):
        """The first of an agent: what it takes over, what it asks, what it shows."""
        over = agent.expect("takenOver", timeout=60)
        alive = [group for group, left in kept.items() if read + left > over["time"]]
        self.assertGreaterEqual(over["groups"], len(alive))
        query = agent.expect("querySent", timeout=60, group="0.0.0.0")
        if was_querier: self.first_queries.append(query["time"] - self.started)
        self.left(self.agent_socket)
        self.elect(agent)

    def wait_random(self, agent, longest):
        try:
            agent.process.wait(self.chance.uniform(0.0, longest))
            self.fail("the agent has ended by itself")
        except subprocess.TimeoutExpired:
            pass

    def run_cycle(self, kept, read):
        was_querier = self.counts["kills"] > 0 and self.role(self.socket) == "querier"
        group = self.chance.choice(self.sampled)
        began = self.creation(group, self.socket)
        agent = self.start()
        if self.chance.random() < 0.3:
            self.counts["killed at the start"] += 1
            self.wait_random(agent, 0.3)
        else:
            self.follow(agent, kept, read, was_querier)
            self.assertEqual(began, self.creation(group, self.agent_socket))
            self.wait_random(agent, 0.5)
        self.kill(agent)
        self.counts["kills"] += 1
        wait_until(lambda: self.shown()["agentLostSeconds"] is not None, 60, "the end of the agent")
        read = time.monotonic()
        kept = self.left(self.socket)
        self.assertEqual(began, self.creation(group, self.socket))
        return kept, read

    def report(self):
        times = sorted(self.first_queries)
        print(", ".join(f"{what}: {count}" for what, count in self.counts.items()), file=sys.stderr)
        if len(times) < 2: return
        at = statistics.quantiles(times, n=100, method="inclusive")
        print(f"start to first query, {len(times)} times: {times[0] * 1e3:.0f} ms at least, median "
              f"{at[49] * 1e3:.0f} ms, 90 of 100 within {at[89] * 1e3:.0f} ms, 99 within "
              f"{at[98] * 1e3:.0f} ms, {times[-1] * 1e3:.0f} ms at most", file=sys.stderr)

    def test_no_group_that_stays_is_missing(self):
        agent = self.start()
        agent.expect("role", timeout=30, role="querier")
        self.lab.spawn(self.host.namespace, sys.executable, MEMBERS, STAYING, COMING, SEED)
        wait_until(lambda: self.is_copied(*self.staying), 120, "the groups in the store")
        self.wait_complete()
        self.kill(agent)
        wait_until(lambda: self.shown()["agentLostSeconds"] is not None, 60, "the end of the agent")
        began = self.creations()
        read = time.monotonic()
        kept = self.left(self.socket)
        for self.cycle in range(KILLS):
            kept, read = self.run_cycle(kept, read)
            if self.cycle % 100 == 99: self.report()
        self.assertEqual(began, self.creations())
        self.report()


if __name__ == "__main__":
    main()
