"""Runs scenarios and holds their output against NAME.expected, byte by byte.

    python3 run.py check IGMPQ NAME...    differences are shown; exit status 1
    python3 run.py bless IGMPQ [NAME...]  writes the expected files; prints which of them changed
    python3 run.py repeat IGMPQ           all of them twice, and what another seed may change

The first line of a scenario holds its options: `# options: --changes --seed 3`.
"""
import difflib
import json
import pathlib
import subprocess
import sys

FOLDER = pathlib.Path(__file__).resolve().parent
OPTIONS = "# options:"


def names():
    return sorted(path.stem for path in FOLDER.glob("*.scenario"))


def options_of(path):
    first = path.read_text(encoding="utf-8").split("\n", 1)[0]
    if not first.startswith(OPTIONS):
        sys.exit(f"{path}:1: a scenario begins with `{OPTIONS}`, if only with none")
    return first[len(OPTIONS):].split()


def output_of(igmpq, name, *more):
    path = FOLDER / f"{name}.scenario"
    if not path.is_file():
        sys.exit(f"there is no scenario {name}")
    command = [igmpq, "replay", "--scenario", path, *options_of(path), *more]
    done = subprocess.run(command, capture_output=True, timeout=60, check=False)
    if done.returncode != 0 or done.stderr:
        error = done.stderr.decode(errors="replace")
        sys.exit(f"{name}: exit status {done.returncode}\n{error}")
    return done.stdout


def lines_of(output):
    return output.decode("utf-8", errors="replace").splitlines(keepends=True)


def check(igmpq, name):
    expected_path = FOLDER / f"{name}.expected"
    if not expected_path.is_file():
        print(f"{name}: nothing is expected of it yet; `scripts/bless {name}` writes it down")
        return False
    expected, output = expected_path.read_bytes(), output_of(igmpq, name)
    if output == expected:
        return True
    sys.stdout.writelines(difflib.unified_diff(lines_of(expected), lines_of(output),
                                               f"{name}.expected", f"{name}, now"))
    print(f"{name}: if this is what it should do now, `scripts/bless {name}` writes it down")
    return False


def bless(igmpq, name):
    path = FOLDER / f"{name}.expected"
    output = output_of(igmpq, name)
    if not output and name != "nothing":
        sys.exit(f"{name}: shows nothing")
    if not path.is_file() or path.read_bytes() != output:
        print("changed" if path.is_file() else "new", path.name)
        path.write_bytes(output)


def times_and_rest(output):
    """Of a start without other traffic: the times of its queries, and all that is not a time."""
    seen = [json.loads(line) for line in output.splitlines()]
    times = [line["t"] for line in seen if line["event"] == "tx"]
    rest = [{key: value for key, value in line.items()
             if key not in ("t", "value", "status")} for line in seen]
    return times, rest


def seed_shifts_the_start(igmpq):
    """Another seed moves the first query and keeps all distances after it."""
    (times, rest), (moved, other_rest) = (
        times_and_rest(output_of(igmpq, "startup-default", "--seed", seed)) for seed in ("0", "9"))
    shift = moved[0] - times[0]
    in_step = all(abs(b - a - shift) < 1e-9 for a, b in zip(times, moved, strict=True))
    if shift != 0 and in_step and rest == other_rest and 1000 <= times[0] < 1010:
        return True
    print(f"startup-default: with seed 0 {times}, with seed 9 {moved}")
    return False


def repeat(igmpq):
    good = seed_shifts_the_start(igmpq)
    for name in names():
        if output_of(igmpq, name) != output_of(igmpq, name):
            print(f"{name}: two runs differ")
            good = False
    for name in ("startup-not-sending", "bootstrap-congested", "bootstrap-yielding"):
        if output_of(igmpq, name) != output_of(igmpq, name, "--seed", "9"):
            print(f"{name}: nothing in it is left to chance, but another seed changes it")
            good = False
    for path in sorted(FOLDER.glob("*.expected")):
        if path.stem not in names():
            print(f"{path.name}: there is no such scenario")
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
