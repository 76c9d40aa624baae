"""The device tree of a machine: the emulator's own, with the overlay that the project ships."""

import re
import subprocess
from pathlib import Path

OVERLAY = Path(__file__).parents[2] / "packaging/devicetree/kelvo-pwr-lines.dts"

# The emulator's own use of a line: a key that nobody presses.
_KEYS = re.compile(r"\n\tgpio-keys \{.*?\n\t\};\n", re.DOTALL)
_CONTROLLER = re.compile(r"\n\t(pl061@[0-9a-f]+ \{)")


def device_tree(emulator: list[str], folder: Path) -> Path:
    """Of the machine that this command would start. The overlay's gpio1 is its one controller."""
    dumped, source = folder / "dumped.dtb", folder / "machine.dts"
    machine = emulator.index("-M") + 1
    dump = [*emulator]
    dump[machine] += f",dumpdtb={dumped}"
    _run(*dump)
    text = _run("dtc", "-q", "-I", "dtb", "-O", "dts", dumped)
    source.write_text(_CONTROLLER.sub(r"\n\tgpio1: \1", _KEYS.sub("\n", text), count=1))
    base, overlay, result = (folder / name for name in ("base.dtb", "lines.dtbo", "machine.dtb"))
    for made_of, made in ((source, base), (OVERLAY, overlay)):
        _run("dtc", "-q", "-@", "-I", "dts", "-O", "dtb", "-o", made, made_of)
    _run("fdtoverlay", "-i", base, "-o", result, overlay)
    return result


def _run(*command) -> str:
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout
