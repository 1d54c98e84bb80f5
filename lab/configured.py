"""An agent that runs by a file, on links of a namespace of its own.

A test case for what happens when that file is read again.
"""
import itertools
import json
import pathlib
import socket
import subprocess
import sys

from lab import ip, wait_until
from querier import Querier, program
from testcase import NO_DELAY, LabTestCase

TRAFFIC = pathlib.Path(__file__).with_name("traffic.py")
GROUPS = 10  # of the traffic


class Requests:
    """A connection to the request socket."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(30)
        self.socket.connect(str(path))
        self.lines = self.socket.makefile("rb")

    def close(self):
        self.lines.close()
        self.socket.close()

    def ask(self, **request):
        """The lines of the answer before the one that ends it."""
        self.socket.sendall(json.dumps(request).encode() + b"\n")
        answers = (json.loads(self.lines.readline()) for _ in itertools.count())
        return list(itertools.takewhile(lambda answer: "end" not in answer, answers))

    def reload(self):
        return self.ask(op="reload")

    def settings(self):
        """(value, origin) by interface, "" for the agent, and then by key."""
        return {answer.get("interface", ""):
                {each["key"]: (each["value"], each["origin"]) for each in answer["settings"]}
                for answer in self.ask(op="config")}


class ReloadTestCase(LabTestCase):
    def setUp(self):
        super().setUp()
        self.folder = pathlib.Path(self.lab.scratch.name)
        self.folder.chmod(0o711)
        self.file = self.folder / "igmpq.toml"
        self.router, self.hosts = self.lab.add_namespace("router"), self.lab.add_namespace("hosts")
        self.namespace = self.router  # as a station has one

    def add_link(self, name):
        ip("-n", self.router, "link", "add", "name", name, "type", "veth", "peer", "name", name,
           "netns", self.hosts)
        ip("-n", self.hosts, "link", "set", name, "up")
        ip("-n", self.router, "address", "add", "10.77.0.1/24", "dev", name)
        ip("-n", self.router, "link", "set", name, "up")

    def delete_link(self, name):
        ip("-n", self.router, "link", "del", name)

    def write(self, text):
        self.file.write_bytes(text.encode("utf-8", "surrogateescape"))

    def start(self, *options, number=1, command=()):
        station = Router(self.lab, self.router, number)
        return Querier(station, *NO_DELAY, "--config", self.file, *options, verb=("run",),
                       command=command)

    def requests(self, querier):
        path = querier.socket.with_suffix(".request")
        wait_until(path.exists, 20, "the agent to serve")
        requests = Requests(path)
        self.addCleanup(requests.close)
        return requests

    def igmpq(self, *arguments):
        return subprocess.run((program(), *map(str, arguments)), capture_output=True, text=True,
                              timeout=20, check=False)

    def send_traffic(self, *links):
        self.lab.spawn(self.hosts, sys.executable, TRAFFIC, GROUPS, *links)

    def wait_groups(self, querier, name):
        for number in range(1, GROUPS + 1):
            querier.find(0, "groupJoined", 20, {"interface": name, "group": f"239.1.0.{number}"})


class Router:
    """The namespace with all links, as a station of the lab."""

    def __init__(self, lab, namespace, number):
        self.lab, self.namespace, self.number = lab, namespace, number
