"""What the pages of the guide quote stands in the programs."""

import re
import textwrap
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
PAGES = sorted((SOURCE / 'docs' / 'guide').glob('*.md'))
PROGRAMS = SOURCE / 'examples' / 'guide'
SUFFIXES = {'c': ('.c', '.h'), 'cpp': ('.cpp', '.h'), 'python': ('.py',), 'ini': ('.service', '.tmpfiles', '.sysusers'),
            'toml': ('.conf',)}
LINK = re.compile(r'\]\(([^)#]*)(#[^)]*)?\)')
BLOCK = re.compile(r'^```(\w*)\n(.*?)^```$', re.MULTILINE | re.DOTALL)


def links(page):
    """The files and folders that a page leads to."""
    text = BLOCK.sub('', page.read_text())
    return [(page.parent / target).resolve() for target, _ in LINK.findall(text) if '://' not in target]


def linked_programs(page):
    """The files of the guide's programs that a page leads to, those in a folder that it leads to among them."""
    for path in links(page):
        if PROGRAMS in path.parents:
            yield from (path.iterdir() if path.is_dir() else [path])


def runs_of(text, count):
    """All that is so many lines of the text in succession, without what they are indented by."""
    lines = text.splitlines()
    return {textwrap.dedent('\n'.join(lines[start:start + count])) for start in range(len(lines) - count + 1)}


class Pages(unittest.TestCase):
    def test_there_are_pages(self):
        self.assertGreater(len(PAGES), 5)

    def test_every_chapter_is_in_the_list(self):
        listed = set(links(SOURCE / 'docs' / 'guide' / 'README.md'))
        for page in PAGES:
            self.assertTrue(page.name == 'README.md' or page in listed, page.name)

    def test_every_program_belongs_to_a_chapter(self):
        linked = {path for page in PAGES for path in linked_programs(page)}
        for path in PROGRAMS.rglob('*'):
            if path.is_file() and path.name != 'CMakeLists.txt' and path.parent.name != '__pycache__':
                self.assertIn(path, linked)

    def test_quotations_stand_in_the_programs(self):
        quotations = 0
        for page in PAGES:
            programs = set(linked_programs(page))
            for language, quotation in BLOCK.findall(page.read_text()):
                self.assertIn(language, SUFFIXES, f'{page.name} has a block of which nobody knows where it comes from')
                wanted = textwrap.dedent(quotation).rstrip('\n')
                self.assertTrue(any(wanted in runs_of(path.read_text(), wanted.count('\n') + 1)
                                    for path in programs if path.suffix in SUFFIXES[language]),
                                f'{page.name} quotes what no program that it links has:\n{quotation}')
                quotations += 1
        self.assertGreater(quotations, 20)


if __name__ == '__main__':
    unittest.main()
