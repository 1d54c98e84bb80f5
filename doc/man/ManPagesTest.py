"""The manual pages render without a warning, and say what the command and the headers say.

    python3 ManPagesTest.py IGMPQ
"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from pages import ROOT, Page, all_pages, compact

COMMAND = pathlib.Path(sys.argv.pop()).resolve()


def run(command, **options):
    return subprocess.run(command, stdin=subprocess.DEVNULL, text=True, timeout=60, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)


def igmpq(*arguments):
    return run([COMMAND, *arguments]).stdout


def verbs():
    return re.findall(r"^  (\w+) ", igmpq("--help").partition("Subcommands:")[2], re.MULTILINE)


def help_of(verb):
    everything = run([COMMAND, verb, "--help-all"])
    return everything.stdout if everything.returncode == 0 else igmpq(verb, "--help")


def help_options(verb):
    """What the help lists: {"--seed": ("N", "0")} with the value's name and its default."""
    text = re.sub(r"\n+Intake:", "", help_of(verb).partition("\nOptions:\n")[2])
    text = text.partition("\n\n")[0]
    found = {}
    text = re.sub(r" (?:Excludes|Needs): \S+", "  ", text)
    for option in re.split(r"\n(?=  -)", text.rstrip("\n")):
        names, value = re.match(r"\s*(-\S+)(?: ([^\s=]+\S*))?", option).groups()
        value, _, default = (value or "").partition("=")
        if not default:
            default = "".join(re.findall(r"\(([\w.]+)\)$", option))
        for name in names.split(","):
            found[name] = (value, default)
    return found


def verb_pages():
    return [(verb, Page(f"igmpq-{verb}.1")) for verb in verbs()]


def range_of(*arguments):
    """What a value must be, as the command says of one that is not."""
    return "".join(re.findall(r"must be (.*)\n", igmpq(*arguments)))


class RenderingTest(unittest.TestCase):
    def test_man_has_no_warning(self):
        environment = os.environ | {"LC_ALL": "C.UTF-8", "MANWIDTH": "80", "MANROFFSEQ": ""}
        for name in all_pages():
            with self.subTest(name), Page(name).path.open() as page:
                done = subprocess.run(
                    ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", "-"], stdin=page,
                    capture_output=True, text=True, timeout=60, check=False, env=environment)
                self.assertEqual((0, ""), (done.returncode, done.stderr))
                self.assertGreater(len(done.stdout), 1000)

    def test_mandoc_has_no_warning(self):
        for name in all_pages():
            with self.subTest(name):
                done = run(["mandoc", "-T", "lint", "-W", "warning", Page(name).path])
                self.assertEqual((0, ""), (done.returncode, done.stdout))

    def test_each_page_bears_its_own_name(self):
        for name in all_pages():
            stem, section = name.rsplit(".", 1)
            lines = Page(name).lines
            self.assertIn(f".Dt {stem.upper()} {section}", lines, name)
            self.assertIn(f".Nm {stem}", lines, name)

    def test_references_lead_to_pages(self):
        pages = {tuple(name.rsplit(".", 1)) for name in all_pages()}
        for name in all_pages():
            for reference in Page(name).references():
                ours = reference[0].startswith(("igmpq", "gmp")) or reference[0].endswith("Factory")
                if ours: self.assertIn(reference, pages, name)


