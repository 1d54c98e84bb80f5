"""Version 2 hosts join and leave."""
from capture import Capture, LEAVE, is_query
from querier import Querier
from testcase import QUIET, SHORT, LabTestCase, main

GROUP = "239.1.1.1"


class MembershipTest(LabTestCase):
    def stations(self):
        return self.lab.station(1), self.lab.station(11, 2), self.lab.station(12, 2)

    def test_a_join_is_reported_with_its_reporter(self):
        router, first, second = self.stations()
        querier = Querier(router, *QUIET)
        querier.expect("role", role="querier", querier=router.address)
        first.join(GROUP)
        querier.expect("groupJoined", interface="eth0", group=GROUP, reporter=first.address,
                       compatibilityMode=2, filterMode="exclude")
        second.join("239.1.1.2")
        querier.expect("groupJoined", group="239.1.1.2", reporter=second.address)
        self.assertEqual({GROUP, "239.1.1.2"}, set(querier.groups()))

    def test_the_last_reporter_sent_the_last_report(self):
        router, first, second = self.stations()
        querier = Querier(router, *QUIET)
        querier.expect("role", role="querier")
        first.join(GROUP)
        querier.expect("groupJoined", reporter=first.address)
        # The second host reports at once. The first one cancels the repetition of its report, due
        # within ten seconds, when it receives that.
        second.join(GROUP)
        querier.wait_last_reporter(GROUP, second.address)
        self.assertEqual(1, len(querier.seen("groupJoined")))

    def test_a_member_that_was_there_before_the_querier_is_found(self):
        router, host = self.lab.station(1), self.lab.station(11, 2)
        host.join(GROUP)
        querier = Querier(router, *SHORT)
        querier.expect("groupJoined", group=GROUP, reporter=host.address)

    def test_two_queries_are_sent_before_a_group_is_left(self):
        router, host = self.lab.station(1), self.lab.station(11, 2)
        capture = Capture(self.lab)
        querier = Querier(router, *QUIET)
        querier.expect("role", role="querier")
        host.join(GROUP)
        querier.expect("groupJoined", group=GROUP)
        host.leave(GROUP)
        querier.expect("groupLeft", interface="eth0", group=GROUP)
        self.assertEqual({}, querier.groups())

        packets = capture.packets()
        leaves = [packet for packet in packets if packet.type == LEAVE]
        asked = [packet for packet in packets if is_query(packet) and packet.group == GROUP]
        self.assertEqual(1, len(leaves))
        self.assertEqual(2, len(asked))
        self.assertLess(leaves[0].time, asked[0].time)
        self.assert_gaps(asked, 0.9, 1.5)
        for packet in asked:
            self.assertEqual((router.address, GROUP, "10"),
                             (packet.source, packet.destination, packet.max_response))

    def test_a_member_that_answers_keeps_its_group(self):
        router, stays, leaves = self.stations()
        capture = Capture(self.lab)
        querier = Querier(router, *QUIET)
        querier.expect("role", role="querier")
        stays.join(GROUP)
        querier.expect("groupJoined", group=GROUP, reporter=stays.address)
        # Only the host that reported last sends a leave, so the one that leaves comes second.
        leaves.join(GROUP)
        querier.wait_last_reporter(GROUP, leaves.address)
        leaves.leave(GROUP)
        querier.expect_none("groupLeft", during=4)
        self.assertEqual(stays.address, querier.groups()[GROUP]["lastReporter"])

        packets = capture.packets()
        asked = [packet for packet in packets if is_query(packet) and packet.group == GROUP]
        answers = [packet for packet in packets if packet.source == stays.address]
        self.assertEqual([leaves.address],
                         [packet.source for packet in packets if packet.type == LEAVE])
        self.assertLess(asked[0].time, answers[-1].time)


if __name__ == "__main__":
    main()
