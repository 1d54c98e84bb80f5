"""The packets on the lab's link, captured by tcpdump and decoded by tshark, not by our own code."""
import collections
import pathlib
import subprocess
import time

# Attribute -> tshark field. A field may occur more than once in a packet (group records).
FIELDS = {
    "time": "frame.time_epoch",
    "ethernet_destination": "eth.dst",
    "source": "ip.src",
    "destination": "ip.dst",
    "ttl": "ip.ttl",
    "tos": "ip.dsfield",
    "option": "ip.opt.type",
    "ip_checksum": "ip.checksum.status",
    "version": "igmp.version",
    "type": "igmp.type",
    "group": "igmp.maddr",
    "max_response": "igmp.max_resp",
    "igmp_checksum": "igmp.checksum.status",
    "severity": "_ws.expert.severity",
    "expert": "_ws.expert.message",
}
QUERY = "0x11"
LEAVE = "0x17"

Packet = collections.namedtuple("Packet", FIELDS)


def is_query(packet):
    return packet.type == QUERY


def is_general_query(packet):
    return is_query(packet) and packet.group == "0.0.0.0"


def decode(path):
    """The IGMP packets of a capture file, with every checksum verified."""
    command = ["tshark", "-r", str(path), "-Y", "igmp", "-T", "fields", "-E", "separator=/t",
               "-E", "occurrence=a", "-E", "aggregator=|", "-o", "ip.check_checksum:TRUE"]
    for field in FIELDS.values():
        command += ["-e", field]
    text = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    packets = []
    for line in text.splitlines():
        packet = Packet(*line.split("\t"))
        packets.append(packet._replace(time=float(packet.time)))
    return packets


class Capture:
    """Runs from its construction until `packets` is called.

    The file is kept if its path is given; otherwise it is removed with the lab.
    """

    def __init__(self, lab, path=None, expression="igmp"):
        number = len(lab.processes)
        self.path = path or pathlib.Path(lab.scratch.name, f"{number}.pcap")
        self.process = lab.spawn(
            lab.switch, "tcpdump", "-i", "br0", "-n", "-U", "--immediate-mode", "-Z", "root",
            "-w", self.path, expression, stderr=subprocess.PIPE)
        seen = []
        for line in self.process.stderr:
            seen.append(line)
            if "listening on" in line: return
        raise OSError(f"tcpdump does not start: {''.join(seen)}")

    def stop(self):
        if self.process.poll() is None:
            time.sleep(0.2)  # for packets on their way to tcpdump
            self.process.terminate()
            self.process.wait()

    def packets(self):
        self.stop()
        return decode(self.path)

    def sent_by(self, station):
        return [packet for packet in self.packets() if packet.source == station.address]
