"""`cmake --install` puts the module where the interpreter finds it under the prefix."""
import os
import site
import subprocess
import sys
from pathlib import Path


def test_installed_module_imports_from_the_prefix(tmp_path):
    # The directory's own install script: unlike `cmake --install`, it writes no
    # manifest into the shared build tree.
    cmake = os.environ["FERROTIP_CMAKE"]
    script = os.environ["FERROTIP_PYTHON_INSTALL_SCRIPT"]
    subprocess.run([cmake, f"-DCMAKE_INSTALL_PREFIX={tmp_path}", "-DCMAKE_INSTALL_COMPONENT=python", "-P", script],
                   check=True, capture_output=True)
    site = tmp_path / os.environ["FERROTIP_PYTHON_INSTALL_DIR"]
    assert [p.name.split(".")[0] for p in site.iterdir()] == ["ferrotip"]
    environment = {key: value for key, value in os.environ.items() if key != "PYTHONPATH"}
    environment["PYTHONPATH"] = str(site)
    done = subprocess.run([sys.executable, "-c", "import ferrotip; print(ferrotip.__file__, len(ferrotip.methods()))"],
                          capture_output=True, text=True, env=environment, cwd=tmp_path, check=True)
    path, count = done.stdout.split()
    assert Path(path).parent == site and count == "7"


def test_the_install_dir_is_searched_below_the_usual_prefixes():
    # Below the interpreter's own prefix, and below /usr/local for a system interpreter
    # in /usr, the default of `cmake --install`.
    relative = os.environ["FERROTIP_PYTHON_INSTALL_DIR"]
    searched = set(sys.path) | set(site.getsitepackages())
    prefixes = [sys.prefix] + (["/usr/local"] if sys.prefix == "/usr" else [])
    for prefix in prefixes:
        assert os.path.join(prefix, relative) in searched, (prefix, relative, sorted(searched))
