"""Boards that run at the same time, each on a processor of its own."""

import multiprocessing
import os

from host import processor


def taken(connection) -> None:
    processor.take_processor()
    connection.send(os.sched_getaffinity(0))
    connection.recv()


def test_each_takes_another_one_until_all_are_taken(monkeypatch):
    # Names that no board on this machine has.
    bind = processor.socket.socket.bind

    class Socket(processor.socket.socket):
        def bind(self, name):
            bind(self, f"{name}-of-test-{parent}")

    parent = os.getpid()
    monkeypatch.setattr(processor.socket, "socket", Socket)
    context = multiprocessing.get_context("fork")
    every = os.sched_getaffinity(0)
    found, boards = [], []
    for _ in range(len(every) + 1):
        ours, theirs = context.Pipe()
        board = context.Process(target=taken, args=(theirs,))
        board.start()
        found.append(ours.recv())
        boards.append((board, ours))
    try:
        assert found == [*({number} for number in sorted(every)), every]
    finally:
        for board, ours in boards:
            ours.send(None)
            board.join()
