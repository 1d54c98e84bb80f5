"""Checks the names of tests: `ctest -N` lists a suite that can be read and typed.

  ctest --preset dev -N | name_rules.py

Prints each name that breaks a rule; exits 1 when there is one, or no test at all.
"""
import collections
import re
import sys

LONGEST = 100
LISTED = re.compile(r"^ *Test +#\d+: (.*)$")
RULES = (
    (re.compile(r"GetParam\(\)"), "carries the value of its parameter: name the case"),
    (re.compile(r"/\d+$"),
     "has a number for a name: INSTANTIATE_TEST_SUITE_P takes a name generator"),
    (re.compile(r"NOT_BUILT"), "is not built: build everything first"),
    (re.compile(r"[^A-Za-z0-9_./<>:,-]"), "has other characters than letters, digits and _./<>:,-"),
    (re.compile(rf".{{{LONGEST + 1}}}"), f"has more than {LONGEST} characters"),
)


def breaches(names):
    for name, count in collections.Counter(names).items():
        if count > 1: yield name, "is the name of several tests"
        for pattern, what in RULES:
            if pattern.search(name):
                yield name, what
                break


def main():
    found = (LISTED.match(line.rstrip("\n")) for line in sys.stdin)
    names = [match.group(1) for match in found if match]
    broken = list(breaches(names))
    for name, what in broken:
        print(f"{name!r} {what}")
    print(f"{len(names)} names, {len(broken)} breaches")
    return 1 if broken or not names else 0


if __name__ == "__main__":
    sys.stdin.reconfigure(errors="backslashreplace")
    sys.exit(main())
