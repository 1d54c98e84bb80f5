"""Version 3 hosts beside each other, and beside an older one."""
from capture import Capture, is_query
from querier import Querier
from testcase import SHORT, LabTestCase, main

GROUP = "239.1.1.1"
SOURCE = "10.77.0.50"
OPTIONS = (*SHORT[:-1], "3")


class Version3Test(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router, self.first, self.second = (self.lab.station(n) for n in (1, 11, 12))
        self.capture = Capture(self.lab)
        self.querier = Querier(self.router, *OPTIONS)
        self.querier.expect("role", role="querier")

    def asked(self):
        return [packet for packet in self.capture.sent_by(self.router)
                if is_query(packet) and packet.group == GROUP]

    def test_after_a_leave_the_answer_of_the_other_member_keeps_the_group(self):
        self.first.join(GROUP)
        self.querier.expect("groupJoined", group=GROUP, compatibilityMode=3)
        self.second.join(GROUP)
        self.querier.wait_last_reporter(GROUP, self.second.address)
        self.first.leave(GROUP)
        self.querier.expect_none("groupLeft", during=4)
        self.assertGreaterEqual(len(self.asked()), 2)
        self.assertEqual(3, self.querier.groups()[GROUP]["compatibilityMode"])

    def test_the_answer_of_the_other_member_keeps_a_source(self):
        self.first.join(GROUP, SOURCE)
        self.querier.expect("sourceJoined", group=GROUP, source=SOURCE)
        self.second.join(GROUP, SOURCE)
        self.querier.wait_last_reporter(GROUP, self.second.address)
        self.first.leave(GROUP, SOURCE)
        self.querier.expect_none("sourceLeft", during=4)
        self.assertGreaterEqual(len(self.asked()), 2)
        self.assertIn(GROUP, self.querier.groups())

    def test_an_older_host_sets_the_compatibility_mode_until_it_times_out(self):
        old = self.lab.station(13, 2)
        self.first.join(GROUP)
        self.querier.expect("groupJoined", group=GROUP, compatibilityMode=3)
        old.join(GROUP)
        self.querier.expect("groupChanged", group=GROUP, compatibilityMode=2)
        # It goes without a leave: the version 2 queries that follow one would make the other host
        # assume an older querier.
        old.ip("link", "set", "eth0", "down")
        self.querier.expect("groupChanged", group=GROUP, compatibilityMode=3, timeout=15)
        self.assertIn(GROUP, self.querier.groups())


if __name__ == "__main__":
    main()
