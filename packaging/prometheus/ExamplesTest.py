"""The rules for alerts and the dashboard hold together with the manual page.

    python3 ExamplesTest.py PROMTOOL
"""
import json
import pathlib
import re
import subprocess
import sys
import unittest

from examples import DASHBOARD, FOLDER, RULES, TEST, metrics_of_dashboard, metrics_of_rules

PROMTOOL = sys.argv.pop()
sys.path.insert(0, str(FOLDER.parent.parent / "doc/man"))
from pages import Page  # noqa: E402


def promtool(*arguments):
    done = subprocess.run((PROMTOOL, *map(str, arguments)), stdin=subprocess.DEVNULL, text=True,
                          timeout=60, check=False, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT)
    return done.returncode, done.stdout


def alerts_in(path, key):
    return re.findall(rf"^ +(?:- )?{key}: (\w+)$", pathlib.Path(path).read_text("utf-8"), re.M)


class ExamplesTest(unittest.TestCase):
    def test_promtool_accepts_the_rules(self):
        status, text = promtool("check", "rules", RULES)
        self.assertEqual(0, status, text)
        self.assertIn(f"SUCCESS: {len(alerts_in(RULES, 'alert'))} rules found", text)

    def test_each_alert_fires_where_it_should(self):
        status, text = promtool("test", "rules", TEST)
        self.assertEqual(0, status, text)

    def test_each_alert_is_tested(self):
        alerts = alerts_in(RULES, "alert")
        self.assertGreater(len(alerts), 10)
        self.assertEqual(set(alerts), set(alerts_in(TEST, "alertname")))

    def test_the_rules_name_metrics_of_the_manual(self):
        self.assertEqual(set(), metrics_of_rules() - set(Page("igmpq-web.1").metrics()))

    def test_the_dashboard_names_metrics_of_the_manual(self):
        named = metrics_of_dashboard()
        self.assertGreater(len(named), 15)
        self.assertEqual(set(), named - set(Page("igmpq-web.1").metrics()))

    def test_panels_of_the_dashboard_do_not_overlap(self):
        seen = set()
        for panel in json.loads(DASHBOARD.read_text("utf-8"))["panels"]:
            place = panel["gridPos"]
            cells = {(x, y) for x in range(place["x"], place["x"] + place["w"])
                     for y in range(place["y"], place["y"] + place["h"])}
            self.assertEqual(set(), cells & seen, panel["title"])
            self.assertLessEqual(place["x"] + place["w"], 24)
            seen |= cells


if __name__ == "__main__":
    unittest.main()
