"""What the documentation shows is so."""
import doctest
import pathlib
import re

import linx

ROOT = pathlib.Path(__file__).parents[2]
README = (ROOT / "python" / "README.md").read_text()

FAILING = """
import enum, sys, linx

class Number(enum.IntEnum):
    GREET = 2000
    GREETING = 2001

def test_it(domain):
    domain.name_numbers(Number)
    domain.start([sys.executable, "python/examples/asyncio_server.py"], "greeter")
    guest = domain.peer("guest")
    guest.send("greeter", Number.GREET, linx.pack("I", 0) + b"World")
    while not guest.unexpected:
        guest.run(lambda endpoint: None)
    guest.expect(Number.GREETING, b"Hello, world!", sender="greeter").wait(1)
"""


def blocks(language):
    return re.findall(rf"^```{language}\n(.*?)^```$", README, re.MULTILINE | re.DOTALL)


def run_tests(text, pytester, monkeypatch):
    path = pytester.makepyfile(text)
    monkeypatch.chdir(ROOT)
    return pytester.runpytest("-p", "pytest_linx", "-p", "no:cacheprovider", "--linx-timeout=60", path)


def test_the_examples_of_the_module_are_right(domain):
    results = doctest.testmod(linx)
    assert results.failed == 0 and results.attempted >= 4


def test_the_endpoints_of_the_readme_do_what_it_shows(monkeypatch, tmp_path):
    for index, text in enumerate(blocks("python")):
        if ">>>" in text:
            # In a new domain each, so that spids are as shown.
            monkeypatch.setenv("LINX_DOMAIN", str(tmp_path / str(index)))
            test = doctest.DocTestParser().get_doctest(text, {"linx": linx}, "README.md", "README.md", 0)
            output = []
            assert doctest.DocTestRunner().run(test, out=output.append).failed == 0, "".join(output)


def test_the_tests_of_the_readme_pass(pytester, monkeypatch):
    (text,) = [text for text in blocks("python") if "def test_" in text]
    run_tests(text, pytester, monkeypatch).assert_outcomes(passed=text.count("def test_"))


def test_failures_look_as_the_readme_shows_them(pytester, monkeypatch):
    (shown,) = blocks("text")
    result = run_tests(FAILING, pytester, monkeypatch)
    result.assert_outcomes(failed=1)
    assert shown in result.stdout.str() + "\n"
