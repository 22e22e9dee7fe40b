"""What became of the mutants, in Markdown."""

import difflib
import re
from collections import Counter

from operators import mutated


def diff(path, text, mutant):
    """A unified diff."""
    lines = difflib.unified_diff(text.splitlines(), mutated(text, mutant).splitlines(),
                                 f"a/{path}", f"b/{path}", n=2, lineterm="")
    return "\n".join(lines)


def key(name, difference):
    """What stays the same when code moves: the file and the lines shown, without their numbers."""
    lines = [line for line in difference.splitlines() if not re.match(r"@@|--- a|\+\+\+ b", line)]
    return name, tuple(line[:1] + " ".join(line[1:].split()) for line in lines)


def equivalents(path):
    """The keys of the mutants that a document shows under the names of their files."""
    found, name = set(), ""
    text = path.read_text() if path.exists() else ""
    for match in re.finditer(r"^## (\S+)$|^```diff\n(.*?)^```$", text, re.MULTILINE | re.DOTALL):
        if match[1]:
            name = match[1]
        else:
            found.add(key(name, match[2]))
    return found


def percent(results):
    killed = sum(result.fate == "killed" for result in results)
    survived = sum(result.fate == "survived" for result in results)
    return 100 * killed / (killed + survived) if killed + survived else 100.0


def write(results, seed):
    rows = ["# Mutants", "", f"Seed {seed}.", "",
            "| File | Mutants | Killed | Equivalent | Survived | Killed of the rest |",
            "|---|--:|--:|--:|--:|--:|"]
    for name in sorted({result.name for result in results}):
        rows.append(_row(name, [result for result in results if result.name == name]))
    rows.append(_row("**all**", results))
    for result in sorted(results, key=lambda result: result.mutant.id):
        if result.fate == "survived":
            rows += ["", f"## {result.mutant.id}", "", f"{result.why}.", "",
                     "```diff", result.diff, "```"]
    return "\n".join(rows) + "\n"


def _row(name, results):
    fates = Counter(result.fate for result in results)
    return f"| {name} | {len(results)} | {fates['killed']} | {fates['equivalent']} " \
           f"| {fates['survived']} | {percent(results):.0f} % |"
