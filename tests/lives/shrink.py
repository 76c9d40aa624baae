"""Shortens a life that went wrong for as long as it still does."""

from on_host import Host

# On the board each try is a boot.
_TRIES = 40


def shortest(host: Host, report: dict) -> tuple:
    """The shortest life found, and the report of its playing.

    Steps behind the one that showed it go first, then groups of steps, each half as
    large as the last. What a shorter life shows may be another thing than the longer one.
    """
    life = host.make(report["seed"])
    best = {**life, "steps": life["steps"][: report["steps"] + 1]}
    last, tries = report, 0
    size = max(len(best["steps"]) // 2, 1)
    while tries < _TRIES:
        position = 0
        while position < len(best["steps"]) and tries < _TRIES:
            steps = best["steps"][:position] + best["steps"][position + size :]
            shorter = {**best, "steps": steps}
            tries += 1
            new = host.play(shorter, str(report["begin"]))
            if new["verdict"] == report["verdict"]:
                best, last = {**shorter, "steps": steps[: new["steps"] + 1]}, new
            else:
                position += size
        if size == 1:
            break
        size //= 2
    return best, last
