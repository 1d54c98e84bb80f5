"""The operators' manual shows what its commands write: each of them runs, in the order of the text.

  manual_test.py            compares
  manual_test.py --write    writes into the manual what the commands write now
"""
import re
import subprocess
import sys
import unittest

import manual
import service_test
from frames import REPORT_V2, frame, igmp, send
from lab import Lab, wait_until
from querier import ROOT

DOCUMENT = ROOT / "doc/operating.md"
GROUP, REFUSED = "239.1.1.1", "239.1.1.2"
WRITE = "--write"


def lines_of(done):
    return [line.rstrip() for line in done.stdout.splitlines()]


class FormTest(unittest.TestCase):
    HEADER = "NAME  UP    INTERVAL"

    def assert_same(self, same, shown, written):
        self.assertEqual(same, manual.form(shown) == manual.form(written), (shown, written))

    def test_only_the_times_of_a_table_may_differ(self):
        shown = [self.HEADER, "eth0  5.8s  2m05s"]
        for same, header, row in (
                (True, self.HEADER, "eth0  1m7s  2m05s"),
                (True, "NAME  UP  INTERVAL", "eth0  7s  2m05s"),
                (False, self.HEADER, "eth0  -     2m05s"),
                (False, self.HEADER, "eth0  soon  2m05s"),
                (False, self.HEADER, "eth0  5.8s  2m06s"),
                (False, self.HEADER, "eth1  5.8s  2m05s"),
                (False, "NAME  UP    RESPONSE", "eth0  5.8s  2m05s")):
            self.assert_same(same, shown, [header, row])

    def test_only_the_time_of_day_of_a_line_may_differ(self):
        shown = ["15:27:15.275487 IP 10.77.0.5 > 224.0.0.1: igmp query v2"]
        for same, line in ((True, "16:00:00.000000 IP 10.77.0.5 > 224.0.0.1: igmp query v2"),
                           (False, "16:00:00.000000 IP 10.77.0.5 > 224.0.0.1: igmp query v3"),
                           (False, "IP 10.77.0.5 > 224.0.0.1: igmp query v2")):
            self.assert_same(same, shown, [line])
        self.assert_same(False, shown, shown * 2)


def names_in_text(pattern):
    """What stands between backquotes, outside the blocks."""
    text = re.sub(r"^```.*?^```$", "", DOCUMENT.read_text("utf-8"), flags=re.M | re.S)
    return set(re.findall(rf"`({pattern})(?: = [^`]*)?`", text))


class ManualTest(service_test.ServiceTestCase):
    writes = False

    def setUp(self):
        self.lab = Lab(snooping=True)
        self.addCleanup(self.lab.close)
        self.router, self.other, self.host = (self.lab.station(number) for number in (5, 2, 11))
        self.boot()
        # The user that tcpdump becomes; the container has none of the machine's users.
        done = self.inside("systemd-sysusers", "-", input="u tcpdump -\n")
        self.assertEqual(0, done.returncode, done.stderr)

    def run_command(self, command):
        """The lines that it writes, on both outputs."""
        if command.machine == "router":
            return lines_of(self.inside("bash", "-c", f"exec 2>&1; {command.text}"))
        namespace = {"switch": self.lab.switch, "host": self.host.namespace}[command.machine]
        return lines_of(self.run_at(namespace, command.text))

    @staticmethod
    def run_at(namespace, text):
        return subprocess.run(
            ("ip", "netns", "exec", namespace, "bash", "-c", f"exec 2>&1; {text}"),
            capture_output=True, text=True, timeout=60, check=False)

    def wait_output(self, text, *arguments):
        wait_until(lambda: text in self.inside("igmpq", *arguments).stdout, 30,
                   f"{text} in the output of igmpq {' '.join(arguments)}")

    def wait_attribute(self, path, value):
        wait_until(lambda: self.inside("igmpq", "get", path).stdout == f"{value}\n", 30,
                   f"{path} to be {value}")

    # What happens on the link, by its name in the text.

    def the_example_is_the_configuration(self):
        self.write("/etc/igmpq/igmpq.toml", self.inside("igmpq", "check", "--example").stdout)

    def the_first_query_is_sent(self):
        # Until it is received, the host would join by a report of version 3.
        shell = "grep -q 'eth0.*V2' /proc/net/igmp"
        wait_until(lambda: self.run_at(self.host.namespace, shell).returncode == 0, 30,
                   "the first query")

    def the_host_joins(self):
        self.host.join(GROUP)
        # It reports twice of its own accord. Only the answers to queries come later.
        self.wait_attribute("status/eth0/v2ReportReceived", 2)
        self.wait_status("1 interface, querier on 1, 1 group")

    def the_host_sends_a_report_with_a_wrong_ttl(self):
        send(self.host, (1, frame(self.host.address, REFUSED, igmp(REPORT_V2, REFUSED), ttl=64)))
        self.wait_attribute("intakeStatus/eth0/wrongTtl", 1)

    def the_host_leaves(self):
        self.host.leave(GROUP)
        self.wait_output("no groups", "show", "groups")

    def the_host_joins_again(self):
        self.host.join(GROUP)
        self.wait_output(GROUP, "show", "groups")

    def another_router_sends_a_query(self):
        self.other.query(2, response=100)
        self.wait_output("nonQuerier", "show", "interfaces")

    def another_router_sends_a_query_that_is_refused(self):
        self.other.query(2, response=100)
        self.wait_attribute("intakeStatus/eth0/unpermittedQuerier", 1)

    def the_host_has_answered_again(self):
        self.wait_output(self.host.address, "show", "groups")
        self.wait_output('"agentLostSeconds":null', "store", "--show", "--json")

    def test_the_commands_write_what_the_manual_shows(self):
        lines = DOCUMENT.read_text("utf-8").splitlines()
        outputs = {}
        for part in manual.parts(lines):
            if isinstance(part, manual.Step):
                getattr(self, part.name.replace(" ", "_"))()
            elif isinstance(part, manual.File):
                self.write(part.path, part.text)
            else:
                outputs[part.line] = self.run_command(part)
                if not self.writes: self.compare(part, outputs[part.line])
        self.assertGreaterEqual(len(outputs), 30)
        if self.writes:
            text = "\n".join(manual.rewritten(lines, outputs)) + "\n"
            DOCUMENT.write_text(text, "utf-8")

    def test_keys_of_the_configuration_exist(self):
        example = self.inside("igmpq", "check", "--example").stdout
        named = names_in_text(r"[a-z]+(?:-[a-z]+)+")
        self.assertGreaterEqual(len(named), 15)
        self.assertEqual(set(), named - set(re.findall(r"^#([a-z-]+) = ", example, re.M)))

    def test_counters_and_settings_exist(self):
        self.systemctl("start", "igmpq")
        shown = "".join(self.inside("igmpq", "show", part).stdout
                        for part in ("counters", "config"))
        named = names_in_text(r"[a-z]+[A-Z]\w*")
        self.assertGreaterEqual(len(named), 15)
        self.assertEqual({"nonQuerier"}, named - set(re.findall(r"\w+", shown)))

    def compare(self, command, written):
        self.assertEqual(manual.form(command.shown), manual.form(written),
                         f"{DOCUMENT.name}:{command.line}: {command.text} writes\n"
                         + "\n".join(written))


if __name__ == "__main__":
    if WRITE in sys.argv:
        sys.argv.remove(WRITE)
        ManualTest.writes = True
    service_test.main_in_container()
