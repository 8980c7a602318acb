# SPDX-License-Identifier: MIT
"""LINX endpoints from Python: open one under a name, send signals to others, receive theirs.

    >>> import linx
    >>> with linx.Endpoint("greeter") as greeter, linx.Endpoint("guest") as guest:
    ...     guest.send("greeter", 2000, b"World")
    ...     asked = greeter.receive(2000, timeout=1)
    ...     greeter.send(asked.sender, 2001, b"Hello, " + asked.data + b"!")
    ...     guest.receive(2001, timeout=1).data
    b'Hello, World!'

Pure Python over the C interface (platform/linx.h). $LINX_LIBRARY is the path of liblinxhost; unset, the system's loader
looks for it. $LINX_DOMAIN says which endpoints see each other.

Signals are copied: a payload is `bytes`, in native byte order. Spids, signal numbers and references are 32-bit `int`s.

Threads: an endpoint belongs to one thread at a time; a second one that calls on it meanwhile gets an OSError (EINVAL).

Errors are OSErrors with the errno values that platform/linx.h lists, in Python's own subclasses where it has them:
ConnectionResetError, the peer has ended; ProcessLookupError, there never was such a peer; TimeoutError, the time is
up; ChildProcessError, after a fork the endpoint is the other process's; PermissionError. An endpoint that was closed
answers EBADF.
"""
from __future__ import annotations

import contextlib
import ctypes
import errno
import functools
import itertools
import math
import os
import struct
import threading
import time
import warnings
import weakref
from typing import Any, Dict, Iterable, Iterator, List, NamedTuple, Optional, Sequence, Tuple, Union

__all__ = ["Endpoint", "Message", "pack", "open_endpoints", "MAX_PAYLOAD", "OS_HUNT_SIG", "OS_TIMEOUT_SIG"]

OS_HUNT_SIG = 251  # the number of the answer to a hunt, unless another is asked for
OS_TIMEOUT_SIG = 252  # the number of the signal of a time-out, unless another is asked for
MAX_PAYLOAD = (1 << 20) - 4  # bytes that a signal carries at most

Payload = Union[bytes, bytearray, memoryview]

_HEADER = 4  # bytes of the number, which a signal's size includes
_WORD = 0xFFFFFFFF
_FIRST_PRIVATE = 0xFFFF0000  # numbers from here on are for the endpoint's own hunts and notices
_SLICE = 100  # milliseconds after which a wait of the main thread looks for Ctrl-C and other POSIX signals
_LONGEST = 1 << 30  # milliseconds of the longest wait that one call is asked for


def pack(layout: str, *values: Any) -> bytes:
    """A payload laid out as a C struct of these members is: `struct.pack` in native byte order and alignment.

    >>> pack("HI", 1, 2) == struct.pack("@HxxI", 1, 2)
    True
    """
    return struct.pack(layout, *values)


class Message(NamedTuple):
    """A signal that was received."""

    number: int
    data: bytes  # the payload
    sender: int  # the spid of the endpoint that sent it; one's own for a time-out

    def unpack(self, layout: str) -> Tuple[Any, ...]:
        """The payload taken as a C struct of these members, see `pack`. Its size has to fit: struct.error.

        >>> Message(2000, pack("iI", -1, 1), sender=0).unpack("iI")
        (-1, 1)
        """
        wanted = struct.calcsize(layout)
        if wanted != len(self.data):
            raise struct.error(f"signal {self.number} carries {len(self.data)} bytes; {layout!r} takes {wanted}")
        return struct.unpack(layout, self.data)

    def unpack_from(self, layout: str, offset: int = 0) -> Tuple[Any, ...]:
        """The same for a part of the payload, from `offset` on."""
        return struct.unpack_from(layout, self.data, offset)


def open_endpoints() -> List[Endpoint]:
    """The endpoints of this process that have not been closed."""
    known = [reference() for reference in list(_open.values())]
    return [endpoint for endpoint in known if endpoint is not None]


