"""Finds words and clauses that plain technical English does without.

  english_rules.py                     every file that git knows or could add
  english_rules.py agent README.md...  these files, and those below these folders

Looked at are comments, documents, messages, identifiers and file names. Prints each finding as
file:line: "words": advice; exits 1 when there is one. A use of a word in its ordinary technical
sense has a row with its reason in ALLOWED; a row that allows nothing any more is a finding, too.
"""
import bisect
import collections
import fnmatch
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
NOT_LOOKED_AT = (
    "LICENSE", "fuzz/seeds/*", "lab/captures/*",
    "scripts/english_rules.py",
)

# Words in any spelling of an identifier: heardQuery, HEARD_QUERY and "heard" are the same word.
WORDS = {
    "tell tells told telling": "notify, report, send; distinguish",
    "hear hears heard hearing": "receive (packets); be notified, watch (entities)",
    "listen listens listened listening listener listeners": "watch, watcher, notifiee, member",
    "owe owes owed owing": "pending (retransmissions)",
    "whoever whomever": "any process that, the code that; split the sentence",
    "piece pieces": "part, chunk",
    "trouble troubles troubled": "problem, error",
    "strange stranger strangers": "protocol error; unknown sender, foreign process",
    "care cares cared": "poll, handle; split the sentence",
    "shelf shelves": "a word of the tested thing: entity, list, table",
    "ear ears": "reactor, notifiee",
    "lease leases": "group membership interval",
}
ADVICE = {word: advice for words, advice in WORDS.items() for word in words.split()}
TOKEN = re.compile(r"[A-Z]+(?=[A-Z][a-z])|[A-Z]?[a-z]+|[A-Z]+")

# Clauses may go over the end of a line, and into the next comment line.
GAP = r"[\s/#*]+"
SPLIT = "put a noun at the head of the clause, or split the sentence"
HEADLESS = r"(?:\bWho|[;:\"]" + GAP + r"who|[;:\"]who)\b"
AUXILIARY = "(?:is|are|was|were|has|have|had|can|cannot|may|must)"
CLAUSES = (
    (re.compile(rf"{HEADLESS}{GAP}[a-z]+"), SPLIT, "*"),
    (re.compile(rf"\bWhat{GAP}(?:{AUXILIARY}|it|they)\b"), SPLIT, "*"),
    (re.compile(rf"\bof{GAP}which\b"), SPLIT, "*"),
    (re.compile(rf"\bbec[oa]mes?{GAP}of\b"), "say which effect it had", "*"),
    (re.compile(r"\bexpect(?:RxPkt)?\("), "prefetch", "*.cpp *.h"),
    (re.compile(r"\bvlan\(\)"), "interfaceName()", "*.cpp *.h"),
)

# Files, a pattern that covers the words in their line, and why they stand there.
ALLOWED = (
    ("*", r"\blisten\(|\"listen\"|\.listening\b|\blistening(_|\.|:$)",
     "the system call, and its socket"),
    ("*", r"\b(int|accept4?\(|setsockopt\(|bind\(|getsockname\(|close\()\W?listener\b|"
          r"\blisten\(listener\b", "the descriptor that accepts"),
    ("*", r"[-.]listen\b|acceptor_\.listen\b", "the option and the call, by their usual names"),
    ("*.js", r"addEventListener", "the browser's own call"),
    ("*", r"LocalListener", "a local socket that accepts connections"),
    ("*Listener*", r"(?i)listen(s|er|ers)?", "a local socket that accepts connections"),
    ("*", r"\"listening on\"", "a message of tcpdump"),
    ("*", r"\blistener reports\b", "messages of MLD, which has the word in its name"),
    ("*", r"Don't care about IGMP type", "a trace text: programs search for it"),
    ("*", r"\bheardVersion\b", "a key of events in JSON: programs read it"),
    ("*", r"query heard on vlan", "the text of an event-log message: programs search for it"),
    ("*", r"(?i)listen[-_ ]?only", "the setting of the command line, by its usual name"),
    ("*.md", r"^#+ What \w+|\| What it does \|", "a heading"),
)


def known_files(paths):
    """What git tracks or could add, below `paths`."""
    listing = subprocess.run(
        ["git", "-c", f"safe.directory={ROOT}", "ls-files", "-z", "--cached", "--others",
         "--exclude-standard", "--", *paths], cwd=ROOT, capture_output=True, text=True, check=True)
    return sorted(name for name in set(listing.stdout.split("\0")) if name)


def is_looked_at(name):
    path = ROOT / name
    return path.is_file() and not any(fnmatch.fnmatch(name, glob) for glob in NOT_LOOKED_AT)


def word_findings(text):
    """Offset, words and advice of each word that has better ones."""
    for token in TOKEN.finditer(text):
        advice = ADVICE.get(token.group().lower())
        if advice:
            yield token.start(), token.group(), advice


def clause_findings(name, text):
    for pattern, advice, globs in CLAUSES:
        if not any(fnmatch.fnmatch(name, glob) for glob in globs.split()):
            continue
        for match in pattern.finditer(text):
            sentence = re.search(r"[.?!](?:\s|$)", text[match.end():])
            if advice == SPLIT and sentence and sentence.group().startswith("?"):
                continue  # a question
            words = " ".join(re.split(GAP, match.group())).strip("\";: ")
            yield match.start(), words, advice


def allowed_by(name, line, column):
    """The row of ALLOWED that fits, or None."""
    for row, (glob, pattern, _reason) in enumerate(ALLOWED):
        if fnmatch.fnmatch(name, glob):
            for match in re.finditer(pattern, line):
                if match.start() <= column < match.end():
                    return row
    return None


def findings_in(name, used_rows):
    for offset, word, advice in word_findings(name):
        row = allowed_by(name, name, offset)
        if row is None:
            yield 1, word, advice + " (name of the file)"
        else:
            used_rows.add(row)
    try:
        text = (ROOT / name).read_text(encoding="utf-8")
    except UnicodeDecodeError:
        return
    lines = text.split("\n")
    starts = [0]
    for line in lines:
        starts.append(starts[-1] + len(line) + 1)
    for offset, words, advice in sorted([*word_findings(text), *clause_findings(name, text)]):
        at = bisect.bisect_right(starts, offset)
        row = allowed_by(name, lines[at - 1], offset - starts[at - 1])
        if row is None:
            yield at, words, advice
        else:
            used_rows.add(row)


def main():
    paths = [str(pathlib.Path(path).resolve().relative_to(ROOT)) for path in sys.argv[1:]]
    names = [name for name in known_files(paths) if is_looked_at(name)]
    used_rows, count = set(), collections.Counter()
    for name in names:
        for line, words, advice in findings_in(name, used_rows):
            print(f"{name}:{line}: \"{words}\": {advice}")
            count[name.split("/")[0]] += 1
    if not paths:
        for row in sorted(set(range(len(ALLOWED))) - used_rows):
            print(f"scripts/english_rules.py: ALLOWED: nothing needs {ALLOWED[row][1]!r} any more")
            count["scripts"] += 1
    per_folder = "".join(f", {number} in {folder}" for folder, number in sorted(count.items()))
    print(f"{len(names)} files, {sum(count.values())} findings{per_folder}")
    return 1 if count or not names else 0


if __name__ == "__main__":
    sys.exit(main())
