"""Calls and traces requested from a running `igmpq run`, by its verbs and on its socket."""
import contextlib
import json
import os
import signal
import socket
import subprocess

from lab import wait_until
from querier import Querier, as_nobody, program, run_once
from testcase import QUIET, LabTestCase, main

GROUP = "239.1.1.1"
OTHER = "239.1.1.2"
LONGEST_LINE = 65536


class Follower:
    """`igmpq trace --follow --json`, and the lines that it has written."""

    def __init__(self, router, path, *options):
        self.lines = []
        self.errors = []
        self.process = router.lab.spawn(
            router.namespace, program(), "trace", "--follow", "--json", "--socket", path, *options,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.readers = [
            router.lab.read(self.process.stdout,
                            lambda line: self.lines.append(json.loads(line))),
            router.lab.read(self.process.stderr, self.errors.append)]

    def lines_with(self, text):
        return [line for line in self.lines if text in line.get("text", "")]

    def wait_line_with(self, text):
        wait_until(lambda: self.lines_with(text), 10, f"a trace of {text}")

    def stop(self, number):
        self.process.send_signal(number)
        status = self.process.wait(10)
        for reader in self.readers:
            reader.join(10)
        return status


class RequestsTest(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router, self.host = self.lab.station(1), self.lab.station(11, 2)
        self.querier = Querier(self.router, *QUIET)
        self.querier.expect("role", role="querier")
        self.path = str(self.querier.socket.with_suffix(".request"))

    def igmpq(self, *arguments, command=()):
        return run_once(self.router, *arguments, "--socket", self.querier.socket, command=command)

    def output(self, *arguments):
        done = self.igmpq(*arguments)
        self.assertEqual((0, ""), (done.returncode, done.stderr), arguments)
        return done.stdout

    @contextlib.contextmanager
    def connected(self):
        with socket.socket(socket.AF_UNIX) as client:
            client.settimeout(20)
            client.connect(self.path)
            yield client

    def counters(self):
        return json.loads(self.output("show", "counters", "--json"))[0]

    def test_a_call_clears_the_counters_and_prints_nothing(self):
        self.host.join(GROUP)
        self.querier.expect("groupJoined", group=GROUP)
        self.assertLess(0, self.counters()["v2ReportReceived"])
        self.assertEqual("", self.output("call", "eth0", "clearCounters"))
        self.assertEqual(0, self.counters()["v2ReportReceived"])

    def test_an_unknown_name_is_refused_with_the_known_ones(self):
        for arguments, error in (
                (("call", "eth7", "clearCounters"),
                 "the agent has no interface eth7; it has: eth0"),
                (("call", "eth0", "explode"), "a querier has no operation explode; it has: "
                                              "handleInitialized, becomeQuerier, clearCounters"),
                (("trace", "--handle", "Nobody"), "there is no trace handle Nobody; there are: "
                                                  "GmpAttrLogSm, GmpIgmpQuerierSm, IgmpPacket"),
                (("trace", "--handles", "--handle", "Nobody"), "there is no trace handle Nobody")):
            done = self.igmpq(*arguments)
            self.assertEqual((2, ""), (done.returncode, done.stdout), arguments)
            self.assertIn("igmpq: " + error, done.stderr)

    def test_any_attribute_is_read_by_its_path(self):
        self.host.join(GROUP)
        self.querier.expect("groupJoined", group=GROUP)
        self.assertEqual("1000\n", self.output("get", "config/eth0/queryInterval"))
        self.assertEqual('"querierStateQuerier"\n',
                         self.output("get", "--json", "status/eth0/state"))
        self.assertIn("attrLogSm\n", self.output("get"))
        self.assertIn(GROUP + "\n", self.output("get", "status/eth0/group"))
        machine = json.loads(self.output("get", "--json", f"querierSm/eth0/groupSm[{GROUP}]"))
        self.assertEqual((GROUP, True), (machine["group"], machine["initialized"]))
        entry = json.loads(self.output("get", "--json", f"status/eth0/group[{GROUP}]"))
        self.assertEqual(entry["expiryTime"], machine["membershipTimerExpiry"])
        self.assertIn(f"lastReporter = {entry['lastReporter']}\n",
                      self.output("get", f"querierSm/eth0/groupSm[{GROUP}]/groupStatus"))
        self.assertEqual("10\n", self.output("get", "attrLogSm/maxIterUntilBufferCheck"))
        self.assertEqual("config/eth0/sendQuery\n",
                         self.output("get", "--complete", "config/eth0/send"))

    def test_an_unknown_path_is_refused_with_the_known_ones(self):
        done = self.igmpq("get", "config/eth9")
        self.assertEqual((2, ""), (done.returncode, done.stdout))
        self.assertRegex(done.stderr, "paths begin with one of .*config/eth0")
        done = self.igmpq("get", "config/eth0/speed")
        self.assertEqual(2, done.returncode)
        self.assertIn("it has name, fullName", done.stderr)

    def test_an_interface_that_is_down_has_no_querier_to_call(self):
        self.router.down()
        self.querier.expect("interfaceDown")
        done = self.igmpq("call", "eth0", "becomeQuerier")
        self.assertEqual((1, ""), (done.returncode, done.stdout))
        self.assertIn("there is no querier on eth0 now: the interface is down", done.stderr)

    def test_traces_are_lines_of_time_level_handle_and_text(self):
        lines = self.output("trace").splitlines()
        self.assertLess(0, len(lines))
        for line in lines:
            self.assertRegex(line, r"^\d+\.\d{6} +\d+ \w+ +\S")
        traces = [json.loads(line) for line in self.output("trace", "--json").splitlines()]
        self.assertEqual(len(lines), len(traces))
        for line, fields in zip(lines, traces):
            self.assertEqual(["time", "level", "handle", "text"], list(fields))
            self.assertTrue(line.endswith(fields["text"]))
        times = [fields["time"] for fields in traces]
        self.assertEqual(sorted(times), times)
        one = self.output("trace", "--handle", "IgmpPacket", "--json").splitlines()
        self.assertEqual([line for line in traces if line["handle"] == "IgmpPacket"],
                         [json.loads(line) for line in one])

    def test_a_level_is_set_for_one_handle_or_for_all_of_them(self):
        def levels():
            return {json.loads(line)["name"]: json.loads(line)["level"]
                    for line in self.output("trace", "--handles", "--json").splitlines()}
        self.assertEqual({"GmpAttrLogSm": 3, "GmpIgmpQuerierSm": 3, "IgmpPacket": 3}, levels())
        self.output("trace", "--handle", "GmpIgmpQuerierSm", "--level", "8")
        self.assertEqual({"GmpAttrLogSm": 3, "GmpIgmpQuerierSm": 8, "IgmpPacket": 3}, levels())
        self.host.join(GROUP)
        self.querier.expect("groupJoined", group=GROUP)
        self.assertIn(" 8 GmpIgmpQuerierSm ", self.output("trace"))
        self.assertIn("IgmpPacket       -1\n", self.output("trace", "--level", "-1", "--handles"))
        self.assertEqual({-1}, set(levels().values()))
        before = self.output("trace")
        self.host.join(OTHER)
        self.querier.expect("groupJoined", group=OTHER)
        self.assertEqual(before, self.output("trace"))

    def test_a_follower_receives_traces_until_interrupted(self):
        for number, group in ((signal.SIGINT, GROUP), (signal.SIGTERM, OTHER)):
            follower = Follower(self.router, self.querier.socket, "--level", "8")
            follower.wait_line_with("eth0")
            self.host.join(group)
            follower.wait_line_with(group)
            self.assertEqual(0, follower.stop(number))
            self.assertEqual([], follower.errors)
            self.assertEqual([], [line for line in follower.lines if "text" not in line])

    def test_a_follower_reports_the_end_of_the_agent(self):
        follower = Follower(self.router, self.querier.socket)
        follower.wait_line_with("eth0")
        self.assertEqual(0, self.querier.stop())
        self.assertEqual(1, follower.process.wait(10))
        self.assertFalse(os.path.exists(self.path))
        for reader in follower.readers:
            reader.join(10)
        self.assertEqual(["igmpq: the agent has gone\n"], follower.errors)

    def test_a_user_who_cannot_enter_the_folder_cannot_connect(self):
        for arguments in (("call", "eth0", "clearCounters"), ("trace",)):
            done = self.igmpq(*arguments, command=as_nobody())
            self.assertEqual((1, ""), (done.returncode, done.stdout), arguments)
            self.assertIn("not permitted to connect to the agent", done.stderr)

    def test_a_client_that_sends_no_request_is_disconnected_with_an_error(self):
        for sent, error in ((b"hello\n", "a request is one JSON object a line"),
                           (b"\xff" * 100 + b"\n", "a request is one JSON object a line"),
                           (b"[" * LONGEST_LINE + b"\n", "a request is one JSON object a line"),
                           (b" " * (LONGEST_LINE + 1), "a line of more than 65536 bytes")):
            with self.connected() as client:
                client.sendall(sent)
                answer = b""
                while part := client.recv(65536):
                    answer += part
            self.assertIn(error, json.loads(answer)["error"])
        self.assertEqual("", self.output("call", "eth0", "clearCounters"))

    def test_a_client_that_reads_nothing_delays_no_other(self):
        with self.connected() as client:
            client.sendall(b'{"op":"trace","follow":true}\n')
            self.output("trace", "--level", "9")
            client.setblocking(False)
            with contextlib.suppress(BlockingIOError):
                while True:
                    client.send(b'{"op":"traceHandles"}\n' * 100)
            self.host.join(GROUP)
            self.querier.expect("groupJoined", group=GROUP)
            self.assertEqual("", self.output("call", "eth0", "clearCounters"))
        self.assertEqual(0, self.querier.stop())
        self.assertEqual([], self.querier.errors)

    def test_an_agent_that_hangs_is_an_error(self):
        self.querier.process.send_signal(signal.SIGSTOP)
        try:
            done = self.igmpq("call", "eth0", "clearCounters")
        finally:
            self.querier.process.send_signal(signal.SIGCONT)
        self.assertEqual((1, ""), (done.returncode, done.stdout))
        self.assertIn("says nothing for 10 s", done.stderr)


if __name__ == "__main__":
    main()
