"""The README and the manual pages have every option, with its default, as the program does."""

import re
from pathlib import Path

from program_help import file_settings, settings, switches

PROJECT = Path(__file__).parent.parent.parent
MANUAL = PROJECT / "packaging" / "man"


def names_and_defaults(options):
    return [(name, default) for name, default, _ in options]


def documented_defaults(page, pattern):
    """What a page says of each setting's default, in its order."""
    return [(key, value.strip("`")) for key, value in re.findall(pattern, page, re.MULTILINE)]


def test_there_are_options():
    assert (len(switches()), len(settings()), len(file_settings())) == (6, 13, 4)


def test_the_readme_has_every_setting():
    readme = (PROJECT / "README.md").read_text()
    found = documented_defaults(readme, r"^\| `--(\w+\.[\w.-]+)` \| (\S+) \|")
    assert found == names_and_defaults(settings())


def test_the_readme_has_every_switch():
    readme = (PROJECT / "README.md").read_text()
    found = re.findall(r"^\| `-(\w)`, `--([\w-]+)(?: FILE)?` \| \|", readme, re.MULTILINE)
    assert sorted(found) == sorted((short, name) for short, name, _ in switches())


def test_the_manual_page_has_every_setting():
    page = (MANUAL / "kelvo-pwr.8").read_text()
    found = documented_defaults(page, r"^\.It Cm (\w+\.[\w.-]+) Pq (?:Ql )?(\S+)$")
    on_command_line = [(key, default) for key, default in found if not key.startswith("sys.")]
    assert on_command_line == names_and_defaults(settings())


def test_the_manual_page_has_every_switch():
    page = (MANUAL / "kelvo-pwr.8").read_text()
    found = re.findall(r"^\.It Fl (\w) , Fl -([\w-]+)", page, re.MULTILINE)
    assert sorted(found) == sorted((short, name) for short, name, _ in switches())


def test_the_configuration_s_manual_page_has_every_setting_and_its_description():
    page = (MANUAL / "kelvo-pwr.conf.5").read_text()
    found = re.findall(r"^\.It Cm (\S+) Pq (?:Ql |Pa )?(\S+)\n(.*)\.$", page, re.MULTILINE)
    assert found == settings() + file_settings()


def test_the_manual_page_s_examples_have_the_service_s_configuration():
    unit = (PROJECT / "packaging" / "systemd" / "kelvo-pwr.service").read_text()
    (configuration,) = re.findall(r"^ExecStart=.* -c (\S+)$", unit, re.MULTILINE)
    page = (MANUAL / "kelvo-pwr.8").read_text()
    assert set(re.findall(r"^\.Dl .*-c (\S+)", page, re.MULTILINE)) == {configuration}
    assert f"\n.It Pa {configuration}\n" in page
