"""scripts/release and release/again in a small checkout of their own, in which tests and builds are
stand-ins."""

import hashlib
import re
import shutil
import subprocess
from pathlib import Path

import pytest

PROJECT = Path(__file__).parent.parent.parent
MAKEFILE = "packaging/buildroot/package/kelvo-pwr/kelvo-pwr.mk"
RECIPE = "packaging/yocto/recipes-support/kelvo-pwr"
PLACES = ["CMakeLists.txt", "CHANGELOG.md", "debian/changelog", MAKEFILE]
CHANGELOG = """\
# Changes

## 7.8.9 (2026-11-22)

- The first line,
  which goes on.
- The second.

## 7.8.8

- Not this.
"""
# It builds nothing, but looks at what it is given.
BUILD = """#!/bin/sh -e
echo "builds $1"
test "$1" != "$FAILING"
tar --extract --file "$2" --to-stdout kelvo-pwr-7.8.9/CHANGELOG.md | cmp - CHANGELOG.md
mkdir -p "$3/${1%/*}"
echo "$1 ${VARYING:+in $PWD, ways $KELVO_OTHER_WAYS}" >"$3/${1%/*}/kelvo-pwr_7.8.9_${1#*/}.deb"
"""
TEST = """#!/bin/sh
test -z "$FAILING_TESTS"
"""
ENVIRONMENT = {
    "PATH": "/usr/bin:/bin",
    "HOME": "/nonexistent",
    "GIT_AUTHOR_NAME": "a",
    "GIT_AUTHOR_EMAIL": "a@example.org",
    "GIT_COMMITTER_NAME": "a",
    "GIT_COMMITTER_EMAIL": "a@example.org",
    "GIT_COMMITTER_DATE": "1700000000 +0000",
}


class Checkout:
    def __init__(self, path):
        self.path, self.dist = path, path / "dist"

    def write(self, name, text):
        file = self.path / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)

    def run(self, *argv, umask=0o22, **environment):
        return subprocess.run(
            argv,
            cwd=self.path,
            env={**ENVIRONMENT, **environment},
            capture_output=True,
            text=True,
            umask=umask,
        )

    def commit(self):
        for words in (["add", "--all"], ["commit", "--quiet", "--message", "all"]):
            assert self.run("git", *words).returncode == 0

    def release(self, *words, **more):
        return self.run("scripts/release", *words, **more)

    def files(self):
        return sorted(str(path.relative_to(self.dist)) for path in self.dist.rglob("*.*"))

    def refusal(self, *words, **environment):
        """What it says; it leaves nothing."""
        done = self.release(*(words or ["7.8.9"]), **environment)
        assert done.returncode == 1
        assert not self.dist.exists()
        return done.stdout + done.stderr.replace("scripts/release: ", "")


@pytest.fixture
def checkout(tmp_path):
    checkout = Checkout(tmp_path / "checkout")
    checkout.path.mkdir()
    for place in PLACES:
        text = (PROJECT / place).read_text()
        current = re.search(r"\d+\.\d+\.\d+", text)
        text = text.replace(current[0], "7.8.9", 1) if current else text
        checkout.write(place, text)
    checkout.write("CMakeLists.txt", "project(kelvo-pwr VERSION 7.8.9 LANGUAGES CXX)\n")
    checkout.write("CHANGELOG.md", CHANGELOG)
    checkout.write(f"{RECIPE}/kelvo-pwr_7.8.9.bb", "")
    checkout.write(".gitignore", (PROJECT / ".gitignore").read_text())
    shutil.copytree(PROJECT / "release", checkout.path / "release")
    (checkout.path / "scripts").mkdir()
    shutil.copy(PROJECT / "scripts" / "release", checkout.path / "scripts")
    for name, text in (("release/build", BUILD), ("scripts/test", TEST)):
        checkout.write(name, text)
        (checkout.path / name).chmod(0o755)
    assert checkout.run("git", "init", "--quiet").returncode == 0
    checkout.commit()
    return checkout


@pytest.fixture
def key(tmp_path):
    words = ["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", tmp_path / "key"]
    subprocess.run(words, check=True)
    return tmp_path / "key"


def test_everything_is_there_and_checked(checkout):
    done = checkout.release("7.8.9")
    assert (done.stderr, done.returncode) == ("", 0)
    packages = [
        f"{release}/kelvo-pwr_7.8.9_{machine}.deb"
        for release in ("bookworm", "trixie")
        for machine in ("amd64", "arm64", "armhf")
    ]
    assert checkout.files() == ["NOTES.md", *packages[:3], "kelvo-pwr-7.8.9.tar.xz", *packages[3:]]
    sums = (checkout.dist / "SHA256SUMS").read_text().splitlines()
    assert sums == [
        f"{hashlib.sha256((checkout.dist / name).read_bytes()).hexdigest()}  {name}"
        for name in checkout.files()
    ]
    notes = (checkout.dist / "NOTES.md").read_text()
    assert notes == "# kelvo-pwr 7.8.9\n\n- The first line,\n  which goes on.\n- The second.\n"


def test_the_sources_do_not_depend_on_who_packs_them(checkout):
    assert checkout.release("7.8.9").returncode == 0
    first = (checkout.dist / "SHA256SUMS").read_text()
    other = {"TZ": "Asia/Kathmandu", "LC_ALL": "C"}
    assert checkout.release("7.8.9", umask=0o77, **other).returncode == 0
    assert (checkout.dist / "SHA256SUMS").read_text() == first


