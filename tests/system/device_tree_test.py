"""The overlay that names the lines, compiled and applied as for a board. Runs on the host."""

import re
import subprocess

from pages import PROJECT

OVERLAY = PROJECT / "packaging/devicetree/kelvo-pwr-lines.dts"
BOARD = """
/dts-v1/;
/ {
	gpio0: gpio@0 { gpio-line-names = "LED"; };
	gpio1: gpio@1 { gpio-line-names = "A", "B", "C", "D"; };
};
"""


def run(*words):
    done = subprocess.run(words, capture_output=True, text=True)
    assert (done.returncode, done.stderr) == (0, "")
    return done.stdout


def compiled(source, result):
    # The board above has no registers to speak of.
    run("dtc", "-@", "-Wno-unit_address_vs_reg", "-I", "dts", "-O", "dtb", "-o", result, source)
    return result


def test_it_names_the_lines_in_their_places(tmp_path):
    source = tmp_path / "board.dts"
    source.write_text(BOARD)
    board = compiled(source, tmp_path / "board.dtb")
    overlay = compiled(OVERLAY, tmp_path / "overlay.dtbo")
    merged = tmp_path / "merged.dtb"
    run("fdtoverlay", "-i", board, "-o", merged, overlay)

    names = run("fdtget", "-ts", merged, "/gpio@1", "gpio-line-names").removesuffix("\n").split(" ")
    sample = (PROJECT / "packaging/kelvo-pwr.conf").read_text()
    assert names == [""] * 4 + re.findall(r"^#gpio\.\S+=(\S+)$", sample, re.MULTILINE)
    assert run("fdtget", "-ts", merged, "/gpio@0", "gpio-line-names") == "LED\n"


def test_the_page_shows_the_same():
    page = (PROJECT / "docs/wiring.md").read_text()
    (example,) = re.findall(r"```dts\n(.*?)```", page, re.DOTALL)
    assert OVERLAY.read_text().endswith(f"/plugin/;\n\n{example}")
