"""Messages and exit status of the command before it touches any interface.

    python3 CommandTest.py IGMPQ
"""
import contextlib
import json
import pathlib
import socket
import struct
import subprocess
import sys
import tempfile
import unittest

COMMAND = sys.argv.pop()
NOWHERE = "/nonexistent/attrlog.sock"


def igmpq(*arguments):
    return subprocess.run([COMMAND, *arguments], capture_output=True, text=True, timeout=60,
                          check=False)


def text(words):
    return struct.pack("!H", len(words)) + words.encode()


def frame(number, payload=b""):
    return struct.pack("!HB", len(payload) + 1, number) + payload


def agent_with_eth0(may_configure):
    """The bytes that an agent sends to a client that connects."""
    config = struct.pack("!I", 1) + text("config/eth0") + bytes((may_configure,))
    config += text("Gmp::Igmp::QuerierConfig") + b"\x05" + text("eth0")
    status = struct.pack("!I", 2) + text("status/eth0") + b"\x00"
    status += text("Gmp::Igmp::QuerierStatus") + b"\x00"
    hello = struct.pack("!4sHdB", b"MoxL", 1, 0.0, may_configure) + text("agent")
    return frame(1, hello) + frame(2, config) + frame(2, status) + frame(9)


@contextlib.contextmanager
def served(name="agent.sock"):
    with tempfile.TemporaryDirectory() as folder, socket.socket(socket.AF_UNIX) as server:
        server.bind(f"{folder}/{name}")
        server.settimeout(60)
        server.listen()
        yield server


