"""Whether a page of `linx report` is well-formed, as XML and as HTML, and wants and runs nothing. Prints what is not."""

import sys
import xml.etree.ElementTree as ElementTree
from html.parser import HTMLParser

VOID = {'meta'}
FOREIGN = {'script', 'link', 'img', 'iframe', 'object', 'embed', 'base', 'form'}


class Check(HTMLParser):
    def __init__(self):
        super().__init__()
        self.open, self.faults, self.sections = [], [], 0

    def handle_starttag(self, tag, attributes):
        self.look(tag, attributes)
        if tag not in VOID:
            self.open.append(tag)

    def handle_startendtag(self, tag, attributes):
        self.look(tag, attributes)

    def handle_endtag(self, tag):
        if not self.open or self.open.pop() != tag:
            self.faults.append(f'</{tag}> ends something else, at {self.getpos()}')

    def look(self, tag, attributes):
        self.sections += tag == 'section'
        if tag in FOREIGN:
            self.faults.append(f'there is a <{tag}>')
        for name, value in attributes:
            wants = name in ('src', 'href', 'xlink:href', 'action') and not value.startswith('#')
            if name.startswith('on') or wants or 'url(' in (value or '').replace('url(#', ''):
                self.faults.append(f'{name}="{value}" in <{tag}>')


page = open(sys.argv[1], encoding='utf-8').read()
ElementTree.fromstring(page)
check = Check()
check.feed(page)
check.close()
if check.open:
    check.faults.append(f'never closed: {check.open}')
if check.sections < 8:
    check.faults.append(f'only {check.sections} sections')
style = page[page.index('<style>'):page.index('</style>')]
if 'url(' in style or '@import' in style:
    check.faults.append('the style wants something from elsewhere')
print('\n'.join(check.faults))
sys.exit(1 if check.faults else 0)
