"""An output that takes nothing holds up neither queries nor answers nor the end of the agent."""
import json
import os
import pathlib
import pty
import signal
import socket
import subprocess
import termios

from frames import report_frame, send
from lab import wait_until
from querier import program, run_once
from testcase import SHORT, LabTestCase, main

GROUPS = 8000  # whose events exceed the queue of 1 MiB
HOST = "10.77.0.11"


class StuckOutputTest(LabTestCase):
    def start(self, **files):
        self.router, self.host = self.lab.station(1), self.lab.station(11)
        self.socket = pathlib.Path(self.lab.scratch.name, "agent.sock")
        self.agent = self.lab.spawn(
            self.router.namespace, *files.pop("wrapper", ()), program(), "run", "eth0", "--json",
            "--event-rate", "0", *SHORT, "--socket", self.socket,
            **{"stdout": subprocess.PIPE, **files})
        wait_until(lambda: self.socket.exists() and self.counters("v2QueriesSent") > 0, 10,
                   "the first query")

    def shown(self, what):
        done = run_once(self.router, "show", what, "--json", "--socket", self.socket)
        return json.loads(done.stdout or "[]")

    def counters(self, name):
        return sum(interface[name] for interface in self.shown("counters"))

    def join_many(self):
        groups = [socket.inet_ntoa((0xef010000 + number).to_bytes(4, "big"))
                  for number in range(GROUPS)]
        # The kernel of a busy machine drops some of the packets.
        for _ in range(5):
            send(self.host, *((1, report_frame(HOST, group)) for group in groups))
            try:
                wait_until(lambda: self.counters("joins") >= GROUPS, 6, "the groups to be known")
                return
            except TimeoutError as error:
                failed = error
        raise failed

    def assert_serves(self):
        self.join_many()
        sent = self.counters("v2QueriesSent")
        wait_until(lambda: self.counters("v2QueriesSent") > sent + 2, 60, "three more queries")
        wait_until(lambda: self.shown("groups") == [], 60, "the groups to end")

    def assert_serves_and_ends(self):
        self.assert_serves()
        self.assert_ends()

    def test_a_pipe_that_nobody_reads(self):
        self.start()
        self.assert_serves_and_ends()

    def test_a_pipe_whose_reader_has_gone(self):
        self.start()
        self.agent.stdout.readline()
        self.agent.stdout.close()
        self.assert_serves_and_ends()

    def test_a_pager_that_is_not_read_on(self):
        folder = pathlib.Path(self.lab.scratch.name)
        paged, number, status = (folder / name for name in ("paged", "number", "status"))
        paged.write_text(f"""#!/bin/sh
            {{ sh -c 'echo $$ >{number}; exec "$@"' sh "$@"; echo $? >{status}; }} | less
            """, encoding="ascii")
        paged.chmod(0o755)
        # The pager has a terminal of its own, and waits for a key.
        self.start(wrapper=("sh", "-c", 'exec script -qec "$0 $*" /dev/null', paged),
                   stdin=subprocess.PIPE, env={**os.environ, "TERM": "xterm", "LESS": ""})
        screen = []
        self.lab.read(self.agent.stdout, screen.append)
        self.assert_serves()
        self.assertIn('"event":"interfaceUp"', "".join(screen))
        self.assertLess(sum(map(len, screen)), 100_000)
        self.assertIsNone(self.agent.poll())
        os.kill(int(number.read_text("ascii")), signal.SIGTERM)
        wait_until(lambda: status.exists() and status.read_text("ascii"), 10, "its end")
        self.assertEqual("0", status.read_text("ascii").strip())

    def test_a_full_disk(self):
        with open("/dev/full", "wb") as full:
            self.start(stdout=full)
            self.assert_serves_and_ends()

    def test_descriptors_that_are_closed_at_the_start(self):
        self.start(wrapper=("sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh"))
        self.assert_serves_and_ends()

    def test_a_terminal_that_is_stopped_and_goes_on(self):
        terminal, program_side = pty.openpty()
        self.addCleanup(os.close, terminal)
        with os.fdopen(program_side, "wb") as output:
            self.start(stdout=output)
            termios.tcflow(program_side, termios.TCOOFF)
            self.join_many()
            self.assertTrue(self.shown("groups"))
            termios.tcflow(program_side, termios.TCOON)
            text = ""
            while "eventsLost" not in text:
                text = text[-100:] + os.read(terminal, 65536).decode()
            termios.tcflow(program_side, termios.TCOOFF)
            self.assert_ends()

    def test_each_event_is_read_or_counted_as_lost(self):
        self.start()
        self.join_many()
        wait_until(lambda: self.shown("groups") == [], 60, "the groups to end")
        joins = self.counters("joins")
        self.agent.terminate()
        events = [json.loads(line) for line in self.agent.stdout]
        self.assertEqual(0, self.agent.wait(10))
        lost = sum(event["count"] for event in events if event.get("event") == "eventsLost")
        # The last line is the state, which is lost when the output has no room for it.
        read = sum(event.get("event") in ("groupJoined", "groupLeft", "state") for event in events)
        self.assertGreater(lost, 0)
        self.assertEqual(2 * joins + 1, read + lost)

    def test_a_hangup_changes_nothing_and_says_so(self):
        self.start()
        self.agent.send_signal(signal.SIGHUP)
        for line in self.agent.stdout:
            event = json.loads(line)
            if event["event"] == "notice": break
        self.assertIn("no configuration file is in use", event["text"])
        self.assert_ends()

    def assert_ends(self):
        self.agent.terminate()
        self.assertEqual(0, self.agent.wait(10))


if __name__ == "__main__":
    main()
