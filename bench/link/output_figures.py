"""What an output that takes nothing does to queries, and how long the agent takes to end."""
import subprocess
import time

from world import IGMPQ, OFTEN_QUERIED, RATE, World, latest_query

EVERY_EVENT = ("--events", "all", "--event-rate", "0")


def stuck_output(groups, seconds):
    """Groups come and go as fast as it can be, into a pipe that nobody reads."""
    with World(*OFTEN_QUERIED, *EVERY_EVENT, "--json", stuck=True) as world:
        capture = world.capture_queries(0)
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            world.send("joins", groups=groups, hosts=100, rate=RATE)
            subprocess.run((IGMPQ, "clear", "groups", "eth0", "--socket", world.socket),
                           stdout=subprocess.DEVNULL, check=True)
        joins = world.counters()["joins"]
        return {"late_ms": latest_query(capture) * 1000, "end_ms": world.end() * 1000,
                "joins_a_second": joins / seconds}


def end_of_many_groups(groups):
    """The final state goes into a pipe that is read."""
    with World("--max-groups", "1048576", "--json", piped=True) as world:
        world.send("joins", groups=groups, records=60, rate=RATE / 100)
        world.settle()
        known = world.shown("interfaces", "eth0")[0]["groupCount"]
        return {"end_ms": world.end() * 1000, "known": known}


def end_of_many_interfaces(interfaces):
    with World(interfaces=interfaces) as world:
        return {"end_ms": world.end() * 1000}


def output_works(tiny):
    return [
        ("output/stuck", {"late_ms": 100, "end_ms": 1000},
         lambda: stuck_output(500 if tiny else 5000, 5 if tiny else 10)),
        ("end/groups", {"end_ms": 1000}, lambda: end_of_many_groups(1000 if tiny else 1_000_000)),
        ("end/interfaces", {"end_ms": 1000}, lambda: end_of_many_interfaces(5 if tiny else 999)),
    ]
