"""The package built for other machines, and its program run there by an emulator.

DEBIAN_RELEASE is the Debian for which it is built, the host's own if empty; FOREIGN_FOLDER gets it.
The emulator has no GPIO; what the daemon does with its lines is not tested here.
"""

import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

from cross_root import BUILD, MACHINES, cross_root, follow, succeed
from debian_root import Root
from hardening import EVERY_FILE, Executable
from host.mmdebstrap import this_release
from host.problems import Unavailable

PROJECT = Path(__file__).parent.parent.parent
RELEASE = os.environ["DEBIAN_RELEASE"] or this_release()
PACKAGES = Path(os.environ["FOREIGN_FOLDER"])
WITH_OWN_SHM = PROJECT / "tests" / "host" / "with_own_shm"
NO_RESULT_FILE = "Cant read timestamp conf\n"


@pytest.fixture(scope="session")
def cross_base(mounts):
    try:
        return cross_root(RELEASE)
    except Unavailable as reason:
        pytest.skip(str(reason))


@pytest.fixture(scope="session", params=MACHINES, ids=lambda machine: machine.name)
def foreign(request, cross_base, source, tmp_path_factory):
    """A system in which the program and the segment's tool have been built for a machine."""
    with Root(cross_base, tmp_path_factory.mktemp(request.param.name)) as root:
        yield Foreign(root, request.param, source)


class Foreign:
    def __init__(self, root, machine, source):
        self.root, self.machine = root, machine
        folder = root.path / "build/kelvo-pwr"
        folder.mkdir(parents=True)
        unpacking = ["tar", "--extract", "--strip-components=1", "--file", source]
        subprocess.run([*unpacking, "--directory", folder], check=True)
        follow(root.path, machine, BUILD)
        (self.deb,) = (root.path / "build").glob(f"kelvo-pwr_*_{machine.name}.deb")
        subprocess.run(["dpkg-deb", "--extract", self.deb, root.path / "installed"], check=True)
        self._keep_packages()
        self.program = "/installed/usr/sbin/kelvo-pwr"
        sources = ["tests/board/segment_tool.cpp", "src/shared/shared_state.cpp"]
        flags = ["-std=c++17", "-I", "src", "-o", "/segment_tool"]
        compiling = [machine.compiler, *flags, *sources]
        succeed(root.path, "sh", "-c", f"cd /build/kelvo-pwr && {' '.join(compiling)}")

    def _keep_packages(self):
        """For whole machines, in the place of those of another version."""
        PACKAGES.mkdir(parents=True, exist_ok=True)
        made = f"kelvo-pwr*_{self.machine.name}.deb"
        for old in PACKAGES.glob(made):
            old.unlink()
        for package in (self.root.path / "build").glob(made):
            shutil.copy(package, PACKAGES)

    def run(self, *words):
        """Standard output, standard error and status of the program."""
        result = self.root.run(self.machine.emulator, self.program, *words)
        return result.stdout, result.stderr, result.returncode

    def make_segment(self, *fields):
        for words in (["make", "status", "request"], ["set", *fields]):
            result = self.root.run(self.machine.emulator, "/segment_tool", *words)
            assert (result.stderr, result.returncode) == ("", 0)

    def status(self):
        stdout, _, status = self.run("--status")
        assert status == 0
        return dict(line.split(" : ") for line in re.sub(" +:", " :", stdout).splitlines())


def native(*words):
    """The same from the program of this machine, apart from what daemons there have left."""
    result = subprocess.run(
        [WITH_OWN_SHM, os.environ["KELVO_PWR"], *words],
        capture_output=True,
        text=True,
        stdin=subprocess.DEVNULL,
        timeout=60,
    )
    return result.stdout, result.stderr, result.returncode


def field(package, name):
    words = ["dpkg-deb", "--field", package, name]
    return subprocess.check_output(words, text=True).strip()


def test_the_package_is_for_the_machine(foreign):
    assert field(foreign.deb, "Architecture") == foreign.machine.name
    header = succeed(foreign.root.path, "readelf", "--file-header", foreign.program)
    assert re.search(r"Machine: +(\S+)", header)[1] == foreign.machine.kind


def test_its_debug_symbols_go_with_it(foreign):
    symbols = foreign.deb.with_name(foreign.deb.name.replace("kelvo-pwr_", "kelvo-pwr-dbgsym_"))
    assert field(symbols, "Depends") == f"kelvo-pwr (= {field(foreign.deb, 'Version')})"
    notes = succeed(foreign.root.path, "readelf", "--notes", foreign.program)
    assert re.search(r"Build ID: (\w+)", notes)[1] in field(symbols, "Build-Ids").split()


