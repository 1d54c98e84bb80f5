"""A story that `sim` has shortened and printed repeats what it was printed for.

usage: StoryReplayTest.py SIM
"""
import re
import subprocess
import sys
import unittest

SIM = sys.argv.pop() if len(sys.argv) > 1 else ""
LONGEST = 250  # seconds; more is a hang


def sim(*arguments, story=None):
    return subprocess.run([SIM, *arguments], input=story, capture_output=True, text=True,
                          timeout=LONGEST, check=False)


class PrintedStory(unittest.TestCase):
    def setUp(self):
        printed = sim("--canary", "muteHost")
        self.assertEqual(printed.returncode, 0, printed.stdout + printed.stderr)
        self.story = printed.stdout
        self.broken = re.match(r"# seed \d+: (\w+)", self.story)[1]

    def test_it_breaks_the_same_invariant_again(self):
        again = sim("--canary", "muteHost", "--story", "-", story=self.story)
        self.assertEqual(again.returncode, 1, again.stderr)
        self.assertTrue(again.stdout.startswith(self.broken), again.stdout)

    def test_it_breaks_none_without_the_fault(self):
        again = sim("--story", "-", story=self.story)
        self.assertEqual(again.returncode, 0, again.stdout + again.stderr)


if __name__ == "__main__":
    unittest.main()
