"""One link with real Linux hosts on it, made of network namespaces and a bridge.

  with Lab() as lab:
      router, host = lab.station(1), lab.station(11, igmp_version=2)
      querier = Querier(router, "--query-interval", "4")
      host.join("239.1.1.1")
      querier.expect("groupJoined", group="239.1.1.1", reporter=host.address)

The end of the lab ends its processes and namespaces, too: by leaving the `with`, by an exception or
by a signal. The next lab removes the remains of a killed one.
"""
import atexit
import ctypes
import itertools
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

PREFIX = "igmpq-lab-"
SCRATCH = "/tmp"
NETWORK = "10.77.0"
HOST_PROGRAM = pathlib.Path(__file__).with_name("host.py")
PR_SET_PDEATHSIG = 1

libc = ctypes.CDLL(None)
lab_numbers = itertools.count()


def ip(*arguments):
    done = subprocess.run(("ip", *arguments), capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise OSError(f"ip {' '.join(arguments)}: {done.stderr.strip()}")
    return done.stdout


def die_with_parent():
    libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def wait_until(condition, timeout, what):
    end = time.monotonic() + timeout
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(f"waited {timeout} s for {what}")
        time.sleep(0.02)


def why_not():
    """Why no lab can be built here, or None."""
    name = f"{PREFIX}{os.getpid()}-probe"
    try:
        ip("netns", "add", name)
        ip("-n", name, "link", "add", "name", "probe0", "type", "veth", "peer", "name", "probe1")
        ip("-n", name, "link", "add", "name", "probe2", "type", "bridge")
        ip("netns", "exec", name, "true")
    except OSError as error:
        return str(error)
    finally:
        subprocess.run(("ip", "netns", "del", name), capture_output=True, check=False)
    return None


def is_stale(name):
    pid = name[len(PREFIX):].split("-")[0]
    return name.startswith(PREFIX) and pid.isdigit() and not pathlib.Path("/proc", pid).exists()


def remove_stale():
    # Another lab may be doing the same, so it is no error when one no longer exists.
    for line in ip("netns", "list").splitlines():
        name = line.split()[0]
        if is_stale(name):
            subprocess.run(("ip", "netns", "del", name), capture_output=True, check=False)
    for path in pathlib.Path(SCRATCH).glob(f"{PREFIX}*"):
        if is_stale(path.name): shutil.rmtree(path, ignore_errors=True)


class Lab:
    def __init__(self, snooping=False):
        self.prefix = f"{PREFIX}{os.getpid()}-{next(lab_numbers)}-"
        self.namespaces = []
        self.processes = []
        self.readers = []
        # Not below $TMPDIR, which other users may be unable to enter.
        self.scratch = tempfile.TemporaryDirectory(prefix=self.prefix, dir=SCRATCH)
        atexit.register(self.close)
        # A terminated lab unwinds as an interrupted one does.
        signal.signal(signal.SIGTERM, signal.default_int_handler)
        signal.signal(signal.SIGHUP, signal.default_int_handler)
        remove_stale()
        try:
            self.switch = self.add_namespace("switch")
            # With snooping the bridge would keep reports away from hosts, and from us.
            ip("-n", self.switch, "link", "add", "name", "br0", "type", "bridge",
               "mcast_snooping", str(int(snooping)), "forward_delay", "0")
            ip("-n", self.switch, "link", "set", "br0", "up")
        except BaseException:
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        atexit.unregister(self.close)
        for process in self.processes:
            if process.poll() is None: process.terminate()
        for process in self.processes:
            try:
                process.wait(2)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        for reader in self.readers:
            reader.join()
        for process in self.processes:
            for stream in (process.stdin, process.stdout, process.stderr):
                if stream: stream.close()
        for name in self.namespaces:
            subprocess.run(("ip", "netns", "del", name), capture_output=True, check=False)
        self.processes, self.readers, self.namespaces = [], [], []
        self.scratch.cleanup()

    def add_namespace(self, name):
        name = self.prefix + name
        self.namespaces.append(name)
        ip("netns", "add", name)
        # Neighbour discovery and listener reports would disturb the tests.
        self.sysctl(name, "ipv6/conf/all/disable_ipv6", 1)
        self.sysctl(name, "ipv6/conf/default/disable_ipv6", 1)
        return name

    def sysctl(self, namespace, key, value):
        ip("netns", "exec", namespace, "sh", "-c", f"echo {value} > /proc/sys/net/{key}")

    def read(self, stream, line_arrived, ended=lambda: None):
        """A thread that passes each line of a process to `line_arrived`."""
        def run():
            for line in stream:
                line_arrived(line)
            ended()
        self.readers.append(threading.Thread(target=run, daemon=True))
        self.readers[-1].start()
        return self.readers[-1]

    def spawn(self, namespace, *command, **options):
        """A process of the lab, in a session of its own: Ctrl-C at the terminal does not end it."""
        process = subprocess.Popen(
            ("ip", "netns", "exec", namespace, *map(str, command)), text=True, bufsize=1,
            start_new_session=True, preexec_fn=die_with_parent, **options)
        self.processes.append(process)
        return process

    def station(self, number, igmp_version=0):
        """A machine on the link, as 10.77.0.<number>; version 0 lets its kernel choose."""
        return Station(self, number, igmp_version)


class Station:
    """A machine on the link with one interface, eth0; hosts join and leave by real sockets."""

    def __init__(self, lab, number, igmp_version):
        self.lab = lab
        self.number = number
        self.address = f"{NETWORK}.{number}"
        self.port = f"port{number}"
        self.helper = None
        self.namespace = lab.add_namespace(str(number))
        # Valid for the interfaces that are made afterwards.
        lab.sysctl(self.namespace, "ipv4/conf/default/force_igmp_version", igmp_version)
        self.ip("link", "set", "lo", "up")
        self.plug()

    def ip(self, *arguments):
        return ip("-n", self.namespace, *arguments)

    def plug(self):
        """Makes eth0 and connects it."""
        self.ip("link", "add", "name", "eth0", "address", f"02:00:00:00:00:{self.number:02x}",
                "type", "veth", "peer", "name", self.port, "netns", self.lab.switch)
        ip("-n", self.lab.switch, "link", "set", self.port, "master", "br0", "up")
        self.ip("address", "add", f"{self.address}/24", "dev", "eth0")
        self.ip("link", "set", "eth0", "up")
        self.wait_connected()

    def unplug(self):
        """Deletes eth0."""
        self.ip("link", "del", "eth0")

    def cut(self):
        """Nothing reaches the link any more, and the machine does not notice."""
        ip("-n", self.lab.switch, "link", "set", self.port, "nomaster")

    def down(self):
        self.ip("link", "set", "eth0", "down")

    def up(self):
        self.ip("link", "set", "eth0", "up")
        self.wait_connected()

    def remove_address(self):
        self.ip("address", "del", f"{self.address}/24", "dev", "eth0")

    def add_address(self, number):
        self.address = f"{NETWORK}.{number}"
        self.ip("address", "add", f"{self.address}/24", "dev", "eth0")

    def wait_connected(self):
        # The bridge notices a new carrier late, and drops packets until then.
        def forwarding():
            shown = ip("-n", self.lab.switch, "-d", "-j", "link", "show", "dev", self.port)
            return json.loads(shown)[0]["linkinfo"]["info_slave_data"]["state"] == "forwarding"
        wait_until(forwarding, 10, f"{self.port} to forward")

    def command(self, *words):
        if self.helper is None:
            self.helper = self.lab.spawn(self.namespace, sys.executable, HOST_PROGRAM, self.address,
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.helper.stdin.write(" ".join(map(str, words)) + "\n")
        self.helper.stdin.flush()
        answer = self.helper.stdout.readline().strip()
        if answer != "ok": raise OSError(f"host {self.address}: {answer or 'is gone'}")

    def join(self, group, source=""):
        self.command("join", group, source)

    def leave(self, group, source=""):
        self.command("leave", group, source)

    def block(self, group, source):
        self.command("block", group, source)

    def unblock(self, group, source):
        self.command("unblock", group, source)

    def query(self, version, group="0.0.0.0", response=10):
        """Sends a query as another router would."""
        self.command("query", version, group, response)
