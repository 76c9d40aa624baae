"""What an artefact is said to be made of, against what other tools see in it."""

import copy
import hashlib
import json
import os
import re
import subprocess
from datetime import datetime
from pathlib import Path

import pytest

from host.problems import Unavailable
from schema import validator

PROJECT = Path(__file__).parent.parent.parent
BOM = PROJECT / "release" / "bom"
RELEASE, SMALL, SMALL_MAP = map(Path, os.environ["ARTEFACTS"].split(":"))
MACHINE = subprocess.check_output(["dpkg", "--print-architecture"], text=True).strip()


def bill(artefact, *more):
    words = [BOM, "--machine", MACHINE, "--version", "1.2.3", "--time", "1700000000", *more]
    return subprocess.run([*words, artefact], capture_output=True, text=True)


@pytest.fixture(scope="module")
def shared():
    return json.loads(bill(RELEASE).stdout)


@pytest.fixture(scope="module")
def static(tmp_path_factory):
    headers = tmp_path_factory.mktemp("small") / "headers"
    listed = subprocess.check_output(["ninja", "-C", SMALL.parent, "-t", "deps"], text=True)
    headers.write_text("\n".join(re.findall(r"^    (/usr/.*)$", listed, re.MULTILINE)))
    return json.loads(bill(SMALL, "--map", SMALL_MAP, "--headers", headers).stdout)


def packages(bill_of_materials, part):
    return {
        component["name"]
        for component in bill_of_materials["components"]
        if {"name": "kelvo-pwr:part", "value": part} in component["properties"]
    }


def test_the_shared_libraries_are_those_that_debian_would_depend_on(shared):
    words = ["dpkg-shlibdeps", "-O", f"-e{RELEASE}"]
    depends = subprocess.check_output(words, cwd=PROJECT, text=True, stderr=subprocess.DEVNULL)
    expected = {re.match(r"[^ ]+", one)[0] for one in depends.partition("=")[2].split(", ")}
    assert packages(shared, "shared") == expected
    assert packages(shared, "static") == packages(shared, "headers") == set()


def strong_symbols(file):
    listed = subprocess.run(
        ["nm", "--defined-only", "--extern-only", "--format=posix", file],
        capture_output=True,
        text=True,
    ).stdout
    return set(re.findall(r"^(\S+) [TDRB] ", listed, re.MULTILINE))


def package_of(file):
    for name in (str(file), str(file).removeprefix("/usr")):
        found = subprocess.run(["dpkg", "--search", name], capture_output=True, text=True).stdout
        if found:
            return found.partition(":")[0]
    raise AssertionError(file)


def test_the_static_libraries_are_those_whose_symbols_are_in_the_file(static):
    words = ["g++", "-print-file-name=libstdc++.a"]
    compiler_s = Path(subprocess.check_output(words, text=True).strip()).parent
    system_s = Path(subprocess.check_output(["g++", "-print-file-name=libc.a"], text=True).strip())
    archives = [*compiler_s.resolve().glob("*.a"), *system_s.parent.resolve().glob("*.a")]
    in_file = strong_symbols(SMALL)
    # What one library alone has shows that this one was linked.
    owners = {}
    for archive in archives:
        if found := strong_symbols(archive) & in_file:
            package = package_of(archive)
            for symbol in found:
                owners.setdefault(symbol, set()).add(package)
    expected = {name for names in owners.values() if len(names) == 1 for name in names}
    assert len(expected) >= 5
    assert packages(static, "static") == expected


def test_the_headers_of_boost_are_told(static):
    assert any(re.fullmatch(r"libboost[\d.]+-dev", name) for name in packages(static, "headers"))


def test_versions_are_those_that_are_installed(static):
    for component in static["components"]:
        words = ["dpkg-query", "--show", "--showformat=${Version}", component["name"]]
        # As for the machine itself where there are several.
        shown = subprocess.check_output([*words[:-1], f"{component['name']}:{MACHINE}"], text=True)
        assert component["version"] == shown


@pytest.fixture(scope="module")
def schema():
    try:
        return validator("1.5")
    except Unavailable as reason:
        pytest.skip(str(reason))


@pytest.mark.parametrize("name", ["shared", "static"])
def test_the_schema_allows_it(name, request, schema):
    errors = schema.iter_errors(request.getfixturevalue(name))
    assert [f"{error.json_path}: {error.message}" for error in errors] == []


