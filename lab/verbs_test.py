"""Other processes read and change the state of a running `igmpq run`: show, watch, set."""
import json
import signal

from lab import wait_until
from querier import Querier, as_nobody, run_once
from testcase import QUIET, SHORT, LabTestCase, main

GROUP = "239.1.1.1"
OTHER = "239.1.1.2"
WANTED = "232.1.1.1"
SENDER = "10.0.0.5"
QUIET_3 = (*QUIET[:-1], "3")


class Watch(Querier):
    """`igmpq watch` beside a querier; its events are read in the same way."""

    def __init__(self, station, *options):
        super().__init__(station, *options, verb=("watch",))


class VerbsTest(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router = self.lab.station(1)

    def run_querier(self, *options):
        querier = Querier(self.router, *options)
        querier.expect("role", role="querier")
        self.querier = querier
        return querier

    def igmpq(self, *arguments, command=()):
        return run_once(self.router, *arguments, "--socket", self.querier.socket,
                        command=command)

    def show(self, *arguments):
        done = self.igmpq("show", *arguments, "--json")
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        return json.loads(done.stdout)

    def set(self, *assignments):
        done = self.igmpq("set", "eth0", *assignments)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        return done.stdout.splitlines()

    def test_show_prints_what_the_querier_prints_itself(self):
        old, new = self.lab.station(11, 2), self.lab.station(12, 3)
        querier = self.run_querier(*QUIET_3)
        old.join(GROUP)
        new.join(WANTED, SENDER)
        querier.expect("sourceJoined", group=WANTED, source=SENDER)
        wait_until(lambda: GROUP in querier.groups(), 10, f"{GROUP} to be joined")
        shown = {group["group"]: group for group in self.show("groups")}
        own = querier.groups()
        self.assertEqual(set(own), set(shown))
        for group, fields in own.items():
            for key in ("filterMode", "compatibilityMode", "lastReporter"):
                self.assertEqual(fields[key], shown[group][key])
        self.assertEqual(old.address, shown[GROUP]["lastReporter"])
        self.assertLess(0, shown[GROUP]["timeLeftSeconds"])
        self.assertEqual([SENDER], [source["source"] for source in shown[WANTED]["sources"]])

        everything = self.show()["interfaces"][0]
        state = querier.state()
        self.assertEqual(set(state), set(everything))
        for key in ("role", "querier", "querierVersion", "queryIntervalSeconds", "groupCount"):
            self.assertEqual(state[key], everything[key])
        self.assertLess(0, everything["nextQuerySeconds"])
        self.assertLess(0, everything["querierUpSeconds"])
        self.router.down()
        wait_until(lambda: self.show("interfaces")[0]["running"] is False, 10, "a stopped querier")
        self.assertIsNone(self.show("interfaces")[0]["nextQuerySeconds"])
        self.assertEqual(2, self.show("counters", "eth0")[0]["joins"])
        self.assertIn(GROUP, self.igmpq("show").stdout)

    def test_show_prints_the_model_of_the_protocol(self):
        host = self.lab.station(11, 2)
        querier = self.run_querier(*QUIET)
        host.join(GROUP)
        querier.expect("groupJoined", group=GROUP)
        done = self.igmpq("show", "--rfc8652", "eth0")
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        protocols = json.loads(done.stdout)["ietf-routing:routing"]["control-plane-protocols"]
        igmp, = (each["ietf-igmp-mld:igmp"] for each in protocols["control-plane-protocol"])
        shown, = igmp["interfaces"]["interface"]
        self.assertEqual(("eth0", "up", 2, 1000, self.router.address),
                         tuple(shown[key] for key in ("interface-name", "oper-status", "version",
                                                      "query-interval", "querier")))
        group = next(each for each in shown["group"] if each["group-address"] == GROUP)
        self.assertEqual((host.address, "exclude"), (group["last-reporter"], group["filter-mode"]))
        self.assertEqual(len(shown["group"]), igmp["global"]["groups-count"])
        self.assertGreaterEqual(int(igmp["global"]["statistics"]["received"]["report"]), 1)
        self.assertEqual(2, self.igmpq("show", "--rfc8652", "eth7").returncode)

    def test_an_unknown_interface_is_refused_with_the_known_ones(self):
        self.run_querier(*QUIET)
        for arguments in (("show", "groups", "eth7"), ("watch", "eth0", "eth7"),
                          ("set", "eth7", "robustness=3")):
            done = self.igmpq(*arguments)
            self.assertEqual((2, ""), (done.returncode, done.stdout), arguments)
            self.assertIn("the agent has no interface eth7; it has: eth0", done.stderr)

    def test_watch_reports_joins_with_their_reporters(self):
        host, other = self.lab.station(11, 2), self.lab.station(12, 3)
        querier = self.run_querier(*QUIET_3)
        host.join(OTHER)
        querier.expect("groupJoined", group=OTHER)
        watch = Watch(self.router, "--counters")
        watch.expect("role", interface="eth0", role="querier", querier=self.router.address)
        host.join(GROUP)
        watch.expect("groupJoined", interface="eth0", group=GROUP, reporter=host.address,
                     compatibilityMode=2, filterMode="exclude")
        other.join(WANTED, SENDER)
        watch.expect("groupJoined", group=WANTED, reporter=other.address, compatibilityMode=3,
                     filterMode="include")
        watch.expect("sourceJoined", group=WANTED, source=SENDER)
        watch.expect("counters", counters=lambda counters: "joins" in counters)
        host.leave(GROUP)
        watch.expect("groupLeft", group=GROUP)
        # Groups that were known before the watch are no events of it.
        self.assertEqual([], watch.seen("groupJoined", group=OTHER))
        self.assertEqual(0, watch.stop(signal.SIGINT))
        self.assertEqual([], watch.errors)

    def test_watch_reports_a_link_that_goes_down_and_comes_up(self):
        self.run_querier(*QUIET)
        watch = Watch(self.router)
        watch.expect("role", role="querier")
        self.router.down()
        watch.expect("interfaceDown", interface="eth0", address=self.router.address)
        self.router.up()
        watch.expect("interfaceUp", interface="eth0", address=self.router.address)
        self.assertEqual(0, watch.stop())

    def test_watch_goes_on_when_the_agent_is_killed_and_starts_again(self):
        host = self.lab.station(11, 2)
        querier = self.run_querier(*SHORT)
        watch = Watch(self.router)
        watch.expect("role", role="querier")
        host.join(GROUP)
        watch.expect("groupJoined", group=GROUP)
        querier.stop(signal.SIGKILL)
        watch.expect("agentLost")
        self.assertEqual(1, self.igmpq("show").returncode)
        self.run_querier(*SHORT)
        watch.expect("agentBack")
        host.join(OTHER)
        watch.expect("groupJoined", group=OTHER)
        self.assertEqual(0, watch.stop())

    def test_set_is_in_effect_at_once_and_watchers_see_it(self):
        querier = self.run_querier(*QUIET)
        watch = Watch(self.router)
        watch.expect("role", role="querier")
        self.assertEqual(["eth0 queryInterval 60 s: in effect", "eth0 robustness 3: in effect",
                          "eth0 lastMemberQueryCount 4: set"],
                         self.set("queryInterval=60", "robustness=3", "last-member-query-count=4"))
        state = querier.state()
        self.assertEqual((60.0, 3), (state["queryIntervalSeconds"], state["robustness"]))
        watch.expect("configChanged", interface="eth0", attribute="robustness", value=3)
        watch.expect("configChanged", attribute="queryInterval", valueSeconds=60.0)
        config = self.show("config")[0]
        self.assertEqual((60.0, 4), (config["queryIntervalSeconds"],
                                     config["lastMemberQueryCount"]))

    def test_set_prints_why_a_value_is_not_in_effect(self):
        lower = self.lab.station(2)
        self.router = self.lab.station(3)
        self.querier = Querier(self.router, *SHORT)
        elected = Querier(lower, *SHORT)
        elected.expect("role", role="querier")
        wait_until(lambda: self.show("interfaces")[0]["role"] == "nonQuerier", 10, "the election")
        self.assertEqual(
            [f"eth0 robustness 4: set; not in effect while {lower.address} is querier"],
            self.set("robustness=4"))

    def test_set_refuses_inconsistent_values_before_it_sends_them(self):
        querier = self.run_querier(*QUIET)
        done = self.igmpq("set", "eth0", "robustness=5", "queryResponseInterval=1000")
        self.assertEqual((2, ""), (done.returncode, done.stdout))
        self.assertIn("queryResponseInterval 1000: must be less than the query interval, 1000",
                      done.stderr)
        self.assertEqual(2, querier.state()["robustness"])

    def test_a_user_without_rights_cannot_connect(self):
        self.run_querier(*QUIET)
        for arguments in (("show",), ("watch",), ("set", "eth0", "robustness=3")):
            # Only its owner can enter the folder of the lab.
            done = self.igmpq(*arguments, command=as_nobody())
            self.assertEqual((1, ""), (done.returncode, done.stdout), arguments)
            self.assertIn("not permitted to connect to the agent", done.stderr)

    def test_an_agent_that_hangs_is_an_error(self):
        querier = self.run_querier(*QUIET)
        querier.process.send_signal(signal.SIGSTOP)
        try:
            done = self.igmpq("show")
        finally:
            querier.process.send_signal(signal.SIGCONT)
        self.assertEqual((1, ""), (done.returncode, done.stdout))
        self.assertIn("says nothing for 10 s", done.stderr)


if __name__ == "__main__":
    main()
