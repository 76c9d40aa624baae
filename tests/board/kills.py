"""A daemon that is killed at any moment, what it leaves, and the daemon started after it."""

from guest.lines import AT2, BAT_SW

SIGKILL = 9

# What the outputs are pulled to on this board: not to where the daemon has them.
RELEASED = (1, 0)
GUARDED = (0, 1)


def levels(rig):
    return rig.board.at2.level(), rig.board.bat_sw.level()


def writes(rig, daemon):
    """What this daemon wrote to BAT-T2, and to BAT-SW."""
    return tuple(
        [
            event.level
            for event in rig.trace.events()
            if (event.kind, event.line, event.process) == ("write", name, daemon.pid)
        ]
        for name in (AT2, BAT_SW)
    )


def left_behind(rig, daemon):
    """All that a killed daemon leaves that the next one, or a client, goes by."""
    status = rig.status()
    return (
        rig.result_file.read_text(),
        writes(rig, daemon),
        levels(rig),
        status["testing"],
        status["batteryEmpty"],
    )


def assert_next_daemon_guards(rig, moment):
    """It has AC power and the battery connected from its request on, and keeps the file."""
    saved = rig.result_file.read_text()
    rig.configure("test.battery=true", "test.hour=-1")
    rig.trace.clear()
    daemon = rig.daemon()
    daemon.wait_for_line("Full server", within=0.1)
    found = (levels(rig), writes(rig, daemon), daemon.stderr)
    assert found == (GUARDED, ([0], [1]), ""), moment
    assert rig.result_file.read_text() == saved, moment
    daemon.kill()
    rig.trace.clear()
