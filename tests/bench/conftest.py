import sys
from pathlib import Path

ROOT = Path(__file__).parent.parent.parent

sys.path[:0] = [str(ROOT / "bench"), str(ROOT / "board")]
