"""Writes the seeds of the fuzz targets: small inputs that reach much code, where a search starts.

    python3 fuzz/make_seeds.py

Seeds with other names, such as past findings, stay as they are.
"""
import pathlib
import struct
import sys

FUZZ = pathlib.Path(__file__).resolve().parent
ROOT = FUZZ.parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "test" / "scenarios"))

from link_seeds import LINKS  # noqa: E402
from log_seeds import AGENTS, ATTR_LOGS, STORES  # noqa: E402
from packets import packet  # noqa: E402
from web_seeds import WEB  # noqa: E402

IP_HEADER = 24
RAW, REPAIRED, MESSAGE, RESTART = range(4)
HOST, LOWER, HIGHER, NOBODY = range(4)


def write(target, name, content):
    folder = FUZZ / "seeds" / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(content.encode() if isinstance(content, str) else content)


def whole(description):
    return bytes.fromhex(packet(description))


def message(description):
    return whole(description)[IP_HEADER:]


QUERIES = {
    "general": "v3query 0.0.0.0",
    "group": "v3query 239.1.1.1 s=1 qrv=7 qqic=200 code=138",
    "sources": "v3query 239.1.1.1 10.7.0.1 10.7.0.2 10.7.0.1 224.0.0.1",
    "short": "v3query 239.1.1.1 10.7.0.1 sources=2",
}
REPORTS = {
    "empty": "v3report",
    "exclude": "v3report is_ex 239.1.1.1 10.7.0.1",
    "many": "v3report to_in 239.1.1.1 ; to_ex 239.1.1.2 10.7.0.1 10.7.0.2 ; allow 239.1.1.3 "
            "10.7.0.3 aux=2 ; block 239.1.1.3 10.7.0.3 ; 9 224.0.0.5",
    "invalid-source": "v3report is_in 239.1.1.1 224.0.0.1 0.0.0.0 255.255.255.255",
    "short": "v3report is_in 239.1.1.1 10.7.0.1 records=2",
}


def step(what, sender, wait, content=b""):
    head = bytes([what | sender << 2, wait])
    return head if what == RESTART else head + bytes([len(content)]) + content


def sent(sender, wait, description):
    return step(MESSAGE, sender, wait, message(description))


def setup(version, boundary=False, mtu=0, yields=False, traces=False):
    return bytes([(3 - version) | boundary << 3 | mtu << 4 | yields << 6 | traces << 7])


