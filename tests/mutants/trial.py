"""Builds a mutant in a copy of the tree and runs what should notice it, so that nothing of it stays behind."""

import hashlib
import os
import re
import shutil
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path

# Warnings are no errors here: a step that is missing may leave a variable unused. Nor must a broken program be asked
# for its tests when it has just been built.
_OPTIONS = ['-DCMAKE_BUILD_TYPE=Release', '-DLINXIPC_BUILD_TESTS=ON', '-DLINXIPC_BUILD_DEMO=OFF',
            '-DLINXIPC_BUILD_EXAMPLES=OFF', '-DLINXIPC_BUILD_BENCH=OFF',
            '-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST']
# Mutants differ in a line, copies of the tree in their place: most of what is compiled was compiled before.
_CACHE = {'CCACHE_NOHASHDIR': '1',
          'CCACHE_SLOPPINESS': 'pch_defines,time_macros,include_file_mtime,include_file_ctime'}
_LONGEST_BUILD = 900  # seconds, of a mutant

# Processes of its own, which end with the first of them and with us, and a /dev/shm of its own, which goes with the
# last.
_ALONE = ['unshare', '--mount', '--pid', '--fork', '--kill-child', '--mount-proc']
_AS_USER = ['--user', '--map-current-user', '--keep-caps']
_RUN = 'mount -t tmpfs tmpfs /dev/shm && ulimit -c 0 && cd "$1" && shift && {}"$@"; exit $?'
_NO_PRIVILEGES = 'setpriv --inh-caps=-all --ambient-caps=-all '


class Trouble(Exception):
    """The run cannot go on. Its text says why."""


@dataclass(frozen=True)
class Step:
    """A program that may notice a mutant. `folder` is where it is built; `name` is its target, too."""
    name: str
    folder: str
    arguments: tuple = ('--gtest_fail_fast',)
    loads: str = ''  # folder of the shared library that it loads


_LIBRARY = [
    Step('library_test', 'tests/library', loads='ipc'),
    Step('server_names_first_use_test', 'tests/library', loads='ipc'),
    Step('abi_test', 'tests/abi', loads='ipc'),
]
_SERVICES = [Step('services_test', 'tests/services')]
_HOST = [
    Step('host_test', 'tests/host'),
    Step('ambush_test', 'tests/ambush'),
    Step('cost_test', 'tests/cost'),
    Step('crash_test', 'tests/crash'),
    Step('bounds_test', 'tests/bounds', loads='host'),
    Step('processes_test', 'tests/processes', loads='host'),
    Step('mixed_test', 'tests/processes'),
    Step('linx-storm', 'tests/storm', ('--kills', '300', '--seed', '1')),
    Step('linx-crash-sites', 'tests/crash', ('--most', '30')),
    Step('linx-models', 'models', ('--switches', '2', '--states', '8000', '--executions', '1000')),
]


def steps_for(path):
    """What concerns a source, the quickest first."""
    if path.startswith('host/services/'):
        return _SERVICES
    return _HOST if path.startswith('host/') else _LIBRARY


@dataclass
class Verdict:
    outcome: str  # caught, survived, does not build, equivalent
    by: str = ''  # the test that noticed it, or why it counts as equivalent


def _isolated(folder, command):
    user = os.geteuid() != 0
    script = _RUN.format(_NO_PRIVILEGES if user else '')
    alone = _ALONE + (_AS_USER if user else [])
    return ['setpriv', '--pdeathsig', 'KILL', *alone, 'sh', '-c', script, 'sh', str(folder), *command]


def check_isolation():
    """Raises Trouble where processes cannot be kept apart."""
    for program in ('unshare', 'setpriv'):
        if shutil.which(program) is None:
            raise Trouble(f'{program} is missing; it comes with the Debian package util-linux')
    done = subprocess.run(_isolated('/', ['true']), capture_output=True, text=True)
    if done.returncode != 0:
        raise Trouble(f'namespaces are needed, to which this user has no right: {done.stderr.strip()}')


