"""Finds public headers and public names that nothing uses.

  unused.py headers MODULES   a public header that no file outside its module reaches
  unused.py names MODULES     a name in a public header that only its own source or tests use

MODULES is written by the build. Names are compared as words: a name that occurs elsewhere with
another meaning counts as used, so some are missed, and what is found is unused. Tests, benchmarks
and examples are no users; a name that its own source uses may be public for its tests. An attribute
has all its accessors, used or not: a name counts as used when a row of its header's table has it,
with or without a suffix such as "Is". The rows of ALLOWED are kept for their reasons; a row that
nothing needs is a finding, too.
"""
import collections
import fnmatch
import os
import pathlib
import re
import subprocess
import sys

import header_rules

ROOT = pathlib.Path(__file__).resolve().parent.parent
TEST_FOLDERS = {"test", "lab", "fuzz", "bench", "examples", "testing"}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)

# The operations of an attribute, by the name of its row.
ACCESSORS = ("", "Is", "Inc", "Dec", "Del", "DelAll", "Notify", "Instance")
ROW = re.compile(r'\{\s*"(\w+)"\s*,\s*&')
# Names that the standard library asks for.
STANDARD = {"begin", "end", "value_type", "difference_type", "iterator_category", "element_type",
            "pointer", "reference", "allocate", "deallocate"}

# Header, names ("" for the header itself), reason.
ALLOWED = (
    ("platform/MoxBase/*/Ptr.h", "threadSafePtrsIs", "a switch for hosts with several threads"),
    ("platform/Brevlog/*/Ring.h", "overwritten", "completes recorded and refused, for hosts"),
    ("platform/Mox/*/Entity.h", "notifieeList", "for hosts; every entity has it"),
    ("platform/Mox/*/GenericAccess.h", "attrValue attrValueIs attrPointerIs",
     "access by name for hosts; the agent walks all attributes of a type"),
    ("platform/NboAttrLog/*/Session.h", "allSent", "for hosts that drain a session by themselves"),
    ("platform/NboAttrLog/*/SocketOutSm.h", "handleWritable bytesTaken",
     "for hosts without a connection class; the test program of the decoder is one"),
    ("platform/Ilvo/*/Pkt.h", "offsetsReset", "benchmarks hand in the same packet again"),
    ("platform/Ilvo/*/PktManager.h", "failuresIs", "tests of what follows a failed allocation"),
    ("GmpIgmpQuerier/*/Enumerations.h",
     "TimerStateInstance IgmpFilterModeInstance IgmpVersionInstance sequenceToValue",
     "every enumeration has the same functions, for hosts"),
    ("GmpIgmpQuerier/*/QuerierStatus.h", "QuerierStateInstance", "as those of Enumerations.h"),
    ("GmpIgmpQuerier/*/IgmpReport.h", "newGroupRecord", "for hosts that make reports"),
    ("GmpIgmpQuerierSm/*/QuerierGroupSm.h", "rexmitTimerRemaining",
     "beside membershipTimerRemaining, for hosts"),
    ("GmpIgmpQuerierSm/*/QuerierSm.h", "initGroupStatusTimerMin",
     "the only sign of a rebuild that goes on, for hosts"),
    ("agent/server/*/AttrLogServer.h", "peers", "tests see by it that a connection ended"),
    ("agent/server/*/RequestServer.h", "clients", "tests see by it that a connection ended"),
    ("agent/client/*/AttrLogCopy.h", "isConnected", "tests see by it that a connection ended"),
    ("GmpIgmpQuerier/*/ValueStream.h", "", "for hosts: no attribute has such a value today"),
)

KEYWORDS = set("""alignas alignof auto bool break case catch char class concept const consteval
constexpr constinit continue decltype default delete do double else enum explicit export extern
false final float for friend if inline int long mutable namespace new noexcept nullptr operator
override private protected public requires return short signed sizeof static static_assert struct
switch template this throw true try typedef typename union unsigned using virtual void volatile
while __attribute__""".split())
TOKEN = re.compile(r"[A-Za-z_]\w*|::|->|&&|==|<=>|\S")


def code_of(text):
    """Without comments, literals and preprocessor lines; #define keeps its name."""
    text = re.sub(r'R"\((?:.|\n)*?\)"', '""', text)
    text = re.sub(r"//[^\n]*|/\*.*?\*/|\"(?:\\.|[^\"\\\n])*\"|(?<![\w])'(?:\\.|[^'\\\n])*'",
                  lambda m: " " if m.group()[0] == "/" else '""', text, flags=re.DOTALL)
    return re.sub(r"^\s*#(?:[^\n\\]|\\\n|\\.)*$", define_line, text, flags=re.MULTILINE)


