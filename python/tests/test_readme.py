"""The README's Python example runs as a reader would paste it."""
import os
import re
import subprocess
import sys
from pathlib import Path

import ferrotip

README = Path(__file__).resolve().parents[2] / "README.md"


def run_example(tmp_path, index):
    """The printed lines of the index-th Python example of the README's Python section."""
    section = README.read_text().split("\n## Python\n", 1)[1].split("\n## ", 1)[0]
    blocks = re.findall(r"```python\n(.*?)```", section, re.S)
    assert len(blocks) > index, "the README's Python section lacks an example"
    environment = dict(os.environ, PYTHONPATH=str(Path(ferrotip.__file__).parent))
    done = subprocess.run([sys.executable, "-c", blocks[index]], capture_output=True, text=True, cwd=tmp_path,
                          env=environment, timeout=120)
    assert done.returncode == 0, done.stderr
    return done.stdout.splitlines()


def test_readme_example_runs(tmp_path):
    lines = run_example(tmp_path, 0)
    assert lines[2] == "2 Normal Clicks 3 ms"
    assert float(lines[7].split(":")[1]) < 0.05  # the click was 0.8 off
    before, after = map(float, lines[8].split(":")[1].split())
    assert after < before / 4


def test_readme_declick_example_runs(tmp_path):
    lines = run_example(tmp_path, 1)
    assert lines[0].split()[1:3] == ["spans", "repaired,"]
    before, after = map(float, lines[1].split(":")[1].split())
    assert after < before / 4
    assert lines[2].startswith("latency: ")