class VerbTest(unittest.TestCase):
    def test_each_verb_has_a_page_and_each_page_a_verb(self):
        self.assertIn("run", verbs())
        pages = {name.removeprefix("igmpq-").removesuffix(".1")
                 for name in all_pages() if re.fullmatch(r"igmpq-\w+\.1", name)}
        self.assertEqual(set(), set(verbs()) - pages)
        self.assertEqual(set(), pages - set(verbs()))
        overview = {name for name, section in Page("igmpq.1").references() if section == "1"}
        self.assertEqual({f"igmpq-{verb}" for verb in pages}, overview)

    def test_the_tables_of_the_readmes_have_every_verb(self):
        for name in ("README.md", "igmpq/README.md"):
            rows = re.findall(r"^\| (`\w+`(?:, `\w+`)*) \|", (ROOT / name).read_text("utf-8"), re.M)
            self.assertEqual(sorted(verbs()), sorted(re.findall(r"\w+", " ".join(rows))), name)

    def test_a_page_has_the_options_of_its_verb_and_no_others(self):
        for verb, page in verb_pages():
            described = {name: option.value for name, option in page.options().items()}
            self.assertEqual({name: value for name, (value, _) in help_options(verb).items()},
                             described, verb)

    def test_no_page_mentions_an_option_that_no_verb_has(self):
        known = {"-h", "--help", "--version"}.union(
            *(Page(name).options() for name in all_pages() if re.fullmatch(r"igmpq-\w+\.1", name)))
        for name in all_pages():
            self.assertEqual(set(), Page(name).flags_mentioned() - known, name)

    def test_defaults_are_those_of_the_help(self):
        seen = 0
        for verb, page in verb_pages():
            described = page.options()
            for name, (_, default) in help_options(verb).items():
                if not default or name in ("--socket", "--agent"): continue
                self.assertIn(f"The default is {default}. ", described[name].text, f"{verb} {name}")
                seen += 1
        self.assertGreaterEqual(seen, 20)

    def test_ranges_are_those_that_the_command_holds_to(self):
        seen = 0
        for verb, page in verb_pages():
            described = page.options()
            for name, (value, _) in help_options(verb).items():
                if value not in ("N", "SECONDS") and "|" not in value: continue
                # The verb must not run, not even if it takes the value.
                must = range_of(verb, f"{name}=!", "--no-such-option")
                for part in re.findall(r"from [-\d.]+ to [\d.]+|RFC \d+ [\d.]+\d", must):
                    self.assertIn(part, described[name].text.replace("From ", "from "),
                                  f"{verb} {name}")
                    seen += 1
        self.assertGreaterEqual(seen, 30)

    def test_settings_are_listed_with_their_ranges(self):
        names = re.search(r"ATTRIBUTE is one of (.*?);", igmpq("set", "--help"))[1].split(", ")
        listed = {row[0]: row[1:] for row in Page("igmpq-set.1").rows("Attribute")}
        intake = Page("igmpq-intake.7").rows("Setting") + Page("igmpq-intake.7").rows("Process")
        self.assertEqual(sorted(names), sorted([*listed, *(row[0] for row in intake)]))
        for name in listed:
            must = range_of("set", "eth0", f"{name}=!")
            self.assertNotEqual("", must, name)
            part = re.search(r"from [\d.]+ to [\d.]+|on or off", must)[0]
            self.assertTrue(listed[name][0].endswith(part), f"{name}: {listed[name]}: {must}")
            if "RFC" in listed[name][1] and "RFC" in must: self.assertIn(listed[name][1], must)
        scenario = {row[0] for row in Page("igmpq-scenario.5").rows("Attribute")}
        stored = set(listed) - {"immediateLeave"}
        self.assertEqual(stored, scenario)
        factory = {row[0] for row in Page("querierConfigFactory.3").rows("Attribute")}
        self.assertEqual(stored, factory)

    def test_operations_are_those_of_a_querier(self):
        [machine] = json.loads(run([COMMAND, "types", "QuerierSm", "--json"]).stdout)
        operations = [attribute["name"] for attribute in machine["attributes"]
                      if attribute["kind"] == "operation" and attribute["parameter"] is None]
        page = "\n".join(Page("igmpq-call.1").section("DESCRIPTION"))
        self.assertEqual(sorted(operations), sorted(re.findall(r"^\.It Cm (\w+)$", page, re.M)))


class ExampleTest(unittest.TestCase):
    """What a page shows to be done without an agent is done, and must write what the page shows."""

    def test_examples_write_what_the_pages_show(self):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            shutil.copy(ROOT / "lab/captures/demo.pcap", folder)
            scenario = next(block for block in Page("igmpq-scenario.5").literals()
                            if '"op"' in block[1])
            (folder / "join.scenario").write_text("\n".join(scenario) + "\n", "utf-8")
            (folder / "igmpq").symlink_to(COMMAND)
            ran = sum(self.run_examples_of(page, folder) for page in all_pages())
            self.assertGreaterEqual(ran, 4)

    def run_examples_of(self, page, folder):
        ran = 0
        for command, shown in Page(page).examples():
            path = f"{folder}:{os.environ['PATH']}"
            written = run(["bash", "-c", command], cwd=folder, env=os.environ | {"PATH": path})
            if shown:
                self.assertTrue(matches(written.stdout.splitlines(), shown),
                                f"{page}: {command} writes\n{written.stdout}")
            else:
                self.assertEqual(0, written.returncode, f"{page}: {command}: {written.stdout}")
            ran += 1
        return ran


def matches(written, shown):
    """Whether the lines are those shown, where a line of dots stands for any number of them."""
    pattern = "".join(r"(?:.*\n)*" if line == "..." else re.escape(line) + r"\n" for line in shown)
    return re.fullmatch(pattern, "".join(line + "\n" for line in written)) is not None


