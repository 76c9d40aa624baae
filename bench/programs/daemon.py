"""A daemon with a configuration of its own."""

import time
from pathlib import Path
from typing import Optional

FULL = "test.battery=true"


def daemon(
    program: str, folder: Path, *settings: str, last_test: Optional[float] = None
) -> list[str]:
    """Its command line, with this folder for its files; its last test was now, never if 0."""
    folder.mkdir(exist_ok=True)
    result, conf = folder / "result", folder / "conf"
    seconds = round(time.time() if last_test is None else last_test)
    result.write_text(f"result.start={seconds}\nresult.end={seconds}\n")
    conf.write_text("\n".join([f"sys.save.path={result}", *settings, ""]))
    return [program, "-c", str(conf)]
