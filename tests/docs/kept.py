"""Hands results over to scripts/figures, a text with the day and the sources that it is of."""

import json
import subprocess
from datetime import date
from pathlib import Path

_ROOT = Path(__file__).resolve().parent.parent.parent


def sources() -> str:
    """What the committed src is named by: of the folder, it stays where a commit is made again."""
    words = ["git", "rev-parse", "--short", "HEAD:src"]
    return subprocess.check_output(words, cwd=_ROOT, text=True).strip()


def keep(name: str, kept: dict, docs: Path = _ROOT / "docs") -> None:
    """Has the pages in this folder show them."""
    if "text" in kept:
        own = {"date": str(date.today()), "src": sources()}
        kept = {**kept, "values": {**own, **kept.get("values", {})}}
    words = [_ROOT / "scripts" / "figures", "--keep", name, docs]
    subprocess.run(words, input=json.dumps(kept), text=True, check=True)