class FormatTest(unittest.TestCase):
    def test_steps_of_a_scenario_are_known_and_all_are_there(self):
        page = "\n".join(Page("igmpq-scenario.5").section("Steps"))
        described = re.findall(r"^\.It Cm (\w+)$", page, re.M)
        document = (ROOT / "doc/scenario-format.md").read_text("utf-8")
        self.assertEqual(sorted(set(re.findall(r"^\*\*`(\w+)`\*\*", document.partition(
            "## Observations")[0], re.M))), sorted(described))
        for step in described:
            error = run(["bash", "-c", f"""echo '{{"at": 1, "op": "{step}"}}' | "$0" """
                        "replay --scenario -", COMMAND]).stdout
            self.assertNotIn("unknown op", error)

    def test_the_attribute_log_has_the_tables_of_its_document(self):
        document = (ROOT / "doc/attribute-log.md").read_text("utf-8")
        page = Page("igmpq-attribute-log.5")
        types = re.findall(r"^### (\S+)\n(.*?)(?=^#)", document, re.M | re.S)
        self.assertEqual(11, len(types))
        for name, text in types:
            rows = [line.strip("| ").split(" | ")[:4] for line in text.splitlines()
                    if re.match(r"\| \d", line)]
            rows = [[*row[:3], row[3].rpartition("::")[2].strip(" |")] for row in rows]
            self.assertEqual(rows, [line.removeprefix(".It ").split(" Ta ")
                                    for line in page.section(name) if re.match(r"\.It \d", line)])
        frames = re.findall(r"^\| (\d+) \| (\w+) \| .* \| (?:both|server) \|$", document, re.M)
        self.assertEqual(12, len(frames))
        self.assertEqual([f".It {number} Li {name}" for number, name in frames],
                         [line for line in page.section("Frames") if line.startswith(".It")])

    def test_each_kind_of_event_is_described_where_it_is_written(self):
        table = (ROOT / "agent/events/EventForms.cpp").read_text("utf-8")
        kinds = re.findall(r"\bRow\{Event::(\w+),", table)
        self.assertGreaterEqual(len(kinds), 19)
        described = [re.findall(r"^\.It Li (\w+)$", "\n".join(Page(name).section("Events")), re.M)
                     for name in ("igmpq-watch.1", "igmpq-run.1")]
        self.assertEqual(sorted(kinds), sorted(described[0] + described[1]))

    def test_the_request_socket_takes_what_the_agent_has_handlers_for(self):
        handlers = (ROOT / "agent/server/RequestHandlers.cpp").read_text("utf-8")
        operations = re.findall(r'^    Row\{"(\w+)", \w+\},$', handlers, re.M)
        self.assertEqual(handlers.count("Row{"), len(operations))
        page = Page("igmpq-request.5")
        self.assertEqual(operations, re.findall(r"^\.It Cm (\w+)$", "\n".join(
            page.section("Requests")), re.M))
        shown = [json.loads(line[3:]) for block in page.literals() for line in block
                 if line.startswith(("-> ", "<- "))]
        self.assertGreaterEqual(len(shown), 10)
        for line in shown:
            if "op" in line: self.assertIn(line["op"], operations)


class IntakeTest(unittest.TestCase):
    HEADERS = ROOT / "agent/intake/include/Intake"
    PAGE = Page("igmpq-intake.7")

    def text_of(self, header):
        return (self.HEADERS / header).read_text("utf-8")

    def rows(self):
        return self.PAGE.rows("Setting") + self.PAGE.rows("Process")

    def test_settings_are_listed_with_their_ranges(self):
        table = re.findall(r'IntakeSetting\{"(\w+)", IntakeValue::(\w+), (\d+), (\d+)',
                           self.text_of("IntakeSettings.h"))
        self.assertGreaterEqual(len(table), 20)
        said = {"flag": "on or off", "prefixes": "prefixes", "number": "{} to {}"}
        self.assertEqual([(name, said[kind].format(least, most))
                          for name, kind, least, most in table],
                         [(row[0], row[1]) for row in self.rows()])

    def test_defaults_are_those_of_the_entities(self):
        text = self.text_of("IntakeConfig.h") + self.text_of("IntakeProcess.h")
        defaults = dict(re.findall(r"^  (?:bool|U32) (\w+)_ = (\w+);", text, re.M))
        said = {"true": "on", "false": "off"}
        seen = 0
        for row in self.rows():
            if row[1] == "prefixes":
                self.assertEqual("all", row[2])
                continue
            self.assertEqual(said.get(defaults[row[0]], defaults[row[0]]), row[2], row[0])
            seen += 1
        self.assertGreaterEqual(seen, 18)

    def test_each_rule_is_there_by_the_name_of_its_counter(self):
        rules = re.findall(r'IntakeRuleName\{\s*IntakeRule::\w+,\s*"(\w+)"',
                           self.text_of("IntakeRule.h"))
        self.assertGreaterEqual(len(rules), 20)
        counters = {row[3] for row in self.rows()}
        self.assertEqual(counters - {r"\-"} | {"ownAddress"}, set(rules))

    def test_each_setting_is_described(self):
        described = set()
        for line in self.PAGE.lines:
            if line.startswith(".It Cm "): described.update(line[7:].split(" , "))
        self.assertEqual({row[0] for row in self.rows()}, described)


class LibraryTest(unittest.TestCase):
    def test_synopses_are_what_the_headers_declare(self):
        headers = ""
        for folder in ("GmpIgmpQuerier", "GmpIgmpQuerierSm", "GmpAttrLogSm", "platform/Obel"):
            for path in sorted((ROOT / folder / "include").rglob("*.h")):
                headers += compact(path.read_text("utf-8"))
        headers = headers.replace("Mox::Seconds", "Seconds")
        seen = 0
        for name in all_pages():
            for function in Page(name).functions():
                self.assertIn(function.replace("Mox::Seconds", "Seconds"), headers, name)
                seen += 1
        self.assertGreaterEqual(seen, 18)


if __name__ == "__main__":
    unittest.main()
