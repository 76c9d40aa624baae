"""The recipes for Buildroot and Yocto: fields, and the steps that install by hand.

Neither system is here: make and a shell stand in for them, and what they would build is not
built.
"""

import hashlib
import json
import re
import subprocess
from pathlib import Path

import kconfiglib
import pytest

PROJECT = Path(__file__).parent.parent.parent
BUILDROOT = PROJECT / "packaging" / "buildroot"
YOCTO = PROJECT / "packaging" / "yocto"
PACKAGE = BUILDROOT / "package" / "kelvo-pwr"
(RECIPE,) = (YOCTO / "recipes-support" / "kelvo-pwr").glob("*.bb")

CMAKE = (PROJECT / "CMakeLists.txt").read_text()
VERSION = re.search(r"project\(kelvo-pwr VERSION ([\d.]+)", CMAKE)[1]

# What Buildroot gives to a package's makefile, as far as this one uses it.
AS_BUILDROOT = """
BR2_EXTERNAL_KELVO_PATH = {buildroot}
KELVO_PWR_PKGDIR = {buildroot}/package/kelvo-pwr
BR2_PACKAGE_LIBGPIOD2 = {libgpiod2}
INSTALL = install
TARGET_DIR = {target}
cmake-package =
include {buildroot}/external.mk
show-%: ; @echo '$($*)'
install-%: @D = {project}
install-%: ; $($*)
"""

# What Yocto gives to the recipe's last step.
AS_YOCTO = {
    "sysconfdir": "/etc",
    "localstatedir": "/var",
    "systemd_system_unitdir": "/lib/systemd/system",
    "nonarch_libdir": "/usr/lib",
    "datadir": "/usr/share",
}


def installed_files(target):
    """What a recipe has put there by hand, with the units where Yocto has them."""
    paths = {str(path.relative_to(target)) for path in target.rglob("*") if not path.is_dir()}
    return {path.replace("usr/lib/systemd/system/", "lib/systemd/system/") for path in paths}


def installed_by_debian():
    """The files of the Debian package beside those that CMake installs."""
    debian = PROJECT / "debian"
    lines = (debian / "kelvo-pwr.install").read_text().splitlines()
    files = {f"{folder}/{Path(source).name}" for source, folder in map(str.split, lines)}
    # By debhelper's own names for them: the package's, before another one of a unit.
    units = [*debian.glob("kelvo-pwr.*service"), *debian.glob("kelvo-pwr.*timer")]
    for unit in units:
        files.add(f"lib/systemd/system/{re.sub('^kelvo-pwr[.](?=kelvo)', '', unit.name)}")
    assert (debian / "kelvo-pwr.tmpfiles").exists()
    return files | {"usr/lib/tmpfiles.d/kelvo-pwr.conf"}


@pytest.fixture
def make(tmp_path):
    """Runs a target of the makefile, as AS_BUILDROOT has them."""
    target = tmp_path / "target"
    target.mkdir()

    def run(goal, libgpiod2=""):
        text = AS_BUILDROOT.replace("{buildroot}", str(BUILDROOT))
        text = text.replace("{libgpiod2}", libgpiod2)
        text = text.replace("{target}", str(target)).replace("{project}", str(PROJECT))
        makefile = ["make", "--no-print-directory", "--warn-undefined-variables", "-f-", goal]
        result = subprocess.run(makefile, input=text, capture_output=True, text=True)
        assert (result.stderr, result.returncode) == ("", 0)
        return result.stdout.strip()

    run.target = target
    return run


def test_debian_s_version_is_the_program_s():
    assert (PROJECT / "debian" / "changelog").read_text().startswith(f"kelvo-pwr ({VERSION}) ")


def test_buildroot_builds_this_checkout(make):
    assert make("show-KELVO_PWR_VERSION") == VERSION
    assert make("show-KELVO_PWR_SITE_METHOD") == "local"
    assert Path(make("show-KELVO_PWR_SITE")).resolve() == PROJECT


def test_buildroot_takes_the_line_library_that_was_chosen(make):
    assert make("show-KELVO_PWR_DEPENDENCIES") == "host-pkgconf boost libgpiod"
    chosen = make("show-KELVO_PWR_DEPENDENCIES", libgpiod2="y")
    assert chosen == "host-pkgconf boost libgpiod2"


