"""The page of `igmpq web` in a browser, beside a real querier with real hosts.

    page_test.py [--pictures FOLDER]    also writes pictures of the page
"""
import http.server
import pathlib
import signal
import subprocess
import sys
import threading
import unittest
import urllib.parse

import browser
from frames import REPORT_V2, frame, igmp, report_v3, send
from lab import wait_until
from querier import Querier, program
from testcase import QUIET, SHORT, LabTestCase, main

GROUP, OTHER, WANTED, SENDER = "239.1.1.1", "239.1.1.2", "232.1.1.1", "10.0.0.5"
SECOND_SENDER = "10.0.0.6"
MANY = 10_000
IS_INCLUDE, IS_EXCLUDE, ALLOW = 1, 2, 5
# A name that Linux takes, and that must not become a part of the page.
MARKUP = "<i>&\"'<b>"
# Audio, video, discovery, market data.
SCENE = (("224.0.1.129", ()), ("232.9.4.1", ("198.51.100.20",)), ("239.69.0.7", ()),
         ("239.69.0.8", ()), ("232.44.0.1", ("192.0.2.10", "192.0.2.11")),
         ("239.255.255.250", ()), ("239.192.17.3", ()))
ENOUGH_CONTRAST = 4.5  # for text of this size (WCAG 2.1, 1.4.3)
WAIT = 60  # seconds at most, where browsers are slow
TAB, ARROW_DOWN, END = "\ue004", "\ue015", "\ue010"
ROWS = "return [...document.querySelectorAll('#groups .row')].map((row) => row.innerText)"
TEXT = "return document.getElementById(arguments[0]).innerText"
# Each text that can be seen, with its contrast to the background behind it.
CONTRASTS = """
const part = (color) => {
  const [r, g, b, a = 1] = color.match(/[\\d.]+/g).map(Number);
  const scaled = color.startsWith("color(") ? [r, g, b] : [r, g, b].map((each) => each / 255);
  return [...scaled, a];
};
const light = ([r, g, b]) => [r, g, b].map((each) =>
    each <= 0.04045 ? each / 12.92 : ((each + 0.055) / 1.055) ** 2.4)
    .reduce((sum, each, at) => sum + each * [0.2126, 0.7152, 0.0722][at], 0);
const behind = (element) => {
  for (; element; element = element.parentElement) {
    const color = part(getComputedStyle(element).backgroundColor);
    if (color[3] === 1) return color;
  }
  return [1, 1, 1];
};
const found = [];
const texts = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
while (texts.nextNode()) {
  const element = texts.currentNode.parentElement;
  if (!texts.currentNode.data.trim() || !element.checkVisibility()) continue;
  const [a, b] = [light(part(getComputedStyle(element).color)), light(behind(element))];
  found.push([texts.currentNode.data.trim(), (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05)]);
}
for (const element of document.querySelectorAll("[placeholder]")) {
  const color = getComputedStyle(element, "::placeholder").color;
  const [a, b] = [light(part(color)), light(behind(element))];
  found.push([element.placeholder, (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05)]);
}
return found;
"""
# Everything that can be used must say what it is.
UNNAMED = """
return [...document.querySelectorAll("input, button, a, [tabindex], [role], table, img")].filter(
    (each) => !each.getAttribute("aria-label") && !each.getAttribute("aria-labelledby") &&
        !each.labels?.length && !each.innerText.trim()).map((each) => each.outerHTML);
"""


class BrokenServer(http.server.ThreadingHTTPServer):
    """In the place of `igmpq web`, as a proxy whose server has gone."""

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            self.server.asked.add(self.path)
            self.send_error(502)

        def log_message(self, *_):
            """Nothing: it would stand between the results."""

    def __init__(self, port):
        super().__init__(("127.0.0.1", port), self.Handler)
        self.asked = set()
        self.thread = threading.Thread(target=self.serve_forever)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.shutdown()
        self.thread.join()
        self.server_close()


