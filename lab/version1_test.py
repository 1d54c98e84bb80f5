"""Version 1 hosts: they cannot leave, and no leave has an effect while one of them is a member."""
from capture import Capture, LEAVE, is_query
from querier import Querier
from testcase import QUIET, SHORT, LabTestCase, main

GROUP = "239.1.1.1"


class Version1Test(LabTestCase):
    def test_a_version_1_member_sets_the_compatibility_mode(self):
        router, host = self.lab.station(1), self.lab.station(11, 1)
        querier = Querier(router, *QUIET)
        querier.expect("role", role="querier")
        host.join(GROUP)
        querier.expect("groupJoined", group=GROUP, reporter=host.address, compatibilityMode=1)
        self.assertEqual(1, querier.groups()[GROUP]["compatibilityMode"])

    def test_a_group_of_version_1_ends_by_timeout(self):
        router, host = self.lab.station(1), self.lab.station(11, 1)
        capture = Capture(self.lab)
        querier = Querier(router, *SHORT)
        host.join(GROUP)
        joined = querier.expect("groupJoined", group=GROUP, compatibilityMode=1)
        host.leave(GROUP)
        left = querier.expect("groupLeft", group=GROUP, timeout=20)
        # No upper bound: the host may have answered a general query in between.
        self.assertGreaterEqual(left["time"] - joined["time"], 4.9)
        packets = capture.packets()
        self.assertEqual([], [packet for packet in packets if packet.type == LEAVE])
        self.assertEqual([], [packet for packet in packets
                              if is_query(packet) and packet.group == GROUP])

    def test_a_leave_is_ignored_while_a_version_1_host_is_a_member(self):
        router, old, new = self.lab.station(1), self.lab.station(11, 1), self.lab.station(12, 2)
        capture = Capture(self.lab)
        querier = Querier(router, *QUIET)
        querier.expect("role", role="querier")
        old.join(GROUP)
        querier.expect("groupJoined", group=GROUP, compatibilityMode=1)
        new.join(GROUP)
        querier.wait_last_reporter(GROUP, new.address)
        new.leave(GROUP)
        querier.expect_none("groupLeft", during=3)
        packets = capture.packets()
        self.assertEqual([new.address],
                         [packet.source for packet in packets if packet.type == LEAVE])
        self.assertEqual([], [packet for packet in packets
                              if is_query(packet) and packet.group == GROUP])


if __name__ == "__main__":
    main()
