"""An endpoint that two processes have after a fork."""
import os
import threading

import pytest

import linx


def in_child(function):
    """What the function returns or raises in a forked process, as text."""
    read_end, write_end = os.pipe()
    pid = os.fork()
    if pid == 0:
        try:
            text = repr(function())
        except BaseException as error:
            text = repr(error)
        os.write(write_end, text.encode())
        os._exit(0)
    os.close(write_end)
    with os.fdopen(read_end, "rb") as pipe:
        text = pipe.read().decode()
    os.waitpid(pid, 0)
    return text


def test_the_endpoint_belongs_to_the_process_that_uses_it_first(domain):
    endpoint = linx.Endpoint("one")
    assert "send" in in_child(lambda: (endpoint.send(endpoint.spid, 7), endpoint.receive(timeout=60), "send"))
    for use in (
        lambda: endpoint.send(endpoint.spid, 7),
        lambda: endpoint.poll(),
        lambda: endpoint.hunt("one", timeout=0),
        lambda: endpoint.request_timeout(1),
    ):
        with pytest.raises(ChildProcessError):
            use()
    endpoint.close()
    assert endpoint.closed
    linx.Endpoint("one").close()


def test_a_child_that_closes_what_it_has_inherited_leaves_the_endpoint_to_its_parent(domain):
    endpoint = domain.open("one")
    endpoint.send(endpoint.spid, 7)
    assert in_child(lambda: (endpoint.close(), endpoint.closed)) == "(None, True)"
    assert endpoint.poll() == (7, b"", endpoint.spid)


def test_a_child_that_is_late_is_refused_and_may_close_its_copy(domain):
    endpoint = domain.open("one")
    go_read, go_write = os.pipe()

    def late():
        os.read(go_read, 1)
        with pytest.raises(ChildProcessError):
            endpoint.poll()
        endpoint.close()
        return endpoint.closed

    pid = os.fork()
    if pid == 0:
        try:
            os._exit(0 if late() else 1)
        except BaseException:
            os._exit(2)
    endpoint.send(endpoint.spid, 7)
    os.write(go_write, b"!")
    assert os.waitpid(pid, 0)[1] == 0
    assert endpoint.poll().number == 7
    os.close(go_read)
    os.close(go_write)


def test_a_daemon_takes_its_endpoint_along(domain):
    endpoint = linx.Endpoint("daemon")
    peer = domain.open("peer")
    pid = os.fork()
    if pid == 0:
        with endpoint:
            message = endpoint.receive(timeout=60)
            endpoint.send(message.sender, 8, message.data)
            endpoint.receive(timeout=60)
        os._exit(0)
    # Used here, it would stay here.
    assert peer.call(endpoint.spid, 7, b"x", reply=8, timeout=60) == (8, b"x", endpoint.spid)
    endpoint.close()
    peer.send("daemon", 9)
    assert os.waitpid(pid, 0)[1] == 0
    with pytest.raises(ConnectionResetError):
        peer.send(endpoint.spid, 9)


def test_a_child_opens_endpoints_of_its_own(domain):
    with linx.Endpoint("parents"):
        def meet():
            with linx.Endpoint("childs") as own:
                own.send("childs", 7)
                return own.poll().number

        assert in_child(meet) == "7"


def test_a_child_of_a_thread_that_forks_while_another_waits_is_refused(domain):
    """The waiting thread's endpoint is its parent's; the child neither has it nor stands still."""
    endpoint = domain.open("one")
    thread = threading.Thread(target=lambda: received.append(endpoint.receive(7, timeout=60)))
    received = []
    other = domain.open("other")
    other.attach(endpoint.spid, 1)
    thread.start()
    with pytest.raises(OSError):
        while True:  # until the thread is inside
            endpoint.poll()
    assert in_child(endpoint.poll).startswith("ChildProcessError")
    other.send(endpoint.spid, 7)
    thread.join()
    assert received[0].number == 7