def test_all_packages_are_kept(foreign):
    names = {
        package.name.partition("_")[0] for package in PACKAGES.glob(f"*_{foreign.machine.name}.deb")
    }
    programs = {"kelvo-pwr", "kelvo-pwr-monitor", "kelvo-pwr-mqtt"}
    assert names == programs | {f"{program}-dbgsym" for program in programs}


@pytest.fixture
def executable(foreign):
    def run(words):
        return succeed(foreign.root.path, *words)

    prefix = foreign.machine.compiler.removesuffix("g++")
    return Executable(foreign.program, run, prefix)


def test_it_is_of_its_debian(foreign, executable):
    note = executable.package_note()
    number = {"bookworm": "12", "trixie": "13"}[RELEASE]
    assert (note["architecture"], note["osVersion"]) == (foreign.machine.name, number)


def test_it_is_hardened(foreign, executable):
    assert executable.hardening() >= EVERY_FILE | {"buffers checked"}
    # For armhf there are no marks.
    landings = executable.landings()
    assert landings is None if foreign.machine.name == "armhf" else landings > 100


@pytest.mark.parametrize(
    "words",
    [
        ["--help"],
        ["-v", "--help"],
        ["--nope"],
        ["--test.duration=65536"],
        ["--test.period=4294967296"],
        ["--test.battery"],
        ["-v", "-v"],
        ["-c", "/no/such/file"],
    ],
)
def test_it_answers_as_here(foreign, words):
    assert foreign.run(*words) == native(*words)


def test_the_listing_is_as_here(foreign):
    words = ["-v", "--status", "--test.period=4294967295", "--test.hour=-1"]
    listing, stderr, status = foreign.run(*words)
    assert (stderr, status) == (NO_RESULT_FILE + "No such file or directory\n", 1)
    assert (listing, stderr, status) == native(*words)


def test_without_a_segment_no_request_is_posted(foreign):
    for word in ("--run-test", "--run-test-now"):
        assert foreign.run(word) == ("", NO_RESULT_FILE + "No such file or directory\n", 1)


@pytest.fixture
def segment(foreign):
    """Made by another program of the same machine."""
    foreign.make_segment("count=0")
    yield foreign
    (foreign.root.path / "dev/shm/kelvo-pwr-shm").unlink()


def test_the_status(segment):
    segment.make_segment("count=2147483648", "missingPower=1", "batteryBad=255", "duration=65535")
    assert segment.run("--status") == (
        "count                    : -2147483648\n"
        "missingPower             : 1\n"
        "batteryEmpty             : 0\n"
        "batteryBad               : 255\n"
        "testing                  : 0\n"
        "runTest                  : 0\n"
        "runTestNow               : 0\n"
        "duration                 : 65535\n",
        NO_RESULT_FILE,
        0,
    )


@pytest.mark.parametrize(
    "word, field", [("--run-test", "runTest"), ("--run-test-now", "runTestNow")]
)
def test_a_request_is_posted(segment, word, field):
    posted = segment.run(word, "--test.duration=77", "--test.init.disable=0")
    assert posted == ("", NO_RESULT_FILE, 0)
    status = segment.status()
    assert (status.pop(field), status.pop("duration")) == ("1", "77")
    assert set(status.values()) == {"0"}


@pytest.mark.parametrize("word", ["--run-test", "--run-test-now"])
@pytest.mark.parametrize(
    "fields, answer",
    [
        (["testing=255"], "Testing is disabled, exiting.\n"),
        (["testing=1"], "Test is already running.\n"),
        (
            ["missingPower=1", "batteryEmpty=1"],
            "We are running on batteries.\nBattery is empty\n",
        ),
    ],
)
def test_a_request_is_refused(segment, word, fields, answer):
    segment.make_segment(*fields)
    before = segment.status()
    assert segment.run(word) == (answer, NO_RESULT_FILE, 0)
    assert segment.status() == before


def test_the_last_test_is_found_in_its_file(segment):
    far = 2**40
    conf = segment.root.path / "own.conf"
    conf.write_text("sys.save.path=/own.dat\n")
    (segment.root.path / "own.dat").write_text(f"result.start={far}\nresult.end={far + 1}\n")
    listing, stderr, _ = segment.run("-v", "-s", "-c", "/own.conf")
    assert stderr == ""
    assert listing.splitlines()[15:17] == [
        f"startTimestamp           : {far}",
        f"endTimestamp             : {far + 1}",
    ]


def test_the_daemon_makes_its_segment(foreign):
    missing = "Failed to get line 'PWR-IN'\n"
    assert foreign.run() == ("Start\n", NO_RESULT_FILE + missing, 1)
    assert set(foreign.status().values()) == {"0"}
    (foreign.root.path / "dev/shm/kelvo-pwr-shm").unlink()