def define_line(match):
    define = re.match(r"\s*#\s*define\s+(\w+)(.*)", match.group(), re.DOTALL)
    return f"#define {define.group(1)} ;" if define else ""


class Declarations:
    """The public names that a header declares at namespace, class and enumeration scope."""

    def __init__(self, code):
        self.names = collections.Counter()
        self.elsewhere = collections.Counter()  # of those, functions whose bodies are not here
        self.fields = set()  # of those, members that objects are made with
        self.scopes = [("namespace", "", True)]
        self.statement = []
        self.parens = 0
        for token in TOKEN.findall(code):
            self.take(token)

    def take(self, token):
        if token in "([":
            self.parens += 1
        elif token in ")]":
            self.parens -= 1
        kind = self.scopes[-1][0]
        if self.parens > 0 or token in ")]":
            if token in "([" and self.parens == 1:
                self.statement.append(token)
        elif token == "{":
            self.open()
        elif token == "}":
            self.close()
        elif token == ";":
            self.finish()
        elif token == "," and kind == "enum":
            self.finish()
        elif token == ":" and self.statement and self.statement[-1] in (
                "public", "private", "protected"):
            self.scopes[-1] = (kind, self.scopes[-1][1], self.statement[-1] == "public")
            self.statement = []
        else:
            self.statement.append(token)

    def open(self):
        words = [t for t in self.statement if t != "MOX_PUBLIC"]
        kind, name, visible = "body", "", False
        if "namespace" in words:
            kind, visible = "namespace", "detail" not in words
        elif "enum" in words and "(" not in words:
            kind, visible = "enum", self.scopes[-1][2]
            name = self.type_name(words)
        elif "(" not in words and ({"class", "struct", "union"} & set(words)):
            kind, visible = "class", "struct" in words or "union" in words
            visible = (visible, self.scopes[-1][2])
            name = self.type_name(words)
        if kind in ("enum", "class"):
            if kind == "class":
                self.declare(name)  # an enumeration is used by its enumerators
            if kind == "class":
                outer = visible[1]
                visible = visible[0] and outer
                self.scopes.append(("class", name, visible))
                self.statement = []
                return
        elif kind == "body":
            self.finish(keep=True)
        self.scopes.append((kind, name, visible))
        if kind != "body":
            self.statement = []

    def close(self):
        kind = self.scopes[-1][0]
        if kind == "enum":
            self.finish()
        self.scopes.pop()
        if kind == "body":
            # An initialiser goes on to its semicolon; a function's body ends the statement.
            self.statement = ["="] if "=" in self.statement else []
        elif kind == "namespace":
            self.statement = []
        else:
            self.statement = ["="]

    @staticmethod
    def type_name(words):
        at = max(i for i, w in enumerate(words) if w in ("class", "struct", "union", "enum"))
        for word in words[at + 1:]:
            if word not in KEYWORDS and re.match(r"[A-Za-z_]", word):
                return word
            if word in (":", "{"):
                break
        return ""

    def declare(self, name, elsewhere=False):
        if name and not name.endswith("_") and self.scopes[-1][2]:
            self.names[name] += 1
            self.elsewhere[name] += elsewhere

    def finish(self, keep=False):
        words = [t for t in self.statement if t != "MOX_PUBLIC"]
        if self.statement[:1] == ["#"]:
            self.declare(self.statement[2])  # a macro
            words = []
        if not keep:
            self.statement = []
        kind, owner, _visible = self.scopes[-1]
        if kind == "body" or not words or words[0] in ("=", "friend", "static_assert"):
            return
        if kind == "enum":
            self.declare(words[0])
            return
        if words[0] == "using":
            if "=" in words:
                self.declare(words[1])
            return
        if "operator" in words or "~" in words[:2] or "override" in words or "final" in words:
            return
        for at, word in enumerate(words):
            after = words[at + 1] if at + 1 < len(words) else ";"
            if word in KEYWORDS or not re.match(r"[A-Za-z_]", word):
                continue
            if after in ("(", "=", ";", "[") and word != owner:
                self.declare(word, elsewhere=after == "(" and not keep)
                if kind == "class" and after != "(" and not {"static", "constexpr"} & set(words):
                    self.fields.add(word)
                return
            if word == "concept":
                self.declare(after)
                return


