"""The links of all documents lead to files of the tree, and to headings that are there."""

import os
import re
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
LINK = re.compile(r'\]\(([^)#\s]*)(?:#([^)\s]*))?\)')
CODE = re.compile(r'^```.*?^```$|`[^`\n]+`', re.MULTILINE | re.DOTALL)
HEADING = re.compile(r'^#+ (.*)$', re.MULTILINE)


def documents():
    """All pages but those that were built, or that another checkout beside this one has."""
    for folder, below, files in os.walk(SOURCE):
        below[:] = [name for name in below if not name.startswith('.') and Path(folder, name) != SOURCE / 'build']
        yield from (Path(folder, name) for name in files if name.endswith('.md'))


def links(page):
    """What a page links within the tree: the path, and the heading if one is named."""
    for target, heading in LINK.findall(CODE.sub('', page.read_text())):
        if '://' not in target:
            yield (page.parent / target).resolve() if target else page, heading


def headings(page):
    """The names of a page's headings in links, as the hosts of repositories make them."""
    return {re.sub(r'[^\w\- ]', '', heading.lower()).replace(' ', '-') for heading in
            HEADING.findall(re.sub(r'^```.*?^```$', '', page.read_text(), flags=re.MULTILINE | re.DOTALL))}


class Links(unittest.TestCase):
    def test_they_lead_somewhere(self):
        followed = 0
        for page in documents():
            for path, heading in links(page):
                where = f'{page.relative_to(SOURCE)} links {path}'
                self.assertTrue(path.exists(), where)
                self.assertTrue(not heading or heading in headings(path), f'{where}, which has no heading {heading}')
                followed += 1
        self.assertGreater(followed, 50)


if __name__ == '__main__':
    unittest.main()
