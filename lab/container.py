"""A systemd of its own in a container of systemd-nspawn, which has the network of a station.

  container = Container(lab, router, "--directory=/", "--volatile=yes")
  container.inside("systemctl", "start", "igmpq")
  container.close()

The options of systemd-nspawn choose its file system, and whether changes to that are kept.
"""
import os
import pathlib
import subprocess

from lab import PREFIX, is_stale, wait_until

# Started once the file systems and the journal are there; nothing of a login or of first use.
INIT = ("--unit=basic.target", "systemd.firstboot=off",
        "systemd.mask=systemd-firstboot.service", "systemd.mask=systemd-networkd.service",
        "systemd.mask=systemd-timesyncd.service")
# The firewall of the unit is a program of the kernel, which systemd must be able to load.
FIREWALL = ("--system-call-filter=bpf", "--capability=CAP_BPF,CAP_NET_ADMIN,CAP_SYS_ADMIN")


class ControlGroup:
    """One for each container, which is ended with it: its processes outlive systemd-nspawn."""

    def __init__(self, name):
        mounts = [line.split() for line in pathlib.Path("/proc/mounts").read_text().splitlines()]
        root = pathlib.Path(next(mount[1] for mount in mounts if mount[2] == "cgroup2"))
        for path in root.glob(f"{PREFIX}*"):
            if is_stale(path.name): self.end(path)
        self.path = root / name
        self.path.mkdir()

    def enter(self):
        (self.path / "cgroup.procs").write_text("0")

    def close(self):
        self.end(self.path)

    @staticmethod
    def end(path):
        (path / "cgroup.kill").write_text("1")
        wait_until(lambda: "populated 0" in (path / "cgroup.events").read_text(), 10,
                   "the processes of a container to end")
        for folder, _, _ in os.walk(path, topdown=False): os.rmdir(folder)


class Container:
    def __init__(self, lab, station, *options):
        name = lab.prefix.rstrip("-")
        self.control_group = ControlGroup(name)
        self.log = pathlib.Path(lab.scratch.name, "container.log").open("w+")
        self.process = subprocess.Popen(
            ("systemd-nspawn", "--quiet", "--register=no", "--keep-unit", f"--machine={name}",
             *options, *FIREWALL, f"--network-namespace-path=/run/netns/{station.namespace}",
             "--boot", "--", *INIT),
            stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log, start_new_session=True,
            preexec_fn=self.control_group.enter)
        try:
            wait_until(self.find_init, 20, "the container's first process")
            wait_until(self.is_up, 30, "the container's systemd")
        except TimeoutError as error:
            self.log.seek(0)
            text = self.log.read()
            self.close()
            raise AssertionError(f"{error}:\n{text}") from error

    def close(self):
        self.control_group.close()
        self.process.wait()
        self.log.close()

    def is_up(self):
        return self.inside("systemctl", "is-active", "basic.target").returncode == 0

    def find_init(self):
        """Among the children of systemd-nspawn; the others only prepare the container."""
        task = pathlib.Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children")
        self.init = next((child for child in task.read_text().split() if self.is_init(child)), None)
        return self.init

    @staticmethod
    def is_init(process):
        try:
            return pathlib.Path(f"/proc/{process}/comm").read_text() == "systemd\n"
        except OSError:
            return False  # it has ended

    def inside(self, *command, timeout=60, **options):
        """Runs a command in the container."""
        return subprocess.run(
            ("nsenter", "--target", self.init, "--mount", "--pid", "--net", "--ipc", "--uts",
             "--cgroup", "--", *map(str, command)),
            capture_output=True, text=True, timeout=timeout, check=False, **options)
