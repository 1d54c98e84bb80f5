"""Packets in and out through the kernel: members on the querier's own machine, bursts, losses."""
import json
import signal
import subprocess
import sys
import time

import lab
from capture import Capture, is_general_query
from frames import report_frame, send
from lab import HOST_PROGRAM, wait_until
from querier import Querier, run_once
from testcase import QUIET, SHORT, LabTestCase, main

GROUP = "239.1.1.1"
HOST = "10.77.0.11"
LIFETIME = 5  # of a group without reports, by the settings SHORT
HUNDREDTHS = 100  # of a second, as the bridge counts


def counters(station, querier, interface="eth0"):
    done = run_once(station, "show", "counters", interface, "--json", "--socket", querier.socket)
    return json.loads(done.stdout)[0]


class OwnMachineTest(LabTestCase):
    def test_a_member_on_the_queriers_machine_outlives_three_membership_intervals(self):
        router = self.lab.station(1)
        querier = Querier(router, *SHORT)
        querier.expect("role", role="querier")
        router.join(GROUP)
        querier.expect("groupJoined", group=GROUP, reporter=router.address)
        querier.expect_none("groupLeft", during=3 * LIFETIME + 1)
        router.leave(GROUP)
        querier.expect("groupLeft", group=GROUP)

    def test_its_own_queries_are_no_other_queriers(self):
        router = self.lab.station(9)
        querier = Querier(router, *SHORT)
        querier.expect("role", role="querier")
        # With the lower address of before, its last query would win the election.
        router.ip("address", "add", "10.77.0.120/16", "dev", "eth0")
        router.ip("address", "del", "10.77.0.9/24", "dev", "eth0")
        querier.expect("role", role="querier", querier="10.77.0.120")
        querier.expect_none("role", role="nonQuerier", during=5)
        self.assertEqual(0, counters(router, querier)["v2QueriesReceived"])


