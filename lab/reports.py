"""Sends version 2 reports and leaves for many groups, 2000 a second.

  reports.py GROUPS SECONDS SEED   every group once, then random joins and leaves for that long
"""
import random
import socket
import struct
import sys
import time

from host import internet_checksum

REPORT, LEAVE = 0x16, 0x17
A_SECOND = 2000
FIRST_GROUP = (232 << 24) + 1
ALL_ROUTERS = "224.0.0.2"


def address(number):
    return socket.inet_ntoa(struct.pack("!I", FIRST_GROUP + number))


def message(kind, group):
    blank = struct.pack("!BBH4s", kind, 0, 0, socket.inet_aton(group))
    return struct.pack("!BBH4s", kind, 0, internet_checksum(blank), socket.inet_aton(group))


def main():
    groups, seconds, seed = int(sys.argv[1]), float(sys.argv[2]), int(sys.argv[3])
    chance = random.Random(seed)
    link = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_IGMP)
    link.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, b"eth0")
    joined = set(range(groups))
    start, sent = time.monotonic(), 0

    def send(kind, number):
        nonlocal sent
        group = address(number)
        link.sendto(message(kind, group), (group if kind == REPORT else ALL_ROUTERS, 0))
        sent += 1
        ahead = start + sent / A_SECOND - time.monotonic()
        if ahead > 0: time.sleep(ahead)

    for number in range(groups):
        send(REPORT, number)
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        number = chance.randrange(groups)
        if number in joined and chance.random() < 0.5:
            joined.remove(number)
            send(LEAVE, number)
        else:
            joined.add(number)
            send(REPORT, number)


if __name__ == "__main__":
    main()
