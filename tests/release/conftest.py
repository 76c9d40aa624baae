import sys
from pathlib import Path

HERE = Path(__file__).parent
sys.path[:0] = map(str, (HERE, HERE.parent.parent / "board"))
