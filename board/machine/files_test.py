"""Files on an image that is made here; run by pytest on the host."""

import subprocess

import pytest

from machine.files import add_own, names_in, put, text_of


@pytest.fixture
def image(tmp_path):
    for folder in ("etc/systemd/system", "var/log/journal/0123"):
        (tmp_path / "root" / folder).mkdir(parents=True)
    (tmp_path / "root/var/log/journal/0123/system.journal").write_text("of another life\n")
    image = tmp_path / "image"
    command = ["mke2fs", "-q", "-t", "ext4", "-d", tmp_path / "root", image, "16M"]
    subprocess.run(command, check=True)
    yield image
    looked = subprocess.run(["e2fsck", "-fn", image], capture_output=True, text=True)
    assert looked.returncode == 0, looked.stdout


def test_what_is_put_there_can_be_read_and_put_again(image):
    for text in ("first\n", "second\n"):
        put(image, {"/etc/kelvo/kelvo-pwr.conf": text})
        assert text_of(image, "/etc/kelvo/kelvo-pwr.conf") == text
    assert names_in(image, "/etc/kelvo") == ["kelvo-pwr.conf"]
    assert text_of(image, "/etc/kelvo/none") == ""


def test_the_machine_s_own_files_and_a_journal_that_begins_anew(image, tmp_path):
    more = tmp_path / "more"
    more.write_text("text\n")
    add_own(image, [more])
    assert text_of(image, "/board/more") == "text\n"
    assert text_of(image, "/board/guest/board.py").startswith('"""The four lines of the machine')
    assert text_of(image, "/board/guest/clock.py").startswith('"""The board\'s clocks')
    assert names_in(image, "/etc/systemd/system/multi-user.target.wants") == ["board-command.service"]
    assert names_in(image, "/var/log/journal/0123") == []
