"""Waiting for endpoints among other things."""
import asyncio
import pathlib
import select
import selectors
import signal
import sys

import linx

PATIENCE = 60  # seconds


def is_readable(endpoint, timeout=0.0):
    return bool(select.select([endpoint], [], [], timeout)[0])


def test_an_endpoint_is_readable_exactly_while_there_is_something_to_receive(domain):
    one, two = domain.open("one"), domain.open("two")
    assert not is_readable(one)
    two.send(one.spid, 1)
    two.send(one.spid, 2)
    for number in (1, 2):
        assert is_readable(one, PATIENCE)
        assert one.poll().number == number
    one.poll()
    assert not is_readable(one)


def test_the_descriptor_stays_the_same(domain):
    one = domain.open("one")
    assert one.fileno() == one.fileno()


def test_a_time_out_makes_it_readable(domain):
    one = domain.open("one")
    one.fileno()
    assert not is_readable(one)
    one.request_timeout(0.05, 7)
    assert is_readable(one, PATIENCE)
    assert one.poll().number == 7


def test_an_end_makes_it_readable(domain):
    one = domain.open("one")
    with linx.Endpoint("other") as other:
        one.attach(other.spid, 7)
        assert not is_readable(one)
    assert is_readable(one, PATIENCE)
    assert one.poll().number == 7


def test_what_it_keeps_to_itself_does_not_keep_it_readable(domain):
    one = domain.open("one")
    try:
        one.hunt("late", timeout=0)
    except TimeoutError:
        pass
    domain.open("late")
    assert is_readable(one, PATIENCE)
    assert one.poll() is None
    assert not is_readable(one)


def test_a_selector_waits_for_many_endpoints(domain):
    endpoints = [domain.open(f"endpoint-{index}") for index in range(20)]
    sender = domain.open("sender")
    with selectors.DefaultSelector() as selector:
        for endpoint in endpoints:
            selector.register(endpoint, selectors.EVENT_READ)
        for endpoint in endpoints:
            sender.send(endpoint.spid, 7, endpoint.name.encode())
        heard = []
        while len(heard) < len(endpoints):
            for key, _ in selector.select(PATIENCE):
                message = key.fileobj.poll()
                if message is not None:
                    assert message.data == key.fileobj.name.encode()
                    heard.append(key.fileobj.name)
        assert sorted(heard) == sorted(endpoint.name for endpoint in endpoints)


def test_asyncio_waits_for_endpoints(domain):
    one, two = domain.open("one"), domain.open("two")

    async def receive(endpoint):
        loop = asyncio.get_running_loop()
        readable = asyncio.Event()
        loop.add_reader(endpoint, readable.set)
        try:
            while True:
                message = endpoint.poll()
                if message is not None:
                    return message
                await readable.wait()
                readable.clear()
        finally:
            loop.remove_reader(endpoint)

    async def serve():
        message = await receive(two)
        two.send(message.sender, 8, message.data)

    async def ask():
        await asyncio.sleep(0.05)
        one.send("two", 7, b"hello")
        return await receive(one)

    async def both():
        return (await asyncio.wait_for(asyncio.gather(serve(), ask()), PATIENCE))[1]

    assert asyncio.run(both()) == (8, b"hello", two.spid)


def test_the_asyncio_example_answers_many_at_a_time(domain):
    example = pathlib.Path(__file__).parents[2] / "python" / "examples" / "asyncio_server.py"
    server = domain.start([sys.executable, str(example)], "greeter")
    peer = domain.peer("peer")
    server.signal(signal.SIGSTOP)
    peer.send("greeter", 2000, linx.pack("I", 100) + b"patience")
    peer.send("greeter", 2000, linx.pack("I", 0) + b"haste")
    server.signal(signal.SIGCONT)
    greetings = peer.expect(2001, times=2)
    greetings.wait()
    assert [message.data for message in greetings.messages] == [b"Hello, haste!", b"Hello, patience!"]
    peer.send("greeter", 2000, b"x")
    server.wait_for_output("no greeting for peer: unpack_from requires a buffer")
    peer.send("greeter", 9)
    assert server.shutdown() == 0
    server.restart()
    assert server.terminate() == 0
