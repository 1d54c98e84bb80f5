"""The error of a scenario that cannot be read, and the output until then.

    python3 BadScenarioTest.py IGMPQ
"""
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

from packets import packet

COMMAND = sys.argv.pop()

INTERFACE = {"at": 1000, "op": "interface", "name": "vlan10", "ipAddr": "10.0.0.5"}
JOIN = packet("v2report 239.1.2.3")


def igmpq(text, *options, file="-"):
    return subprocess.run([COMMAND, "replay", "--scenario", file, *options], input=text,
                          capture_output=True, text=True, timeout=60, check=False)


def line(value):
    return (value if isinstance(value, str) else json.dumps(value)) + "\n"


def at(time, op, **keys):
    return {"at": time, "op": op, **keys}


def interface(**keys):
    return {**INTERFACE, "name": "vlan20", **keys}


def config(**values):
    return at(1000, "config", interface="vlan10", set=values)


def rx(value):
    return at(1000, "rx", interface="vlan10", packet=value)


def without(keys, *gone):
    return {key: value for key, value in keys.items() if key not in gone}


GROUP = {"groupAddr": "239.1.2.3"}
U32 = "must be an integer from 0 to 4294967295"

# The second line, behind one with an interface "vlan10", and the error that it causes.
BAD_STEPS = {
    "not JSON": [
        ("nonsense", "not JSON"), ("{\"at\": 1000", "not JSON"), ("{} {}", "not JSON"),
        ("{\"at\": 1e999, \"op\": \"advance\"}", "not JSON"), (" # no comment", "not JSON")],
    "no object": [
        ("[1]", "step must be an object"), ("7", "step must be an object"),
        ("null", "step must be an object")],
    "op": [
        (at(1000, "fly"), "unknown op \"fly\""), (at(1000, "Advance"), "unknown op \"Advance\""),
        ({"at": 1000}, "step has no key \"op\""), (at(1000, 7), "\"op\" must be a string"),
        (at(1000, "two\nlines"), "unknown op \"two lines\"")],
    "at": [
        ({"op": "advance"}, "step has no key \"at\""),
        (at("1000", "advance"), "\"at\" must be a number"),
        (at(None, "advance"), "\"at\" must be a number"),
        (at(999.5, "advance"), "\"at\" is 999.5, earlier than 1000 on the line before")],
    "unknown keys": [
        (at(1000, "advance", by=5), "unknown key \"by\" in step"),
        (interface(mut=1500), "unknown key \"mut\" in step"),
        (interface(groups=[{**GROUP, "name": ""}]), "unknown key \"name\" in group"),
        (interface(groups=[{**GROUP, "sources": [{"sourceAddr": "10.1.1.1", "expiryTime": 1}]}]),
         "unknown key \"expiryTime\" in source"),
        (at(1000, "congest", on=True, interface="vlan10"), "unknown key \"interface\" in step")],
    "missing keys": [
        (without(interface(), "name"), "step has no key \"name\""),
        (without(interface(), "ipAddr"), "step has no key \"ipAddr\""),
        (interface(groups=[{}]), "group has no key \"groupAddr\""),
        (interface(groups=[{**GROUP, "sources": [{}]}]), "source has no key \"sourceAddr\""),
        (at(1000, "config", interface="vlan10"), "step has no key \"set\""),
        (at(1000, "rx", interface="vlan10"), "step has no key \"packet\""),
        (at(1000, "boundary", interface="vlan10"), "step has no key \"prefixes\""),
        (at(1000, "congest"), "step has no key \"on\""),
        (at(1000, "call", interface="vlan10"), "step has no key \"name\""),
        *[(at(1000, op), "step has no key \"interface\"")
          for op in ("config", "rx", "boundary", "call", "restart", "remove", "dump")]],
    "wrong types": [
        (interface(name=20), "\"name\" must be a string"),
        (interface(ipAddr=167772165), "\"ipAddr\" must be a string"),
        (interface(mtu="1500"), "\"mtu\" " + U32), (interface(mtu=1500.0), "\"mtu\" " + U32),
        (interface(mtu=-1), "\"mtu\" " + U32), (interface(mtu=4294967296), "\"mtu\" " + U32),
        (interface(startupQueryIntervalDefault=0.5), "\"startupQueryIntervalDefault\" " + U32),
        (interface(debugYieldAfterOne=1), "\"debugYieldAfterOne\" must be true or false"),
        (interface(config=[]), "\"config\" must be an object"),
        (interface(groups={}), "\"groups\" must be a list of objects"),
        (interface(groups=["239.1.2.3"]), "group must be an object"),
        (interface(groups=[{**GROUP, "sources": "10.1.1.1"}]),
         "\"sources\" must be a list of objects"),
        (interface(groups=[{**GROUP, "sources": ["10.1.1.1"]}]), "source must be an object"),
        (interface(groups=[{**GROUP, "sources": [{"sourceAddr": "10.1.1.1", "expired": 0}]}]),
         "\"expired\" must be true or false"),
        (interface(groups=[{**GROUP, "filterMode": 0}]), "\"filterMode\" must be a string"),
        (interface(boundary=None), "\"boundary\" must be a list of prefixes"),
        (at(1000, "config", interface="vlan10", set=7), "\"set\" must be an object"),
        (at(1000, "boundary", interface="vlan10", prefixes="239.0.0.0/8"),
         "\"prefixes\" must be a list of prefixes"),
        (at(1000, "boundary", interface="vlan10", prefixes=[8]),
         "each prefix of \"prefixes\" must be a string"),
        (at(1000, "congest", on="yes"), "\"on\" must be true or false"),
        (at(1000, "dump", interface=["vlan10"]), "\"interface\" must be a string"),
        (rx([70, 192]), "\"packet\" must be a string")],
    "interfaces": [
        (at(1000, "dump", interface="vlan11"), "there is no interface \"vlan11\""),
        (at(1000, "restart", interface=""), "there is no interface \"\""),
        (INTERFACE, "there is an interface \"vlan10\" already")],
    "addresses": [
        *[(interface(ipAddr=text), f"\"ipAddr\": {text} is no IPv4 address")
          for text in ("10.0.0", "10.0.0.256", "10.0.0.5 ", "::1", "")],
        (interface(groups=[{"groupAddr": "all"}]), "\"groupAddr\": all is no IPv4 address"),
        *[(at(1000, "boundary", interface="vlan10", prefixes=["239.0.0.0/8", text]),
           f"\"prefixes\": {text} is no prefix")
          for text in ("239.0.0.0/33", "239.0.0.0", "239.0.0.0/", "ff00::/129", "239/8", "")]],
    "packets": [
        (rx("46c0zz"), "\"packet\" must be hexadecimal digits"),
        (rx("46 c00"), "\"packet\" must be hexadecimal digits"),
        (rx("46c"), "\"packet\" must have an even number")],
    "configuration": [
        (config(robust=3), "a configuration has no attribute \"robust\" to be set"),
        (config(lastMemberQueryTime=3),
         "a configuration has no attribute \"lastMemberQueryTime\" to be set"),
        (config(name="vlan20"), "a configuration has no attribute \"name\" to be set"),
        (interface(config={"mtu": 3}), "a configuration has no attribute \"mtu\" to be set"),
        *[(config(robustness=value), "\"robustness\" " + U32)
          for value in (2.5, 2.0, -1, 4294967296, "2", True, None)],
        (config(startupQueryCount=1e3), "\"startupQueryCount\" " + U32),
        (config(queryInterval="125"), "\"queryInterval\" must be a number"),
        (config(sendQuery=0), "\"sendQuery\" must be true or false"),
        (config(querierVersion=2), "\"querierVersion\" must be a string"),
        (config(querierVersion="igmpVersion4"), "\"querierVersion\": ")],
    "enumerators of groups": [
        (interface(groups=[{**GROUP, "filterMode": "exclude"}]), "\"filterMode\": "),
        (interface(groups=[{**GROUP, "compatibilityMode": "2"}]), "\"compatibilityMode\": ")],
    "calls": [
        (at(1000, "call", interface="vlan10", name="doRxPkt"),
         "a querier has no operation \"doRxPkt\""),
        (at(1000, "call", interface="vlan10", name=""), "a querier has no operation \"\"")],
}


