"""Turns a readable description of an IGMP packet into the hexadecimal digits of a scenario.

    python3 packets.py 'v2report 239.1.2.3 from=10.0.0.101'

KIND and its words, with `key=value` anywhere:

    v1report GROUP    v2report GROUP    leave GROUP
    v1query GROUP     v2query GROUP     v3query GROUP [SOURCE...]
    v3report [RECORD [; RECORD]...]     RECORD: TYPE GROUP [SOURCE...] [aux=WORDS] [sources=NUMBER]
        TYPE: is_in is_ex to_in to_ex allow block, or a number
    raw HEX           an IGMP message as it is; its checksum is filled in

    from= to=         IP addresses (10.0.0.101; by the kind)
    code= s= qrv= qqic=   fields of a query (100 for general, 10 for other queries; 0; 2; 125)
    type=             another type byte, such as 0x13
    sources= records= a wrong number in the message
    trim=N            the message loses its last N bytes before lengths and checksums are made
    cut=N             the packet loses its last N bytes, but keeps its lengths
    pad=N             the packet is followed by N bytes of Ethernet padding
    proto=            another IP protocol
    alert=no          without the Router Alert option
    sum=bad ipsum=bad wrong checksums
"""
import ipaddress
import struct
import sys

RECORD_TYPES = {"is_in": 1, "is_ex": 2, "to_in": 3, "to_ex": 4, "allow": 5, "block": 6}
ROUTER_ALERT = bytes([0x94, 4, 0, 0])
IGMP = 2


def checksum(data):
    data += bytes(len(data) % 2)
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total > 0xffff:
        total = (total & 0xffff) + (total >> 16)
    return ~total & 0xffff


def with_checksum(data, offset, bad):
    value = checksum(data[:offset] + bytes(2) + data[offset + 2:])
    if bad:
        value ^= 0x0101
    return data[:offset] + struct.pack("!H", value) + data[offset + 2:]


def address(text):
    return ipaddress.IPv4Address(text).packed


def split_options(words):
    plain = [word for word in words if "=" not in word]
    return plain, dict(word.split("=", 1) for word in words if "=" in word)


def record_bytes(words):
    (kind, group, *sources), options = split_options(words)
    aux = int(options.get("aux", 0))
    number = int(options.get("sources", len(sources)))
    head = struct.pack("!BBH", RECORD_TYPES.get(kind) or int(kind), aux, number)
    return head + address(group) + b"".join(map(address, sources)) + b"\xa5" * 4 * aux


def report_bytes(words, options):
    groups = [part.split() for part in " ".join(words).split(";")]
    records = [record_bytes(part) for part in groups if part]
    number = int(options.get("records", len(records)))
    return struct.pack("!BBHHH", 0x22, 0, 0, 0, number) + b"".join(records)


def query_bytes(version, words, options):
    group, *sources = words
    default = {1: 0}.get(version, 100 if group == "0.0.0.0" else 10)
    message = struct.pack("!BBH", 0x11, int(options.get("code", default)), 0) + address(group)
    if version == 3:
        flags = int(options.get("s", 0)) << 3 | int(options.get("qrv", 2))
        number = int(options.get("sources", len(sources)))
        message += struct.pack("!BBH", flags, int(options.get("qqic", 125)), number)
        message += b"".join(map(address, sources))
    return message


def message_bytes(kind, words, options):
    """The IGMP message without its checksum, and where it is usually sent."""
    if kind == "raw":
        return bytes.fromhex(words[0]), "224.0.0.1"
    if kind == "v3report":
        return report_bytes(words, options), "224.0.0.22"
    if kind.endswith("query"):
        to = "224.0.0.1" if words[0] == "0.0.0.0" else words[0]
        return query_bytes(int(kind[1]), words, options), to
    code = {"v1report": 0x12, "v2report": 0x16, "leave": 0x17}[kind]
    to = "224.0.0.2" if kind == "leave" else words[0]
    return struct.pack("!BBH", code, 0, 0) + address(words[0]), to


def packet(description):
    kind, *words = description.split()
    record_keys = ("aux=", "sources=") if kind == "v3report" else ()
    options = split_options([word for word in words if not word.startswith(record_keys)])[1]
    plain = [word for word in words if "=" not in word or word.startswith(record_keys)]
    message, to = message_bytes(kind, plain, options)
    if "type" in options:
        message = bytes([int(options["type"], 0)]) + message[1:]
    message = message[:len(message) - int(options.get("trim", 0))]
    if len(message) >= 4:
        message = with_checksum(message, 2, options.get("sum") == "bad")
    alert = b"" if options.get("alert") == "no" else ROUTER_ALERT
    size = 20 + len(alert)
    head = struct.pack("!BBHHHBBH", 0x40 | size // 4, 0xc0, size + len(message), 0, 0, 1,
                       int(options.get("proto", IGMP)), 0)
    head += address(options.get("from", "10.0.0.101")) + address(options.get("to", to)) + alert
    whole = with_checksum(head, 10, options.get("ipsum") == "bad") + message
    whole = whole[:len(whole) - int(options.get("cut", 0))]
    return (whole + bytes(int(options.get("pad", 0)))).hex()


if __name__ == "__main__":
    if len(sys.argv) != 2 or sys.argv[1] in ("-h", "--help"):
        sys.exit(__doc__)
    print(packet(sys.argv[1]))
