"""Sends frames as they are through eth0, as fast as it can.

Standard input has a line for each frame: how often it is sent, and its bytes in hexadecimal. All of
them are read first. `report_frame` and its like make such frames.
"""
import socket
import struct
import subprocess
import sys

from host import internet_checksum

HOST_MAC = "02000000000b"
PROTOCOL_IGMP = 2
ROUTER_ALERT = bytes((0x94, 4, 0, 0))
QUERY = 0x11
REPORT_V2 = 0x16
REPORT_V3 = 0x22


def multicast_mac(group):
    low = socket.inet_aton(group)
    return bytes((1, 0, 0x5e, low[1] & 0x7f, low[2], low[3]))


def igmp(kind, group):
    blank = struct.pack("!BBH4s", kind, 0, 0, socket.inet_aton(group))
    return blank[:2] + struct.pack("!H", internet_checksum(blank)) + blank[4:]


def report_v3(*records):
    """Of records (type, group, sources)."""
    body = struct.pack("!HH", 0, len(records))
    for kind, group, sources in records:
        body += struct.pack("!BBH4s", kind, 0, len(sources), socket.inet_aton(group))
        body += b"".join(map(socket.inet_aton, sources))
    return summed(struct.pack("!BBH", REPORT_V3, 0, 0) + body)


def query_v3(group="0.0.0.0", sources=(), code=10, robustness=2, interval=125):
    return summed(struct.pack("!BBH4sBBH", QUERY, code, 0, socket.inet_aton(group), robustness,
                              interval, len(sources)) + b"".join(map(socket.inet_aton, sources)))


def summed(message):
    return message[:2] + struct.pack("!H", internet_checksum(message)) + message[4:]


def ipv4(source, destination, payload, flags=0, ttl=1, options=ROUTER_ALERT):
    def header(checksum):
        return struct.pack("!BBHHHBBH4s4s", 0x45 + len(options) // 4, 0xc0,
                           20 + len(options) + len(payload), 0, flags, ttl,
                           PROTOCOL_IGMP, checksum, socket.inet_aton(source),
                           socket.inet_aton(destination)) + options
    return header(internet_checksum(header(0))) + payload


def frame(source, destination, message, mac=None, **fields):
    """To the multicast address of the destination, or to that MAC address."""
    return ((mac or multicast_mac(destination)) + bytes.fromhex(HOST_MAC) + b"\x08\x00" +
            ipv4(source, destination, message, **fields))


def report_frame(source, group, tags="", flags=0):
    """A version 2 report behind VLAN tags in hexadecimal."""
    packet = ipv4(source, group, igmp(REPORT_V2, group), flags)
    return (multicast_mac(group) + bytes.fromhex(HOST_MAC) + bytes.fromhex(tags) + b"\x08\x00" +
            packet)


def send(station, *frames):
    """Sends (count, frame) pairs from a station of the lab, and returns when all are sent."""
    lines = "".join(f"{count} {frame.hex()}\n" for count, frame in frames)
    subprocess.run(("ip", "netns", "exec", station.namespace, sys.executable, __file__),
                   input=lines, text=True, check=True)


def main():
    frames = []
    for line in sys.stdin:
        count, digits = line.split()
        frames.append((int(count), bytes.fromhex(digits)))
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as link:
        link.bind(("eth0", 0))
        for count, frame in frames:
            for _ in range(count):
                link.send(frame)


if __name__ == "__main__":
    main()
