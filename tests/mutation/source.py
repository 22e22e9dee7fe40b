"""Finds its way in C++ text without a parser; that the text is clang-formatted helps."""

import re

_HIDDEN = re.compile(r"""
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<directive>^[ \t]*\#(?:\\\n|[^\n])*)
  | (?P<text>"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])')
""", re.VERBOSE | re.DOTALL | re.MULTILINE)

_NOT_EXPRESSIONS = re.compile(
    r"(?:if|for|while|switch|case|default|else|do|return|throw|using|namespace|struct|class|template"
    r"|static|constexpr|const|auto|typedef|friend|explicit|virtual|enum|extern|public|private)\b"
    r"|(?!\+\+|--)[^\w*(]")
_DECLARATION = re.compile(r"(?!Q_EMIT |new |delete )[\w:<>,\s*&]+?[\s*&]+\w+\s*[=(;{\[]")
_GUARD = re.compile(r"(?:const )?(?!return\b|throw\b|new\b|delete\b|Q_EMIT\b)\w+(?:<[^;]*>)? (\w+)"
                    r"\([^)].*\);", re.DOTALL)
_JUMP = re.compile(r"(return|break|continue);")


def masked(text):
    """The same length, with nothing in it but code: comments and directives are blank."""
    def hide(match):
        hidden = match.group()
        if match.lastgroup == "text":
            return hidden[0] + "~" * (len(hidden) - 2) + hidden[-1]
        return re.sub(r"[^\n]", " ", hidden)
    return _HIDDEN.sub(hide, text)


def texts(text):
    """Where the contents of string literals begin and end."""
    for match in _HIDDEN.finditer(text):
        if match.lastgroup == "text" and match.group()[0] == '"' and len(match.group()) > 2:
            yield match.start() + 1, match.end() - 1


def closing(code, opening):
    """Where the bracket at opening is closed."""
    depth = 0
    for index in range(opening, len(code)):
        depth += (code[index] in "([{") - (code[index] in ")]}")
        if depth == 0:
            return index
    return len(code)


def split(code, start, end, separator=","):
    """The parts between start and end, without the white space around them."""
    parts, depth, begin = [], 0, start
    for index in range(start, end + 1):
        if index == end or (depth == 0 and code[index] == separator):
            part = code[begin:index]
            if part.strip():
                parts.append((index - len(part.lstrip()), begin + len(part.rstrip())))
            begin = index + 1
        else:
            depth += (code[index] in "([{") - (code[index] in ")]}")
    return parts


def operand_start(code, end):
    """Where the condition begins that ends before a question mark."""
    depth, index = 0, end - 1
    while index >= 0:
        sign = code[index]
        depth += (sign in ")]}") - (sign in "([{")
        assigns = sign == "=" and code[index - 1] not in "=!<>" and code[index + 1] != "="
        if depth < 0 or (depth == 0 and (sign in ",;{}" or assigns)):
            break
        index -= 1
    index += 1
    return re.compile(r"\s*(?:return\b\s*)?").match(code, index).end()


def _end_of_statement(code, start):
    depth = 0
    for index in range(start, len(code)):
        depth += (code[index] in "([{") - (code[index] in ")]}")
        if depth < 0:
            return None
        if depth == 0 and code[index] == ";":
            return index + 1
    return None


def statements(code):
    """(start, end, jumps) of each statement that can be left out."""
    for line in re.compile(r"^ {4,}(?=\S)", re.MULTILINE).finditer(code):
        before = code[:line.start()].rstrip()
        end = _end_of_statement(code, line.end())
        if end is None or not (before.endswith((";", "{", "}", ")", ":", "else"))):
            continue
        statement = code[line.end():end]
        jumps = bool(_JUMP.fullmatch(statement))
        if jumps or _can_be_left_out(statement, code[end:]):
            yield line.end(), end, jumps


def _can_be_left_out(statement, rest):
    guard = _GUARD.fullmatch(statement)
    if guard:
        function = rest.split("\n}", 1)[0]
        return not re.search(rf"\b{guard[1]}\b", function)
    return not _NOT_EXPRESSIONS.match(statement) and not _DECLARATION.match(statement)


def surroundings(code, start, end):
    """The first and the last line of the statement, or its part between braces, around a change."""
    first = max(code.rfind(sign, 0, start) for sign in ";{}") + 1
    last = min(index for index in (*(code.find(sign, end - 1) for sign in ";{}"), len(code))
               if index >= 0)
    first += len(code[first:start]) - len(code[first:start].lstrip())
    return code.count("\n", 0, first) + 1, code.count("\n", 0, last) + 1
