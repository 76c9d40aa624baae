"""How the place to fetch Debian from is found; run by pytest on the host."""

from host import mmdebstrap

TARGETS = """\
http://tools.example/apt main stable stable Tools of somebody else
http://debian.example/debian main bookworm stable Debian
"""


def test_sources_whose_label_has_blanks_are_passed_over(monkeypatch):
    monkeypatch.setattr(mmdebstrap, "this_release", lambda: "bookworm")
    monkeypatch.setattr(mmdebstrap, "_asked", lambda *question: TARGETS)
    assert mmdebstrap.mirror() == "http://debian.example/debian"