class Workshop:
    """A copy of the tree with a build of its own, for one mutant at a time."""

    def __init__(self, root, place):
        self._root, self._place = Path(root), Path(place)
        self._tree, self._build, self._log = self._place / 'tree', self._place / 'build', self._place / 'log'
        self._limits, self._whole = {}, {}  # of each step: seconds, and what its programs are when nothing is broken
        self._running, self._stopped = None, False

    def build(self, paths, steps, jobs):
        """Copies the tree and builds it. Raises Trouble where that does not work."""
        self._copy(paths)
        self._build.mkdir(parents=True, exist_ok=True)
        configure = ['cmake', '-G', 'Ninja', '-S', str(self._tree), '-B', str(self._build), *_OPTIONS]
        if shutil.which('ccache'):
            configure += [f'-DCMAKE_{language}_COMPILER_LAUNCHER=ccache' for language in ('C', 'CXX')]
        targets = [step.name for step in steps]
        if not self._call(configure, _LONGEST_BUILD) or not self._make(targets, jobs, 4 * _LONGEST_BUILD):
            raise Trouble(f'the tree does not build: {self._log}')
        self._whole = {step: self._programs(step) for step in steps}

    def measure(self, steps):
        """How long each step takes when nothing is broken, in seconds. Raises Trouble where one fails."""
        taken = {}
        for step in steps:
            start = time.monotonic()
            if not self._try(step, _LONGEST_BUILD):
                raise Trouble(f'{step.name} fails though nothing is broken: {self._log}')
            taken[step] = time.monotonic() - start
        return taken

    def allow(self, taken):
        """Sets the time that a step may take: so much that a busy machine is not taken for a mutant that hangs."""
        self._limits = {step: 60 + 8 * seconds for step, seconds in taken.items()}

    def judge(self, mutant):
        """Builds the mutant and runs what concerns it until something fails."""
        file = self._tree / mutant.path
        text = file.read_text()
        try:
            file.write_text(text[:mutant.start] + mutant.replacement + text[mutant.end:])
            return self._judge(steps_for(mutant.path))
        finally:
            file.write_text(text)

    def stop(self):
        """Ends what is running; from another thread."""
        self._stopped = True
        running = self._running
        if running is not None:
            running.kill()

    def _judge(self, steps):
        differs = False
        for step in steps:
            if not self._make([step.name]):
                return Verdict('does not build')
            if self._programs(step) == self._whole[step]:
                continue  # nothing that this program could notice
            differs = True
            if not self._try(step, self._limits[step]):
                return Verdict('caught', self._culprit(step))
        return Verdict('survived') if differs else Verdict('equivalent', 'the same machine code')

    def _copy(self, paths):
        wanted = set(paths)
        self._tree.mkdir(parents=True, exist_ok=True)
        for old in [path for path in self._tree.rglob('*') if path.is_file() or path.is_symlink()]:
            if str(old.relative_to(self._tree)) not in wanted:
                old.unlink()
        for path in paths:
            source, target = self._root / path, self._tree / path
            if target.is_file() and target.read_bytes() == source.read_bytes():
                continue
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)

    def _make(self, targets, jobs=1, limit=_LONGEST_BUILD):
        return self._call(['ninja', '-j', str(jobs), *targets], limit)

    def _try(self, step, limit):
        return self._call([str(self._build / step.folder / step.name), *step.arguments], limit)

    def _call(self, command, limit):
        """Whether the command succeeds within the limit. Its output is what the log holds afterwards."""
        if self._stopped:
            raise Trouble('interrupted')
        environment = {**_CACHE, 'CCACHE_BASEDIR': str(self._place), **os.environ}
        with open(self._log, 'wb') as log:
            self._running = subprocess.Popen(_isolated(self._build, command), stdin=subprocess.DEVNULL, stdout=log,
                                             stderr=log, env=environment)
            try:
                return self._running.wait(limit) == 0
            except subprocess.TimeoutExpired:
                log.write(f'\nstill running after {limit:.0f} s\n'.encode())
                return False
            finally:
                self._running.kill()
                self._running.wait()
                self._running = None

    def _programs(self, step):
        loaded = sorted((self._build / step.loads).glob('lib*.so.*.*')) if step.loads else []
        files = [self._build / step.folder / step.name, *loaded]
        return [hashlib.sha256(file.read_bytes()).digest() for file in files]

    def _culprit(self, step):
        output = self._log.read_text(errors='replace')
        failed = re.search(r'^\[  FAILED  \] ([\w./]+)', output, re.MULTILINE)
        begun = re.findall(r'^\[ RUN      \] ([\w./]+)', output, re.MULTILINE)
        hung = ' (hangs)' if 'still running after' in output else ''
        test = failed[1] if failed else begun[-1] if begun else ''
        return step.name + ('.' + test if test else '') + hung
