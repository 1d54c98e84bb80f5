"""A reader that shares no code with igmpq sees in the agent's log what `igmpq show` shows."""
import json
import pathlib
import subprocess
import sys

from lab import wait_until
from querier import Querier, program
from testcase import QUIET, LabTestCase, main

DECODER = pathlib.Path(__file__).resolve().parent.parent / "test/attrlog/decode.py"
QUIET_3 = (*QUIET[:-1], "3")
OLD, WANTED, UNWANTED, GONE = "239.1.1.1", "232.1.1.1", "239.1.1.3", "239.1.1.4"
SENDERS = ("10.0.0.5", "10.0.0.6")

ROLES = ("initial", "querier", "nonQuerier")
FILTER_MODES = ("exclude", "include")
NOBODY = "0.0.0.0"


def never(seconds):
    return seconds in (0, "infinity")


class Shown:
    """Fields of `igmpq show --json`; `take` removes a field, so that none is forgotten."""

    def __init__(self, test, fields, path, now):
        self.test, self.fields, self.path, self.now = test, dict(fields), path, now

    def take(self, name):
        self.test.assertIn(name, self.fields, self.path)
        return self.fields.pop(name)

    def is_equal(self, name, wanted):
        self.test.assertEqual(wanted, self.take(name), f"{self.path}.{name}")

    def is_time(self, name, wanted):
        """An absolute time, shown as seconds from now or since then."""
        shown = self.take(name)
        if wanted is None:
            self.test.assertIsNone(shown, f"{self.path}.{name}")
        else:
            self.test.assertAlmostEqual(wanted, shown, 2, f"{self.path}.{name}")

    def is_left(self, name, expiry):
        self.is_time(name, None if never(expiry) else expiry - self.now)

    def all_taken(self):
        self.test.assertEqual({}, self.fields, self.path)


