"""Medians, ratios, verdicts, tables and picture of made-up measurements."""

import json
import re
import xml.etree.ElementTree as ElementTree
from pathlib import Path

import pytest

from host.plot import MARK, OTHERS, OURS
from on_board.accounts import accounts, count
from programs.linker_map import bytes_by_part
from programs.names import BARE, DEFAULT, OVERDUE, SMALL
from report.chart import chart
from report.figures import COUNTED_GOALS, Figure, Goal, goal_rows, judge, judge_counts
from report.figures import program_rows, show

DOCS = Path(__file__).parent.parent.parent / "docs"
SVG = "{http://www.w3.org/2000/svg}"
MEMORY = Figure(
    "memory", "what it keeps", "kB", 0, {"ours": [1300, 1000, 1900], "theirs": [1000, 500, 2000]}
)
CALLS = Figure("calls", "calls", "", 1, {"ours": [2, 2, 2.04]})


def figure_of(rounds):
    return Figure("any", "", "", 0, rounds)


def test_the_median_of_an_odd_and_an_even_number_of_rounds():
    assert MEMORY.of("ours") == 1300
    assert figure_of({"one": [4, 1, 2, 9]}).of("one") == 3


def test_a_ratio_is_the_median_of_the_ratios_of_each_round():
    # Of 1, 2 and 3; the ratio of the medians is 3, that of the means another.
    shifted = figure_of({"a": [1, 20, 3], "b": [1, 10, 1]})
    (verdict,) = judge([Goal("any", "a", 5, times="b")], [shifted])
    assert verdict.measure == 2


def test_rounds_of_different_number_have_no_ratio():
    with pytest.raises(ValueError):
        figure_of({"a": [1, 2], "b": [1]}).ratios("a", to="b")


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
    figure = CALLS._replace(rounds={"ours": [2.04, 2.04, 2.04]})
    (verdict,) = judge([Goal("calls", "ours", 2)], [figure])
    assert verdict.reached


def test_a_ratio_is_held_against_its_goal_to_the_last_digit():
    figure = CALLS._replace(rounds={"ours": [2.101], "theirs": [2]})
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
        ["what it keeps", "ours", times, "at most 1.25 times theirs", "1.04", "MISSED"],
        ["what it keeps", "ours", "1,300 kB", "at most 2,000 kB", "0.65", "reached"],
    ]


def test_the_table_of_programs():
    assert program_rows([MEMORY, CALLS]) == [
        ["Program", "what it keeps, kB", "calls"],
        ["ours", "1,300", "2.0"],
        ["theirs", "1,000", "-"],
    ]


def test_tables_as_text(capsys):
    show({"one": [["A", "Longer"], ["wide", "60.0"]], "other": [["B"], ["x"]]})
    assert capsys.readouterr().out == "A     Longer\nwide  60.0\n\nB\nx\n"


def texts(picture):
    """Each text with its place, size and anchor, from top to bottom."""
    found = []
    for group in picture.iter(f"{SVG}g"):
        text = group.find(f"{SVG}text")
        if text is not None:
            x, y = re.fullmatch(r"translate\((.*),(.*)\)", group.get("transform")).groups()
            found.append(
                (float(y), float(x), group.get("font-size"), group.get("text-anchor"), text.text)
            )
    return sorted(found)


def groups(picture):
    """By heading the text beside each program's bar."""
    (_, _, large, _, title), *others = texts(picture)
    assert title == "What it costs, beside others"
    found, programs = {}, {}
    for y, _, size, anchor, text in others:
        if size == large:
            programs = {}
            group = found.setdefault(text, {})
        elif anchor == "end":
            programs[y] = text
        elif y in programs:
            group[programs[y]] = text
    return found


def coloured(picture, kind, attribute, colour):
    """The numbers of each shape of this colour, as they stand: x and y by turns."""
    rgb = tuple(int(colour[place : place + 2], 16) for place in (1, 3, 5))
    shapes = (shape for shape in picture.iter(f"{SVG}{kind}") if shape.get(attribute))
    return [
        [float(number) for number in re.findall(r"[\d.]+", shape.get("points") or shape.get("d"))]
        for shape in shapes
        if tuple(map(int, re.findall(r"\d+", shape.get(attribute)))) == rgb
    ]