class BridgeMachine:
    """The switch itself as the machine that the querier runs on."""

    def __init__(self, switch_of):
        self.lab = switch_of
        self.namespace = switch_of.switch
        self.number = 200
        self.address = "10.77.0.200"
        lab.ip("-n", self.namespace, "address", "add", f"{self.address}/24", "dev", "br0")
        lab.ip("-n", self.namespace, "link", "set", "br0", "type", "bridge",
               "mcast_startup_query_interval", str(HUNDREDTHS),
               "mcast_query_interval", str(2 * HUNDREDTHS), "mcast_query_use_ifaddr", "1",
               "mcast_querier", "1")

    def join(self, group):
        member = self.lab.spawn(self.namespace, sys.executable, HOST_PROGRAM, self.address,
                                stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        member.stdin.write(f"join {group}\n")
        member.stdin.flush()
        if member.stdout.readline().strip() != "ok": raise OSError(f"cannot join {group}")


class BridgeQuerierTest(LabTestCase):
    def setUp(self):
        self.lab = lab.Lab(snooping=True)
        self.addCleanup(self.lab.close)

    def test_beside_the_kernels_bridge_querier_members_stay(self):
        host, machine = self.lab.station(11, 2), BridgeMachine(self.lab)
        querier = Querier(machine, *SHORT, verb=("run", "br0"))
        querier.expect("role", role="querier")
        machine.join(GROUP)
        host.join("239.1.1.2")
        querier.expect("groupJoined", group="239.1.1.2")
        wait_until(lambda: GROUP in querier.groups(), 10, f"{GROUP} to be joined")
        querier.expect_none("groupLeft", during=3 * LIFETIME + 1)
        querier.expect_none("role", role="nonQuerier", during=0)


class LossTest(LabTestCase):
    def setUp(self):
        super().setUp()
        self.router, self.host = self.lab.station(1), self.lab.station(11, 2)

    def test_a_burst_of_joins_at_full_speed_is_kept(self):
        querier = Querier(self.router, *QUIET)
        querier.expect("role", role="querier")
        groups = [f"239.{1 + n // 65536}.{n // 256 % 256}.{n % 256}" for n in range(10000)]
        send(self.host, *((1, report_frame(HOST, group)) for group in groups))
        wait_until(lambda: counters(self.router, querier)["joins"] == len(groups), 30,
                   "all groups to be joined")
        self.assertEqual(0, counters(self.router, querier)["framesLost"])

    def test_frames_that_found_no_place_are_counted_and_reported(self):
        querier = Querier(self.router, *QUIET, "--ring-size", "64")
        querier.expect("role", role="querier")
        querier.process.send_signal(signal.SIGSTOP)
        send(self.host, (5000, report_frame(HOST, GROUP)))
        querier.process.send_signal(signal.SIGCONT)
        querier.expect("groupJoined", group=GROUP)
        wait_until(lambda: querier.seen("error", text=lambda text: "lost so far" in text), 15,
                   "the loss to be reported")
        counted = counters(self.router, querier)
        # The query of the querier that begins anew may have found no place either.
        self.assertIn(counted["framesLost"] + counted["v2ReportReceived"], (5000, 5001))
        self.assertGreater(counted["framesLost"], 0)
        self.host.join("239.1.1.2")
        querier.expect("groupJoined", group="239.1.1.2")

    def test_other_vlans_are_left_alone_and_fragments_refused(self):
        querier = Querier(self.router, *QUIET)
        querier.expect("role", role="querier")
        send(self.host, (2, report_frame(HOST, GROUP, "81000005")),
             (3, report_frame(HOST, GROUP, flags=0x2000)),
             (1, report_frame(HOST, "239.1.1.2", "8100e000")))
        querier.expect("groupJoined", group="239.1.1.2")
        wait_until(lambda: counters(self.router, querier)["otherVlanFrames"] == 2, 15,
                   "the counters to be brought up to date")
        counted = counters(self.router, querier)
        self.assertEqual((3, 3, 0, 0), (counted["fragmentsReceived"], counted["fragment"],
                                        counted["framesUnparsable"],
                                        counted["errorPacketReceived"]))
        self.assertEqual({"239.1.1.2"}, set(querier.groups()))


class StuckTest(LabTestCase):
    def test_a_device_that_takes_nothing_holds_up_no_other(self):
        router, host = self.lab.station(1), self.lab.station(11, 2)
        router.ip("link", "add", "name", "stuck0", "type", "veth", "peer", "name", "end0")
        router.ip("address", "add", "10.78.0.1/24", "dev", "stuck0")
        # Room for one query, which takes most of a minute to leave.
        lab.ip("netns", "exec", router.namespace, "tc", "qdisc", "add", "dev", "stuck0", "root",
               "tbf", "rate", "8bit", "burst", "60", "limit", "60")
        router.ip("link", "set", "stuck0", "up")
        router.ip("link", "set", "end0", "up")
        querier = Querier(router, *SHORT, verb=("run", "eth0", "stuck0"))
        querier.expect("role", role="querier", interface="eth0")
        host.join(GROUP)
        querier.expect("groupJoined", group=GROUP)
        querier.expect("error", interface="stuck0",
                       text=lambda text: text.startswith("cannot send a query"))
        capture = Capture(self.lab)
        querier.expect_none("groupLeft", during=2 * LIFETIME)
        queries = [packet for packet in capture.packets() if is_general_query(packet)]
        self.assert_gaps(queries, 1.8, 2.8)
        self.assertGreater(counters(router, querier, "stuck0")["sendFailures"], 1)
        self.assertEqual(0, counters(router, querier)["sendFailures"])


class StoppedTest(LabTestCase):
    def test_a_process_that_was_stopped_ends_no_group(self):
        router, host = self.lab.station(1), self.lab.station(11, 2)
        querier = Querier(router, *SHORT)
        querier.expect("role", role="querier")
        host.join(GROUP)
        querier.expect("groupJoined", group=GROUP)
        querier.process.send_signal(signal.SIGSTOP)
        time.sleep(LIFETIME + 2)
        querier.process.send_signal(signal.SIGCONT)
        querier.expect("error", text=lambda text: "hosts are asked anew" in text)
        querier.expect_none("groupLeft", during=LIFETIME + 1)


if __name__ == "__main__":
    main()
