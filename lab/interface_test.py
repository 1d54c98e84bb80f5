"""The interface goes, comes back, changes: the querier stops, keeps its groups, resumes."""
from capture import Capture, is_general_query
from querier import Querier
from testcase import SHORT, LabTestCase, main

GROUP = "239.1.1.1"
OTHER = "239.1.1.2"


class InterfaceTest(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router, self.host = self.lab.station(5), self.lab.station(11, 2)
        self.querier = Querier(self.router, *SHORT)
        self.querier.expect("role", role="querier", querier=self.router.address)
        self.host.join(GROUP)
        self.querier.expect("groupJoined", group=GROUP)

    def assert_resumes(self):
        """It sends queries and receives reports."""
        capture = Capture(self.lab)
        self.host.join(OTHER)
        self.querier.expect("groupJoined", group=OTHER, reporter=self.host.address)
        self.querier.expect_none("groupLeft", during=2.5)
        self.assertEqual({GROUP, OTHER}, set(self.querier.groups()))
        queries = [packet for packet in capture.sent_by(self.router) if is_general_query(packet)]
        self.assertGreaterEqual(len(queries), 1)
        self.assertEqual(0, self.querier.stop())

    def test_groups_outlive_an_interface_that_is_down(self):
        self.router.down()
        self.querier.expect("interfaceDown", interface="eth0")
        # Longer than a group lives without a report.
        self.querier.expect_none("groupLeft", during=6)
        self.assertEqual({GROUP}, set(self.querier.groups()))
        self.router.up()
        self.querier.expect("interfaceUp", interface="eth0", address=self.router.address)
        self.assert_resumes()

    def test_groups_outlive_an_interface_that_is_deleted(self):
        self.router.unplug()
        self.querier.expect("interfaceGone", interface="eth0")
        self.querier.expect_none("groupLeft", during=1)
        self.assertEqual({GROUP}, set(self.querier.groups()))
        self.router.plug()
        self.querier.expect("interfaceUp", interface="eth0", address=self.router.address)
        self.assert_resumes()

    def test_queries_come_from_the_new_address(self):
        self.router.remove_address()
        # Without this, an agent that is slow to read sees both changes as one.
        self.querier.expect("interfaceDown", interface="eth0")
        self.router.add_address(9)
        self.querier.expect("interfaceUp", interface="eth0", address=self.router.address)
        self.assert_resumes()

    def test_a_second_address_follows_the_first(self):
        # In this order the interface always has an address. The second one has another prefix
        # length, so that the kernel does not remove it with the first.
        self.router.ip("address", "add", "10.77.0.3/16", "dev", "eth0")
        self.router.ip("address", "del", "10.77.0.5/24", "dev", "eth0")
        self.router.address = "10.77.0.3"
        self.querier.expect("addressChanged", interface="eth0", address="10.77.0.3")
        self.assert_resumes()

    def test_other_interfaces_have_no_effect(self):
        self.router.ip("link", "add", "name", "eth1", "type", "bridge")
        self.router.ip("address", "add", "10.78.0.1/24", "dev", "eth1")
        self.router.ip("link", "set", "eth1", "up")
        self.router.ip("link", "del", "eth1")
        self.assert_resumes()
        self.assertEqual([], [event for event in self.querier.events
                              if event.get("interface") == "eth1" or "Gone" in event["event"]])


if __name__ == "__main__":
    main()