class BadScenarioTest(unittest.TestCase):
    def expect_error(self, done, where, what):
        self.assertEqual(done.returncode, 2, done.stderr)
        self.assertRegex(done.stderr, r"\A[^\n]+\n\Z", "one line")
        self.assertTrue(done.stderr.startswith(f"{where}: {what}"), done.stderr)

    def test_a_step_that_cannot_be_read_is_an_error_with_its_line(self):
        for kind, table in BAD_STEPS.items():
            for step, what in table:
                with self.subTest(kind, step=step):
                    done = igmpq(line(INTERFACE) + line(step))
                    self.expect_error(done, "-:2", what)
                    self.assertEqual(done.stdout, "")

    def test_the_time_of_the_first_step_is_above_zero(self):
        for time in (0, -5, -0.0):
            self.expect_error(igmpq(line(at(time, "advance"))), "-:1",
                              "the first \"at\" must be above 0")

    def test_before_the_first_step_there_is_no_interface(self):
        self.expect_error(igmpq(line(at(5, "dump", interface="vlan10"))), "-:1",
                          "there is no interface \"vlan10\"")

    def test_lines_without_steps_are_counted(self):
        text = "# first\n\n  \t\r\n" + line(INTERFACE) + "#\n" + line({})
        self.expect_error(igmpq(text), "-:6", "step has no key \"at\"")

    def test_the_file_is_named(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "bad.scenario"
            path.write_text(line(INTERFACE) + "x\n", encoding="utf-8")
            self.expect_error(igmpq("", file=str(path)), f"{path}:2", "not JSON")
            self.assertEqual(igmpq("", file=f"{folder}/none").returncode, 2)
            self.expect_error(igmpq("", file=folder), f"{folder}:1", "cannot be read")

    def test_earlier_steps_take_effect_and_no_timer_fires_for_the_bad_one(self):
        ahead = line(INTERFACE) + line(at(1050, "rx", interface="vlan10", packet=JOIN))
        good = igmpq(ahead, "--changes")
        self.assertEqual(good.returncode, 0)
        self.assertIn("239.1.2.3", good.stdout)
        bad = igmpq(ahead + line(at(2000, "advanc")), "--changes")
        self.expect_error(bad, "-:3", "unknown op")
        self.assertEqual(bad.stdout, good.stdout)
        later = igmpq(ahead + line(at(2000, "advance")), "--changes")
        self.assertGreater(len(later.stdout), len(good.stdout), "something was due by then")

    def test_a_bad_step_has_no_effect(self):
        step = config(robustness=5, queryInterval=-1.5, nonsense=1)
        done = igmpq(line(INTERFACE) + line(step), "--changes")
        self.assertNotIn("\"value\":5", done.stdout)

    def test_timers_that_never_settle_end_the_run(self):
        step = {**INTERFACE, "config": {"queryInterval": 0, "startupQueryCount": 0}}
        done = igmpq(line(step) + line(at(2000, "advance")))
        self.assertEqual(done.returncode, 3)
        self.assertRegex(done.stderr, r"\Atimers never settle at 100\d\.\d+\n\Z")
        sent = [json.loads(text) for text in done.stdout.splitlines()]
        self.assertEqual(len(sent), 100001)
        self.assertEqual({query["t"] for query in sent}, {sent[0]["t"]})

    def test_steps_of_one_time_share_the_limit(self):
        """Each step lets 30000 timers fire: the fourth is one too many, but not a moment later."""
        def steps(later):
            lines = ""
            for n in range(4):
                groups = [{"groupAddr": f"239.{n}.{i >> 8}.{i & 255}"} for i in range(30000)]
                lines += line({**INTERFACE, "at": 1000 + later * n, "name": f"vlan{n}",
                               "config": {"sendQuery": False}, "debugYieldAfterOne": True,
                               "groups": groups})
            return lines + line(at(1000 + later * 4, "advance"))
        done = igmpq(steps(0))
        self.assertEqual((done.returncode, done.stderr), (3, "timers never settle at 1000.0\n"))
        done = igmpq(steps(0.001))
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_many_timers_of_one_time_do_settle(self):
        """More expiries in one step than the limit, but not of one time."""
        groups = [f"239.{n >> 16}.{n >> 8 & 255}.{n & 255}" for n in range(60000)]
        step = {**INTERFACE, "config": {"sendQuery": False},
                "groups": [{"groupAddr": group, "filterMode": "filterModeExclude"}
                           for group in groups]}
        late = {**step, "at": 1001, "name": "vlan20"}
        done = igmpq(line(step) + line(late) + line(at(1300, "advance")) +
                     line(at(1300, "dump", interface="vlan20")))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(json.loads(done.stdout)["status"]["group"], [])

    def test_a_first_time_that_is_not_whole_and_empty_input_are_fine(self):
        self.assertEqual(igmpq("").returncode, 0)
        self.assertEqual(igmpq(line(at(0.25, "advance"))).returncode, 0)

    def test_a_packet_of_any_length_is_taken(self):
        whole = packet("v3report is_in 239.1.2.3 192.0.2.1")
        steps = "".join(line(rx(whole[:2 * size].upper())) for size in range(len(whole) // 2))
        done = igmpq(line(INTERFACE) + steps + line(at(1000, "dump", interface="vlan10")))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        status = json.loads(done.stdout)["status"]
        self.assertEqual(status["errorPacketReceived"], len(whole) // 2)


if __name__ == "__main__":
    unittest.main()
