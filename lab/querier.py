"""Runs `igmpq run` on a station of the lab and follows its events."""
import atexit
import functools
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import threading
import time

from lab import PREFIX, SCRATCH, wait_until

ROOT = pathlib.Path(__file__).resolve().parent.parent
NOBODY = ("setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups")


def program():
    """The igmpq under test: as the build says, else that of the dev preset."""
    path = pathlib.Path(os.environ.get("IGMPQ") or ROOT / "build/dev/igmpq/igmpq")
    if not path.is_file(): raise OSError(f"no {path}: build it, or set IGMPQ")
    return path


@functools.cache
def copy_for_all():
    """A folder with a copy of the command and its libraries that every user may enter.

    Other users cannot execute the original where a folder above the build is closed to them.
    """
    folder = tempfile.TemporaryDirectory(prefix=f"{PREFIX}{os.getpid()}-", dir=SCRATCH)
    atexit.register(folder.cleanup)
    os.chmod(folder.name, 0o755)
    linked = subprocess.run(("ldd", program()), capture_output=True, text=True, check=True).stdout
    for path in (program(), *re.findall(r"libIgmpQuerier\S+ => (\S+)", linked)):
        shutil.copy(path, folder.name)
        os.chmod(pathlib.Path(folder.name, pathlib.Path(path).name), 0o755)
    return folder.name


def as_nobody(*options):
    """The command line of igmpq for a user without any rights, but for the options of setpriv."""
    folder = copy_for_all()
    return (*NOBODY, *options, "env", f"LD_LIBRARY_PATH={folder}", f"{folder}/{program().name}")


def matches(event, kind, fields):
    return event.get("event") == kind and all(
        key in event and (want(event[key]) if callable(want) else event[key] == want)
        for key, want in fields.items())


class Querier:
    """`expect` goes through the events in order and continues behind the one that it found last."""

    def __init__(self, station, *options, verb=("run", "eth0"), command=(), path=None):
        """`command` replaces the user's own, and `path` that of its socket."""
        self.events = []
        self.next = 0
        self.arrived = threading.Condition()
        self.ended = False
        self.errors = []
        # Only one agent of a machine can serve at the usual path.
        self.socket = path or pathlib.Path(station.lab.scratch.name, f"{station.number}.sock")
        every_event = ("--event-rate", "0") if verb[0] == "run" else ()
        self.process = station.lab.spawn(
            station.namespace, *(command or (program(),)), *verb, "--json",
            "--socket", self.socket, *every_event, *options,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.readers = [
            station.lab.read(self.process.stdout, self.line_arrived, self.all_arrived),
            station.lab.read(self.process.stderr, self.errors.append)]

    def line_arrived(self, line):
        try:
            event = json.loads(line)
        except ValueError:
            event = {"event": "this line is not JSON", "line": line}
        with self.arrived:
            self.events.append(event)
            self.arrived.notify_all()

    def all_arrived(self):
        with self.arrived:
            self.ended = True
            self.arrived.notify_all()

    def expect(self, kind, timeout=10, **fields):
        """The next event of that kind with those fields; a predicate can stand for a value."""
        event, self.next = self.find(self.next, kind, timeout, fields)
        return event

    def find(self, first, kind, timeout, fields):
        end = time.monotonic() + timeout
        place = first
        with self.arrived:
            while True:
                for event in self.events[place:]:
                    place += 1
                    if matches(event, kind, fields): return event, place
                if self.ended or not self.arrived.wait(end - time.monotonic()): break
        wanted = " ".join([kind, *(f"{key}={want}" for key, want in fields.items())])
        raise AssertionError(
            f"no {wanted}" + (", igmpq ended" if self.ended else f" within {timeout} s")
            + self.listed("before", self.events[:first]) + self.listed("since", self.events[first:])
            + self.listed("stderr", self.errors))

    @staticmethod
    def listed(title, items):
        lines = [item if isinstance(item, str) else json.dumps(item) for item in items]
        return f"\n{title}:" + "".join(f"\n  {line.rstrip()}" for line in lines or ["nothing"])

    def seen(self, kind, **fields):
        with self.arrived:
            return [event for event in self.events if matches(event, kind, fields)]

    def expect_none(self, kind, during, **fields):
        """Waits that long; fails if there is such an event now, or was one before."""
        time.sleep(during)
        found = self.seen(kind, **fields)
        if found: raise AssertionError(f"unwanted {kind}" + self.listed("all", self.events))

    def state(self):
        """The state of eth0 that it prints on request."""
        first = len(self.events)
        self.process.send_signal(signal.SIGUSR1)
        event, first = self.find(first, "state", 10, {})
        interface = event["interfaces"][0]
        while "more" in event:
            event, first = self.find(first, "state", 10, {})
            for each in event["interfaces"]:
                if each["interface"] == interface["interface"]:
                    interface["groups"] += each["groups"]
        return interface

    def groups(self):
        return {group["group"]: group for group in self.state()["groups"]}

    def wait_last_reporter(self, group, address):
        wait_until(lambda: self.groups()[group]["lastReporter"] == address, 10,
                   f"{address} to be the last reporter of {group}")

    def stop(self, signal_number=signal.SIGTERM):
        """Ends it and reads its remaining lines; returns the exit status."""
        self.process.send_signal(signal_number)
        status = self.process.wait(10)
        for reader in self.readers:
            reader.join(10)
        return status


def run_once(station, *arguments, wrapper=(), command=()):
    """Runs igmpq until it ends: a CompletedProcess. `command` replaces the user's own."""
    return subprocess.run(
        ("ip", "netns", "exec", station.namespace, *wrapper, *(command or (program(),)),
         *arguments),
        capture_output=True, text=True, timeout=60, check=False)
