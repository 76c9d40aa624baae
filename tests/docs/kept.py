"""Hands results over to scripts/figures, with the day and the sources that they are of."""

import json
import subprocess
from datetime import date
from pathlib import Path

_ROOT = Path(__file__).resolve().parent.parent.parent


def keep(name: str, kept: dict) -> None:
    # Of the folder, not of a commit: it stays the same where a commit is made again.
    words = ["git", "rev-parse", "--short", "HEAD:src"]
    sources = subprocess.check_output(words, cwd=_ROOT, text=True).strip()
    values = {"date": str(date.today()), "src": sources, **kept.get("values", {})}
    words = [_ROOT / "scripts" / "figures", "--keep", name]
    subprocess.run(words, input=json.dumps({**kept, "values": values}), text=True, check=True)
