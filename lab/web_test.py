"""`igmpq web` beside a real querier: its answers, many clients, an agent that comes and goes."""
import http.client
import json
import os
import pathlib
import signal
import socket
import subprocess

from lab import wait_until
from querier import Querier, program, run_once
from testcase import QUIET, LabTestCase, main

GROUP, OTHER = "239.1.1.1", "239.1.1.2"
NONE = f"{0:016x}"
CLIENTS = 200
PORT = 9645
FIELDS = "HTTP/1.1\r\nHost: localhost\r\n"
REFUSED = ((f"GET /%zz {FIELDS}\r\n", 400), (f"GET /%2e%2e/etc/passwd {FIELDS}\r\n", 400),
           (f"GET /../../etc/passwd {FIELDS}\r\n", 400), (f"GET /etc/passwd {FIELDS}\r\n", 404),
           (f"GET / {FIELDS}X: {'x' * 9000}\r\n\r\n", 431),
           (f"POST / {FIELDS}Content-Length: 1000000000\r\n\r\n", 413),
           (f"DELETE /api/v1/interfaces {FIELDS}\r\n", 405),
           ("GET / HTTP/1.1\r\nHost: other.example\r\n\r\n", 421),
           (f"GET / {FIELDS}Host: other.example\r\n\r\n", 400), ("no request\r\n\r\n", 400))


class UnixConnection(http.client.HTTPConnection):
    """HTTP over a path, which is the same in all network namespaces."""

    def __init__(self, path):
        super().__init__("localhost", timeout=10)
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.sock.settimeout(self.timeout)
        self.sock.connect(str(self.path))


