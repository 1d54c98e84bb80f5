"""A thousand random edits of a configuration that is read again after each, under traffic.

The settings that hold are compared with those of a model.
"""
import json
import random
import sys
import time

from configured import GROUPS, ReloadTestCase
from settings_model import CONTRADICTORY, Draft, Model, Section, as_json
from testcase import main

SEED = 14
EDITS = 1000
LINKS = ("keep0", "a0", "a1", "b0", "b1")
FIXED = {"robustness": 3, "query-interval": 1000, "query-response-interval": 5,
         "startup-query-interval": 20, "last-member-query-interval": 1,
         "last-member-query-count": 2, "max-groups": 1000, "report-new-queriers": True,
         "permitted-queriers": (), "boundary": ()}
# Each makes a valid file invalid, and has the words of the fault.
BREAKS = (
    (lambda text: text + "\n[defaults\n", "error while parsing"),
    (lambda text: text + '\n[[interface]]\nname = "x0"\nrobustness = 8\n', "must be from 1 to 7"),
    (lambda text: text + '\n[[interface]]\nname = "x0"\nqurey-interval = 60\n',
     "is it query-interval?"),
    (lambda text: text + '\n[[interface]]\nname = "x0"\nquery-interval = 20\n'
                         "query-response-interval = 20\n", "must be less than"),
    (lambda text: text + '\n[[interface]]\nname = "keep0"\n', "keep0 has a section already"),
    (lambda text: text + '\n[[interface]]\nname = "x0"\nboundary = "239.0.0.0/8"\n',
     "must be a list"),
    (lambda text: text + "\n[other]\n", "other is no section"),
    (lambda text: text.replace("[agent]", '[agent]\nread-group = "no such group"'),
     "there is no group of that name"),
    (lambda text: "", "the configuration names no interface"),
    (lambda text: text + "\n# \udcff\n", "invalid"),
)


