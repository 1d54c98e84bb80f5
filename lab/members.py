"""Sends version 3 reports of the members of many groups through eth0, without end.

  members.py STAYING COMING SEED

The groups are 232.0.0.0 and those after it. All are joined at first. The members of the first
STAYING report once a second. Of the other COMING, some leave together once a second, and some join:
a router that has lost an election keeps its role while it still has to ask about a leave.
"""
import random
import socket
import struct
import sys
import time

from frames import frame, report_v3

IS_EXCLUDE, TO_INCLUDE, TO_EXCLUDE = 2, 3, 4
FIRST_GROUP = 232 << 24
HOSTS = 50
RECORDS = 60  # of a frame
ROUNDS = 100  # a second
CHANGING = 30  # a second
ALL_ROUTERS = "224.0.0.22"


def address(number):
    return socket.inet_ntoa(struct.pack("!I", FIRST_GROUP + number))


def staying_groups(count):
    return {address(number) for number in range(count)}


def report(chance, kind, numbers):
    host = f"10.77.0.{chance.randrange(100, 100 + HOSTS)}"
    records = [(kind, address(number), ()) for number in numbers]
    return frame(host, ALL_ROUTERS, report_v3(*records))


def main():
    staying, coming, seed = map(int, sys.argv[1:])
    chance = random.Random(seed)
    packets = [report(chance, IS_EXCLUDE, range(first, min(first + RECORDS, staying)))
               for first in range(0, staying, RECORDS)]
    others = range(staying, staying + coming)
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as link:
        link.bind(("eth0", 0))
        for first in range(0, staying + coming, RECORDS):
            link.send(report(chance, TO_EXCLUDE,
                             range(first, min(first + RECORDS, staying + coming))))
            time.sleep(1 / 1000)
        start = time.monotonic()
        rounds = sent = 0
        while True:
            rounds += 1
            ahead = start + rounds / ROUNDS - time.monotonic()
            if ahead > 0: time.sleep(ahead)
            if rounds % ROUNDS == 0:
                for kind in (TO_INCLUDE, TO_EXCLUDE):
                    link.send(report(chance, kind, chance.sample(others, CHANGING)))
            while sent < rounds * len(packets) / ROUNDS:
                link.send(packets[sent % len(packets)])
                sent += 1


if __name__ == "__main__":
    main()
