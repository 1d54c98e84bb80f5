"""Reads what the manual pages say: options, tables, examples, cross references."""
import dataclasses
import pathlib
import re

FOLDER = pathlib.Path(__file__).resolve().parent
ROOT = FOLDER.parent.parent
ESCAPES = {r"\&": "", r"\(dq": '"', r"\e": "\\", r"\-": "-"}


@dataclasses.dataclass
class Option:
    value: str = ""  # what stands for it, such as SECONDS or on|off
    text: str = ""


class Page:
    def __init__(self, name):
        self.path = FOLDER / name
        self.lines = self.path.read_text(encoding="utf-8").splitlines()

    def options(self):
        """The options that are described, by name: {"--seed": Option("N", "Seed of ...")}."""
        found = {}
        current = []
        for line in self.lines:
            if line.startswith((".It ", ".El", ".S")): current = []
            if line.startswith(".It Fl "):
                names, value = self.flags_of(line)
                current = [found.setdefault(name, Option(value)) for name in names]
            for option in current:
                option.text += unmarked(line) + " "
        return found

    @staticmethod
    def flags_of(line):
        names, _, rest = line.removeprefix(".It Fl ").partition(" Ar ")
        if not rest: names, _, rest = names.partition(" Cm ")
        return ["-" + name for name in names.split(" , ")], rest.replace(" ", "")

    def metrics(self):
        """The names of metrics that are described."""
        return {name for line in self.lines
                for name in re.findall(r"\b(?:igmp|process)_[a-z0-9_]+\b", line)}

    def flags_mentioned(self):
        """Every option named anywhere, also where it is not described."""
        return {"-" + name for line in self.lines if line.startswith(".")
                for name in re.findall(r"(?<= )Fl (-?[a-z][a-z0-9-]*)", " " + line[1:])}

    def rows(self, header):
        """The cells of a table's rows, by the first word of its heading row."""
        start = next(number for number, line in enumerate(self.lines)
                     if line.startswith(f".It Em {header} "))
        end = self.lines.index(".El", start)
        return [line.removeprefix(".It ").split(" Ta ") for line in self.lines[start + 1:end]]

    def section(self, title):
        """The lines below a heading, until the next one."""
        start = next(number for number, line in enumerate(self.lines)
                     if line in (f".Ss {title}", f".Sh {title}"))
        rest = self.lines[start + 1:]
        return rest[:next((number for number, line in enumerate(rest)
                           if line.startswith((".Ss ", ".Sh "))), len(rest))]

    def references(self):
        return {reference for line in self.lines if line.startswith(".")
                for reference in re.findall(r"\bXr (\S+) (\d)", line)}

    def literals(self):
        """The blocks that are shown as they are, each a list of lines."""
        blocks, block = [], None
        for line in self.lines:
            if line.startswith(".Bd -literal"):
                block = []
            elif line == ".Ed" and block is not None:
                blocks.append(block)
                block = None
            elif block is not None:
                block.append(unescaped(line))
        return blocks

    def examples(self):
        """Commands that any user can run: pairs of a command and the lines it writes."""
        found = []
        for block in self.literals():
            for line in block:
                if line.startswith("$ "):
                    found.append((line[2:], []))
                elif line.startswith("# "):
                    break  # needs root and an agent
                elif found and block[0].startswith("$ "):
                    found[-1][1].append(line)
        return found

    def functions(self):
        """What the synopsis declares, as C++ without blanks: "U32writableCount()"."""
        found, result, name, arguments = [], "", "", []
        for line in self.lines:
            macro, _, rest = line.partition(" ")
            rest = rest.strip('"')
            if macro == ".Ft":
                result = rest
            elif macro == ".Fo":
                name, arguments = rest, []
            elif macro == ".Fa" and name:
                arguments.append(rest)
            elif macro == ".Fc":
                found.append(compact(f"{result} {name}({', '.join(arguments)}"))
                name = ""
            elif macro == ".Fn" and rest.endswith(" void") and result:
                found.append(compact(f"{result} {rest.removesuffix(' void')}()"))
            elif macro == ".Sh" and rest == "DESCRIPTION":
                break
        return found


def unescaped(text):
    for escape, meaning in ESCAPES.items():
        text = text.replace(escape, meaning)
    return text


def unmarked(line):
    """The words of a line without the macros in front of them."""
    return unescaped(re.sub(r"(^\.|\b)(It|Fl|Ar|Cm|Pa|Dv|Xr|Li|Va|Ns|Nm|Ic)\s", "", line))


def compact(text):
    return re.sub(r"\s", "", text)


def all_pages():
    return sorted(path.name for path in FOLDER.iterdir()
                  if path.suffix in (".1", ".3", ".5", ".7", ".8"))
