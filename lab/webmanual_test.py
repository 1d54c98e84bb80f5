"""igmpq-web(8) shows what `igmpq web` answers: each of its commands runs, in the order of the page.

  webmanual_test.py            compares
  webmanual_test.py --write    writes into the page what the commands write now
"""
import json
import subprocess
import sys
import textwrap

from lab import wait_until
from querier import ROOT, Querier, program
from testcase import NO_DELAY, LabTestCase, main

PAGE = ROOT / "doc/man/igmpq-web.8"
PROMPT = "# curl "
BEGIN, END = ".Bd -literal -offset indent", ".Ed"
WRITE = "--write"
WIDTH = 78
GROUP, WANTED, SENDER = "239.1.1.1", "232.1.1.1", "10.0.0.5"
OPTIONS = (*NO_DELAY, "--query-interval", "1000", "--query-response-interval", "1",
           "--startup-query-count", "1", "--querier-version", "3")


def is_time(key):
    return key.endswith("Seconds") or key in ("time", "utc", "index")


def form(value):
    """The answer with the kinds of its times in their place, since they differ from run to run."""
    if isinstance(value, list): return [form(each) for each in value]
    if not isinstance(value, dict): return value
    return [(key, type(each).__name__ if is_time(key) else form(each))
            for key, each in value.items()]


def value_of(text):
    """A line of events has a name before its value."""
    try:
        return json.loads(text.removeprefix("data: "))
    except ValueError:
        return None


def broken(text):
    """Lines that a page has room for: JSON can be broken behind a comma."""
    lines = []
    for line in text.splitlines():
        if len(line) <= WIDTH or '{"' not in line:
            lines.append(line)
        else:
            lines += textwrap.wrap(line.replace(',"', ', "'), WIDTH, break_long_words=False,
                                   break_on_hyphens=False, subsequent_indent=" ")
    return lines


def blocks(lines):
    """Commands with their line's number and what stands behind them."""
    found, inside = [], False
    for number, line in enumerate(lines):
        if line == BEGIN:
            inside = True
        elif line == END:
            inside = False
        elif inside and line.startswith(PROMPT):
            found.append((number, line[2:], []))
        elif inside and found:
            found[-1][2].append(line)
    return found


class WebManualTest(LabTestCase):
    writes = False

    def setUp(self):
        super().setUp()
        self.router, self.old, self.new = (self.lab.station(number, version)
                                           for number, version in ((1, 0), (11, 2), (12, 3)))
        self.querier = Querier(self.router, *OPTIONS)
        self.querier.expect("role", role="querier")
        web = self.lab.spawn(self.router.namespace, program(), "web", "--socket",
                             self.querier.socket, stdout=subprocess.PIPE)
        self.assertEqual("serving http://127.0.0.1:9645/\n", web.stdout.readline())
        self.old.join(GROUP)
        self.new.join(WANTED, SENDER)
        # The old host reports twice of its own accord.
        for path, text in (("interfaces/eth0/groups", WANTED),
                           ("counters", '"v2ReportReceived":2')):
            wait_until(lambda path=path, text=text: text in self.output(
                f"curl -s http://127.0.0.1:9645/api/v1/{path}"), 60, f"{text} in {path}")

    def output(self, command):
        done = subprocess.run(
            ("ip", "netns", "exec", self.router.namespace, "bash", "-c", f"exec 2>&1; {command}"),
            capture_output=True, text=True, timeout=60, check=False)
        return done.stdout.replace("\r", "").rstrip()

    def test_the_commands_write_what_the_page_shows(self):
        lines = PAGE.read_text("utf-8").splitlines()
        found = blocks(lines)
        self.assertGreaterEqual(len(found), 10)
        for number, command, shown in reversed(found):
            written = self.output(command)
            if self.writes:
                lines[number + 1:number + 1 + len(shown)] = broken(written)
            else:
                self.compare(f"{PAGE.name}:{number + 1}: {command}", shown, written)
        if self.writes: PAGE.write_text("\n".join(lines) + "\n", "utf-8")

    def compare(self, where, shown, written):
        """An error is shown as it is written."""
        value = value_of(written)
        if value is None:
            self.assertEqual(shown, written.splitlines(), where)
        else:
            self.assertEqual(form(value_of(" ".join(shown))), form(value), where)


if __name__ == "__main__":
    if WRITE in sys.argv:
        sys.argv.remove(WRITE)
        WebManualTest.writes = True
    main()
