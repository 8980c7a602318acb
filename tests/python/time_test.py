"""Time-outs, of receives and as signals."""
import errno
import os
import signal
import threading
import time

import pytest

import linx


def test_a_receive_ends_at_its_limit_and_not_before(domain):
    endpoint = domain.open("one")
    for timeout in (0.25, 0.05, 0.001):
        began = time.monotonic()
        with pytest.raises(TimeoutError) as caught:
            endpoint.receive(timeout=timeout)
        assert time.monotonic() - began >= timeout
        assert caught.value.errno == errno.ETIMEDOUT


def test_a_receive_without_time_does_not_wait(domain):
    endpoint = domain.open("one")
    with pytest.raises(TimeoutError):
        endpoint.receive(timeout=0)
    with pytest.raises(TimeoutError):
        endpoint.receive(timeout=-1)
    endpoint.send(endpoint.spid, 1)
    assert endpoint.receive(timeout=0).number == 1


def test_a_receive_without_limit_waits_for_its_signal(domain):
    endpoint = domain.open("one")
    endpoint.request_timeout(0.3, 7)
    assert endpoint.receive().number == 7


def test_the_same_in_another_thread(domain):
    received = []

    def receive():
        with linx.Endpoint("one") as endpoint:
            endpoint.request_timeout(0.3, 7)
            received.append(endpoint.receive().number)
            try:
                endpoint.receive(timeout=0.01)
            except TimeoutError:
                received.append(None)

    thread = threading.Thread(target=receive)
    thread.start()
    thread.join()
    assert received == [7, None]


def test_a_time_out_comes_from_oneself_with_its_number_and_payload(domain):
    endpoint = domain.open("one")
    began = time.monotonic()
    endpoint.request_timeout(0.05, 7, b"tick")
    assert endpoint.receive(timeout=60) == (7, b"tick", endpoint.spid)
    assert time.monotonic() - began >= 0.05


def test_a_time_out_has_a_number_of_its_own_if_nobody_says_another(domain):
    endpoint = domain.open("one")
    endpoint.request_timeout(0)
    assert endpoint.receive(timeout=60) == (linx.OS_TIMEOUT_SIG, b"", endpoint.spid)


def test_time_outs_come_in_the_order_of_their_time(domain):
    endpoint = domain.open("one")
    is_plain = False
    while not is_plain:
        due = []  # not before, not after, number
        for tenths in (3, 1, 2):
            began = time.monotonic()
            endpoint.request_timeout(tenths / 10, tenths)
            due.append((began + tenths / 10, time.monotonic() + tenths / 10, tenths))
        due.sort()
        received = [endpoint.receive(timeout=60).number for _ in due]
        # A machine that held the requests up has made their order another.
        is_plain = all(before[1] + 0.001 < after[0] for before, after in zip(due, due[1:]))
    assert received == [number for _, _, number in due]


def test_a_cancelled_time_out_does_not_come(domain):
    endpoint = domain.open("one")
    reference = endpoint.request_timeout(0.05, 1)
    endpoint.request_timeout(0.1, 2)
    endpoint.cancel_timeout(reference)
    assert endpoint.receive(timeout=60).number == 2
    assert endpoint.poll() is None


def test_a_time_out_that_is_over_and_waits_can_be_cancelled(domain):
    endpoint = domain.open("one")
    reference = endpoint.request_timeout(0, 1)
    endpoint.request_timeout(0.05, 2)
    endpoint.receive(2, timeout=60)
    endpoint.cancel_timeout(reference)
    assert endpoint.poll() is None


def test_an_unknown_or_received_time_out_cannot_be_cancelled(domain):
    endpoint = domain.open("one")
    reference = endpoint.request_timeout(0, 1)
    endpoint.receive(timeout=60)
    for gone in (reference, 12345, 0):
        with pytest.raises(OSError) as caught:
            endpoint.cancel_timeout(gone)
        assert caught.value.errno == errno.EINVAL


def test_a_time_out_in_the_past_or_after_ages_is_refused(domain):
    endpoint = domain.open("one")
    for seconds in (-1, 5e6):
        with pytest.raises(OverflowError):
            endpoint.request_timeout(seconds)


@pytest.mark.parametrize(
    "wait, queued", [(lambda e: e.receive(), 0), (lambda e: e.receive(3), 1), (lambda e: e.hunt("nobody"), 1)]
)
def test_a_handler_of_a_posix_signal_ends_a_wait_that_has_no_limit(domain, wait, queued):
    """As Ctrl-C does; also when other signals are queued."""

    class Interrupt(Exception):
        pass

    def interrupt(number, frame):
        raise Interrupt

    endpoint = domain.open("one")
    for _ in range(queued):
        endpoint.send(endpoint.spid, 1)
    before = signal.signal(signal.SIGUSR1, interrupt)
    timer = threading.Timer(0.2, os.kill, (os.getpid(), signal.SIGUSR1))
    try:
        with pytest.raises(Interrupt):
            timer.start()
            wait(endpoint)
    finally:
        timer.join()
        signal.signal(signal.SIGUSR1, before)
    endpoint.send(endpoint.spid, 2)
    assert endpoint.receive(2, timeout=60).number == 2
    assert bool(endpoint.poll()) == bool(queued)
