"""Captures as machines of either byte order write them: what Wireshark is shown."""

import struct
from dataclasses import dataclass

START = 1774518896123456789


@dataclass
class Signal:
    nanoseconds: int
    sender: str
    receiver: str
    number: int
    data: bytes = b''
    cut: int = 0  # bytes of the payload that were not captured

    def packet(self, little_endian):
        sender, receiver = self.sender.encode(), self.receiver.encode()
        head = struct.pack('>BBHIIIIBBH', 1, little_endian, 24 + len(sender) + len(receiver), self.number,
                           4 + len(self.data) + self.cut, 0x2000 + len(sender), 0x2000 + len(receiver), len(sender),
                           len(receiver), 0)
        return head + sender + receiver + self.data


def block(order, kind, body):
    length = struct.pack(order + 'I', len(body) + 12)
    return struct.pack(order + 'I', kind) + length + body + length


def padded(data):
    return data + bytes(-len(data) % 4)


def capture(order, signals):
    """The file of a machine of this byte order, '<' or '>'."""
    def words(layout, *values):
        return struct.pack(order + layout, *values)

    file = block(order, 0x0a0d0d0a, words('IHHq', 0x1a2b3c4d, 1, 0, -1))
    file += block(order, 1, words('HHI', 147, 0, 0) + words('HH', 9, 1) + padded(b'\x09') + words('HH', 0, 0))
    for signal in signals:
        packet = signal.packet(order == '<')
        time = START + signal.nanoseconds
        file += block(order, 6, words('IIIII', 0, time >> 32, time & 0xffffffff, len(packet), len(packet) + signal.cut)
                      + padded(packet))
    return file
