"""Daemons that go the way a test is about as soon as they are up, and its system calls."""

from rig import SECOND
from system_calls import calls_in, noting

from guest.clock import now, set_wall, sleep_until

# A quarter past two in the afternoon, by UTC.
A_TIME = 1_790_000_000
A_TIME_HOUR = 14


def times(start, end):
    return f"result.start={start}\nresult.end={end}\n"


LAST_TEST = times(1_780_000_000, 1_780_000_600)


def begin_idle(rig, before=()):
    """A full server that stays idle."""
    return _begin(rig, before, "test.hour=-1")


def begin_test(rig, before=(), seconds=1):
    """A daemon that starts a test at its first look."""
    set_wall(A_TIME + 0.5)
    return _begin(
        rig, before, "test.init.disable=0", f"test.hour={A_TIME_HOUR}", f"test.duration={seconds}"
    )


def begin_shutdown(rig, before=()):
    """A daemon that finds AC power gone and the battery empty at its first look."""
    rig.board.battery(False)
    rig.board.ac(False)
    return _begin(rig, before, "test.hour=-1", "test.shut.timeout=0", "test.shut.cutoff=0")


def _begin(rig, before, *settings):
    rig.result_file.write_text(LAST_TEST)
    rig.configure("test.battery=true", *settings)
    return rig.daemon(before=before, env={"TZ": "UTC"})


def find(calls, *texts):
    """Where the calls are that have all these texts in them."""
    return [i for i, call in enumerate(calls) if all(text in call.text for text in texts)]


def rehearse(rig, begin, *lines):
    """The calls of an undisturbed run to the sleep after these lines, and where its loop begins."""
    log = rig.folder / "rehearsal"
    daemon = begin(rig, before=noting(log))
    for line in lines:
        daemon.wait_for_line(line, within=60)
    sleep_until(now() + SECOND // 2)
    daemon.kill()
    rig.trace.clear()
    calls = calls_in(log)
    (first,) = find(calls, "write(1", "Full server")
    return calls, first + 1
