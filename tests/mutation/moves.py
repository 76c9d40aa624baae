"""Statements moved to another place among those of their block.

A statement is a line, several lines that one semicolon ends, or a block with all its branches.
"""

import re
from typing import Iterator

_STRING = re.compile(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)\'')
# What opens no block of statements: records, namespaces, lists of values.
_NO_BLOCK = re.compile(r"^\s*(?:namespace|struct|class|enum|extern)\b|= \{$|\(\{$")
# What may be moved over, but not moved: it can only fail to compile, or be the same.
_STAYS = re.compile(
    r"\s*(?:const|constexpr|static|using|auto|volatile|\[\[maybe_unused)\b|\s*[\w:]+[&*]? \w+ = "
)
_DECLARED = re.compile(r"(\w+)(?: = |\(|\{|;)")
# What nothing is moved over: what stands behind it is not reached.
_ENDS = re.compile(r"\s*(?:return|throw|break|continue)\b")

Span = tuple[int, int]  # lines from 0, the end excluded


def of(lines: list[str]) -> Iterator[tuple[int, int, list[str]]]:
    """What is replaced, as a span, and by what."""
    seen = set()
    for block in _blocks(lines):
        for first, last, changed in _moves(lines, block):
            key = (first, last, tuple(changed))
            if changed != lines[first:last] and key not in seen:
                seen.add(key)
                yield first, last, changed


def _moves(lines: list[str], block: list[Span]) -> Iterator[tuple[int, int, list[str]]]:
    """Each by one and by two, down and up, and to either end of its block."""
    for place, (begin, end) in enumerate(block):
        if _STAYS.match(lines[begin]) or _ENDS.match(lines[begin]):
            continue
        for other in (place + 1, place + 2, len(block) - 1):
            if place < other < len(block):
                last = block[other][1]
                yield begin, last, lines[end:last] + lines[begin:end]
        for other in (place - 2, 0):
            first = block[max(other, 0)][0]
            if 0 <= other < place - 1 and not _uses(lines[begin:end], lines[first:begin]):
                yield first, end, lines[begin:end] + lines[first:begin]


def _uses(moved: list[str], passed: list[str]) -> bool:
    """Whether it takes something that is declared there, and cannot do without."""
    declared = [_DECLARED.search(line) for line in passed if _STAYS.match(line)]
    text = "\n".join(moved)
    return any(re.search(rf"\b{match[1]}\b", text) for match in declared if match)


def _blocks(lines: list[str]) -> Iterator[list[Span]]:
    """The statements of each block, those of the blocks in it among them as one."""
    code = [_STRING.sub("_", line.split(" //")[0]) for line in lines]
    opened = []
    for index, line in enumerate(code):
        for character in line:
            if character == "{":
                opened.append(index)
            elif character == "}" and opened:
                begin = opened.pop()
                if code[begin].endswith("{") and not _NO_BLOCK.search(code[begin]):
                    yield _statements(code, begin + 1, index)


def _statements(code: list[str], begin: int, end: int) -> list[Span]:
    """Up to the first that leaves the block."""
    spans = []
    depth, first = 0, None
    for index in range(begin, end):
        line = code[index]
        if first is None:
            if not line.strip() or re.match(r"\s*(?://|#)", line):
                continue
            if _ENDS.match(line):
                break
            first = index
        depth += sum(map(line.count, "({[")) - sum(map(line.count, ")}]"))
        if depth == 0 and line.rstrip().endswith((";", "}")):
            spans.append((first, index + 1))
            first = None
    return spans
