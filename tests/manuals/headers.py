"""What the public headers declare: operations in C, classes in C++, and the errors that their comments name."""

import re
from collections import namedtuple

Operation = namedtuple('Operation', 'result arguments errors')
Class = namedtuple('Class', 'head declarations errors')


def one_line(text):
    return ' '.join(text.split())


def errors_in(comment):
    """The errno names in a comment, but for those of which it says that they are none."""
    return set(re.findall(r'\bE[A-Z0-9]{2,}\b', re.sub(r'E\w+ is not among the errors', '', one_line(comment))))


def operations(header):
    """The operations of the header by name, each with the errors that the comment before it lists."""
    declaration = re.compile(r'/\*((?:(?!\*/).)*)\*/\s*LINXIPC_API ([^;(]*?)(\w+)\(([^)]*)\);', re.S)
    return {name: Operation(one_line(result), split_arguments(arguments), errors_in(comment))
            for comment, result, name, arguments in declaration.findall(header)}


def common_errors(header):
    """The errors that the head of the file lists for all operations."""
    return errors_in(re.search(r'Common to all:(.*?)\n \*\n', header, re.S)[1])


def split_arguments(text):
    """The arguments of a declaration; those of a function that is one itself stay together."""
    arguments, depth = [''], 0
    for character in one_line(text):
        depth += {'(': 1, ')': -1}.get(character, 0)
        if character == ',' and depth == 0:
            arguments.append('')
        else:
            arguments[-1] += character
    return [argument.strip() for argument in arguments if argument.strip()]


def body_of(text, start):
    """The text between the brace at `start` and the one that closes it."""
    depth = 0
    for place in range(start, len(text)):
        depth += {'{': 1, '}': -1}.get(text[place], 0)
        if depth == 0:
            return text[start + 1:place]
    raise ValueError('a brace is not closed')


def public_part(body):
    access, lines = 'private', []
    for line in body.splitlines():
        label = re.fullmatch(r'\s*(public|protected|private):\s*', line)
        access = label[1] if label else access
        if access == 'public' and not label:
            lines.append(line)
    return '\n'.join(lines)


def public_class(text, name):
    """The public declarations of a class in their order, without what an inline one does."""
    head = re.search(rf'^class (?:LINXIPC_API )?({name}\b[^;{{]*){{', text, re.M)
    public = public_part(body_of(text, head.end() - 1))
    code = re.sub(r'//.*', '', public)
    declarations = re.sub(r'\s*\{[^{}]*\}', ';', code).split(';')
    return Class(one_line(head[1]), [one_line(one) for one in declarations if one.strip()],
                 errors_in('\n'.join(re.findall(r'///(.*)', public))))


def member(declaration):
    """The name of a member function and those of its arguments; none for what is no function or deleted."""
    found = re.search(r'(~?\w+)\((.*)\)(?: const| override| = default)*$', declaration)
    if not found:
        return None
    names = [re.search(r'\(\*(\w+)\)|(\w+)$', argument) for argument in split_arguments(found[2])]
    return (found[1], *(name[1] or name[2] for name in names))


def data_member(declaration):
    """The name of a member that is no function."""
    return None if '(' in declaration else declaration.split()[-1]


def numbers(header):
    """The numbers that an enumeration gives names to."""
    return {name: int(number) for name, number in re.findall(r'^ +(\w+) = (\d+)\b', header, re.M)}
