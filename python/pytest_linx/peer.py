# SPDX-License-Identifier: MIT
"""Peers: the endpoints that a test stands in for."""
from __future__ import annotations

import collections
import concurrent.futures
import os
import queue
import select
import threading
import traceback
from typing import Any, Callable, Deque, List, NamedTuple, Optional, Tuple, TypeVar, Union

import linx

from . import describe
from .scene import Payload, Scene

Result = TypeVar("Result")
Action = Callable[[linx.Endpoint, linx.Message], None]
Order = Tuple[Callable[[linx.Endpoint], Any], "concurrent.futures.Future[Any]"]

REMEMBERED = 50  # signals that a peer tells of when a test has failed
BATCH = 1000  # signals that it takes before it looks what it is told


class Arrival(NamedTuple):
    """A signal at a peer, and by what name its sender went at that time."""

    message: linx.Message
    sender: str


class Expectation:
    """Signals that a peer is to get, and what it does with each."""

    def __init__(
        self,
        peer: Peer,
        number: int,
        payload: Optional[bytes],
        sender: Optional[str],
        where: Optional[Callable[[linx.Message], bool]],
        times: Optional[int],
    ) -> None:
        self.messages: List[linx.Message] = []
        """Those that have come, in their order. One is here before it is answered."""
        self._handled = 0  # of these: all that was to be done has been done
        self._peer, self._number, self._payload, self._sender = peer, number, payload, sender
        self._where, self._times = where, times
        self._actions: List[Action] = []

    def answer(self, number: int, payload: Union[Payload, Callable[[linx.Message], Payload]] = b"") -> Expectation:
        """Has the peer send this to whoever sent the signal; the payload may be made from the signal.

        A sender that has ended meanwhile gets nothing, and that is no failure.
        """

        def reply(endpoint: linx.Endpoint, message: linx.Message) -> None:
            data = payload(message) if callable(payload) else payload
            try:
                endpoint.send(message.sender, number, data)
            except ConnectionResetError:
                pass

        return self.do(reply)

    def do(self, action: Action) -> Expectation:
        """Has the peer's thread call `action(endpoint, message)` for each signal, those that have come already too."""

        def add(endpoint: linx.Endpoint) -> None:
            self._actions.append(action)
            for message in self.messages:
                self._peer._attempt(endpoint, action, message)

        self._peer.run(add)
        return self

    def wait(self, timeout: Optional[float] = None) -> linx.Message:
        """Waits until the signal has come, or the last of them, and returns it. AssertionError: what came instead."""
        __tracebackhide__ = True
        wanted = self._times or 1
        scene = self._peer._scene
        if not scene.wait(lambda: self._handled >= wanted, timeout):
            raise AssertionError(f"within {scene.patience(timeout):g} s, {self._peer._shortfall([self])}")
        return self.messages[wanted - 1]

    @property
    def is_met(self) -> bool:
        return self._times is None or self._handled == self._times

    def _has_handled(self) -> None:
        self._handled += 1

    def _wants(self, arrival: Arrival) -> bool:
        message = arrival.message
        return (
            message.number == self._number
            and (self._times is None or len(self.messages) < self._times)
            and (self._payload is None or message.data == self._payload)
            and (self._sender is None or arrival.sender == self._sender)
            and (self._where is None or self._where(message))
        )

    def _describe(self) -> str:
        times = "" if self._times in (None, 1) else f"{self._times} times, of which {len(self.messages)} came, "
        condition = "" if self._where is None else f", as {getattr(self._where, '__name__', self._where)} wants it"
        number = describe.number(self._number, self._peer._scene.numbers)
        sender = f" from {self._sender!r}" if self._sender is not None else ""
        payload = "" if self._payload is None else f", {describe.payload(self._payload)}"
        return f"{times}{number}{sender}{condition}{payload}"