@pytest.fixture(name="picture")
def fixture_picture():
    """A goal beyond its bar, one within it, one beyond all; and a figure that is not shown."""
    start = {"kelvo-pwr": [20], "bare loop": [10], "kelvo-pwr, small build": [100]}
    figures = [
        Figure("start", "time", "ms", 1, start),
        Figure("size", "not pictured", "kB", 0, {"kelvo-pwr": [1]}),
        Figure("status", "other", "", 0, {"kelvo-pwr": [3]}),
    ]
    goals = [
        Goal("start", "kelvo-pwr", 4, times="bare loop"),
        Goal("start", "kelvo-pwr, small build", 50),
        Goal("status", "kelvo-pwr", 5),
    ]
    return ElementTree.fromstring(chart(figures, goals))


def test_the_picture_has_a_group_for_each_figure(picture):
    assert groups(picture) == {
        "time, ms": {"kelvo-pwr": "20.0", "bare loop": "10.0", "kelvo-pwr, small build": "100.0"},
        "other": {"kelvo-pwr": "3"},
    }


def test_ten_times_as_much_is_a_decade_further(picture):
    """From 1, the power of ten below the smallest: no bar is without a length."""
    (others,) = (bar for bar in coloured(picture, "polygon", "fill", OTHERS) if bar[0] == 190)
    first, second, _ = (bar for bar in coloured(picture, "polygon", "fill", OURS) if bar[0] == 190)
    lengths = [max(bar[::2]) - 190 for bar in (others, first, second)]
    assert lengths == pytest.approx([450 / 2, 450 * 1.30103 / 2, 450], abs=0.02)
    scales = [text for _, _, _, anchor, text in texts(picture) if anchor == "middle"]
    assert scales == ["┃", "1", "10", "100", "1"]


def test_the_picture_has_a_mark_for_each_goal_and_a_legend_for_it(picture):
    marks = [path[::4] for path in coloured(picture, "path", "stroke", MARK)]
    # Of 40 and 50 between 1 and 100; of 5 at the end.
    assert marks[0] == pytest.approx([190 + 450 * 0.80103, 190 + 450 * 0.849485], abs=0.02)
    assert marks[1] == pytest.approx([640], abs=0.02)
    legend = [text for y, _, _, _, text in texts(picture) if y < 40]
    assert legend[1:] == ["kelvo-pwr", "others", "┃", "goal: at most"]


def test_a_value_stands_beyond_a_mark_that_is_behind_its_bar(picture):
    (mark, *_), *_ = (path[::4] for path in coloured(picture, "path", "stroke", MARK))
    (value,) = (x for _, x, _, _, text in texts(picture) if text == "20.0")
    assert value > mark


def test_the_picture_in_the_docs_shows_what_the_table_does():
    table = json.loads((DOCS / "figures" / "cost_programs.json").read_text())
    of_table = {
        column: {row[0]: row[place] for row in table["rows"] if row[place] != "-"}
        for place, column in enumerate(table["columns"])
    }
    of_picture = groups(ElementTree.parse(DOCS / "cost.svg"))
    assert len(of_picture) == 6
    assert of_picture == {heading: of_table[heading] for heading in of_picture}


def counted(*changes):
    """Results at the goals, but for these."""
    results = {
        "wake-ups": {DEFAULT: [60], SMALL: [60]},
        "calls": {DEFAULT: [2], SMALL: [2], OVERDUE: [3]},
        "instructions": {DEFAULT: [1.2], BARE: [1]},
        "memory": {SMALL: [2000]},
    }
    for figure, program, value in changes:
        results[figure][program] = [value]
    return results


def test_counts_at_their_goals_reach_them():
    verdicts = judge_counts(counted())
    assert len(verdicts) == len(COUNTED_GOALS) == 7
    assert all(verdict.reached for verdict in verdicts)


@pytest.mark.parametrize(
    "figure, program, value",
    [
        ("wake-ups", DEFAULT, 61),
        ("wake-ups", SMALL, 61),
        ("calls", DEFAULT, 121 / 60),
        ("calls", SMALL, 121 / 60),
        ("calls", OVERDUE, 181 / 60),
        ("instructions", DEFAULT, 1.201),
        ("memory", SMALL, 2004),
    ],
)
def test_a_count_one_beyond_its_goal_misses_it(figure, program, value):
    verdicts = judge_counts(counted((figure, program, value)))
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
    assert bytes_by_part(linker_map, 0x200) == {
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
    assert found == {
        "family": (0.5 + 0.25 + 0.125, 1),
        "other": (0.25 + 0.25, 2),
    }


def test_what_ran_when_the_record_began_is_left_out():
    found = accounts([switch(5, 7, "S", 0)], {7: "ours"})
    assert found == {"ours": (0, 0)}


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
