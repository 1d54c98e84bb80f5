"""What forged packets do to a querier: its rules refuse them, and honest hosts notice nothing."""
import contextlib
import json
import os
import pathlib
import random
import socket
import subprocess
import sys

import lab
from capture import Capture
from frames import QUERY, REPORT_V2, frame, igmp, query_v3, report_v3, send
from lab import wait_until
from querier import Querier, run_once
from testcase import NO_DELAY, LabTestCase, main

SETTINGS = (*NO_DELAY, "--queries", "--querier-version", "3", "--query-interval", "2",
            "--query-response-interval", "1")
ROUTER, LOWER, HIGHER, FOREIGN = "10.77.0.5", "10.77.0.1", "10.77.0.200", "192.0.2.9"
ROUTER_MAC, OTHER_MAC = b"\2\0\0\0\0\5", b"\2\0\0\0\0\x7f"
HOST = "10.77.0.11"
HONEST = ("239.1.1.1", "239.1.1.2", "239.1.1.3")
FORGED = "239.9.9.9"
ALL_HOSTS, ALL_ROUTERS, ALL_V3_ROUTERS = "224.0.0.1", "224.0.0.2", "224.0.0.22"
IS_EXCLUDE, TO_INCLUDE, ALLOW = 2, 3, 5
KIB, MIB = 1024, 1024 * 1024
SANITIZED = os.environ.get("LAB_SANITIZED") == "1"


def addresses(count, first="239.100.0.1"):
    number = int.from_bytes(socket.inet_aton(first), "big")
    return [socket.inet_ntoa((number + place).to_bytes(4, "big")) for place in range(count)]


def sources(count):
    return addresses(count, "198.18.0.1")


def report(group=FORGED, source=HOST, **fields):
    return frame(source, group, igmp(REPORT_V2, group), **fields)


def records(*of_report):
    return frame(HOST, ALL_V3_ROUTERS, report_v3(*of_report))


def query(source, group="0.0.0.0", **fields):
    return frame(source, ALL_HOSTS if group == "0.0.0.0" else group, query_v3(group, **fields))


def leave(group):
    return frame(HOST, ALL_ROUTERS, igmp(0x17, group))


# Rule, settings that are not the defaults, and frames that each count once at least.
RULES = (
    ("notMulticast", (), [frame(HOST, ROUTER, igmp(REPORT_V2, FORGED), mac=ROUTER_MAC),
                          report(mac=ROUTER_MAC),
                          frame(LOWER, ALL_HOSTS, query_v3(), mac=ROUTER_MAC),
                          frame(LOWER, ALL_ROUTERS, query_v3())]),
    ("fragment", (), [report(flags=0x2000), report(flags=1)]),
    ("wrongTtl", (), [report(ttl=2), report(ttl=255)]),
    ("foreignQuery", (), [query("0.0.0.1", code=255, robustness=7, interval=255),
                          query(FOREIGN), query("10.77.0.255"), query("10.77.0.0")]),
    ("specificQuery", (), [query(LOWER, group) for group in HONEST] +
     [query(LOWER, FORGED), query("0.0.0.0", HONEST[0]), query(HIGHER, HONEST[0])]),
    ("querierTimes", (), [query(HIGHER, code=255, robustness=7, interval=255)]),
    ("ownAddress", (), [query(ROUTER)]),
    ("unpermittedQuerier", ("permittedQueriers=10.77.0.77",),
     [query(LOWER), query("0.0.0.0"), query(LOWER, HONEST[0])]),
    ("foreignReport", ("localReports=on",), [report(source=FOREIGN)]),
    ("noRouterAlert", ("requireRouterAlert=on",), [report(options=b"")]),
    ("oldVersion", ("leastReportVersion=3",), [report(), leave(HONEST[0])]),
    ("unacceptedGroup", ("acceptedGroups=239.1.0.0/16",), [report()]),
    ("notSourceSpecific", ("guardSourceSpecific=on",), [report("232.9.9.9")]),
    ("groupLimit", ("maxGroups=3",), [report(), records((IS_EXCLUDE, FORGED, ()))]),
    ("processGroupLimit", ("maxProcessGroups=3",), [report()]),
    ("groupSourceLimit", ("maxGroupSources=4",), [records((ALLOW, HONEST[0], sources(9)))]),
    ("sourceLimit", ("maxSources=4",), [records((ALLOW, HONEST[1], sources(9)))]),
    ("processSourceLimit", ("maxProcessSources=4",), [records((ALLOW, HONEST[2], sources(9)))]),
    ("groupRecordLimit", ("maxGroupRecords=2",), [records(*[(IS_EXCLUDE, HONEST[0], ())] * 4)]),
    ("queryLimit", ("maxQueryRate=1", "maxQueryBurst=1"), [leave(group) for group in HONEST]),
)


