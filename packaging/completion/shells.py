"""Asks bash and zsh what they would offer for a line, the cursor at its end."""
import os
import pathlib
import pty
import re
import select
import subprocess

FOLDER = pathlib.Path(__file__).resolve().parent
BREAKS = " \t\n\"'><=;|&(:"  # those that bash begins with
MARK = b"<offered>"
PATIENCE = 60

BASH = """
source "$1"; COMP_WORDBREAKS=$2; shift 2
COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
_igmpq && printf '%s\\n' "${COMPREPLY[@]}"
"""


class Bash:
    def __init__(self, environment, folder):
        self.environment = environment
        self.folder = folder

    def offered(self, line, breaks=BREAKS):
        words = []
        for word in line.split(" "):
            parts = re.split(r"([=:]+)", word) if "=" in breaks else [word]
            words += [part for part in parts if part] or [""]
        done = subprocess.run(
            ["bash", "--norc", "-c", BASH, "bash", FOLDER / "igmpq.bash", breaks, *words],
            env=self.environment, cwd=self.folder, text=True, timeout=PATIENCE, check=False,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        return set(done.stdout.splitlines()) - {""}

    def close(self):
        pass


class Zsh:
    """A zsh that runs in a terminal; driver.zsh makes it print its offers."""

    def __init__(self, environment, folder):
        self.offers = folder.parent / "offers"
        environment = environment | {"TERM": "dumb", "OFFERED": str(self.offers),
                                     "COMPLETIONS": str(FOLDER)}
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.chdir(folder)
            os.execvpe("zsh", ["zsh", "-f", "-i"], environment)
        self.output = b""
        self.send(f"source {FOLDER}/driver.zsh\n")

    def send(self, text):
        """Types the text and waits for the mark that the shell writes afterwards."""
        os.write(self.terminal, text.encode())
        while MARK not in self.output:
            if not select.select([self.terminal], [], [], PATIENCE)[0]:
                raise TimeoutError(f"zsh prints nothing more: {self.output}")
            self.output += os.read(self.terminal, 65536)
        self.output = self.output.partition(MARK)[2]

    def offered(self, line):
        self.send(line + "\x14")
        return set(self.offers.read_text("utf-8").splitlines())

    def close(self):
        os.close(self.terminal)
        os.waitpid(self.pid, 0)
