"""What is said of a host that cannot run the board; run by pytest on the host."""

import pytest

from host import requirements
from host.kernel import bytes_for_registers
from host.problems import status_of


def checked():
    requirements.check_host()
    return 0


@pytest.fixture
def executable_folder(monkeypatch, tmp_path):
    monkeypatch.setattr(requirements.tempfile, "gettempdir", lambda: str(tmp_path))


@pytest.mark.parametrize("size", [0, 2696, 11008, bytes_for_registers()])
def test_registers_for_which_there_is_room(monkeypatch, capfd, executable_folder, size):
    monkeypatch.setattr(requirements, "register_bytes", lambda: size)
    assert status_of(checked) == 0
    assert capfd.readouterr() == ("", "")


def test_a_processor_with_more_registers_cannot_run_the_board(monkeypatch, capfd):
    size = bytes_for_registers() + 8
    monkeypatch.setattr(requirements, "register_bytes", lambda: size)
    assert status_of(checked) == 77
    said = (
        f"SKIP: the registers of this processor take {size} bytes, and the board's kernel has"
        f" room for {size - 8} (HOST_FP_SIZE in board/kernel/register-state.patch)\n"
    )
    assert capfd.readouterr() == ("", said)


def test_the_registers_of_this_processor():
    """By what Linux has for each: at least the oldest set and the header behind it."""
    assert requirements.register_bytes() >= 512 + 64
