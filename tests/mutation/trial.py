"""Builds the broken program and puts it before the tests."""

import re
import sys
import time
from pathlib import Path
from typing import Optional

from breaks import Break
from checkout import copy_checkout, run

# Not part of the unit tests.
ENTRY = "src/app/main.cpp"

# By ctest's names. At the board's each scenario has its turn, but for those that take long and show
# what others show.
_SIMULATOR, _BOARD = r"^(host\.steps$|simulator\.)", r"^quick\.[0-9]+$"

# The headers of the libraries, which take most of the time of a build.
_PRECOMPILED = """
foreach(target IN ITEMS kelvo kelvo-pwr)
  cmake_language(EVAL CODE "cmake_language(DEFER CALL target_precompile_headers ${target} PRIVATE
    <boost/interprocess/managed_shared_memory.hpp> <boost/program_options.hpp> <gpiod.hpp>)")
endforeach()
"""


class Trial:
    """A copy of the checkout with a build of its own, in which breaks come and go."""

    def __init__(self, folder: Path, with_scenarios: bool):
        self._folder = folder
        self._build = folder / "build" / "mutate"
        self._ninja = ("ninja", "-C", str(self._build))
        copy_checkout(folder)
        # Neither optimised nor for a debugger: what counts is how quickly it builds.
        configure = ["cmake", "-S", ".", "-B", str(self._build), "-G", "Ninja"]
        self._build.mkdir(parents=True, exist_ok=True)
        (self._build / "precompiled.cmake").write_text(_PRECOMPILED)
        configure.append(f"-DCMAKE_PROJECT_INCLUDE={self._build / 'precompiled.cmake'}")
        self._run(*configure, "-DCMAKE_BUILD_TYPE=None", within=600)
        self._run(*self._ninja, "unit_tests", "kelvo-pwr", "segment_tool", within=3600)
        begin = time.monotonic()
        self._unit_limit = 600.0
        if not self._passes_unit():
            sys.exit("mutate: the unbroken program does not build and pass")
        # A break may make an endless loop, and a machine may be busy with other things.
        self._unit_limit = 20 + 10 * (time.monotonic() - begin)
        # A scenario that fails by itself, or is skipped, would notice every break.
        if with_scenarios and not (self._passes_host() and self._noticed_by() is None):
            sys.exit("mutate: the unbroken program does not pass all scenarios here")

    def of(self, one: Break, with_scenarios: bool) -> str:
        file = self._folder / one.file
        whole = file.read_text()
        lines = whole.split("\n")
        lines[one.line - 1 : one.end] = one.after
        file.write_text("\n".join(lines))
        try:
            is_entry = one.file == ENTRY
            if not self._builds("kelvo-pwr" if is_entry else "unit_tests"):
                return "does not compile"
            if not is_entry and not (self._passes_unit(_own_tests(file)) and self._passes_unit()):
                return "unit"
            if is_entry and self._builds("segment_tool") and not self._passes_host():
                return "host"
            return (self._noticed_by() if with_scenarios else None) or "survived"
        finally:
            file.write_text(whole)

    def _noticed_by(self) -> Optional[str]:
        """The verdict of the scenarios; None if all pass."""
        if not self._builds("kelvo-pwr", "simulator", "segment_tool"):
            return "does not compile"
        if not self._passes_ctest(_SIMULATOR):
            return "simulator"
        return None if self._passes_ctest(_BOARD) else "board"

    def _builds(self, *targets: str) -> bool:
        return self._run(*self._ninja, "-j1", *targets, within=900) == 0

    def _passes_unit(self, tests: str = "*") -> bool:
        """All in one process, which is quick; each test leaves the agent as it found it."""
        program = str(self._build / "tests/unit/unit_tests")
        words = (program, "--gtest_fail_fast", f"--gtest_filter={tests}")
        return self._run(*words, within=self._unit_limit) == 0

    def _passes_host(self) -> bool:
        command = str(self._folder / "tests/host/with_own_shm")
        words = ["-m", "pytest", "-q", "-x", "-p", "no:cacheprovider", "--import-mode=importlib"]
        file = str(self._folder / "tests/host/start_up_test.py")
        return self._run(command, "/usr/bin/python3", *words, file, within=600) == 0

    def _passes_ctest(self, tests: str) -> bool:
        words = ("ctest", "--test-dir", str(self._build), "-R", tests, "--stop-on-failure")
        return self._run(*words, within=3600) == 0

    def _run(self, *words: str, within: float) -> Optional[int]:
        programs = {
            "KELVO_PWR": str(self._build / "kelvo-pwr"),
            "SEGMENT_TOOL": str(self._build / "tests/board/segment_tool"),
            # A test that is skipped has noticed nothing.
            "KELVO_REQUIRES": "board namespaces",
        }
        return run(words, self._folder, within, programs)


def _own_tests(broken: Path) -> str:
    """A filter for the tests of this source, which mostly notice a break of it."""
    tests = broken.parents[2] / "tests" / "unit"
    suites = {
        suite
        for file in tests.glob(f"{broken.stem}*_test.cpp")
        for suite in re.findall(r"^TEST(?:_\w)?\((\w+),", file.read_text(), re.MULTILINE)
    }
    # A parametrised suite's name has words around it.
    return ":".join(f"*{suite}*" for suite in sorted(suites)) or "*"
