"""What the agent's loop does to packets that wait, and what it costs while nothing happens."""
import contextlib
import datetime
import json
import os
import pathlib
import platform
import selectors
import signal
import socket
import statistics
import struct
import subprocess
import threading
import time

from world import IGMPQ, MEGABYTE, World, cpu_seconds, on_sender_cpu
from lab import wait_until

READERS = 32
HELLO = struct.pack(">HBIHdBH", 20, 1, 0x4D6F784C, 1, 0.0, 0, 2) + b"me"
GROUPS_OF_FRAME = 60


@contextlib.contextmanager
def readers(path, count):
    """Processes that read the attribute log and keep nothing."""
    selector = selectors.DefaultSelector()
    for _ in range(count):
        connection = socket.socket(socket.AF_UNIX)
        connection.connect(str(path))
        connection.sendall(HELLO)
        selector.register(connection, selectors.EVENT_READ)
    ended = threading.Event()
    room = bytearray(1 << 18)

    def read():
        while not ended.is_set():
            for key, _ in selector.select(0.1):
                if key.fileobj.recv_into(room) == 0: selector.unregister(key.fileobj)

    thread = threading.Thread(target=read)
    thread.start()
    try:
        yield lambda: len(selector.get_map())
    finally:
        ended.set()
        thread.join()
        for key in list(selector.get_map().values()): key.fileobj.close()
        selector.close()


def group_count(world):
    return world.shown("interfaces", "eth0")[0]["groupCount"]


def asked(world, *words):
    return subprocess.Popen((IGMPQ, *words, "--socket", world.socket), stdout=subprocess.DEVNULL)


def longest_gap(groups, interval):
    """Groups that expire together, all kinds of readers, and reports on another interface."""
    options = ("--max-groups", "1048576", "--query-interval", str(interval), "--ring-size", "65536",
               "--query-response-interval", str(interval / 5), "--startup-query-interval",
               str(interval))
    with on_sender_cpu(), World(*options) as world:
        load = world.start("refresh", 1, groups=1000, first_host=2_000_000, rate=50_000,
                           seconds=3600)
        world.send("joins", groups=groups, records=GROUPS_OF_FRAME, rate=4_000)
        status = "status/eth0/group"
        with readers(world.socket, READERS) as reading:
            agent = world.events
            others = [asked(world, "get", status), asked(world, "get", "querierSm/eth0/groupSm"),
                      asked(world, "get", "--complete", "querierSm/eth0/groupSm[239.15"),
                      asked(world, "get", "--complete", f"{status}[239.15")]
            os.kill(world.agent.pid, signal.SIGUSR1)
            for each in others: each.wait()
            shown = asked(world, "show", "groups", "eth0", "--json")
            shown.wait()
            known = world.got("status/eth0")["group"]
            wait_until(lambda: world.got("status/eth0")["group"] == 0, 600, "the groups to expire")
            left = reading()
        load.terminate()
        load.wait()
        world.settle()
        return {"gap_ms": world.got("loop/longestGap") * 1000, "known": known, "readers": left,
                "output_mb": agent.stat().st_size / MEGABYTE}


def flood_memory(groups, interval):
    """Resident memory without rings, before a flood of groups and after they have expired."""
    with World("--max-groups", "1048576", "--query-interval", str(interval), "--ring-size", "65536",
               "--query-response-interval", str(interval / 2)) as world:
        world.send("joins", groups=100, first_host=2_000_000)
        world.settle()
        before = world.resident_bytes()
        world.send("joins", groups=groups, records=GROUPS_OF_FRAME, rate=4_000)
        world.settle()
        full = world.resident_bytes()
        known = group_count(world)
        wait_until(lambda: group_count(world) == 0, 300, "the groups to expire")
        world.settle()
        after = world.resident_bytes()
        return {"ratio": after / before, "known": known, "before_mb": before / MEGABYTE,
                "full_mb": full / MEGABYTE, "after_mb": after / MEGABYTE}


def idle(seconds):
    """The processor time of an agent to which nothing happens, for each second."""
    with World("--query-interval", "3600", "--startup-query-interval", "3600",
               interfaces=1) as world:
        world.settle()
        before = cpu_seconds(world.agent.pid)
        time.sleep(seconds)
        return {"us": (cpu_seconds(world.agent.pid) - before) / seconds * 1e6}


def times_of(path, field):
    """The kernel's time at which each group's packet was received, from a capture."""
    text = subprocess.run(("tshark", "-r", path, "-T", "fields", "-e", "frame.time_epoch", "-e",
                           field), capture_output=True, text=True, check=True).stdout
    return {group: float(at) for at, group in (line.split() for line in text.splitlines())}


def leaves(groups):
    """How long after its leave each group ends: ideally two last member query intervals."""
    with World("--json", "--seed", "63230", "--event-rate", "0", "--events", "all") as world:
        world.send("joins", groups=groups, hosts=groups)
        world.settle()
        capture = pathlib.Path(world.lab.scratch.name, "leaves.pcap")
        tcpdump = world.lab.spawn(world.router, "tcpdump", "-U", "-i", "eth0", "-Q", "in", "-w",
                                  capture, "-Z", "root", "igmp", stderr=subprocess.PIPE)
        tcpdump.stderr.readline()  # it captures from here on
        world.send("leaves", groups=groups, hosts=groups, rate=groups)
        wait_until(lambda: group_count(world) == 0, 20, "the groups to end")
        tcpdump.terminate()
        tcpdump.wait()
        left = times_of(capture, "igmp.maddr")
        took = []
        with open(world.events, encoding="utf-8") as lines:
            for event in map(json.loads, lines):
                if event["event"] != "groupLeft": continue
                ended = datetime.datetime.fromisoformat(event["utc"]).timestamp()
                took.append(ended - left[event["group"]])
        return {"events": len(took), "seconds": max(took), "median": statistics.median(took)}


def loop_works(tiny):
    kernel = platform.release()
    groups = 1000 if tiny else 1_000_000
    return [
        ("loop/gap", {"gap_ms": 5}, lambda: longest_gap(groups, 10 if tiny else 25)),
        ("flood/memory", {"ratio": 2}, lambda: flood_memory(groups // 2, 4 if tiny else 10)),
        ("loop/idle", {"us": 30}, lambda: idle(2 if tiny else 60)),
        (f"leave/1000 (Linux {kernel})", {"seconds": 2.02},
         lambda: leaves(100 if tiny else 1000)),
    ]
