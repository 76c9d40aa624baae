"""The file of times is spoilt and the service starts anew."""

import subprocess
from pathlib import Path

from story import await_full_server, follow

FILE = Path("/var/lib/kelvo-pwr/kelvo-pwr.dat")

with follow() as journal:
    await_full_server(journal)
    FILE.write_text("result.start=\0\0\0\n")
    subprocess.run(["systemctl", "restart", "kelvo-pwr"], check=True)
    await_full_server(journal)
