"""What can be changed in a source. Each operator yields (start, end, new text)."""

import re
from collections import Counter, namedtuple

from source import closing, masked, operand_start, split, statements, texts

Mutant = namedtuple("Mutant", "id operator start end new")

SWAPS = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||",
         "||": "&&", "+": "-", "-": "+", "*": "/", "/": "*", "+=": "-=", "-=": "+="}
_OPERATOR = re.compile(r"(?<=\s)(?:%s)(?=\s)"
                       % "|".join(map(re.escape, sorted(SWAPS, key=len, reverse=True))))
_STEP = re.compile(r"\+\+|--")
_NUMBER = re.compile(r"(?<![\w.])\d+(?:\.\d+)?(?=[FfLlUu]*(?![\w.]))")
_BOOLEAN = re.compile(r"\b(?:true|false)\b")
# A name within a scope as a value: not called, not the type of something.
_SCOPED = re.compile(r"\b(?!std::)(\w+)::(\w+)(?=\s*[,;)}>|.?]| [=!]= | : )")
# Not what is empty already, nor what the other operators change.
_RETURN = re.compile(r"\breturn (?!(?:\w+\(\)|true|false|nullptr|\d+|\w+::\w+);)([^;{]+);")


def negated(text, code):
    for match in re.finditer(r"\b(if|while|for) (?:constexpr )?\(", code):
        start, end = match.end(), closing(code, match.end() - 1)
        if match[1] == "for":
            parts = split(code, start, end, ";")
            if len(parts) != 3:
                continue
            start, end = parts[1]
        condition = code[start:end]
        declares = re.search(r"[;]| = ", condition)
        # Without its exclamation mark it becomes the same.
        is_negation = re.fullmatch(r"![^&|=<>?]*(?:->[^&|=<>?]*)*", condition)
        if not declares and not is_negation:
            yield start, end, f"!({text[start:end]})"
    for match in re.finditer(r"\s\?\s", code):
        start = operand_start(code, match.start())
        yield start, match.start(), f"!({text[start:match.start()]})"
    for match in re.finditer(r"(?<!\w)!(?=[\w(*])", code):
        yield match.start(), match.end(), ""


def swapped(_text, code):
    for match in _OPERATOR.finditer(code):
        yield match.start(), match.end(), SWAPS[match.group()]
    for match in _STEP.finditer(code):
        yield match.start(), match.end(), {"++": "--", "--": "++"}[match.group()]


def constant(_text, code):
    for match in _NUMBER.finditer(code):
        number = match.group()
        other = f"{float(number) + 1}" if "." in number else f"{int(number) + 1}"
        yield match.start(), match.end(), {"1": "0"}.get(number, other)
    for match in _BOOLEAN.finditer(code):
        yield match.start(), match.end(), {"true": "false", "false": "true"}[match.group()]
    for match in _RETURN.finditer(code):
        yield match.start(1), match.end(1), "{}"
    names = list(_SCOPED.finditer(code))
    for match in names:
        scope = sorted({other[2] for other in names if other[1] == match[1]})
        neighbour = scope[(scope.index(match[2]) + 1) % len(scope)]
        if neighbour != match[2]:
            yield match.start(2), match.end(2), neighbour


def removed(_text, code):
    for start, end, _ in statements(code):
        yield start, end, ";"


def reordered(text, code):
    found = [(start, end) for start, end, jumps in statements(code) if not jumps]
    for (start, end), (next_start, next_end) in zip(found, found[1:]):
        between = code[end:next_start]
        one, other = text[start:end], text[next_start:next_end]
        if not between.strip() and _indent(code, start) == _indent(code, next_start) \
                and one != other:
            yield start, next_end, other + text[end:next_start] + one


def _indent(code, start):
    return start - code.rfind("\n", 0, start)


def emptied(text, _code):
    for start, end in texts(text):
        yield start, end, ""


def table(text, code):
    for match in re.finditer(r"(\[\] )?= \{", code):
        rows = split(code, match.end(), closing(code, match.end() - 1))
        of_rows = all(code[start] == "{" for start, _ in rows)
        if len(rows) < 2 or not (of_rows or match[1]):
            continue
        for number, (start, end) in enumerate(rows):
            is_last = number == len(rows) - 1
            yield (rows[number - 1][1], end, "") if is_last else (start, rows[number + 1][0], "")
            if of_rows and not is_last:
                yield from _with_last_cells_swapped(text, code, rows[number], rows[number + 1])


def _with_last_cells_swapped(text, code, row, next_row):
    start, end = split(code, row[0] + 1, row[1] - 1)[-1]
    next_start, next_end = split(code, next_row[0] + 1, next_row[1] - 1)[-1]
    one, other = text[start:end], text[next_start:next_end]
    if one != other:
        yield start, next_end, other + text[end:next_start] + one


OPERATORS = (negated, swapped, constant, removed, reordered, emptied, table)


def mutants(name, text):
    """Every mutant of a source, by operator."""
    code = masked(text)
    found = {}
    for operator in OPERATORS:
        numbers = Counter()
        found[operator.__name__] = mine = []
        for start, end, new in operator(text, code):
            identity = f"{name}:{text.count(chr(10), 0, start) + 1}:{operator.__name__}"
            numbers[identity] += 1
            if numbers[identity] > 1:
                identity += f".{numbers[identity]}"
            mine.append(Mutant(identity, operator.__name__, start, end, new))
    return found


def mutated(text, mutant):
    return text[:mutant.start] + mutant.new + text[mutant.end:]
