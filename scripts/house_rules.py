"""House rules that no compiler checks: sizes, leftovers, a README in every folder of sources.

Reads file names, one a line; prints each breach as file:line: text; exits 1 when there is one.
The length of functions is checked by clang-tidy.
"""
import pathlib
import sys

MAX_LINES = 400
MAX_COLUMNS = 100
LEFTOVERS = ("TO" + "DO", "FIX" + "ME", "XX" + "X")
SOURCES = (".h", ".cpp")
CODE = (*SOURCES, ".py", ".cmake")


def is_code(path, lines):
    """Without makefiles, which have tabs."""
    return (path.suffix in CODE or path.name == "CMakeLists.txt"
            or (not path.suffix and bool(lines) and lines[0].startswith("#!")
                and "make" not in lines[0]))


def line_breaches(path, lines):
    if len(lines) > MAX_LINES:
        yield len(lines), f"{len(lines)} lines, at most {MAX_LINES}"
    for number, line in enumerate(lines, 1):
        if len(line) > MAX_COLUMNS:
            yield number, f"{len(line)} columns, at most {MAX_COLUMNS}"
        if line != line.rstrip() or "\t" in line:
            yield number, "a tab, or blanks at the end of the line"
        for word in LEFTOVERS:
            if word in line:
                yield number, f"{word}: do it, or keep the plan elsewhere"
    if path.suffix == ".h":
        if not lines or not lines[0].startswith("//"):
            yield 1, "a header begins with a comment that says what it declares"
        if "#pragma once" not in lines:
            yield 1, "no #pragma once"


def folder_of(path):
    """The folder whose README describes this file: public headers belong to their module."""
    parts = path.parent.parts
    return pathlib.Path(*(parts[:parts.index("include")] if "include" in parts else parts))


def main():
    files = [pathlib.Path(name) for name in sys.stdin.read().splitlines()]
    breaches = []
    folders = set()
    for path in files:
        try:
            lines = path.read_text(encoding="utf-8").split("\n")
        except UnicodeDecodeError:
            continue  # captures and seeds
        if lines[-1] == "":
            lines.pop()
        if is_code(path, lines):
            breaches += [(path, *breach) for breach in line_breaches(path, lines)]
        if path.suffix in SOURCES:
            folders.add(folder_of(path))
    for folder in sorted(folders):
        if not (folder / "README.md").is_file():
            breaches.append((folder / "README.md", 1, "missing: contents and dependencies"))
    for path, line, text in breaches:
        print(f"{path}:{line}: {text}")
    if not folders:
        print("no sources found")
    return 1 if breaches or not folders else 0


if __name__ == "__main__":
    sys.exit(main())