class WebTest(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router, self.host = self.lab.station(1), self.lab.station(11, 2)
        # Its folder must be of this user alone.
        folder = pathlib.Path(self.lab.scratch.name, "web")
        folder.mkdir(mode=0o755)
        self.path = folder / "web.sock"
        self.querier = self.run_querier()
        self.web = self.serve("--listen", f"unix:{self.path}")
        wait_until(lambda: [each["interface"] for each in self.get("/api/v1/interfaces")[1]],
                   10, "the agent's state to be served")

    def run_querier(self):
        querier = Querier(self.router, *QUIET)
        querier.expect("role", role="querier")
        return querier

    def serve(self, *options):
        web = self.lab.spawn(self.router.namespace, program(), "web", "--socket",
                             pathlib.Path(self.lab.scratch.name, "1.sock"), *options,
                             stdout=subprocess.PIPE)
        self.assertTrue(web.stdout.readline().startswith("serving "))
        return web

    def get(self, path):
        connection = UnixConnection(self.path)
        try:
            connection.request("GET", path)
            answer = connection.getresponse()
            return answer.status, json.loads(answer.read())
        finally:
            connection.close()

    def known(self, path):
        status, value = self.get(path)
        self.assertEqual(200, status)
        return value

    def groups(self):
        status, groups = self.get("/api/v1/interfaces/eth0/groups")
        return {group["group"] for group in groups} if status == 200 else set()

    def joined(self, group):
        self.host.join(group)
        wait_until(lambda: group in self.groups(), 10, f"{group} to be served")

    def show(self, *arguments):
        done = run_once(self.router, "show", *arguments, "--json", "--socket", self.querier.socket)
        self.assertEqual(0, done.returncode, done.stderr)
        return json.loads(done.stdout)

    def test_serves_what_show_prints(self):
        self.joined(GROUP)
        for shown, served in ((self.show("interfaces"), self.known("/api/v1/interfaces")),
                              (self.show("groups"), self.known("/api/v1/interfaces/eth0/groups"))):
            self.assertEqual(1, len(served))
            self.assertEqual(set(shown[0]), set(served[0]))
            for key, value in shown[0].items():
                if not isinstance(value, float): self.assertEqual(value, served[0][key])
        self.assertEqual(set(self.show("counters")[0]), set(self.known("/api/v1/counters")[0]))
        one = self.known(f"/api/v1/interfaces/eth0/groups/{GROUP}")
        self.assertEqual(self.host.address, one["lastReporter"])

    def test_serves_the_settings_that_show_config_prints(self):
        shown, = (each for each in self.show("config") if each["interface"] == "eth0")
        served, = self.known("/api/v1/config")
        del shown["origins"]
        # It is no attribute of an entity.
        shown.pop("mcastBoundary", None)
        shown.pop("boundary", None)
        self.assertEqual(shown, {key: served[key] for key in shown})

    def test_streams_events_and_what_was_missed(self):
        connection = UnixConnection(self.path)
        connection.request("GET", "/api/v1/events")
        stream = connection.getresponse()
        self.assertEqual("text/event-stream", stream.getheader("Content-Type"))
        self.host.join(GROUP)
        lines = iter(lambda: stream.readline().decode(), "")
        joined = next(line for line in lines if "groupJoined" in line)
        self.assertEqual(GROUP, json.loads(joined.partition(": ")[2])["group"])
        first = next(line for line in lines if line == "\n")
        self.assertEqual("\n", first)
        connection.close()
        self.host.join(OTHER)
        wait_until(lambda: OTHER in self.groups(), 10, f"{OTHER} to be served")
        again = UnixConnection(self.path)
        again.request("GET", "/api/v1/events", headers={"Last-Event-ID": "0-0"})
        stream = again.getresponse()
        lines = iter(lambda: stream.readline().decode(), "")
        missed = [json.loads(next(line for line in lines if line.startswith("data: "))[6:])
                  for _ in range(2)]
        self.assertEqual("eventsLost", missed[0]["event"])
        self.assertIsNone(missed[0]["count"])
        again.close()

    def test_shows_an_agent_that_goes_and_comes_back(self):
        self.joined(GROUP)
        self.assertTrue(self.known("/api/v1/agent")["connected"])
        self.querier.stop(signal.SIGKILL)
        wait_until(lambda: not self.known("/api/v1/agent")["connected"], 10, "the end to be seen")
        self.assertEqual({GROUP}, self.groups())
        self.querier = self.run_querier()
        wait_until(lambda: self.known("/api/v1/agent")["connected"], 10, "the agent to be seen")
        self.host.join(OTHER)
        wait_until(lambda: OTHER in self.groups(), 10, f"{OTHER} to be served")

    def test_has_no_rights(self):
        status = pathlib.Path(f"/proc/{self.web.pid}/status").read_text("ascii")
        for name in ("CapPrm", "CapEff", "CapBnd", "CapInh", "CapAmb"):
            self.assertIn(f"{name}:\t{NONE}\n", status)
        self.assertIn("NoNewPrivs:\t1\n", status)

    def test_clients_that_send_nothing_or_little_keep_nobody_out(self):
        clients = []
        for number in range(CLIENTS):
            client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            client.connect(str(self.path))
            if number % 2: client.send(b"GET /api/v1/age")
            clients.append(client)
        self.assertTrue(self.known("/api/v1/agent")["connected"])
        files = len(os.listdir(f"/proc/{self.web.pid}/fd"))
        self.assertLess(files, 64 + 20)
        for client in clients:
            client.close()

    def sent(self, text):
        client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.addCleanup(client.close)
        client.settimeout(10)
        client.connect(str(self.path))
        client.sendall(text.encode())
        return client

    def test_bad_requests_are_refused_with_the_reason(self):
        for text, status in REFUSED:
            with self.subTest(text[:40]):
                answer = http.client.HTTPResponse(self.sent(text))
                answer.begin()
                self.assertEqual(status, answer.status)
                self.assertEqual(["error"], list(json.loads(answer.read())))
        self.assertTrue(self.known("/api/v1/agent")["connected"])

    def test_requests_in_one_packet_are_answered_in_order(self):
        paths = ("nothing", "agent", "interfaces")
        fields = (FIELDS, FIELDS, f"{FIELDS}Connection: close\r\n")
        client = self.sent("".join(f"GET /api/v1/{path} {lines}\r\n"
                                   for path, lines in zip(paths, fields)))
        text = client.makefile("rb").read().decode()
        first, second, third = (text.index(each) for each in (
            '"error"', '"connected":true', '"interface":"eth0"'))
        self.assertLess(first, second)
        self.assertLess(second, third)

    def test_refuses_bad_use(self):
        for arguments, status, text in (
                (("--listen", f"0.0.0.0:{PORT}"), 2, "--allow-remote"),
                (("--listen", "localhost"), 2, "127.0.0.1:9645"),
                (("--listen", f"192.0.2.1:{PORT}", "--allow-remote"), 1, "--listen"),
                (("--listen", f"unix:{self.path}"), 1, str(self.path))):
            with self.subTest(arguments):
                done = run_once(self.router, "web", *arguments)
                self.assertEqual(status, done.returncode)
                self.assertIn(text, done.stderr)

    def test_serves_on_a_port_of_this_machine(self):
        self.serve("--listen", f"127.0.0.1:{PORT}")
        script = ("import sys, urllib.request as r;"
                  "print(r.urlopen(sys.argv[1], timeout=10).read().decode())")
        done = subprocess.run(
            ("ip", "netns", "exec", self.router.namespace, "python3", "-c", script,
             f"http://127.0.0.1:{PORT}/api/v1/interfaces"),
            capture_output=True, text=True, timeout=60, check=True)
        self.assertEqual("eth0", json.loads(done.stdout)[0]["interface"])


if __name__ == "__main__":
    main()
