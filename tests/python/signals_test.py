"""Sending and receiving."""
import errno
import struct

import pytest

import linx


@pytest.fixture
def small_arena(monkeypatch):
    """To be named before `domain`. An endpoint may have 4 MiB of it."""
    monkeypatch.setenv("LINX_ARENA_MB", "16")


@pytest.fixture
def pair(domain):
    return domain.open("sender"), domain.open("receiver")


@pytest.mark.parametrize("size", [0, 1, 3, 4, 5, 59, 60, 61, 4096, 65532, 65533, linx.MAX_PAYLOAD])
def test_a_payload_arrives_byte_by_byte(pair, size):
    sender, receiver = pair
    payload = bytes(index * 7 % 251 for index in range(size))
    sender.send(receiver.spid, 2000, payload)
    assert receiver.receive(timeout=60) == (2000, payload, sender.spid)


def test_a_payload_that_is_too_large_is_refused(pair):
    sender, receiver = pair
    with pytest.raises(OSError) as caught:
        sender.send(receiver.spid, 2000, bytes(linx.MAX_PAYLOAD + 1))
    assert caught.value.errno == errno.EMSGSIZE
    assert receiver.poll() is None


@pytest.mark.parametrize("payload", [b"four", bytearray(b"four"), memoryview(b"xfourx")[1:5]])
def test_a_payload_may_be_any_kind_of_bytes(pair, payload):
    sender, receiver = pair
    sender.send(receiver.spid, 2000, payload)
    assert receiver.receive(timeout=60).data == b"four"


@pytest.mark.parametrize("number", [0, 1, 251, 252, 1280, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_a_number_has_32_bits(pair, number):
    sender, receiver = pair
    sender.send(receiver.spid, number)
    assert receiver.receive(number, timeout=60).number == number


@pytest.mark.parametrize("number", [-1, 1 << 32])
def test_a_number_of_more_bits_is_refused_rather_than_cut_off(pair, number):
    sender, receiver = pair
    for use in (
        lambda: sender.send(receiver.spid, number),
        lambda: sender.send(number, 1),
        lambda: receiver.poll(number),
        lambda: sender.attach(number, 1),
        lambda: sender.name_of(number),
        lambda: sender.cancel_timeout(number),
    ):
        with pytest.raises(OverflowError):
            use()
    assert receiver.poll() is None


def test_what_is_not_a_payload_or_a_number_is_refused_and_leaves_nothing(pair):
    sender, receiver = pair
    with pytest.raises(TypeError):
        sender.send(receiver.spid, 2000, "text")
    with pytest.raises(TypeError):
        sender.send(receiver.spid, "2000")
    assert receiver.poll() is None


def test_a_signal_goes_to_a_name(pair):
    sender, receiver = pair
    sender.send("receiver", 2000, b"hello")
    assert receiver.receive(timeout=60).data == b"hello"


def test_an_endpoint_may_send_to_itself(domain):
    endpoint = domain.open("one")
    endpoint.send(endpoint.spid, 2000, b"me")
    assert endpoint.poll() == (2000, b"me", endpoint.spid)


def test_signals_keep_their_order(pair):
    sender, receiver = pair
    for index in range(1000):
        sender.send(receiver.spid, 2000 + index % 3, struct.pack("I", index))
    assert [receiver.receive(timeout=60).unpack("I")[0] for _ in range(1000)] == list(range(1000))


def test_a_selection_leaves_the_others_queued_in_their_order(pair):
    sender, receiver = pair
    for number in (1, 2, 3, 4, 3):
        sender.send(receiver.spid, number)
    assert receiver.receive(3, timeout=60).number == 3
    assert receiver.receive(4, 2, timeout=60).number == 2
    assert receiver.poll(5) is None
    assert [receiver.poll().number for _ in range(3)] == [1, 4, 3]
    assert receiver.poll() is None


def test_a_wait_for_one_number_is_not_ended_by_another(pair):
    sender, receiver = pair
    sender.send(receiver.spid, 1)
    with pytest.raises(TimeoutError, match="no signal 2 or 3 came to 'receiver' within 0.05 s"):
        receiver.receive(2, 3, timeout=0.05)
    assert receiver.poll().number == 1


def test_structs_are_laid_out_as_in_c(pair):
    sender, receiver = pair
    sender.send(receiver.spid, 2000, linx.pack("iQ", -1, 1 << 40))
    message = receiver.receive(timeout=60)
    assert len(message.data) == 16
    assert message.unpack("iQ") == (-1, 1 << 40)
    assert message.unpack_from("Q", 8) == (1 << 40,)


def test_a_struct_of_another_size_is_refused_with_both_sizes(pair):
    sender, receiver = pair
    sender.send(receiver.spid, 2000, b"abc")
    with pytest.raises(struct.error, match="signal 2000 carries 3 bytes; 'I' takes 4"):
        receiver.receive(timeout=60).unpack("I")


def test_nobody_ever_had_that_spid(domain):
    with pytest.raises(ProcessLookupError):
        domain.open("one").send(0, 2000)
    with pytest.raises(ProcessLookupError):
        domain.open("two").send(0x123456, 2000)


def test_nobody_has_that_name(domain):
    with pytest.raises(ProcessLookupError, match="there is no endpoint 'nobody'"):
        domain.open("one").send("nobody", 2000)


def test_a_receiver_that_has_ended_refuses(domain):
    sender = domain.open("sender")
    with linx.Endpoint("receiver") as receiver:
        pass
    with pytest.raises(ConnectionResetError):
        sender.send(receiver.spid, 2000)


def test_a_full_arena_refuses_and_loses_nothing_that_was_sent(small_arena, pair):
    sender, receiver = pair
    sent = 0
    with pytest.raises(OSError) as caught:
        for sent in range(1000):
            sender.send(receiver.spid, 2000, struct.pack("I", sent) + bytes(1 << 19))
    assert caught.value.errno == errno.ENOMEM
    assert 0 < sent < 8
    for index in range(sent):
        assert receiver.receive(timeout=60).unpack_from("I") == (index,)
    assert receiver.poll() is None
    sender.send(receiver.spid, 2000)
    assert receiver.receive(timeout=60).data == b""


def test_refused_signals_are_freed(small_arena, domain):
    """More of them than there is memory for."""
    sender = domain.open("sender")
    with linx.Endpoint("receiver") as receiver:
        pass
    for _ in range(100):
        with pytest.raises(ConnectionResetError):
            sender.send(receiver.spid, 2000, bytes(linx.MAX_PAYLOAD))


def test_received_signals_are_freed(small_arena, pair):
    sender, receiver = pair
    for _ in range(100):
        sender.send(receiver.spid, 2000, bytes(linx.MAX_PAYLOAD))
        receiver.receive(timeout=60)
