"""The examples of the manual pages compile as they stand. $CC and $CXX are the compilers."""

import os
import subprocess
import sys
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
from page import Page  # noqa: E402

SOURCE = Path(__file__).resolve().parents[2]
COMPILERS = {'c': [os.environ.get('CC', 'cc'), '-std=c99', '-D_POSIX_C_SOURCE=200809L', '-x', 'c'],
             'c++': [os.environ.get('CXX', 'c++'), '-std=c++17', '-x', 'c++']}
# A function that an example shows is there to be looked at, not to be called.
FLAGS = ['-fsyntax-only', '-Wall', '-Wextra', '-Wconversion', '-Wshadow', '-Werror', '-Wno-unused-function']


class Examples(unittest.TestCase):
    def test_examples_compile(self):
        compiled = 0
        for path in sorted((SOURCE / 'man').iterdir()):
            for example in Page(path).examples():
                where = f'{path}:{example.line}'
                self.assertIsNotNone(example.language, f'{where}: no comment before .Bd tells the language')
                if example.language in ('shell', 'toml'):
                    continue
                compiled += 1
                # As though the text stood where it does in the page: the compiler's messages lead there.
                text = f'#line {example.line} "{path}"\n{example.text}'
                run = subprocess.run([*COMPILERS[example.language], *FLAGS, f'-I{SOURCE}', '-'], input=text, text=True,
                                     stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
                with self.subTest(where):
                    self.assertEqual(0, run.returncode, run.stdout)
        self.assertGreater(compiled, 10)


if __name__ == '__main__':
    unittest.main()
