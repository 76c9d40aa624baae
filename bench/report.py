"""Tables and picture of what was measured."""

from pathlib import Path

from chart import chart
from figures import Figure, judge
from goals import CALLS, CPU, FALL, GOALS, INSTRUCTIONS, MEMORY, OWN_CPU, SIZE, START, STATUS
from goals import WAKE_UPS
from measure import Results
from table import goal_rows, markdown, plain, program_rows

# In the order of the tables: the unit, and digits behind the point.
_SHOWN = {
    MEMORY: ("kB", 0),
    WAKE_UPS: ("", 0),
    CALLS: ("", 1),
    CPU: ("ms", 1),
    OWN_CPU: ("ms", 2),
    INSTRUCTIONS: ("", 0),
    START: ("ms", 1),
    STATUS: ("ms", 2),
    FALL: ("ms", 1),
    SIZE: ("kB", 0),
}
# Not what has none but our own programs or a bare loop beside it.
_PICTURED = (MEMORY, WAKE_UPS, CALLS, CPU, START, STATUS)


def report(results: Results, folder: Path) -> bool:
    """Prints the tables, writes `cost.md` and `cost.svg`; whether all goals were reached."""
    figures = [
        Figure(name, unit, digits, results[name])
        for name, (unit, digits) in _SHOWN.items()
        if name in results
    ]
    verdicts = judge(GOALS, figures)
    tables = [goal_rows(verdicts), program_rows(figures)]
    print("\n".join(map(plain, tables)))
    (folder / "cost.md").write_text("\n".join(map(markdown, tables)))
    pictured = [figure for figure in figures if figure.name in _PICTURED]
    (folder / "cost.svg").write_text(chart(pictured, GOALS, "What it costs, beside others"))
    return all(verdict.reached for verdict in verdicts)
