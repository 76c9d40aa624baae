import re

import pytest

from host.problems import BoardFailure
from machine.emulator import Emulator, Product


def test_one_that_cannot_begin_says_why(tmp_path):
    missing = tmp_path / "missing"
    product = Product("arm64", missing, None, missing)
    told = f"no machine can be begun: qemu-system-aarch64: could not load kernel '{missing}'"
    with pytest.raises(BoardFailure, match=re.escape(told) + "$"):
        Emulator(product, tmp_path, [], 0, realtime=True)