class Tree:
    def __init__(self, modules):
        listed = subprocess.run(
            ["git", "-c", f"safe.directory={ROOT}", "ls-files", "--cached", "--others",
             "--exclude-standard", "--", "*.h", "*.cpp"],
            cwd=ROOT, capture_output=True, text=True, check=True).stdout.split()
        self.files = [ROOT / name for name in sorted(set(listed)) if (ROOT / name).is_file()]
        self.modules = modules
        self.text = {path: path.read_text(encoding="utf-8") for path in self.files}
        self.code = {path: code_of(text) for path, text in self.text.items()}
        self.words = {path: collections.Counter(re.findall(r"[A-Za-z_]\w*", code))
                      for path, code in self.code.items()}
        public = {str(path.relative_to(m)): path
                  for m in modules for path in self.files if path.is_relative_to(m)}
        self.includes = {path: self.included(path, public) for path in self.files}
        self.tests = self.test_files()

    def included(self, path, public):
        found = set()
        for quote, name in INCLUDE.findall(self.text[path]):
            target = public.get(name) if quote == "<" else None
            beside = pathlib.Path(os.path.normpath(path.parent / name))
            if target is None and beside in self.text:
                target = beside
            if target is not None:
                found.add(target)
        return found

    def test_files(self):
        tests = {path for path in self.files
                 if TEST_FOLDERS & set(path.relative_to(ROOT).parts[:-1])
                 or path.stem.endswith("Test") or "TestSupport" in path.stem}
        users = collections.defaultdict(set)
        for path, targets in self.includes.items():
            for target in targets:
                users[target].add(path)
        grew = True
        while grew:  # a private header that only tests include is a part of them
            more = {path for path in self.files
                    if path.suffix == ".h" and path not in tests and self.module_of(path) is None
                    and users[path] and users[path] <= tests}
            tests |= more
            grew = bool(more)
        return tests

    def module_of(self, path):
        """The include folder with the public header `path`, or None."""
        return next((m for m in self.modules if path.is_relative_to(m)), None)

    def headers(self):
        return [(m, path) for m in self.modules for path in self.files
                if path.is_relative_to(m) and path not in self.tests]


def unreached_headers(tree):
    for include, header in tree.headers():
        folder = include.parent
        seen = set()
        ahead = [path for path in tree.files if not path.is_relative_to(folder)
                 or "testing" in path.relative_to(folder).parts]
        while ahead:
            path = ahead.pop()
            if path in seen:
                continue
            seen.add(path)
            ahead += tree.includes[path]
        if header not in seen:
            yield header, "", "no file outside its module reaches it: it belongs beside its sources"


def unused_names(tree):
    for include, header in tree.headers():
        found = Declarations(tree.code[header])
        attributes = {row + suffix for row in ROW.findall(tree.text[header])
                      for suffix in ACCESSORS}
        own = {path for path in tree.files if path.stem == header.stem and path != header
               and path.is_relative_to(include.parent)} - tree.tests
        users = [path for path in tree.files if path not in tree.tests | own | {header}]
        for name, times in sorted(found.names.items()):
            if (name in attributes | STANDARD or tree.words[header][name] > times
                    or any(tree.words[user][name] for user in users)):
                continue
            tested = any(tree.words[test][name] for test in tree.tests)
            if sum(tree.words[path][name] for path in own) > found.elsewhere[name]:
                if not tested and name not in found.fields:
                    yield header, name, "used by its own source alone, which can hide it"
            else:
                yield header, name, f"used by {'tests alone' if tested else 'nothing'}"


def main():
    tree = Tree([module.include for module in header_rules.read_modules(sys.argv[2])])
    find = unreached_headers if sys.argv[1] == "headers" else unused_names
    count, needed = 0, set()
    for header, name, text in find(tree):
        path = str(header.relative_to(ROOT))
        row = next((i for i, (glob, names, _reason) in enumerate(ALLOWED)
                    if fnmatch.fnmatch(path, glob) and name in (names.split() or [""])), None)
        if row is not None:
            needed |= {(row, name)}
            continue
        count += 1
        print(f"{path}: {name + ': ' if name else ''}{text}")
    for row, (glob, names, _reason) in enumerate(ALLOWED):
        for name in sorted(set(names.split() or [""]) - {n for r, n in needed if r == row}):
            if (name == "") == (find is unreached_headers):
                print(f"scripts/unused.py: ALLOWED: nothing needs {name or 'the row'} of {glob}")
                count += 1
    print(f"{len(tree.headers())} public headers, {count} findings")
    return 1 if count or not tree.headers() else 0


if __name__ == "__main__":
    sys.exit(main())
