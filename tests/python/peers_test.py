"""Finding others, supervising them, calling them; and their deaths."""
import signal
import sys
import threading
import time

import pytest

import linx

OTHER = """
import os
import linx
with linx.Endpoint("other") as endpoint:
    print("ready", flush=True)
    while True:
        message = endpoint.receive()
        if message.number == 1:
            break
        if message.number == 2:
            endpoint.send(message.sender, 3, message.data)
        if message.number == 4:
            endpoint.send(message.sender, 3, message.data)
        if message.number in (4, 5):
            os.kill(os.getpid(), 9)
"""


@pytest.fixture
def other(domain):
    server = domain.start([sys.executable, "-c", OTHER], "other")
    server.expect_end()
    return server


def test_a_hunt_finds_who_is_there(domain):
    one, two = domain.open("one"), domain.open("two")
    assert one.hunt("two") == two.spid
    assert one.hunt("one", timeout=0) == one.spid
    assert one.poll() is None and two.poll() is None


def test_a_hunt_waits_for_who_is_not_there_yet(domain):
    one = domain.open("one")
    spids = []

    def come():
        time.sleep(0.2)
        with linx.Endpoint("late") as late:
            spids.append(late.spid)
            late.receive(1, timeout=60)

    thread = threading.Thread(target=come)
    thread.start()
    found = one.hunt("late", timeout=60)
    one.send(found, 1)
    thread.join()
    assert [found] == spids


def test_a_hunt_for_nobody_ends_at_its_limit(domain):
    one = domain.open("one")
    with pytest.raises(TimeoutError, match="no endpoint 'nobody' within 0.05 s"):
        one.hunt("nobody", timeout=0.05)


def test_hunts_that_were_given_up_do_not_add_up(domain):
    """There may be 1024 pending ones."""
    one = domain.open("one")
    for _ in range(2000):
        with pytest.raises(TimeoutError):
            one.hunt("nobody", timeout=0)


def test_the_late_answer_to_a_hunt_that_was_given_up_is_not_seen(domain):
    one = domain.open("one")
    with pytest.raises(TimeoutError):
        one.hunt("late", timeout=0)
    late = domain.open("late")
    assert one.poll() is None
    late.send(one.spid, 7)
    assert one.receive(timeout=60).number == 7
    assert one.hunt("late", timeout=0) == late.spid


def test_the_late_answer_of_one_who_has_ended_is_not_taken_for_that_of_the_next(domain):
    one = domain.open("one")
    with pytest.raises(TimeoutError):
        one.hunt("late", timeout=0)
    linx.Endpoint("late").close()
    with pytest.raises(TimeoutError):
        one.hunt("late", timeout=0)
    next_one = domain.open("late")
    assert one.hunt("late", timeout=60) == next_one.spid


def test_a_hunt_can_be_answered_by_a_signal_of_choice(domain):
    one = domain.open("one")
    one.request_hunt("late", 7, b"here")
    one.request_hunt("one")
    assert one.poll() == (linx.OS_HUNT_SIG, b"", one.spid)
    late = domain.open("late")
    assert one.receive(timeout=60) == (7, b"here", late.spid)


def test_the_name_of_one_who_has_ended_is_known(domain):
    one = domain.open("one")
    with linx.Endpoint("other") as other:
        spid = other.spid
    assert one.name_of(spid) == "other"
    with pytest.raises(ProcessLookupError):
        one.name_of(0x123456)


def test_an_end_is_told_once_for_each_attach(domain):
    one = domain.open("one")
    with linx.Endpoint("other") as other:
        assert one.attach(other.spid, 7, b"first") != one.attach(other.spid, 8)
        assert one.poll() is None
    assert [one.receive(timeout=60) for _ in range(2)] == [(7, b"first", other.spid), (8, b"", other.spid)]
    one.attach(other.spid, 9)
    assert one.receive(timeout=60) == (9, b"", other.spid)
    assert one.poll() is None


def test_nobody_can_attach_to_one_who_never_was(domain):
    with pytest.raises(ProcessLookupError):
        domain.open("one").attach(0x123456, 7)


def test_a_kill_is_told_after_all_that_was_sent(domain, other):
    one = domain.open("one")
    spid = other.spids["other"]
    one.attach(spid, 7)
    one.send(spid, 4, b"last words")
    assert one.receive(timeout=60) == (3, b"last words", spid)
    assert one.receive(timeout=60) == (7, b"", spid)
    assert other.wait() == -signal.SIGKILL


def test_a_name_is_free_after_a_kill(domain, other):
    one = domain.open("one")
    other.kill()
    with pytest.raises(ConnectionResetError):
        one.send(other.spids["other"], 2)
    with pytest.raises(ProcessLookupError):
        one.send("other", 2)
    domain.open("other")
    one.send("other", 2)
    domain._endpoints[-1].receive(timeout=60)


def test_an_end_can_be_waited_for(domain, other):
    one = domain.open("one")
    spid = other.spids["other"]
    for _ in range(2):
        with pytest.raises(TimeoutError, match="has not ended within 0.01 s"):
            one.wait_end(spid, timeout=0.01)
    one.send(spid, 1)
    one.wait_end(spid, timeout=60)
    one.wait_end(spid, timeout=60)
    assert one.poll() is None
    assert other.wait() == 0


def test_a_call_returns_the_answer(domain, other):
    one = domain.open("one")
    one.send("one", 9)
    spid = other.spids["other"]
    assert one.call("other", 2, b"x", reply=3) == (3, b"x", spid)
    assert one.call(spid, 2, b"y", reply=(5, 3), timeout=60) == (3, b"y", spid)
    assert one.poll().number == 9


def test_a_call_waits_for_a_name(domain):
    one = domain.open("one")
    with pytest.raises(TimeoutError, match="no endpoint 'late' within"):
        one.call("late", 2, reply=3, timeout=0.05)
    peer = domain.peer("late")
    peer.always(2).answer(3)
    assert one.call("late", 2, reply=3).number == 3


def test_a_call_that_is_not_answered_ends_at_its_limit(domain, other):
    with pytest.raises(TimeoutError, match="'other' did not answer signal 9 with 3 within 0.05 s"):
        domain.open("one").call("other", 9, reply=3, timeout=0.05)


def test_a_call_ends_as_soon_as_the_called_one_is_killed(domain, other):
    with pytest.raises(ConnectionResetError, match="'other' ended and did not answer signal 5 with 8"):
        domain.open("one").call("other", 5, reply=8)


def test_an_answer_comes_before_the_end_of_who_gave_it(domain, other):
    assert domain.open("one").call("other", 4, b"last words", reply=3).data == b"last words"


def test_the_ends_of_those_who_were_called_do_not_add_up_where_all_that_is_received_is_selected(domain):
    one = domain.open("one")
    for _ in range(300):
        with linx.Endpoint("other") as other:
            one.attach(other.spid, 7)
            with pytest.raises(TimeoutError):
                one.wait_end(other.spid, timeout=0)
        one.receive(7, timeout=60)
    assert len(one._subjects) <= 1


def test_calls_do_not_add_up_notices(domain, other):
    one = domain.open("one")
    for _ in range(10):
        one.call("other", 2, reply=3)
    one.send("other", 1)
    other.wait()
    assert one.poll() is None
    with pytest.raises(ConnectionResetError):
        one.call(other.spids["other"], 2, reply=3)
    assert one.poll() is None
