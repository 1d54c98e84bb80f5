"""Version 3 hosts choose their sources."""
from capture import Capture, is_query
from querier import Querier
from testcase import SHORT, LabTestCase, main

GROUP = "239.1.1.1"
SOURCE = "10.77.0.50"
OTHER = "10.77.0.51"
OPTIONS = (*SHORT[:-1], "3")


class SourcesTest(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router, self.host = self.lab.station(1), self.lab.station(11)
        self.capture = Capture(self.lab)
        self.querier = Querier(self.router, *OPTIONS)
        self.querier.expect("role", role="querier")

    def sources(self):
        return {source["source"]: source["excluded"]
                for source in self.querier.groups()[GROUP]["sources"]}

    def test_a_host_joins_one_source(self):
        self.host.join(GROUP, SOURCE)
        self.querier.expect("groupJoined", group=GROUP, reporter=self.host.address,
                            compatibilityMode=3, filterMode="include")
        self.assertEqual({SOURCE: False}, self.sources())
        self.assertTrue(self.querier.seen("sourceJoined", group=GROUP, source=SOURCE))

    def test_a_source_that_is_left_is_queried_and_ends(self):
        self.host.join(GROUP, SOURCE)
        self.host.join(GROUP, OTHER)
        self.querier.expect("sourceJoined", group=GROUP, source=OTHER)
        self.host.leave(GROUP, OTHER)
        self.querier.expect("sourceLeft", group=GROUP, source=OTHER)
        self.assertEqual({SOURCE: False}, self.sources())
        asked = [packet for packet in self.capture.sent_by(self.router)
                 if is_query(packet) and packet.group == GROUP]
        self.assertGreaterEqual(len(asked), 2)

    def test_the_end_of_the_last_source_ends_the_group(self):
        self.host.join(GROUP, SOURCE)
        self.querier.expect("groupJoined", group=GROUP)
        self.host.leave(GROUP, SOURCE)
        self.querier.expect("groupLeft", group=GROUP)
        self.assertEqual({}, self.querier.groups())

    def test_a_host_blocks_one_source(self):
        self.host.join(GROUP)
        self.querier.expect("groupJoined", group=GROUP, compatibilityMode=3, filterMode="exclude")
        self.host.block(GROUP, SOURCE)
        self.querier.expect("sourceExcluded", group=GROUP, source=SOURCE)
        self.assertEqual({SOURCE: True}, self.sources())


if __name__ == "__main__":
    main()
