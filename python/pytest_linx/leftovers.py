# SPDX-License-Identifier: MIT
"""What a test has left behind in its domain."""
from __future__ import annotations

import contextlib
import os
import signal
import time
from typing import Iterator, List, NamedTuple, Optional

TURN = 0.02  # seconds between two looks at processes that may be about to end


class Process(NamedTuple):
    pid: int
    command: str

    def __str__(self) -> str:
        return f"process {self.pid}: {self.command}"


class Bell(NamedTuple):
    """The doorbell of an endpoint that has not been closed."""

    spid: int
    is_held: bool
    """Whether a process has the endpoint, rather than ended with it."""


def processes(domain: str) -> List[Process]:
    """All other processes that were started for this domain, or have a file of it open."""
    found = []
    for entry in os.listdir("/proc"):
        if entry.isdigit() and int(entry) != os.getpid():
            # Those of others, and those that have just ended, cannot be looked into.
            with contextlib.suppress(OSError):
                if _belongs(entry, domain):
                    found.append(Process(int(entry), _command(entry)))
    return found


def await_end(domain: str, timeout: float) -> List[Process]:
    """Gives processes that are ending the time for it. Those that are still there."""
    deadline = time.monotonic() + timeout
    while True:
        left = processes(domain)
        if not left or time.monotonic() >= deadline:
            return left
        time.sleep(TURN)


def kill(left: List[Process], domain: str, timeout: float) -> None:
    for process in left:
        with contextlib.suppress(ProcessLookupError):
            os.kill(process.pid, signal.SIGKILL)
    await_end(domain, timeout)


def bells(domain: str) -> List[Bell]:
    found = []
    for name in os.listdir(domain):
        kind, _, spid = name.partition(".")
        if kind == "bell":
            with contextlib.suppress(FileNotFoundError):
                found.append(Bell(int(spid, 16), _has_reader(os.path.join(domain, name))))
    return found


def _belongs(entry: str, domain: str) -> bool:
    with open(f"/proc/{entry}/environ", "rb") as file:
        if b"LINX_DOMAIN=" + os.fsencode(domain) in file.read().split(b"\0"):
            return True
    return any(path.startswith(domain + "/") for path in _open_files(entry))


def _open_files(entry: str) -> Iterator[str]:
    for descriptor in os.listdir(f"/proc/{entry}/fd"):
        with contextlib.suppress(OSError):
            yield os.readlink(f"/proc/{entry}/fd/{descriptor}")


def _command(entry: str) -> str:
    with open(f"/proc/{entry}/cmdline", "rb") as file:
        return file.read().replace(b"\0", b" ").decode("utf-8", "replace").strip()


def _has_reader(path: str) -> bool:
    """The endpoint alone holds its doorbell open for reading."""
    descriptor: Optional[int] = None
    try:
        descriptor = os.open(path, os.O_WRONLY | os.O_NONBLOCK)
        return True
    except FileNotFoundError:
        raise
    except OSError:
        return False
    finally:
        if descriptor is not None:
            os.close(descriptor)
