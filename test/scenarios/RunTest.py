"""What `check` refuses and what `bless` writes.

    python3 RunTest.py IGMPQ
"""
import contextlib
import io
import pathlib
import sys
import tempfile
import unittest

import run

COMMAND = sys.argv.pop()

STEPS = """# options:
{"at": 1000, "op": "interface", "name": "eth0", "ipAddr": "10.0.0.5"}
# What the timers do meanwhile.
{"at": 1040, "op": "advance"}

{"at": 1040, "op": "advance"}
{"at": 1050, "op": "dump", "interface": "eth0"}
"""


class RunTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        run.FOLDER = pathlib.Path(folder.name)
        self.write(STEPS)

    def write(self, text):
        self.path = run.FOLDER / "leave" / "twice.scenario"
        self.path.parent.mkdir(exist_ok=True)
        self.path.write_text(text, encoding="utf-8")

    def text(self):
        return self.path.read_text(encoding="utf-8")

    def bless(self):
        with contextlib.redirect_stdout(io.StringIO()) as shown:
            run.bless(COMMAND, "leave/twice")
        return shown.getvalue()

    def check(self):
        with contextlib.redirect_stdout(io.StringIO()) as shown:
            passed = run.check(COMMAND, "leave/twice")
        self.assertNotEqual(passed, bool(shown.getvalue()), "exactly a failure is explained")
        return passed

    def test_expected_lines_stand_below_the_step_that_causes_them(self):
        self.assertEqual(run.names(), ["leave/twice"])
        self.assertEqual(self.bless(), "changed leave/twice\n")
        kinds = [line.split(",")[1] if line.startswith("#=") else line[:8]
                 for line in self.text().splitlines()]
        self.assertEqual(kinds, [
            "# option", '{"at": 1', "# What t", '{"at": 1', '"event":"tx"', '"event":"tx"', "",
            '{"at": 1', '{"at": 1', '"event":"dump"'])

    def test_what_is_blessed_passes_and_is_not_written_again(self):
        self.bless()
        self.assertTrue(self.check())
        self.assertEqual(self.bless(), "")

    def test_blessing_replaces_the_lines_of_before(self):
        self.bless()
        right = self.text()
        self.write(right.replace("1164", "1165").replace('#= {"t":1050', '#= {"t":1049'))
        self.bless()
        self.assertEqual(self.text(), right)

    def test_a_scenario_without_expected_lines_fails(self):
        self.assertFalse(self.check())

    def test_any_other_byte_fails(self):
        self.bless()
        right = self.text()
        expected = [line for line in right.splitlines() if line.startswith("#= ")]
        for wrong in (right.replace(expected[0] + "\n", ""),
                      right.replace(expected[0], expected[0] + " "),
                      right.replace(expected[1], expected[0]),
                      right + expected[-1] + "\n"):
            self.write(wrong)
            self.assertFalse(self.check())

    def test_a_line_below_another_step_fails(self):
        self.bless()
        lines = self.text().splitlines(keepends=True)
        for number in (4, 9):  # the first query, and the dump
            moved = [*lines[:number], *lines[number + 1:]]
            self.write("".join([*moved[:number - 1], lines[number], *moved[number - 1:]]))
            self.assertFalse(self.check())


if __name__ == "__main__":
    unittest.main()
