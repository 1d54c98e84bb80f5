"""The Debian packages in a fresh system: installed, at work, upgraded, removed and purged.

  packages.py FOLDER    with the packages that scripts/package has built

The system is a folder. It has what the packages depend on from the beginning, so that all that is
there in the end and was not before was left by them.
"""
import atexit
import contextlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import threading

from configured import GROUPS, TRAFFIC
from container import Container
from lab import PREFIX, SCRATCH, Lab, wait_until

GROUP = "239.1.1.1"
INTERFACE = '[[interface]]\nname = "eth0"\n'
COMMAND = "igmpq"
PACKAGES = ("libigmpquerierplatform0", "libigmpquerier0", "igmp-querier-dev", COMMAND)
# Logs, caches and the databases of the package manager; backups of the lists of users.
NOT_COMPARED = re.compile(
    r"/(proc|sys|dev|run/lock|tmp|packages|var/(log|cache|lib/(dpkg|apt|systemd)|tmp))(/|$)"
    r"|/etc/(passwd|group|shadow|gshadow|subuid|subgid)-|/etc/ld.so.cache|/etc/[.]pwd.lock"
    r"|/etc/resolv.conf|/run/")


def report(text):
    print(f"packages: {text}", flush=True)


def run(*command, **options):
    done = subprocess.run(tuple(map(str, command)), capture_output=True, text=True, check=False,
                          **options)
    if done.returncode != 0:
        raise OSError(f"{' '.join(map(str, command))}: {done.stdout}{done.stderr}")
    return done.stdout


def packages_in(folder):
    """By name, without those of debug information."""
    found = {run("dpkg-deb", "-f", path, "Package").strip(): path
             for path in folder.glob("*.deb")}
    return {name: path for name, path in found.items() if not name.endswith("-dbgsym")}


def dependencies(packages):
    """The first choice of each, except for our own packages."""
    names = set()
    for name in PACKAGES:
        depends = run("dpkg-deb", "-f", packages[name], "Depends")
        names |= {re.split(r"[ (|]", part.strip())[0] for part in depends.split(",")}
    return names - set(packages)


def newer(package, folder, version):
    """The same package as another version, with its dependencies on our packages of that one."""
    tree = folder / "tree"
    run("dpkg-deb", "-R", package, tree)
    control = tree / "DEBIAN/control"
    before = re.search(r"^Version: (.*)$", control.read_text(), re.MULTILINE)[1]
    text = control.read_text().replace(f"(= {before})", f"(= {version})")
    control.write_text(text.replace(f"Version: {before}\n", f"Version: {version}\n"))
    run("dpkg-deb", "--root-owner-group", "-b", tree, folder)
    shutil.rmtree(tree)


class System:
    def __init__(self, packages):
        self.folder = tempfile.TemporaryDirectory(prefix=f"{PREFIX}{os.getpid()}-", dir=SCRATCH)
        atexit.register(self.folder.cleanup)
        self.root = pathlib.Path(self.folder.name, "root")
        settings = [f"--aptopt={line}" for line in run("apt-config", "dump").splitlines()
                    if line.startswith("Acquire::")]
        sources = [path for folder in ("/etc/apt", "/etc/apt/sources.list.d")
                   for path in pathlib.Path(folder).glob("*")
                   if path.suffix in (".sources", ".list") and path.stat().st_size > 0]
        wanted = ",".join(sorted(dependencies(packages)))
        run("mmdebstrap", "--variant=apt", f"--include={wanted}", *settings, "bookworm", self.root,
            *sources)
        (self.root / "packages").mkdir()

    def command(self, *command, namespace=None):
        network = (f"--network-namespace-path=/run/netns/{namespace}",) if namespace else ()
        return ("systemd-nspawn", "--quiet", "--register=no", "--keep-unit", "--as-pid2",
                "--pipe", "--resolv-conf=off", "--timezone=off", "--link-journal=no", *network,
                f"--directory={self.root}", "--setenv=DEBIAN_FRONTEND=noninteractive", *command)

    def run(self, *command, namespace=None):
        return run(*self.command(*command, namespace=namespace), stdin=subprocess.DEVNULL)

    def install(self, paths):
        for path in paths: shutil.copy(path, self.root / "packages")
        self.run("apt-get", "install", "--yes", "--quiet",
                 *(f"/packages/{path.name}" for path in paths))

    def files(self):
        """All files and folders, with the contents of the lists of users."""
        found = {}
        for folder, folders, names in os.walk(self.root):
            for name in (*folders, *names):
                path = pathlib.Path(folder, name)
                inside = "/" + str(path.relative_to(self.root))
                if NOT_COMPARED.search(inside): continue
                kept = inside in ("/etc/passwd", "/etc/group")
                found[inside] = path.read_text() if kept else ""
        return found

    def version(self, name=COMMAND):
        return self.run("dpkg-query", "-W", "-f=${Version}", name)


