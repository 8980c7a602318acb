"""What the sources need: the syntax and the types, whatever library they load."""
import ast
import pathlib
import subprocess
import sys

import pytest

PYTHON = pathlib.Path(__file__).parents[2] / "python"


def sources():
    return sorted(path for path in PYTHON.rglob("*.py"))


@pytest.mark.parametrize("path", sources(), ids=lambda path: str(path.relative_to(PYTHON)))
def test_the_syntax_is_that_of_python_3_9(path):
    ast.parse(path.read_text(), filename=str(path), feature_version=(3, 9))


@pytest.mark.parametrize("version", ["3.9", "3.13"])
def test_the_types_are_complete_and_right(version, tmp_path):
    pytest.importorskip("mypy")
    files = [str(path.relative_to(PYTHON)) for path in sources()]
    checked = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", f"--python-version={version}", f"--cache-dir={tmp_path}", *files],
        cwd=PYTHON,
        capture_output=True,
        text=True,
    )
    assert checked.returncode == 0, checked.stdout + checked.stderr
