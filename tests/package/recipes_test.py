"""The recipes for Buildroot and Yocto: fields, and the steps that install by hand.

Neither system is here: make and a shell stand in for them, and what they would build is not
built.
"""

import hashlib
import re
import subprocess
from pathlib import Path

import kconfiglib
import pytest

PROJECT = Path(__file__).parent.parent.parent
BUILDROOT = PROJECT / "packaging" / "buildroot"
YOCTO = PROJECT / "packaging" / "yocto"
PACKAGE = BUILDROOT / "package" / "kelvo-pwr"
RECIPE = YOCTO / "recipes-support" / "kelvo-pwr" / "kelvo-pwr_1.0.0.bb"

VERSION = re.search(
    r"project\(kelvo-pwr VERSION ([\d.]+)", (PROJECT / "CMakeLists.txt").read_text()
)[1]

# What Buildroot gives to a package's makefile, as far as this one uses it.
AS_BUILDROOT = """
BR2_EXTERNAL_KELVO_PATH = {buildroot}
KELVO_PWR_PKGDIR = {buildroot}/package/kelvo-pwr
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
    for unit in (path for path in debian.iterdir() if path.suffix in (".service", ".timer")):
        files.add(f"lib/systemd/system/{re.sub('^kelvo-pwr[.](?=kelvo)', '', unit.name)}")
    assert (debian / "kelvo-pwr.tmpfiles").exists()
    return files | {"usr/lib/tmpfiles.d/kelvo-pwr.conf"}


@pytest.fixture
def make(tmp_path):
    """Runs a target of the makefile, as AS_BUILDROOT has them."""
    target = tmp_path / "target"
    target.mkdir()

    def run(goal):
        text = AS_BUILDROOT.replace("{buildroot}", str(BUILDROOT))
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
    assert make("show-KELVO_PWR_DEPENDENCIES") == "boost libgpiod"


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


def test_buildroot_offers_the_package(monkeypatch, tmp_path):
    monkeypatch.setenv("BR2_EXTERNAL_KELVO_PATH", str(BUILDROOT))
    text = (PACKAGE / "Config.in").read_text()
    needed = set(re.findall(r"^\tdepends on (BR2_\w+)", text, re.MULTILINE))
    assert needed == set(re.findall(r"!(BR2_\w+)", text))
    selected = set(re.findall(r"^\tselect (BR2_\w+)", text, re.MULTILINE))
    others = "".join(f'config {name}\n\tbool "{name}"\n' for name in sorted(needed | selected))
    (tmp_path / "Config.in").write_text(f'source "{BUILDROOT}/Config.in"\n{others}')
    configuration = kconfiglib.Kconfig(str(tmp_path / "Config.in"))
    assert configuration.warnings == []
    symbols = configuration.syms
    for name in needed:
        assert symbols["BR2_PACKAGE_KELVO_PWR"].visibility == 0
        symbols[name].set_value("y")
    symbols["BR2_PACKAGE_KELVO_PWR"].set_value("y")
    assert [symbols[name].str_value for name in sorted(selected)] == ["y"] * 3


def yocto_fields():
    text = RECIPE.read_text().replace("\\\n", "")
    return dict(re.findall(r'^([A-Z][\w:${}]*) \+?= "(.*)"$', text, re.MULTILINE))


def test_yocto_builds_this_checkout():
    assert RECIPE.stem == f"kelvo-pwr_{VERSION}"
    source = yocto_fields()["EXTERNALSRC"].replace("${THISDIR}", str(RECIPE.parent))
    assert Path(source).resolve() == PROJECT


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
