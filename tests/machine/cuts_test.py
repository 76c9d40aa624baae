"""Power cuts at a random moment."""

import pytest

from cuts import cut_at_random


@pytest.mark.parametrize("seed", [2])
def test_the_next_boot_guards_the_board(tmp_path, seed):
    cut_at_random(seed, tmp_path)