class Endpoint:
    """An endpoint, open from its making until `close()` or the end of its `with`.

    Numbers from 0xFFFF0000 on are used by `hunt`, `call` and `wait_end` for themselves; better send none of these.
    """

    def __init__(self, name: str) -> None:
        """Opens `name`, 1 to 255 bytes of UTF-8. EADDRINUSE: a live endpoint has it."""
        self._handle: Optional[int] = None
        self._lock = threading.Lock()
        self._descriptor = -1
        self._subjects: Dict[int, Union[str, int]] = {}  # by private number: the name hunted, the spid supervised
        self._numbers: Dict[Union[str, int], int] = {}  # the reverse
        self._private = itertools.cycle(range(_FIRST_PRIVATE, _WORD + 1))
        self.name = name
        self._linx = _library()
        self._handle = self._linx.linx_open(_encoded(name), 0, None)
        if self._handle is None:
            domain = os.environ.get("LINX_DOMAIN") or "that of this user"
            raise _error(f"open endpoint {name!r} in domain {domain}")
        _open[self._handle] = weakref.ref(self)
        try:
            with self._signal("open", 0, b"") as (handle, signal):
                self.spid: int = self._linx.linx_sender(handle, ctypes.byref(signal))
                """Identifies this incarnation of the endpoint to others."""
        except OSError:
            self.close()
            raise

    def __enter__(self) -> Endpoint:
        return self

    def __exit__(self, *unused: object) -> None:
        self.close()

    def __repr__(self) -> str:
        state = "closed" if self.closed else f"spid={self.spid:#x}"
        return f"<linx.Endpoint {self.name!r} {state}>"

    def __del__(self, _warn: Any = warnings.warn) -> None:
        if getattr(self, "_handle", None) is None:
            return
        _warn(f"unclosed {self!r}", ResourceWarning, source=self)
        try:
            self.close()
        except OSError:
            pass

    @property
    def closed(self) -> bool:
        """Whether `close()` was called."""
        return self._handle is None

    def close(self) -> None:
        """Ends the endpoint: those who supervise it are told. No effect on one that is closed.

        In the child of a fork that has not used the endpoint, and in whichever process lost it to the other, only the
        copy of this process goes.
        """
        if self.closed:
            return
        with self._use("close") as handle:
            if self._linx.linx_close(handle) == -1 and ctypes.get_errno() == errno.EINVAL:
                raise _error(f"close {self.name!r}")
            self._handle = None
            _open.pop(handle, None)
            if self._descriptor != -1:
                os.close(self._descriptor)
                self._descriptor = -1

    def fileno(self) -> int:
        """The descriptor for `select` and `asyncio`: readable while `poll()` would return a message.

        Now and then it is readable although there is none; `poll()` returns None then. It is the endpoint's own, and
        goes with it: take it out of selectors first. -1 when the endpoint is closed.
        """
        if self.closed:
            return -1
        if self._descriptor == -1:
            with self._use("get the descriptor") as handle:
                descriptor: int = self._linx.linx_get_descriptor(handle)
                if descriptor == -1:
                    raise _error(f"get the descriptor of {self.name!r}")
                self._descriptor = descriptor
        return self._descriptor

    # Others.

    def hunt(self, name: str, timeout: Optional[float] = None) -> int:
        """Waits until there is an endpoint `name` and returns its spid. TimeoutError after `timeout` seconds."""
        return self._hunt(name, _deadline(timeout), timeout)

    def request_hunt(self, name: str, number: int = OS_HUNT_SIG, payload: Payload = b"") -> None:
        """Has a signal come from the endpoint `name`, with this number and payload, as soon as there is one.

        ENOSPC: too many hunts for absent names are pending, 1024 of one's own or 4096 of all.
        """
        encoded = _encoded(name)
        with self._signal(f"hunt {name!r}", number, payload) as (handle, signal):
            if self._linx.linx_hunt(handle, encoded, ctypes.byref(signal)) == -1:
                raise _error(f"hunt {name!r}")

    def attach(self, spid: int, number: int, payload: Payload = b"") -> int:
        """Has a signal come from `spid`, with this number and payload, when that endpoint has ended.

        It comes after all that the endpoint had sent; at once, when it has ended already; once for each attach. Returns
        the reference.
        """
        _check_word("spid", spid)
        with self._signal("attach", number, payload) as (handle, signal):
            reference: int = self._linx.linx_attach(handle, ctypes.byref(signal), spid)
            if reference == 0:
                raise _error(f"attach to spid {spid:#x}")
            return reference

    def wait_end(self, spid: int, timeout: Optional[float] = None) -> None:
        """Waits until the endpoint `spid` has ended. TimeoutError after `timeout` seconds."""
        deadline = _deadline(timeout)
        notice = self._notice_of(spid)
        if self._take((notice,), deadline) is None:
            raise TimeoutError(errno.ETIMEDOUT, f"spid {spid:#x} has not ended within {timeout:g} s")
        self._forget(notice)

    def name_of(self, spid: int) -> str:
        """The name of an endpoint, for a long time also of one that has ended. ProcessLookupError: not known."""
        _check_word("spid", spid)
        name = ctypes.c_void_p()
        with self._use("get a name") as handle:
            if self._linx.linx_get_name(handle, spid, ctypes.byref(name)) == -1 or name.value is None:
                raise _error(f"get the name of spid {spid:#x}")
            try:
                return ctypes.string_at(name.value).decode("utf-8", "surrogateescape")
            finally:
                self._linx.linx_free_name(handle, ctypes.byref(name))

    # Signals.

    def send(self, to: Union[int, str], number: int, payload: Payload = b"") -> None:
        """Sends a signal to a spid, or to a name if there is such an endpoint now.

        ConnectionResetError: it has ended. ProcessLookupError: there is none. ENOMEM: no room, the receiver lags.
        """
        try:
            spid = self.hunt(to, 0) if isinstance(to, str) else to
        except TimeoutError:
            raise ProcessLookupError(errno.ESRCH, f"there is no endpoint {to!r}") from None
        _check_word("spid", spid)
        with self._signal("send", number, payload) as (handle, signal):
            if self._linx.linx_send(handle, ctypes.byref(signal), spid) == -1:
                raise _error(f"send signal {number} to {_called(to)}")

    def receive(self, *numbers: int, timeout: Optional[float] = None) -> Message:
        """The next signal with one of these numbers, any without; others stay queued in their order.

        Waits for it, without `timeout` for ever; TimeoutError after so many seconds. Ctrl-C ends the wait of the main
        thread.
        """
        message = self._receive(numbers, _deadline(timeout))
        if message is None:
            what = " or ".join(map(str, numbers)) if numbers else "of any number"
            raise TimeoutError(errno.ETIMEDOUT, f"no signal {what} came to {self.name!r} within {timeout:g} s")
        return message

    def poll(self, *numbers: int) -> Optional[Message]:
        """The same without waiting: None when there is no such signal."""
        return self._receive(numbers, 0.0)

    def call(
        self,
        to: Union[int, str],
        number: int,
        payload: Payload = b"",
        *,
        reply: Union[int, Sequence[int]],
        timeout: Optional[float] = None,
    ) -> Message:
        """Sends a signal and returns the next with the number `reply`, or one of them, whoever it comes from.

        A name that is absent is waited for. ConnectionResetError as soon as the called endpoint has ended without an
        answer; TimeoutError after `timeout` seconds. An answer that comes too late for its call is taken for that of
        the next one: where that can happen, put a number into the payload that the answer repeats.
        """
        deadline = _deadline(timeout)
        replies = (reply,) if isinstance(reply, int) else tuple(reply)
        awaited = f"answer signal {number} with {' or '.join(map(str, replies))}"
        spid = self._hunt(to, deadline, timeout) if isinstance(to, str) else to
        notice = self._notice_of(spid)
        self.send(spid, number, payload)
        answer = self._take((*replies, notice), deadline)
        if answer is None:
            raise TimeoutError(errno.ETIMEDOUT, f"{_called(to)} did not {awaited} within {timeout:g} s")
        if answer.number == notice:
            self._forget(notice)
            raise ConnectionResetError(errno.ECONNRESET, f"{_called(to)} ended and did not {awaited}")
        return answer

    # Time-outs.

    def request_timeout(self, seconds: float, number: int = OS_TIMEOUT_SIG, payload: Payload = b"") -> int:
        """Has a signal come from oneself after so many seconds. Returns the reference for `cancel_timeout`."""
        milliseconds = math.ceil(seconds * 1000)
        _check_word("milliseconds of a time-out", milliseconds)
        with self._signal("request a time-out", number, payload) as (handle, signal):
            reference: int = self._linx.linx_request_tmo(handle, milliseconds, ctypes.byref(signal))
            if reference == 0:
                raise _error("request a time-out")
            return reference

    def cancel_timeout(self, reference: int) -> None:
        """Takes a time-out back, also one that is over and waits to be received. EINVAL: it is unknown or received."""
        _check_word("reference", reference)
        with self._use("cancel a time-out") as handle:
            if self._linx.linx_cancel_tmo(handle, ctypes.byref(ctypes.c_uint32(reference))) == -1:
                raise _error(f"cancel time-out {reference}")

    # Inside.

    @contextlib.contextmanager
    def _use(self, what: str) -> Iterator[int]:
        """The handle, for this thread alone as long as it takes."""
        lock = self._lock
        if not lock.acquire(blocking=False):
            raise OSError(errno.EINVAL, f"cannot {what}: endpoint {self.name!r} is in use by another thread")
        try:
            if self._handle is None:
                raise OSError(errno.EBADF, f"cannot {what}: endpoint {self.name!r} is closed")
            yield self._handle
        finally:
            lock.release()

    @contextlib.contextmanager
    def _signal(self, what: str, number: int, payload: Payload) -> Iterator[Tuple[int, ctypes.c_void_p]]:
        """The handle and a new signal, to be handed over; freed if it has not been in the end."""
        data = bytes(payload)
        _check_word("signal number", number)
        if len(data) > MAX_PAYLOAD:
            raise OSError(errno.EMSGSIZE, f"{what}: {len(data)} bytes are too many, {MAX_PAYLOAD} are allowed")
        with self._use(what) as handle:
            signal = ctypes.c_void_p(self._linx.linx_alloc(handle, _HEADER + len(data), number))
            if signal.value is None:
                raise _error(f"{what}: allocate {len(data)} bytes")
            try:
                ctypes.memmove(signal.value + _HEADER, data, len(data))
                yield handle, signal
            finally:
                if signal.value is not None:
                    self._linx.linx_free_buf(handle, ctypes.byref(signal))

    def _receive(self, numbers: Tuple[int, ...], deadline: Optional[float]) -> Optional[Message]:
        """The next signal for the user; None when the time is up."""
        while True:
            message = self._take(numbers, deadline)
            if message is None or message.number in numbers or message.number not in self._subjects:
                return message
            self._forget(message.number)  # a late answer to a hunt that was given up, or the end of somebody called

    def _take(self, numbers: Tuple[int, ...], deadline: Optional[float]) -> Optional[Message]:
        """The next signal with one of the numbers, the private ones among them; None when the time is up."""
        for number in numbers:
            _check_word("signal number", number)
        selection = (ctypes.c_uint32 * (1 + len(numbers)))(len(numbers), *numbers)
        # Only the main thread runs the handlers of POSIX signals, and the library goes on to wait when one comes.
        longest = _SLICE if threading.current_thread() is threading.main_thread() else _LONGEST
        with self._use("receive") as handle:
            while True:
                left = _left(deadline)
                wait = longest if left is None else min(longest, math.ceil(left * 1000))
                message = self._take_within(handle, selection, wait)
                if message is not None or left is not None and wait >= left * 1000:
                    return message

    def _take_within(self, handle: int, selection: Any, milliseconds: int) -> Optional[Message]:
        signal = ctypes.c_void_p()
        try:
            size = self._linx.linx_receive_w_tmo(handle, ctypes.byref(signal), milliseconds, selection)
            if size == -1:
                raise _error(f"receive from {self.name!r}")
            if signal.value is None:
                return None
            sender = self._linx.linx_sender(handle, ctypes.byref(signal))
            number = ctypes.c_uint32.from_address(signal.value).value
            return Message(number, ctypes.string_at(signal.value + _HEADER, size - _HEADER), sender)
        finally:
            if signal.value is not None:
                self._linx.linx_free_buf(handle, ctypes.byref(signal))

    def _hunt(self, name: str, deadline: Optional[float], timeout: Optional[float]) -> int:
        number = self._numbers.get(name)
        # Of a hunt that was given up: an answer may be long out of date, while none says that nobody has come yet.
        if number is not None and self._take((number,), 0.0) is not None:
            self._forget(number)
            number = None
        if number is None:
            number = self._private_number(name)
            try:
                self.request_hunt(name, number)
            except BaseException:
                self._forget(number)
                raise
        answer = self._take((number,), deadline)
        if answer is None:
            raise TimeoutError(errno.ETIMEDOUT, f"no endpoint {name!r} within {timeout:g} s")
        self._forget(number)
        return answer.sender

    def _notice_of(self, spid: int) -> int:
        """The private number of the notice that `spid` has ended, which is asked for once."""
        number = self._numbers.get(spid)
        if number is None:
            number = self._private_number(spid)
            try:
                self.attach(spid, number)
            except BaseException:
                self._forget(number)
                raise
        return number

    def _private_number(self, subject: Union[str, int]) -> int:
        self._drop_late()
        number = next(number for number in self._private if number not in self._subjects)
        self._subjects[number] = subject
        self._numbers[subject] = number
        return number

    def _drop_late(self) -> None:
        """Answers and notices that nobody waits for add up where all that is received is selected."""
        while self._subjects:
            late = self._take(tuple(self._subjects), 0.0)
            if late is None:
                return
            self._forget(late.number)

    def _forget(self, number: int) -> None:
        del self._numbers[self._subjects.pop(number)]


