"""While a reader of the attribute log takes nothing, work that would send it more is postponed."""
import signal
import subprocess
import sys

from attrlog_test import REPORTS, Watch
from lab import wait_until
from querier import Querier
from testcase import NO_DELAY, LabTestCase, main

# More groups than the socket of a stopped reader has room for.
GROUPS = 4000
# A group lives 1 * 2 + 1 = 3 s after its last report, one that is left 2 * 0.1 = 0.2 s.
LIFE = 3.0
FLEETING = (*NO_DELAY, "--query-interval", "2", "--query-response-interval", "1",
            "--robustness", "1", "--last-member-query-interval", "0.1",
            "--startup-query-count", "1", "--querier-version", "2")
LEFT = "239.1.1.1"


class CongestionTest(LabTestCase):
    def congest(self, *options):
        """An agent, a stopped reader, a running one, and groups without members."""
        self.router, self.host = self.lab.station(1), self.lab.station(11, 2)
        self.querier = Querier(self.router, *FLEETING, *options)
        self.querier.expect("role", role="querier")
        self.stopped = Watch(self.router, str(self.querier.socket))
        self.healthy = Watch(self.router, str(self.querier.socket))
        self.host.join(LEFT)
        for watch in (self.stopped, self.healthy):
            wait_until(lambda w=watch: LEFT in w.groups, 10, "the readers to see a group")
        self.stopped.process.send_signal(signal.SIGSTOP)
        # Each is reported once, and no host answers queries for it.
        reporting = self.lab.spawn(self.host.namespace, sys.executable, REPORTS, GROUPS, 0, 1,
                                   stdout=subprocess.DEVNULL)
        self.assertEqual(0, reporting.wait(60))

    def overdue(self):
        """Groups that exist after their timers ended, because their end is postponed."""
        return [group for group, fields in self.querier.groups().items()
                if group != LEFT and fields["upSeconds"] > 2 * LIFE]

    def assert_postponed(self):
        wait_until(lambda: len(self.overdue()) == len(self.querier.groups()) - 1, 30,
                   "every group to be overdue")
        # The first ones can end before the socket is full.
        self.assertGreater(len(self.overdue()), GROUPS // 4)
        self.host.leave(LEFT)
        wait_until(lambda: self.querier.state()["counters"]["v2LeaveReceived"] == 1, 10,
                   "the leave to be received")
        kept = self.querier.groups()
        wait_until(lambda: all(fields["upSeconds"] > kept[group]["upSeconds"] + LIFE
                               for group, fields in self.querier.groups().items()), 30,
                   "more time to pass than any of them has")
        self.assertEqual(set(kept), set(self.querier.groups()))
        self.assertIn(LEFT, kept)
        wait_until(lambda: self.healthy.groups == set(kept), 30, "the healthy reader to keep up")
        self.assertLess(len(self.stopped.groups), len(kept))

    def assert_gone(self, watch):
        wait_until(lambda: not self.querier.groups(), 30, "the groups to end")
        wait_until(lambda: not watch.groups, 30, "a reader to see that they ended")

    def test_groups_stay_until_a_stopped_reader_goes_on(self):
        self.congest("--stall-timeout", "300")
        self.assert_postponed()
        self.stopped.process.send_signal(signal.SIGCONT)
        for watch in (self.healthy, self.stopped):
            self.assert_gone(watch)
        self.assertEqual([], [e for e in self.stopped.events if e["event"] == "agentLost"])

    def test_groups_stay_until_a_stopped_reader_is_cut_off(self):
        self.congest("--stall-timeout", "20")
        wait_until(lambda: len(self.overdue()) > GROUPS // 4, 30, "groups to be overdue")
        self.assertEqual([], self.querier.seen("error"))
        self.host.leave(LEFT)
        self.querier.expect("error", 60,
                            text=lambda text: "it took less than 64 KiB/s for 20 s" in text)
        self.assert_gone(self.healthy)
        self.stopped.process.send_signal(signal.SIGCONT)
        wait_until(lambda: "agentLost" in [event["event"] for event in self.stopped.events], 30,
                   "the reader to notice")


if __name__ == "__main__":
    main()