class RandomEditsTest(ReloadTestCase):
    OPTIONS = ("--max-group-records", "99", "--queries")

    def setUp(self):
        super().setUp()
        self.random = random.Random(SEED)
        for name in LINKS: self.add_link(name)
        self.present = set(LINKS)
        fixed = Section("[[interface]]", "keep0")
        fixed.values = dict(FIXED)
        self.draft = Draft(self.random, fixed, ("a*", "b?", "?1", "a0", "b1", "c0", "nothing*"))
        self.model = Model(given={"max-group-records": 99})
        self.spans = []  # (begin, end, interfaces that came or went)

    def test_a_thousand_random_edits_under_traffic(self):
        print(f"seed {SEED}", file=sys.stderr)
        self.good = self.draft.text()
        self.write(self.good)
        self.assertTrue(self.model.read(self.file, self.draft, self.present))
        self.querier = self.start(*self.OPTIONS)
        self.agent = self.requests(self.querier)
        self.send_traffic(*LINKS)
        self.wait_groups(self.querier, "keep0")
        for edit in range(EDITS):
            try:
                self.edit_once(edit)
            except AssertionError as error:
                text = self.file.read_text("utf-8", "replace")
                raise AssertionError(f"edit {edit}: {error}\n{text}") from None
        self.check_groups()
        self.check_fresh_agent()

    def edit_once(self, edit):
        chance = self.random.random()
        if chance < 0.25:
            self.break_file()
        elif chance < 0.3:
            self.set_at_run_time()
        else:
            if chance < 0.34: self.move_link()
            self.draft.edit()
            self.reload_draft()
        self.check_settings(with_command=edit % 20 == 0)

    def reload_draft(self):
        text = self.draft.text()
        self.write(text)
        begin = time.monotonic()
        changes = self.agent.reload()
        faults = [change for change in changes if change["change"] == "fault"]
        if self.model.read(self.file, self.draft, self.present):
            self.assertEqual([], faults)
            self.spans.append((begin, time.monotonic(), self.model.touched))
            restart = {each["setting"] for each in changes if each["change"] == "needsRestart"}
            self.assertEqual(self.draft.restart_keys(), restart)
            self.good = text
        else:
            self.assertTrue(faults)
            for fault in faults: self.assertIn("was set at run time", fault["text"])

    def break_file(self):
        damage, words = self.random.choice(BREAKS)
        self.write(damage(self.draft.text()))
        changes = self.agent.reload()
        self.assertEqual({"fault"}, {change["change"] for change in changes})
        self.assertIn(words.lower(), " ".join(change["text"] for change in changes).lower())

    def set_at_run_time(self):
        names = [name for name in self.model.wanted if name != "keep0"]
        if not names: return
        name = self.random.choice(names)
        key, least, most = CONTRADICTORY
        value = self.random.choice((least, most, self.random.randrange(1, 8)))
        if value < 8: key = "robustness"
        done = self.igmpq("set", name, f"{key}={value}", "--socket", self.querier.socket)
        interval = self.model.interface(name)["queryIntervalSeconds"][0]
        fits = key == "robustness" or value < interval
        self.assertEqual(0 if fits else 2, done.returncode, done.stderr)
        if fits: self.model.set_at_run_time(name, key, value)

    def move_link(self):
        """One that comes is found by the next reload; one that goes and is named stays."""
        name = self.random.choice(LINKS[1:])
        begin = time.monotonic()
        if name in self.present:
            self.delete_link(name)
            self.present.remove(name)
        else:
            self.add_link(name)
            self.present.add(name)
        self.spans.append((begin, time.monotonic(), {name}))

    def check_settings(self, with_command):
        found = self.agent.settings()
        self.assertEqual(set(self.model.wanted), set(found) - {""})
        self.check_agent(found[""])
        for name in self.model.wanted: self.check_interface(name, found[name])
        if not with_command: return
        done = self.igmpq("show", "config", "--json", "--socket", self.querier.socket)
        shown = {each["interface"] or "": each for each in json.loads(done.stdout)}
        self.assertEqual(set(found), set(shown))
        for name, settings in found.items():
            for key, (value, origin) in settings.items():
                self.assertEqual((value, origin), (shown[name][key], shown[name]["origins"][key]))

    def check_interface(self, name, found):
        expected = self.model.interface(name)
        self.assertEqual(expected, {key: found[key] for key in expected}, name)
        others = {origin for key, (_, origin) in found.items() if key not in expected}
        self.assertEqual({"default", None}, others)  # what follows from others has none

    def check_agent(self, found):
        expected = as_json(self.model.agent)
        # `Querier` gives an event rate, and a socket.
        expected["eventRate"] = (0, "command line")
        self.assertEqual(expected, {key: found[key] for key in expected})

    def check_groups(self):
        """Groups ended only where an interface was taken away, and nothing asked again."""
        left = self.querier.seen("groupLeft")
        self.assertGreater(len(left), 10)  # few where edits are fast
        for event in left:
            self.assertTrue(any(begin <= event["time"] <= end + 1 and event["interface"] in names
                                for begin, end, names in self.spans), event)
        self.assertEqual([], self.querier.seen("groupLeft", interface="keep0"))
        queries = self.querier.seen("querySent", interface="keep0")
        self.assertLessEqual(len(queries), 2)  # those at the start
        groups = self.igmpq("show", "groups", "keep0", "--json", "--socket", self.querier.socket)
        self.assertEqual(GROUPS, len(json.loads(groups.stdout)))

    def check_fresh_agent(self):
        self.write(self.good)
        self.agent.reload()
        running = self.agent.settings()
        self.assertEqual(0, self.querier.stop())
        fresh = self.requests(self.start(*self.OPTIONS, number=2)).settings()
        self.assertEqual(set(running), set(fresh))
        for name, settings in fresh.items():
            for key, (value, origin) in settings.items():
                if name and running[name][key][1] == "set at run time": continue
                if key in ("socket", "ringSize", "events"): continue  # taken at the start only
                self.assertEqual((value, origin), running[name][key], f"{name} {key}")


if __name__ == "__main__":
    main()