def test_some_targets_alone(checkout):
    done = checkout.release("--only", "trixie/arm64", "--only", "bookworm/amd64", "7.8.9")
    assert done.returncode == 0
    assert [name for name in checkout.files() if name.endswith(".deb")] == [
        "bookworm/kelvo-pwr_7.8.9_amd64.deb",
        "trixie/kelvo-pwr_7.8.9_arm64.deb",
    ]


def verify(checkout, key, text):
    signers = checkout.path.parent / "signers"
    signers.write_text(f"release {key.with_suffix('.pub').read_text()}")
    signature = checkout.dist / "SHA256SUMS.sig"
    words = ["ssh-keygen", "-Y", "verify", "-f", signers, "-I", "release", "-n", "kelvo-pwr"]
    return subprocess.run([*words, "-s", signature], input=text, capture_output=True).returncode


def test_the_sums_are_signed(checkout, key):
    done = checkout.release("--key", str(key), "7.8.9")
    assert (done.stderr, done.returncode) == ("", 0)
    assert 'Good "kelvo-pwr" signature for release with ED25519 key' in done.stdout
    sums = (checkout.dist / "SHA256SUMS").read_bytes()
    assert verify(checkout, key, sums) == 0
    assert verify(checkout, key, sums + b"more") != 0
    assert b"SHA256SUMS" not in sums


def test_without_a_key_nothing_is_signed(checkout):
    assert checkout.release("7.8.9").returncode == 0
    assert not (checkout.dist / "SHA256SUMS.sig").exists()


@pytest.mark.parametrize("name", ["CHANGELOG.md", "new"])
def test_a_changed_checkout_is_refused(checkout, name):
    with (checkout.path / name).open("a") as file:
        file.write("change\n")
    assert checkout.refusal() == "the checkout has changes\n"


@pytest.mark.parametrize("place", PLACES)
def test_another_version_somewhere_is_refused(checkout, place):
    text = (checkout.path / place).read_text()
    checkout.write(place, text.replace("7.8.9", "7.8.8", 1))
    checkout.commit()
    assert checkout.refusal() == f"{place}: 7.8.8\nthe version is not 7.8.9 everywhere\n"


def test_a_recipe_of_another_version_is_refused(checkout):
    checkout.write(f"{RECIPE}/kelvo-pwr_7.8.8.bb", "")
    checkout.commit()
    assert checkout.refusal().startswith(f"{RECIPE}/*.bb: 7.8.8, 7.8.9\n")


def test_a_version_that_is_not_there_is_refused(checkout):
    assert checkout.refusal("7.9.0").endswith("the version is not 7.9.0 everywhere\n")


def test_a_version_without_notes_is_refused(checkout):
    checkout.write("CHANGELOG.md", "# Changes\n\n## 7.8.9\n\n## 7.8.8\n\n- Old.\n")
    checkout.commit()
    assert checkout.refusal() == "CHANGELOG.md says nothing of 7.8.9\n"


def test_failing_tests_are_refused(checkout):
    assert checkout.refusal(FAILING_TESTS="1") == "tests fail\n"


def test_a_failing_build_is_refused(checkout):
    said = checkout.refusal(FAILING="bookworm/armhf")
    log = "build/dist-bookworm-armhf.log"
    assert said.endswith(f"bookworm/armhf cannot be built: {log}\n")
    assert (checkout.path / log).read_text() == "builds bookworm/armhf\n"


def test_a_key_that_cannot_be_used_is_refused(checkout, tmp_path):
    (tmp_path / "key").write_text("no key\n")
    (tmp_path / "key").chmod(0o600)
    said = checkout.refusal("--key", str(tmp_path / "key"), "7.8.9")
    assert said.endswith("the key cannot be used\n")


@pytest.mark.parametrize("words", [[], ["--key"], ["1.0"], ["--only", "sid/amd64", "7.8.9"]])
def test_wrong_words_are_refused(checkout, words):
    done = checkout.release(*words)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr.startswith("usage: scripts/release ")


@pytest.fixture
def released(checkout, key):
    assert checkout.release("--key", str(key), "7.8.9").returncode == 0
    return checkout


def again(checkout, **environment):
    (checkout.path.parent / "again").mkdir()
    environment = {"TMPDIR": str(checkout.path.parent / "again"), **environment}
    return checkout.run("release/again", "dist", **environment)


def test_all_of_it_can_be_built_again(released):
    done = again(released)
    assert (done.stderr, done.returncode) == ("", 0)
    assert done.stdout.endswith("\nthe same: 8 files\n")
    assert list((released.path.parent / "again").iterdir()) == []


def test_what_differs_when_built_again_is_told(released):
    done = again(released, VARYING="1")
    assert done.returncode == 1
    wrong = re.findall(r"^(\S+): FAILED$", done.stdout, re.MULTILINE)
    assert wrong == [name for name in released.files() if name.endswith(".deb")]
    (folder,) = re.findall(r"^not the same: (.*)$", done.stderr, re.MULTILINE)
    text = Path(folder, wrong[0]).read_text()
    assert text == f"bookworm/amd64 in {Path(folder).parent.parent}, ways 1\n"
    assert released.path not in Path(folder).parents


def test_what_is_missing_when_built_again_is_told(released):
    with (released.dist / "SHA256SUMS").open("a") as sums:
        sums.write(f"{'0' * 64}  bookworm/more.deb\n")
    done = again(released)
    assert (done.returncode, "bookworm/more.deb: FAILED open or read" in done.stdout) == (1, True)
