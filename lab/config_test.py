"""The configuration is read again: all of it or nothing, and what did not change is not touched."""
import json
import os
import pathlib
import re
import signal
import subprocess
import time

from configured import Requests, ReloadTestCase, Router
from lab import wait_until
from querier import Querier, copy_for_all, program
from testcase import NO_DELAY, main
MANY = 150


class ReloadTest(ReloadTestCase):
    INTERFACES = '[[interface]]\nname = "eth*"\n'

    def setUp(self):
        super().setUp()
        for name in ("eth0", "eth1"): self.add_link(name)

    def run_with(self, text, *options, **more):
        self.write(text)
        self.querier = self.start(*options, **more)
        self.agent = self.requests(self.querier)

    def reload_by_command(self, *options):
        return self.igmpq("reload", "--socket", self.querier.socket, *options)

    def assert_refused(self, words):
        """The agent goes on with what it had."""
        before = self.agent.settings()
        done = self.reload_by_command()
        self.assertEqual((1, ""), (done.returncode, done.stdout))
        self.assertRegex(done.stderr, words)
        self.assertIn("nothing was taken over: the agent goes on as before", done.stderr)
        self.assertEqual(before, self.agent.settings())

    def test_the_command_waits_and_prints_what_changed(self):
        self.run_with(self.INTERFACES)
        self.write('[defaults]\nquery-interval = 60\n[[interface]]\nname = "eth0"\n'
                   "[agent]\nring-size = 1024\n")
        done = self.reload_by_command()
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        self.assertEqual([
            f"agent ring-size stays 4096 for up to 16 interfaces, else 65536 in all until a "
            f"restart; 1024, {self.file}:6",
            "eth1 removed",
            f"eth0 query-interval 60s (was 125s), {self.file}:2"], done.stdout.splitlines())
        # What needs a restart is named until then.
        again = self.reload_by_command().stdout.splitlines()
        self.assertEqual(done.stdout.splitlines()[:1], again)

    def test_json_is_an_object_a_line(self):
        self.run_with(self.INTERFACES)
        self.write('[[interface]]\nname = "eth0"\nrobustness = 3\n')
        lines = [json.loads(line) for line in self.reload_by_command("--json").stdout.splitlines()]
        self.assertEqual([("removed", "eth1"), ("changed", "eth0")],
                         [(line["change"], line["interface"]) for line in lines])
        self.assertEqual({"setting": "robustness", "before": "2", "after": "3",
                          "origin": f"{self.file}:3"},
                         {key: lines[1][key] for key in ("setting", "before", "after", "origin")})

    def test_a_hangup_reports_the_changes_as_events(self):
        self.run_with(self.INTERFACES)
        self.write(self.INTERFACES + "robustness = 3\n")
        self.querier.process.send_signal(signal.SIGHUP)
        for name in ("eth0", "eth1"):
            self.querier.expect("notice", text=f"{name} robustness 3 (was 2), {self.file}:3")
        self.write(self.INTERFACES + "robustness = 9\n")
        self.querier.process.send_signal(signal.SIGHUP)
        self.querier.expect("error", text=lambda text: f"{self.file}:3:14: robustness 9" in text)

    def hang_up(self):
        """Returns when the signal is with the process: another one is not the same then."""
        process = self.querier.process
        process.send_signal(signal.SIGHUP)
        status = pathlib.Path(f"/proc/{process.pid}/status")
        while int(re.search(r"^ShdPnd:\s*(\w+)", status.read_text(), re.MULTILINE)[1], 16):
            self.assertIsNone(process.poll())

    def test_its_end_does_not_wait_for_hangups_that_wait(self):
        # So long a file takes longer to be read than the time between two hangups.
        self.run_with(self.INTERFACES + "#" * 500000)
        for name in ("eth0", "eth1"): self.querier.expect("interfaceUp", interface=name)
        hangups = 100
        for _ in range(hangups): self.hang_up()
        self.assertEqual(0, self.querier.stop())
        self.assertLess(len(self.querier.seen("notice")), hangups)

    def test_an_agent_without_a_file_has_nothing_to_read(self):
        station = Router(self.lab, self.router, 1)
        self.querier = Querier(station, *NO_DELAY, verb=("run", "eth0"))
        self.agent = self.requests(self.querier)
        self.assertIn("no configuration file is in use", self.reload_by_command().stderr)

    def test_show_config_names_the_origin_of_each_value(self):
        self.run_with("[defaults]\nrobustness = 3\n" + self.INTERFACES +
                      'boundary = ["239.255.0.0/16"]\n', "--query-interval", "60")
        set_robustness = self.igmpq("set", "eth1", "robustness=4", "--socket", self.querier.socket)
        self.assertEqual(0, set_robustness.returncode)
        done = self.igmpq("show", "config", "eth0", "eth1", "--socket", self.querier.socket)
        rows = {tuple(line.split(maxsplit=3)) for line in done.stdout.splitlines()}
        self.assertLessEqual(
            {("INTERFACE", "SETTING", "VALUE", "ORIGIN"),
             ("eth0", "robustness", "3", f"{self.file}:2"),
             ("eth1", "robustness", "4", "set at run time"),
             ("eth0", "query-interval", "60s", "command line"),
             ("eth0", "last-member-query-time", "2s", "-"),
             ("eth0", "boundary", "239.255.0.0/16", f"{self.file}:5"),
             ("eth0", "max-groups", "65536", "default")}, rows)
        everything = self.igmpq("show", "config", "--socket", self.querier.socket).stdout
        self.assertRegex(everything, r"\n-  +max-readers +64 +default\n")
        unknown = self.igmpq("show", "config", "eth7", "--socket", self.querier.socket)
        self.assertEqual(2, unknown.returncode)
        self.assertIn("the agent has no interface eth7; it has: eth0, eth1", unknown.stderr)

    def test_a_pattern_may_match_nothing_until_an_interface_comes(self):
        self.run_with('[[interface]]\nname = "vlan*"\n')
        self.assertEqual({""}, set(self.agent.settings()))
        self.add_link("vlan7")
        self.assertEqual("vlan7 added\n", self.reload_by_command().stdout)
        self.querier.expect("interfaceUp", interface="vlan7")

    def test_files_that_are_none_change_nothing(self):
        self.run_with(self.INTERFACES)
        for make, words in (
                (lambda: self.write("#" * (10 << 20)), "igmpq.toml: is longer than 1048576 bytes"),
                (lambda: self.write(""), r"names no interface; add for instance the lines "
                                         r"\[\[interface\]\] and name = \"eth0\"\n"),
                (lambda: self.write("# \udcff\n"), "igmpq.toml:1:2: "),
                (self.file.unlink, "igmpq.toml: No such file"),
                (self.file.mkdir, "igmpq.toml: is no regular file")):
            make()
            self.assert_refused(words)
        self.file.rmdir()
        self.write(self.INTERFACES)
        self.assertEqual("nothing changed\n", self.reload_by_command().stdout)

    def test_an_interface_twice_is_a_fault_with_both_places(self):
        self.run_with(self.INTERFACES)
        self.write(self.INTERFACES + '[[interface]]\nname = "eth*"\n')
        self.assert_refused(r"igmpq.toml:4:8: eth\* has a section already, at \S+igmpq.toml:2:8")

    def test_the_agent_moves_to_another_socket(self):
        folder = self.folder / "sockets"
        folder.mkdir(mode=0o755)
        first, second = folder / "first.sock", folder / "second.sock"
        self.write(self.INTERFACES + f'[agent]\nsocket = "{first}"\n')
        process = self.lab.spawn(self.router, program(), "run", "--config", self.file, "--json",
                                 stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        wait_until(first.with_suffix(".request").exists, 20, "the agent to serve")
        agent = Requests(first.with_suffix(".request"))
        self.addCleanup(agent.close)
        # A folder that is none: nothing is taken over, and the old sockets stay.
        self.write(f'[defaults]\nrobustness = 3\n{self.INTERFACES}'
                   f'[agent]\nsocket = "{self.file}/x.sock"\n')
        self.assertIn("cannot serve the attribute log", agent.reload()[0]["text"])
        self.assertEqual((2, "default"), agent.settings()["eth0"]["robustness"])
        self.write(self.INTERFACES + f'[agent]\nsocket = "{second}"\n')
        self.assertEqual(["socket"], [change["setting"] for change in agent.reload()])
        self.assertEqual(str(second), agent.settings()[""]["socket"][0])  # it stays connected
        done = self.igmpq("show", "--socket", second)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        self.assertEqual({"second.sock", "second.request", "second.sock.lock",
                          "second.request.lock"}, set(os.listdir(folder)))
        self.assertIsNone(process.poll())

    def test_readers_see_interfaces_come_and_go(self):
        self.run_with('[[interface]]\nname = "eth0"\n')
        watch = self.lab.spawn(self.router, program(), "watch", "--existing", "--json",
                               "--socket", self.querier.socket, stdout=subprocess.PIPE)
        def wait_for(event, name):
            for line in watch.stdout:
                found = json.loads(line)
                if (found["event"], found.get("interface")) == (event, name): return
            self.fail(f"no {event} of {name}")
        self.send_traffic("eth0", "eth1")
        wait_for("groupJoined", "eth0")
        self.write('[[interface]]\nname = "eth1"\n')
        self.agent.reload()
        wait_for("interfaceGone", "eth0")
        wait_for("groupJoined", "eth1")
        self.querier.expect("groupLeft", interface="eth0")
        shown = self.igmpq("show", "interfaces", "--json", "--socket", self.querier.socket)
        self.assertEqual(["eth1"], [each["interface"] for each in json.loads(shown.stdout)])
        self.assertIsNone(watch.poll())

    # A gap would end groups, so a querier asks anew after a long one.
    def test_many_new_interfaces_make_no_gap_for_the_others(self):
        self.run_with('[[interface]]\nname = "eth0"\n')
        names = [f"m{number}" for number in range(MANY)]
        self.add_links(names)
        self.write(self.file.read_text("utf-8") + '[[interface]]\nname = "m*"\n')
        self.querier.expect("role", role="querier")
        begin = time.monotonic()
        self.assertEqual(set(names), {change["interface"] for change in self.agent.reload()})
        self.assertLess(self.longest_gap(), (time.monotonic() - begin) / 2)

    def add_links(self, names):
        def batch(namespace, commands):
            subprocess.run(("ip", "-n", namespace, "-batch", "-"), input=commands, text=True,
                           check=True)
        batch(self.router, "".join(
            f"link add name {name} up type veth peer name {name} netns {self.hosts}\n"
            f"address add 10.80.{number}.1/24 dev {name}\n" for number, name in enumerate(names)))
        batch(self.hosts, "".join(f"link set {name} up\n" for name in names))

    def longest_gap(self):
        done = self.igmpq("get", "loop/longestGap", "--json", "--socket", self.querier.socket)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        return json.loads(done.stdout)

    def test_links_that_come_and_go_meanwhile(self):
        self.run_with(self.INTERFACES + 'robustness = 7\n[[interface]]\nname = "x*"\n')
        self.send_traffic("eth0")
        self.wait_groups(self.querier, "eth0")
        self.lab.spawn(self.router, "sh", "-c", """
            while :; do
                ip link add name x0 type veth peer name y0; ip link set y0 up; ip link set x0 up
                ip address add 10.79.0.1/24 dev x0; ip link del x0
            done""", stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        counts = {"added": 0, "removed": 0}

        def has_come_and_gone():
            changes = self.agent.reload()
            kinds = [change["change"] for change in changes]
            for kind in counts: counts[kind] += kinds.count(kind)
            # The link went after it was seen.
            refused = [each["text"] for each in changes if each["change"] == "fault"]
            for text in refused: self.assertIn("x0 cannot be added: ", text)
            return all(counts.values())

        for _ in range(300): has_come_and_gone()
        # On a busy machine it takes long until a reload sees it come and go.
        wait_until(has_come_and_gone, 60, "the link to come and go")
        self.assertEqual([], self.querier.seen("groupLeft", interface="eth0"))
        self.assertEqual(0, self.querier.stop())


class ReloadRightsTest(ReloadTestCase):
    TEXT = '[[interface]]\nname = "eth0"\n'

    def start_as_nobody(self):
        self.add_link("eth0")
        self.write(self.TEXT)
        self.file.chmod(0o600)
        # Beside its own socket, in a folder that root makes for it.
        station = Router(self.lab, self.router, 1)
        self.querier = Querier(station, *NO_DELAY, "--user", "nobody", "--config", self.file,
                               verb=("run",), path=self.folder / "made" / "agent.sock")
        self.agent = self.requests(self.querier)

    def test_a_file_that_only_root_can_read_is_refused_with_the_remedy(self):
        self.start_as_nobody()
        fault, = self.agent.reload()
        self.assertEqual(str(self.file), fault["origin"])
        self.assertIn("this process runs as user nobody and has no right to read it; `chown` it",
                      fault["text"])
        self.file.chmod(0o644)
        self.assertEqual([], self.agent.reload())

    def test_a_folder_of_additions_that_cannot_be_read_is_not_taken_for_empty(self):
        self.start_as_nobody()
        self.file.chmod(0o644)
        additions = self.folder / "conf.d"
        additions.mkdir(mode=0o700)
        fault, = self.agent.reload()
        self.assertEqual(str(additions), fault["origin"])
        additions.chmod(0o755)
        (additions / "10.toml").write_text("[defaults]\nrobustness = 3\n", "utf-8")
        self.assertEqual(["robustness"], [each["setting"] for each in self.agent.reload()])

    def test_a_group_that_can_configure_comes_with_a_reload(self):
        self.add_link("eth0")
        self.write(self.TEXT + '[agent]\nread-group = "all"\n')
        self.querier = self.start()
        self.agent = self.requests(self.querier)
        as_other = ("setpriv", "--reuid", "1", "--regid", "1", "--clear-groups", *as_all())
        def reload_as_other():
            return subprocess.run((*as_other, "reload", "--socket", self.querier.socket),
                                  capture_output=True, text=True, timeout=20, check=False)
        self.assertIn("not permitted to have the configuration read again",
                      reload_as_other().stderr)
        self.write(self.TEXT + '[agent]\nconfigure-group = "daemon"\n')
        self.assertEqual({"read-group", "configure-group"},
                         {each["setting"] for each in self.agent.reload()})
        self.assertEqual((0, "nothing changed\n"),
                         (reload_as_other().returncode, reload_as_other().stdout))


def as_all():
    """The command line of igmpq without its user."""
    folder = copy_for_all()
    return "env", f"LD_LIBRARY_PATH={folder}", f"{folder}/{program().name}"


if __name__ == "__main__":
    main()