def check(condition, text):
    if not condition: raise AssertionError(text)


def serve_host(system):
    """A querier with the file of the package, on a link with a host that joins."""
    with Lab() as lab:
        router, host = lab.station(1), lab.station(11, 2)
        config = system.root / "etc/igmpq/conf.d"
        config.mkdir()
        (config / "eth0.toml").write_text(INTERFACE)
        querier = subprocess.Popen(
            system.command("setpriv", "--reuid=igmpq", "--regid=igmpq", "--clear-groups",
                           "--inh-caps=-all,+net_raw", "--ambient-caps=-all,+net_raw",
                           "--bounding-set=-all,+net_raw", COMMAND, "run", "--seed", "63230",
                           "--socket", "/tmp/igmpq/agent.sock",
                           namespace=router.namespace),
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        lines = []
        reader = lab.read(querier.stdout, lines.append)
        try:
            wait_until(lambda: any("role querier" in line for line in lines), 30, "the querier")
            host.join(GROUP)
            wait_until(lambda: any(f"joined {GROUP} by {host.address}" in line for line in lines),
                       30, "the group of the host")
        except TimeoutError as error:
            raise AssertionError(f"{error}; it printed:\n{''.join(lines)}") from error
        finally:
            querier.terminate()
            querier.wait(30)
            reader.join(30)
            querier.stdout.close()
        (config / "eth0.toml").unlink()
        config.rmdir()


class Service:
    """The units of the package at work, in the system as it is, which keeps nothing of that."""

    def __init__(self, system, lab, station, *options):
        self.container = Container(lab, station, f"--directory={system.root}", "--volatile=overlay",
                                   *options)

    def run(self, *command, **options):
        done = self.container.inside(*command, **options)
        if done.returncode != 0:
            raise AssertionError(f"{' '.join(command)}: {done.stdout}{done.stderr}")
        return done.stdout

    def groups(self, *store):
        done = self.container.inside(COMMAND, "show", "groups", "--json", *store)
        return {each["group"] for each in json.loads(done.stdout)} if done.returncode == 0 else None

    def creation(self):
        return self.run(COMMAND, "get", f"status/eth0/group[{GROUP}]/creationTime")

    def times(self):
        """When the agent and the store have become active."""
        return [int(self.run("systemctl", "show", unit, "--value",
                             "--property=ActiveEnterTimestampMonotonic"))
                for unit in ("igmpq", "igmpq-store")]


@contextlib.contextmanager
def readings(service, wanted):
    """Shows the groups again and again; yields [how many showed them, how many showed fewer]."""
    counts = [0, 0]
    ending = threading.Event()

    def read():
        while not ending.is_set():
            shown = service.groups()
            if shown is not None: counts[not wanted <= shown] += 1

    thread = threading.Thread(target=read)
    thread.start()
    try:
        yield counts
        before = sum(counts)
        wait_until(lambda: sum(counts) >= before + 2, 60, "readings of the agent")
    finally:
        ending.set()
        thread.join()


def upgrade_under_traffic(system, made):
    """The maintainer scripts restart both processes, and the groups of the hosts stay."""
    with Lab() as lab:
        router, host = lab.station(1), lab.station(11, 2)
        service = Service(system, lab, router, f"--bind-ro={made}:/upgrade")
        with contextlib.closing(service.container):
            service.run("mkdir", "/etc/igmpq/conf.d")
            service.run("tee", "/etc/igmpq/conf.d/eth0.toml", input=INTERFACE)
            service.run("systemctl", "start", COMMAND)
            host.join(GROUP)
            lab.spawn(host.namespace, sys.executable, TRAFFIC, GROUPS, "eth0")
            wanted = {GROUP, *(f"239.1.0.{number}" for number in range(1, GROUPS + 1))}
            store = ("--socket", "/run/igmpq-store/store.sock")
            wait_until(lambda: service.groups(*store) == wanted, 30, "the groups in the store")
            creation, before = service.creation(), service.times()
            with readings(service, wanted) as counts:
                service.run("sh", "-c", "DEBIAN_FRONTEND=noninteractive apt-get install --yes "
                            "--quiet /upgrade/*.deb", timeout=300)
            after = service.times()
            check(before[0] < after[0] < after[1], f"not restarted in turn: {before}, {after}")
            check(service.creation() == creation, f"the group of the host began anew: {creation}")
            check(counts[1] == 0, f"groups were missing in {counts[1]} of {sum(counts)} readings")
            report(f"the groups were there in {counts[0]} readings, the agent taken over "
                   f"{(after[1] - after[0]) / 1e6:.1f} s before the store was restarted")
            wait_until(lambda: service.groups(*store) == wanted, 30, "the groups in the next store")


def check_installed(system):
    check("igmpq:" in system.run("getent", "passwd", COMMAND), "there is no user igmpq")
    wants = list(system.root.glob("etc/systemd/system/*/igmpq.service"))
    check(not wants, f"the service is enabled: {wants}")
    check((system.root / "lib/systemd/system/igmpq.service").is_file(), "there is no unit")
    manual = system.root / "usr/share/doc/igmpq/operating.md"
    check(manual.is_file(), "there is no manual where igmpq(8) names it")
    rules = system.root / "usr/share/doc/igmpq/examples/igmpq.rules.yml"
    check(rules.is_file(), "there are no rules for alerts where igmpq-web(1) names them")
    example = system.run(COMMAND, "check", "--example")
    check((system.root / "etc/igmpq/igmpq.toml").read_text() == example, "another example")


def main(folder):
    packages = packages_in(folder)
    check(set(PACKAGES) <= set(packages), f"there are only {sorted(packages)}")
    report("making a fresh system")
    system = System(packages)
    before = system.files()
    report("installing")
    system.install([packages[name] for name in PACKAGES])
    check_installed(system)
    report("serving a host")
    serve_host(system)
    version = system.version() + "+upgrade"
    with tempfile.TemporaryDirectory(prefix=f"{PREFIX}{os.getpid()}-", dir=SCRATCH) as made:
        for name in PACKAGES: newer(packages[name], pathlib.Path(made), version)
        os.chmod(made, 0o755)
        report("upgrading under traffic")
        upgrade_under_traffic(system, made)
        report("upgrading")
        system.install(sorted(pathlib.Path(made).glob("*.deb")))
    check({system.version(name) for name in PACKAGES} == {version}, "not all were upgraded")
    check_installed(system)
    report("removing and purging")
    system.run("apt-get", "remove", "--yes", *PACKAGES)
    check((system.root / "etc/igmpq/igmpq.toml").is_file(), "a removal deleted the configuration")
    # The others have no configuration: apt does not know them any more.
    system.run("apt-get", "purge", "--yes", COMMAND)
    after = system.files()
    left = sorted(set(after) - set(before))
    changed = sorted(name for name in before if after.get(name) != before[name])
    check(not left and not changed, f"left: {left}; changed or gone: {changed}")
    report("nothing is left")


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
