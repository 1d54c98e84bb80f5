"""Half a minute of igmpq at work: three Linux hosts join and leave, igmpq prints what it sees.

  demo.py                 the show on a link of network namespaces (root)
  demo.py --record FILE   the same, and the packets are kept in FILE
  demo.py --replay [WHY]  igmpq on the recording instead
"""
import argparse
import pathlib
import subprocess
import sys
import time

from capture import Capture
from lab import Lab, why_not
from querier import program

RECORDING = pathlib.Path(__file__).parent / "captures" / "demo.pcap"
# A group lives 2 * 5 + 1 = 11 s after its last report: short enough for a show. With this seed
# the first query leaves at once.
OPTIONS = ("--querier-version", "2", "--query-interval", "5", "--query-response-interval", "1",
           "--last-member-query-interval", "1", "--seed", "63230")
ROUTER = 1
HOSTS = (11, 12, 13)


def announce(text, pause=0.0):
    """A line of the demo; those of igmpq have no arrow."""
    line = f"--> {text}"
    print(f"\033[1;36m{line}\033[0m" if sys.stdout.isatty() else line, flush=True)
    time.sleep(pause)


# Of two members only the one that reported last sends a leave. So the second leaves before a
# general query, sent at 0, 1.25 and 6.25 s, makes both of them report in random order.
def play(first, second, third):
    announce("Three Linux hosts, their kernels set to version 2, share a link with igmpq.", 1)
    announce(f"{first.address} joins 239.1.1.1.")
    first.join("239.1.1.1")
    time.sleep(1.5)
    announce(f"{second.address} joins it too: the group is there already, nothing new.")
    second.join("239.1.1.1")
    time.sleep(1.5)
    announce(f"{second.address} leaves again. igmpq asks who is left; {first.address} answers.")
    second.leave("239.1.1.1")
    time.sleep(4)
    announce(f"{third.address} joins 239.7.7.7.")
    third.join("239.7.7.7")
    time.sleep(2)
    announce(f"{first.address} leaves 239.1.1.1. Nobody answers: the group ends after two queries.")
    first.leave("239.1.1.1")
    time.sleep(3.5)
    announce(f"{second.address} joins 239.2.2.2 and stays.")
    second.join("239.2.2.2")
    time.sleep(2)
    announce(f"{third.address} loses its power, so it cannot leave: 239.7.7.7 will end by timeout.")
    third.down()
    time.sleep(12)
    announce("igmpq receives SIGTERM and prints its state:", 0.3)


def show(recording):
    with Lab() as lab:
        router = lab.station(ROUTER)
        hosts = [lab.station(number, igmp_version=2) for number in HOSTS]
        capture = Capture(lab, recording) if recording else None
        querier = lab.spawn(router.namespace, program(), "run", "eth0", "--queries", *OPTIONS)
        play(*hosts)
        querier.terminate()
        status = querier.wait(10)
        if capture: capture.stop()
    return status


def replay(why):
    announce(f"No live show: {why}.")
    announce("igmpq replays what was recorded on such a link: three hosts join and leave.")
    command = (str(program()), "replay", str(RECORDING), "--address", f"10.77.0.{ROUTER}", *OPTIONS)
    return subprocess.run(command, check=False).returncode


def main():
    parser = argparse.ArgumentParser(description="igmpq at work")
    parser.add_argument("--record", metavar="FILE")
    parser.add_argument("--replay", metavar="WHY", nargs="?", const="the recording was asked for")
    arguments = parser.parse_args()
    if arguments.replay: return replay(arguments.replay)
    reason = why_not()
    if reason is None: return show(arguments.record)
    if arguments.record:
        print(f"demo: nothing recorded: {reason}", file=sys.stderr)
        return 1
    return replay(f"network namespaces are not permitted here ({reason})")


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
    except OSError as error:
        print(f"demo: {error}", file=sys.stderr)
        sys.exit(1)
