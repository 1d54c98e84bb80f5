"""The metrics of `igmpq web` beside real queriers, and a real Prometheus that scrapes them."""
import json
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import urllib.parse

from lab import wait_until
from querier import ROOT, Querier, program
from testcase import QUIET, SHORT, LabTestCase, main

sys.path += [str(ROOT / "doc/man"), str(ROOT / "packaging/prometheus")]
from examples import metrics_in, metrics_of_dashboard, metrics_of_rules  # noqa: E402
from pages import Page  # noqa: E402

GROUP = "239.1.1.1"
WEB, PROMETHEUS = "127.0.0.1:9645", "127.0.0.1:9090"
GET = ("import sys, urllib.request as r;"
       "sys.stdout.write(r.urlopen(sys.argv[1], timeout=10).read().decode())")
CONFIG = f"""
global: {{scrape_interval: 1s}}
scrape_configs:
  - job_name: igmpq
    static_configs: [{{targets: ['{WEB}']}}]
"""


class MetricsTest(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router, self.host = self.lab.station(2), self.lab.station(11, 2)
        self.folder = pathlib.Path(self.lab.scratch.name)
        self.querier = self.run_querier()
        web = self.lab.spawn(self.router.namespace, program(), "web", "--socket",
                             self.querier.socket, "--listen", WEB, stdout=subprocess.PIPE)
        self.assertTrue(web.stdout.readline().startswith("serving "))

    def run_querier(self, station=None, options=QUIET):
        querier = Querier(station or self.router, *options)
        querier.expect("role", role="querier")
        return querier

    def got(self, url):
        done = subprocess.run(("ip", "netns", "exec", self.router.namespace, "python3", "-c", GET,
                               url), capture_output=True, text=True, timeout=60, check=False)
        return done.stdout if done.returncode == 0 else ""

    def text(self, query=""):
        return self.got(f"http://{WEB}/metrics{query}")

    def value(self, sample):
        found = re.search(rf"^{re.escape(sample)} (\S+)$", self.text(), re.M)
        return float(found[1]) if found else None

    def joined(self):
        self.host.join(GROUP)
        sample = 'igmp_groups{interface="eth0",compatibility="2"}'
        wait_until(lambda: self.value(sample) == 1, 10, "the group to be counted")

    def run_prometheus(self):
        config = self.folder / "prometheus.yml"
        config.write_text(CONFIG, "utf-8")
        self.lab.spawn(self.router.namespace, "prometheus", f"--config.file={config}",
                       f"--storage.tsdb.path={self.folder / 'tsdb'}",
                       f"--web.listen-address={PROMETHEUS}",
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def asked(self, expression):
        """The values that Prometheus has for it now, by their labels."""
        query = urllib.parse.urlencode({"query": expression})
        answer = self.got(f"http://{PROMETHEUS}/api/v1/query?{query}")
        if not answer: return []
        answer = json.loads(answer)
        self.assertEqual("success", answer["status"])
        return [(each["metric"], each["value"][1]) for each in answer["data"]["result"]]

    def test_promtool_finds_nothing_to_improve(self):
        if not shutil.which("promtool"): self.skipTest("there is no promtool")
        self.joined()
        text = self.text("?groups=10")
        self.assertIn(f'group="{GROUP}"', text)
        done = subprocess.run(("promtool", "check", "metrics"), input=text, capture_output=True,
                              text=True, timeout=60, check=False)
        self.assertEqual((0, "", ""), (done.returncode, done.stdout, done.stderr))

    def test_names_are_those_of_the_manual_the_rules_and_the_dashboard(self):
        self.joined()
        self.run_querier(self.lab.station(1))
        self.querier.expect("role", role="nonQuerier")
        sample = 'igmp_querier_state{interface="eth0",state="nonQuerier"}'
        wait_until(lambda: self.value(sample) == 1, 10, "the other querier to be served")
        given = metrics_in("\n".join(re.findall(r"^# HELP \S+", self.text("?groups=10"), re.M)))
        self.assertEqual(set(Page("igmpq-web.1").metrics()), given)
        self.assertLessEqual(metrics_of_rules(), given)
        self.assertLessEqual(metrics_of_dashboard(), given)

    def test_histograms_count_what_the_loop_did(self):
        self.querier.stop()
        self.querier = self.run_querier(options=SHORT)
        wait_until(lambda: (self.value("igmp_query_lateness_seconds_count") or 0) >= 2, 20,
                   "two queries to be counted")
        batches = self.value("igmp_loop_batches_total")
        self.assertGreater(batches, 0)
        gaps = self.value("igmp_loop_gap_seconds_count")
        self.assertGreater(gaps, 0)
        self.assertLessEqual(self.value("igmp_loop_longest_gap_seconds"),
                             self.value("igmp_loop_gap_seconds_sum") + 1e-6)

    def test_prometheus_sees_a_join_and_the_end_of_the_agent(self):
        if not shutil.which("prometheus"): self.skipTest("there is no prometheus")
        self.run_prometheus()
        wait_until(lambda: self.asked("igmp_up == 1"), 60, "Prometheus to have scraped")
        self.assertEqual([], self.asked("sum(igmp_groups) > 0"))
        self.host.join(GROUP)
        wait_until(lambda: self.asked("igmp_groups > 0"), 30, "Prometheus to know the group")
        (labels, value), = self.asked("igmp_groups > 0")
        self.assertEqual(("eth0", "2", "1"),
                         (labels["interface"], labels["compatibility"], value))
        (labels, _), = self.asked("igmp_querier_info")
        self.assertEqual((self.router.address, self.router.address),
                         (labels["address"], labels["querier"]))
        self.querier.stop(signal.SIGKILL)
        wait_until(lambda: self.asked("igmp_up == 0"), 30, "Prometheus to know that it ended")
        wait_until(lambda: not self.asked("igmp_groups"), 30, "the last state to be forgotten")


if __name__ == "__main__":
    main()
