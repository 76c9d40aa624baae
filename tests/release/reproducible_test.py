"""The same sources make the same files: built once more, elsewhere and later, by somebody else's ways.

BUILDS has the folders of the release and the small build, PACKAGE_FOLDER the package.
"""

import os
import subprocess
from pathlib import Path

import pytest

PROJECT = Path(__file__).parent.parent.parent
RELEASE, SMALL = map(Path, os.environ["BUILDS"].split(":"))
PACKAGES = Path(os.environ["PACKAGE_FOLDER"])
OTHER_WAYS = {"LC_ALL": "C", "TZ": "Pacific/Kiritimati", "HOME": "/nonexistent"}


@pytest.fixture(scope="module")
def elsewhere(tmp_path_factory):
    """A copy of the sources in a folder of another name, and of another length of name."""
    folder = tmp_path_factory.mktemp("a folder of another name".replace(" ", "-")) / "sources"
    folder.mkdir()
    listing = ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"]
    files = subprocess.check_output(listing, cwd=PROJECT)
    pack = ["tar", "--create", "--null", "--files-from=-"]
    packed = subprocess.run(pack, input=files, cwd=PROJECT, check=True, stdout=subprocess.PIPE)
    unpack = ["tar", "--extract", "--no-same-permissions"]
    subprocess.run(unpack, input=packed.stdout, cwd=folder, check=True, umask=0o077)
    return folder


def run(folder, *argv, **environment):
    done = subprocess.run(
        argv,
        cwd=folder,
        env={"PATH": os.environ["PATH"], **OTHER_WAYS, **environment},
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        umask=0o077,
    )
    assert done.returncode == 0, done.stdout[-3000:]


def same(one, other):
    return one.read_bytes() == other.read_bytes()


def test_the_small_build(elsewhere):
    run(elsewhere, "cmake", "--preset", "small")
    run(elsewhere, "cmake", "--build", "--preset", "small", "--parallel", str(os.cpu_count()))
    for program in ("kelvo-pwr", "service/kelvo-pwr-end"):
        assert same(elsewhere / "build/small" / program, SMALL / program)


def test_the_release_preset_with_its_debug_information(elsewhere):
    """By the smaller of its two programs; both have the same flags."""
    program = "service/kelvo-pwr-end"
    run(elsewhere, "cmake", "--preset", "release", "-DBUILD_TESTING=OFF")
    run(elsewhere, "cmake", "--build", "--preset", "release", "--target", "kelvo-pwr-end")
    assert same(elsewhere / "build/release" / program, RELEASE / program)


def test_the_packages(elsewhere):
    """Without their unit tests, which are not in them."""
    options = f"nocheck parallel={os.cpu_count()}"
    words = ["dpkg-buildpackage", "--build=binary", "--no-sign"]
    run(elsewhere, *words, DEB_BUILD_OPTIONS=options)
    made = sorted(elsewhere.parent.glob("*.deb"))
    # Each with its debug symbols.
    assert len(made) == 2 * (PROJECT / "debian/control").read_text().count("\nPackage: ")
    for package in made:
        assert same(package, PACKAGES / package.name), package.name
