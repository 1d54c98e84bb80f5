"""The page of `igmpq web` on a link of network namespaces with Linux hosts; until Ctrl-C.

  demo_page.py [--listen ADDRESS]    where the page is, on this machine (127.0.0.1:9645)
"""
import argparse
import pathlib
import subprocess
import sys
import time

from demo import announce
from lab import Lab, why_not
from querier import program

# A group lives 2 * 5 + 1 = 11 s after its last report, and a lower querier is missed as soon.
# Version 3 knows from which sources hosts want a group.
OPTIONS = ("--query-interval", "5", "--query-response-interval", "1", "--querier-version", "3")
OTHER_ROUTER, ROUTER = 1, 5
OLD_HOST, HOST, LAPTOP = 11, 12, 13


class Show:
    def __init__(self, lab):
        self.lab = lab
        self.router, self.other_router = lab.station(ROUTER), lab.station(OTHER_ROUTER)
        self.old, self.host = lab.station(OLD_HOST, 2), lab.station(HOST)
        self.laptop = lab.station(LAPTOP)

    def run(self, station):
        socket = pathlib.Path(self.lab.scratch.name, f"{station.number}.sock")
        return self.lab.spawn(station.namespace, program(), "run", "eth0", "--socket", socket,
                              *OPTIONS, stdout=subprocess.DEVNULL), socket

    def serve(self, socket, address):
        """The page needs the querier's socket only: it is on this machine, not on the link."""
        web = subprocess.Popen((program(), "web", "--listen", address, "--socket", socket),
                               stdout=subprocess.PIPE, text=True, start_new_session=True)
        self.lab.processes.append(web)
        line = web.stdout.readline()
        if not line: raise OSError("the page is not served; see above")
        return line.split()[1]

    def steps(self):
        """The text, the action, and how many seconds there are to watch it."""
        old, host, laptop = self.old, self.host, self.laptop
        yield f"{old.address} (IGMPv2) joins 239.1.1.1.", lambda: old.join("239.1.1.1"), 2
        yield f"{host.address} joins it too.", lambda: host.join("239.1.1.1"), 2
        yield (f"{host.address} wants 232.1.1.1 from 192.0.2.10 only.",
               lambda: host.join("232.1.1.1", "192.0.2.10"), 3)
        yield f"{laptop.address} joins 239.7.7.7.", lambda: laptop.join("239.7.7.7"), 8
        yield (f"{laptop.address} loses its power: 239.7.7.7 will end by timeout.", laptop.down,
               14)
        yield (f"A router with the lower address {self.other_router.address} comes.",
               lambda: self.run(self.other_router), 15)
        yield ("It goes: this one is the querier again when it has missed it.",
               lambda: self.lab.processes[-1].terminate(), 15)
        yield f"{old.address} leaves 239.1.1.1, {host.address} stays.", self.leave_old, 4
        yield f"{host.address} leaves everything.", self.leave_all, 8

    def leave_old(self):
        self.old.leave("239.1.1.1")

    def leave_all(self):
        self.host.leave("239.1.1.1")
        self.host.leave("232.1.1.1", "192.0.2.10")
        self.laptop.up()
        self.laptop.leave("239.7.7.7")

    def play(self):
        for text, action, seconds in self.steps():
            announce(text)
            action()
            time.sleep(seconds)


def main():
    parser = argparse.ArgumentParser(description="the page of igmpq at work")
    parser.add_argument("--listen", metavar="ADDRESS", dest="place", default="127.0.0.1:9645")
    arguments = parser.parse_args()
    reason = why_not()
    if reason: raise OSError(f"the page needs a link of network namespaces: {reason}")
    with Lab() as lab:
        show = Show(lab)
        _, socket = show.run(show.router)
        url = show.serve(socket, arguments.place)
        print(f"The page of a querier with three Linux hosts is at\n\n    {url}\n\n"
              "To see it from another machine, forward the port with `ssh -L`.\n"
              "Ctrl-C ends the show.\n", flush=True)
        while True: show.play()


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        print()
        sys.exit(0)
    except OSError as error:
        print(f"demo: {error}", file=sys.stderr)
        sys.exit(1)
