"""Signals, rights and arguments of `igmpq run`."""
import signal

from querier import Querier, run_once
from testcase import SHORT, LabTestCase, main

GROUP = "239.1.1.1"


class ProcessTest(LabTestCase):
    def test_it_prints_its_state_on_request_and_goes_on(self):
        router, host = self.lab.station(1), self.lab.station(11, 2)
        querier = Querier(router, *SHORT)
        querier.expect("role", role="querier")
        state = querier.state()
        self.assertEqual(("eth0", router.address, "querier", 2, 2.0, 1.0, []),
                         tuple(state[key] for key in (
                             "interface", "address", "role", "querierVersion",
                             "queryIntervalSeconds", "queryResponseIntervalSeconds", "groups")))
        host.join(GROUP)
        querier.expect("groupJoined", group=GROUP)
        self.assertEqual([GROUP], list(querier.groups()))

    def test_a_signal_ends_it_with_status_0(self):
        router, host = self.lab.station(1), self.lab.station(11, 2)
        host.join(GROUP)
        for number in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(signal=number.name):
                querier = Querier(router, *SHORT)
                querier.expect("groupJoined", group=GROUP)
                self.assertEqual(0, querier.stop(number))
                last = querier.events[-1]
                self.assertEqual("state", last["event"])
                self.assertEqual([GROUP], [group["group"]
                                           for group in last["interfaces"][0]["groups"]])
                self.assertEqual([], querier.errors)

    def test_the_final_state_of_text_mode_is_a_table(self):
        router, host = self.lab.station(1), self.lab.station(11, 2)
        host.join(GROUP)
        done = run_once(router, "run", "eth0", *SHORT, wrapper=("timeout", "2"))
        # The status is that of `timeout`, which had to end it.
        self.assertEqual(124, done.returncode)
        joined, _, table = done.stdout.partition(f"joined {GROUP} by {host.address} (version 2)")
        self.assertIn("eth0", joined)
        self.assertIn(GROUP, table)
        self.assertIn(router.address, table)
        self.assertEqual("", done.stderr)

    def test_without_the_right_to_packet_sockets_the_error_names_setcap(self):
        router = self.lab.station(1)
        done = run_once(router, "run", "eth0", wrapper=(
            "setpriv", "--inh-caps", "-net_raw", "--bounding-set", "-net_raw"))
        self.assertEqual((1, ""), (done.returncode, done.stdout))
        self.assertIn("setcap cap_net_raw", done.stderr)

    def test_without_its_sockets_it_reports_an_error_and_runs_on(self):
        router, host = self.lab.station(1), self.lab.station(11, 2)
        host.join(GROUP)
        done = run_once(router, "run", "eth0", *SHORT, wrapper=(
            "sh", "-c", 'mount -t tmpfs -o ro none /run && exec timeout 2 "$0" "$@"'))
        self.assertIn("error: cannot serve the attribute log at /run/igmpq/attrlog.sock: Read-only "
                      "file system; this agent runs without it", done.stdout)
        self.assertIn(f"joined {GROUP}", done.stdout)

    def test_an_unknown_interface_is_refused_and_the_known_ones_named(self):
        router = self.lab.station(1)
        done = run_once(router, "run", "eth0", "eth7")
        self.assertEqual((2, ""), (done.returncode, done.stdout))
        self.assertIn("eth7", done.stderr)
        self.assertIn("eth0", done.stderr)

    def test_an_option_out_of_its_range_is_refused(self):
        router = self.lab.station(1)
        done = run_once(router, "run", "eth0", "--robustness", "9")
        self.assertEqual((2, ""), (done.returncode, done.stdout))
        self.assertIn("--robustness 9: must be from 1 to 7", done.stderr)

    def test_without_interface_names_it_lists_the_candidates(self):
        router = self.lab.station(1)
        router.ip("link", "add", "name", "bare0", "type", "bridge")
        done = run_once(router, "run")
        self.assertEqual((2, ""), (done.returncode, done.stdout))
        self.assertIn("name interfaces, here or in /etc/igmpq/igmpq.toml, or give --all for eth0\n",
                      done.stderr)

    def test_without_interface_names_and_candidates_it_is_bad_use_as_well(self):
        router = self.lab.station(1)
        router.ip("link", "set", "eth0", "down")
        done = run_once(router, "run")
        self.assertEqual((2, ""), (done.returncode, done.stdout))
        self.assertIn("name interfaces, here or in /etc/igmpq/igmpq.toml\n", done.stderr)

    def test_with_all_it_takes_all_usable_ones(self):
        router, host = self.lab.station(1), self.lab.station(11, 2)
        router.ip("link", "add", "name", "bare0", "type", "bridge")
        router.ip("link", "set", "bare0", "up")
        host.join(GROUP)
        done = run_once(router, "run", "--all", *SHORT, "--json", wrapper=("timeout", "2"))
        self.assertIn('"eth0"', done.stdout)
        self.assertNotIn('"bare0"', done.stdout)
        self.assertNotIn('"lo"', done.stdout)


if __name__ == "__main__":
    main()
