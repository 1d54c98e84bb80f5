"""The marked blocks of the operators' manual, and their comparison with what the commands write.

A block ```console has commands, each behind the prompt of its machine (`router# igmpq show`), and
behind each the lines that it writes. A block ```toml is a file, whose path is the comment in its
first line. A comment <!-- lab: two words --> stands for what happens on the link at that place.
"""
import dataclasses
import re

PROMPT = re.compile(r"(router|switch|host)# (.*)")
# The columns of a table that have times, which differ from run to run.
TIMES = {"SINCE", "NEXT QUERY", "QUERIER LOST", "UP", "LEFT"}
CLOCK = re.compile(r"\b\d\d:\d\d:\d\d(?:\.\d{6})?")
DURATION = re.compile(r"(?:\d+d)?(?:\d+h)?(?:\d+m)?(?:\d+(?:\.\d)?s)?")


@dataclasses.dataclass
class Step:
    """Something that happens on the link."""
    name: str


@dataclasses.dataclass
class File:
    path: str
    text: str


@dataclasses.dataclass
class Command:
    line: int  # the number of the prompt's line, from 1
    machine: str
    text: str
    shown: list


def parts(lines):
    """Steps, files and commands in their order."""
    found, block, fence = [], None, ""
    for number, line in enumerate(lines, 1):
        step = re.fullmatch(r"<!-- lab: (.*) -->", line)
        if block is None and step:
            found.append(Step(step[1]))
        elif line in ("```console", "```toml"):
            block, fence = [], line
        elif line == "```" and block is not None:
            if fence == "```toml":
                found.append(File(block[0].removeprefix("# "), "\n".join(block) + "\n"))
            block = None
        elif block is not None:
            block.append(line)
            if fence == "```toml": continue
            prompt = PROMPT.fullmatch(line)
            if prompt:
                found.append(Command(number, prompt[1], prompt[2], []))
            else:
                found[-1].shown.append(line)
    return found


def cells(line, starts):
    return [line[start:end].strip() for start, end in zip(starts, [*starts[1:], None])]


def form(lines):
    """The lines with what differs from run to run replaced by its kind, and nothing else."""
    formed, header = [], []
    for line in lines:
        names = re.findall(r"\S+(?: \S+)*", line)
        if len(names) > 2 and line == line.upper():
            header = names
            starts = [match.start() for match in re.finditer(r"\S+(?: \S+)*", line)]
            formed.append(names)
        elif header:
            row = cells(line, starts)
            formed.append([kind_of(cell) if name in TIMES else cell
                           for name, cell in zip(header, row)])
        else:
            formed.append(CLOCK.sub("TIME", line))
    return formed


def kind_of(cell):
    return "DURATION" if cell and DURATION.fullmatch(cell) else cell


def rewritten(lines, outputs):
    """The document with these outputs: lists of lines by the number of the prompt's line."""
    new, skipping = [], False
    for number, line in enumerate(lines, 1):
        if number in outputs:
            new += [line, *outputs[number]]
            skipping = True
        elif line == "```" or PROMPT.fullmatch(line):
            skipping = False
            new.append(line)
        elif not skipping:
            new.append(line)
    return new
