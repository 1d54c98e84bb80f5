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
REPORT_V2 = 0x16


def multicast_mac(group):
    low = socket.inet_aton(group)
    return bytes((1, 0, 0x5e, low[1] & 0x7f, low[2], low[3]))


def igmp(kind, group):
    blank = struct.pack("!BBH4s", kind, 0, 0, socket.inet_aton(group))
    return blank[:2] + struct.pack("!H", internet_checksum(blank)) + blank[4:]


def ipv4(source, destination, payload, flags=0):
    def header(checksum):
        return struct.pack("!BBHHHBBH4s4s", 0x46, 0xc0, 24 + len(payload), 0, flags, 1,
                           PROTOCOL_IGMP, checksum, socket.inet_aton(source),
                           socket.inet_aton(destination)) + ROUTER_ALERT
    return header(internet_checksum(header(0))) + payload


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
