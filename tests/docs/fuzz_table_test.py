"""The table of fuzzing, of made-up logs."""

import json
import subprocess
from pathlib import Path

_SCRIPT = Path(__file__).resolve().parent / "fuzz_table"


def test_each_log_has_a_row(tmp_path):
    logs = [tmp_path / "b.log", tmp_path / "a.log"]
    logs[0].write_text("#7 DONE cov: 1\nDone 1234567 runs in 61 second(s)\nstat::a: 1\n")
    logs[1].write_text("Done 5 runs in 1801 second(s)\n")
    kept = json.loads(subprocess.check_output([_SCRIPT, *logs], text=True))
    assert kept["rows"] == [["`b`", "1,234,567", "61"], ["`a`", "5", "1,801"]]


def test_a_log_that_was_broken_off_is_refused(tmp_path):
    log = tmp_path / "a.log"
    log.write_text("#7 NEW cov: 1\n")
    assert subprocess.run([_SCRIPT, log], capture_output=True).returncode == 1
