"""Medians, ratios, verdicts, tables and picture of made-up measurements."""

import json
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest

from accounts import accounts
from calls import count
from chart import chart
from counts import judged
from figures import Figure, Goal, judge
from goals import CALLS as CALLS_PER_SECOND
from goals import COUNTED_GOALS, INSTRUCTIONS, WAKE_UPS
from goals import MEMORY as RESIDENT_MEMORY
from parts import parts
from programs import BARE, DEFAULT, OVERDUE, SMALL
from table import goal_rows, plain, program_rows

DOCS = Path(__file__).parent.parent.parent / "docs"
SVG = "{http://www.w3.org/2000/svg}"
MEMORY = Figure("memory", "kB", 0, {"ours": [1300, 1000, 1900], "theirs": [1000, 500, 2000]})
CALLS = Figure("calls", "", 1, {"ours": [2, 2, 2.04]})


def test_the_median_of_an_odd_and_an_even_number_of_rounds():
    assert MEMORY.of("ours") == 1300
    assert Figure("", "", 0, {"one": [4, 1, 2, 9]}).of("one") == 3


def test_a_ratio_is_the_median_of_the_ratios_of_each_round():
    # Of 1, 2 and 3; the ratio of the medians is 3, that of the means another.
    shifted = Figure("", "", 0, {"a": [1, 20, 3], "b": [1, 10, 1]})
    (verdict,) = judge([Goal("", "a", 5, times="b")], [shifted])
    assert verdict.measure == 2


def test_rounds_of_different_number_have_no_ratio():
    with pytest.raises(ValueError):
        Figure("", "", 0, {"a": [1, 2], "b": [1]}).ratios("a", to="b")


@pytest.mark.parametrize(
    "goal, measure, reached",
    [
        (Goal("memory", "ours", 1300), 1300, True),
        (Goal("memory", "ours", 1299), 1300, False),
        (Goal("memory", "ours", 1.3, times="theirs"), 1.3, True),
        (Goal("memory", "ours", 1.29, times="theirs"), 1.3, False),
    ],
)
def test_a_goal_is_reached_up_to_its_bound(goal, measure, reached):
    (verdict,) = judge([goal], [MEMORY])
    assert (verdict.value, verdict.measure, verdict.reached) == (1300, measure, reached)


def test_what_the_next_digit_shown_hides_is_no_miss():
    """A window of a minute cuts a call in or out."""
    figure = Figure("calls", "", 1, {"ours": [2.04, 2.04, 2.04]})
    (verdict,) = judge([Goal("calls", "ours", 2)], [figure])
    assert verdict.reached


def test_a_ratio_is_held_against_its_goal_to_the_last_digit():
    figure = Figure("calls", "", 1, {"ours": [2.101], "theirs": [2]})
    (verdict,) = judge([Goal("calls", "ours", 1.05, times="theirs")], [figure])
    assert not verdict.reached


@pytest.mark.parametrize(
    "goal",
    [
        Goal("memory", "others", 1),
        Goal("memory", "ours", 1, times="others"),
        Goal("unknown", "ours", 1),
    ],
)
def test_a_goal_without_its_measurement_is_no_goal_reached(goal):
    with pytest.raises(KeyError):
        judge([goal], [MEMORY])


def test_the_table_of_goals():
    goals = [Goal("memory", "ours", 1.25, times="theirs"), Goal("memory", "ours", 2000)]
    times = "1,300 kB, 1.30 times (0.95 to 2.00)"
    assert goal_rows(judge(goals, [MEMORY]))[1:] == [
        ["memory", "ours", times, "at most 1.25 times theirs", "1.04", "MISSED"],
        ["memory", "ours", "1,300 kB", "at most 2,000 kB", "0.65", "reached"],
    ]


def test_the_table_of_programs():
    assert program_rows([MEMORY, CALLS]) == [
        ["Program", "memory, kB", "calls"],
        ["ours", "1,300", "2.0"],
        ["theirs", "1,000", "-"],
    ]


def test_a_table_as_text():
    rows = [["A", "Longer"], ["wide", "x"]]
    assert plain(rows) == "A     Longer\nwide  x\n"


def test_the_picture_has_a_bar_for_each_program_and_a_mark_for_a_goal():
    goals = [Goal("memory", "ours", 1.05, times="theirs"), Goal("memory", "ours", 5000)]
    picture = ElementTree.fromstring(chart([MEMORY], goals, "<Title>"))
    assert picture.find(f"{SVG}title").text == "<Title>"
    background, *bars = picture.iter(f"{SVG}rect")
    ours, theirs = (float(bar.get("width")) for bar in bars)
    assert theirs / ours == pytest.approx(1000 / 1300, abs=0.001)
    # A goal beyond the longest bar has no place.
    (mark,) = picture.iter(f"{SVG}line")
    left = float(bars[0].get("x"))
    assert (float(mark.get("x1")) - left) / ours == pytest.approx(1050 / 1300, abs=0.001)


def test_a_value_stands_beyond_a_mark_that_is_behind_its_bar():
    figure = Figure("memory", "kB", 0, {"ours": [1000], "theirs": [2000]})
    picture = ElementTree.fromstring(chart([figure], [Goal("memory", "ours", 1100)], ""))
    (mark,) = picture.iter(f"{SVG}line")
    (value,) = (text for text in picture.iter(f"{SVG}text") if text.text == "1,000")
    assert float(value.get("x")) > float(mark.get("x1"))


