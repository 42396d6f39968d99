import os
import pathlib

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[3]


@pytest.fixture(scope="module")
def env(tmp_path_factory):
    """The environment of the tuner's commands: one engine cache for the
    module, so that the bench check runs once."""
    return {**os.environ, "VELKOR_TUNE_CACHE": str(tmp_path_factory.mktemp("cache")),
            "PYTHONPATH": str(ROOT / "tools" / "tune")}