_open: Dict[int, weakref.ref[Endpoint]] = {}  # by handle


@functools.lru_cache(maxsize=None)
def _library() -> ctypes.CDLL:
    # Not ctypes.util.find_library, which may find a library with another binary interface, and takes a second.
    path = os.environ.get("LINX_LIBRARY") or "liblinxhost.so.1"
    try:
        library = ctypes.CDLL(path, use_errno=True)
    except OSError as error:
        raise OSError(errno.ENOENT, f"{error}; let LINX_LIBRARY be the path of liblinxhost.so.1") from None
    handle, address, word = ctypes.c_void_p, ctypes.c_void_p, ctypes.c_uint32
    operations: Iterable[Tuple[str, Any, Sequence[Any]]] = (
        ("linx_open", handle, (ctypes.c_char_p, word, ctypes.c_void_p)),
        ("linx_get_descriptor", ctypes.c_int, (handle,)),
        ("linx_close", ctypes.c_int, (handle,)),
        ("linx_hunt", ctypes.c_int, (handle, ctypes.c_char_p, address)),
        ("linx_attach", word, (handle, address, word)),
        ("linx_alloc", ctypes.c_void_p, (handle, word, word)),
        ("linx_free_buf", ctypes.c_int, (handle, address)),
        ("linx_send", ctypes.c_int, (handle, address, word)),
        ("linx_receive_w_tmo", ctypes.c_int, (handle, address, word, address)),
        ("linx_sender", word, (handle, address)),
        ("linx_get_name", ctypes.c_int, (handle, word, address)),
        ("linx_free_name", ctypes.c_int, (handle, address)),
        ("linx_request_tmo", word, (handle, word, address)),
        ("linx_cancel_tmo", ctypes.c_int, (handle, address)),
    )
    for name, result, arguments in operations:
        operation = getattr(library, name)
        operation.restype = result
        operation.argtypes = arguments
    return library


def _error(what: str) -> OSError:
    """For an operation that has failed just now."""
    number = ctypes.get_errno()
    return OSError(number, f"cannot {what}: {os.strerror(number)}")


def _encoded(name: str) -> bytes:
    if "\0" in name:
        raise ValueError("the name of an endpoint has a null character in it")
    return name.encode("utf-8", "surrogateescape")


def _called(to: Union[int, str]) -> str:
    return f"spid {to:#x}" if isinstance(to, int) else repr(to)


def _check_word(what: str, value: int) -> None:
    if not 0 <= value <= _WORD:
        raise OverflowError(f"{what}: {value} is not a number of 32 bits without sign")


def _deadline(timeout: Optional[float]) -> Optional[float]:
    return None if timeout is None else time.monotonic() + timeout


def _left(deadline: Optional[float]) -> Optional[float]:
    """Seconds until then."""
    return None if deadline is None else max(0.0, deadline - time.monotonic())


def _leave_locks_to_parent() -> None:
    for endpoint in open_endpoints():
        endpoint._lock = threading.Lock()


os.register_at_fork(after_in_child=_leave_locks_to_parent)