def test_buildroot_s_hash_is_the_licence_s(make):
    name = make("show-KELVO_PWR_LICENSE_FILES")
    digest = hashlib.sha256((PROJECT / name).read_bytes()).hexdigest()
    assert f"sha256  {digest}  {name}\n" in (PACKAGE / "kelvo-pwr.hash").read_text()


def test_buildroot_installs_what_debian_installs(make):
    make(f"install-{make('show-KELVO_PWR_POST_INSTALL_TARGET_HOOKS')}")
    assert installed_files(make.target) == {"etc/kelvo/kelvo-pwr.conf"}
    assert (make.target / "var/lib/kelvo-pwr").is_dir()
    make("install-KELVO_PWR_INSTALL_INIT_SYSTEMD")
    preset = "usr/lib/systemd/system-preset/50-kelvo-pwr.preset"
    assert installed_files(make.target) == installed_by_debian() | {preset}


def test_buildroot_enables_the_service_and_its_watch_and_no_requests(make):
    make("install-KELVO_PWR_INSTALL_INIT_SYSTEMD")
    # As Buildroot does when all packages are installed.
    subprocess.run(["systemctl", f"--root={make.target}", "preset-all"], check=True)
    enabled = {path.name for path in (make.target / "etc/systemd/system").glob("*.wants/*")}
    assert enabled == {"kelvo-pwr.service", "kelvo-pwr-watch.timer"}


# The two versions of the line library exclude each other, as in Buildroot.
AS_BUILDROOT_S_MENU = """
source "{buildroot}/Config.in"
config BR2_PACKAGE_LIBGPIOD
	bool "libgpiod"
config BR2_PACKAGE_LIBGPIOD2
	bool "libgpiod2"
	depends on !BR2_PACKAGE_LIBGPIOD
"""
TOOLCHAIN = {
    "BR2_INSTALL_LIBSTDCPP": "y",
    "BR2_TOOLCHAIN_GCC_AT_LEAST_8": "y",
    "BR2_TOOLCHAIN_HAS_THREADS": "y",
    "BR2_USE_WCHAR": "y",
    "BR2_STATIC_LIBS": "n",
}
SELECTED = {
    "BR2_HOST_CMAKE_AT_LEAST_3_20",
    "BR2_PACKAGE_BOOST",
    "BR2_PACKAGE_BOOST_PROGRAM_OPTIONS",
}


@pytest.fixture
def menu(monkeypatch, tmp_path):
    """Buildroot's options, as far as the entry knows them, with a toolchain that will do."""
    monkeypatch.setenv("BR2_EXTERNAL_KELVO_PATH", str(BUILDROOT))
    others = (f'config {name}\n\tbool "{name}"\n' for name in [*TOOLCHAIN, *SELECTED])
    text = AS_BUILDROOT_S_MENU.replace("{buildroot}", str(BUILDROOT)) + "".join(others)
    (tmp_path / "Config.in").write_text(text)
    configuration = kconfiglib.Kconfig(str(tmp_path / "Config.in"))
    assert configuration.warnings == []
    for name, value in TOOLCHAIN.items():
        configuration.syms[name].set_value(value)
    return configuration


def entry(menu):
    return menu.syms["BR2_PACKAGE_KELVO_PWR"]


def shown_comments(menu):
    return [comment.prompt[0] for comment in menu.comments if kconfiglib.expr_value(comment.dep)]


@pytest.mark.parametrize("library", ["BR2_PACKAGE_LIBGPIOD", "BR2_PACKAGE_LIBGPIOD2"])
def test_buildroot_offers_the_package_with_either_line_library(menu, library):
    (other,) = {"BR2_PACKAGE_LIBGPIOD", "BR2_PACKAGE_LIBGPIOD2"} - {library}
    menu.syms[library].set_value("y")
    assert shown_comments(menu) == []
    assert entry(menu).set_value("y") and entry(menu).str_value == "y"
    assert {name for name in SELECTED if menu.syms[name].str_value == "y"} == SELECTED
    # What was chosen before stays chosen.
    assert (menu.syms[library].str_value, menu.syms[other].str_value) == ("y", "n")


def test_buildroot_tells_that_a_line_library_is_missing(menu):
    assert entry(menu).visibility == 0
    assert shown_comments(menu) == ["kelvo-pwr needs libgpiod or libgpiod2"]


