"""What debian/ repeats of the tree is what the tree says, and every file that is installed has its package."""

import fnmatch
import os
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
DEBIAN = SOURCE / 'debian'
VERSION = os.environ['VERSION']
LIBRARIES = {'LinxIpc': 'liblinxipc1', 'linxhost': 'liblinxhost1'}


def packages():
    return re.findall(r'^Package: (.*)$', (DEBIAN / 'control').read_text(), re.MULTILINE)


def patterns(file):
    """What a file of debhelper lists, with the comments left out."""
    return [line for line in file.read_text().splitlines() if line and not line.startswith('#')]


def matches(path, pattern):
    """As debhelper does it: a wildcard is one part of a path, and a directory stands for all that is in it."""
    wanted, parts = pattern.split('/'), path.split('/')
    return len(parts) >= len(wanted) and all(map(fnmatch.fnmatchcase, parts, wanted))


def installed():
    """All files that are installed, under the names that they have in Debian."""
    library = os.environ['LIBDIR']
    with tempfile.TemporaryDirectory() as place:
        subprocess.run([os.environ['CMAKE'], '--install', os.environ['BUILD'], '--prefix', place],
                       check=True, stdout=subprocess.DEVNULL)
        for path in Path(place).rglob('*'):
            if path.is_symlink() or path.is_file():
                name = str(path.relative_to(place))
                if name.startswith('lib/systemd/'):
                    yield name  # debian/rules puts units where this Debian has them
                    continue
                if not name.startswith(('lib/python3/', 'lib/sysusers.d/')):
                    name = re.sub(f'^{re.escape(library)}/', 'lib/machine/', name)
                yield 'usr/' + name


class Debian(unittest.TestCase):
    def test_the_version_is_that_of_the_project(self):
        first = (DEBIAN / 'changelog').read_text().splitlines()[0]
        self.assertRegex(first, rf'^linxipc \({re.escape(VERSION)}\) ')

    def test_the_symbols_are_those_that_are_promised(self):
        for library, package in LIBRARIES.items():
            promised = (SOURCE / 'tests' / 'abi' / f'lib{library}.symbols').read_text().splitlines()
            promised = {symbol.replace('@@', '@') for symbol in promised}
            promised |= {f'{version}@{version}' for version in (symbol.split('@')[1] for symbol in list(promised))}
            lines = (DEBIAN / f'{package}.symbols').read_text().splitlines()
            self.assertEqual(lines[0], f'lib{library}.so.{VERSION.split(".")[0]} {package} #MINVER#')
            listed = [line.split() for line in lines if line.startswith(' ')]
            self.assertEqual({symbol for symbol, _ in listed}, promised)
            for symbol, since in listed:
                self.assertTrue(since.startswith(symbol.split('_')[-1] + '.'), f'{symbol} is not of {since}')

    def test_every_file_has_one_package(self):
        rules = [(package, pattern) for package in packages() for pattern in patterns(DEBIAN / f'{package}.install')]
        rules += [('none', pattern) for pattern in patterns(DEBIAN / 'not-installed')]
        used = set()
        for path in installed():
            found = [rule for rule in rules if matches(path, rule[1])]
            self.assertEqual(len(found), 1, f'{path}: {found}')
            used.update(found)
        self.assertEqual(used, set(rules))


if __name__ == '__main__':
    unittest.main()
