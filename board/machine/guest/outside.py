"""Words with what stands around the machine, for any program on it; `agent` passes them on."""

import json
import os
import socket

SOCKET = "/run/board-outside"


def ask(**request) -> dict:
    """Returns when it is done. Raises RuntimeError with what was wrong with the request."""
    with socket.socket(socket.AF_UNIX) as channel:
        channel.connect(SOCKET)
        channel.sendall(json.dumps(request).encode() + b"\n")
        with channel.makefile("rb") as answers:
            answer = json.loads(answers.readline())
    if "error" in answer:
        raise RuntimeError(answer["error"])
    return answer


def tell_systemd(state: str) -> None:
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as channel:
        channel.connect(os.environ["NOTIFY_SOCKET"].replace("@", "\0", 1))
        channel.send(state.encode())
