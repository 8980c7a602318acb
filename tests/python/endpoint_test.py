"""Endpoints from their opening to their close."""
import errno
import gc
import os
import subprocess
import sys
import warnings

import pytest

import linx


def test_an_endpoint_has_a_name_and_a_spid_and_tells_them(domain):
    endpoint = domain.open("one")
    assert endpoint.name == "one"
    assert endpoint.spid != 0
    assert repr(endpoint) == f"<linx.Endpoint 'one' spid={endpoint.spid:#x}>"
    assert endpoint.name_of(endpoint.spid) == "one"


def test_a_with_block_ends_the_endpoint_and_frees_its_name(domain):
    with linx.Endpoint("one") as endpoint:
        assert endpoint in linx.open_endpoints()
        assert not endpoint.closed
    assert endpoint.closed
    assert endpoint not in linx.open_endpoints()
    assert repr(endpoint) == "<linx.Endpoint 'one' closed>"
    linx.Endpoint("one").close()


def test_an_exception_leaves_the_with_block_and_the_endpoint_is_closed(domain):
    with pytest.raises(KeyError):
        with linx.Endpoint("one") as endpoint:
            raise KeyError
    assert endpoint.closed


def test_a_name_is_taken_once_and_the_error_names_it_and_the_domain(domain):
    domain.open("one")
    with pytest.raises(OSError) as caught:
        linx.Endpoint("one")
    assert caught.value.errno == errno.EADDRINUSE
    assert "'one'" in str(caught.value) and domain.path in str(caught.value)


@pytest.mark.parametrize(
    "name, number", [("", errno.EINVAL), ("x" * 256, errno.ENAMETOOLONG), ("ü" * 128, errno.ENAMETOOLONG)]
)
def test_a_name_has_1_to_255_bytes(domain, name, number):
    with pytest.raises(OSError) as caught:
        linx.Endpoint(name)
    assert caught.value.errno == number


@pytest.mark.parametrize("name", ["x" * 255, "Größe", "toVp0/EncodeCtrl", "\udcff"])
def test_a_name_may_have_any_bytes_else(domain, name):
    endpoint = domain.open(name)
    assert endpoint.name_of(endpoint.hunt(name, timeout=0)) == name


def test_a_null_character_in_a_name_is_refused_rather_than_cut_off(domain):
    with pytest.raises(ValueError):
        linx.Endpoint("one\0two")
    with pytest.raises(ValueError):
        domain.open("one").hunt("two\0three")


def test_closing_twice_does_nothing_the_second_time(domain):
    endpoint = linx.Endpoint("one")
    endpoint.close()
    endpoint.close()


@pytest.mark.parametrize(
    "use",
    [
        lambda endpoint: endpoint.send(endpoint.spid, 1),
        lambda endpoint: endpoint.receive(timeout=0),
        lambda endpoint: endpoint.poll(),
        lambda endpoint: endpoint.hunt("one", timeout=0),
        lambda endpoint: endpoint.request_hunt("one"),
        lambda endpoint: endpoint.call("one", 1, reply=2, timeout=0),
        lambda endpoint: endpoint.attach(endpoint.spid, 1),
        lambda endpoint: endpoint.wait_end(endpoint.spid, timeout=0),
        lambda endpoint: endpoint.name_of(endpoint.spid),
        lambda endpoint: endpoint.request_timeout(1),
        lambda endpoint: endpoint.cancel_timeout(1),
    ],
)
def test_a_closed_endpoint_refuses_every_operation(domain, use):
    endpoint = linx.Endpoint("one")
    endpoint.close()
    with pytest.raises(OSError, match="'one' is closed") as caught:
        use(endpoint)
    assert caught.value.errno == errno.EBADF


def test_a_closed_endpoint_has_no_descriptor(domain):
    endpoint = linx.Endpoint("one")
    assert endpoint.fileno() >= 0
    endpoint.close()
    assert endpoint.fileno() == -1


def test_what_is_opened_and_closed_costs_no_descriptors(domain):
    linx.Endpoint("first").close()
    before = len(os.listdir("/proc/self/fd"))
    for _ in range(20):
        with linx.Endpoint("one") as one, linx.Endpoint("two") as two:
            one.fileno()
            one.send(two.spid, 1)
    assert len(os.listdir("/proc/self/fd")) == before


def test_an_endpoint_that_is_forgotten_warns_and_is_closed(domain):
    program = """if True:
        import linx
        with linx.Endpoint("supervisor") as supervisor:
            endpoint = linx.Endpoint("forgotten")
            supervisor.attach(endpoint.spid, 7)
            del endpoint
            print(supervisor.receive(7, timeout=60).number)
    """
    ended = subprocess.run([sys.executable, "-Wdefault", "-c", program], capture_output=True, text=True, check=True)
    assert "ResourceWarning: unclosed <linx.Endpoint 'forgotten'" in ended.stderr
    assert ended.stdout == "7\n"


def test_a_closed_endpoint_is_forgotten_without_a_word(domain):
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        linx.Endpoint("one").close()
        with pytest.raises(OSError):
            linx.Endpoint("")
        gc.collect()


def test_an_interpreter_that_ends_with_an_open_endpoint_warns_of_it(domain):
    program = "import linx; endpoint = linx.Endpoint('forgotten')"
    ended = subprocess.run([sys.executable, "-Wdefault", "-c", program], capture_output=True, text=True, check=True)
    assert "ResourceWarning: unclosed <linx.Endpoint 'forgotten'" in ended.stderr


def test_many_endpoints_are_open_in_one_process_at_a_time(domain):
    endpoints = [domain.open(f"endpoint-{index}") for index in range(100)]
    assert len({endpoint.spid for endpoint in endpoints}) == 100
    for endpoint, following in zip(endpoints, endpoints[1:]):
        endpoint.send(following.name, 2000, endpoint.name.encode())
    for endpoint, following in zip(endpoints, endpoints[1:]):
        message = following.receive(timeout=60)
        assert (message.data, message.sender) == (endpoint.name.encode(), endpoint.spid)


def test_a_domain_of_another_make_is_refused(domain, tmp_path, monkeypatch):
    (tmp_path / "arena").write_bytes(b"no arena" * 1000)
    monkeypatch.setenv("LINX_DOMAIN", str(tmp_path))
    with pytest.raises(OSError) as caught:
        linx.Endpoint("one")
    assert caught.value.errno == errno.EPROTO


def test_a_domain_that_cannot_be_made_is_told(monkeypatch):
    monkeypatch.setenv("LINX_DOMAIN", "/nowhere/at/all")
    with pytest.raises(FileNotFoundError, match="/nowhere/at/all"):
        linx.Endpoint("one")
