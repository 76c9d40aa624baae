"""How what was measured is shown."""

from chart import chart
from figures import Figure
from goals import CALLS, CPU, FALL, GOALS, INSTRUCTIONS, MEMORY, OWN_CPU, SIZE, START, STATUS
from goals import WAKE_UPS
from measure import Results

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


def figures_of(results: Results) -> list[Figure]:
    return [
        Figure(name, unit, digits, results[name])
        for name, (unit, digits) in _SHOWN.items()
        if name in results
    ]


def picture(figures: list[Figure]) -> str:
    pictured = [figure for figure in figures if figure.name in _PICTURED]
    return chart(pictured, GOALS, "What it costs, beside others")
