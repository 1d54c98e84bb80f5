"""The shells offer the words that the command's help lists and that the agent returns.

    python3 CompletionTest.py IGMPQ bash|zsh
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

from shells import Bash, Zsh

SHELL = {"bash": Bash, "zsh": Zsh}[sys.argv.pop()]
COMMAND = pathlib.Path(sys.argv.pop()).resolve()

# The command under test, with an agent that has interfaces which no machine has.
PROGRAM = f"""#!/bin/sh
case "$*" in
  *--help*) exec {COMMAND} "$@" ;;
  "get --complete config/ --socket {{other}}") echo config/other0 ;;
  "get --complete config/") printf 'config/%s\\n' quer0 quer1 ;;
  "get --complete status/quer0/group[") echo 'status/quer0/group[239.1.1.1]' ;;
  "get --complete status/quer0/") printf 'status/quer0/%s\\n' group state ;;
  "trace --handles --json") echo '[{{"name":"IgmpPacket","level":3}},{{"name":"Other"}}]' ;;
  types*) exec {COMMAND} "$@" ;;
  *) exit 1 ;;
esac
"""


def igmpq(*arguments):
    return subprocess.run([COMMAND, *arguments], capture_output=True, text=True, timeout=60,
                          check=True).stdout


def verbs():
    return set(re.findall(r"^  (\w+) ", igmpq("--help").partition("Subcommands:")[2], re.M))


def long_options(verb):
    everything = subprocess.run([COMMAND, verb, "--help-all"], capture_output=True, text=True,
                                timeout=60, check=False)
    text = everything.stdout if everything.returncode == 0 else igmpq(verb, "--help")
    return set(re.findall(r"^  (?:-h,)?(--[a-z0-9-]+)", text, re.M))


def machine_interfaces():
    return set(os.listdir("/sys/class/net")) - {"lo"}


class CompletionTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.scratch.cleanup)
        top = pathlib.Path(cls.scratch.name)
        folder = top / "here"
        (folder / "captures").mkdir(parents=True)
        for name in ("capture.pcap", "other.sock"): (folder / name).touch()
        cls.program = top / "igmpq"
        cls.program.write_text(PROGRAM.replace("{other}", "other.sock"), "utf-8")
        cls.program.chmod(0o755)
        cls.environment = {"PATH": f"{top}:{os.environ['PATH']}", "HOME": str(top),
                           "LC_ALL": "C.UTF-8", "IGMPQ_COMPLETION_TIMEOUT": "60"}
        cls.folder = folder
        cls.shell = SHELL(cls.environment, folder)
        cls.addClassCleanup(cls.shell.close)

    def offered(self, line):
        return {offer.removesuffix("/") for offer in self.shell.offered(line)}

    def expect(self, line, *offers):
        self.assertEqual(set(offers), self.offered(line), line)

    def test_verbs(self):
        found = {offer for offer in self.offered("igmpq ") if not offer.startswith("-")}
        self.assertEqual(verbs(), found)
        self.assertIn("run", found)
        self.expect("igmpq wat", "watch")
        self.expect("igmpq --v", "--version")

    def test_options_of_each_verb_are_those_of_its_help(self):
        for verb in sorted(verbs()):
            self.expect(f"igmpq {verb} --", *long_options(verb))
        self.expect("igmpq show all --js", "--json")

    def test_enumerated_values(self):
        self.expect("igmpq run --send-query ", "on", "off")
        self.expect("igmpq run --send-query=of", "off")
        self.expect("igmpq replay --querier-version ", "1", "2", "3")
        self.expect("igmpq run --robustness ")

    def test_interfaces_are_those_of_the_machine_for_run_and_those_of_the_agent_otherwise(self):
        self.assertEqual(machine_interfaces(), self.offered("igmpq run "))
        self.expect("igmpq watch ", "quer0", "quer1")
        self.expect("igmpq watch --json quer0 ", "quer0", "quer1")
        self.expect("igmpq set ", "quer0", "quer1")
        self.expect("igmpq show groups ", "quer0", "quer1")
        self.expect("igmpq call q", "quer0", "quer1")

    def test_the_agent_is_the_one_that_the_line_names(self):
        self.expect("igmpq watch --socket other.sock ", "other0")
        self.expect("igmpq watch --socket=other.sock ", "other0")

    def test_a_store_forgets_interfaces_that_it_has(self):
        self.expect("igmpq store --forget ", "quer0", "quer1")
        self.expect("igmpq store --socket other.sock --forget o", "other0")

    def test_without_an_agent_interfaces_are_those_of_the_machine(self):
        self.assertEqual(machine_interfaces(), self.offered("igmpq watch --socket no.sock "))

    def test_parts_of_the_state(self):
        parts = {"interfaces", "groups", "sources", "counters", "config", "all"}
        self.expect("igmpq show ", *parts, "quer0", "quer1")
        for part in parts:
            # With a known part the command goes on to connect to an agent.
            done = subprocess.run([COMMAND, "show", part, "--socket", "/nonexistent/a.sock"],
                                  capture_output=True, timeout=60, check=False)
            self.assertEqual(1, done.returncode)

    def test_settings_and_their_values(self):
        names = re.search(r"ATTRIBUTE is one of (.*?);", igmpq("set", "--help"))[1].split(", ")
        found = {offer.removesuffix("=") for offer in self.offered("igmpq set quer0 ")}
        self.assertEqual(set(names), found)
        self.expect("igmpq set quer0 sendQuery=", "on", "off")
        self.expect("igmpq set quer0 add-random-delay-to-timer=o", "on", "off")
        self.expect("igmpq set quer0 sendQuery=on querierVersion=", "1", "2", "3")
        self.expect("igmpq set quer0 robustness=")

    def test_files(self):
        self.expect("igmpq replay ca", "captures", "capture.pcap")
        self.expect("igmpq replay --scenario o", "other.sock")
        self.expect("igmpq show --socket oth", "other.sock")

    def test_paths(self):
        self.expect("igmpq get config/", "config/quer0", "config/quer1")
        self.expect("igmpq get status/quer0/", "status/quer0/group", "status/quer0/state")
        found = self.offered("igmpq get 'status/quer0/group[")
        self.assertEqual({"status/quer0/group[239.1.1.1]"},
                         {offer.replace("\\", "") for offer in found})

    def test_an_unknown_verb_has_only_the_options_of_the_command(self):
        for line in ("igmpq nosuch ", "igmpq nosuch --", "igmpq 'a[*' ", "igmpq set quer0 'x[|/=o"):
            self.assertLessEqual(self.offered(line), {"-h", "--help", "--version"}, line)

    @unittest.skipUnless("trace" in verbs(), "no verb trace")
    def test_handles_and_levels_of_traces(self):
        self.expect("igmpq trace --handle ", "IgmpPacket", "Other")
        self.expect("igmpq trace --level ", *map(str, range(-1, 10)))

    @unittest.skipUnless("call" in verbs(), "no verb call")
    def test_operations(self):
        self.expect("igmpq call quer0 ", "clearCounters", "becomeQuerier", "handleInitialized")

    @unittest.skipUnless("types" in verbs(), "no verb types")
    def test_types(self):
        found = self.offered("igmpq types Gmp::Igmp::QuerierStat")
        self.assertEqual({"QuerierStatus", "QuerierState"},
                         {offer.rpartition(":")[2] for offer in found})
        self.assertEqual(set(), self.offered("igmpq types Ilvo"))

    @unittest.skipUnless(SHELL is Bash, "only bash takes words apart")
    def test_words_that_are_not_taken_apart_are_offered_whole(self):
        self.assertEqual({"sendQuery=off"},
                         self.shell.offered("igmpq set quer0 sendQuery=of", breaks=" \t\n"))


if __name__ == "__main__":
    unittest.main()
