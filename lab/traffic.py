"""Sends version 2 reports on links, in turn and without end.

    python3 traffic.py GROUPS LINK...

The groups are 239.1.0.1 and those after it. A link that is not there now is left out.
"""
import socket
import sys
import time

from frames import report_frame

SENDER = "10.77.0.11"
PAUSE = 0.002  # a link is to carry hundreds of reports a second, and leave time for other tests


def main():
    groups, *links = sys.argv[1:]
    frames = [report_frame(SENDER, f"239.1.0.{number}") for number in range(1, int(groups) + 1)]
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as link:
        while True:
            for frame in frames:
                for name in links:
                    try:
                        link.sendto(frame, (name, 0))
                    except OSError:
                        pass  # down, or gone
                time.sleep(PAUSE)


if __name__ == "__main__":
    main()
