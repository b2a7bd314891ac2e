"""Shared helpers of the orvane package's tests: synthetic dark series and the `orvane` command."""

import os
import subprocess

import numpy as np
import pytest


def dark_series(frames, rows, columns, seed=0, level=1200, noise=40):
    """A series of uint16 dark frames (frames x rows x columns): a fixed pattern plus noise."""
    rng = np.random.default_rng(seed)
    pattern = rng.normal(level, 3 * noise, size=(rows, columns))
    series = pattern + rng.normal(0, noise, size=(frames, rows, columns))
    return np.clip(np.rint(series), 0, 65535).astype(np.uint16)


@pytest.fixture(scope="session")
def orvane_command():
    """Runs the `orvane` command of the build tree (ctest passes its path in ORVANE_COMMAND)."""
    path = os.environ.get("ORVANE_COMMAND")
    if not path:
        pytest.skip("the `orvane` command is not built (ORVANE_BUILD_APPS=OFF)")

    def run(*args):
        done = subprocess.run([path, *args], capture_output=True, text=True)
        assert done.returncode == 0, f"orvane {' '.join(args)} failed:\n{done.stdout}{done.stderr}"
        return done.stdout

    run.path = path
    return run
