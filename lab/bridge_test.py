"""Another implementation on the link: the querier of the kernel's bridge."""
import time

import lab
from capture import Capture, is_general_query
from querier import Querier
from testcase import SHORT, LabTestCase, main

HUNDREDTHS = 100  # of a second: the unit of the bridge


class BridgeTest(LabTestCase):
    def setUp(self):
        self.lab = lab.Lab(snooping=True)
        self.addCleanup(self.lab.close)

    def bridge_querier(self, address):
        """The bridge sends queries from that address, every two seconds."""
        lab.ip("-n", self.lab.switch, "address", "add", f"{address}/24", "dev", "br0")
        lab.ip("-n", self.lab.switch, "link", "set", "br0", "type", "bridge",
               "mcast_startup_query_interval", str(HUNDREDTHS),
               "mcast_query_interval", str(2 * HUNDREDTHS),
               "mcast_query_use_ifaddr", "1", "mcast_querier", "1")

    def test_the_bridge_is_followed_when_its_address_is_lower(self):
        router = self.lab.station(7)
        # A bridge that receives a query before it has sent one stays silent, even with the lower
        # address: it has to be first.
        self.bridge_querier("10.77.0.3")
        querier = Querier(router, *SHORT)
        querier.expect("role", role="nonQuerier", querier="10.77.0.3", timeout=15)
        capture = Capture(self.lab)
        time.sleep(5)  # longer than the other querier present interval
        self.assertEqual("nonQuerier", querier.state()["role"])
        self.assertEqual([], capture.sent_by(router))

    def test_the_bridge_gives_way_when_its_address_is_higher(self):
        router = self.lab.station(7)
        self.bridge_querier("10.77.0.200")
        querier = Querier(router, *SHORT)
        querier.expect("role", role="querier", querier=router.address)
        querier.expect_none("role", role="nonQuerier", during=3)
        capture = Capture(self.lab)
        querier.expect_none("role", role="nonQuerier", during=5)
        asking = {packet.source for packet in capture.packets() if is_general_query(packet)}
        self.assertEqual({router.address}, asking)


if __name__ == "__main__":
    main()
