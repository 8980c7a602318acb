"""The manual pages say what the headers say: no more, no less."""

import re
import sys
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
import headers  # noqa: E402
from page import Page  # noqa: E402

SOURCE = Path(__file__).resolve().parents[2]
PAGES = {page.path.name: page for page in map(Page, sorted((SOURCE / 'man').iterdir()))}
LINX_H = (SOURCE / 'platform/linx.h').read_text()
OPERATIONS = headers.operations(LINX_H)

# Each class with its header, and the classes whose members its page describes besides.
CLASSES = {
    'LinxIpc': ('ipc/linxIpc.h', {'FileDescriptor': 'platform/FileDescriptor.h'}),
    'IpcMessage': ('ipc/linxIpc.h', {}),
    'RelayMessage': ('ipc/linxIpc.h', {}),
    'LinxServerNameList': ('directory/LinxServerNameList.h', {}),
}

# Which operations the errors concern that the head of platform/linx.h lists for all: of those that have a handle, or
# need memory, a descriptor, the domain's files or its lock. tests/calls/promises.cpp holds the operations to the same.
MAKING = {'linx_open', 'linx_hunt', 'linx_attach', 'linx_alloc', 'linx_send', 'linx_request_tmo'}
DESCRIBING = MAKING | {'linx_get_descriptor'}
REMEMBERING = DESCRIBING | {'linx_get_name', 'linx_receive', 'linx_receive_w_tmo'}
CONCERNED = {
    'EINVAL': set(OPERATIONS),
    'ECHILD': set(OPERATIONS) - {'linx_open'},
    'ENOMEM': REMEMBERING,
    **dict.fromkeys(['EMFILE', 'ENFILE'], DESCRIBING),
    **dict.fromkeys(['EACCES', 'EPERM', 'ELOOP', 'ENOTDIR', 'EROFS', 'EIO', 'ENOLCK', 'ESTALE'], MAKING),
    'EPROTO': {'linx_open', 'linx_hunt', 'linx_attach', 'linx_send'},
    'EBADF': DESCRIBING - {'linx_open'},
    'ECONNABORTED': {'linx_hunt', 'linx_alloc', 'linx_request_tmo', 'linx_receive', 'linx_receive_w_tmo'},
}

# Pages of others that ours refer to.
FOREIGN = {'clone(2)', 'execve(2)', 'fork(2)', 'mlockall(2)', 'poll(2)', 'setuid(2)', 'pthread_atfork(3)',
           'sd_watchdog_enabled(3)', 'syslog(3)', 'tmpfs(5)', 'epoll(7)', 'shm_overview(7)'}

SECTIONS = ['NAME', 'LIBRARY', 'SYNOPSIS', 'DESCRIPTION', 'RETURN VALUES', 'SEE ALSO']


def read(path):
    return (SOURCE / path).read_text()


def declared(name):
    return headers.public_class(read(CLASSES[name][0]), name)


class Everything(unittest.TestCase):
    def test_every_operation_and_class_has_a_page_and_nothing_else_has_one(self):
        programs = {'linx.1', 'linx-link.8', 'linx-link.conf.5'}
        expected = {f'{name}.3' for name in [*OPERATIONS, *CLASSES]} | programs | {'linxipc.7'}
        self.assertEqual(expected, set(PAGES))
        self.assertEqual(15, len(OPERATIONS))

    def test_a_page_is_called_what_it_is_about(self):
        for page in PAGES.values():
            with self.subTest(str(page)):
                self.assertEqual([[page.name.upper(), page.section]], page.words_after('Dt'))
                self.assertEqual([[page.name]], page.words_after('Nm', page.part('NAME')))

    def test_pages_have_their_sections(self):
        for name in [*OPERATIONS, *CLASSES]:
            titles = PAGES[f'{name}.3'].titles()
            wanted = SECTIONS + (['ERRORS'] if name in OPERATIONS or declared(name).errors else [])
            self.assertEqual([], [title for title in wanted if title not in titles], name)
            self.assertIn('.Ss Threads and forks', PAGES[f'{name}.3'].part('DESCRIPTION'), name)

    def test_references_lead_somewhere(self):
        ours = {str(page) for page in PAGES.values()}
        used = set()
        for page in PAGES.values():
            references = {f'{words[0]}({words[1]})' for macro in ('Xr', 'It Xr') for words in page.words_after(macro)}
            self.assertEqual(set(), references - ours - FOREIGN, str(page))
            self.assertIn('linxipc(7)', references | {str(page)}, str(page))
            used |= references
        self.assertEqual(ours - {'linxipc(7)'}, used & ours - {'linxipc(7)'})
        self.assertEqual(set(), FOREIGN - used)


