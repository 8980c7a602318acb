"""The page linx(1) describes the verbs and options that the program has."""

import os
import re
import subprocess
import unittest
from pathlib import Path

PAGE = (Path(__file__).resolve().parents[2] / 'man' / 'linx.1').read_text()
PROGRAM = os.environ['LINX_PROGRAM']


def help_of(*verb):
    return subprocess.run([PROGRAM, *verb, '--help'], check=True, capture_output=True, text=True).stdout


def part(text, title):
    """The lines of the help that stand, farther in, below a title."""
    return re.search(rf'^ *{title}:\n((?:  .*\n)*)', text, re.MULTILINE)


def verbs():
    return re.findall(r'^  (\w+) ', part(help_of(), 'Subcommands').group(1), re.MULTILINE)


def options(text):
    return set(re.findall(r'(?<![\w-])(--?[A-Za-z][\w-]*)', '\n'.join(
        line for line in text.splitlines() if re.match(r' +-', line))))


class Manual(unittest.TestCase):
    def test_every_verb_is_described_and_no_other(self):
        self.assertEqual(20, len(verbs()))
        verbs_described = re.findall(r'^\.It Cm ([a-z]+)\b', PAGE[:PAGE.index('.Sh DIAGNOSTICS')], re.MULTILINE)
        self.assertEqual(sorted(verbs()), sorted(verbs_described))

    def test_every_option_is_described_and_no_other(self):
        there = options(help_of()).union(*(options(help_of(verb)) for verb in verbs()))
        described = {'-' + word for word in re.findall(r'\bFl (-?[A-Za-z][\w-]*)', PAGE)}
        self.assertEqual(there, described)

    def test_every_finding_is_described_and_no_other(self):
        sources = (Path(__file__).resolve().parents[2] / 'tools').glob('*findings.cpp')
        found = {word for source in sources
                 for word in re.findall(r'(?:found\(|push_back\(\{)"([a-z-]+)"', source.read_text())}
        self.assertEqual(found, set(self.findings()))

    @staticmethod
    def findings():
        diagnostics = PAGE[PAGE.index('.Sh DIAGNOSTICS'):]
        return re.findall(r'^\.It Cm ([a-z-]+)$', diagnostics, re.MULTILINE)


if __name__ == '__main__':
    unittest.main()
