"""How the place to fetch Debian from is found; run by pytest on the host."""

from host import debootstrap

TARGETS = """\
http://tools.example/apt main stable stable Tools of somebody else
http://debian.example/debian main bookworm stable Debian
"""


def test_sources_whose_label_has_blanks_are_passed_over(monkeypatch):
    monkeypatch.setattr(debootstrap, "this_release", lambda: "bookworm")
    monkeypatch.setattr(debootstrap, "_asked", lambda *question: TARGETS)
    assert debootstrap.mirror() == "http://debian.example/debian"
