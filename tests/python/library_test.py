"""Where linx.py finds the library."""
import os
import subprocess
import sys

import pytest

OPEN = "import linx; linx.Endpoint('one').close(); print('opened')"


def run(program, **variables):
    environment = {name: value for name, value in {**os.environ, **variables}.items() if value is not None}
    return subprocess.run([sys.executable, "-c", program], env=environment, capture_output=True, text=True)


def test_a_variable_names_the_library(domain):
    assert run(OPEN).stdout == "opened\n"


def test_without_the_variable_the_loader_finds_it_by_its_soname(domain, tmp_path):
    (tmp_path / "liblinxhost.so.1").symlink_to(os.environ["LINX_LIBRARY"])
    assert run(OPEN, LINX_LIBRARY=None, LD_LIBRARY_PATH=str(tmp_path)).stdout == "opened\n"


@pytest.mark.parametrize("library", [None, "/nowhere/liblinxhost.so.1"])
def test_a_library_that_is_missing_is_told_with_the_remedy_when_it_is_needed(library):
    assert run("import linx", LINX_LIBRARY=library, LD_LIBRARY_PATH=None).returncode == 0
    ended = run(OPEN, LINX_LIBRARY=library, LD_LIBRARY_PATH=None)
    assert ended.returncode == 1
    assert "liblinxhost.so.1: cannot open shared object file" in ended.stderr
    assert "let LINX_LIBRARY be the path of liblinxhost.so.1" in ended.stderr
