"""A daemon with a configuration of its own."""

import time
from pathlib import Path
from typing import Optional

FULL = "test.battery=true"


def daemon(
    program: str, folder: Path, *settings: str, last_test: Optional[float] = None
) -> list[str]:
    """Its command line, with this folder for its files; its last test was now, none if 0."""
    folder.mkdir(exist_ok=True)
    result, conf = folder / "result", folder / "conf"
    if last_test != 0:
        seconds = round(last_test or time.time())
        result.write_text(f"result.start={seconds}\nresult.end={seconds}\n")
    conf.write_text("".join(f"{line}\n" for line in (f"sys.save.path={result}", *settings)))
    return [program, "-c", str(conf)]
