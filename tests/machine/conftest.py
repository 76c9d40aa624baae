import sys
from pathlib import Path

HERE = Path(__file__).parent
TESTS = HERE.parent
sys.path[:0] = map(str, (HERE, TESTS / "system", TESTS.parent / "board"))
