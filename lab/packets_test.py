"""The packets that igmpq sends, decoded by tshark."""
from capture import Capture, is_general_query
from querier import Querier
from testcase import SHORT, LabTestCase, main

GROUP = "239.1.1.1"
CORRECT = "1"
ROUTER_ALERT = "148"


class PacketsTest(LabTestCase):
    def sent(self, version):
        """Queries of that version: general ones and, as a host joins and leaves, specific ones."""
        router, host = self.lab.station(1), self.lab.station(11, version if version < 3 else 0)
        capture = Capture(self.lab)
        querier = Querier(router, *SHORT[:-1], str(version))
        querier.expect("role", role="querier")
        host.join(GROUP)
        querier.expect("groupJoined", group=GROUP)
        host.leave(GROUP)
        querier.expect("groupLeft", group=GROUP, timeout=20)
        querier.stop()
        return capture.sent_by(router)

    def assert_well_formed(self, packets, version):
        self.assertGreaterEqual(len(packets), 3)
        for packet in packets:
            self.assertEqual(
                (str(version), "0x11", "1", "0xc0", ROUTER_ALERT, CORRECT, CORRECT),
                (packet.version, packet.type, packet.ttl, packet.tos, packet.option,
                 packet.ip_checksum, packet.igmp_checksum), packet)
            self.assertEqual(("", ""), (packet.severity, packet.expert), packet)

    def assert_destinations(self, packets):
        for packet in packets:
            if is_general_query(packet):
                expected = ("224.0.0.1", "01:00:5e:00:00:01")
            else:
                expected = (GROUP, "01:00:5e:01:01:01")
            self.assertEqual(expected, (packet.destination, packet.ethernet_destination), packet)

    def test_queries_of_version_1_are_well_formed(self):
        packets = self.sent(1)
        self.assert_well_formed(packets, 1)
        self.assert_destinations(packets)
        self.assertTrue(all(is_general_query(packet) for packet in packets))

    def test_queries_of_version_2_are_well_formed(self):
        packets = self.sent(2)
        self.assert_well_formed(packets, 2)
        self.assert_destinations(packets)
        self.assertEqual({"0.0.0.0", GROUP}, {packet.group for packet in packets})
        self.assertEqual({"10"}, {packet.max_response for packet in packets})

    def test_queries_of_version_3_are_well_formed(self):
        packets = self.sent(3)
        self.assert_well_formed(packets, 3)
        self.assert_destinations(packets)
        self.assertEqual({"0.0.0.0", GROUP}, {packet.group for packet in packets})

    def test_general_queries_come_at_their_interval(self):
        router = self.lab.station(1)
        capture = Capture(self.lab)
        querier = Querier(router, *SHORT)
        querier.expect_none("error", during=6.5)
        packets = capture.packets()
        # Two at startup, at least half a second (a quarter of two) apart, then every two seconds.
        self.assert_gaps(packets[1:], 1.8, 2.8)


if __name__ == "__main__":
    main()
