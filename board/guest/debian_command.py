"""Runs the one command of a board with a booted Debian, then switches the board off."""

import json
import subprocess
from contextlib import ExitStack
from pathlib import Path

_SCRATCH = Path("/run/board/scratch")


def main() -> None:
    task = json.loads((_SCRATCH / "task.json").read_text())
    (_SCRATCH / "outcome").write_text(json.dumps(outcome(task)))
    subprocess.run(["systemctl", "poweroff"], check=True)


def outcome(task: dict) -> dict:
    with ExitStack() as files:
        stdout, stderr = (
            files.enter_context((_SCRATCH / task["outputs"][number]).open("ab"))
            for number in ("1", "2")
        )
        try:
            done = subprocess.run(
                task["command"],
                cwd=f"/host{task['directory']}",
                env=environment(task),
                stdin=subprocess.DEVNULL,
                stdout=stdout,
                stderr=stderr,
                timeout=task["longest_seconds"],
            )
        except subprocess.TimeoutExpired:
            seconds = task["longest_seconds"]
            return {"failure": f"still running after {seconds} seconds of the board's time"}
        except OSError as error:
            return {"failure": str(error)}
    code = done.returncode
    return {"status": 128 - code if code < 0 else code}


def environment(task: dict) -> dict[str, str]:
    """The caller's, with the system's own paths."""
    return {
        **task["environment"],
        "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
        "HOME": "/root",
        "TMPDIR": "/tmp",
        "PYTHONPATH": "/run/board/library",
        "BOARD_OUTPUT": str(_SCRATCH / "output"),
    }


if __name__ == "__main__":
    main()