def test_the_picture_in_the_docs_shows_what_the_table_does():
    table = json.loads((DOCS / "figures" / "cost_programs.json").read_text())
    of_table = {
        column: {row[0]: row[place] for row in table["rows"] if row[place] != "-"}
        for place, column in enumerate(table["columns"])
    }
    of_picture = {}
    _title, *texts = ElementTree.parse(DOCS / "cost.svg").iter(f"{SVG}text")
    for text in texts:
        if text.get("font-weight") == "bold":
            group = of_picture.setdefault(text.text, {})
        elif text.get("text-anchor") == "end":
            program = text.text
        else:
            group[program] = text.text
    assert len(of_picture) == 6
    assert of_picture == {heading: of_table[heading] for heading in of_picture}


def counted(*changes):
    """Results at the goals, but for these."""
    results = {
        WAKE_UPS: {DEFAULT: [60], SMALL: [60]},
        CALLS_PER_SECOND: {DEFAULT: [2], SMALL: [2], OVERDUE: [3]},
        INSTRUCTIONS: {DEFAULT: [1.2], BARE: [1]},
        RESIDENT_MEMORY: {SMALL: [2000]},
    }
    for figure, program, value in changes:
        results[figure][program] = [value]
    return results


def test_counts_at_their_goals_reach_them():
    verdicts = judged(counted())
    assert len(verdicts) == len(COUNTED_GOALS) == 7
    assert all(verdict.reached for verdict in verdicts)


@pytest.mark.parametrize(
    "figure, program, value",
    [
        (WAKE_UPS, DEFAULT, 61),
        (WAKE_UPS, SMALL, 61),
        (CALLS_PER_SECOND, DEFAULT, 121 / 60),
        (CALLS_PER_SECOND, SMALL, 121 / 60),
        (CALLS_PER_SECOND, OVERDUE, 181 / 60),
        (INSTRUCTIONS, DEFAULT, 1.201),
        (RESIDENT_MEMORY, SMALL, 2004),
    ],
)
def test_a_count_one_beyond_its_goal_misses_it(figure, program, value):
    verdicts = judged(counted((figure, program, value)))
    (missed,) = (verdict.goal for verdict in verdicts if not verdict.reached)
    assert (missed.figure, missed.program) == (figure, program)


def test_parts_of_a_file_by_the_map_of_its_linker():
    linker_map = """\
Discarded input sections

 .text          0x0000000000000000      0x999 /usr/lib/libc.a(unused.o)

Linker script and memory map

LOAD /usr/lib/libc.a
.text           0x0000000000001000      0x300
 *(.text)
 .text          0x0000000000001000      0x100 /usr/lib/libc.a(a.o)
                0x0000000000001000                symbol
 .text.a_very_long_name
                0x0000000000001100       0x20 /usr/lib/libgpiod.a(b.o)
 .text          0x0000000000001120       0x10 /usr/lib/libgpiodcxx.a(c.o)
 .text          0x0000000000001130        0x8 /tmp/x1.ltrans0.ltrans.o
 *fill*         0x0000000000001138        0x8
 .text          0x0000000000001140        0x4 /usr/lib/crt1.o
.bss            0x0000000000002000      0x400
 .bss           0x0000000000002000      0x400 /usr/lib/libc.a(a.o)
.comment        0x0000000000000000       0x50
 .comment       0x0000000000000000       0x50 /usr/lib/libc.a(a.o)
"""
    assert parts(linker_map, 0x200) == {
        "C library": 0x100,
        "libgpiodcxx, libgpiod": 0x30,
        "the program, with Boost's templates": 8,
        "tables of the linker, padding": 0x200 - 0x138,
    }


def switch(time, before, state, after):
    return (
        f" x-1 [000] d..2. {time:.6f}: sched_switch: prev_comm=a b prev_pid={before} "
        f"prev_prio=120 prev_state={state} ==> next_comm=c next_pid={after} next_prio=120\n"
    )


def test_accounts_of_a_program_with_a_child():
    lines = [
        "# tracer: nop\n",
        switch(1, 0, "R", 7),
        " x-7 [000] ..... 1.1: sched_process_fork: comm=a pid=7 child_comm=a child_pid=8\n",
        switch(1.5, 7, "S", 8),
        switch(1.75, 8, "R+", 9),
        switch(2, 9, "S", 8),
        switch(2.125, 8, "X", 0),
        switch(3, 0, "R", 9),
        switch(3.25, 9, "D", 0),
    ]
    found = accounts(lines, {7: "family", 9: "other"})
    assert {name: (one.cpu_seconds, one.sleeps) for name, one in found.items()} == {
        "family": (0.5 + 0.25 + 0.125, 1),
        "other": (0.25 + 0.25, 2),
    }


def test_what_ran_when_the_record_began_is_left_out():
    found = accounts([switch(5, 7, "S", 0)], {7: "ours"})
    assert (found["ours"].cpu_seconds, found["ours"].sleeps) == (0, 0)


def test_calls_that_began_in_the_window():
    lines = [
        "7 99.9 ioctl(5) = 0",
        "7 100.0 restart_syscall(<... resuming interrupted clock_nanosleep ...>) = 0",
        "7 100.5 ioctl(5) = 0",
        "7 101.0 clock_nanosleep(0 <unfinished ...>",
        "8 101.2 read(3) = 1",
        "7 101.5 <... clock_nanosleep resumed>) = 0",
        "7 102.0 ioctl(5) = 0",
    ]
    assert count(lines, 100.0, 102.0) == 3
