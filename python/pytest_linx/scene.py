# SPDX-License-Identifier: MIT
"""What the peers and servers of one test share."""
from __future__ import annotations

import enum
import threading
import time
from typing import Callable, Dict, Optional, Type, Union

import linx

Payload = Union[bytes, bytearray, memoryview]


class Scene:
    """Waiting in common: whoever waits for anything hears at once that a server has failed."""

    def __init__(self, timeout: float) -> None:
        self.timeout = timeout
        self.numbers: Dict[int, str] = {}
        self.changed = threading.Condition()
        self._failures: Dict[object, str] = {}  # by what has failed
        self._watcher_lock = threading.RLock()
        self._watcher = linx.Endpoint("pytest-linx")

    def close(self) -> None:
        self._watcher.close()

    def name_numbers(self, table: Union[Type[enum.IntEnum], Dict[str, int]]) -> None:
        """Has failures call signals by these names."""
        names = {m.name: int(m) for m in table} if isinstance(table, type) else table
        self.numbers.update({number: name for name, number in names.items()})

    def tell(self, change: Callable[[], object]) -> None:
        """Makes a change, and wakes those who may have waited for it."""
        with self.changed:
            change()
            self.changed.notify_all()

    def fail(self, who: object, failure: str) -> None:
        """That has failed: until it is excused there is nothing to wait for."""
        self.tell(lambda: self._failures.setdefault(who, failure))

    def excuse(self, who: object) -> None:
        self.tell(lambda: self._failures.pop(who, None))

    def wait(self, done: Callable[[], bool], timeout: Optional[float]) -> bool:
        """Waits until that is so. False when the time is up; AssertionError when something has failed."""
        __tracebackhide__ = True
        with self.changed:
            over = self.changed.wait_for(lambda: done() or bool(self._failures), self.patience(timeout))
        self.check()
        return over

    def check(self) -> None:
        """AssertionError when something has failed already."""
        __tracebackhide__ = True
        if self._failures:
            raise AssertionError("\n\n".join(self._failures.values()))

    def patience(self, timeout: Optional[float]) -> float:
        return self.timeout if timeout is None else timeout

    def find(
        self, name: str, timeout: Optional[float], is_hopeless: Callable[[], bool] = lambda: False
    ) -> Optional[int]:
        """Hunts for `name`. None when the time is up, or when it is known that nobody will come."""
        __tracebackhide__ = True
        deadline = time.monotonic() + self.patience(timeout)
        with self._watcher_lock:
            while True:
                try:
                    return self._watcher.hunt(name, min(0.05, max(0.0, deadline - time.monotonic())))
                except TimeoutError:
                    if time.monotonic() >= deadline or is_hopeless():
                        return None
                self.check()

    def wait_end(self, spid: int, timeout: Optional[float]) -> None:
        """Waits until that endpoint has ended, as one who supervises it is told. TimeoutError."""
        with self._watcher_lock:
            self._watcher.wait_end(spid, self.patience(timeout))

    def send(self, spid: int, number: int) -> None:
        """Sends a signal without payload, to somebody who may have ended."""
        with self._watcher_lock:
            try:
                self._watcher.send(spid, number)
            except ConnectionResetError:
                pass

    def name_of(self, spid: int) -> str:
        """A name for failures, in quotes; of somebody unknown the spid."""
        with self._watcher_lock:
            try:
                return repr(self._watcher.name_of(spid))
            except OSError:
                return f"spid {spid:#x}"

    @property
    def watcher_spid(self) -> int:
        return self._watcher.spid
