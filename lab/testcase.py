"""Settings, base class and `main` of the lab's tests."""
import sys
import unittest

import lab

SKIPPED = 77  # the exit status of a skipped test

# The first query has a random delay below ten seconds; with this seed it is 8 ms, 50 ms, 93 ms.
NO_DELAY = ("--seed", "63230")
# Short, as tests wait for them: a group lives 2 * 2 + 1 = 5 s after its last report, another
# querier 2 * 2 + 1 / 2 = 4.5 s after its last query.
SHORT = (*NO_DELAY, "--query-interval", "2", "--query-response-interval", "1",
         "--startup-query-interval", "0", "--last-member-query-interval", "1",
         "--querier-version", "2")
# One general query at the start and none afterwards: later reports answer specific queries or come
# unsolicited.
QUIET = (*NO_DELAY, "--query-interval", "1000", "--query-response-interval", "1",
         "--startup-query-count", "1", "--last-member-query-interval", "1",
         "--querier-version", "2")


class LabTestCase(unittest.TestCase):
    """Each test has a link of its own, `self.lab`."""

    def setUp(self):
        self.lab = lab.Lab()
        self.addCleanup(self.lab.close)

    def assert_gaps(self, packets, lowest, highest):
        """Two packets at least, and between each two of them as many seconds as given."""
        times = [packet.time for packet in packets]
        self.assertGreaterEqual(len(times), 2)
        for earlier, later in zip(times, times[1:]):
            self.assertGreaterEqual(later - earlier, lowest)
            self.assertLessEqual(later - earlier, highest)


def main(why_not=lambda: None):
    """`why_not` returns why the tests of the program cannot run here, or None."""
    reason = lab.why_not()
    if reason: reason = f"no network namespaces here: {reason}"
    reason = reason or why_not()
    if reason:
        print(f"skipped: {reason}", file=sys.stderr)
        sys.exit(SKIPPED)
    unittest.main(verbosity=2)
