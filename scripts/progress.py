"""Shortens the output of a preset's workflow: progress, errors, failed and skipped tests.

  cmake --workflow --preset dev 2>&1 | progress.py LOG RESULTS

Everything goes to LOG. RESULTS is what ctest writes in JUnit's format; the output of failed tests
and the reasons of skipped ones are read from there and stand at the end.
"""
import collections
import pathlib
import re
import sys
import xml.etree.ElementTree

BUILD_STEP = re.compile(r"^\[(\d+)/(\d+)\] ")
TEST_RESULT = re.compile(r"^ *(\d+)/(\d+) Test +#\d+: (\S+) [ .]*(\*\*\*)?(.*?) +[\d.]+ sec")
WORKFLOW_STEP = re.compile(r"^Executing workflow step \d+ of \d+: (configure|build|test)")
LINE_LIMIT = 200
OUTPUT_LIMIT = 200


class Progress:
    """One line that is written over on a terminal, elsewhere a line for each tenth."""

    def __init__(self):
        self.terminal = sys.stdout.isatty()
        self.tenth = -1

    def show(self, what, at, total):
        if self.terminal:
            print(f"\r\033[K{what}: {at}/{total}", end="", flush=True)
        elif at * 10 // total != self.tenth:
            print(f"{what}: {at}/{total}", flush=True)
        self.tenth = at * 10 // total

    def write(self, line):
        if self.terminal: print("\r\033[K", end="")
        print(line[:LINE_LIMIT], flush=True)


class Filter:
    def __init__(self):
        self.progress = Progress()
        self.step = "configure"
        self.recent = collections.deque(maxlen=20)
        self.failed = 0
        self.is_command = False

    def line(self, line):
        started = WORKFLOW_STEP.match(line)
        if started:
            self.step = started.group(1)
            self.recent.clear()
        elif self.step == "configure":
            self.recent.append(line)
        elif self.step == "build":
            self.build_line(line)
        else:
            self.test_line(line)

    def build_line(self, line):
        """The compiler says something only about an error."""
        step = BUILD_STEP.match(line)
        if step:
            self.progress.show("build", int(step.group(1)), int(step.group(2)))
        elif not self.is_command and line.strip():
            self.progress.write(line)
        self.is_command = line.startswith("FAILED: ")  # which ninja prints on the next line

    def test_line(self, line):
        result = TEST_RESULT.match(line)
        if not result: return
        at, total, name, stars, outcome = result.groups()
        if stars and outcome != "Skipped":
            self.failed += 1
            self.progress.write(f"{name}: {outcome.lower()}")
        self.progress.show("tests", int(at), int(total))

    def end(self):
        if self.progress.terminal: print()
        if self.step == "configure":
            for line in self.recent:
                self.progress.write(line)


def skip_reason(output):
    """The last line that names one: of Google Test the line behind its mark, else the last line."""
    lines = [line.strip() for line in output.splitlines() if line.strip()]
    for at, line in enumerate(lines[:-1]):
        if line.endswith(": Skipped"): return lines[at + 1]
    return lines[-1].removeprefix("skipped: ") if lines else "no reason given"


def report(results):
    if not results.is_file(): return
    skipped = collections.defaultdict(list)
    for case in xml.etree.ElementTree.parse(results).iter("testcase"):
        output = case.findtext("system-out") or ""
        if case.find("skipped") is not None:
            skipped[skip_reason(output)].append(case.get("name"))
        elif case.find("failure") is not None:
            print(f"\n=== {case.get('name')} failed:")
            lines = output.splitlines()
            if len(lines) > OUTPUT_LIMIT:
                print(f"({len(lines) - OUTPUT_LIMIT} lines before this are in the log)")
            print("\n".join(lines[-OUTPUT_LIMIT:]))
    for reason, names in skipped.items():
        shown = ", ".join(names[:4]) + (f" and {len(names) - 4} more" if len(names) > 4 else "")
        print(f"skipped: {shown}: {reason}"[:2 * LINE_LIMIT])


def main():
    log, results = map(pathlib.Path, sys.argv[1:])
    results.unlink(missing_ok=True)
    shown = Filter()
    sys.stdin.reconfigure(errors="replace")
    with log.open("w", buffering=1, encoding="utf-8", errors="replace") as file:
        for line in sys.stdin:
            file.write(line)
            shown.line(line.rstrip("\n"))
    shown.end()
    report(results)


if __name__ == "__main__":
    main()
