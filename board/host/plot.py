"""Pictures by gnuplot, all with one look."""

import os
import subprocess
from html import escape

LARGE = "sans-serif,15"
INK, FAINT, BAND = "#475569", "#dbe3ec", "#f1f5f9"
OURS, OTHERS, MARK = "#1b6ac9", "#94a3b8", "#c2410c"

# On white whatever is around it, so that it can be read on a dark page, too.
_LOOK = """\
set encoding utf8
set terminal svg size {width},{height} dynamic noenhanced font "sans-serif,11" background "#ffffff"
set label {title} at screen 0, screen 1 offset character 1.5, -1.2 font "{large}"
set border 0
set tics scale 0
set grid back linetype 1 linewidth 1 linecolor rgb "{faint}"
set style fill solid noborder
"""


def quoted(text: str) -> str:
    """As a string of gnuplot's language, or of its data."""
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def plot(title: str, width: int, height: int, script: str) -> str:
    """The SVG of so many pixels that this script of gnuplot makes."""
    look = _LOOK.format(width=width, height=height, title=quoted(title), faint=FAINT, large=LARGE)
    done = subprocess.run(
        ["gnuplot", "--default-settings"],
        input=look + script,
        env={**os.environ, "LC_ALL": "C.UTF-8"},
        stdout=subprocess.PIPE,
        text=True,
        check=True,
    )
    return done.stdout.replace("<title>Gnuplot</title>", f"<title>{escape(title)}</title>", 1)
