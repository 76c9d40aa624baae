"""Medians, ratios, verdicts, tables and picture of made-up measurements."""

import xml.etree.ElementTree as ElementTree

import pytest

from accounts import accounts
from calls import count
from chart import chart
from figures import Figure, Goal, judge
from table import goal_rows, markdown, plain, program_rows

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
    assert markdown(rows) == "| A | Longer |\n| --- | --- |\n| wide | x |\n"


def test_the_picture_has_a_bar_for_each_program_and_a_mark_for_a_goal():
    goals = [Goal("memory", "ours", 1.05, times="theirs"), Goal("memory", "ours", 5000)]
    svg = "{http://www.w3.org/2000/svg}"
    picture = ElementTree.fromstring(chart([MEMORY], goals, "<Title>"))
    assert picture.find(f"{svg}title").text == "<Title>"
    background, *bars = picture.iter(f"{svg}rect")
    ours, theirs = (float(bar.get("width")) for bar in bars)
    assert theirs / ours == pytest.approx(1000 / 1300, abs=0.001)
    # A goal beyond the longest bar has no place.
    (mark,) = picture.iter(f"{svg}line")
    left = float(bars[0].get("x"))
    assert (float(mark.get("x1")) - left) / ours == pytest.approx(1050 / 1300, abs=0.001)


def test_a_value_stands_beyond_a_mark_that_is_behind_its_bar():
    figure = Figure("memory", "kB", 0, {"ours": [1000], "theirs": [2000]})
    svg = "{http://www.w3.org/2000/svg}"
    picture = ElementTree.fromstring(chart([figure], [Goal("memory", "ours", 1100)], ""))
    (mark,) = picture.iter(f"{svg}line")
    (value,) = (text for text in picture.iter(f"{svg}text") if text.text == "1,000")
    assert float(value.get("x")) > float(mark.get("x1"))


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
