"""What every life begins with: a boot to the end of it, and to a daemon on guard."""

import subprocess

from story import await_full_server, follow

with follow() as journal:
    await_full_server(journal)
subprocess.run(["systemctl", "is-system-running", "--wait"], check=True)
