"""What `igmpq web` takes for its answers, and what it costs the agent."""
import contextlib
import http.client
import pathlib
import selectors
import socket
import subprocess
import threading
import time

from loop_figures import GROUPS_OF_FRAME
from world import IGMPQ, MEGABYTE, SENDER_CPU, World, cpu_seconds
from lab import wait_until

STREAMS = 50
EVENT_RATE = 10_000
MANY = ("--max-groups", "1048576", "--query-interval", "1000", "--ring-size", "65536")


class Web:
    """On the sender's processor."""

    def __init__(self, world):
        self.process = subprocess.Popen(
            ("taskset", "-c", str(SENDER_CPU), IGMPQ, "web", "--listen", "127.0.0.1:0",
             "--socket", world.socket), stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline().rstrip("/\n").rpartition(":")[2])
        wait_until(lambda: b'"connected":true' in self.get("/api/v1/agent")[0], 120, "the copy")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait(60)
        self.process.stdout.close()

    def get(self, path):
        """The first bytes of the answer, and how many there are."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port)
        with contextlib.closing(connection):
            connection.request("GET", path)
            answer = connection.getresponse()
            if answer.status != 200: raise OSError(f"{path}: {answer.status}")
            first = answer.read(1024)
            size = len(first)
            room = bytearray(1 << 20)
            while (count := answer.readinto(room)) > 0: size += count
            return first, size

    def memory_bytes(self, which):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text(encoding="ascii")
        return int(next(line for line in status.splitlines() if line.startswith(which)).split()[1]
                   ) * 1024

    @contextlib.contextmanager
    def streams(self, count):
        """Clients that follow the events; how many bytes they have got."""
        selector, got, ended = selectors.DefaultSelector(), [0], threading.Event()
        for _ in range(count):
            connection = socket.create_connection(("127.0.0.1", self.port))
            connection.sendall(b"GET /api/v1/events HTTP/1.1\r\nHost: localhost\r\n\r\n")
            selector.register(connection, selectors.EVENT_READ)

        def read():
            room = bytearray(1 << 18)
            while not ended.is_set():
                for key, _ in selector.select(0.1): got[0] += key.fileobj.recv_into(room)

        thread = threading.Thread(target=read)
        thread.start()
        try:
            yield got
        finally:
            ended.set()
            thread.join()
            for key in list(selector.get_map().values()): key.fileobj.close()
            selector.close()


def many_groups(groups):
    with World(*MANY, interfaces=1) as world:
        world.send("joins", groups=groups, records=GROUPS_OF_FRAME, rate=4_000)
        world.settle()
        known = world.got("status/eth0")["group"]
        with Web(world) as web:
            copy = web.memory_bytes("VmRSS")
            pathlib.Path(f"/proc/{web.process.pid}/clear_refs").write_text("5", encoding="ascii")
            begin = time.monotonic()
            _, size = web.get("/api/v1/interfaces/eth0/groups")
            seconds = time.monotonic() - begin
            return {"seconds": seconds, "beyond_mb": (web.memory_bytes("VmHWM") - copy) / MEGABYTE,
                    "copy_mb": copy / MEGABYTE, "answer_mb": size / MEGABYTE, "known": known}


def agent_cost(streams, joins):
    """The processor time of the agent for each join, while that many clients follow the events."""
    with World(*MANY, interfaces=1) as world, Web(world) as web, web.streams(streams) as got:
        world.settle()
        before = cpu_seconds(world.agent.pid)
        sent = world.send("joins", groups=joins, hosts=100, rate=EVENT_RATE)
        world.settle()
        return (cpu_seconds(world.agent.pid) - before) / sent * 1e9, got[0]


def event_streams(joins):
    alone, _ = agent_cost(0, joins)
    followed, got = agent_cost(STREAMS, joins)
    return {"ratio": followed / alone, "alone_ns": alone, "followed_ns": followed,
            "streamed_mb": got / MEGABYTE}


def web_works(tiny):
    return [
        ("web/groups", {"seconds": 3, "beyond_mb": 64},
         lambda: many_groups(1000 if tiny else 1_000_000)),
        (f"web/{STREAMS}streams", {"ratio": 1.1},
         lambda: event_streams(1000 if tiny else 5 * EVENT_RATE)),
    ]
