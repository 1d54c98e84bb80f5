"""What a new group or source costs the agent, when each is an event that is read from a pipe."""
from world import RATE, World, measured

EVERY_EVENT = ("--events", "all", "--event-rate", "0")
MOST_SOURCES = 250  # of a frame


def joins(groups):
    with World(*EVERY_EVENT, piped=True) as world:
        figures = {}
        with measured(world, figures, 1) as count:
            count.append(world.send("joins", groups=groups, hosts=100, rate=RATE / 3))
        return {**figures, **left_out(world, groups)}


def joins_with_sources(groups, sources):
    with World(*EVERY_EVENT, piped=True) as world:
        figures = {}
        with measured(world, figures, sources) as count:
            count.append(world.send("refresh", groups=groups, sources=sources, hosts=100,
                                    rate=RATE / 10))
        return {**figures, **left_out(world, groups)}


def left_out(world, groups):
    """These must be 0, or the other figures do not count."""
    return {"missing": groups - len(world.groups()),
            "silent": max(0, groups - world.events.read_bytes().count(b"  joined "))}


def memory(groups, sources=0):
    """Resident bytes a group, or a source, without rings."""
    with World(*EVERY_EVENT, "--max-groups", "1048576", "--max-sources", "1048576",
               piped=True) as world:
        world.settle()
        before = world.resident_bytes()
        if sources == 0:
            world.send("joins", groups=groups, records=60, rate=RATE / 100)
        for first in range(0, sources, MOST_SOURCES):
            world.send("refresh", groups=groups, first_source=first,
                       sources=min(MOST_SOURCES, sources - first), rate=RATE / 100)
        world.settle()
        known = world.shown("interfaces", "eth0")[0]["groupCount"]
        return {"bytes": (world.resident_bytes() - before) / (groups * max(sources, 1)),
                "missing": groups - known}


def join_works(tiny):
    many = 500 if tiny else 50_000
    return [
        ("join/oneRecord", {"ns": 950, "missing": 0, "silent": 0}, lambda: joins(many)),
        ("join/10sources", {"ns": 330, "missing": 0, "silent": 0},
         lambda: joins_with_sources(many // 10, 10)),
        ("memory/groups", {"bytes": 560, "missing": 0},
         lambda: memory(2000 if tiny else 1_000_000)),
        ("memory/sources", {"bytes": 300, "missing": 0},
         lambda: memory(10 if tiny else 1000, 1000)),
    ]
