"""What the store of an agent's state costs, and how soon the next agent has that state."""
import json
import pathlib
import subprocess
import time

from world import IGMPQ, MEGABYTE, World, measured, memory_bytes, on_sender_cpu
from lab import wait_until

GROUPS_OF_FRAME = 60
# No query, and no end of a group, in the time of a run.
LASTING = ("--max-groups", "1048576", "--query-interval", "3600", "--startup-query-interval",
           "3600", "--seed", "63230")


class Store:
    def __init__(self, world):
        self.world = world
        self.socket = pathlib.Path(world.lab.scratch.name, "store.sock")
        self.process = world.lab.spawn(
            world.router, IGMPQ, "store", "--socket", self.socket, "--agent", world.socket,
            stdout=subprocess.DEVNULL)

    def shown(self):
        done = subprocess.run((IGMPQ, "store", "--show", "--json", "--socket", self.socket),
                              capture_output=True, text=True, check=False)
        return json.loads(done.stdout) if done.returncode == 0 else None

    def wait_copied(self, groups):
        def is_copied():
            shown = self.shown()
            return (shown is not None and shown["complete"] and shown["groupCount"] == groups and
                    shown["agentLostSeconds"] is None)
        wait_until(is_copied, 600, "the copy of the agent")

    def wait_lost(self):
        wait_until(lambda: self.shown()["agentLostSeconds"] is not None, 60, "the agent's end")


def first_walk(world, groups):
    """The gap of the loop while the store copies all groups, and another link has reports."""
    before = world.got("loop/longestGap")
    load = world.start("refresh", 1, groups=1000, first_host=2_000_000, rate=50_000, seconds=3600)
    wait_until(lambda: world.shown("interfaces", "eth1")[0]["groupCount"] == 1000, 60, "the load")
    store = Store(world)
    store.wait_copied(groups + 1000)
    load.terminate()
    load.wait()
    return store, {"gap_before_ms": before * 1000, "gap_ms": world.got("loop/longestGap") * 1000}


def take_over(world, store, groups):
    """From the start of the next agent on."""
    world.agent.kill()
    world.agent.wait()
    store.wait_lost()
    path = pathlib.Path(world.lab.scratch.name, "next")
    with path.open("wb") as output:
        begin = time.monotonic()
        world.agent = world.start_agent(*LASTING, "--store", store.socket, "--json", "--queries",
                                        stdout=output)

        def events(kind, interface):
            return [event for event in map(json.loads, path.read_text("utf-8").splitlines())
                    if event["event"] == kind and event["interface"] == interface]
        wait_until(lambda: events("querySent", "eth0"), 120, "the first query")
        wait_until(lambda: world.got("querierSm/eth0")["groupSm"] == groups, 600, "all machines")
        rebuilt = time.monotonic()
    over = events("takenOver", "eth0")[0]
    asked = events("querySent", "eth0")[0]
    return {"left": groups - over["groups"], "adopted_s": over["time"] - begin,
            "asked_s": asked["time"] - begin, "rebuilt_s": rebuilt - begin}


def life(groups):
    with on_sender_cpu(), World(*LASTING, "--ring-size", "65536") as world:
        world.send("joins", groups=groups, records=GROUPS_OF_FRAME, rate=4_000)
        world.settle()
        store, figures = first_walk(world, groups)
        figures["store_mb"] = memory_bytes(store.process.pid, "VmRSS") / MEGABYTE
        return {**figures, **take_over(world, store, groups)}


def published(groups, seconds):
    """The difference that a store makes to the cost of a change of a group's time."""
    work = {"groups": groups, "records": GROUPS_OF_FRAME, "rate": 10_000, "seconds": seconds}
    with on_sender_cpu(), World(*LASTING) as world:
        world.send("joins", groups=groups, records=GROUPS_OF_FRAME, rate=2_000)
        world.settle()
        costs = []
        for store in (None, lambda: Store(world).wait_copied(groups)):
            if store is not None: store()
            world.settle()
            figures = {}
            with measured(world, figures, GROUPS_OF_FRAME) as count:
                count.append(world.send("refresh", **work))
            costs.append(figures["ns"])
        return {"alone_ns": costs[0], "ns": costs[1] - costs[0]}


def store_works(tiny):
    groups = 1200 if tiny else 1_000_000
    return [
        ("store/life", {"gap_ms": 5, "store_mb": 600, "left": 0, "adopted_s": 2},
         lambda: life(groups)),
        ("store/change", {"ns": 60}, lambda: published(1200 if tiny else 60_000,
                                                       1 if tiny else 10)),
    ]