class Operations(unittest.TestCase):
    def test_signatures_are_those_of_the_header(self):
        for name, operation in OPERATIONS.items():
            page = PAGES[f'{name}.3']
            self.assertEqual([(operation.result, name, operation.arguments)], page.functions())
            self.assertEqual([['platform/linx.h']], page.words_after('In', page.part('SYNOPSIS')), name)

    def test_errors_are_those_of_the_header(self):
        for name, operation in OPERATIONS.items():
            common = {error for error, concerned in CONCERNED.items() if name in concerned}
            self.assertEqual(sorted(operation.errors | common), sorted(PAGES[f'{name}.3'].errors()), name)

    def test_the_common_errors_are_those_of_the_header(self):
        self.assertEqual(headers.common_errors(LINX_H), set(CONCERNED))
        self.assertEqual(sorted(CONCERNED), sorted(PAGES['linxipc.7'].errors('COMMON ERRORS')))


class Classes(unittest.TestCase):
    def test_synopses_are_those_of_the_headers(self):
        for name, (header, _) in CLASSES.items():
            page = PAGES[f'{name}.3']
            shown = [headers.public_class(text, name) for _, _, text in page.displays('SYNOPSIS')]
            self.assertEqual([declared(name)[:2]], [one[:2] for one in shown], name)
            self.assertEqual([[header]], page.words_after('In', page.part('SYNOPSIS')), name)

    def test_every_public_member_is_described_and_no_other(self):
        for name, (_, bases) in CLASSES.items():
            page = PAGES[f'{name}.3']
            members = set(filter(None, map(headers.member, declared(name).declarations)))
            own = {one[0] for one in members}
            for base, header in bases.items():
                inherited = map(headers.member, headers.public_class(read(header), base).declarations)
                members |= {one for one in inherited if one and one[0] not in own | {f'~{base}'}}
            described = page.words_after('It Fn', page.part('DESCRIPTION'))
            self.assertEqual(sorted(members), sorted(map(tuple, described)), name)
            named = {words[0] for words in page.words_after('Va')}
            data = {headers.data_member(one) for one in declared(name).declarations} - {None}
            self.assertEqual(set(), data - named, name)

    def test_errors_are_those_of_the_headers(self):
        for name in CLASSES:
            self.assertEqual(declared(name).errors, PAGES[f'{name}.3'].errors(), name)


class Numbers(unittest.TestCase):
    page = PAGES['linxipc.7']

    def table(self, pattern):
        return {name: int(number) for line in self.page.lines for name, number in re.findall(pattern, line)}

    def test_signal_numbers_are_those_of_the_headers(self):
        signals = {name: number for name, number in headers.numbers(LINX_H).items() if name.endswith('_SIG')}
        reserved = {**signals, **headers.numbers(read('ipc/ReservedSignal.h'))}
        self.assertEqual(reserved, self.table(r'^\.It Dv (\w+) Ta (\d+) Ta'))

    def test_log_levels_are_those_of_the_header(self):
        shown = {name: int(bit) for line in self.page.lines for bit, name in re.findall(r'^\.It (\d+) Ta Dv (\w+)', line)}
        self.assertEqual(headers.numbers(read('log/LogLevel.h')), shown)

    def test_the_environment_is_what_the_platform_reads(self):
        shipped = (path for path in sorted((SOURCE / 'host').rglob('*.cpp')) if path.parent.name != 'debug')
        sources = ''.join(path.read_text() for path in shipped)
        described = {words[0] for words in self.page.words_after('It Ev', self.page.part('ENVIRONMENT'))}
        self.assertEqual(set(re.findall(r'"(LINX_[A-Z_]+)"', sources)), described)


if __name__ == '__main__':
    unittest.main()