# Waits: below 128 in eighths of a second, from 128 on in steps of five seconds.
PACKETS = {
    "join-and-leave": [
        setup(3), sent(HOST, 80, "v3report to_ex 239.1.1.1"), sent(HOST, 8, "v2report 239.1.1.2"),
        sent(HOST, 8, "v1report 239.1.1.3"), sent(HOST, 8, "v3report to_in 239.1.1.1"),
        sent(HOST, 4, "leave 239.1.1.2"), sent(HOST, 40, "leave 239.1.1.3"), step(RAW, HOST, 255)],
    "sources": [
        setup(3, mtu=1), sent(HOST, 80, "v3report allow 239.1.1.1 " + " ".join(
            f"10.7.0.{n}" for n in range(1, 20))),
        sent(HOST, 8, "v3report block 239.1.1.1 10.7.0.1 10.7.0.2 10.7.0.3 10.7.0.4"),
        sent(HOST, 8, "v3report to_ex 239.1.1.1 10.7.0.2 10.7.0.9"),
        sent(HOST, 8, "v3report is_ex 239.1.1.1 10.7.0.3"),
        sent(HOST, 8, "v3report to_in 239.1.1.1 10.7.0.5"), step(RAW, HOST, 200)],
    "election": [
        setup(3, traces=True), sent(HOST, 100, "v3report to_ex 239.1.1.1"),
        sent(HOST, 8, "v3report to_in 239.1.1.1"), sent(LOWER, 2, "v3query 0.0.0.0 qqic=10 qrv=1"),
        sent(LOWER, 8, "v3query 239.1.1.1 10.7.0.1"), sent(LOWER, 8, "v2query 239.1.1.5"),
        sent(HIGHER, 8, "v3query 0.0.0.0"), sent(NOBODY, 8, "v3query 0.0.0.0"),
        step(RAW, HOST, 160), sent(LOWER, 8, "v1query 0.0.0.0"), step(RAW, HOST, 255)],
    "restart": [
        setup(3, yields=True), sent(HOST, 8, "v3report to_ex 239.1.1.1 ; allow 239.1.1.2 10.7.0.1"),
        sent(HOST, 8, "v2report 239.1.1.3"), step(RESTART, HOST, 3),
        sent(HOST, 0, "v3report to_in 239.1.1.1"), step(RESTART, HOST, 4), step(RAW, HOST, 255)],
    "version-1": [
        setup(1), sent(HOST, 8, "v1report 239.1.1.1"), sent(HOST, 8, "v2report 239.1.1.2"),
        sent(LOWER, 8, "v1query 0.0.0.0"), sent(LOWER, 8, "v2query 239.1.1.1"),
        step(RAW, HOST, 255)],
    "version-2": [
        setup(2), sent(HOST, 8, "v2report 239.1.1.1"), sent(HOST, 8, "leave 239.1.1.1"),
        sent(LOWER, 1, "v2query 0.0.0.0"), sent(LOWER, 8, "v2query 239.1.1.1 code=10"),
        sent(HOST, 8, "v3report to_ex 239.1.1.2"), step(RAW, HOST, 255)],
    "boundary": [
        setup(3, boundary=True), sent(HOST, 8, "v2report 239.255.0.1"),
        sent(HOST, 8, "v3report to_ex 239.255.0.1 ; to_ex 239.1.1.1"),
        sent(HOST, 8, "leave 239.255.0.1"), sent(LOWER, 8, "v2query 239.255.0.1")],
    "whole-packets": [
        setup(3), step(RAW, HOST, 8, whole("v2report 239.1.1.1")),
        step(RAW, HOST, 8, whole("v2report 239.1.1.1 sum=bad")),
        step(RAW, HOST, 8, whole("v2report 239.1.1.1 ipsum=bad")),
        step(RAW, HOST, 8, whole("v3report to_ex 239.1.1.2 pad=14")),
        step(RAW, HOST, 8, whole("v3report to_ex 239.1.1.2 cut=2")),
        step(RAW, HOST, 8, whole("v2report 239.1.1.1 proto=17")),
        step(REPAIRED, HOST, 8, whole("v3query 239.1.1.2 ipsum=bad sum=bad alert=no")),
        step(REPAIRED, HOST, 8, whole("v1report 239.1.1.4 sum=bad")),
        step(MESSAGE, HOST, 8, b"\x22"), step(MESSAGE, HOST, 8, bytes(8))],
}
SCENARIOS = (
    "restart/groups", "boundary/replaced", "basics/calls", "compatibility/v1-include",
    "config/last-member", "config/unknown-version", "congestion/every-tenth-time",
    "election/lost", "include/empty-records", "sent-query/split-by-mtu")
INTERFACE = ('{"at": 1000, "op": "interface", "name": "vlan10", "ipAddr": "10.0.0.5", '
             '"config": {"queryInterval": %s, "startupQueryInterval": %s}}\n')
ADVANCE = '{"at": %s, "op": "advance"}\n{"at": %s, "op": "dump", "interface": "vlan10"}\n'
EXTREMES = {
    "far-timers": INTERFACE % ("1e15", "1e15") + ADVANCE % ("1e18", "1e18"),
    "timers-without-distance": INTERFACE % ("1e-300", "1e-300") + ADVANCE % ("1100", "1100"),
    "negative-intervals": INTERFACE % ("-5", "-1e308") + ADVANCE % ("1.7e308", "1.7e308"),
    "deep": "[" * 3000,
}
SETTINGS = {
    "all": """--robustness=3
--query-interval=60
--query-response-interval=5.5
--startup-query-interval=7
--startup-query-count=4
--last-member-query-interval=0.5
--querier-version=3
--last-member-query-count=0
--add-random-delay-to-timer=on
--send-query=off
--boundary=239.0.0.0/8
--boundary=ff05::/16
""",
    "ends-of-ranges": """--robustness=7
--query-interval=31744
--query-response-interval=3174.4
--startup-query-interval=0
--startup-query-count=255
--last-member-query-interval=25.5
--querier-version=1
""",
    "above": "--query-interval=31744.0001\n0=1024.0001\n0=1e301\n0=1000000000000001\n",
    "below": "--last-member-query-interval=0.0999999\n0=0.24999\n0=-0.0001\n0=-1e301\n",
    "do-not-go-together": "--query-interval=10\n--query-response-interval=10\n",
    "two-words": "--robustness\n2\n--boundary\n2001:db8::1\n",
    "no-numbers": "--robustness=abc\n--query-interval=1e999\n--query-interval=nan\n1e-320\n-0\n",
    "help": "--help\n",
}


