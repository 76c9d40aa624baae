"""The breaks of a source: what stands where, and what is put there instead."""

import difflib
import re
from pathlib import Path
from typing import Iterator, NamedTuple

import moves

# Patterns and what takes the place of a match, in code without comments and strings.
_OPERATORS = [
    (r"(?<![<>=!-])>=(?!=)", [">", "<"]),
    (r"(?<![<>=!])<=(?!=)", ["<", ">"]),
    (r"(?<= )<(?= )", ["<=", ">"]),
    (r"(?<= )>(?= )", [">=", "<"]),
    (r"==", ["!="]),
    (r"!=", ["=="]),
    (r"&&", ["||"]),
    (r"\|\|", ["&&"]),
    (r"(?<= )\+(?= )", ["-"]),
    (r"(?<= )-(?= )", ["+"]),
    (r"(?<= )\*(?= )", ["+", "/"]),
    (r"\+=", ["-=", "="]),
    (r"\+\+", ["--"]),
    (r"(?<=[( ])!(?=[a-zA-Z(])", [""]),
    (r" \| ", [" & "]),
    (r"\bstd::max\b", ["std::min"]),
    (r"\btrue\b", ["false"]),
    (r"\bfalse\b", ["true"]),
    (r"\buint64_t\b", ["uint32_t"]),
    (r"\buint32_t\b", ["uint16_t"]),
    (r"\buint16_t\b", ["uint8_t"]),
    (r"\bint32_t\b", ["uint32_t"]),
    (r"\bDIRECTION_INPUT\b", ["DIRECTION_OUTPUT"]),
    (r"\bDIRECTION_OUTPUT\b", ["DIRECTION_INPUT"]),
    (r"\bSIG(INT|TERM)\b", ["SIGHUP"]),
    (r"\bO_CREAT\b", ["0"]),
    (r"\bcreate_only\b", ["open_or_create"]),
    (r"\bopen_read_only\b", ["open_only"]),
    (r"\bopen_only\b", ["open_read_only"]),
    (r"\bsystem_clock::now", ["steady_clock::now"]),
    (r"\bsteady_clock::now", ["system_clock::now"]),
    (r"\blocaltime\b", ["gmtime"]),
    (r"\bcout\b", ["cerr"]),
    (r"\bcerr\b", ["cout"]),
    (r"\?(?=.* : )", ["? false &&"]),
]
_NUMBER = re.compile(r"(?<![\w.'])(0|[1-9][0-9']*)(L?)(?![\w.'])")
_OCTAL = re.compile(r"(?<![\w.'])0[0-7]+\b")
_STRING = re.compile(r'"((?:[^"\\]|\\.)+)"')
_CONDITION = re.compile(r"\b(if|while) \((?!true\))(.+)\) \{$")
# A whole statement of one line.
_STATEMENT = re.compile(
    r"^(\s+)(?!return\b|const\b|constexpr\b|using\b|static_assert|\})[^/\s{}#].*;$"
)
_DECLARATION = re.compile(
    r"^\s+(?:(?:const|volatile|auto|int|bool|static)\b|std::\S+ \w+ ?[=({;]|Power\S+ )"
)
_OTHER = re.compile(r"\s+(if|while|for|return|try|\}|public|private)\b")


class Break(NamedTuple):
    file: str
    line: int  # from 1
    before: list[str]
    after: list[str]
    end: int  # the last line that it replaces

    def diff(self) -> str:
        """What differs, with places that are counted from its first line."""
        lines = list(difflib.unified_diff(self.before, self.after, n=0, lineterm=""))
        return "\n".join(lines[2:])


def breaks_of(root: Path, name: str) -> Iterator[Break]:
    lines = (root / name).read_text().split("\n")
    for index, line in enumerate(lines):
        if re.match(r"\s*(//|#|static_assert)", line):
            continue
        code = _blank_strings(line.split(" //")[0])
        seen = {line}
        for changed in _changed_lines(line, code):
            if changed not in seen:
                seen.add(changed)
                yield Break(name, index + 1, [line], [changed], index + 1)
        yield from _dropped(name, lines, index)
        if name.endswith(".h"):
            yield from _swapped(name, lines, index)
    for first, last, changed in moves.of(lines):
        yield Break(name, first + 1, lines[first:last], changed, last)


def _blank_strings(line: str) -> str:
    """The line with the inside of its strings blanked, at the same length."""
    return _STRING.sub(lambda match: '"' + " " * len(match[1]) + '"', line)


def _changed_lines(line: str, code: str) -> Iterator[str]:
    for pattern, replacements in _OPERATORS:
        for match in re.finditer(pattern, code):
            for text in replacements:
                yield line[: match.start()] + text + line[match.end() :]
    for match in _NUMBER.finditer(code):
        value = int(match[1].replace("'", ""))
        for other in (value + 1, value - 1, 0):
            if other >= 0:
                yield line[: match.start()] + f"{other}{match[2]}" + line[match.end() :]
    for match in _OCTAL.finditer(code):
        yield line[: match.start()] + "0" + line[match.end() :]
    for match in _STRING.finditer(line):
        yield line[: match.start()] + '"' + match[1] + '~"' + line[match.end() :]
    if match := _CONDITION.search(code):
        for value in ("true", "false"):
            yield line[: match.start(2)] + value + line[match.end(2) :]
    if match := re.match(r"(\s+)return .*;$", code):
        for value in ("true", "false"):
            yield f"{match[1]}return {value};"


def _dropped(name: str, lines: list[str], index: int) -> Iterator[Break]:
    """Without a statement of one line or of several, if it declares nothing."""
    start = lines[index]
    before = lines[index - 1].rstrip() if index > 0 else ""
    if not re.match(r"\s+[\w:*(]", start) or not (
        before.endswith((";", "{", "}", ")", ":")) or not before or "//" in before
    ):
        return
    if _DECLARATION.match(start) or _OTHER.match(start):
        return
    end = index
    while not lines[end].rstrip().endswith((";", "{", "}")):
        end += 1
    if lines[end].rstrip().endswith(";"):
        yield Break(name, index + 1, lines[index : end + 1], [], end + 1)


def _swapped(name: str, lines: list[str], index: int) -> Iterator[Break]:
    """Two declarations of a record."""
    if index + 1 >= len(lines):
        return
    first, second = lines[index], lines[index + 1]
    if all(_STATEMENT.match(line) for line in (first, second)) and (
        len(first) - len(first.lstrip()) == len(second) - len(second.lstrip())
    ):
        yield Break(name, index + 1, [first, second], [second, first], index + 2)
