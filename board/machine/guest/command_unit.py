"""Runs the machine's one command; what it prints and its status go outside."""

import base64
import os
import subprocess
import threading

from guest.outside import ask

_CHUNK = 1 << 14


def main() -> None:
    task = ask(task=True)
    pipes = {number: os.pipe() for number in (1, 2)}
    carriers = [
        threading.Thread(target=carry, args=(number, reading))
        for number, (reading, _) in pipes.items()
    ]
    for carrier in carriers:
        carrier.start()
    try:
        status = subprocess.run(
            task["command"],
            cwd="/board",
            env={**os.environ, **task["environment"]},
            stdin=subprocess.DEVNULL,
            stdout=pipes[1][1],
            stderr=pipes[2][1],
        ).returncode
    except OSError as error:
        ask(failure=str(error))
        return
    for _, writing in pipes.values():
        os.close(writing)
    for carrier in carriers:
        carrier.join()
    # The machine ends with the answer.
    subprocess.run(["journalctl", "--sync"], check=False)
    os.sync()
    ask(status=128 - status if status < 0 else status)


def carry(number: int, reading: int) -> None:
    while chunk := os.read(reading, _CHUNK):
        ask(output=number, data=base64.b64encode(chunk).decode())


if __name__ == "__main__":
    main()
