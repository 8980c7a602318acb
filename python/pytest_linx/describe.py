# SPDX-License-Identifier: MIT
"""Signals as text for those who read why a test has failed."""
from __future__ import annotations

import signal
from typing import Iterable, Mapping, Optional

SHOWN = 256  # bytes of a payload


def dump(data: bytes, indent: str = "  ") -> str:
    """The bytes in hexadecimal and as characters, sixteen a line; of many the first."""
    lines = []
    for at in range(0, min(len(data), SHOWN), 16):
        piece = data[at : at + 16]
        halves = "  ".join(piece[half : half + 8].hex(" ") for half in (0, 8) if piece[half:])
        characters = "".join(chr(byte) if 0x20 <= byte < 0x7F else "." for byte in piece)
        lines.append(f"{indent}{at:04x}  {halves:<48}  |{characters}|")
    if len(data) > SHOWN:
        lines.append(f"{indent}and {len(data) - SHOWN} bytes more")
    return "\n".join(lines)


def number(value: int, names: Mapping[int, str]) -> str:
    """A signal number, by its name where it has one."""
    return f"{names[value]} ({value:#x})" if value in names else f"{value} ({value:#x})"


def count(many: int, what: str) -> str:
    return f"{many} {what}" if many == 1 else f"{many} {what}s"


def payload(data: bytes) -> str:
    """Its size, and below that its bytes, if any."""
    return f"{count(len(data), 'byte')}:\n{dump(data)}" if data else "no payload"


def difference(expected: bytes, got: bytes) -> Optional[str]:
    """Where two payloads part, in a few words; None when they are alike."""
    if expected == got:
        return None
    common = min(len(expected), len(got))
    same = next((at for at in range(common) if expected[at] != got[at]), common)
    if same == len(got):
        return f"ends after {count(same, 'byte')} of the {len(expected)} expected"
    if same == len(expected):
        return f"goes on after the {count(same, 'byte')} expected"
    return f"differs at {same:#06x}: {got[same]:02x}, expected {expected[same]:02x}"


def posix_signal(value: int) -> str:
    return signal.Signals(value).name if value in set(signal.Signals) else f"signal {value}"


def status(value: int) -> str:
    """The exit status of a process as `subprocess` tells it."""
    return f"exit status {value}" if value >= 0 else f"killed by {posix_signal(-value)}"


def section(heading: str, body: str) -> str:
    """The heading and, indented below it, what there is to say."""
    return heading + ("".join(f"\n  {line}" for line in body.splitlines()) if body else "")


def sections(texts: Iterable[str]) -> str:
    return "\n\n".join(texts)
