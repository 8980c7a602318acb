"""What the fixture `domain` does for a test."""
import os
import re
import signal
import sys
import threading

import pytest

import linx


def test_each_test_has_a_fresh_domain(domain):
    assert os.environ["LINX_DOMAIN"] == domain.path
    assert re.match(r"/dev/shm/linx-pytest\.\w+$", domain.path)
    domain.open("one")  # which the next test opens, too


def test_each_test_has_another_domain(domain):
    domain.open("one")


def test_a_server_is_started_and_found(domain, program):
    server = domain.start(program, "server")
    assert server.is_running and server.status is None
    assert server.spids == {"server": domain.wait_for("server")}
    peer = domain.peer("peer")
    peer.send("server", 10, b"x")
    peer.expect(11, b"x", sender="server").wait()
    assert server.shutdown() == 0
    assert not server.is_running and server.status == 0


def test_a_server_gets_its_environment_and_options(domain, program, tmp_path):
    code = "import os; print(os.environ['GIVEN'], os.environ['LINX_DOMAIN'], os.environ['LINX_LOG'], os.getcwd())"
    server = domain.start([sys.executable, "-c", code], env={"GIVEN": "value"}, cwd=tmp_path)
    assert server.wait() == 0
    server.wait_for_output(f"value {domain.path} stderr {tmp_path}\n")


def test_output_is_captured_and_can_be_waited_for(domain, program):
    server = domain.start(program, "server")
    peer = domain.peer("peer")
    peer.send("server", 20, b"the answer is 42 today")
    assert server.wait_for_output(re.compile(r"answer is (\d+) ")).group(1) == "42"
    server.wait_for_output("today\n")
    assert "ready\nthe answer is 42 today\n" in server.output


def test_a_server_is_killed_and_restarted_under_its_name(domain, program):
    server = domain.start(program, "server")
    peer = domain.peer("peer")
    first, first_pid = server.spids["server"], server.pid
    peer.run(lambda endpoint: endpoint.attach(first, 99))
    peer.send("server", 20, b"first life")
    server.wait_for_output("first life")
    server.kill()
    peer.expect(99, sender="server").wait()
    assert server.status == -signal.SIGKILL
    server.restart()
    assert server.pid != first_pid and server.spids["server"] != first
    assert "first life" not in server.output
    assert peer.call("server", 10, b"x", reply=11).data == b"x"
    server.restart()
    assert peer.call("server", 10, b"y", reply=11).data == b"y"


def test_a_server_is_stopped_and_goes_on(domain, program):
    server = domain.start(program, "server")
    peer = domain.peer("peer")
    server.signal(signal.SIGSTOP)
    peer.send("server", 10, b"x")
    expected = peer.expect(11, b"x")
    with pytest.raises(AssertionError, match="peer 'peer' has not got what it expects"):
        expected.wait(0.2)
    server.signal(signal.SIGCONT)
    expected.wait()


def test_an_end_that_was_asked_for_is_no_failure(domain, program):
    server = domain.start(program, "server")
    peer = domain.peer("peer")
    server.expect_end()
    peer.send("server", 30, b"\3")
    assert server.wait() == 3
    server.restart()
    server.signal(signal.SIGUSR1)
    assert server.wait() == -signal.SIGUSR1
    server.restart()
    assert server.terminate() == -signal.SIGTERM
    server.restart()
    with pytest.raises(RuntimeError, match="server 'server' .* runs"):
        server.start()


def test_an_end_that_is_waited_for_afterwards_is_no_failure(domain, program):
    server = domain.start(program, "server")
    domain.open("one").send("server", 30, b"\3")
    domain.wait_end(server.spids["server"])
    with pytest.raises(AssertionError, match="has ended unasked: exit status 3"):
        domain.peer("peer").expect(1).wait()
    assert server.wait() == 3
    domain.peer("other").send("peer", 1)


def test_a_program_without_endpoints_may_end_with_any_status_that_somebody_waits_for(domain):
    program = domain.start(["sh", "-c", "echo ended; exit 4"])
    program.wait_for_output("ended")
    domain.open("one").send("one", 1)
    domain.peer("peer").send("peer", 1)
    domain._peers[0].expect(1).wait()
    domain._endpoints[0].poll()
    assert program.wait() == 4


def test_a_peer_answers_what_it_expects(domain, program):
    domain.start(program, "server")
    config, peer = domain.peer("config"), domain.peer("peer")
    asked = config.expect(51, b"may I?", sender="server").answer(52, b"yes")
    peer.send("server", 50, b"config")
    assert peer.expect(53).wait().data == b"yes"
    assert [message.data for message in asked.messages] == [b"may I?"]


