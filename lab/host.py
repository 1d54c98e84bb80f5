"""A multicast host inside a network namespace: its kernel reports the groups of this process.

Reads commands, one a line; answers each with "ok" or "error TEXT".

  join GROUP [SOURCE]     all sources, or this one in addition
  leave GROUP [SOURCE]
  block GROUP SOURCE      all sources but this one, of a group joined without a source
  unblock GROUP SOURCE
  query VERSION [GROUP [RESPONSE]]  sends the query of a router of that version; RESPONSE in
                                    tenths of a second
"""
import socket
import struct
import sys

# <linux/in.h>; the socket module names only some of these.
IP_UNBLOCK_SOURCE = 37
IP_BLOCK_SOURCE = 38
IP_ADD_SOURCE_MEMBERSHIP = 39
IP_DROP_SOURCE_MEMBERSHIP = 40

ROUTER_ALERT = bytes((0x94, 4, 0, 0))
ALL_HOSTS = "224.0.0.1"


def internet_checksum(data):
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total > 0xFFFF:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def query_message(version, group, response):
    if version == 1: response = 0
    tail = struct.pack("!BBH", 2, 125, 0) if version == 3 else b""
    address = socket.inet_aton(group)
    blank = struct.pack("!BBH4s", 0x11, response, 0, address) + tail
    return struct.pack("!BBH4s", 0x11, response, internet_checksum(blank), address) + tail


class Host:
    def __init__(self, address):
        self.address = socket.inet_aton(address)
        self.sockets = {}

    def set_option(self, group, option, *addresses):
        # One socket for each group: the source filter belongs to the socket, which can join only a
        # few groups.
        if group not in self.sockets:
            self.sockets[group] = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        value = b"".join((socket.inet_aton(group), self.address, *map(socket.inet_aton, addresses)))
        self.sockets[group].setsockopt(socket.IPPROTO_IP, option, value)

    def join(self, group, source=None):
        if source is None:
            self.set_option(group, socket.IP_ADD_MEMBERSHIP)
        else:
            self.set_option(group, IP_ADD_SOURCE_MEMBERSHIP, source)

    def leave(self, group, source=None):
        if source is None:
            self.set_option(group, socket.IP_DROP_MEMBERSHIP)
        else:
            self.set_option(group, IP_DROP_SOURCE_MEMBERSHIP, source)

    def block(self, group, source):
        self.set_option(group, IP_BLOCK_SOURCE, source)

    def unblock(self, group, source):
        self.set_option(group, IP_UNBLOCK_SOURCE, source)

    def query(self, version, group="0.0.0.0", response="10"):
        destination = ALL_HOSTS if group == "0.0.0.0" else group
        with socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_IGMP) as raw:
            raw.setsockopt(socket.IPPROTO_IP, socket.IP_OPTIONS, ROUTER_ALERT)
            raw.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 1)
            raw.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_LOOP, 0)
            raw.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, self.address)
            raw.sendto(query_message(int(version), group, int(response)), (destination, 0))


COMMANDS = {name: getattr(Host, name) for name in ("join", "leave", "block", "unblock", "query")}


def main():
    host = Host(sys.argv[1])
    for line in sys.stdin:
        name, *arguments = line.split()
        try:
            COMMANDS[name](host, *arguments)
            answer = "ok"
        except (OSError, KeyError, TypeError, ValueError) as error:
            answer = f"error {line.strip()}: {error!r}"
        print(answer, flush=True)


if __name__ == "__main__":
    main()