class CommandTest(unittest.TestCase):
    def expect_bad_use(self, arguments, text):
        done = igmpq(*arguments)
        self.assertEqual((done.returncode, done.stdout), (2, ""), arguments)
        self.assertIn("igmpq: " + text, done.stderr)

    def test_the_version_goes_to_standard_output(self):
        done = igmpq("--version")
        self.assertEqual(done.returncode, 0)
        self.assertRegex(done.stdout, r"^igmpq \d+\.\d+\.\d+\n$")

    def test_help_fits_on_one_screen_and_begins_with_examples(self):
        for arguments in (["--help"], ["run", "--help"], ["replay", "--help"], ["show", "--help"],
                          ["watch", "--help"], ["set", "--help"], ["call", "--help"],
                          ["trace", "--help"], ["get", "--help"], ["types", "--help"],
                          ["reload", "--help"], ["check", "--help"], ["clear", "--help"]):
            done = igmpq(*arguments)
            self.assertEqual((done.returncode, done.stderr), (0, ""), arguments)
            self.assertLessEqual(len(done.stdout.splitlines()), 50, arguments)
            self.assertIn("Usage: igmpq", done.stdout, arguments)
            self.assertIn("Exit status: ", done.stdout, arguments)
            verb = "run" if arguments == ["--help"] else arguments[0]
            self.assertRegex(done.stdout, f"\n  (sudo )?igmpq {verb} ", arguments)
        text = igmpq("--help").stdout
        self.assertLess(text.index("Examples:"), text.index("Usage:"))

    def test_help_groups_the_verbs(self):
        groups = {}
        for line in igmpq("--help").stdout.partition("Subcommands:\n")[2].splitlines():
            if not line.startswith("  "):
                groups[line.strip()] = verbs = []
            else:
                verbs.append(line.split()[0])
        self.assertEqual({"Run:": ["run", "check", "reload", "store"],
                          "Look:": ["show", "watch", "get", "web"],
                          "Change:": ["set", "clear", "call"], "Diagnose:": ["trace", "replay"],
                          "For developers:": ["types"]}, groups)

    def test_a_verb_is_needed(self):
        self.expect_bad_use([], "a verb is missing")
        self.expect_bad_use(["walk"], "there is no verb walk; there are: run, check, reload, ")
        self.expect_bad_use(["--walk"], "The following argument was not expected: --walk")

    def test_an_unknown_type_is_bad_use(self):
        for arguments in (["types", "NoSuchType"], ["types", "NoSuchType", "--json"]):
            self.expect_bad_use(arguments, "there is no type NoSuchType")

    def test_output_that_cannot_be_written_is_a_failure(self):
        replay = ["replay", "-", "--address", "10.0.0.1", "--seed", "1"]
        capture = struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 65535, 1)
        for arguments in (["types"], ["types", "QuerierSm", "--json"], replay):
            with open("/dev/full", "wb") as full:
                done = subprocess.run([COMMAND, *arguments], stdout=full, stderr=subprocess.PIPE,
                                      input=capture, timeout=60, check=False)
            self.assertEqual((1, b"igmpq: the output cannot be written\n"),
                             (done.returncode, done.stderr), arguments)

    def test_json_of_a_replay_has_the_clock_of_the_capture(self):
        capture = struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 65535, 1)
        capture += struct.pack("<IIII", 1795268601, 632198, 14, 14) + bytes(14)
        done = subprocess.run([COMMAND, "replay", "-", "--address", "10.0.0.1", "--json"],
                              input=capture, capture_output=True, timeout=60, check=False)
        moments = [(line["event"], line["time"], line["utc"])
                   for line in map(json.loads, done.stdout.splitlines())]
        moment = (1795268601.632198, "2026-11-21T13:43:21.632198Z")
        self.assertEqual([("role", *moment), ("state", *moment), ("summary", *moment)], moments)

    def test_options_of_a_scenario_are_refused_for_a_capture(self):
        for option in ("--changes", "--traces"):
            self.expect_bad_use(["replay", "x.pcap", "--address", "10.0.0.1", option],
                                f"{option} requires --scenario")

    def test_a_word_that_is_neither_part_nor_interface_is_named_with_both(self):
        for words, expected in ((["group"], "group; it has: eth0; before the interfaces stands at "
                                        "most one part: all, interfaces, groups, "),
                            (["groups", "config"], "config; it has: eth0; before"),
                            (["groups", "eth7"], "eth7; it has: eth0\n")):
            with served() as server:
                self.expect_failure(["show", *words], server,
                                    [agent_with_eth0(may_configure=True)],
                                    "the agent has no interface " + expected, status=2)

    def test_an_unknown_option_is_bad_use(self):
        self.expect_bad_use(["run", "--bogus"], "The following argument was not expected: --bogus")

    def test_a_value_out_of_range_is_named_with_its_range(self):
        self.expect_bad_use(["run", "--robustness", "9"],
                            "--robustness 9: must be from 1 to 7 (RFC 3376 8.1)")

    def test_an_unknown_interface_is_bad_use_and_the_known_ones_are_listed(self):
        self.expect_bad_use(["run", "nosuch0"], "there is no interface nosuch0; this machine has: ")
        self.assertIn("lo", igmpq("run", "nosuch0").stderr)

    def test_loopback_is_bad_use(self):
        self.expect_bad_use(["run", "lo"], "interface lo is a loopback interface")

    def test_each_fault_of_a_configuration_is_a_line_with_its_place(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "new.toml")
            path.write_text("[defaults]\nrobustness = 9\nqurey-interval = 60\n", "utf-8")
            for arguments in (("check", path), ("run", "--config", path)):
                done = igmpq(*arguments)
                self.assertEqual((2, ""), (done.returncode, done.stdout))
                self.assertEqual(
                    [f"{path}:2:14: robustness 9: must be from 1 to 7 (RFC 3376 8.1)",
                     f"{path}:3:1: there is no key qurey-interval; is it query-interval?"],
                    done.stderr.splitlines())

    def test_a_check_marks_the_interfaces_that_are_not_there(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "new.toml")
            path.write_text('[[interface]]\nname = "nosuch0"\n', "utf-8")
            done = igmpq("check", path)
            self.assertEqual((0, f"{path}: no fault; for nosuch0 (not there now)\n"),
                             (done.returncode, done.stdout))

    def test_a_configuration_without_interfaces_is_bad_use_and_the_lines_to_write_are_shown(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "new.toml")
            path.write_text(igmpq("check", "--example").stdout, "utf-8")
            self.assertEqual(0, igmpq("check", path).returncode)
            self.expect_bad_use(("run", "--config", path), "the configuration names no interface; "
                                "add for instance the lines [[interface]] and name = ")

    def test_settings_out_of_range_are_bad_use_before_any_connection(self):
        for assignment, text in (
                ("queryInterval=0", "queryInterval 0: must be from 1 to 31744 (RFC 3376 8.2)"),
                ("query-interval=x", "query-interval x: not a number; must be from 1 to 31744"),
                ("sendQuery=maybe", "sendQuery maybe: must be on or off"),
                ("speed=1", "speed: there is no such setting; there are: robustness, "),
                ("robustness", "robustness: must be ATTRIBUTE=VALUE, such as queryInterval=60")):
            self.expect_bad_use(["set", "eth0", assignment, "--socket", NOWHERE], text)
        self.expect_bad_use(["set", "eth0"], "SETTING is required")
        self.expect_bad_use(["set"], "INTERFACE is required")

    def test_the_model_has_no_parts(self):
        for words in (["groups"], ["config", "eth0"]):
            self.expect_bad_use(["show", "--rfc8652", *words], "--rfc8652 shows everything")
        self.expect_bad_use(["show", "--rfc8652", "--json"], "--json excludes --rfc8652")

    def test_without_an_agent_it_says_so_and_how_to_start_one(self):
        for arguments in (["show"], ["show", "groups", "eth0", "--json"], ["watch"],
                          ["show", "--rfc8652"],
                          ["set", "eth0", "robustness=3"]):
            done = igmpq(*arguments, "--socket", NOWHERE)
            self.assertEqual((done.returncode, done.stdout), (1, ""), arguments)
            self.assertIn(f"igmpq: no agent is running: nobody serves {NOWHERE}; start one with "
                          "`systemctl start igmpq` or `igmpq run`, ", done.stderr)

    def test_without_a_store_its_socket_is_named(self):
        for arguments in (["--show"], ["--forget", "eth0"]):
            done = igmpq("store", *arguments, "--socket", "/nonexistent/1.sock")
            self.assertEqual((1, ""), (done.returncode, done.stdout), arguments)
            self.assertIn("no store is running: nobody serves /nonexistent/1.sock", done.stderr)

    def test_an_agent_is_no_store(self):
        with served() as server:
            self.expect_failure(["store", "--show"], server,
                                [agent_with_eth0(may_configure=False)], "an agent serves")

    def test_a_store_shows_or_forgets(self):
        self.expect_bad_use(["store", "--show", "--forget", "eth0"], "--show excludes --forget")

    def test_clear_without_a_name_is_not_one_for_all(self):
        self.expect_bad_use(["clear", "groups", ""], "INTERFACE is empty; leave it out to clear")
        self.expect_bad_use(["clear", "groups", "eth0", ""], "GROUP is empty; leave it out to")

    def test_a_store_forgets_nothing_without_a_name(self):
        self.expect_bad_use(["store", "--forget", ""], "--forget needs the name of an interface")

    def test_requests_look_beside_the_attribute_log(self):
        for arguments in (["call", "eth0", "clearCounters"], ["trace"], ["trace", "--follow"],
                          ["reload"], ["show", "config"],
                          ["trace", "--handles", "--json"], ["trace", "--level", "-1"]):
            for given, served_at in ((NOWHERE, "/nonexistent/request.sock"),
                                     ("/nonexistent/1.sock", "/nonexistent/1.request")):
                done = igmpq(*arguments, "--socket", given)
                self.assertEqual((1, ""), (done.returncode, done.stdout), arguments)
                self.assertIn(f"igmpq: no agent is running: nobody serves {served_at}; start one",
                              done.stderr)

    def test_incomplete_requests_are_bad_use_before_any_connection(self):
        for arguments, expected in (
                (["call", "eth0"], "OPERATION is required"),
                (["call"], "INTERFACE is required"),
                (["trace", "--level", "10"], "--level 10: must be from -1 to 9"),
                (["trace", "--level", "-2"], "--level -2: must be from -1 to 9"),
                (["trace", "--level", "x"], "--level x: not a whole number; must be from -1 to 9"),
                (["trace", "--handles", "--follow"], "--follow excludes --handles")):
            done = igmpq(*arguments, "--socket", NOWHERE)
            self.assertEqual((2, ""), (done.returncode, done.stdout), arguments)
            self.assertIn(expected, done.stderr)

    def test_the_answer_of_the_agent_decides_the_exit_status(self):
        trace = {"time": 12.5, "level": 3, "handle": "Some", "text": "words"}
        line = json.dumps(trace).encode() + b"\n"
        end = b'{"end":true}\n'
        change = b'{"change":"added","text":"eth1 added"}\n'
        fault = b'{"change":"fault","text":"a.toml:3:1: no"}\n'
        settings = (b'{"settings":[]}\n{"interface":"eth0","settings":[{"key":"k","name":"n",'
                    b'"value":1,"text":"one","origin":null}]}\n')
        for arguments, answer, status, output, errors in (
                (["call", "eth0", "x"], b"{}\n", 0, "", ""),
                (["call", "eth0", "x"], b'{"error":"not now"}\n', 1, "", "igmpq: not now\n"),
                (["call", "eth0", "x"], b'{"error":"what?","badUse":true}\n', 2, "",
                 "igmpq: what?\n"),
                (["call", "eth0", "x"], b"", 1, "", "igmpq: the agent has gone\n"),
                (["call", "eth0", "x"], b"[]\n", 1, "", "is not understood"),
                (["reload"], end, 0, "nothing changed\n", ""),
                (["reload"], change + end, 0, "eth1 added\n", ""),
                (["reload", "--json"], change + end, 0, change.decode(), ""),
                (["reload"], fault + end, 1, "", "a.toml:3:1: no\nigmpq: nothing was taken over"),
                (["reload", "--json"], fault + end, 1, fault.decode(), "nothing was taken over"),
                (["reload"], b'{"error":"no file"}\n', 1, "", "igmpq: no file\n"),
                (["show", "config"], settings + end, 0,
                 "INTERFACE  SETTING  VALUE  ORIGIN\neth0       n        one    -\n", ""),
                (["show", "config", "--json"], settings + end, 0,
                 '[\n{"interface":"eth0","k":1,"origins":{"k":null}},\n'
                 '{"interface":null,"origins":{}}\n]\n', ""),
                (["get", "a"], b'{"value":1,"text":"one"}\n', 0, "one\n", ""),
                (["get", "a", "--json"], b'{"value":1,"text":"one"}\n', 0, "1\n", ""),
                (["get", "a"], b'{"value":{"b":1},"text":{"b":"one"}}\n', 0, "b = one\n", ""),
                (["get", "a"], b'{"value":["b","c"],"text":["b","c"]}\n', 0, "b\nc\n", ""),
                (["get", "a"], b"{}\n", 1, "", "is not understood"),
                (["get", "--complete", "a"], b'{"paths":["a/b"]}\n', 0, "a/b\n", ""),
                (["get", "\udcff"], b'{"error":"nothing","badUse":true}\n', 2, "",
                 "igmpq: nothing\n"),
                (["trace"], line + b'{"lost":7}\n' + line + b'{"end":true}\n', 0,
                 "12.500000  3 Some             words\n" * 2, "igmpq: 7 lines are lost"),
                (["trace", "--json"], b'{"lost":7}\n{"end":true}\n', 0, '{"lost":7}\n', ""),
                (["trace"], line, 1, "12.500000  3 Some             words\n",
                 "igmpq: the agent has gone\n"),
                (["trace"], b'{"time":null}\n', 1, "", "is not understood"),
                (["trace", "--handles"], b'{"handles":[{"name":"Some","level":-1}]}\n', 0,
                 "Some             -1\n", ""),
                (["trace", "--level", "8"], b'{"error":"not you"}\n', 1, "", "igmpq: not you\n")):
            with self.subTest(arguments=arguments, answer=answer):
                done = self.answered(arguments, answer)
                self.assertEqual((status, output), (done.returncode, done.stdout))
                self.assertIn(errors, done.stderr)
                self.assertEqual(errors == "", done.stderr == "")

    def answered(self, arguments, answer):
        """The command against an agent that answers its first request with this, then goes."""
        with served("agent.request") as server, subprocess.Popen(
                [COMMAND, *arguments, "--socket", server.getsockname()[:-8] + ".sock"], text=True,
                stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
            connection, _ = server.accept()
            with connection:
                connection.settimeout(60)
                self.assertTrue(connection.recv(65536).endswith(b"}\n"))
                connection.sendall(answer)
            output, errors = process.communicate(timeout=60)
            return subprocess.CompletedProcess(arguments, process.returncode, output, errors)

    def test_another_protocol_is_not_understood(self):
        with served() as server:
            self.expect_failure(["show"], server, [b"\x00\x01\x63"], "is not understood")

    def test_a_user_without_rights_gets_an_error_before_anything_is_sent(self):
        with served() as server:
            sent = self.expect_failure(["set", "eth0", "robustness=3"], server,
                                       [agent_with_eth0(may_configure=False)],
                                       "not permitted to configure the agent")
        self.assertEqual([1], sent)

    def test_a_refusal_of_the_agent_is_printed_with_its_reason(self):
        with served() as server:
            sent = self.expect_failure(["set", "eth0", "robustness=3"], server,
                                       [agent_with_eth0(may_configure=True),
                                        frame(12, text("robustness 3: not today"))],
                                       "the agent refuses: robustness 3: not today")
        self.assertEqual([1, 4, 10], sent)

    def test_an_agent_that_goes_in_the_middle_is_an_error(self):
        with served() as server:
            self.expect_failure(["show"], server, [agent_with_eth0(may_configure=True)[:60]],
                                "the agent has gone")

    def expect_failure(self, arguments, server, answers, expected, status=1):
        """Sends each answer after a frame of the command; returns the types of all its frames."""
        sent = b""
        with subprocess.Popen([COMMAND, *arguments, "--socket", server.getsockname()], text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
            connection, _ = server.accept()
            with connection:
                connection.settimeout(60)
                for answer in answers:
                    sent += connection.recv(65536)
                    connection.sendall(answer)
                connection.shutdown(socket.SHUT_WR)
                self.assertEqual(status, process.wait(60))
                while rest := connection.recv(65536):
                    sent += rest
            self.assertEqual("", process.stdout.read())
            self.assertIn("igmpq: ", errors := process.stderr.read())
            self.assertIn(expected, errors)
        types = []
        while sent:
            length, number = struct.unpack_from("!HB", sent)
            types.append(number)
            sent = sent[2 + length:]
        return types

    def test_a_capture_that_is_not_there_is_bad_use(self):
        done = igmpq("replay", "/nonexistent.pcap", "--address", "10.0.0.1")
        self.assertEqual(done.returncode, 2)
        self.assertIn("/nonexistent.pcap", done.stderr)

    def test_a_scenario_takes_no_option_of_a_capture(self):
        for option in (["--address", "10.0.0.1"], ["--until", "5"], ["--max-gap", "5"],
                       ["--query-interval", "60"], ["--boundary", "239.0.0.0/8"]):
            self.expect_bad_use(["replay", "--scenario", "-", *option],
                                f"{option[0]} is for a capture")


if __name__ == "__main__":
    unittest.main()
