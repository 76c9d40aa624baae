"""The published schema of CycloneDX, from a package of Debian 13; fetched once and kept."""

import json
import re
from pathlib import Path

import jsonschema

from host.cache import kept
from host.mmdebstrap import mirror, run_to_fetch
from host.problems import Unavailable

RELEASE = "trixie"  # Debian 12 has none
PACKAGE = "python3-cyclonedx-lib"
FOLDER = "usr/lib/python3/dist-packages/cyclonedx/schema/_res"


def _fetch(work: Path) -> Path:
    """With lists of its own, as this host may be another Debian."""
    (work / "lists/partial").mkdir(parents=True)
    keys = "/usr/share/keyrings/debian-archive-keyring.gpg"
    (work / "sources").write_text(f"deb [signed-by={keys}] {mirror()} {RELEASE} main\n")
    options = ["APT::Sandbox::User=root", f"Dir::State::Lists={work}/lists"]
    options += [f"Dir::Cache={work}", f"Dir::Etc::SourceList={work}/sources"]
    options += ["Dir::Etc::SourceParts=-"]
    apt = ["apt-get", "--quiet", *(f"--option={option}" for option in options)]
    shell = 'cd "$1"; shift; "$@" update; "$@" download $0; dpkg-deb --extract *.deb unpacked'
    done = run_to_fetch("sh", "-euc", shell, PACKAGE, work, *apt)
    if done.returncode != 0:
        raise Unavailable(f"{PACKAGE} cannot be fetched:\n{done.stdout[-1000:]}")
    return work / "unpacked" / FOLDER


def validator(version: str) -> jsonschema.Draft7Validator:
    folder = kept(f"cyclonedx-{RELEASE}", _fetch)
    text = (folder / f"bom-{version}.SNAPSHOT.schema.json").read_text()
    # It refers to others by their names.
    text = re.sub(r'(?<="\$ref": ")(?=\w)', f"{folder.as_uri()}/", text)
    return jsonschema.Draft7Validator(json.loads(text))
