"""What the rules have to know of a C++ source: where code is, where function bodies are, which statements they hold.

No parser: it counts on a source that clang-format has laid out, and leaves alone what it is not sure of.
"""

import re
from dataclasses import dataclass

# Comments, raw strings, strings, characters (but no separators of digits), and lines of the preprocessor.
_NOT_CODE = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(?P<d>[^(\s]*)\(.*?\)(?P=d)"|"(?:\\.|[^"\\\n])*"|(?<!\w)\'(?:\\.|[^\'\\\n])*\''
    r'|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*', re.DOTALL | re.MULTILINE)
# What may stand before a statement and decide whether it runs; of those in parentheses, the word.
_HEAD = re.compile(r'\s*(?:(?:else|do)\b|(?:case\s+[\w:]+?|default)\s*(?<!:):(?!:)'
                   r'|(?:if|for|while|switch)\s*(?:constexpr\s*)?(?=\())')
_DECLARATION = re.compile(r'(?:(?:const|static|constexpr|thread_local|struct|unsigned)\s+)*'
                          r'[A-Za-z_][\w:]*(?:<[^;=]*>)?(?:\s+const)?'
                          r'(?:\s*[&*]+\s*|\s+)[A-Za-z_]\w*\s*(?:[=({;\[]|$)')
_NO_DECLARATION = re.compile(r'(?:return|throw|delete|goto|else)\b')
_TYPE = re.compile(r'\b(?:class|struct|union|enum)\b[^()=]*$')
_BODY = re.compile(r'(?:[)\]]|\b(?:const|noexcept|override|final|mutable|else|do|try)|->[^;{}()]*)$')
_LAMBDA = re.compile(r'\[[^\[\]]*\]\s*(?:\([^{}]*\))?[^(){}]*$')


@dataclass
class Statement:
    """A simple statement: `start` to `end`, the semicolon included, without what controls it."""
    start: int
    end: int
    code: str         # without comments and strings
    controlled: bool  # an if, a loop or a label stands before it
    block: int        # statements of one block have the same number
    in_void: bool     # the function around it returns nothing

    @property
    def declares(self):
        return not _NO_DECLARATION.match(self.code) and bool(_DECLARATION.match(self.code))


@dataclass
class _Scope:
    kind: str  # namespace, type, body, value
    begin: int
    in_void: bool = False
    parens: int = 0


def _blank(match):
    """As long as what was found, and without anything to be taken for code."""
    return re.sub(r'[^\n]', '_' if match.group()[0] in '"\'R' else ' ', match.group())


class Source:
    def __init__(self, text):
        self.text = text
        self.code = _NOT_CODE.sub(_blank, text)
        self.statements = []
        self._body = bytearray(len(text))  # 1 where the innermost scope is a function's
        self._read()

    def line(self, offset):
        return self.text.count('\n', 0, offset) + 1

    def in_body(self, offset):
        return bool(self._body[offset])

    def closing(self, opening):
        """Where the parenthesis that opens at `opening` closes."""
        depth = 0
        for i in range(opening, len(self.code)):
            if self.code[i] == '(':
                depth += 1
            elif self.code[i] == ')':
                depth -= 1
                if depth == 0:
                    return i
        raise ValueError('unbalanced parentheses')

    def _read(self):
        scopes = [_Scope('namespace', 0)]
        blocks = [0]
        for i, char in enumerate(self.code):
            scope = scopes[-1]
            self._body[i] = scope.kind == 'body'
            if char in '([':
                scope.parens += 1
            elif char in ')]':
                scope.parens -= 1
            elif char == '{':
                kind, in_void = self._classify(scope, i)
                scopes.append(_Scope(kind, i + 1, in_void))
                blocks.append(i)
            elif char == '}' and len(scopes) > 1:
                scopes.pop()
                blocks.pop()
                if scope.kind != 'value' and scopes[-1].parens == 0:
                    scopes[-1].begin = i + 1
            elif char == ';' and scope.parens == 0:
                if scope.kind == 'body':
                    self._add(scope, i + 1, blocks[-1])
                scope.begin = i + 1

    def _classify(self, scope, brace):
        before = self.code[scope.begin:brace].strip()
        if re.search(r'\bnamespace\b[^;()]*$|\bextern _+$', before):
            return 'namespace', False
        if scope.kind != 'body' and _TYPE.search(before):
            return 'type', False
        if before == '' or _BODY.search(before):
            if scope.kind == 'body':
                return 'body', scope.in_void and not (scope.parens or _LAMBDA.search(before))
            return 'body', bool(re.search(r'\bvoid\s+[\w:~]+\s*\(', before))
        return 'value', False

    def _add(self, scope, end, block):
        begin, controlled = scope.begin, False
        while True:
            head = _HEAD.match(self.code, begin, end)
            if not head:
                break
            begin, controlled = head.end(), True
            if self.code[begin] == '(':
                begin = self.closing(begin) + 1
        code = self.code[begin:end]
        start = begin + len(code) - len(code.lstrip())
        code = code.strip()
        if len(code) > 1:
            self.statements.append(Statement(start, end, code, controlled, block, scope.in_void))