class PageTest(LabTestCase):
    pictures = None

    def setUp(self):
        missing = browser.why_not()
        if missing: raise unittest.SkipTest(missing)
        super().setUp()
        self.router = self.lab.station(5)
        self.old, self.new = self.lab.station(11, 2), self.lab.station(12, 3)
        self.querier = self.run_querier()
        self.url = self.serve("127.0.0.1:0")
        self.addCleanup(self.end_web)
        self.browser = browser.Browser()
        self.addCleanup(self.browser.close)
        self.browser.go(self.url)
        self.wait_text("agent", "agent connected")

    def serve(self, address):
        """It needs the agent's socket only, and the browser reaches it here."""
        self.web = subprocess.Popen(
            (program(), "web", "--listen", address, "--socket", self.querier.socket),
            stdout=subprocess.PIPE, text=True)
        return self.web.stdout.readline().split()[1]

    def end_web(self):
        self.web.terminate()
        self.web.wait(10)
        self.web.stdout.close()

    def run_querier(self, *options):
        querier = Querier(self.router, *(options or (*QUIET[:-1], "3")))
        querier.expect("role", role="querier")
        return querier

    def text(self, name):
        return self.browser.script(TEXT, name)

    def wait_text(self, name, text):
        wait_until(lambda: text in self.text(name), WAIT, f"{text} in {name}")

    def rows(self):
        return self.browser.script(ROWS)

    def wait_row(self, *texts):
        wait_until(lambda: any(all(text in row for text in texts) for row in self.rows()), 20,
                   f"a row with {' and '.join(texts)}")

    def picture(self, name):
        if self.pictures is not None: self.browser.picture(self.pictures / f"{name}.png")

    def assert_sound(self):
        """No error in the console, no request beyond the page's own origin."""
        wrong = [entry["message"] for entry in self.browser.log("browser")
                 if entry["level"] == "SEVERE" and "ERR_CONNECTION_REFUSED" not in entry["message"]]
        self.assertEqual([], wrong)
        sent = [entry["message"] for entry in self.browser.log("performance")
                if "Network.requestWillBeSent\"" in entry["message"]]
        self.assertTrue(sent)
        for message in sent:
            url = message.partition('"request":')[2].partition('"url":"')[2].partition('"')[0]
            if url.startswith("data:"): continue
            self.assertEqual(urllib.parse.urlsplit(self.url).netloc,
                             urllib.parse.urlsplit(url).netloc)

    def add_scene(self):
        """Something of everything, also of what goes wrong."""
        send(self.new, (1, frame(self.new.address, OTHER, igmp(REPORT_V2, OTHER), ttl=64)))
        for host, (group, sources) in enumerate(SCENE, 20):
            report = report_v3((IS_INCLUDE if sources else IS_EXCLUDE, group, sources))
            send(self.new, (1, frame(f"10.77.0.{host}", "224.0.0.22", report)))
        self.old.join(GROUP)
        count = len(SCENE) + 1
        wait_until(lambda: self.text("count").strip() == str(count), WAIT, "the groups")
        self.wait_text("problems", "wrongTtl 1")
        self.wait_text("interfaces", f"\t{count}")

    def test_shows_who_joins_and_who_leaves(self):
        self.add_scene()
        self.wait_row(GROUP, "eth0", self.old.address, "v2")
        self.new.join(WANTED, SENDER)
        self.wait_row(WANTED, SENDER, "include")
        self.wait_text("events", f"eth0 joined {WANTED} by {self.new.address} (version 3, include)")
        self.wait_text("interfaces", f"\t{len(SCENE) + 2}")
        self.picture("page")
        self.new.leave(WANTED, SENDER)
        wait_until(lambda: not any(WANTED in row for row in self.rows()), WAIT, "the row to go")
        self.wait_text("events", f"eth0 left {WANTED}")
        self.assert_sound()

    def test_shows_that_another_router_takes_over(self):
        self.wait_text("interfaces", "querier")
        lower = Querier(self.lab.station(1), *SHORT)
        lower.expect("role", role="querier")
        self.wait_text("interfaces", "nonQuerier")
        self.wait_text("problems", "eth0: another router is the querier, 10.77.0.1")
        self.wait_text("problems", "eth0: to look into: newQuerier 1")
        self.wait_text("problems", "eth0: queries of another version are received")
        marked = "return [...document.querySelectorAll('td.new')].map((each) => each.dataset.name)"
        self.assertIn("Role", self.browser.script(marked))
        self.assert_silent_while_times_pass()
        expires = "return document.querySelector('[data-name=\"Other expires\"]').innerText"
        wait_until(lambda: self.browser.script(expires).endswith("s"), WAIT, "the time left of it")
        self.assert_sound()

    def assert_silent_while_times_pass(self):
        """A screen reader reads anew what changes in such an element."""
        self.browser.script("""
            window.said = [];
            const observer = new MutationObserver((all) => window.said.push(
                ...all.map((each) => each.target.textContent)));
            for (const each of document.querySelectorAll("[role=status], [aria-live]"))
                observer.observe(each, {childList: true, characterData: true, subtree: true});""")
        for _ in range(2):
            before = self.text("since")
            wait_until(lambda before=before: self.text("since") != before, WAIT, "the next second")
        self.assertEqual([], self.browser.script("return window.said"))

    def test_a_row_stays_and_shows_what_changes(self):
        self.new.join(WANTED, SENDER)
        self.wait_row(WANTED, SENDER)
        first = "document.querySelector('#groups .row')"
        self.browser.script(f"{first}.isFirst = true")
        self.old.join(GROUP)
        self.wait_row(GROUP)
        send(self.new, (1, frame(self.new.address, "224.0.0.22",
                                 report_v3((ALLOW, WANTED, (SECOND_SENDER,))))))
        self.wait_row(WANTED, SENDER, SECOND_SENDER)
        isFirst, isMarked = self.browser.script(
            f"return [{first}.isFirst, {first}.classList.contains('new')]")
        self.assertTrue(isFirst)
        self.assertTrue(isMarked)

    def test_names_of_others_are_only_text(self):
        self.querier.stop()
        for words in (("down",), ("name", MARKUP), ("up",)):
            self.router.ip("link", "set", MARKUP if words == ("up",) else "eth0", *words)
        self.querier = Querier(self.router, *QUIET, verb=("run", MARKUP))
        self.querier.expect("role", role="querier")
        self.wait_text("interfaces", MARKUP)
        self.router.wait_connected()
        self.old.join(GROUP)
        self.wait_row(GROUP, MARKUP)
        self.wait_text("events", f"{MARKUP} joined {GROUP}")
        self.assertEqual(0, self.browser.script("return document.querySelectorAll('i, b').length"))
        self.assert_sound()

    def test_goes_on_when_the_agent_was_restarted(self):
        self.old.join(GROUP)
        self.wait_row(GROUP)
        self.querier.stop(signal.SIGKILL)
        self.wait_text("agent", "no agent")
        self.wait_text("problems", "this is its last state")
        self.wait_row(GROUP)
        self.querier = self.run_querier()
        self.wait_text("agent", "agent connected")
        self.new.join(OTHER)
        self.wait_row(OTHER, self.new.address)
        self.assert_sound()

    def test_goes_on_when_its_server_was_restarted_behind_a_proxy(self):
        self.end_web()
        address = urllib.parse.urlsplit(self.url)
        self.wait_text("problems", "this page cannot reach its server")
        with BrokenServer(address.port) as broken:
            wait_until(lambda: "/api/v1/events" in broken.asked, WAIT, "the page to ask for events")
        self.serve(address.netloc)
        self.wait_text("agent", "agent connected")
        self.old.join(GROUP)
        self.wait_row(GROUP)

    def test_ten_thousand_groups_are_a_few_rows_in_the_document(self):
        self.add_groups(MANY)
        wait_until(lambda: self.text("count").strip() == str(MANY), 60, "all groups to be counted")
        self.wait_text("interfaces", f"\t{MANY}")
        self.assertLess(len(self.rows()), 100)
        self.assertIn("239.2.0.0", self.rows()[0])
        self.browser.script("document.getElementById('groups').scrollTop = 1e9")
        last = f"239.2.{(MANY - 1) // 256}.{(MANY - 1) % 256}"
        self.wait_row(last)
        self.assertLess(len(self.rows()), 100)
        self.picture("groups")
        self.browser.script("const search = document.getElementById('search');"
                            "search.value = '239.2.7.7';"
                            "search.dispatchEvent(new Event('input'))")
        wait_until(lambda: self.text("count").strip().endswith(f"of {MANY}"), WAIT, "the search")
        self.wait_row("239.2.7.7")
        self.assert_sound()

    def add_groups(self, count):
        """In the reports of one host."""
        records = [(IS_EXCLUDE, f"239.2.{number // 256}.{number % 256}", ())
                   for number in range(count)]
        reports = (report_v3(*records[at:at + 100]) for at in range(0, count, 100))
        send(self.new, *((1, frame(self.new.address, "224.0.0.22", each)) for each in reports))

    def test_can_be_used_with_keys_alone(self):
        for group in (GROUP, OTHER): self.old.join(group)
        for group in (GROUP, OTHER): self.wait_row(group)
        reached = []
        for _ in range(10):
            self.browser.press([TAB])
            reached.append(self.browser.script("return document.activeElement.id"))
            if reached[-1] == "groups": break
        self.assertEqual(["search", "groups"], reached[-2:])
        self.browser.press([ARROW_DOWN])
        self.wait_text("detail", f"{GROUP} on eth0")
        self.browser.press([END])
        self.wait_text("detail", f"{OTHER} on eth0")
        active = self.browser.script(
            "const list = document.getElementById('groups');"
            "return document.getElementById(list.getAttribute('aria-activedescendant')).innerText")
        self.assertIn(OTHER, active)

    def test_everything_is_named_and_can_be_read(self):
        self.add_scene()
        for scheme in ("light", "dark"):
            with self.subTest(scheme):
                self.browser.emulate("Emulation.setEmulatedMedia", features=[
                    {"name": "prefers-color-scheme", "value": scheme},
                    {"name": "prefers-reduced-motion", "value": "reduce"}])
                self.assertEqual([], self.browser.script(UNNAMED))
                contrasts = self.browser.script(CONTRASTS)
                self.assertGreater(len(contrasts), 10)
                self.assertEqual([], [each for each in contrasts if each[1] < ENOUGH_CONTRAST])
                if scheme == "dark": self.picture("dark")

    def test_fits_a_phone(self):
        self.add_scene()
        self.browser.emulate("Emulation.setDeviceMetricsOverride", width=360, height=760,
                             deviceScaleFactor=2, mobile=True)
        wait_until(lambda: self.browser.script("return innerWidth") == 360, WAIT, "the phone")
        wide = self.browser.script("return document.documentElement.scrollWidth")
        self.assertLessEqual(wide, 360)
        cut = "return [...document.querySelectorAll('.wide, .groups, #groups')].map(" \
              "(each) => each.scrollWidth - each.clientWidth)"
        self.assertEqual([0, 0, 0], self.browser.script(cut))
        hidden = "return [...document.querySelectorAll('#groups .row')].filter((row) =>" \
                 " row.firstChild.scrollWidth > row.firstChild.clientWidth).length"
        self.assertEqual(0, self.browser.script(hidden))
        row = next(row for row in self.rows() if GROUP in row)
        for text in ("eth0", self.old.address, "v2"): self.assertIn(text, row)
        self.picture("phone")


if __name__ == "__main__":
    if "--pictures" in sys.argv:
        at = sys.argv.index("--pictures")
        PageTest.pictures = pathlib.Path(sys.argv[at + 1])
        del sys.argv[at:at + 2]
    main()
