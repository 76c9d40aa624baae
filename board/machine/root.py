"""Kernel and disk of a machine, from Debian's packages for its processor; made once and kept."""

import hashlib
import os
import shutil
import subprocess
from pathlib import Path
from typing import NamedTuple

from host.cache import kept
from host.debian import LIBRARIES, RELEASES
from host.mmdebstrap import bootstrap
from host.problems import Unavailable


class Processor(NamedTuple):
    """What goes with one of Debian's names for processors."""

    kernel: str  # package
    emulator: str  # of whole machines
    model: str
    binfmt: str  # what runs single programs, as the kernel has it registered


PROCESSORS = {
    "arm64": Processor("linux-image-arm64", "qemu-system-aarch64", "cortex-a53", "qemu-aarch64"),
    "armhf": Processor("linux-image-armmp", "qemu-system-arm", "cortex-a15", "qemu-arm"),
}
_PACKAGES = ("systemd", "systemd-sysv", "udev", "dbus", "gpiod", "python3")
# What finds the root; Debian has it as modules.
_MODULES = ("virtio_pci", "virtio_blk", "ext4")
# What no emulated machine has.
_LEFT_OUT = (
    "/lib/modules/*/kernel/drivers/gpu/*",
    "/lib/modules/*/kernel/drivers/infiniband/*",
    "/lib/modules/*/kernel/drivers/media/*",
    "/lib/modules/*/kernel/drivers/net/*",
    "/lib/modules/*/kernel/drivers/staging/*",
    "/lib/modules/*/kernel/sound/*",
    "/usr/share/doc/*",
    "/usr/share/locale/*",
    "/usr/share/man/*",
)
_UPDATE = "/usr/sbin/update-initramfs"
_DISK_MEGABYTES = 1024

# The emulator is registered as Debian's package does when a host with systemd boots; for as long as
# this is mounted.
_REGISTER = """
[ -e /proc/sys/fs/binfmt_misc/status ] || mount -t binfmt_misc none /proc/sys/fs/binfmt_misc
[ -e /proc/sys/fs/binfmt_misc/{binfmt} ] ||
  cat /usr/lib/binfmt.d/{binfmt}.conf >/proc/sys/fs/binfmt_misc/register
"""


class Root(NamedTuple):
    kernel: Path
    initial: Path  # its first root, which finds the disk
    disk: Path  # an ext4 file system, without partitions


def machine_root(architecture: str, release: str) -> Root:
    """Made first unless it is kept."""
    if release not in RELEASES:
        raise Unavailable(f"there is no machine with the Debian {release!r}")
    if os.geteuid() != 0:
        raise Unavailable("a root file system of Debian can be made and read only by root")
    processor = PROCESSORS[architecture]
    packages = (processor.kernel, "initramfs-tools", *_PACKAGES, *LIBRARIES[release])

    def make(work: Path) -> Path:
        _bootstrap(work / "root", architecture, release, packages)
        return _taken_apart(work)

    ingredients = repr((architecture, release)).encode() + Path(__file__).read_bytes()
    folder = kept(f"{architecture}-{release}-machine-{_digest(ingredients)}", make)
    return Root(folder / "vmlinuz", folder / "initrd.img", folder / "disk")


def _bootstrap(root: Path, architecture: str, release: str, packages: tuple[str, ...]) -> None:
    for tool in ("arch-test", "mke2fs"):
        if shutil.which(tool) is None:
            raise Unavailable(f"{tool} is not installed")
    binfmt = PROCESSORS[architecture].binfmt
    if not Path(f"/usr/lib/binfmt.d/{binfmt}.conf").exists():
        raise Unavailable("the package qemu-user-static is not installed")
    modules = "\\n".join(_MODULES)
    configure = (
        'mkdir -p "$1/etc/initramfs-tools/conf.d"',
        'printf "MODULES=list\\nCOMPRESSLEVEL=1\\n" >"$1/etc/initramfs-tools/conf.d/machine"',
        f'printf "{modules}\\n" >"$1/etc/initramfs-tools/modules"',
        # Done once, at the end, instead of for each package that has a part in it.
        f'chroot "$1" dpkg-divert --quiet --local --rename --add {_UPDATE}',
        f'ln -s /bin/true "$1{_UPDATE}"',
    )
    finish = (
        f'rm "$1{_UPDATE}"',
        f'chroot "$1" dpkg-divert --quiet --local --rename --remove {_UPDATE}',
        f'chroot "$1" {_UPDATE} -c -k all',
        'echo machine >"$1/etc/hostname"',
        'printf "127.0.0.1 localhost\\n127.0.1.1 machine\\n" >"$1/etc/hosts"',
        'echo "/dev/vda / ext4 defaults 0 1" >"$1/etc/fstab"',
        # Other than what the volatile journal of a minimal system would be.
        'mkdir -p "$1/var/log/journal"',
    )
    options = [f"--architectures={architecture}"]
    options += [f"--essential-hook={' && '.join(configure)}"]
    options += [f"--customize-hook={' && '.join(finish)}"]
    options += [f"--dpkgopt=path-exclude={pattern}" for pattern in _LEFT_OUT]
    bootstrap(root, release, packages, *options, before=_REGISTER.format(binfmt=binfmt))


def _taken_apart(work: Path) -> Path:
    result = work / "machine"
    result.mkdir()
    for name in ("vmlinuz", "initrd.img"):
        shutil.copy(work / "root" / name, result / name)
    disk = result / "disk"
    command = ["mke2fs", "-q", "-t", "ext4", "-L", "machine", "-d", work / "root", disk]
    subprocess.run([*command, f"{_DISK_MEGABYTES}M"], check=True)
    return result


def key_of(disk: Path, package: Path) -> str:
    """For what is made of a kept disk, whose folder has its own key in its name, and a package."""
    return _digest(disk.parent.name.encode() + package.read_bytes())


def _digest(ingredients: bytes) -> str:
    return hashlib.sha256(ingredients).hexdigest()[:16]
