"""The device tree of either machine, by the emulator that has it."""

import shutil
import subprocess

import pytest

from machine.device_tree import device_tree
from machine.emulator import command_of


@pytest.mark.parametrize("architecture", ["arm64", "armhf"])
def test_the_four_lines_have_their_names_and_nothing_else_uses_one(tmp_path, architecture):
    command = command_of(architecture)
    if not shutil.which(command[0]):
        pytest.skip(f"{command[0]} is not installed")
    tree = device_tree(command, tmp_path)

    def asked(*words):
        return subprocess.run(["fdtget", *words], capture_output=True, text=True, check=True).stdout

    names = asked("-ts", tree, "/pl061@9030000", "gpio-line-names")
    assert names == "    PWR-IN BAT-T1 BAT-T2 BAT-SW\n"
    assert "gpio-keys" not in asked("-l", tree, "/").splitlines()