class DecoderTest(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router, self.host = self.lab.station(1), self.lab.station(11)
        self.old = self.lab.station(12, 2)
        self.querier = Querier(self.router, *QUIET_3)
        self.querier.expect("role", role="querier")

    def output_of(self, *command):
        done = subprocess.run(command, capture_output=True, text=True, timeout=20, check=False)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        return json.loads(done.stdout)

    def decoded(self):
        return self.output_of(sys.executable, DECODER, self.querier.socket)

    def show(self, part):
        return self.output_of(program(), "show", part, "--json", "--socket", self.querier.socket)

    def decoded_and_shown(self):
        """Both views of a state that no longer changes."""
        for station in (self.host, self.old): station.cut()
        seen = []

        def unchanged():
            before = self.decoded()
            seen[:] = before, self.show("all"), self.show("config")
            return self.decoded() == before
        wait_until(unchanged, 30, "all that was received to be handled")
        return seen

    def change_everything(self):
        """Makes groups and sources of every kind; some of them end again."""
        self.host.join(WANTED, SENDERS[0])
        self.host.join(WANTED, SENDERS[1])
        self.querier.expect("sourceJoined", group=WANTED, source=SENDERS[1])
        self.host.join(UNWANTED)
        self.host.block(UNWANTED, SENDERS[0])
        self.querier.expect("sourceExcluded", group=UNWANTED, source=SENDERS[0])
        self.old.join(OLD)
        self.querier.expect("groupJoined", group=OLD, compatibilityMode=2)
        self.old.join(GONE)
        self.querier.expect("groupJoined", group=GONE)
        self.old.leave(GONE)
        self.querier.expect("groupLeft", group=GONE)

    def compare(self, decoded, shown, config):
        self.assertEqual({"eth0"}, set(decoded))
        self.assertEqual(1, len(shown["interfaces"]))
        status = decoded["eth0"]["status"]
        interface = Shown(self, shown["interfaces"][0], "eth0", shown["time"])
        interface.is_equal("interface", decoded["eth0"]["config"]["name"])
        interface.is_equal("role", ROLES[status.pop("state")])
        interface.is_equal("querier", status.pop("electedQuerierAddr"))
        interface.is_equal("querierVersion", status.pop("querierVersion"))
        interface.is_equal("robustness", status.pop("robustness"))
        interface.is_equal("queryIntervalSeconds", status.pop("queryInterval"))
        interface.is_equal("queryResponseIntervalSeconds", status.pop("queryResponseInterval"))
        interface.is_left("nextQuerySeconds", status.pop("generalQueryExpiryTime"))
        interface.is_left("otherQuerierExpirySeconds", status.pop("otherQuerierExpiryTime"))
        groups = status.pop("group")
        interface.is_equal("groupCount", len(groups))
        self.compare_groups(groups, interface)
        # These are not shown.
        for name in ("creationTime", "startupQueryInterval"): status.pop(name)
        state = decoded["eth0"]["interface"]
        self.assertEqual("eth0", state.pop("name"))
        interface.is_equal("address", state.pop("address"))
        interface.is_equal("running", state.pop("running"))
        interface.is_time("querierUpSeconds", interface.now - state.pop("electedTime"))
        # A first agent takes nothing over; the rest is for a later one to know the interface by.
        for name in ("takenOverTime", "takenOverGroups"): self.assertEqual(0, state.pop(name))
        for name in ("takenOverSeconds", "takenOverGroups"): interface.is_equal(name, None)
        self.assertEqual("02:00:00:00:00:01", state.pop("mac"))
        self.assertLess(0, state.pop("index"))
        intake = decoded["eth0"]["intakeStatus"]
        self.assertEqual("eth0", intake.pop("name"))
        # The counters of the querier, of its port and of its intake are shown as one.
        interface.is_equal("counters", {**status, **state, **intake})
        intake_config = decoded["eth0"]["intakeConfig"]
        interface.is_equal("listenOnly", intake_config["listenOnly"])
        interface.all_taken()
        self.compare_config({**decoded["eth0"]["config"], **intake_config}, config)

    def compare_groups(self, groups, interface):
        shown = {group["group"]: group for group in interface.take("groups")}
        self.assertEqual(sorted(groups), sorted(shown))
        for address, decoded in groups.items():
            group = Shown(self, shown[address], address, interface.now)
            group.is_equal("group", address)
            group.is_equal("filterMode", FILTER_MODES[decoded["filterMode"]])
            group.is_equal("compatibilityMode", decoded["compatibilityMode"])
            group.is_equal("lastReporter", decoded["lastReporter"])
            group.is_time("upSeconds", group.now - decoded["creationTime"])
            group.is_left("timeLeftSeconds", decoded["expiryTime"])
            self.compare_sources(decoded, group)
            group.all_taken()

    def compare_sources(self, decoded_group, group):
        exclude = FILTER_MODES[decoded_group["filterMode"]] == "exclude"
        shown = {source["source"]: source for source in group.take("sources")}
        self.assertEqual(sorted(decoded_group["source"]), sorted(shown))
        for address, decoded in decoded_group["source"].items():
            source = Shown(self, shown[address], f"{group.path}/{address}", group.now)
            source.is_equal("source", address)
            source.is_equal("excluded", exclude and decoded["expired"])
            source.is_time("upSeconds", source.now - decoded["creationTime"])
            source.is_left("timeLeftSeconds", decoded["expiryTime"])
            source.all_taken()

    def compare_config(self, decoded, shown):
        self.assertEqual(["eth0", None], [each["interface"] for each in shown])
        config = Shown(self, shown[0], "config", 0)
        config.is_equal("interface", decoded.pop("name"))
        config.is_equal("lastMemberQueryTimeSeconds",
                        decoded["lastMemberQueryCount"] * decoded["lastMemberQueryInterval"])
        for name in ("permittedQueriers", "acceptedGroups"): decoded[name] = decoded[name] or "all"
        for name in ("maxProcessGroups", "maxProcessSources", "boundary", "origins"):
            config.take(name)
        for name, value in decoded.items():
            config.is_equal(name + "Seconds" * name.endswith("Interval"), value)
        config.all_taken()

    def test_whole_state_of_a_running_agent(self):
        self.change_everything()
        decoded, shown, config = self.decoded_and_shown()
        groups = decoded["eth0"]["status"]["group"]
        self.assertEqual(sorted((OLD, WANTED, UNWANTED)), sorted(groups))
        self.assertEqual(set(SENDERS), set(groups[WANTED]["source"]))
        self.compare(decoded, shown, config)

    def test_changes_followed_from_the_beginning(self):
        follower = self.lab.spawn(self.router.namespace, sys.executable, DECODER, "--follow",
                                  self.querier.socket, stdout=subprocess.PIPE)
        lines = []
        reading = self.lab.read(follower.stdout, lines.append)
        wait_until(lambda: '{"frame": "current"}\n' in lines, 10, "the follower to be current")
        current = len(lines)
        self.change_everything()
        done = subprocess.run((program(), "set", "eth0", "robustness=3", "queryInterval=900",
                               "--socket", self.querier.socket), capture_output=True, text=True,
                              timeout=20, check=False)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        _, shown, config = self.decoded_and_shown()
        self.assertEqual(0, self.querier.stop())  # ends the log
        self.assertEqual(0, follower.wait(10))
        reading.join(10)
        self.assertGreater(len(lines) - current, 20)
        self.compare(json.loads(lines[-1])["state"], shown, config)


if __name__ == "__main__":
    main()
