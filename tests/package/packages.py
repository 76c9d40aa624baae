"""Packages in a system of their own, where systemctl only notes what it is asked; nothing is booted."""

import shutil
import subprocess

SYSTEMCTL = """#!/bin/sh
echo "$@" >>/run/calls
case "$*" in *is-active*) [ -e /run/active ] ;; esac
"""


def run_systemd(root):
    """From here on there is a systemctl that says that systemd is running."""
    systemctl = root.path / "bin/systemctl"
    systemctl.write_text(SYSTEMCTL)
    systemctl.chmod(0o755)
    (root.path / "run/systemd/system").mkdir(parents=True)


def installed_files(root):
    """All but what dpkg keeps for itself and the stand-in's notes."""
    hidden = ("var/lib/dpkg/", "var/log/", "run/calls", "run/active")
    paths = (str(path.relative_to(root.path)) for path in root.path.rglob("*"))
    return {path for path in paths if not path.startswith(hidden)}


def dpkg(root, *words):
    result = root.run("dpkg", *words)
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


def install(root, package, *words):
    shutil.copy(package, root.path / "package.deb")
    try:
        return dpkg(root, *words, "--install", "/package.deb")
    finally:
        (root.path / "package.deb").unlink()


def calls(root):
    """What systemctl was asked to do; looking and reloading are not counted."""
    try:
        lines = (root.path / "run/calls").read_text().splitlines()
    except FileNotFoundError:
        return []
    others = "is-active", "is-enabled", "daemon-reload", "show "
    asked = [line for line in lines if not any(other in line for other in others)]
    return [line.removeprefix("--quiet ").removeprefix("--system ") for line in asked]


def with_later_version(package, folder, change=lambda unpacked: None):
    """The same package, changed in between."""
    unpacked = folder / "unpacked"
    subprocess.run(["dpkg-deb", "-R", package, unpacked], check=True)
    control = unpacked / "DEBIAN/control"
    control.write_text(control.read_text().replace("\nVersion: ", "\nVersion: 99+"))
    change(unpacked)
    later = folder / "newer.deb"
    subprocess.run(["dpkg-deb", "-b", unpacked, later], check=True, capture_output=True)
    return later
