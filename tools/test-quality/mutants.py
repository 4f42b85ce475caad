"""Makes mutants: copies of a C++ source in which one line is changed as a programmer's mistake would change it."""
import re
from dataclasses import dataclass
from pathlib import Path

# Each kind of mistake: what is replaced in a line, and by what. A replacement is made at each place that matches. The
# spaces keep the brackets of templates and the arrows of pointers out.
REPLACEMENTS = (
    ("comparison", re.compile(r" == "), " != "),
    ("comparison", re.compile(r" != "), " == "),
    ("comparison", re.compile(r" < "), " <= "),
    ("comparison", re.compile(r" <= "), " < "),
    ("comparison", re.compile(r" > "), " >= "),
    ("comparison", re.compile(r" >= "), " > "),
    ("condition", re.compile(r" && "), " || "),
    ("condition", re.compile(r" \|\| "), " && "),
    ("condition", re.compile(r"\bif \((?!const|auto|std|!)([^;()]*(?:\([^()]*\)[^;()]*)*)\)(?= |$)"), r"if (!(\1))"),
    ("condition", re.compile(r"\bif \(!([\w.]+(?:\(\))?)\)"), r"if (\1)"),
    ("constant", re.compile(r"(?<![\w.'\"])(0|[1-9]\d*)(?![\w.'\"])"), lambda match: str(int(match[1]) + 1)),
    ("constant", re.compile(r"\btrue\b"), "false"),
    ("constant", re.compile(r"\bfalse\b"), "true"),
    ("arithmetic", re.compile(r"(?<=[\w)\]]) \+ (?=[\w(])"), " - "),
    ("arithmetic", re.compile(r"(?<=[\w)\]]) - (?=[\w(])"), " + "),
)
# A statement in a line of its own that can be left out: a call, an assignment or an increment. A declaration begins with
# two words, so it does not match.
STATEMENT = re.compile(r"^\s+(?:\+\+|--|co_await )?[\w:.>\-\[\]*]+(?:\(.*\)| [-+|&]?= .*|\+\+|--)?;$")
# An assertion about the calling thread is not removed, because a correct program does the same without it.
NOT_REMOVED = re.compile(
    r"^\s+(?:return|co_return|break|continue|using|case|default|throw|delete)\b|^\s+[\w:]+;$|\bthread_\.check\(\);$")
# The first line of a void function's body, in which an early return can be put.
VOID_FUNCTION = re.compile(r"^(?:\w.*)?\bvoid [\w:]+\(.*\) ?(?:const )?(?:noexcept )?\{$")
# Comments, declarations without code, lines of the preprocessor, and static assertions, which no test checks.
IGNORED = re.compile(r"^\s*(?://|#|\*|static_assert|template|using |namespace|\})")


@dataclass(frozen=True)
class Mutant:
    """One changed line. `line` counts from 1; `old` and `new` have no indentation."""
    path: str
    line: int
    kind: str
    old: str
    new: str

    def __str__(self):
        return f"{self.path}:{self.line} ({self.kind})\n    {self.old}\n    {self.new}"


def blank_strings(line):
    """The line with the same length, in which the contents of strings and the comment at its end are blanks."""
    line = re.sub(r'"(?:[^"\\]|\\.)*"', lambda match: '"' + " " * (len(match[0]) - 2) + '"', line)
    return re.sub(r"//.*", lambda match: " " * len(match[0]), line)


def changes_of(line):
    """Pairs of kind and changed line."""
    visible = blank_strings(line)
    for kind, pattern, replacement in REPLACEMENTS:
        for match in pattern.finditer(visible):
            # The text of the line itself is replaced, so that its strings stay.
            original = pattern.match(line, match.start())
            if original is None or original.end() != match.end():
                continue
            yield kind, line[:match.start()] + original.expand(replacement) + line[match.end():] \
                if isinstance(replacement, str) else line[:match.start()] + replacement(original) + line[match.end():]
    if STATEMENT.match(visible) and not NOT_REMOVED.match(visible):
        indentation = line[:len(line) - len(line.lstrip())]
        yield "removed statement", indentation + ";"
    if VOID_FUNCTION.match(visible):
        yield "early return", line + " return;"


def mutants_of(root, path):
    """All mutants of one source. Raw strings are left out as a whole file, because a line of one looks like code."""
    text = (Path(root) / path).read_text(encoding="utf-8")
    if 'R"' in text:
        return
    previous = ";"
    for number, line in enumerate(text.splitlines(), start=1):
        if not IGNORED.match(line) and line.strip():
            # A line that continues a statement cannot be removed.
            starts = previous.rstrip().endswith((";", "{", "}", ":"))
            for kind, changed in changes_of(line):
                if changed != line and (starts or kind != "removed statement"):
                    yield Mutant(path, number, kind, line.strip(), changed.strip())
        if line.strip():
            previous = blank_strings(line)
