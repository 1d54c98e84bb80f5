"""Several queriers on one link: the lowest address sends queries, the others are silent."""
import signal

from capture import Capture, is_general_query
from querier import Querier
from testcase import SHORT, LabTestCase, main

GROUP = "239.1.1.1"


def run_pair(lab, low_number, high_number):
    """Starts two queriers, the higher one first; returns when the lower one is elected."""
    low, high = lab.station(low_number), lab.station(high_number)
    higher = Querier(high, *SHORT)
    higher.expect("role", role="querier", querier=high.address)
    lower = Querier(low, *SHORT)
    lower.expect("role", role="querier", querier=low.address)
    higher.expect("role", role="nonQuerier", querier=low.address)
    return (low, lower), (high, higher)


class ElectionTest(LabTestCase):
    def test_the_lowest_address_is_the_querier(self):
        (low, lower), (_, higher) = run_pair(self.lab, 1, 2)
        elected, following = lower.state(), higher.state()
        self.assertEqual(("querier", low.address), (elected["role"], elected["querier"]))
        self.assertEqual(("nonQuerier", low.address), (following["role"], following["querier"]))
        self.assertIsNone(elected["otherQuerierExpirySeconds"])
        self.assertGreater(following["otherQuerierExpirySeconds"], 0)

    def test_a_non_querier_is_silent_but_knows_the_groups(self):
        (low, lower), (high, higher) = run_pair(self.lab, 1, 2)
        host = self.lab.station(11, 2)
        capture = Capture(self.lab)
        host.join(GROUP)
        for querier in (lower, higher):
            querier.expect("groupJoined", group=GROUP, reporter=host.address)
        higher.expect_none("groupLeft", during=4.5)
        self.assertGreaterEqual(len(capture.sent_by(low)), 1)
        self.assertEqual([], capture.sent_by(high))

    def test_a_non_querier_acts_on_a_leave(self):
        (low, _), (high, higher) = run_pair(self.lab, 1, 2)
        host = self.lab.station(11, 2)
        capture = Capture(self.lab)
        host.join(GROUP)
        higher.expect("groupJoined", group=GROUP)
        host.leave(GROUP)
        higher.expect("groupLeft", group=GROUP)
        asked = [packet.source for packet in capture.packets()
                 if packet.type == "0x11" and packet.group == GROUP]
        self.assertEqual([low.address] * 2, asked)
        self.assertEqual([], capture.sent_by(high))

    def test_when_the_querier_is_killed_another_takes_over(self):
        capture = Capture(self.lab)
        (low, lower), (high, higher) = run_pair(self.lab, 1, 2)
        host = self.lab.station(11, 2)
        host.join(GROUP)
        higher.expect("groupJoined", group=GROUP)
        lower.stop(signal.SIGKILL)
        higher.expect("role", role="querier", querier=high.address, timeout=15)
        higher.expect_none("groupLeft", during=3)

        queries = [packet for packet in capture.packets() if is_general_query(packet)]
        last = [packet.time for packet in queries if packet.source == low.address][-1]
        after = [packet.time for packet in queries if packet.time > last]
        self.assertGreaterEqual(len(after), 1)
        # Between them lies the other querier present interval.
        self.assertGreaterEqual(after[0] - last, 4.4)
        self.assertLessEqual(after[0] - last, 6.5)

    def test_a_new_router_with_a_lower_address_takes_over(self):
        (middle, before), _ = run_pair(self.lab, 5, 7)
        lowest = self.lab.station(3)
        newcomer = Querier(lowest, *SHORT)
        newcomer.expect("role", role="querier", querier=lowest.address)
        before.expect("role", role="nonQuerier", querier=lowest.address)
        capture = Capture(self.lab)
        newcomer.expect_none("role", role="nonQuerier", during=4.5)
        self.assertGreaterEqual(len(capture.sent_by(lowest)), 2)
        self.assertEqual([], capture.sent_by(middle))

    def test_a_query_of_another_version_is_reported(self):
        router, other = self.lab.station(2), self.lab.station(1)
        querier = Querier(router, *SHORT)
        querier.expect("role", role="querier")
        other.query(3)
        querier.expect("versionMismatch", interface="eth0", heardVersion=3, configuredVersion=2)


if __name__ == "__main__":
    main()
