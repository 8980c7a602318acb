"""Wireshark's dissector shows what captures hold, whatever machine they are from."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from capture_file import START, Signal, capture

DISSECTOR = Path(__file__).resolve().parents[2] / 'tools' / 'wireshark' / 'linx.lua'
MICROSECOND = 1000
CONVERSATION = [
    Signal(0, 'client', 'server', 2000, b'\x01\x02\x03\x04'),
    Signal(100 * MICROSECOND, 'client', 'Größe', 7),
    Signal(1500 * MICROSECOND + 1, 'server', 'client', 2001, b'answer'),
    Signal(2000 * MICROSECOND, 'client', 'server', 0xffffffff, bytes(8), cut=1000),
    Signal(2250 * MICROSECOND, 'server', 'client', 3000),
]


class Dissector(unittest.TestCase):
    def setUp(self):
        self.place = tempfile.TemporaryDirectory()
        self.addCleanup(self.place.cleanup)

    def file(self, name, content):
        path = Path(self.place.name) / name
        path.write_bytes(content)
        return path

    def tshark(self, path, *arguments, numbers=''):
        # A home of its own: what the user has configured, or installed there, is none of the test's business.
        environment = dict(os.environ, HOME=self.place.name, XDG_CONFIG_HOME=self.place.name, LC_ALL='C.UTF-8')
        preferences = ['-o', f'linxipc.numbers:{numbers}'] if numbers else []
        run = subprocess.run(['tshark', '-n', '-X', f'lua_script:{DISSECTOR}', '-r', str(path), *preferences,
                              *arguments], capture_output=True, text=True, timeout=120, env=environment)
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertNotIn('Lua', run.stderr)
        return run.stdout

    def fields(self, path, *names, numbers='', passes=2):
        arguments = [word for name in names for word in ('-e', name)]
        out = self.tshark(path, *(['-2'] if passes == 2 else []), '-T', 'fields', *arguments, numbers=numbers)
        return [tuple(line.split('\t')) for line in out.splitlines()]

    def in_both_orders(self, signals):
        for order in '<>':
            with self.subTest(order=order):
                yield self.file('capture', capture(order, signals))

    def test_every_field_is_shown(self):
        for path in self.in_both_orders(CONVERSATION):
            self.assertEqual(
                self.fields(path, 'linx.from', 'linx.to', 'linx.number', 'linx.size', 'linx.data'),
                [('client', 'server', '2000', '8', '01020304'), ('client', 'Größe', '7', '4', ''),
                 ('server', 'client', '2001', '10', '616e73776572'),
                 ('client', 'server', '4294967295', '1012', '0000000000000000'),
                 ('server', 'client', '3000', '4', '')])
            self.assertEqual(self.fields(path, 'linx.from_spid', 'linx.to_spid')[1], ('0x00002006', '0x00002007'))
            self.assertEqual(self.fields(path, 'frame.time_epoch')[0], (f'{START // 10**9}.{START % 10**9:09}',))

    def test_the_columns_name_the_endpoints(self):
        for path in self.in_both_orders(CONVERSATION):
            columns = self.fields(path, '_ws.col.Source', '_ws.col.Destination', '_ws.col.Protocol', '_ws.col.Info')
            self.assertEqual(columns[1][:3], ('client', 'Größe', 'LINX'))
            self.assertTrue(columns[2][3].startswith('2001, 10 bytes'), columns[2])
            self.assertTrue(columns[2][3].endswith(', answers 1'), columns[2])

    def test_requests_and_answers_are_linked_with_the_time_between(self):
        for path in self.in_both_orders(CONVERSATION):
            self.assertEqual(self.fields(path, 'linx.answer_in', 'linx.answer_to', 'linx.latency'),
                             [('3', '', ''), ('', '', ''), ('', '1', '0.001500001'), ('5', '', ''),
                              ('', '4', '0.000250000')])
            self.assertEqual([latency for latency, in self.fields(path, 'linx.latency', passes=1)],
                             ['', '', '0.001500001', '', '0.000250000'], 'also where the file is read once')

    def test_requests_that_overlap_are_answered_in_their_order(self):
        signals = [Signal(i * MICROSECOND, *ends, number) for i, (ends, number) in enumerate(
            [(('a', 'bb'), 1), (('a', 'bb'), 2), (('bb', 'a'), 3), (('ccc', 'bb'), 1), (('bb', 'a'), 4)])]
        for path in self.in_both_orders(signals):
            self.assertEqual([request for request, in self.fields(path, 'linx.answer_to')], ['', '', '1', '', '2'])

    def test_numbers_have_the_names_of_the_table(self):
        numbers = self.file('numbers', b'# Signals\n2000 ConfigRequest\n  0x7d1\tConfigAnswer  # hexadecimal\n\nrubbish\n')
        for path in self.in_both_orders(CONVERSATION):
            self.assertEqual([name for name, in self.fields(path, 'linx.name', numbers=numbers)],
                             ['ConfigRequest', '', 'ConfigAnswer', '', ''])
            self.assertIn('2000 ConfigRequest, 8 bytes', self.tshark(path, numbers=numbers))

    def test_a_table_tells_what_answers_what(self):
        numbers = self.file('numbers', b'1 Changed -\n2 Request 3\n3 Answer\n')
        signals = [Signal(i * MICROSECOND, *ends, number) for i, (ends, number) in enumerate(
            [(('a', 'bb'), 1), (('bb', 'a'), 2), (('a', 'bb'), 1), (('a', 'bb'), 3), (('bb', 'a'), 2)])]
        for path in self.in_both_orders(signals):
            self.assertEqual([request for request, in self.fields(path, 'linx.answer_to', numbers=numbers)],
                             ['', '', '', '2', ''])

    def test_big_endian_payloads_are_noted(self):
        for order, noted in (('<', False), ('>', True)):
            path = self.file('capture', capture(order, CONVERSATION))
            text = self.tshark(path, '-V')
            self.assertEqual('The payload is of a big-endian machine' in text, noted)
            self.assertEqual(text.count('big-endian (0)') == len(CONVERSATION), noted)
            self.assertEqual(', big-endian' in self.tshark(path), noted)

    def test_payloads_that_were_cut_are_noted(self):
        for path in self.in_both_orders(CONVERSATION):
            self.assertEqual(self.tshark(path, '-Y', 'linx.cut', '-T', 'fields', '-e', 'frame.number'), '4\n')

    def test_what_is_no_signal_is_left_alone(self):
        whole = CONVERSATION[0].packet(True)

        class Garbage(Signal):
            def packet(self, _):
                return self.data

        packets = [whole[:length] for length in range(24 + 12)]
        packets += [b'\x02' + whole[1:], whole[:2] + b'\xff' + whole[3:], whole[:20] + b'\xff' + whole[21:]]
        for path in self.in_both_orders([Garbage(0, '', '', 0, packet) for packet in packets]):
            self.assertEqual({number for number, in self.fields(path, 'linx.number')}, {''})
            self.assertNotIn('rror', self.tshark(path, '-V'))


if __name__ == '__main__':
    if shutil.which('tshark') is None:
        print('Skipped: tshark is not installed.')
        sys.exit(77)
    unittest.main()
