"""An agent that is killed with SIGKILL where it calls a function for the nth time.

A debugger sets a breakpoint there and kills the process. The agent is the one that is built, with
nothing of its own for that.

  agent = KilledQuerier(router, Point("an election", "Gmp::Igmp::QuerierSm::doQuerierElection"),
                        *QUIET)
  lower.query(2)
  agent.wait_killed()
"""
import collections
import pathlib
import re
import shutil
import subprocess

from querier import Querier, program

DEBUGGER = "gdb"
# Debug information is not read, which would take longer than all else, and no signal stops it.
COMMANDS = """
set confirm off
set breakpoint pending on
set startup-with-shell off
set disable-randomization off
handle all nostop noprint pass
handle SIGTRAP stop
set logging file {log}
set logging redirect on
set logging enabled on
break {function}
ignore 1 {ignored}
run
{finish}
info breakpoints
kill
"""
HITS = re.compile(r"breakpoint already hit (\d+) times?")
KILLED = re.compile(r"\[Inferior 1 \(process \d+\) killed\]")

# At which call of a function, or after it has returned. Where there are several functions of the
# same name, it has the types of the parameters.
Point = collections.namedtuple("Point", ["name", "function", "call", "at_end"],
                               defaults=[1, False])


def why_not():
    """Why no agent can be killed so here, or None."""
    if not shutil.which(DEBUGGER): return f"there is no {DEBUGGER}"
    done = subprocess.run((DEBUGGER, "-nx", "-batch", "-readnever", "-ex", "run", "--args", "true"),
                          capture_output=True, text=True, timeout=60, check=False)
    return None if "exited normally" in done.stdout else f"{DEBUGGER}: {done.stderr.strip()}"


class KilledQuerier(Querier):
    def __init__(self, station, point, *options, **others):
        self.point = point
        name = f"killed{len(station.lab.processes)}"
        commands = pathlib.Path(station.lab.scratch.name, f"{name}.gdb")
        self.log = commands.with_suffix(".log")
        commands.write_text(COMMANDS.format(
            log=self.log, function=point.function, ignored=point.call - 1,
            finish="finish" if point.at_end else ""))
        super().__init__(
            station, *options, command=(DEBUGGER, "-nx", "-batch", "-readnever", "-x", commands,
                                        "--args", program()), **others)

    def is_killed(self):
        return self.process.poll() is not None

    def wait_killed(self):
        """Returns how often it has called the function; an agent that did not get there fails."""
        self.process.wait(120)
        log = self.log.read_text()
        calls = sum(map(int, HITS.findall(log)))
        if calls != self.point.call or not KILLED.search(log):
            raise AssertionError(f"not killed in {self.point.name}, {calls} calls:\n{log}"
                                 + self.listed("stderr", self.errors))
        return calls