@pytest.mark.parametrize("option", TOOLCHAIN)
def test_buildroot_tells_what_the_toolchain_lacks(menu, option):
    menu.syms["BR2_PACKAGE_LIBGPIOD"].set_value("y")
    assert entry(menu).visibility == 2
    menu.syms[option].set_value("n" if TOOLCHAIN[option] == "y" else "y")
    assert entry(menu).visibility == 0
    (comment,) = shown_comments(menu)
    assert comment.startswith("kelvo-pwr needs a toolchain w/ ")


def test_buildroot_has_a_cmake_that_is_new_enough(menu):
    least = re.search(r"^cmake_minimum_required\(VERSION ([\d.]+)\)", CMAKE)[1]
    selected = {symbol.name for symbol, _ in entry(menu).selects if "CMAKE" in symbol.name}
    assert selected == {f"BR2_HOST_CMAKE_AT_LEAST_{least.replace('.', '_')}"}


def test_buildroot_s_help_is_as_narrow_as_its_checks_want_it(menu):
    (node,) = entry(menu).nodes
    assert node.help and max(map(len, node.help.splitlines())) <= 62


def yocto_fields(file=RECIPE):
    text = file.read_text().replace("\\\n", "")
    return dict(re.findall(r'^([A-Z][\w:${}]*) \+?= "(.*)"$', text, re.MULTILINE))


def test_yocto_builds_this_checkout():
    assert RECIPE.stem == f"kelvo-pwr_{VERSION}"
    source = yocto_fields()["EXTERNALSRC"].replace("${THISDIR}", str(RECIPE.parent))
    assert Path(source).resolve() == PROJECT


def test_yocto_writes_nothing_into_the_checkout():
    # The class gives it a value, so ours has to come later.
    after_the_class = RECIPE.read_text().split("inherit externalsrc\n")[1]
    assert '\nEXTERNALSRC_SYMLINKS = ""\n' in after_the_class


def test_yocto_builds_as_the_release_preset():
    (preset,) = (
        preset["cacheVariables"]["CMAKE_BUILD_TYPE"]
        for preset in json.loads((PROJECT / "CMakePresets.json").read_text())["configurePresets"]
        if preset["name"] == "release"
    )
    assert f"-DCMAKE_BUILD_TYPE={preset}" in yocto_fields()["EXTRA_OECMAKE"].split()


def test_yocto_s_layer_is_for_the_series_that_have_been_tried():
    layer = yocto_fields(YOCTO / "conf" / "layer.conf")
    series = layer["LAYERSERIES_COMPAT_kelvo"].split()
    assert series == ["kirkstone", "scarthgap", "wrynose", "blacksail"]
    page = (PROJECT / "docs" / "installation.md").read_text()
    assert f"{', '.join(series[:-1])} and {series[-1]}" in page.replace("\n", " ")


def test_yocto_s_checksum_is_the_licence_s():
    digest = hashlib.md5((PROJECT / "LICENSE").read_bytes()).hexdigest()
    assert yocto_fields()["LIC_FILES_CHKSUM"] == f"file://LICENSE;md5={digest}"


def test_yocto_s_layer_finds_the_recipe():
    layer = (YOCTO / "conf" / "layer.conf").read_text()
    pattern = re.search(r'^BBFILES \+= "\$\{LAYERDIR\}/(.*)"$', layer, re.MULTILINE)[1]
    assert list(YOCTO.glob(pattern)) == [RECIPE]


def test_yocto_installs_and_packs_what_debian_installs(tmp_path):
    step = re.search(r"do_install:append\(\) \{\n(.*?)\n\}", RECIPE.read_text(), re.DOTALL)[1]
    places = {"S": str(PROJECT), "D": str(tmp_path), "PATH": "/usr/bin:/bin", **AS_YOCTO}
    subprocess.run(["sh", "-euc", step], env=places, check=True)
    assert installed_files(tmp_path) == installed_by_debian()
    assert (tmp_path / "var/lib/kelvo-pwr").is_dir()
    fields = yocto_fields()
    assert fields["CONFFILES:${PN}"] == "${sysconfdir}/kelvo/kelvo-pwr.conf"
    assert fields["SYSTEMD_SERVICE:${PN}"] == "kelvo-pwr.service kelvo-pwr-watch.timer"
    # Yocto packs /etc and /var by itself.
    assert fields["FILES:${PN}"].split() == [
        "${systemd_unitdir}",
        "${nonarch_libdir}/tmpfiles.d",
        "${datadir}/zsh",
    ]