# Sends messages with a TTL of 2 and Router Alert, without which routers keep them.
SEND_FAR = """
import socket, sys
raw = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_IGMP)
raw.setsockopt(socket.IPPROTO_IP, socket.IP_TTL, 2)
raw.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 2)
raw.setsockopt(socket.IPPROTO_IP, socket.IP_OPTIONS, bytes((0x94, 4, 0, 0)))
for destination, digits in zip(sys.argv[1::2], sys.argv[2::2]):
    raw.sendto(bytes.fromhex(digits), (destination, 0))
"""
# Forwards multicast from one interface to another. The kernel's own forwarding keeps IGMP for
# itself; other routers do not.
FORWARD = """
import socket, struct, sys
inward, outward = (socket.socket(socket.AF_PACKET, socket.SOCK_RAW) for _ in range(2))
inward.bind((sys.argv[1], 0x0800))
outward.bind((sys.argv[2], 0))
print("forwards", flush=True)
while True:
    frame = bytearray(inward.recv(2000))
    header = 4 * (frame[14] & 15)
    if not frame[0] & 1 or frame[22] < 2: continue
    frame[22] -= 1
    frame[24:26] = bytes(2)
    total = sum(struct.unpack(f"!{header // 2}H", frame[14:14 + header]))
    total = (total & 0xffff) + (total >> 16)
    frame[24:26] = struct.pack("!H", ~((total & 0xffff) + (total >> 16)) & 0xffff)
    outward.send(frame)
"""