class Peer:
    """An endpoint with a thread of its own, which does for the test what it is told.

    A signal that comes before it is expected waits until it is; what nobody has expected by the end of the test fails
    the test, and so does what was expected and has not come.
    """

    def __init__(self, scene: Scene, name: str) -> None:
        self.name = name
        self.unexpected: List[Arrival] = []
        self.arrivals: Deque[Arrival] = collections.deque(maxlen=REMEMBERED)
        """The latest signals, expected or not."""
        self._scene = scene
        self._expectations: List[Expectation] = []
        self._thread: Optional[threading.Thread] = None
        self.open()

    def open(self) -> None:
        """Opens the endpoint again after `close()`, as one that was started anew: with a spid of its own."""
        if self._thread is not None:
            raise RuntimeError(f"peer {self.name!r} is open")
        self._orders: queue.SimpleQueue[Order] = queue.SimpleQueue()
        self._wake_end, self._wake = os.pipe()
        opened: concurrent.futures.Future[linx.Endpoint] = concurrent.futures.Future()
        self._thread = threading.Thread(target=self._serve, args=(opened,), name=f"peer {self.name}", daemon=True)
        self._thread.start()
        try:
            self.spid = opened.result().spid
        except OSError:
            self._join()
            raise

    def close(self) -> None:
        """Ends the endpoint: those who supervise it are told. What was expected stays so."""
        if self._thread is None:
            return
        if self._thread.is_alive():
            self.run(lambda endpoint: endpoint.close())
        self._join()

    def expect(
        self,
        number: int,
        payload: Optional[Payload] = None,
        *,
        sender: Optional[str] = None,
        where: Optional[Callable[[linx.Message], bool]] = None,
        times: Optional[int] = 1,
    ) -> Expectation:
        """The peer is to get this signal, so many times, or any number of times for None.

        Payload, name of the sender and `where(message)` have to fit if they are given. Expectations have no order, but
        a signal that fits several goes to the first that wants it.
        """
        wanted = None if payload is None else bytes(payload)
        expectation = Expectation(self, number, wanted, sender, where, times)
        self.run(lambda endpoint: self._add(endpoint, expectation))
        return expectation

    def always(self, number: int) -> Expectation:
        """The peer may get any number of these signals, or none."""
        return self.expect(number, times=None)

    def send(self, to: Union[int, str], number: int, payload: Payload = b"") -> None:
        """Sends a signal to a spid, or to a name, which is waited for."""
        __tracebackhide__ = True
        if isinstance(to, str) and threading.current_thread() is not self._thread:
            if self._scene.find(to, None) is None:
                raise AssertionError(f"peer {self.name!r} has nobody to send to: {to!r} is not there")
        self.run(lambda endpoint: endpoint.send(to, number, payload))

    def call(
        self,
        to: Union[int, str],
        number: int,
        payload: Payload = b"",
        *,
        reply: int,
        timeout: Optional[float] = None,
    ) -> linx.Message:
        """Sends a signal and waits for one with the number `reply`, which it returns."""
        __tracebackhide__ = True
        self.send(to, number, payload)
        return self.expect(reply).wait(timeout)

    def wait(self, timeout: Optional[float] = None) -> None:
        """Waits until all that is expected has come."""
        __tracebackhide__ = True
        if not self._scene.wait(lambda: self.is_satisfied, timeout):
            raise AssertionError(self._shortfall(self._missing()))

    def run(self, function: Callable[[linx.Endpoint], Result]) -> Result:
        """Has the peer's thread call `function(endpoint)`, after it has taken what has come, and returns the result."""
        __tracebackhide__ = True
        if self._thread is None:
            raise RuntimeError(f"peer {self.name!r} is closed")
        if threading.current_thread() is self._thread:
            return function(self._endpoint)
        if not self._thread.is_alive():
            self._scene.check()
            raise RuntimeError(f"peer {self.name!r} was closed by what it was told")
        done: concurrent.futures.Future[Result] = concurrent.futures.Future()
        self._orders.put((function, done))
        os.write(self._wake, b"!")
        try:
            return done.result(self._scene.timeout)
        except concurrent.futures.TimeoutError:
            if done.done():
                raise  # by the function
            patience = f"{self._scene.timeout:g} s"
            raise AssertionError(f"peer {self.name!r} is busy for {patience} with something that it was told") from None

    def verify(self, timeout: Optional[float] = None) -> None:
        """Waits until all that is expected has come. AssertionError when it does not, or something else did."""
        __tracebackhide__ = True
        self.wait(timeout)
        if self._thread is not None and self._thread.is_alive():
            self.run(lambda endpoint: None)  # it has then taken what was sent before
        if self.unexpected:
            raise AssertionError(self._strays([]))

    @property
    def is_satisfied(self) -> bool:
        """Whether all that is expected has come."""
        return not self._missing()

    def story(self) -> str:
        """The latest signals, a line each."""
        numbers = self._scene.numbers
        lines = []
        for message, sender in list(self.arrivals):
            data = message.data[:16].hex(" ") + (" ..." if len(message.data) > 16 else "")
            lines.append(f"{describe.number(message.number, numbers)} from {sender}, {len(message.data)} bytes {data}")
        return "\n".join(lines)

    # In the peer's thread.

    def _serve(self, opened: concurrent.futures.Future[linx.Endpoint]) -> None:
        try:
            self._endpoint = endpoint = linx.Endpoint(self.name)
        except OSError as error:
            opened.set_exception(error)
            return
        opened.set_result(endpoint)
        try:
            with endpoint:
                self._attend(endpoint)
        except OSError as error:
            self._scene.fail(self, f"peer {self.name!r} cannot go on: {error}")

    def _attend(self, endpoint: linx.Endpoint) -> None:
        poll = select.poll()
        poll.register(endpoint.fileno(), select.POLLIN)
        poll.register(self._wake_end, select.POLLIN)
        while not endpoint.closed:
            poll.poll()
            self._take_all(endpoint)
            self._obey(endpoint)

    def _take_all(self, endpoint: linx.Endpoint) -> None:
        for _ in range(BATCH):
            message = None if endpoint.closed else endpoint.poll()
            if message is None:
                return
            try:
                sender = endpoint.name_of(message.sender)
            except OSError:
                sender = f"spid {message.sender:#x}"
            arrival = Arrival(message, sender)
            self.arrivals.append(arrival)
            if not self._assign(endpoint, arrival):
                self._scene.tell(lambda: self.unexpected.append(arrival))

    def _assign(self, endpoint: linx.Endpoint, arrival: Arrival) -> bool:
        for expectation in self._expectations:
            if self._attempt(endpoint, lambda _, __: expectation._wants(arrival), arrival.message):
                expectation.messages.append(arrival.message)
                for action in expectation._actions:
                    self._attempt(endpoint, action, arrival.message)
                self._scene.tell(expectation._has_handled)
                return True
        return False

    def _attempt(
        self, endpoint: linx.Endpoint, action: Callable[[linx.Endpoint, linx.Message], Any], message: linx.Message
    ) -> Any:
        """What the test's own code goes through: its exceptions are told where somebody waits."""
        try:
            return action(endpoint, message)
        except BaseException as error:
            number = describe.number(message.number, self._scene.numbers)
            what = f"peer {self.name!r} got {number}, and what it was to do then failed:"
            frames = error.__traceback__ and error.__traceback__.tb_next  # without the one here
            text = "".join(traceback.format_exception(type(error), error, frames))
            self._scene.fail(self, describe.section(what, text))
            return None

    def _add(self, endpoint: linx.Endpoint, expectation: Expectation) -> None:
        self._expectations.append(expectation)
        waiting, self.unexpected = self.unexpected, []
        self.unexpected = [arrival for arrival in waiting if not self._assign(endpoint, arrival)]

    def _obey(self, endpoint: linx.Endpoint) -> None:
        while not endpoint.closed:
            try:
                function, done = self._orders.get_nowait()
            except queue.Empty:
                return
            os.read(self._wake_end, 1)
            try:
                done.set_result(function(endpoint))
            except BaseException as error:
                done.set_exception(error)

    # In others.

    def _join(self) -> None:
        assert self._thread is not None
        self._thread.join()
        self._thread = None
        os.close(self._wake)
        os.close(self._wake_end)

    def _missing(self) -> List[Expectation]:
        return [expectation for expectation in self._expectations if not expectation.is_met]

    def _shortfall(self, missing: List[Expectation]) -> str:
        """What has not come, and what has instead."""
        wanted = "\n".join(expectation._describe() for expectation in missing)
        shortfall = describe.section(f"peer {self.name!r} has not got what it expects:", wanted)
        return describe.sections([shortfall, self._strays(missing)] if self.unexpected else [shortfall])

    def _strays(self, missing: List[Expectation]) -> str:
        """What came unexpected, and how it differs from what was expected."""
        texts = []
        for message, sender in self.unexpected:
            number = describe.number(message.number, self._scene.numbers)
            meant = next((e._payload for e in missing if e._number == message.number and e._payload is not None), None)
            unlike = None if meant is None else describe.difference(meant, message.data)
            note = f" ({unlike})" if unlike else ""
            texts.append(f"{number} from {sender!r}{note}, {describe.payload(message.data)}")
        return describe.section(f"peer {self.name!r} got, and nobody expects it:", "\n".join(texts))
