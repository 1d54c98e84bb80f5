"""Runs scenarios and holds their output against what they expect, byte by byte.

    python3 run.py check IGMPQ NAME...    differences are shown; exit status 1
    python3 run.py bless IGMPQ [NAME...]  writes the expected lines; prints which files changed
    python3 run.py repeat IGMPQ           all of them twice, and what another seed may change

NAME is the file below this folder without its suffix: election/lost. The first line of a scenario
holds its options: `# options: --changes --seed 3`. Below a step stand the lines that it causes,
each behind `#= `: what it does, and before it the timers that are due by its time.
"""
import difflib
import json
import pathlib
import subprocess
import sys

FOLDER = pathlib.Path(__file__).resolve().parent
OPTIONS = b"# options:"
EXPECTED = b"#= "
SILENT = ("basics/nothing",)


def names():
    return sorted(str(path.relative_to(FOLDER).with_suffix(""))
                  for path in FOLDER.rglob("*.scenario"))


def path_of(name):
    path = FOLDER / f"{name}.scenario"
    if not path.is_file():
        sys.exit(f"there is no scenario {name}")
    return path


def is_step(line):
    return line.strip() and not line.startswith(b"#")


def without_expected(lines):
    return [line for line in lines if not line.startswith(EXPECTED)]


def expected_of(lines):
    return b"".join(line[len(EXPECTED):] for line in lines if line.startswith(EXPECTED))


def options_of(name, lines):
    if not lines or not lines[0].startswith(OPTIONS):
        sys.exit(f"{name}:1: a scenario begins with `{OPTIONS.decode()}`, even without any")
    return lines[0][len(OPTIONS):].decode().split()


def output_of(igmpq, name, lines, *more):
    command = [igmpq, "replay", "--scenario", "-", *options_of(name, lines), *more]
    done = subprocess.run(command, input=b"".join(lines), capture_output=True, timeout=60,
                          check=False)
    if done.returncode != 0 or done.stderr:
        error = done.stderr.decode(errors="replace")
        sys.exit(f"{name}: exit status {done.returncode}\n{error}")
    return done.stdout


def read(name):
    return path_of(name).read_bytes().splitlines(keepends=True)


def text_of(output):
    return output.decode("utf-8", errors="replace").splitlines(keepends=True)


def misplaced(lines):
    """Numbers of expected lines whose time is not between the step before and the one above."""
    before = above = None
    for number, line in enumerate(lines, 1):
        if is_step(line):
            before, above = above, json.loads(line)["at"]
        elif line.startswith(EXPECTED):
            time = json.loads(line[len(EXPECTED):])["t"]
            if above is None or time > above or (before is not None and time < before):
                yield number


def check(igmpq, name):
    lines = read(name)
    expected, output = expected_of(lines), output_of(igmpq, name, lines)
    advice = f"{name}: if this is what it should do now, `scripts/bless {name}` writes it down"
    if not expected and name not in SILENT:
        print(f"{name}: expects nothing; `scripts/bless {name}` writes down what it shows")
        return False
    if output != expected:
        sys.stdout.writelines(difflib.unified_diff(
            text_of(expected), text_of(output), f"{name}, expected", f"{name}, now"))
        print(advice)
        return False
    wrong = list(misplaced(lines))
    for number in wrong:
        print(f"{name}.scenario:{number}: stands below a step that does not cause it")
    return not wrong


def blessed(igmpq, name, lines):
    """The lines with what each step causes below it: the output grows with every step."""
    steps = without_expected(lines)
    result, seen = [], b""
    for at, line in enumerate(steps, 1):
        result.append(line if line.endswith(b"\n") else line + b"\n")
        if is_step(line):
            output = output_of(igmpq, name, steps[:at])
            if not output.startswith(seen):
                sys.exit(f"{name}:{at}: this step changes the output of those before it")
            new, seen = output[len(seen):], output
            result += [EXPECTED + shown for shown in new.splitlines(keepends=True)]
    if not seen and name not in SILENT:
        sys.exit(f"{name}: shows nothing")
    return result


def bless(igmpq, name):
    lines = read(name)
    result = blessed(igmpq, name, lines)
    if result != lines:
        print("changed", name)
        path_of(name).write_bytes(b"".join(result))


def times_and_rest(output):
    """Of a start without other traffic: the times of its queries, and all that is not a time."""
    seen = [json.loads(line) for line in output.splitlines()]
    times = [line["t"] for line in seen if line["event"] == "tx"]
    rest = [{key: value for key, value in line.items()
             if key not in ("t", "value", "status")} for line in seen]
    return times, rest


def seed_shifts_the_start(igmpq):
    """Another seed moves the first query and keeps all distances after it."""
    name = "startup/default"
    (times, rest), (moved, other_rest) = (
        times_and_rest(output_of(igmpq, name, read(name), "--seed", seed)) for seed in ("0", "9"))
    shift = moved[0] - times[0]
    in_step = all(abs(b - a - shift) < 1e-9 for a, b in zip(times, moved, strict=True))
    if shift != 0 and in_step and rest == other_rest and 1000 <= times[0] < 1010:
        return True
    print(f"{name}: with seed 0 {times}, with seed 9 {moved}")
    return False


def repeat(igmpq):
    good = seed_shifts_the_start(igmpq)
    for name in names():
        lines = read(name)
        if output_of(igmpq, name, lines) != output_of(igmpq, name, lines):
            print(f"{name}: two runs differ")
            good = False
    for name in ("startup/not-sending", "restart/congested", "restart/yielding"):
        lines = read(name)
        if output_of(igmpq, name, lines) != output_of(igmpq, name, lines, "--seed", "9"):
            print(f"{name}: nothing in it is random, but another seed changes it")
            good = False
    return good


def main():
    if len(sys.argv) < 3 or sys.argv[1] not in ("check", "bless", "repeat"):
        sys.exit(__doc__)
    verb, igmpq, *chosen = sys.argv[1:]
    if verb == "bless":
        for name in chosen or names():
            bless(igmpq, name)
    elif verb == "check":
        if not all([check(igmpq, name) for name in chosen or names()]):
            sys.exit(1)
    elif not repeat(igmpq):
        sys.exit(1)


if __name__ == "__main__":
    main()
