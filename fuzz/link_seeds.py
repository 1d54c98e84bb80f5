"""Messages of the kernel about interfaces, in the byte order of this machine."""
import struct

NEW_LINK, DEL_LINK, NEW_ADDRESS, DEL_ADDRESS = 16, 17, 20, 21
UP, LOWER_UP = 0x1, 0x1040  # with multicast, and with a carrier


def attributes_of(*pairs):
    return b"".join(struct.pack("=HH", 4 + len(value), kind) + value + bytes(-len(value) % 4)
                    for kind, value in pairs)


def kernel_message(kind, fixed, attributes=b""):
    content = fixed + attributes
    return struct.pack("=IHHII", 16 + len(content), kind, 0, 0, 0) + content


def link(kind, index, name=None, flags=UP | LOWER_UP, family=0):
    fixed = struct.pack("=BxHiII", family, 1, index, flags, 0)
    named = ((3, name + b"\0"),) if name else ()
    return kernel_message(kind, fixed, attributes_of(
        *named, (4, struct.pack("=I", 1500)), (1, bytes.fromhex("020000000001"))))


def with_length(message, length):
    return struct.pack("=I", length) + message[4:]


def address(kind, index, last, flags=0):
    return kernel_message(kind, struct.pack("=BBBBI", 2, 24, flags, 0, index),
                          attributes_of((1, bytes((10, 0, 0, 254))), (2, bytes((10, 0, 0, last)))))


def two_datagrams(first, second):
    return bytes([len(first) // 16]) + first + bytes(-len(first) % 16) + second


LINKS = {
    "link": two_datagrams(link(NEW_LINK, 2, b"eth0"), link(NEW_LINK, 2, b"eth0", UP)),
    "addresses": two_datagrams(
        link(NEW_LINK, 2, b"eth0") + address(NEW_ADDRESS, 2, 1) + address(NEW_ADDRESS, 2, 9, 1),
        address(DEL_ADDRESS, 2, 1)),
    "renamed": two_datagrams(link(NEW_LINK, 2, b"eth0"), link(NEW_LINK, 2, b"eth1")),
    "gone": two_datagrams(link(NEW_LINK, 2, b"eth0"),
                          link(DEL_LINK, 2) + link(NEW_LINK, 3, b"eth0")),
    "bridge-port": two_datagrams(link(NEW_LINK, 2, b"eth0"), link(DEL_LINK, 2, family=7)),
    "cut": two_datagrams(link(NEW_LINK, 2, b"eth0")[:-8], link(NEW_LINK, 3)[:40]),
    "longer-than-its-datagram": two_datagrams(
        with_length(link(NEW_LINK, 2, b"eth0"), 0xfffffffc),
        with_length(link(NEW_LINK, 2, b"eth0"), 0x80000000)),
}