@pytest.mark.parametrize(
    "change, place",
    [
        (lambda bill: bill.pop("bomFormat"), "$"),
        (lambda bill: bill["components"][0].pop("type"), "$.components[0]"),
        (lambda bill: bill["components"][0].update(purls=[]), "$.components[0]"),
        # By the lists of names, to which the schema refers.
        (
            lambda bill: bill["metadata"]["component"].update(licenses=[{"license": {"id": "X"}}]),
            "$.metadata.component.licenses",
        ),
    ],
)
def test_the_schema_refuses_what_is_wrong(shared, schema, change, place):
    """So it is really there."""
    wrong = copy.deepcopy(shared)
    change(wrong)
    assert [error.json_path for error in schema.iter_errors(wrong)] == [place]


PURL = r"pkg:(deb/debian|generic)/[\w.%-]+@[\w.%~-]+\?arch=\w+(&distro=debian-\d+)?"


@pytest.mark.parametrize("name", ["shared", "static"])
def test_it_says_of_what_it_is_and_names_each_part(name, request):
    bill_of_materials = request.getfixturevalue(name)
    metadata = bill_of_materials["metadata"]
    assert datetime.fromisoformat(metadata["timestamp"]).timestamp() == 1700000000
    main, components = metadata["component"], bill_of_materials["components"]
    assert (main["type"], main["name"], main["version"]) == ("application", "kelvo-pwr", "1.2.3")
    artefact = {"shared": RELEASE, "static": SMALL}[name]
    assert main["hashes"][0]["content"] == hashlib.sha256(artefact.read_bytes()).hexdigest()
    for component in [main, *components]:
        assert re.fullmatch(PURL, component["purl"])
        assert component["licenses"]
    for component in components:
        (source,) = component["pedigree"]["ancestors"]
        assert re.fullmatch(PURL, source["purl"]) and "arch=source" in source["purl"]
    references = [component["bom-ref"] for component in [main, *components]]
    assert len(set(references)) == len(references)
    (dependency,) = bill_of_materials["dependencies"]
    assert [dependency["ref"], *dependency["dependsOn"]] == references


def test_a_library_without_a_known_licence_is_an_error():
    done = bill("/bin/ls")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == "bom: no licence is known for libselinux1\n"


def test_a_file_of_no_package_is_an_error(tmp_path):
    stray = tmp_path / "headers"
    stray.write_text("/usr/include/of_no_package.h\n")
    done = bill(RELEASE, "--headers", stray)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == "bom: no package has /usr/include/of_no_package.h\n"


STATUS = """\
Package: {name}
Status: install ok installed
Architecture: {machine}
Multi-Arch: same
Version: {version}
Maintainer: nobody
Description: none

"""


@pytest.fixture
def system_for_two_machines(tmp_path):
    """A Debian with the same header for two machines, and its copyright."""
    database = tmp_path / "var/lib/dpkg"
    (database / "info").mkdir(parents=True)
    package = {"name": "libboost9-dev", "version": "9.0-1"}
    (database / "info/format").write_text("1\n")
    with (database / "status").open("w") as status:
        for machine in ("armhf", MACHINE):
            status.write(STATUS.format(machine=machine, **package))
            listing = database / "info" / f"libboost9-dev:{machine}.list"
            listing.write_text("/.\n/usr/include/boost/x.hpp\n")
    copyrights = tmp_path / "usr/share/doc/libboost9-dev/copyright"
    copyrights.parent.mkdir(parents=True)
    copyrights.write_text("License: BSL-1.0\n")
    (tmp_path / "etc").mkdir()
    (tmp_path / "etc/os-release").write_text('VERSION_ID="12"\n')
    (tmp_path / "headers").write_text("/usr/include/boost/x.hpp\n")
    (tmp_path / "artefact").symlink_to(SMALL)
    return tmp_path


def bill_of_headers(root):
    return bill(root / "artefact", "--root", root, "--headers", root / "headers")


def test_a_package_is_that_of_the_artefact_s_machine(system_for_two_machines):
    (component,) = json.loads(bill_of_headers(system_for_two_machines).stdout)["components"]
    assert component["purl"] == (
        f"pkg:deb/debian/libboost9-dev@9.0-1?arch={MACHINE}&distro=debian-12"
    )


def test_a_copyright_that_does_not_bear_the_licence_out_is_an_error(system_for_two_machines):
    root = system_for_two_machines
    (root / "usr/share/doc/libboost9-dev/copyright").write_text("License: another\n")
    done = bill_of_headers(root)
    assert (done.returncode, done.stdout) == (1, "")
    expected = "bom: the copyright of libboost9-dev does not have 'License: BSL-1.0'\n"
    assert done.stderr == expected
