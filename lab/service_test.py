"""The units of the agent, its store and its page under a systemd of their own, in a container.

It is on the link of the lab.

The container has the machine's programs and nothing of its configuration. Its /usr/local is what
the build installs.
"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

from container import Container
from lab import wait_until
from querier import NOBODY, program
from testcase import SKIPPED, LabTestCase, main

GROUP = "239.1.1.1"
NET_RAW = f"{1 << 13:016x}"
CONFIG = """
[defaults]
query-interval = 1000
query-response-interval = 1
[[interface]]
name = "eth0"
"""


class ServiceTestCase(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router, self.host = self.lab.station(1), self.lab.station(11, 2)
        self.boot()

    def installed(self):
        prefix = pathlib.Path(self.lab.scratch.name, "prefix")
        subprocess.run(("cmake", "--install", program().parents[1], "--prefix", prefix),
                       capture_output=True, check=True)
        for path in (prefix, *prefix.rglob("*")): path.chmod(path.stat().st_mode | 0o055)
        return prefix

    def boot(self):
        container = Container(self.lab, self.router, "--directory=/", "--volatile=yes",
                              f"--bind-ro={self.installed()}:/usr/local")
        self.addCleanup(container.close)
        self.inside = container.inside
        self.write("/etc/igmpq/igmpq.toml", CONFIG)

    def write(self, path, text):
        done = self.inside("sh", "-c", f"mkdir -p {os.path.dirname(path)} && cat >{path}",
                           input=text)
        self.assertEqual((0, ""), (done.returncode, done.stderr))

    def systemctl(self, *arguments, status=0):
        done = self.inside("systemctl", *arguments)
        self.assertEqual(status, done.returncode, done.stderr + self.messages())
        return done

    def shown(self, name, unit="igmpq"):
        return self.systemctl("show", unit, f"--property={name}", "--value").stdout.strip()

    def messages(self):
        return self.inside("journalctl", "--no-pager", "--unit=igmpq").stdout

    def journal(self, *fields):
        """The entries that the agent wrote and that have these fields."""
        done = self.inside("journalctl", "--output=json", "_COMM=igmpq", *fields)
        return [json.loads(line) for line in done.stdout.splitlines()]

    def status_of(self, unit):
        done = self.inside("cat", f"/proc/{self.shown('MainPID', unit)}/status")
        return {key: rest.split() for key, _, rest in
                (line.partition(":") for line in done.stdout.splitlines())}

    def wait_status(self, text, unit="igmpq"):
        wait_until(lambda: self.shown("StatusText", unit) == text, 20, f"the status line {text}")


class StoreServiceTest(ServiceTestCase):
    STORE = "igmpq-store"

    def kept(self):
        done = self.inside("igmpq", "store", "--show", "--json")
        return json.loads(done.stdout) if done.returncode == 0 else {"groupCount": None}

    def start_with_group(self):
        self.systemctl("start", "igmpq")
        self.host.join(GROUP)
        self.wait_status("1 interface, querier on 1, 1 group")
        wait_until(lambda: self.kept()["groupCount"] == 1, 20, "the store to have the group")

    def test_it_is_started_before_the_agent_and_goes_on_without_it(self):
        self.start_with_group()
        self.assertEqual("active", self.shown("ActiveState", self.STORE))
        self.assertLess(int(self.shown("ActiveEnterTimestampMonotonic", self.STORE)),
                        int(self.shown("ExecMainStartTimestampMonotonic")))
        store = self.shown("MainPID", self.STORE)
        self.systemctl("stop", "igmpq")
        self.wait_status("1 interface, 1 group", self.STORE)
        self.assertIsNotNone(self.kept()["agentLostSeconds"])
        self.systemctl("start", "igmpq")
        self.systemctl("restart", "igmpq")
        self.assertEqual(("active", store), (self.shown("ActiveState", self.STORE),
                                             self.shown("MainPID", self.STORE)))

    def test_it_knows_the_boot_and_has_the_agents_user_and_no_right(self):
        self.start_with_group()
        agent, store = self.status_of("igmpq"), self.status_of(self.STORE)
        self.assertEqual(agent["Uid"], store["Uid"])
        none = f"{0:016x}"
        self.assertEqual([none] * 4 + ["1", "2"], [store[key][0] for key in (
            "CapPrm", "CapEff", "CapBnd", "CapAmb", "NoNewPrivs", "Seccomp")])
        links = self.inside("nsenter", "--target", self.shown("MainPID", self.STORE), "--net",
                            "ip", "-j", "link", "show")
        self.assertEqual(["lo"], [link["ifname"] for link in json.loads(links.stdout)])
        # A container has a number of its own, which the new /proc of a unit does not show.
        boot = pathlib.Path("/proc/sys/kernel/random/boot_id").read_text().strip()
        self.assertEqual(boot, self.kept()["bootId"])

    def test_a_store_that_is_killed_is_started_again_and_copies_the_agent(self):
        self.start_with_group()
        self.inside("kill", "-KILL", self.shown("MainPID", self.STORE))
        wait_until(lambda: self.shown("NRestarts", self.STORE) == "1", 20, "the next store")
        wait_until(lambda: self.kept()["groupCount"] == 1, 20, "the store to have the group again")
        self.assertEqual(("active", "0"), (self.shown("ActiveState"), self.shown("NRestarts")))

    def test_an_agent_runs_where_the_store_cannot(self):
        self.systemctl("mask", self.STORE)
        self.systemctl("start", "igmpq")
        self.wait_status("1 interface, querier on 1, 0 groups")


class WebServiceTest(ServiceTestCase):
    WEB = "igmpq-web"
    FETCH = ("import sys, urllib.request\n"
             "sys.stdout.buffer.write(urllib.request.urlopen(sys.argv[1]).read())")

    def fetch(self, path):
        done = self.inside("python3", "-c", self.FETCH, f"http://127.0.0.1:9645{path}")
        self.assertEqual(0, done.returncode, done.stderr)
        return done.stdout

    def test_it_serves_what_the_agent_knows_and_outlives_it(self):
        self.systemctl("start", self.WEB)
        wait_until(lambda: self.shown("StatusText", self.WEB).startswith("no agent: "), 20,
                   "a page without an agent")
        self.systemctl("start", "igmpq")
        self.host.join(GROUP)
        self.wait_status("1 interface, 0 clients", self.WEB)
        wait_until(lambda: GROUP in self.fetch("/api/v1/interfaces/eth0/groups"), 20, "the group")
        self.assertIn("<!doctype html>", self.fetch("/"))
        self.systemctl("stop", "igmpq")
        wait_until(lambda: not json.loads(self.fetch("/api/v1/agent"))["connected"], 20,
                   "the page to know that the agent has gone")
        self.systemctl("start", "igmpq")
        wait_until(lambda: json.loads(self.fetch("/api/v1/agent"))["connected"], 20, "the agent")
        self.assertEqual("0", self.shown("NRestarts", self.WEB))

    def test_it_has_no_right_and_reaches_only_this_machine(self):
        self.systemctl("start", self.WEB)
        status = self.status_of(self.WEB)
        none = f"{0:016x}"
        self.assertEqual([none] * 4 + ["1", "2"], [status[key][0] for key in (
            "CapPrm", "CapEff", "CapBnd", "CapAmb", "NoNewPrivs", "Seccomp")])
        self.assertNotEqual("0", status["Uid"][0])
        self.assertEqual({"0.0.0.0/0", "::/0"}, set(self.shown("IPAddressDeny", self.WEB).split()))


class ServiceTest(ServiceTestCase):
    def test_it_serves_hosts_and_shows_its_state(self):
        self.systemctl("start", "igmpq")
        self.assertEqual("active", self.shown("ActiveState"))
        self.wait_status("1 interface, querier on 1, 0 groups")
        self.host.join(GROUP)
        self.wait_status("1 interface, querier on 1, 1 group")
        # A query that the firewall or the system call filter held back would be an error.
        self.host.leave(GROUP)
        self.wait_status("1 interface, querier on 1, 0 groups")
        self.assertEqual([], self.journal("PRIORITY=3"))
        self.systemctl("stop", "igmpq")
        self.assertEqual("success", self.shown("Result"))
        self.assertEqual(0, self.inside("sh", "-c", "! test -e /run/igmpq").returncode)

    def test_it_has_a_user_of_its_own_and_the_one_right(self):
        self.systemctl("start", "igmpq")
        status = self.status_of("igmpq")
        user = self.inside("id", "-u", "igmpq").stdout.strip()
        self.assertNotEqual("0", user)
        self.assertEqual({user}, set(status["Uid"]))
        self.assertEqual(
            [NET_RAW, NET_RAW, NET_RAW, f"{0:016x}", "1", "2"],
            [status[key][0] for key in
             ("CapPrm", "CapEff", "CapBnd", "CapAmb", "NoNewPrivs", "Seccomp")])

    def test_an_address_outside_the_unit_cannot_be_reached(self):
        """The firewall works here: a process with the unit's addresses cannot send to the host."""
        run = ("systemd-run", "--quiet", "--wait", "--pipe")
        send = ("bash", "-c", f"echo x >/dev/udp/{self.host.address}/9")
        done = self.inside(*run, *send)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        rules = [f"--property={name}={rule}" for name in ("IPAddressDeny", "IPAddressAllow")
                 for rule in self.rules_of(name)]
        done = self.inside(*run, *rules, *send)
        self.assertIn("Operation not permitted", done.stderr)

    def rules_of(self, name):
        text = self.inside("cat", "/usr/local/lib/systemd/system/igmpq.service").stdout
        return re.search(rf"^{name}=(.*)$", text, re.MULTILINE)[1].split()

    def test_the_journal_has_each_event_once_with_its_fields(self):
        self.systemctl("start", "igmpq")
        self.wait_status("1 interface, querier on 1, 0 groups")
        self.host.join(GROUP)
        wait_until(lambda: self.journal(f"IGMP_GROUP={GROUP}"), 20, "an entry for the group")
        entries = [entry for entry in self.journal() if f"joined {GROUP}" in entry["MESSAGE"]]
        self.assertEqual(1, len(entries))
        self.assertEqual(
            {"MESSAGE": f"eth0: joined {GROUP} by {self.host.address} (version 2)", "PRIORITY": "6",
             "SYSLOG_IDENTIFIER": "igmpq", "IGMP_EVENT": "groupJoined", "IGMP_INTERFACE": "eth0",
             "IGMP_GROUP": GROUP, "IGMP_HOST": self.host.address, "_TRANSPORT": "journal"},
            {key: entries[0].get(key) for key in
             ("MESSAGE", "PRIORITY", "SYSLOG_IDENTIFIER", "IGMP_EVENT", "IGMP_INTERFACE",
              "IGMP_GROUP", "IGMP_HOST", "_TRANSPORT")})
        self.systemctl("stop", "igmpq")
        self.assertEqual([], [entry["MESSAGE"] for entry in self.journal("_TRANSPORT=stdout")])

    def test_a_reload_is_taken_over_or_fails(self):
        self.systemctl("start", "igmpq")
        agent = self.shown("MainPID")
        self.write("/etc/igmpq/igmpq.toml", CONFIG + "robustness = 3\n")
        self.systemctl("reload", "igmpq")
        self.assertEqual("3\n", self.inside("igmpq", "get", "config/eth0/robustness").stdout)
        self.write("/etc/igmpq/igmpq.toml", CONFIG + "robustness = 99\n")
        self.systemctl("reload", "igmpq", status=1)
        self.assertIn("/etc/igmpq/igmpq.toml:7:", self.messages())
        self.assertEqual("3\n", self.inside("igmpq", "get", "config/eth0/robustness").stdout)
        self.assertEqual(("active", agent), (self.shown("ActiveState"), self.shown("MainPID")))

    def test_a_loop_that_hangs_is_killed_and_started_again(self):
        self.write("/run/systemd/system/igmpq.service.d/watchdog.conf",
                   "[Service]\nWatchdogSec=1\nLimitCORE=0\n")
        self.systemctl("daemon-reload")
        self.systemctl("start", "igmpq")
        agent = self.shown("MainPID")
        self.inside("kill", "-STOP", agent)
        wait_until(lambda: self.shown("NRestarts") == "1" and self.shown("StatusText"), 30,
                   "the agent to be started again")
        self.assertNotEqual(agent, self.shown("MainPID"))
        self.assertIn("Watchdog timeout", self.messages())

    def test_a_watchdog_that_is_fed_does_nothing(self):
        self.write("/run/systemd/system/igmpq.service.d/watchdog.conf",
                   "[Service]\nWatchdogSec=1\n")
        self.write("/etc/igmpq/igmpq.toml", CONFIG + "last-member-query-count = 5\n")
        self.systemctl("daemon-reload")
        self.systemctl("start", "igmpq")
        self.wait_status("1 interface, querier on 1, 0 groups")
        # Five times as long as it has patience, until the group ends after its queries.
        self.host.join(GROUP)
        self.wait_status("1 interface, querier on 1, 1 group")
        self.host.leave(GROUP)
        self.wait_status("1 interface, querier on 1, 0 groups")
        self.assertEqual("0", self.shown("NRestarts"))

    def test_a_configuration_without_interfaces_is_not_tried_again(self):
        self.write("/etc/igmpq/igmpq.toml", "[defaults]\nrobustness = 3\n")
        self.systemctl("start", "igmpq", status=1)
        self.assertEqual(("failed", "exit-code", "2", "0"), tuple(
            self.shown(name) for name in ("ActiveState", "Result", "ExecMainStatus", "NRestarts")))
        self.assertIn("the configuration names no interface", self.messages())

    def test_a_unit_without_the_right_to_packets_reports_how_to_grant_it(self):
        self.write("/run/systemd/system/igmpq.service.d/rights.conf",
                   "[Service]\nCapabilityBoundingSet=\nAmbientCapabilities=\nRestart=no\n")
        self.systemctl("daemon-reload")
        self.systemctl("start", "igmpq", status=1)
        self.assertEqual("1", self.shown("ExecMainStatus"))
        self.assertIn("(needs CAP_NET_RAW): a unit of systemd grants it with "
                      "AmbientCapabilities=CAP_NET_RAW", self.messages())

    def test_other_users_can_read_where_the_file_permits_it(self):
        self.write("/etc/igmpq/igmpq.toml", CONFIG + '[agent]\nread-group = "all"\n')
        self.systemctl("start", "igmpq")
        done = self.inside(*NOBODY, "igmpq", "get", "config/eth0/robustness")
        self.assertEqual((0, "2\n"), (done.returncode, done.stdout), done.stderr)


def main_in_container():
    if shutil.which("systemd-nspawn") is None:
        print("skipped: no systemd-nspawn here: install systemd-container", file=sys.stderr)
        sys.exit(SKIPPED)
    if os.environ.get("LAB_SANITIZED") == "1":
        print("skipped: sanitizers need more than the unit permits", file=sys.stderr)
        sys.exit(SKIPPED)
    main()


if __name__ == "__main__":
    main_in_container()
