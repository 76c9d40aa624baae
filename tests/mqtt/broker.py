"""The real broker, mosquitto, on this machine alone, and those who talk to it."""

import os
import queue
import signal
import socket
import subprocess
import threading
from contextlib import contextmanager
from pathlib import Path

from heart import LONG, wait_until

_TOOLS = Path(os.environ["CONTRIB_TOOLS"])
HOST = "localhost"


def _free_port():
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        return taken.getsockname()[1]


class Broker:
    """A `with` statement ends it. It forgets all when it ends."""

    def __init__(self, folder: Path, *settings: str, client_words=()):
        self.port = _free_port()
        self._conf = folder / "mosquitto.conf"
        settings = settings or ("allow_anonymous true",)
        lines = [f"listener {self.port} 127.0.0.1", "user root", *settings]
        self._conf.write_text("\n".join(lines) + "\n")
        self._client_words = ["-h", HOST, "-p", str(self.port), *map(str, client_words)]
        self._process = None

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()

    def start(self):
        command = [_TOOLS / "usr/sbin/mosquitto", "-c", self._conf]
        self._process = subprocess.Popen(command, stderr=subprocess.DEVNULL)
        wait_until(self._listens)

    def stop(self):
        self._process.kill()
        self._process.wait()

    @contextmanager
    def hanging(self):
        self._process.send_signal(signal.SIGSTOP)
        try:
            yield
        finally:
            self._process.send_signal(signal.SIGCONT)

    def publish(self, topic, text, *words):
        command = [_TOOLS / "usr/bin/mosquitto_pub", *self._client_words]
        subprocess.run([*command, "-t", topic, "-m", text, *words], check=True, timeout=LONG)

    def retained(self, topic, count=1):
        """Topics and texts of so many messages that are kept, as soon as they are."""
        for words in ([], ["--retained-only"]):
            with self.subscriber(topic, *words) as messages:
                found = [messages.get(timeout=LONG) for _ in range(count)]
        return found

    @contextmanager
    def subscriber(self, topic, *words):
        """A queue of topics and texts, from when the broker has taken the subscription on."""
        command = [_TOOLS / "usr/bin/mosquitto_sub", *self._client_words, "-d"]
        shown = ["-t", topic, "-F", "message %t %p", *words]
        messages, taken = queue.Queue(), threading.Event()

        def collect(lines):
            for line in lines:
                kind, _, rest = line.rstrip("\n").partition(" ")
                if kind == "message":
                    messages.put(tuple(rest.split(" ", 1)))
                elif kind == "Subscribed":
                    taken.set()

        unbuffered = ["stdbuf", "-oL", *map(str, command), *shown]
        with subprocess.Popen(unbuffered, stdout=subprocess.PIPE, text=True) as process:
            reader = threading.Thread(target=collect, args=(process.stdout,))
            reader.start()
            try:
                assert taken.wait(LONG)
                yield messages
            finally:
                process.kill()
                reader.join()

    def _listens(self):
        try:
            socket.create_connection(("127.0.0.1", self.port)).close()
            return True
        except ConnectionRefusedError:
            return False
