"""A daemon with a configuration of its own."""

from pathlib import Path

FULL = "test.battery=true"


def daemon(program: str, folder: Path, *settings: str, last_test: float) -> list[str]:
    """Its command line, with this folder for its files; `last_test` is 0 when there was none."""
    folder.mkdir(exist_ok=True)
    result, conf = folder / "result", folder / "conf"
    if last_test:
        result.write_text(f"result.start={last_test:.0f}\nresult.end={last_test:.0f}\n")
    conf.write_text("".join(f"{line}\n" for line in (f"sys.save.path={result}", *settings)))
    return [program, "-c", str(conf)]
