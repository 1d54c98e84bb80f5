"""A link for the benchmarks: an agent in one network namespace, senders in another."""
import contextlib
import json
import os
import pathlib
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "lab"))
from lab import Lab, ip, wait_until  # noqa: E402

IGMPQ = os.environ.get("IGMPQ", ROOT / "build/release/igmpq/igmpq")
LINK_LOAD = os.environ.get("LINK_LOAD", ROOT / "build/release/bench/link/LinkLoad")
AGENT_CPU, SENDER_CPU = 0, 1
MEGABYTE = 1024 * 1024
RATE = 300_000  # frames a second
QUERY_INTERVAL = 2  # seconds, in the runs that look at the queries
OFTEN_QUERIED = ("--seed", "63230",  # the first queries leave within 0.1 s
                 "--query-interval", str(QUERY_INTERVAL), "--query-response-interval", "1",
                 "--startup-query-interval", str(QUERY_INTERVAL))
IGMP_QUERY = "ether[38] = 0x11"  # behind an IP header of 24 bytes


@contextlib.contextmanager
def on_sender_cpu():
    """Processes that are started in it leave the agent's processor to the agent."""
    before = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {SENDER_CPU})
    try:
        yield
    finally:
        os.sched_setaffinity(0, before)


class World:
    """An agent on eth0, eth1 and so on, and the other end of each link, load0 and so on."""

    def __init__(self, *options, interfaces=2, piped=False, stuck=False):
        """Events go into a file, or into a pipe that a process on the other processor reads, or
        nobody."""
        self.lab = Lab()
        self.router = self.lab.add_namespace("router")
        self.hosts = self.lab.add_namespace("hosts")
        self.names = [f"eth{number}" for number in range(interfaces)]
        for number in range(interfaces):
            ip("-n", self.router, "link", "add", "name", f"eth{number}", "type", "veth",
               "peer", "name", f"load{number}", "netns", self.hosts)
            address = (f"10.{77 + number}.0.1/16" if number < 100 else
                       f"11.{number // 250}.{number % 250}.1/24")
            ip("-n", self.router, "address", "add", address, "dev", f"eth{number}")
            ip("-n", self.router, "link", "set", f"eth{number}", "up")
            ip("-n", self.hosts, "link", "set", f"load{number}", "up")
        self.socket = pathlib.Path(self.lab.scratch.name, "agent.sock")
        self.events = pathlib.Path(self.lab.scratch.name, "events")
        self.output = open(self.events, "wb")
        self.unread = None
        if piped:
            reader = subprocess.Popen(("taskset", "-c", str(SENDER_CPU), "cat"),
                                      stdin=subprocess.PIPE, stdout=self.output)
            self.output.close()
            self.output = reader.stdin
        if stuck:
            self.output.close()
            self.unread, output = os.pipe()
            self.output = open(output, "wb")
        self.agent = self.start_agent(*options, stdout=self.output)
        wait_until(lambda: self.socket.exists() and self.running() == interfaces, 60,
                   "the queriers to run")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.lab.close()
        self.output.close()
        if self.unread is not None: os.close(self.unread)

    def start_agent(self, *options, stdout):
        return self.lab.spawn(
            self.router, "taskset", "-c", AGENT_CPU, IGMPQ, "run", *self.names,
            "--querier-version", "3", "--socket", self.socket, *options, stdout=stdout)

    def running(self):
        return sum(shown["running"] for shown in self.shown("interfaces"))

    def shown(self, *what):
        done = subprocess.run(
            ("ip", "netns", "exec", self.router, IGMPQ, "show", *what, "--json",
             "--socket", self.socket), capture_output=True, text=True, check=False)
        return json.loads(done.stdout) if done.returncode == 0 else []

    def groups(self, interface="eth0"):
        return {shown["group"] for shown in self.shown("groups", interface)}

    def got(self, path):
        """The value at a path, through the request socket."""
        done = subprocess.run((IGMPQ, "get", path, "--json", "--socket", self.socket),
                              capture_output=True, text=True, check=True)
        return json.loads(done.stdout)

    def counters(self):
        return self.shown("counters", "eth0")[0]

    def lost(self):
        """The agent takes the ring's count about once a second."""
        time.sleep(3)
        return self.counters()["framesLost"]

    def start(self, work, link=0, **options):
        words = [f"--{key.replace('_', '-')}={value}" for key, value in options.items()]
        return self.lab.spawn(self.hosts, "taskset", "-c", SENDER_CPU, LINK_LOAD, f"load{link}",
                              "--work", work, *words, stdout=subprocess.PIPE)

    def send(self, work, link=0, **options):
        sender = self.start(work, link, **options)
        text, _ = sender.communicate()
        if sender.returncode != 0: raise OSError("the sender failed")
        return json.loads(text)["sent"]

    def capture_queries(self, link):
        """A capture of the general queries of that link, for `latest_query`."""
        path = pathlib.Path(self.lab.scratch.name, f"load{link}.pcap")
        self.lab.spawn(self.hosts, "tcpdump", "-U", "-i", f"load{link}", "-Q", "in", "-w", path,
                       "-Z", "root", IGMP_QUERY, stderr=subprocess.DEVNULL)
        return path

    def end(self):
        """Ends the agent; how many seconds that took."""
        begin = time.monotonic()
        self.agent.terminate()
        self.agent.wait(60)
        return time.monotonic() - begin

    def settle(self):
        """Waits until the agent has taken all that the link holds."""
        before = -1
        while before != (before := cpu_seconds(self.agent.pid)):
            time.sleep(0.2)

    def memory_bytes(self, which):
        """VmHWM for the peak, RssAnon and RssFile for what is resident now, without rings."""
        return memory_bytes(self.agent.pid, which)

    def resident_bytes(self):
        return self.memory_bytes("RssAnon") + self.memory_bytes("RssFile")


def latest_query(path):
    """By how much a general query of that capture was later than its interval."""
    text = subprocess.run(("tcpdump", "-tt", "-nr", path, "dst host 224.0.0.1"),
                          capture_output=True, text=True, check=True).stdout
    times = [float(line.split()[0]) for line in text.splitlines()]
    return max(b - a - QUERY_INTERVAL for a, b in zip(times, times[1:]))


@contextlib.contextmanager
def measured(world, figures, items):
    """Adds the cost of what happens meanwhile, in nanoseconds an item."""
    before = cpu_seconds(world.agent.pid), busy_seconds(AGENT_CPU)
    count = []
    yield count
    world.settle()
    after = cpu_seconds(world.agent.pid), busy_seconds(AGENT_CPU)
    for name, a, b in zip(("ns", "machine_ns"), before, after):
        figures[name] = (b - a) / (sum(count) * items) * 1e9


def busy_seconds(cpu):
    """Of everything on that processor, interrupts included."""
    for line in pathlib.Path("/proc/stat").read_text(encoding="ascii").splitlines():
        name, *ticks = line.split()
        if name == f"cpu{cpu}":
            user, nice, system, _, _, irq, softirq = map(int, ticks[:7])
            return (user + nice + system + irq + softirq) / os.sysconf("SC_CLK_TCK")
    raise OSError(f"no processor {cpu}")


def memory_bytes(pid, which):
    status = pathlib.Path(f"/proc/{pid}/status").read_text(encoding="ascii")
    line = next(line for line in status.splitlines() if line.startswith(which))
    return int(line.split()[1]) * 1024


def cpu_seconds(pid):
    return int(pathlib.Path(f"/proc/{pid}/schedstat").read_text(encoding="ascii").split()[0]) / 1e9
