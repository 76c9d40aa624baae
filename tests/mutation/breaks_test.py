"""Which breaks there are of a made-up source."""

import json
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))

import moves  # noqa: E402
import results  # noqa: E402
from breaks import breaks_of  # noqa: E402
from checkout import ROOT, compiled_files  # noqa: E402

_SOURCE = """\
namespace {

void guard()
{
  int left = 3;
  if (isLow()) {
    warn();
    return;
  }
  send("a {",
       left);
  finish();
}

}  // namespace
"""


def moved():
    """The calls and blocks of the source in each other order that is tried."""
    lines = _SOURCE.split("\n")
    orders = set()
    for first, last, changed in moves.of(lines):
        text = "\n".join(lines[:first] + changed + lines[last:])
        words = ("int left", "if (isLow", "warn", "send", "finish")
        orders.add(" ".join(sorted(words, key=text.index)))
    return orders


def test_a_statement_moves_over_lines_and_blocks_but_not_over_what_it_needs():
    assert moved() == {
        "int left send if (isLow warn finish",
        "int left send finish if (isLow warn",
        "int left if (isLow warn finish send",
        "int left finish if (isLow warn send",
        "finish int left if (isLow warn send",
    }


def test_a_break_is_named_by_what_differs(tmp_path):
    (tmp_path / "a.cpp").write_text(_SOURCE)
    diffs = [one.diff() for one in breaks_of(tmp_path, "a.cpp")]
    assert "@@ -1 +1 @@\n-  int left = 3;\n+  int left = 4;" in diffs
    assert "@@ -1 +0,0 @@\n-  finish();" in diffs
    assert "@@ -0,0 +1 @@\n+  finish();\n@@ -3 +3,0 @@\n-  finish();" in diffs


def test_only_what_the_build_compiles_is_broken():
    found = compiled_files()
    assert "src/app/main.cpp" in found and "src/shared/records.h" in found
    version_2 = subprocess.run(["pkg-config", "--atleast-version=2", "libgpiod"], check=False)
    beside = [name for name in found if name.startswith("src/gpio/v2/")]
    assert bool(beside) == (version_2.returncode == 0)
    assert all((ROOT / name).is_file() for name in found)


def test_the_page_has_the_survivors_that_are_known():
    kept = json.loads((ROOT / "docs" / "figures" / "survivors.json").read_text())
    table = results.table_of_survivors()
    assert (kept["columns"], kept["rows"]) == (table["columns"], table["rows"])


def test_each_known_survivor_is_a_break_of_the_source():
    """What has changed since must be looked at again."""
    breaks = {(one.file, one.diff()) for name in compiled_files() for one in breaks_of(ROOT, name)}
    known = {(one["file"], "\n".join(one["diff"])) for one in results.KNOWN}
    assert known <= breaks
