"""Checks what headers may include, with both compilers.

  header_rules.py alone MODULES   a public header compiles alone, seeing only what its module sees
  header_rules.py arrows MODULES  no module can include a header of a module above it, nor of a
                                  neighbour on its own floor

MODULES is written by the build, lower modules first: name|floor or nothing|include directory|what
the module sees.
"""
import concurrent.futures
import pathlib
import subprocess
import sys
import typing

COMPILERS = ("g++", "clang++")
FLAGS = ["-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Wshadow",
         "-Wconversion", "-Werror", "-x", "c++", "-"]
NOT_FOUND = {"g++": "{}: No such file or directory", "clang++": "'{}' file not found"}


class Module(typing.NamedTuple):
    name: str
    floor: str
    include: pathlib.Path
    sees: list

    def headers(self):
        return sorted(self.include.rglob("*.h"))


def read_modules(path):
    modules = []
    for line in pathlib.Path(path).read_text(encoding="utf-8").splitlines():
        name, floor, include, sees = line.split("|")
        modules.append(Module(name, floor, pathlib.Path(include),
                              [d for d in sees.split(";") if d]))
    return modules


def compile_include(compiler, module, header, owner):
    """The compiler's answer to `header` of `owner`, included where `module` would include it."""
    command = [compiler, *(f"-I{d}" for d in module.sees), *FLAGS]
    text = f"#include <{header.relative_to(owner.include)}>\n"
    return subprocess.run(command, input=text, capture_output=True, text=True, check=False)


def check_alone(compiler, module, header, _owner):
    result = compile_include(compiler, module, header, module)
    return "" if result.returncode == 0 else f"{header}: not alone with {compiler}\n{result.stderr}"


def check_arrow(compiler, module, header, owner):
    result = compile_include(compiler, module, header, owner)
    name = str(header.relative_to(owner.include))
    if result.returncode != 0 and NOT_FOUND[compiler].format(name) in result.stderr:
        return ""
    verdict = "sees" if result.returncode == 0 else "fails for another reason than not to see"
    return f"{module.name} {verdict} <{name}> of {owner.name} with {compiler}"


def forbidden_arrows(modules):
    """Pairs of a module and one that it must not see."""
    for at, module in enumerate(modules):
        for later in modules[at + 1:]:
            yield module, later
            if module.floor and module.floor == later.floor:
                yield later, module


def main():
    check_name, modules = sys.argv[1], read_modules(sys.argv[2])
    if check_name == "alone":
        check = check_alone
        cases = [(c, m, h, m) for m in modules for h in m.headers() for c in COMPILERS]
    else:
        check = check_arrow
        cases = [(c, module, other.headers()[0], other)
                 for module, other in forbidden_arrows(modules) if other.headers()
                 for c in COMPILERS]
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        breaches = [b for b in pool.map(lambda case: check(*case), cases) if b]
    print("\n".join([*breaches, f"{len(cases)} compilations, {len(breaches)} breaches"]))
    return 1 if breaches or not cases else 0


if __name__ == "__main__":
    sys.exit(main())
