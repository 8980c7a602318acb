# SPDX-License-Identifier: MIT
"""The domain that a test has for itself."""
from __future__ import annotations

import contextlib
import enum
import os
import shutil
import signal
import tempfile
from typing import Any, Dict, List, Mapping, Optional, Sequence, Tuple, Type, Union

import linx

from . import describe, leftovers
from .peer import Peer
from .scene import Scene
from .server import Server

Command = Union[str, "os.PathLike[str]", Sequence[Union[str, "os.PathLike[str]"]]]


class Domain:
    """Where the endpoints of one test meet, and nobody else's: a fresh directory, which $LINX_DOMAIN names.

    Times are in seconds; where none is given, it is `timeout`.
    """

    def __init__(self, path: str, timeout: float) -> None:
        """Uses the directory `path`, which $LINX_DOMAIN has to name, and removes it in the end."""
        self.path = path
        self.timeout = timeout
        self.allow_unclosed = False
        """Whether programs may end without closing their endpoints, also when nothing killed them."""
        self._scene = Scene(timeout)
        self._known = linx.open_endpoints()
        self._peers: List[Peer] = []
        self._servers: List[Server] = []
        self._endpoints: List[linx.Endpoint] = []
        self._collected: List[str] = []

    @staticmethod
    def make_directory() -> str:
        place = "/dev/shm" if os.path.isdir("/dev/shm") else None
        return tempfile.mkdtemp(prefix="linx-pytest.", dir=place)

    def start(
        self,
        command: Command,
        endpoints: Union[str, Sequence[str]] = (),
        *,
        env: Optional[Mapping[str, str]] = None,
        timeout: Optional[float] = None,
        stop_signal: int = signal.SIGTERM,
        **popen: Any,
    ) -> Server:
        """Starts a server and waits until the endpoints that it is to open can be hunted.

        `env` comes on top of the environment of the test; other options go to `subprocess.Popen`. The server is ended
        after the test, by `stop_signal`. One that ends by itself, with another status than 0, fails the test; a program
        without `endpoints` only if nobody waits for it.
        """
        __tracebackhide__ = True
        words = [command] if isinstance(command, (str, os.PathLike)) else command
        names = [endpoints] if isinstance(endpoints, str) else endpoints
        # Where standard error is no terminal, servers log to syslog alone.
        environment: Dict[str, str] = {"LINX_LOG": "stderr", **os.environ, **(env or {})}
        options = {"env": environment, **popen}
        server = Server(self._scene, [os.fspath(word) for word in words], names, stop_signal, options)
        self._servers.append(server)
        server.start(timeout)
        return server

    def peer(self, name: str) -> Peer:
        """Stands in for the endpoint `name`."""
        peer = Peer(self._scene, name)
        self._peers.append(peer)
        return peer

    def open(self, name: str) -> linx.Endpoint:
        """An endpoint for the test's own thread, closed after the test. What lies unread in it then fails the test."""
        endpoint = linx.Endpoint(name)
        self._endpoints.append(endpoint)
        return endpoint

    def wait_for(self, name: str, timeout: Optional[float] = None) -> int:
        """Waits until there is an endpoint `name` and returns its spid."""
        __tracebackhide__ = True
        spid = self._scene.find(name, timeout)
        if spid is None:
            raise AssertionError(f"nobody has opened endpoint {name!r} within {self._scene.patience(timeout):g} s")
        return spid

    def wait_end(self, spid: int, timeout: Optional[float] = None) -> None:
        """Waits until the endpoint `spid` has ended."""
        __tracebackhide__ = True
        try:
            self._scene.wait_end(spid, timeout)
        except TimeoutError:
            name, patience = self._scene.name_of(spid), self._scene.patience(timeout)
            raise AssertionError(f"endpoint {name} has not ended within {patience:g} s") from None

    def name_numbers(self, table: Union[Type[enum.IntEnum], Dict[str, int]]) -> None:
        """Has failures call signals by the names of an enumeration, or of a dictionary from names to numbers."""
        self._scene.name_numbers(table)

    def verify(self) -> None:
        """Waits until all that its peers expect has come. Fails if it does not, something else did, or a server failed.

        This is done after every test that has passed.
        """
        __tracebackhide__ = True
        self._scene.wait(lambda: all(peer.is_satisfied for peer in self._peers), None)
        for server in self._servers:
            server.verify()
        self._scene.check()
        problems = []
        for peer in self._peers:
            try:
                peer.verify(0)
            except AssertionError as error:
                problems.append(str(error))
        if problems:
            raise AssertionError(describe.sections(problems))

    def story(self) -> List[Tuple[str, str]]:
        """Headings and texts for those who read why a test has failed."""
        servers = [(f"LINX server {server.name}", server.report()) for server in self._servers]
        peers = [(f"LINX signals at peer {peer.name}, the latest last", peer.story()) for peer in self._peers]
        return [(heading, text) for heading, text in servers + peers if text]

    def note_collected(self, endpoint: linx.Endpoint) -> None:
        """Nobody has this endpoint any more, and nobody has closed it."""
        self._collected.append(repr(endpoint))

    def clean_up(self, patience: float) -> List[str]:
        """Ends all that is here, removes the directory, and tells what the test has left over after that time."""
        try:
            left = [problem for server in self._servers for problem in server.clean_up()]
            for peer in self._peers:
                peer.close()
            return left + self._close_endpoints() + self._end_processes(patience) + self._find_bells()
        finally:
            self._scene.close()
            shutil.rmtree(self.path, ignore_errors=True)

    def _close_endpoints(self) -> List[str]:
        # First all: the end of one may be told to another.
        left = [text for endpoint in self._endpoints if not endpoint.closed for text in self._unread(endpoint)]
        for endpoint in self._endpoints:
            endpoint.close()
        for endpoint in linx.open_endpoints():
            if endpoint not in self._known:
                left.append(f"not closed: {endpoint!r}")
                with contextlib.suppress(OSError):  # a thread may be using it
                    endpoint.close()
        return left + [f"not closed before it was forgotten: {endpoint}" for endpoint in self._collected]

    def _unread(self, endpoint: linx.Endpoint) -> List[str]:
        texts = []
        while True:
            message = endpoint.poll()
            if message is None:
                break
            number = describe.number(message.number, self._scene.numbers)
            texts.append(f"{number} from {self._scene.name_of(message.sender)}, {describe.payload(message.data)}")
        return [describe.section(f"not received at endpoint {endpoint.name!r}:", "\n".join(texts))] if texts else []

    def _end_processes(self, patience: float) -> List[str]:
        running = leftovers.await_end(self.path, patience)
        leftovers.kill(running, self.path, self.timeout)
        for server in self._servers:
            server.release()
        return [f"still running, and killed: {process}" for process in running]

    def _find_bells(self) -> List[str]:
        killed = not all(server.has_ended_orderly for server in self._servers)
        left = []
        for bell in leftovers.bells(self.path):
            if bell.spid == self._scene.watcher_spid:
                continue
            name = self._scene.name_of(bell.spid)
            if bell.is_held:
                left.append(f"not closed: endpoint {name}, which some process still has")
            elif not killed and not self.allow_unclosed:
                left.append(f"not closed: endpoint {name}, whose process has ended without that")
        return left
