"""What a manual page says, read from its mdoc."""

import re
import shlex
from collections import namedtuple

Example = namedtuple('Example', 'language line text')


class Page:
    def __init__(self, path):
        self.path = path
        self.name, self.section = path.stem, path.suffix[1:]
        self.lines = path.read_text().splitlines()

    def __str__(self):
        return f'{self.name}({self.section})'

    def part(self, title):
        """The lines of a section; none where the page does not have it."""
        lines, inside = [], False
        for line in self.lines:
            if line.startswith('.Sh '):
                inside = line == f'.Sh {title}'
            elif inside:
                lines.append(line)
        return lines

    def words_after(self, macro, lines=None):
        """The arguments of each use of a macro."""
        uses = [line[len(macro) + 2:] for line in lines or self.lines if line.startswith(f'.{macro} ')]
        return [[word for word in shlex.split(use) if word not in ',.;:)'] for use in uses]

    def titles(self):
        return [line[4:] for line in self.lines if line.startswith('.Sh ')]

    def errors(self, title='ERRORS'):
        return {word for words in self.words_after('It Bq Er', self.part(title)) for word in words}

    def functions(self):
        """What the synopsis declares by Ft with Fn, or with Fo, Fa and Fc: result, name, arguments."""
        found, result = [], None
        for line in self.part('SYNOPSIS'):
            macro, _, rest = line.partition(' ')
            words = shlex.split(rest) if macro in ('.Ft', '.Fn', '.Fo', '.Fa') else []
            if macro == '.Ft':
                result = words[0]
            elif macro in ('.Fn', '.Fo'):
                found.append((result, words[0], words[1:]))
            elif macro == '.Fa':
                found[-1][2].extend(words)
        return found

    def displays(self, title):
        """The literal displays of a section: the number of each one's first line, the line before it, and its text."""
        first = self.lines.index(f'.Sh {title}') + 1 if f'.Sh {title}' in self.lines else 0
        lines, begin = self.part(title), None
        for at, line in enumerate(lines):
            if line.startswith('.Bd'):
                begin = at
            elif line == '.Ed':
                text = '\n'.join(lines[begin + 1:at]) + '\n'
                yield first + begin + 2, lines[begin - 1], text.replace(r'\e', '\\').replace(r'\&', '')

    def examples(self):
        """The displays of the examples, each with the language that the comment before it says; None without one."""
        for line, before, text in self.displays('EXAMPLES'):
            mark = re.fullmatch(r'\.\\" example: (c|c\+\+|shell|toml)', before)
            yield Example(mark and mark[1], line, text)
