"""The rules: each changes one step of a source, and yields all places where it could."""

import random
import re
from dataclasses import dataclass
from itertools import zip_longest

from source import Source

_BOUNDARIES = {'<': '<=', '<=': '<', '>': '>=', '>=': '>'}
_OPPOSITES = {'==': '!=', '!=': '==', 'true': 'false', 'false': 'true', '0': '-1', '-1': '0'}


@dataclass(frozen=True)
class Mutant:
    path: str
    line: int
    rule: str
    before: str  # the lines that change, on one line
    after: str
    start: int   # what is replaced in the source
    end: int
    replacement: str


def squeezed(text):
    return ' '.join(text.split())


def _dropped(source, wanted):
    for statement in source.statements:
        if not statement.declares and wanted(statement.code):
            yield statement.start, statement.end, '{}' if statement.controlled else ';'


def _is_jump(code):
    return re.match(r'(?:break|continue|return)\s*;', code)


def _is_plain(code):
    return not re.match(r'(?:return|throw|goto|break|continue|using|typedef|static_assert|assert|while)\b', code)


def _stores(code):
    return re.search(r'(?<![=!<>])=(?!=)|\+\+|--|\.(?:store|add)\w*\(', code)


def drop_store(source):
    return _dropped(source, lambda code: _is_plain(code) and _stores(code))


def drop_call(source):
    return _dropped(source, lambda code: _is_plain(code) and not _stores(code) and '(' in code)


def drop_jump(source):
    return _dropped(source, _is_jump)


def return_early(source):
    for statement in source.statements:
        if statement.in_void and not statement.declares and _is_plain(statement.code):
            yield statement.start, statement.end, 'return;'


def _is_independent(one, other):
    """Whether both write something that the other does not mention, and call nobody."""
    def mentions(code, writer):
        written = re.sub(r'\+\+|--|\s*[-+*/|&^]?=.*', '', writer, flags=re.DOTALL).rstrip(';')
        return re.search(rf'(?<![\w.>]){re.escape(written)}(?!\w)', code)
    return '(' not in one + other and not mentions(other, one) and not mentions(one, other)


def _relaxed_store(code):
    """The word that a statement stores to without an order, if that is all that it does."""
    match = re.fullmatch(r'([\w.>()-]+?)(?:\.|->)storeRelaxed\([^;]*\);', code.strip())
    return match and match.group(1)


def _is_unordered(one, other):
    """Whether both store to words of their own: what has to come in an order says so by a release."""
    words = _relaxed_store(one), _relaxed_store(other)
    return None not in words and words[0] != words[1]


def swap_neighbours(source):
    for one, other in zip(source.statements, source.statements[1:]):
        between = source.code[one.end:other.start]
        if one.block != other.block or one.controlled or other.controlled or between.strip():
            continue
        if one.declares or other.declares or not (_is_plain(one.code) and _is_plain(other.code)):
            continue
        if _is_independent(one.code, other.code) or _is_unordered(one.code, other.code):
            continue
        text = source.text
        yield one.start, other.end, text[other.start:other.end] + text[one.end:other.start] + text[one.start:one.end]


def _conditions(source, keywords):
    for match in re.finditer(rf'\b(?:{keywords})\s*\(', source.code):
        if source.in_body(match.start()):
            begin, end = match.end(), source.closing(match.end() - 1)
            begin += source.code[begin:end].rfind(';') + 1  # what comes first is no condition
            yield begin + (source.text[begin] == ' '), end


def never(source):
    for begin, end in _conditions(source, 'if|while'):
        if not re.match(r'(?:[A-Z]\w*|const|auto)\b[^=]*[\s*&]\w+ = ', source.code[begin:end]):  # declares something
            yield begin, end, 'false'


def always(source):
    for begin, end in _conditions(source, 'if'):
        if not re.match(r'(?:[A-Z]\w*|const|auto)\b[^=]*[\s*&]\w+ = ', source.code[begin:end]):
            yield begin, end, 'true'