class AttackTest(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router, self.host = self.lab.station(5), self.lab.station(11, 2)
        self.attacker = self.lab.station(66)

    def start(self, *options):
        self.querier = Querier(self.router, *SETTINGS, *options)
        self.querier.expect("role", role="querier")
        for group in HONEST: self.host.join(group)
        wait_until(lambda: set(HONEST) == set(self.querier.groups()), 10, "the groups of the host")

    def run_verb(self, *arguments):
        done = run_once(self.router, *arguments, "--socket", self.querier.socket)
        self.assertEqual(0, done.returncode, done.stderr)
        return done.stdout

    def counters(self):
        return json.loads(self.run_verb("show", "counters", "--json"))[0]

    def memory(self):
        status = pathlib.Path("/proc", str(self.querier.process.pid), "status").read_text("utf-8")
        return int(status.partition("VmRSS:")[2].split()[0]) * KIB

    @contextlib.contextmanager
    def unharmed(self, most_groups=3, most_growth=4 * MIB, most_memory=64 * MIB):
        """The host's groups stay and no others appear, memory stays and is little."""
        before = self.memory()
        yield
        groups = {group["group"] for group in self.querier.state()["groups"]}
        self.assertEqual(set(), set(HONEST) - groups)
        self.assertLessEqual(len(groups), most_groups)
        self.assertLess(self.memory() - before, most_growth)
        if not SANITIZED: self.assertLess(self.memory(), most_memory)
        self.assertEqual([], self.querier.seen("groupLeft", group=lambda g: g in HONEST))

    def assert_queries_on_time(self):
        def sent():
            return [event["time"] for event in self.querier.seen("querySent", group="0.0.0.0")]
        # Of those behind the attack, two at least.
        least = max(len(sent()) + 2, 4)
        wait_until(lambda: len(sent()) >= least, 10, "more queries")
        times = sent()
        # The first two are startup queries, a quarter of the interval apart. A frame of an attack
        # takes a sanitized querier some twenty times as long.
        most_late = 0.5 if SANITIZED else 0.1
        for earlier, later in zip(times[2:], times[3:]):
            self.assertAlmostEqual(2, later - earlier, delta=most_late)

    def test_each_rule_refuses_counts_and_reports(self):
        self.start()
        defaults = {row["interface"]: row for row in json.loads(
            self.run_verb("show", "config", "--json"))}["eth0"]
        for rule, settings, frames in RULES:
            with self.subTest(rule), self.unharmed():
                if settings: self.run_verb("set", "eth0", *settings)
                wanted = self.counters()[rule] + len(frames)
                send(self.attacker, *((1, each) for each in frames))
                if rule == "queryLimit": wanted -= 1  # the first is taken, as after each rest
                wait_until(lambda: self.counters()[rule] >= wanted, 5, f"{rule} to be counted")
                for setting in settings:
                    name = setting.partition("=")[0]
                    value = defaults[name]
                    if isinstance(value, bool): value = "on" if value else "off"
                    self.run_verb("set", "eth0", f"{name}={value}")
                events = self.querier.seen("intake", rule=rule) or self.querier.seen(
                    "intakeWarning", rule=rule)
                self.assertEqual(1, len(events))
                self.assertEqual("02:00:00:00:00:0b", events[0]["mac"])
        self.assertEqual([], self.querier.seen("role", role="nonQuerier"))
        self.assert_queries_on_time()

    def far_host(self):
        """Two namespaces: a router of the link, and a host of another network behind it."""
        border = self.lab.station(254)
        far = self.lab.add_namespace("far")
        border.ip("link", "add", "name", "far0", "type", "veth", "peer", "name", "eth0", "netns",
                  far)
        border.ip("address", "add", "192.0.2.1/24", "dev", "far0")
        border.ip("link", "set", "far0", "up")
        self.lab.sysctl(border.namespace, "ipv4/ip_forward", 1)
        lab.ip("-n", far, "address", "add", "192.0.2.9/24", "dev", "eth0")
        lab.ip("-n", far, "link", "set", "eth0", "up")
        lab.ip("-n", far, "route", "add", "default", "via", "192.0.2.1")
        return border.namespace, far

    def send_from(self, namespace, *packets):
        """Pairs of destination and message; with a TTL of 2 they arrive with 1."""
        subprocess.run(("ip", "netns", "exec", namespace, sys.executable, "-c", SEND_FAR,
                        *(word for destination, message in packets
                          for word in (destination, message.hex()))), check=True)

    def test_an_off_link_sender_reaches_nothing_through_a_router(self):
        self.start()
        _, far = self.far_host()
        packets = (igmp(REPORT_V2, FORGED), query_v3(robustness=7, code=255, interval=255),
                   query_v3(HONEST[0]), igmp(QUERY, HONEST[1]))
        with self.unharmed():
            self.send_from(far, *((ROUTER, packet) for packet in packets))
            wait_until(lambda: self.counters()["notMulticast"] == len(packets), 10,
                       "the packets to be counted")
        self.assertEqual([], self.querier.seen("role", role="nonQuerier"))

    def test_an_off_link_sender_reaches_nothing_by_multicast_either(self):
        self.start("--local-reports", "on")
        border, far = self.far_host()
        forwarder = self.lab.spawn(border, sys.executable, "-c", FORWARD, "far0", "eth0",
                                   stdout=subprocess.PIPE)
        self.assertEqual("forwards\n", forwarder.stdout.readline())
        packets = [(FORGED, igmp(REPORT_V2, FORGED))]
        packets += [(group, query_v3(group, code=0)) for group in HONEST]
        with self.unharmed():
            self.send_from(far, *packets)
            wait_until(lambda: self.counters()["foreignQuery"] == len(HONEST), 10,
                       "the queries to be counted")
            self.assertEqual(1, self.counters()["foreignReport"])
        self.assertEqual([], self.querier.seen("role", role="nonQuerier"))

    def test_listen_only_sends_nothing_and_still_learns(self):
        capture = Capture(self.lab)
        self.start("--listen-only", "on", "--last-member-query-interval", "1")
        self.host.leave(HONEST[0])
        self.querier.expect("groupLeft", group=HONEST[0])
        self.assertEqual([], capture.sent_by(self.router))
        self.assertIn("listen only", self.run_verb("show"))

    def test_immediate_leave_asks_nobody(self):
        self.start("--immediate-leave", "on")
        self.host.leave(HONEST[0])
        self.querier.expect("groupLeft", group=HONEST[0])
        self.assertEqual([], self.querier.seen("querySent", group=HONEST[0]))
        self.assertEqual(set(HONEST[1:]), set(self.querier.groups()))

    def test_with_permitted_queriers_an_on_link_querier_changes_nothing(self):
        self.start("--permitted-queriers", "10.77.0.77")
        forged = [query(source, group, code=code, robustness=7, interval=255)
                  for source in (LOWER, "0.0.0.0", HIGHER) for group in ("0.0.0.0", *HONEST)
                  for code in (0, 1, 255)]
        with self.unharmed():
            send(self.attacker, *((1, each) for each in forged))
            wait_until(lambda: self.counters()["unpermittedQuerier"] == len(forged), 10,
                       "the queries to be counted")
        self.assertEqual([], self.querier.seen("role", role="nonQuerier"))
        self.assert_queries_on_time()

    def test_a_forged_querier_is_a_warning_and_silences_for_an_hour_at_most(self):
        self.start()
        with self.unharmed():
            send(self.attacker, (1, query(LOWER, code=255, robustness=7, interval=255)))
            warning = self.querier.expect("intakeWarning", rule="newQuerier", sender=LOWER)
            self.querier.expect("role", role="nonQuerier", querier=LOWER)
        self.assertEqual("02:00:00:00:00:0b", warning["mac"])
        self.assertLessEqual(self.querier.state()["otherQuerierExpirySeconds"], 3600)

    def is_limit_reached(self, groups):
        """If not, its ring may have lost some of them: they are sent again."""
        if self.counters()["groupLimit"] > 0: return True
        send(self.attacker, *((1, report(group)) for group in groups))
        return False

    def test_floods_stay_within_the_limits_and_queries_on_time(self):
        # With sanitizers, groups end before so many have come, and a ring that it empties too
        # slowly keeps the answers of the host for too long.
        most, records_sent, lists_sent = (1024, 2000, 50) if SANITIZED else (65536, 80000, 2000)
        self.start("--max-groups", str(most))
        chance = random.Random(1)
        queries = [query(LOWER, group, sources=sources(3)) for group in addresses(2000)]
        with self.unharmed():
            send(self.attacker, *((1, each) for each in queries))
            wait_until(lambda: self.counters()["specificQuery"] == len(queries), 10,
                       "the queries to be counted")
        groups = [socket.inet_ntoa((0xe1000000 + chance.randrange(1 << 24)).to_bytes(4, "big"))
                  for _ in range(records_sent)]
        lists = [records((ALLOW, HONEST[0], addresses(360, f"{10 + n // 250}.{n % 250}.0.1")))
                 for n in range(lists_sent)]
        with self.unharmed(most_groups=most, most_growth=250 * MIB, most_memory=250 * MIB):
            send(self.attacker, *((1, report(group)) for group in groups))
            send(self.attacker, *((3, each) for each in lists))
            wait_until(lambda: self.is_limit_reached(groups), 60, "the limit to be reached")
            counted = self.counters()
        self.assertLessEqual(counted["groupsMost"], most)
        self.assertLessEqual(counted["groupSourcesMost"], 1024)
        self.assertEqual("1 group cleared\n", self.run_verb("clear", "groups", "eth0", HONEST[0]))
        self.assert_queries_on_time()

    # Some bytes give each group hundreds of sources, and fewer bytes delete them all.
    def test_reports_that_concern_many_sources_hold_up_nobody(self):
        # With sanitizers, the answers of the host would stay in the ring for longer than its groups
        # live without them.
        rounds, groups = (2, addresses(10)) if SANITIZED else (40, addresses(40))
        self.start()
        fill = [records((ALLOW, group, sources(300))) for group in groups]
        delete = [records(*((IS_EXCLUDE, group, ()) for group in groups))]
        turn_back = [records(*((1, group, sources(1)) for group in groups))]
        late = "239.1.1.4"
        with self.unharmed(most_groups=len(groups) + 4, most_growth=16 * MIB):
            for round_of in range(rounds):
                send(self.attacker, *((1, each) for each in fill + delete + turn_back))
                if round_of == rounds // 2: self.host.join(late)
            self.querier.expect("groupJoined", group=late)
            self.host.leave(late)
            self.querier.expect("groupLeft", group=late)
        self.assert_queries_on_time()

    # In the name of the host: its own reports must not be lost behind them.
    def test_forged_reports_of_a_host_end_none_of_its_groups(self):
        self.start()
        groups = addresses(12)
        fill = [records((ALLOW, group, sources(300))) for group in groups]
        costly = records(*[(TO_INCLUDE, group, ()) for group in groups * 15])
        # The address sanitizer keeps freed memory for a while.
        most_growth = (128 if SANITIZED else 16) * MIB
        with self.unharmed(most_groups=len(groups) + 3, most_growth=most_growth):
            # Longer than a group lives without a report.
            for _ in range(4):
                query = len(self.querier.seen("querySent", group="0.0.0.0"))
                while len(self.querier.seen("querySent", group="0.0.0.0")) == query:
                    send(self.attacker, *((1, each) for each in fill),
                         (2 if SANITIZED else 20, costly))
        self.assert_queries_on_time()


if __name__ == "__main__":
    main()
