# SPDX-License-Identifier: MIT
"""System tests of servers that talk over LINX signals: the pytest fixture `domain`.

    def test_greeter(domain):
        domain.start("./greeter", "greeter")
        guest = domain.peer("guest")
        guest.send("greeter", 2000, b"World")
        guest.expect(2001, b"Hello, World!").wait()

`pytest -p pytest_linx` brings it in from a source tree; where it is installed, pytest finds it.
"""
from __future__ import annotations

import gc
from typing import Any, Generator, Iterator

import pytest

import linx

from . import describe
from .domain import Domain
from .peer import Expectation, Peer
from .server import Process, Server

__all__ = ["Domain", "Expectation", "Peer", "Process", "Server", "domain"]

_domain_key = pytest.StashKey[Domain]()
_passed_key = pytest.StashKey[bool]()


def pytest_addoption(parser: pytest.Parser) -> None:
    text = "seconds that the fixture `domain` waits where a test says nothing else"
    parser.getgroup("linx").addoption("--linx-timeout", type=float, metavar="SECONDS", help=text)
    parser.addini("linx_timeout", text, default="10")


@pytest.fixture
def domain(request: pytest.FixtureRequest) -> Iterator[Domain]:
    """A domain for this test alone: starts servers, stands in for peers, fails the test on what is left over."""
    option = request.config.getoption("--linx-timeout")
    timeout = float(request.config.getini("linx_timeout")) if option is None else option
    path = Domain.make_directory()
    with pytest.MonkeyPatch.context() as patch:
        patch.setenv("LINX_DOMAIN", path)
        made = Domain(path, timeout)
        request.node.stash[_domain_key] = made
        _note_collected(made, patch)
        yield made
        gc.collect()
        # What a test leaves behind that has failed half-way is no news.
        passed = request.node.stash.get(_passed_key, False)
        left = made.clean_up(timeout if passed else 0)
    if left and passed:
        pytest.fail(describe.section("The test has left something over:", "\n".join(left)), pytrace=False)


def _note_collected(domain: Domain, patch: pytest.MonkeyPatch) -> None:
    finalize = linx.Endpoint.__del__

    def note(endpoint: linx.Endpoint) -> None:
        if getattr(endpoint, "_handle", None) is not None:
            domain.note_collected(endpoint)
        finalize(endpoint)

    patch.setattr(linx.Endpoint, "__del__", note)


def pytest_runtest_call(item: pytest.Item) -> Generator[None, Any, None]:
    outcome = yield
    made = item.stash.get(_domain_key, None)
    if made is None or outcome.excinfo is not None:
        return
    try:
        made.verify()
        item.stash[_passed_key] = True
    except Exception as error:
        _fail(outcome, str(error))


def _fail(outcome: Any, text: str) -> None:
    failure = pytest.fail.Exception(text, pytrace=False)
    if hasattr(outcome, "force_exception"):
        outcome.force_exception(failure)
    else:  # pluggy before 1.1
        outcome._excinfo = (type(failure), failure, None)


def pytest_runtest_makereport(item: pytest.Item) -> Generator[None, Any, None]:
    outcome = yield
    report = outcome.get_result()
    made = item.stash.get(_domain_key, None)
    told = report.when == "teardown" and not item.stash.get(_passed_key, False)
    if made is not None and report.failed and not told:
        report.sections.extend(made.story())


# Not as decorators, which older versions of pluggy give no types to.
for _wrapper in (pytest_runtest_call, pytest_runtest_makereport):
    pytest.hookimpl(hookwrapper=True)(_wrapper)
