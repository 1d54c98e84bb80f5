"""Measures what the agent does with packets of a real link: its cost, and what it loses.

The agent has the first processor and the sender the second. The kernel receives the frames of a
veth link on the sender's processor, so the agent's has nothing but the agent and what the kernel
does for it. A row is the median of several runs, each with an agent of its own.
"""
import argparse
import concurrent.futures
import json
import os
import pathlib
import re
import statistics
import sys

from join_figures import join_works
from loop_figures import loop_works
from output_figures import output_works
from store_figures import store_works
from web_figures import web_works
from world import MEGABYTE, OFTEN_QUERIED, RATE, World, latest_query, measured
from lab import why_not


def softnet_drops():
    lines = pathlib.Path("/proc/net/softnet_stat").read_text(encoding="ascii").splitlines()
    return sum(int(line.split()[1], 16) for line in lines)


def refresh(groups, records=1, sources=0, rate=RATE, seconds=3):
    with World() as world:
        work = {"groups": groups, "records": records, "sources": sources, "hosts": 100}
        kind = "joins" if sources == 0 else "refresh"
        world.send(kind, rate=rate / 10, **work)
        world.settle()
        if len(world.groups()) != groups: raise AssertionError("not all groups are known")
        figures = {}
        with measured(world, figures, records * max(sources, 1)) as count:
            count.append(world.send("refresh", rate=rate, seconds=seconds, **work))
        figures["lost"] = world.lost()
        return figures


def burst(groups):
    with World() as world:
        world.send("joins", groups=groups, hosts=100)
        world.settle()
        return {"missing": groups - len(world.groups()), "lost": world.lost()}


def minute(groups, rate, seconds):
    drops = softnet_drops()
    with World() as world:
        world.send("refresh", groups=groups, rate=rate, seconds=seconds)
        world.settle()
        return {"missing": groups - len(world.groups()), "softnet": softnet_drops() - drops,
                "lost": world.lost()}


def honest_hosts(world, link, count, seconds):
    """They join and report; half of them leave. Yields how many groups are wrong at the end."""
    half = count // 2
    world.send("joins", link, groups=count, hosts=count)
    yield
    world.send("refresh", link, groups=count, hosts=count, rate=count, seconds=seconds / 2)
    world.send("leaves", link, groups=half, hosts=half)
    world.send("refresh", link, groups=count - half, hosts=count - half, first_host=half,
               rate=count - half, seconds=seconds / 2)
    groups = world.groups(f"eth{link}")
    stayed = {f"239.1.0.{number}" for number in range(half, count)}
    left = {f"239.1.0.{number}" for number in range(half)}
    yield len(stayed - groups) + len(left & groups)


def flood(work, hosts, rate, seconds):
    """Beside 100 honest hosts on the same link and 10 on another."""
    with World(*OFTEN_QUERIED) as world:
        captures = [world.capture_queries(link) for link in (0, 1)]
        honest = [honest_hosts(world, 0, 100, seconds), honest_hosts(world, 1, 10, seconds)]
        for hosts_of_link in honest:
            next(hosts_of_link)
        attack = world.start(work, hosts=hosts, first_host=1000, rate=rate, seconds=seconds)
        with concurrent.futures.ThreadPoolExecutor() as pool:
            wrong = sum(pool.map(next, honest))
        attack.communicate()
        return {"wrong": wrong, "peak_mb": world.memory_bytes("VmHWM") / MEGABYTE,
                "late_ms": max(map(latest_query, captures)) * 1000,
                "lost": world.lost()}


# Each with the budgets of its figures; a figure without a budget is shown only.
def works(tiny):
    seconds = 1 if tiny else 3
    rows = []
    for groups, single in ((1000, 420), (50000, 520)):
        count = groups // 50 if tiny else groups
        rows.append((f"refresh/oneRecord/{groups}", {"ns": single, "lost": 0},
                     lambda count=count: refresh(count, seconds=seconds)))
        rows.append((f"refresh/60records/{groups}", {"ns": 65, "lost": 0},
                     lambda count=count: refresh(count, records=60, rate=RATE / 10,
                                                 seconds=seconds)))
    rows.append(("refresh/100sources", {"ns": 45, "lost": 0},
                 lambda: refresh(20 if tiny else 1000, sources=100, rate=RATE / 10,
                                 seconds=seconds)))
    joins = 500 if tiny else 10000
    rows.append(("burst/joins", {"missing": 0, "lost": 0}, lambda: burst(joins)))
    groups = 500 if tiny else 50000
    rows.append(("minute/oneRecord", {"missing": 0, "lost": 0, "softnet": 0},
                 lambda: minute(groups, RATE, 2 if tiny else 60)))
    for work in ("random-groups",) if tiny else ("random-groups", "random-sources"):
        for hosts in (1,) if tiny else (1, 10000):
            rows.append((f"flood/{work}/{hosts}hosts",
                         {"wrong": 0, "late_ms": 100, "peak_mb": 250},
                         lambda work=work, hosts=hosts: flood(work, hosts, RATE,
                                                              6 if tiny else 10)))
    return (rows + join_works(tiny) + loop_works(tiny) + output_works(tiny) + store_works(tiny) +
            web_works(tiny))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--json", action="store_true", help="write JSON instead of a table")
    parser.add_argument("--filter", default=".", help="regular expression on names")
    parser.add_argument("--runs", type=int, default=5, help="runs to take the median of")
    parser.add_argument("--tiny", action="store_true", help="only show that each row works")
    arguments = parser.parse_args()
    if os.cpu_count() < 2: sys.exit("the agent and the sender need a processor each")
    reason = why_not()
    if reason is not None:
        print(f"no lab here: {reason}", file=sys.stderr)
        sys.exit(77)
    rows = []
    for name, budgets, work in works(arguments.tiny):
        if not re.search(arguments.filter, name): continue
        print(f"running {name}", file=sys.stderr)
        results = [work() for _ in range(1 if arguments.tiny else arguments.runs)]
        for figure in results[0]:
            value = statistics.median(result[figure] for result in results)
            budget = budgets.get(figure)
            verdict = "" if budget is None else "within" if value <= budget else "MISSED"
            rows.append({"work": name, "figure": figure, "measured": round(value, 2),
                         "budget": budget, "verdict": verdict})
    if arguments.json:
        print(json.dumps(rows, indent=2))
        return
    for row in rows:
        budget = "" if row["budget"] is None else f"{row['budget']:g}"
        print(f"{row['work']:28}  {row['figure']:10}  {row['measured']:12.2f}  {budget:>6}"
              f"  {row['verdict']}")


if __name__ == "__main__":
    main()