def classic_capture(link_type, frames, order="<"):
    data = struct.pack(order + "IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 65535, link_type)
    for time, frame, length in frames:
        data += struct.pack(order + "IIII", int(time), int(time % 1 * 1e6), len(frame), length)
        data += frame
    return data


def block(kind, body):
    body += bytes(-len(body) % 4)
    return struct.pack("<II", kind, len(body) + 12) + body + struct.pack("<I", len(body) + 12)


def next_generation_capture(frames):
    data = block(0x0a0d0d0a, struct.pack("<IHHq", 0x1a2b3c4d, 1, 0, -1))
    data += block(1, struct.pack("<HHI", 1, 0, 65535))
    for time, frame, length in frames:
        stamp = int(time * 1e6)
        head = struct.pack("<IIIII", 0, stamp >> 32, stamp & 0xffffffff, len(frame), length)
        data += block(6, head + frame)
    return data


def captures():
    packets = [whole("v3report to_ex 239.1.1.1 10.7.0.1"), whole("v3query 0.0.0.0 from=10.0.0.2"),
               whole("v3report allow 239.1.1.1 10.7.0.1 10.7.0.2"), whole("leave 239.1.1.1"),
               whole("v3report to_in 239.1.1.1 10.7.0.2"), whole("v2report 239.1.1.2")]
    mac = bytes(12)
    tagged = [mac + b"\x81\x00\x00\x07\x08\x00" + p for p in packets]
    frames = [(1000 + 2.5 * n, frame, len(frame)) for n, frame in enumerate(tagged)]
    yield "vlan.pcap", classic_capture(1, frames)
    yield "next.pcapng", next_generation_capture(frames)
    raw = [(2000 - 30 * n, p, len(p)) for n, p in enumerate(packets)]  # backwards
    yield "raw-backwards.pcap", classic_capture(101, raw, ">")
    cooked = [(3e9 + n * 1e6, bytes(14) + b"\x08\x00" + p[:40 - n], len(p) + 16)
              for n, p in enumerate(packets)]
    yield "cooked-cut.pcap", classic_capture(113, [(t % 2**32, f, n) for t, f, n in cooked])
    yield "loopback.pcap", classic_capture(0, [(5, b"\x02\0\0\0" + packets[0], 99)])
    yield "cut-end.pcap", classic_capture(1, frames)[:-7]
    yield "unknown-link.pcap", classic_capture(147, [])
    yield "no-frames.pcap", classic_capture(1, [])
    yield "demo.pcap", (ROOT / "lab" / "captures" / "demo.pcap").read_bytes()


FEW_SOURCES = bytes(1)  # the first byte: the limit of sources


def on_link(wait, packet, repaired=False):
    """A step of the intake's target: quarters of a second, and a frame to a multicast address."""
    content = bytes.fromhex("01005e010101" "02000000004d" "0800") + packet
    return struct.pack(">BH", wait | 0x80 * repaired, len(content)) + content


def intakes():
    from_lower, many = " from=10.0.0.2", " ".join(f"10.7.{n // 250}.{n % 250}" for n in range(300))
    yield "joins-and-leaves", (
        on_link(0, whole("v3report to_ex 239.1.1.1 10.7.0.1")) +
        on_link(8, whole("v2report 239.1.1.2")) + on_link(8, whole("leave 239.1.1.2")) +
        on_link(40, whole("v3report to_in 239.1.1.1")))
    yield "queries", b"".join(on_link(4, whole(text)) for text in (
        "v3query 0.0.0.0 qrv=7 qqic=255 code=255" + from_lower, "v3query 239.1.1.1" + from_lower,
        "v3query 0.0.0.0 from=0.0.0.1", "v3query 0.0.0.0"))
    yield "groups-beyond-the-limit", b"".join(
        on_link(0, whole(f"v2report 239.1.2.{n}")) for n in range(60))
    yield "sources-beyond-the-limit", b"".join(
        on_link(1, whole(f"v3report allow 239.1.1.{n} {many}")) for n in range(4))
    yield "asks-beyond-the-budget", b"".join(
        on_link(0, whole("v3report to_ex 239.1.1.1 10.7.0.1")) +
        on_link(0, whole("v3report to_in 239.1.1.1")) for _ in range(60))
    yield "repaired", on_link(0, bytes(len(whole("v2report 239.1.1.1"))), True) + on_link(
        2, whole("v2report 239.1.1.1")[:-6] + bytes(2) + b"\xef\1\1\7", True)
    yield "jumbo", on_link(0, whole("v3report is_ex 239.1.1.1 " + " ".join(
        f"10.8.{n // 250}.{n % 250}" for n in range(2200))))
    yield "too-short", on_link(0, b"")[:-5]


# Requests: the first byte holds the client's right, the part size and whether traces follow.
MAY, TRACES = 0x80, 0x40
CALL = b'{"op":"call","interface":"eth0","operation":"%s"}\n'
REQUEST_LINES = {
    "calls": bytes([MAY | 7]) + CALL % b"clearCounters" + CALL % b"becomeQuerier" +
             CALL % b"handleInitialized" + CALL % b"explode",
    "calls-of-a-reader": bytes([7]) + CALL % b"clearCounters" + b'{"op":"traceLevel","level":9}\n',
    "levels": bytes([MAY | 1]) + b'{"op":"traceLevel","level":8}\n{"op":"traceHandles"}\n'
              b'{"op":"traceLevel","handle":"IgmpPacket","level":-1}\r\n{"op":"traceLevel"}\n'
              b'{"op":"traceLevel","level":1e1}\n'
              b'{"op":"traceLevel","level":18446744073709551615}\n',
    "dump": bytes([MAY | TRACES | 63]) + b'{"op":"trace","handle":"Fuzz"}\n{"op":"trace"}\n',
    "follow": bytes([TRACES | 63]) + b'{"op":"trace","handle":"Fuzz","follow":true}\n{"op":"x"}\n',
    "get": bytes([63]) + b'{"op":"get","path":""}\n{"op":"get","path":"status/eth0"}\n'
           b'{"op":"get","path":"status/eth0/group[239.1.1.1]/source"}\n'
           b'{"op":"get","path":"querierSm/eth0/querierStatus/parent/x[/]"}\n'
           b'{"op":"complete","prefix":"querierSm/eth0/querierConfig/s"}\n',
    "other-keys": bytes([MAY | 63]) + b'{"op":"trace","handle":null,"\\u0000":[[{}]]}\n{}\n'
                  b'{"op":"trace","op":"call"}\n{"op":7}\n',
    "no-object": bytes([MAY | 63]) + b'{"op":"traceHandles"}\n[1]\n' + CALL % b"clearCounters",
    "bad-text": bytes([MAY | 63]) + b'{"op":"tr\xc0"}\n',
    "config": bytes([63]) + b'{"op":"config"}\n{"op":"config","interface":"eth0"}\n'
              b'{"op":"config","interface":"x"}\n{"op":"reload"}\n',
    "reload": bytes([MAY | 63]) + b'{"op":"reload"}\n{"op":"clear"}\n{"op":"reload"}\n',
    "deep": bytes([63]) + b"[" * 3000 + b"\n",
    "long": bytes([63]) + b" " * 4000,
}


def main():
    for name, description in QUERIES.items():
        write("IgmpQueryFuzz", name, message(description))
    for name, description in REPORTS.items():
        write("IgmpReportFuzz", name, message(description))
    for name, steps in PACKETS.items():
        write("RxPktFuzz", name, b"".join(steps))
    for name in SCENARIOS:
        lines = (ROOT / "test" / "scenarios" / f"{name}.scenario").read_bytes().splitlines(True)
        steps = b"".join(line for line in lines if not line.startswith(b"#= "))
        write("ScenarioFuzz", name.replace("/", "-"), steps)
    for name, text in EXTREMES.items():
        write("ScenarioFuzz", name, text)
    for name, content in captures():
        write("CaptureFuzz", name, content)
    for name, content in intakes():
        write("IntakeFuzz", name, FEW_SOURCES + content)
    for name, content in ATTR_LOGS.items():
        write("AttrLogFuzz", name, content)
    for name, content in AGENTS.items():
        write("StoreFuzz", name, content)
    for name, content in STORES.items():
        write("KeptStateFuzz", name, content)
    for name, content in REQUEST_LINES.items():
        write("RequestFuzz", name, content)
    for name, text in SETTINGS.items():
        write("SettingsFuzz", name, text)
    for name, content in WEB.items():
        write("WebFuzz", name, content)
    for name, content in LINKS.items():
        write("LinkTableFuzz", name, content)


if __name__ == "__main__":
    main()
