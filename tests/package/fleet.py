"""The role for a fleet, played by the host's Ansible, which is only to be imported from a folder."""

import re
from pathlib import Path

ROLE = Path(__file__).parents[2] / "contrib/ansible"
_PLAY = "import sys; from ansible.cli.playbook import main; sys.exit(main())"


def inventory(*packages):
    """One board, on which Ansible itself runs."""
    return (
        "boards: {hosts: {board: {ansible_connection: local, ansible_become: false,\n"
        "  ansible_python_interpreter: /usr/bin/python3,\n"
        f"  kelvo_pwr_packages: [{', '.join(map(str, packages))}]}}}}}}\n"
    )


def command(library, fleet, role):
    environment = [f"PYTHONPATH={library}", "HOME=/root", "LC_ALL=C.UTF-8"]
    words = ["/usr/bin/python3", "-c", _PLAY, "--inventory", fleet, f"{role}/boards.yml"]
    return ["env", *environment, *map(str, words)]


def counts(told):
    """How many tasks changed something, and how many failed."""
    found = re.search(r"changed=(\d+) .* failed=(\d+)", told)
    return int(found[1]), int(found[2])
