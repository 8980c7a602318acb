# SPDX-License-Identifier: MIT
"""Servers: the processes under test."""
from __future__ import annotations

import os
import re
import signal
import subprocess
import threading
from typing import Any, Callable, Dict, List, Mapping, Match, Optional, Pattern, Sequence, Set, Union

from . import describe
from .scene import Scene

SHUTDOWN = 1280
"""The number of the shutdown request."""

LAST_LINES = 40  # of a server's output, in failures


class Process:
    """One life of a server: what it writes and how it ends."""

    def __init__(
        self, scene: Scene, command: Sequence[str], options: Mapping[str, Any], told: Callable[[Process], None]
    ) -> None:
        """Starts the program; its end is `told`."""
        self.status: Optional[int] = None
        self.is_end_expected = False
        self.signals: Set[int] = set()  # that it was sent, any of which may end it
        self._scene = scene
        self._told = told
        self._written = bytearray()
        self._is_all_written = False
        defaults: Dict[str, Any] = {
            "stdin": subprocess.DEVNULL,
            "stdout": subprocess.PIPE,
            "stderr": subprocess.STDOUT,
            "start_new_session": True,  # Ctrl-C is for the test, which then ends its servers
        }
        self.popen: subprocess.Popen[bytes] = subprocess.Popen(command, **{**defaults, **options})
        self._threads = [threading.Thread(target=self._await_end, daemon=True)]
        if self.popen.stdout is not None:
            self._threads.append(threading.Thread(target=self._read, args=(self.popen.stdout.fileno(),), daemon=True))
        else:
            self._is_all_written = True
        for thread in self._threads:
            thread.start()

    @property
    def output(self) -> str:
        return bytes(self._written).decode("utf-8", "replace")

    @property
    def is_over(self) -> bool:
        """Whether it has ended and said all."""
        return self.status is not None and self._is_all_written

    def release(self) -> None:
        """Ends the threads, once all who could write are gone."""
        for thread in self._threads:
            thread.join(self._scene.timeout)
        if self.popen.stdout is not None and not any(thread.is_alive() for thread in self._threads):
            self.popen.stdout.close()

    def _read(self, descriptor: int) -> None:
        while True:
            data = os.read(descriptor, 65536)
            if not data:
                break
            self._scene.tell(lambda: self._written.extend(data))
        self._scene.tell(lambda: setattr(self, "_is_all_written", True))

    def _await_end(self) -> None:
        status = self.popen.wait()
        self._scene.tell(lambda: setattr(self, "status", status))
        self._told(self)


