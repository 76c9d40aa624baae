import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

HERE = Path(__file__).parent
TESTS = HERE.parent
sys.path[:0] = map(str, (HERE, TESTS / "builds", TESTS / "system", TESTS.parent / "board"))

from debian_root import Root, base_system, leave_mount_namespace, require_root  # noqa: E402
from packages import run_systemd  # noqa: E402

PROJECT = Path(__file__).parent.parent.parent


@pytest.fixture(scope="session")
def source():
    """The sources of the package that scripts/package has left in $PACKAGE_FOLDER."""
    changelog = (PROJECT / "debian" / "changelog").read_text()
    version = re.match(r"kelvo-pwr \((.+?)\)", changelog)[1]
    return Path(os.environ["PACKAGE_FOLDER"]) / f"kelvo-pwr_{version}.tar.xz"


@pytest.fixture(scope="session")
def deb(source):
    """The package itself."""
    machine = subprocess.run(
        ["dpkg", "--print-architecture"], capture_output=True, text=True, check=True
    ).stdout.strip()
    return source.with_name(source.name.replace(".tar.xz", f"_{machine}.deb"))


@pytest.fixture(scope="session")
def monitor_deb(deb):
    """What hands the status on."""
    return deb.with_name(deb.name.replace("kelvo-pwr_", "kelvo-pwr-monitor_"))


@pytest.fixture(scope="session")
def mqtt_deb(deb):
    """What publishes it by MQTT."""
    return deb.with_name(deb.name.replace("kelvo-pwr_", "kelvo-pwr-mqtt_"))


@pytest.fixture(scope="session")
def mounts():
    require_root()
    leave_mount_namespace()


@pytest.fixture(scope="session")
def libraries(deb, mqtt_deb):
    """The names of what the packages depend on."""
    names = set()
    for package in (deb, mqtt_deb):
        words = ["dpkg-deb", "--field", package, "Depends"]
        depends = subprocess.check_output(words, text=True).strip()
        names |= {re.match(r"[^ |]+", one)[0] for one in depends.split(", ")}
    return sorted(names - {"kelvo-pwr"})


@pytest.fixture(scope="session")
def base(mounts, libraries):
    """A minimal system with what the package depends on."""
    return base_system("package-root", libraries)


@pytest.fixture
def root(base, tmp_path_factory):
    with Root(base, tmp_path_factory.mktemp("root")) as root:
        yield root


@pytest.fixture
def system(root):
    """With a systemctl that says that systemd is running."""
    run_systemd(root)
    return root