def _reach(code, position, step, stops):
    """How far an operand reaches from `position`, to the left (step -1) or to the right: to where an expression in
    `stops` begins, or what surrounds it ends."""
    inwards, outwards = ('([{', ')]}') if step > 0 else (')]}', '([{')
    depth = 0
    while 0 <= position < len(code):
        char = code[position]
        if char == ';' or depth == 0 and (char in outwards or re.match(stops, code[position:][:8] if step > 0 else
                                                                      code[max(0, position - 7):position + 1][::-1])):
            return position
        depth += (char in inwards) - (char in outwards)
        position += step
    return position


def weaken_condition(source):
    code = source.code
    for match in re.finditer(r' (&&|\|\|)\s', code):
        if not source.in_body(match.start()):
            continue
        either = r'\|\|' if match[1] == '||' else r'&&|\|\|'
        left = _reach(code, match.start(), -1, rf'(?:{either})|,| [?:] | = |\snruter\b') + 1
        right = _reach(code, match.end(), 1, rf'(?:{either})|,| [?:] ')
        left += len(code[left:]) - len(code[left:].lstrip())
        right = left + len(code[left:right].rstrip())
        if ';' not in code[left:right]:
            yield left, match.end(), ''
            yield match.start(), right, ''


def _replaced(source, expression, replacement):
    for match in re.finditer(expression, source.code):
        if source.in_body(match.start(1)):
            yield match.start(1), match.end(1), replacement(match[1])


def shift_boundary(source):
    return _replaced(source, r'(?<= )(<=|>=|<|>)(?= )', _BOUNDARIES.get)


def shift_by_one(source):
    return _replaced(source, r'( [+-] 1)\b(?![.\w])', lambda _: '')


def negate(source):
    yield from _replaced(source, r'(?<= )(==|!=)(?= )', _OPPOSITES.get)
    yield from _replaced(source, r'(?<![\w!=])(!)(?=[\w(:*])', lambda _: '')


def wrong_result(source):
    return _replaced(source, r'\breturn (true|false|0|-1);', _OPPOSITES.get)


def relax_order(source):
    yield from _replaced(source, r'\b(storeRelease|storeSeqCst)\(', lambda _: 'storeRelaxed')
    yield from _replaced(source, r'\b(loadAcquire|loadSeqCst)\(', lambda _: 'loadRelaxed')
    yield from _replaced(source, r'\bmemory_order_(acquire|release|acq_rel|seq_cst)\b', lambda _: 'relaxed')


RULES = {
    'drop a store': drop_store,
    'drop a call': drop_call,
    'drop a jump': drop_jump,
    'never': never,
    'always': always,
    'weaken a condition': weaken_condition,
    'swap neighbours': swap_neighbours,
    'return early': return_early,
    'shift a boundary': shift_boundary,
    'shift by one': shift_by_one,
    'negate': negate,
    'wrong result': wrong_result,
    'relax an order': relax_order,
}


def mutants_of(path, text):
    """All mutants of a source."""
    source = Source(text)
    found = []
    for rule, places in RULES.items():
        for start, end, replacement in sorted(set(places(source))):
            begin = text.rfind('\n', 0, start) + 1
            finish = text.find('\n', end)
            before, after = text[begin:finish], text[begin:start] + replacement + text[end:finish]
            found.append(Mutant(path, source.line(start), rule, squeezed(before), squeezed(after), start, end,
                                replacement))
    return found


def sequence(mutants, seed):
    """All of them in the order in which they are tried: each rule in turn, places as the seed will have it."""
    chance = random.Random(seed)
    piles = [[mutant for mutant in mutants if mutant.rule == rule] for rule in RULES]
    for pile in piles:
        chance.shuffle(pile)
    return [mutant for row in zip_longest(*piles) for mutant in row if mutant is not None]