class Server:
    """A program under test, and the endpoints that it opens."""

    def __init__(
        self,
        scene: Scene,
        command: Sequence[str],
        endpoints: Sequence[str],
        stop_signal: int,
        options: Mapping[str, Any],
    ) -> None:
        self.command = list(command)
        self.name = endpoints[0] if endpoints else os.path.basename(command[0])
        self.endpoints = list(endpoints)
        self.spids: Dict[str, int] = {}
        """The spid of each of its endpoints."""
        self.stop_signal = stop_signal
        self._scene = scene
        self._options = options
        self._lives: List[Process] = []

    def start(self, timeout: Optional[float] = None) -> None:
        """Starts the program and waits until all its endpoints can be hunted."""
        __tracebackhide__ = True
        if self.is_running:
            raise RuntimeError(f"{self} runs")
        self.spids = {}
        life = Process(self._scene, self.command, self._options, self._judge_end)
        self._lives.append(life)
        for name in self.endpoints:
            spid = self._scene.find(name, timeout, lambda: life.status is not None)
            if spid is None:
                how = f"within {self._scene.patience(timeout):g} s"
                if life.status is not None:
                    how = f"before it ended, {describe.status(life.status)}"
                raise AssertionError(f"{self} has not opened endpoint {name!r} {how}")
            self.spids[name] = spid

    @property
    def pid(self) -> int:
        return self._life.popen.pid

    @property
    def is_running(self) -> bool:
        return bool(self._lives) and self._life.status is None

    @property
    def status(self) -> Optional[int]:
        """Its exit status, -9 for one killed by signal 9; None while it runs."""
        return self._life.status

    @property
    def output(self) -> str:
        """What it has written, to standard output and standard error, since it was started last."""
        return self._life.output

    def wait_for_output(self, wanted: Union[str, Pattern[str]], timeout: Optional[float] = None) -> Match[str]:
        """Waits until the output contains this text, or a match of this pattern; returns the match.

        Output comes in pieces: a pattern that ends with a number has to say what follows it, a line's end for instance.
        """
        __tracebackhide__ = True
        life = self._life
        pattern = re.compile(re.escape(wanted)) if isinstance(wanted, str) else wanted
        self._scene.wait(lambda: bool(pattern.search(life.output)) or life.is_over, timeout)
        match = pattern.search(life.output)
        if match is None:
            limit = "all its life" if life.is_over else f"{self._scene.patience(timeout):g} s"
            raise AssertionError(f"{self} has not written {pattern.pattern!r} in {limit}")
        return match

    def signal(self, number: int) -> None:
        """Sends a POSIX signal, SIGSTOP for instance. That it ends the server is no failure."""
        self._life.signals.add(number)
        self._life.popen.send_signal(number)

    def expect_end(self) -> None:
        """It may end, in whatever way, without that being a failure."""
        life = self._life
        life.is_end_expected = True
        self._scene.excuse(life)

    def kill(self) -> None:
        """SIGKILL. Returns when the process is gone and the domain knows."""
        __tracebackhide__ = True
        self._end(signal.SIGKILL, None)

    def terminate(self, timeout: Optional[float] = None) -> int:
        """Its stop signal, SIGTERM unless told otherwise. Returns the exit status."""
        __tracebackhide__ = True
        return self._end(self.stop_signal, timeout)

    def shutdown(self, timeout: Optional[float] = None) -> int:
        """The shutdown request (1280) to each of its endpoints. Returns the exit status."""
        __tracebackhide__ = True
        self.expect_end()
        for spid in self.spids.values():
            self._scene.send(spid, SHUTDOWN)
        return self.wait(timeout)

    def wait(self, timeout: Optional[float] = None) -> int:
        """Waits until it ends by itself, which is no failure then. Returns the exit status."""
        __tracebackhide__ = True
        self.expect_end()
        life = self._life
        if not self._scene.wait(lambda: life.status is not None, timeout):
            raise AssertionError(f"{self} has not ended within {self._scene.patience(timeout):g} s")
        assert life.status is not None
        for name, spid in self.spids.items():
            try:
                self._scene.wait_end(spid, timeout)
            except TimeoutError:
                raise AssertionError(f"{self} has ended, but somebody else still has its endpoint {name!r}") from None
        return life.status

    def restart(self, timeout: Optional[float] = None) -> None:
        """Starts it again, after a `kill()` if it runs, and waits for its endpoints."""
        __tracebackhide__ = True
        if self.is_running:
            self.kill()
        self.start(timeout)

    def report(self) -> str:
        """What it has written last, in all its lives, and how they ended."""
        texts = []
        for life in self._lives:
            end = "running" if life.status is None else describe.status(life.status)
            lines = life.output.splitlines()
            more = [f"... {len(lines) - LAST_LINES} lines before"] if len(lines) > LAST_LINES else []
            text = "\n".join(more + lines[-LAST_LINES:]) or "nothing"
            texts.append(describe.section(f"{self.name}, process {life.popen.pid}, {end}; it wrote:", text))
        return "\n".join(texts)

    def __str__(self) -> str:
        return f"server {self.name!r} (process {self.pid})"

    def clean_up(self) -> List[str]:
        """Ends it if it runs. What was not as it should be."""
        problems = []
        if self.is_running:
            self.signal(self.stop_signal)
            self.signal(signal.SIGCONT)
            self.expect_end()
            life = self._life
            with self._scene.changed:
                ended = self._scene.changed.wait_for(lambda: life.status is not None, self._scene.timeout)
            if not ended:
                name = describe.posix_signal(self.stop_signal)
                problems.append(f"{self} did not end within {self._scene.timeout:g} s of {name}, and was killed")
                self.signal(signal.SIGKILL)
        return problems

    def verify(self) -> None:
        """Takes an end that nobody asked for, or waited for, as a failure."""
        for life in self._lives:
            self._judge(life)

    def release(self) -> None:
        for life in self._lives:
            life.release()

    @property
    def has_ended_orderly(self) -> bool:
        return all(life.status is not None and life.status >= 0 for life in self._lives)

    @property
    def _life(self) -> Process:
        if not self._lives:
            raise RuntimeError(f"server {self.name!r} was not started")
        return self._lives[-1]

    def _end(self, number: int, timeout: Optional[float]) -> int:
        __tracebackhide__ = True
        self.expect_end()
        self.signal(number)
        return self.wait(timeout)

    def _judge_end(self, life: Process) -> None:
        """A server that ends unasked is a failure now, any other program unless somebody waits for it."""
        if self.endpoints:
            self._judge(life)

    def _judge(self, life: Process) -> None:
        """Takes an end that nobody asked for as a failure."""
        if life.status and not life.is_end_expected and -life.status not in life.signals:
            how = describe.status(life.status)
            self._scene.fail(life, f"server {self.name!r} (process {life.popen.pid}) has ended unasked: {how}")
