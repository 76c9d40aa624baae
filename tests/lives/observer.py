"""Holds what was seen against what the model expected, wherever a life is played."""

from typing import Optional, Sequence


class Mismatch(Exception):
    """The text shows both sides."""


def equal(subject: str, expected, seen) -> None:
    if expected != seen:
        if isinstance(expected, dict) and isinstance(seen, dict):
            differ = [name for name in expected if expected[name] != seen.get(name)]
            subject += f": {', '.join(differ)}"
        raise Mismatch(f"{subject}\n  expected: {expected}\n  seen:     {seen}")


def text_equal(subject: str, expected: Sequence, seen: str) -> None:
    """A None among the expected lines stands for one or more in the words of a library."""
    lines = seen.splitlines()
    if None in expected:
        known = [line for line in expected if line is not None]
        if known == lines[: len(known)] and len(lines) > len(known):
            return
    elif list(expected) == lines and seen.endswith("\n") == bool(lines):
        return
    raise Mismatch(f"{subject}\n  expected: {list(expected)}\n  seen:     {lines}")


def access(one) -> Optional[str]:
    return one and f"a {one.kind} of {one.line} as {one.level}"


def difference(want: Optional[str], have: Optional[str]) -> str:
    if want is None:
        return f"{have}, which is not due"
    return f"{have} in place of {want}" if have is not None else f"without {want}"
