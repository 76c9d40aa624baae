"""Programs under observation outside the board; run by pytest on the host."""

import os

from guest.process import run


def test_output_is_read_where_nobody_may_run_ahead_of_the_program(monkeypatch):
    def refuse(*_):
        raise PermissionError

    monkeypatch.setattr(os, "sched_setscheduler", refuse)
    assert run(["sh", "-c", "echo out; echo err >&2; exit 3"]) == ("out\n", "err\n", 3)
