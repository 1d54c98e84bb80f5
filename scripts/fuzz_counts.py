"""Reads what libFuzzer writes: counts what searches execute and find, and what inputs reach.

  counts = Counts(path)  # of all searches so far, if the file exists
  search = Search(counts)
  for line in process.stderr: search.line(line)
  search.end()           # adds to the file
  print(counts.text())
"""
import json
import pathlib
import re
import resource
import time

STATUS_LINE = re.compile(r"#(\d+)\s+(\w+)\s+cov: (\d+) ")
EXECUTED = re.compile(r"stat::number_of_executed_units: (\d+)")


def processor_seconds():
    """Of all processes that were waited for; on a busy machine, less than has passed."""
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


class Counts:
    """How much a target was searched, in all runs, and when it reached a new edge last."""

    def __init__(self, path):
        self.path = path
        self.executions = self.last_edge = self.edges = 0
        self.seconds = self.processor_seconds = 0.0
        if self.path.exists(): vars(self).update(json.loads(self.path.read_text()))

    def save(self):
        self.path.parent.mkdir(exist_ok=True)
        kept = {key: value for key, value in vars(self).items() if key != "path"}
        self.path.write_text(json.dumps(kept) + "\n")

    def text(self):
        return (f"{self.executions} executions, {self.rate(self.seconds)} a second, "
                f"{self.rate(self.processor_seconds)} a second of processor time; {self.edges} "
                f"edges, the last new one {self.executions - self.last_edge} executions ago")

    def rate(self, seconds):
        return round(self.executions / seconds) if seconds else 0


class Search:
    """Reads what a target prints: `#1234 NEW cov: 56 ...` is a status after 1234 executions."""

    def __init__(self, counts):
        self.counts = counts
        self.before = counts.executions
        self.loaded = None  # executions that only read the known inputs
        self.edges = 0
        self.at = 0
        self.began = time.monotonic()
        self.processor_began = processor_seconds()

    def line(self, line):
        status = STATUS_LINE.match(line)
        executed = EXECUTED.match(line)
        if status:
            self.at, edges = int(status[1]), int(status[3])
            if status[2] == "INITED":
                self.loaded = self.at
                self.began = time.monotonic()
            elif self.loaded is not None and edges > self.edges:
                self.counts.last_edge = self.total()
            self.edges = max(self.edges, edges)
        elif executed:
            self.at = int(executed[1])

    def total(self):
        return self.before + self.at - self.loaded

    def end(self):
        if self.loaded is None: return
        self.counts.executions = self.total()
        self.counts.seconds += time.monotonic() - self.began
        self.counts.processor_seconds += processor_seconds() - self.processor_began
        self.counts.edges = self.edges
        self.counts.save()


def features_in(lines):
    """The features of each input by its path, from the control file of a merge.

    It begins with the number of inputs, that of those which were merged into, and their paths. A
    line `FT 3 17 18` says that the fourth input has the features 17 and 18.
    """
    paths = [pathlib.Path(line) for line in lines[2:2 + int(lines[0])]]
    rows = (line.split() for line in lines if line.startswith("FT "))
    return {paths[int(row[1])]: {int(word) for word in row[2:]} for row in rows}
