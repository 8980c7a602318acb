"""Endpoints and the threads of their process."""
import errno
import threading

import pytest

import linx


def test_endpoints_of_different_threads_talk(domain):
    def echo(name):
        with linx.Endpoint(name) as endpoint:
            for _ in range(200):
                message = endpoint.receive(7, timeout=60)
                endpoint.send(message.sender, 8, message.data)

    threads = [threading.Thread(target=echo, args=(f"echo-{index}",)) for index in range(8)]
    for thread in threads:
        thread.start()
    caller = domain.open("caller")
    for turn in range(200):
        for index in range(8):
            payload = f"{turn} {index}".encode()
            assert caller.call(f"echo-{index}", 7, payload, reply=8, timeout=60).data == payload
    for thread in threads:
        thread.join()


def test_an_endpoint_may_be_handed_to_another_thread(domain):
    endpoint = domain.open("one")
    thread = threading.Thread(target=lambda: endpoint.send("one", 7))
    thread.start()
    thread.join()
    assert endpoint.poll().number == 7


@pytest.mark.parametrize(
    "use", [lambda e: e.send(e.spid, 1), lambda e: e.poll(), lambda e: e.close(), lambda e: e.name_of(e.spid)]
)
def test_a_second_thread_is_refused_while_the_first_waits(domain, use):
    endpoint = domain.open("one")
    other = domain.open("other")
    thread = threading.Thread(target=lambda: endpoint.receive(7, timeout=60))
    thread.start()
    with pytest.raises(OSError) as caught:
        while True:  # until the thread is inside
            endpoint.poll()
    for _ in range(100):
        with pytest.raises(OSError, match="'one' is in use by another thread") as caught:
            use(endpoint)
        assert caught.value.errno == errno.EINVAL
    other.send("one", 7)
    thread.join()
    endpoint.send("one", 8)
    assert endpoint.poll().number == 8