def test_what_came_is_told_before_it_is_answered(domain):
    one, two = domain.peer("one"), domain.peer("two")
    told = []
    question = two.expect(1)
    question.do(lambda endpoint, message: told.append(len(question.messages)))
    one.send("two", 1)
    question.wait()
    assert told == [1]


def test_an_answer_may_be_made_from_the_question(domain):
    one, two = domain.peer("one"), domain.peer("two")
    two.always(1).answer(2, lambda message: message.data[::-1]).answer(3)
    for text in (b"abc", b"xyz"):
        one.send("two", 1, text)
        assert one.expect(2).wait().data == text[::-1]
        one.expect(3, b"").wait()


def test_a_peer_does_what_it_is_told_in_its_own_thread(domain):
    one, two = domain.peer("one"), domain.peer("two")
    threads = []
    two.expect(1).do(lambda endpoint, message: threads.append(threading.current_thread().name))
    two.expect(2).do(lambda endpoint, message: two.send("one", 3))
    one.send("two", 1)
    one.send("two", 2)
    one.expect(3).wait()
    assert threads == ["peer two"]
    assert two.run(lambda endpoint: (threading.current_thread().name, endpoint.spid)) == ("peer two", two.spid)
    with pytest.raises(ProcessLookupError):
        two.run(lambda endpoint: endpoint.send("nobody", 1))


def test_what_comes_before_it_is_expected_waits_and_is_answered_then(domain):
    one, two = domain.peer("one"), domain.peer("two")
    one.send("two", 1, b"early")
    two.run(lambda endpoint: None)
    assert [arrival.message.data for arrival in two.unexpected] == [b"early"]
    two.expect(1, b"early").answer(2)
    one.expect(2).wait()


def test_expectations_may_come_in_any_order_and_are_told_apart(domain):
    one, two = domain.peer("one"), domain.peer("two")
    by_payload = two.expect(1, b"this")
    by_sender = two.expect(1, sender="two")
    by_condition = two.expect(1, where=lambda message: message.data.startswith(b"c"))
    twice = two.expect(2, times=2)
    rest = two.always(1)
    two.send("two", 1, b"me")
    for text in (b"c", b"other", b"this", b"this"):
        one.send("two", 1, text)
    one.send("two", 2, b"a")
    one.send("two", 2, b"b")
    two.wait()
    assert by_payload.wait().data == b"this"
    assert by_sender.wait().data == b"me"
    assert by_condition.wait().data == b"c"
    assert twice.wait().data == b"b"
    assert [message.data for message in rest.messages] == [b"other", b"this"]


def test_the_end_of_a_test_waits_for_what_is_expected(domain):
    one, two = domain.peer("one"), domain.peer("two")
    one.run(lambda endpoint: endpoint.request_timeout(0.3, 1))
    one.expect(1).do(lambda endpoint, message: endpoint.send("two", 2))
    two.expect(2)


def test_a_peer_ends_and_comes_back_as_another(domain):
    one, two = domain.peer("one"), domain.peer("two")
    first = two.spid
    one.run(lambda endpoint: endpoint.attach(first, 99))
    two.close()
    two.close()
    one.expect(99, sender="two").wait()
    with pytest.raises(RuntimeError, match="peer 'two' is closed"):
        two.send("one", 1)
    two.open()
    assert two.spid != first
    two.expect(1).answer(2)
    assert one.call("two", 1, reply=2).data == b""


def test_an_asker_that_has_ended_does_not_fail_the_one_that_answers(domain):
    two = domain.peer("two")
    two.expect(1).do(lambda endpoint, message: endpoint.wait_end(message.sender)).answer(2)
    with linx.Endpoint("one") as one:
        one.send("two", 1)


def test_ends_are_waited_for(domain, program):
    server = domain.start(program, "server")
    with pytest.raises(AssertionError, match="endpoint 'server' has not ended within 0.05 s"):
        domain.wait_end(server.spids["server"], 0.05)
    server.signal(signal.SIGKILL)
    domain.wait_end(server.spids["server"])


def test_a_peer_without_somebody_to_send_to_says_so(domain, monkeypatch):
    peer = domain.peer("peer")
    monkeypatch.setattr(domain._scene, "timeout", 0.05)
    with pytest.raises(AssertionError, match="peer 'peer' has nobody to send to: 'nobody' is not there"):
        peer.send("nobody", 1)
    with pytest.raises(AssertionError, match="nobody has opened endpoint 'nobody' within 0.05 s"):
        domain.wait_for("nobody")


def test_a_name_that_is_taken_is_no_peers(domain):
    domain.open("one")
    with pytest.raises(OSError, match="Address already in use"):
        domain.peer("one")


def test_what_has_come_right_is_verified_early(domain):
    one, two = domain.peer("one"), domain.peer("two")
    two.expect(1)
    one.send("two", 1)
    domain.verify()
