"""What bash and zsh offer after kelvo-pwr."""

import re
import shlex
import subprocess
from pathlib import Path

import pytest

from program_help import settings, switches

COMPLETIONS = Path(__file__).parent.parent.parent / "packaging" / "completions"

IN_BASH = """
. /usr/share/bash-completion/bash_completion
. {script}
compopt() {{ echo "$@"; }}
COMP_LINE={line}
COMP_POINT=${{#COMP_LINE}}
COMP_WORDS=({words})
COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1))
_kelvo_pwr
printf '%s\\n' "${{COMPREPLY[@]}}"
"""


def said(command, directory=None):
    """What a shell prints, which finds nothing to complain of."""
    result = subprocess.run(command, capture_output=True, text=True, cwd=directory)
    assert (result.stderr, result.returncode) == ("", 0)
    return result.stdout


def bash(typed, directory=None):
    """What bash offers at the end of what has been typed after the name of the program."""
    line = f"kelvo-pwr {typed}"
    # For bash a "=" is a word of its own.
    words = re.findall("=|[^ =]+", line) + ([""] if line.endswith(" ") else [])
    script = IN_BASH.format(
        script=shlex.quote(str(COMPLETIONS / "kelvo-pwr")),
        line=shlex.quote(line),
        words=shlex.join(words),
    )
    return said(["bash", "-c", script], directory).split("\n")[:-1]


def zsh():
    """What zsh is given: option, description, what it says of the value, how it completes it."""
    path = shlex.quote(str(COMPLETIONS / "_kelvo-pwr"))
    printed = said(["zsh", "-fc", f'_arguments() {{ print -rl -- "$@" }}; . {path}'])
    form = re.compile(r"(?:\(.*?\)|\*)?(--?[\w.-]+=?)\[(.*)\](?::(.*):(.*))?")
    head, *lines = printed.splitlines()
    assert head == "-s"
    return [form.fullmatch(line).groups(default="") for line in lines]


def test_bash_offers_every_option():
    expected = {f"-{switch.short}" for switch in switches()}
    expected |= {f"--{switch.name}" for switch in switches()}
    expected |= {f"--{setting.name}=" for setting in settings()}
    offered = bash("")
    assert set(offered) == expected
    assert len(offered) == len(expected)


def test_bash_puts_no_blank_between_a_setting_and_its_value():
    assert bash("--test.du") == ["-o nospace", "--test.duration="]
    assert bash("--st") == ["--status"]


@pytest.mark.parametrize("setting", settings(), ids=lambda setting: setting.name)
def test_bash_offers_a_setting_s_default_first(setting):
    assert bash(f"--{setting.name}=")[0] == setting.default
    assert bash(f"--{setting.name} ")[0] == setting.default


def test_bash_offers_the_words_that_a_setting_knows():
    assert bash("--test.battery=") == ["false", "true"]
    assert bash("--test.external-scheduling=t") == ["true"]
    assert bash("--test.shut.cmd=") == ["reboot", "poweroff"]
    assert bash("-v --test.shut.cmd=p") == ["poweroff"]


@pytest.mark.parametrize("option", ["-c", "--conf"])
def test_bash_offers_files_for_a_configuration(option, tmp_path):
    (tmp_path / "own.conf").touch()
    assert bash(f"{option} o", directory=tmp_path)[-1] == "own.conf"


def test_zsh_has_every_switch_with_its_description():
    expected = [
        (option, switch.description)
        for switch in switches()
        for option in (f"-{switch.short}", f"--{switch.name}")
    ]
    assert [(option, text) for option, text, _, _ in zsh() if "." not in option] == expected


def test_zsh_has_every_setting_with_its_description_and_default():
    found = [
        (option, re.search(r"\((.*)\)$", value)[1], text)
        for option, text, value, _ in zsh()
        if "." in option
    ]
    assert found == [(f"--{name}=", default, text) for name, default, text in settings()]


def test_zsh_offers_files_and_the_words_that_a_setting_knows():
    actions = {option: action for option, _, _, action in zsh() if action.strip()}
    assert actions == {
        "-c": "_files",
        "--conf": "_files",
        "--test.battery=": "(false true)",
        "--test.external-scheduling=": "(false true)",
        "--test.shut.cmd=": "(reboot poweroff)",
    }
