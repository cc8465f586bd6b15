"""Shared fixtures: the command-line program the module must agree with."""
import os
from pathlib import Path

import pytest


@pytest.fixture(scope="session")
def cli():
    """Path of the `ferrotip` program built beside the module (set by CTest)."""
    path = os.environ.get("FERROTIP_CLI")
    if not path or not Path(path).is_file():
        raise RuntimeError("FERROTIP_CLI must name the built ferrotip program; run the tests through ctest")
    return path
