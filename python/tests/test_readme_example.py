"""The README's example beside ccdproc runs as printed, and its figures hold."""

import os
import pathlib
import re
import subprocess
import sys

import pytest

README = pathlib.Path(__file__).resolve().parents[2] / "README.md"


def test_the_readme_example_runs_and_prints_its_figures(tmp_path, orvane_command):
    pytest.importorskip("ccdproc")
    pytest.importorskip("matplotlib")
    blocks = re.findall(r"```python\n(.*?)```", README.read_text(), re.S)
    example = next(block for block in blocks if "ccdproc" in block)
    environment = dict(os.environ, ORVANE_COMMAND=orvane_command.path)
    done = subprocess.run([sys.executable, "-c", example], cwd=tmp_path, env=environment, capture_output=True,
                          text=True, timeout=300)
    assert done.returncode == 0, done.stderr
    printed = re.search(r"at most ([\d.]+) counts\nflagged: orvane (\d+), ccdmask (\d+), both (\d+)", done.stdout)
    assert printed, done.stdout
    difference, ours, theirs, both = float(printed[1]), int(printed[2]), int(printed[3]), int(printed[4])
    assert difference <= 0.5  # the offset is the mean, rounded
    assert 0 < both <= min(ours, theirs) and both >= 0.9 * theirs  # what ccdmask finds, orvane finds too
    assert (tmp_path / "orvane-vs-ccdproc.png").stat().st_size > 10000
