"""The settings of random lives, as the program on this machine's kernel reads them."""

import os
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))

import clients  # noqa: E402
import life as lives  # noqa: E402
from observer import equal, text_equal  # noqa: E402
from world import NO_CHARGES, SECOND, World  # noqa: E402


def test_the_program_takes_what_the_model_takes(tmp_path):
    refused = 0
    for seed in range(1, 301):
        life = lives.make(seed, False)
        refused += not _is_taken(life, tmp_path, life["words"])
        for step in life["steps"]:
            if step["do"] == "client":
                _is_taken(life, tmp_path, step["words"])
    assert 0 < refused < 30  # Nearly all daemons are to live.


def _is_taken(life: dict, folder: Path, pairs: list) -> bool:
    confs, result = [str(folder / "0.conf"), str(folder / "1.conf")], folder / "result"
    world = World(life, 40_000 * SECOND, 0, {"confs": confs, "result": str(result)}, NO_CHARGES)
    for path, settings in world.files():
        Path(path).write_text("".join(f"{name}={value}\n" for name, value in settings))
    result.unlink(missing_ok=True)
    if life["result"] is not None:
        result.write_text(life["result"])
    words = [f"--{name}={world.resolved(name, value)}" for name, value in pairs]
    argv = [os.environ["KELVO_PWR"], "-c", confs[0], "-c", confs[1], "-v", "-s", *words]
    seen = subprocess.run(argv, capture_output=True, text=True, check=False)
    answer = clients.client(world, ["verbose", "status"], pairs)
    text_equal(f"output of seed {life['seed']}: {argv}", answer.stdout, seen.stdout)
    text_equal(f"errors of seed {life['seed']}: {argv}", answer.stderr, seen.stderr)
    equal(f"status of seed {life['seed']}: {argv}", answer.status, seen.returncode)
    return world.load(pairs).values is not None
