"""Files on a disk image, put there and taken out without mounting it."""

import subprocess
from pathlib import Path, PurePosixPath
from tempfile import TemporaryDirectory
from typing import Iterable, Mapping, Union

_BOARD = Path(__file__).parent.parent
_UNITS = Path("/etc/systemd/system")
_JOURNAL = "/var/log/journal"
_WANTED_BY = {
    "board-outside.service": "sysinit.target",
    "board-command.service": "multi-user.target",
}


def add_own(image: Path, more: Iterable[Path] = ()) -> None:
    """What links the machine with what stands around it; the files of `more` go to /board."""
    files = {PurePosixPath("/board/guest", path.name): path for path in _library()}
    for path in (_BOARD / "guest/commands").iterdir():
        # Those that end the machine are its own.
        if path.name not in ("poweroff", "reboot"):
            files[PurePosixPath("/board/commands", path.name)] = path
    for path in more:
        files[PurePosixPath("/board", path.name)] = path
    links = {}
    for unit, target in _WANTED_BY.items():
        files[PurePosixPath(_UNITS, unit)] = _BOARD / "machine/units" / unit
        links[PurePosixPath(_UNITS, f"{target}.wants", unit)] = PurePosixPath(_UNITS, unit)
    _write(image, files, links)
    _forget_journal(image)


def _forget_journal(image: Path) -> None:
    """Every life begins on the same day; entries of another would stand among its own."""
    folders = [f"{_JOURNAL}/{name}" for name in names_in(image, _JOURNAL)]
    files = [f"{folder}/{name}" for folder in folders for name in names_in(image, folder)]
    _debugfs(image, [f"rm {file}" for file in files])


def put(image: Path, texts: Mapping[str, str]) -> None:
    """Files with these contents, by their paths."""
    with TemporaryDirectory() as folder:
        files = {}
        for number, (path, text) in enumerate(texts.items()):
            source = Path(folder, str(number))
            source.write_text(text)
            files[PurePosixPath(path)] = source
        _write(image, files, {})


def take_out(image: Path, path: str, folder: Path) -> None:
    """Copies a file or folder of the image, if it is there, into the folder."""
    _debugfs(image, [f"rdump {path} {folder}"])


def text_of(image: Path, path: str) -> str:
    """Of a file that may be missing, which is as an empty one here."""
    return _debugfs(image, [f"cat {path}"], to_write=False)


def names_in(image: Path, folder: Union[str, PurePosixPath]) -> list[str]:
    lines = _debugfs(image, [f"ls -p {folder}"], to_write=False).splitlines()
    names = (line.split("/")[5] for line in lines if line.startswith("/"))
    return sorted(name for name in names if name not in (".", ".."))


def _library() -> list[Path]:
    """The virtual board's, but for what the machine has of its own."""
    own = list((_BOARD / "machine/guest").glob("*.py"))
    names = {path.name for path in own}
    return own + [path for path in (_BOARD / "guest").glob("*.py") if path.name not in names]


def _write(image: Path, files: dict, links: dict) -> None:
    folders = {parent for path in (*files, *links) for parent in path.parents if parent.name}
    # Those that are there already debugfs would make all the same, and spoil the file system.
    missing = [path for path in sorted(folders) if path.name not in names_in(image, path.parent)]
    commands = [f"mkdir {folder}" for folder in missing]
    for path, source in files.items():
        commands += [f"rm {path}", f"write {source} {path}"]
    for path, target in links.items():
        commands += [f"rm {path}", f"symlink {path} {target}"]
    _debugfs(image, commands)


def _debugfs(image: Path, commands: list[str], to_write: bool = True) -> str:
    """What it complains about, such as a folder that is there already, is of no interest."""
    options = ["-w"] if to_write else []
    done = subprocess.run(
        ["debugfs", *options, "-f", "-", image],
        input="".join(f"{command}\n" for command in commands),
        stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL,
        text=True,
        check=True,
    )
    lines = done.stdout.splitlines(keepends=True)
    return "".join(line for line in lines if not line.startswith("debugfs: "))
