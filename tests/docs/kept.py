"""Hands results over to scripts/figures, a text with the day and the sources that it is of."""

import json
import subprocess
from datetime import date
from pathlib import Path

_ROOT = Path(__file__).resolve().parent.parent.parent


def keep(name: str, kept: dict, docs: Path = _ROOT / "docs") -> None:
    """Has the pages in this folder show them."""
    if "text" in kept:
        # Of the folder, not of a commit: it stays the same where a commit is made again.
        words = ["git", "rev-parse", "--short", "HEAD:src"]
        sources = subprocess.check_output(words, cwd=_ROOT, text=True).strip()
        own = {"date": str(date.today()), "src": sources}
        kept = {**kept, "values": {**own, **kept.get("values", {})}}
    words = [_ROOT / "scripts" / "figures", "--keep", name, docs]
    subprocess.run(words, input=json.dumps(kept), text=True, check=True)
