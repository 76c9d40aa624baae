"""The kernel's recipe before anything is compiled; run by pytest on the host."""

import pytest

from host import kernel
from host.problems import BoardFailure, Unavailable

BEFORE = 30  # lines in front of those that a patch names
PATCHES = kernel._patches("linux-source-6.1")


def source_of(folder, patch):
    """Makes the one file that the patch is for, of no more lines than it names."""
    head, hunk = patch.read_text().split("\n@@ ")
    file = folder / head.split("+++ b/")[1]
    file.parent.mkdir(parents=True, exist_ok=True)
    lines = [line[1:] for line in hunk.splitlines()[1:] if line[0] in " -"]
    file.write_text("\n".join(["before"] * BEFORE + lines + ["after"]))
    return file


@pytest.fixture
def sources(tmp_path):
    return [source_of(tmp_path / "source", patch) for patch in PATCHES]


def test_patches_change_a_source_that_they_fit(tmp_path, sources):
    before = [file.read_text() for file in sources]
    kernel._change(tmp_path / "source", PATCHES, tmp_path / "log")
    assert before
    assert all(file.read_text() != text for file, text in zip(sources, before))


NO_LONGER_FITS = pytest.raises(
    BoardFailure, match=r"(?s)^patch failed:\n.*FAILED.*\(all of it: .*/log\)$"
)


def test_a_version_has_patches_of_its_own():
    names = [[patch.name for patch in kernel._patches(f"linux-source-{v}")] for v in ("6.1", "6.12")]
    of_all = ["long-waits.patch", "register-state.patch"]
    assert names == [[*of_all, "faults-around.patch"], of_all]


@pytest.mark.parametrize("number", range(len(PATCHES)))
def test_a_source_that_differs_beside_a_change_ends_the_build(tmp_path, sources, number):
    lines = sources[number].read_text().splitlines()
    lines[BEFORE] = "other"
    sources[number].write_text("\n".join(lines))
    with NO_LONGER_FITS:
        kernel._change(tmp_path / "source", PATCHES, tmp_path / "log")


def test_a_source_that_is_changed_already_ends_the_build(tmp_path, sources):
    kernel._change(tmp_path / "source", PATCHES, tmp_path / "log")
    with NO_LONGER_FITS:
        kernel._change(tmp_path / "source", PATCHES, tmp_path / "log")


def test_the_source_is_that_of_this_debian(monkeypatch, tmp_path):
    monkeypatch.setattr(kernel, "_installed", lambda *_: "linux-source-7.0 (= 7.0.1-1)")
    monkeypatch.setattr(kernel, "_tarball", lambda package: tmp_path / package)
    with pytest.raises(Unavailable, match="^the package linux-source-7.0 is not installed$"):
        kernel._package()
    (tmp_path / "linux-source-7.0").touch()
    assert kernel._package() == "linux-source-7.0"


def test_an_option_that_was_dropped_is_named(tmp_path):
    asked_for, in_force = tmp_path / "asked-for", tmp_path / "in-force"
    asked_for.write_text("# Why.\nCONFIG_A=y\nCONFIG_B=y\nCONFIG_C=4\n")
    in_force.write_text("CONFIG_A=y\n# CONFIG_B is not set\nCONFIG_C=2\nCONFIG_D=y\n")
    with pytest.raises(BoardFailure, match="^the kernel has no CONFIG_B=y, CONFIG_C=4$"):
        kernel._check_options(asked_for, in_force)
    in_force.write_text("CONFIG_A=y\nCONFIG_B=y\nCONFIG_C=4\n")
    kernel._check_options(asked_for, in_force)
