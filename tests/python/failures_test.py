"""How the plugin fails tests, and in which words."""
import os
import pathlib
import textwrap

import pytest

import pytest_linx

PATIENT = "--linx-timeout=60"  # where nothing is waited for in vain
SHORT = "--linx-timeout=2"  # where it is

PREAMBLE = """
import enum, os, signal, subprocess, sys
import pytest
import linx
PROGRAM = {program!r}
"""


@pytest.fixture
def run(pytester, program, monkeypatch):
    """Runs the body of a test in a pytest of its own. What it wrote."""
    make_directory = pytest_linx.Domain.make_directory
    made = []

    def make_and_note():
        made.append(make_directory())
        return made[-1]

    monkeypatch.setattr(pytest_linx.Domain, "make_directory", staticmethod(make_and_note))

    def run(body, *options, **outcomes):
        text = textwrap.indent(textwrap.dedent(body), "    ")
        pytester.makepyfile(PREAMBLE.format(program=program) + "def test_it(domain):\n" + text)
        result = pytester.runpytest("-p", "pytest_linx", "-p", "no:cacheprovider", *(options or (PATIENT,)))
        result.assert_outcomes(**outcomes)
        return result.stdout

    yield run
    assert made and not any(os.path.exists(path) for path in made)


def test_what_does_not_come_is_told_with_what_came_instead(run):
    run(
        """
        class Number(enum.IntEnum):
            GREET = 10
            GREETING = 11
        domain.name_numbers(Number)
        domain.name_numbers({"OTHER": 12})
        server = domain.start(PROGRAM, "server")
        peer = domain.peer("peer")
        peer.send("peer", 12)
        peer.send("peer", 13, b"x")
        peer.send("server", Number.GREET, b"Hello, World! How are you?")
        server.wait_for_output("ready")
        while len(peer.unexpected) < 3:
            peer.run(lambda endpoint: None)
        peer.expect(Number.GREETING, b"Hello, world! How are you?", sender="server").wait(0.5)
        """,
        failed=1,
    ).fnmatch_lines(
        [
            "E * AssertionError: within 0.5 s, peer 'peer' has not got what it expects:",
            "E * GREETING (0xb) from 'server', 26 bytes:",
            "E * 0000  48 65 6c 6c 6f 2c 20 77  6f 72 6c 64 21 20 48 6f  |Hello, world! Ho|",
            "E * 0010  77 20 61 72 65 20 79 6f  75 3f                    |w are you?|",
            "E *",
            "E * peer 'peer' got, and nobody expects it:",
            "E * OTHER (0xc) from 'peer', no payload",
            "E * 13 (0xd) from 'peer', 1 byte:",
            "E * 0000  78                                                |x|",
            "E * GREETING (0xb) from 'server' (differs at 0x0007: 57, expected 77), 26 bytes:",
            "E * 0000  48 65 6c 6c 6f 2c 20 57  6f 72 6c 64 21 20 48 6f  |Hello, World! Ho|",
            "test_what_does_not_come_is_told_with_what_came_instead.py:*: AssertionError",
            "* LINX server server *",
            "server, process *, running; it wrote:",
            "  ready",
            "* LINX signals at peer peer, the latest last *",
            "GREETING (0xb) from server, 26 bytes 48 65 6c 6c 6f 2c 20 57 6f 72 6c 64 21 20 48 6f ...",
        ]
    )


@pytest.mark.parametrize(
    "expected, got, words",
    [
        (b"abcd", b"ab", "(ends after 2 bytes of the 4 expected), 2 bytes"),
        (b"a", b"ab", "(goes on after the 1 byte expected), 2 bytes"),
        (b"abcd", b"", "(ends after 0 bytes of the 4 expected), no payload"),
        (b"\0" * 300 + b"a", b"\0" * 300 + b"b", "(differs at 0x012c: 62, expected 61), 301 bytes"),
    ],
)
def test_payloads_are_compared(run, expected, got, words):
    run(
        f"""
        peer = domain.peer("peer")
        peer.send("peer", 1, {got!r})
        peer.expect(1, {expected!r}).wait(0.1)
        """,
        failed=1,
    ).fnmatch_lines([f"E *1 (0x1) from 'peer' {words}*"])


def test_a_long_payload_is_shown_by_its_beginning(run):
    output = run("domain.peer('peer').send('peer', 1, bytes(1000))", failed=1)
    output.fnmatch_lines(["    00f0  00 00*", "    and 744 bytes more"])
    output.no_fnmatch_line("*0100*")


def test_what_nobody_expects_fails_the_test_at_its_end(run):
    run("domain.peer('peer').send('peer', 7, b'surprise')", failed=1).fnmatch_lines(
        [
            "*_ test_it _*",
            "peer 'peer' got, and nobody expects it:",
            "  7 (0x7) from 'peer', 8 bytes:",
            "    0000  73 75 72 70 72 69 73 65                           |surprise|",
        ]
    )


def test_what_is_expected_and_does_not_come_fails_the_test_at_its_end(run):
    run(
        """
        def is_long(message):
            return len(message.data) > 5
        peer = domain.peer("peer")
        peer.expect(7, times=3, where=is_long)
        peer.expect(8, b"", sender="nobody")
        domain.peer("other").expect(9)
        peer.send("peer", 7, b"long enough")
        """,
        SHORT,
        failed=1,
    ).fnmatch_lines(
        [
            "peer 'peer' has not got what it expects:",
            "  3 times, of which 1 came, 7 (0x7), as is_long wants it",
            "  8 (0x8) from 'nobody', no payload",
            "",
            "peer 'other' has not got what it expects:",
            "  9 (0x9)",
        ],
        consecutive=True,
    )


def test_a_server_that_ends_unasked_ends_every_wait_and_fails_the_test(run):
    output = run(
        """
        domain.start(PROGRAM, "server")
        peer = domain.peer("peer")
        peer.send("server", 20, b"about to end")
        peer.send("server", 40, bytes([signal.SIGUSR1]))
        peer.expect(11).wait()
        """,
        PATIENT,
        failed=1,
    )
    output.fnmatch_lines(
        [
            "E * AssertionError: server 'server' (process *) has ended unasked: killed by SIGUSR1",
            "server, process *, killed by SIGUSR1; it wrote:",
            "  about to end",
        ]
    )


def test_a_server_that_fails_unseen_fails_the_test_at_its_end(run):
    run(
        """
        server = domain.start(PROGRAM, "server")
        domain.open("one").send("server", 30, bytes([3]))
        domain.wait_end(server.spids["server"])
        domain.peer("peer").expect(1)
        """,
        failed=1,
    ).fnmatch_lines(["*server 'server' (process *) has ended unasked: exit status 3"])


def test_a_program_without_endpoints_that_fails_and_is_not_waited_for_fails_the_test_at_its_end(run):
    run(
        """
        program = domain.start(["sh", "-c", "exit 5"])
        while program.is_running:
            domain.verify()
        """,
        failed=1,
    ).fnmatch_lines(["*server 'sh' (process *) has ended unasked: exit status 5"])


def test_a_server_that_does_not_open_its_endpoint_is_told_apart_from_one_that_ends(run):
    output = run("domain.start(['sh', '-c', 'echo oops >&2; exit 3'], 'server')", failed=1)
    output.fnmatch_lines(
        [
            "E * server 'server' (process *) has not opened endpoint 'server' before it ended, exit status 3",
            "server, process *, exit status 3; it wrote:",
            "  oops",
        ]
    )
    output = run("domain.start(['sleep', '1000'], 'other', timeout=0.1)", failed=1)
    output.fnmatch_lines(["E * server 'other' (process *) has not opened endpoint 'other' within 0.1 s"])


def test_a_program_that_is_not_there_is_told(run):
    run("domain.start('/nowhere/server', 'server')", failed=1).fnmatch_lines(["E *FileNotFoundError*/nowhere/server*"])


def test_output_that_does_not_come_is_told(run):
    run("domain.start(['sleep', '1000']).wait_for_output('never', 0.1)", failed=1).fnmatch_lines(
        ["E * server 'sleep' (process *) has not written 'never' in 0.1 s", "  nothing"]
    )
    run("domain.start(['echo', 'short']).wait_for_output('never')", PATIENT, failed=1).fnmatch_lines(
        ["E * server 'echo' (process *) has not written 'never' in all its life", "  short"]
    )


def test_a_server_that_does_not_end_is_told_and_killed(run):
    deaf = "import linx, signal; signal.signal(signal.SIGTERM, signal.SIG_IGN); linx.Endpoint('server').receive()"
    command = f"[sys.executable, '-c', {deaf!r}], 'server', timeout=60"
    run(f"domain.start({command})", SHORT, passed=1, errors=1).fnmatch_lines(
        ["  server 'server' (process *) did not end within 2 s of SIGTERM, and was killed"]
    )
    run(f"domain.start({command}).terminate(0.1)", SHORT, failed=1).fnmatch_lines(
        ["E * server 'server' (process *) has not ended within 0.1 s"]
    )
    run(f"domain.start({command}, stop_signal=signal.SIGKILL)", passed=1)


def test_what_a_peer_was_to_do_and_could_not_is_told_where_somebody_waits(run):
    run(
        """
        peer, other = domain.peer("peer"), domain.peer("other")
        other.expect(1).answer(2, lambda message: message.unpack("Q"))
        peer.send("other", 1, b"xyz")
        peer.expect(2).wait()
        """,
        PATIENT,
        failed=1,
    ).fnmatch_lines(
        [
            "E * peer 'other' got 1 (0x1), and what it was to do then failed:",
            "E * struct.error: signal 1 carries 3 bytes; 'Q' takes 8",
        ]
    )


def test_a_peer_that_is_busy_is_told(run):
    run(
        """
        peer = domain.peer("peer")
        peer.always(1).do(lambda endpoint, message: endpoint.receive(2))
        peer.send("peer", 1)
        try:
            peer.send("peer", 3)
        finally:
            linx.Endpoint("other").close()
            with linx.Endpoint("rescuer") as rescuer:
                rescuer.send("peer", 2)
        """,
        SHORT,
        failed=1,
    ).fnmatch_lines(["E * peer 'peer' is busy for 2 s with something that it was told"])


def test_endpoints_that_are_left_open_are_told_and_closed(run):
    output = run(
        """
        global kept
        kept = linx.Endpoint("kept")
        linx.Endpoint("forgotten")
        with linx.Endpoint("closed"):
            pass
        """,
        passed=1,
        errors=1,
    )
    output.fnmatch_lines(
        [
            "The test has left something over:",
            "  not closed: <linx.Endpoint 'kept' spid=0x*>",
            "  not closed before it was forgotten: <linx.Endpoint 'forgotten' spid=0x*>",
        ]
    )
    output.no_fnmatch_line("*'closed'*")


def test_endpoints_that_were_open_before_the_test_are_not_its_own(pytester):
    pytester.makepyfile(
        """
        import linx
        import pytest

        @pytest.fixture(scope="session")
        def mine(tmp_path_factory):
            with pytest.MonkeyPatch.context() as patch:
                patch.setenv("LINX_DOMAIN", str(tmp_path_factory.mktemp("domain")))
                endpoint = linx.Endpoint("mine")
            yield endpoint
            endpoint.close()

        def test_it(mine, domain):
            domain.open("mine")
        """
    )
    pytester.runpytest("-p", "pytest_linx").assert_outcomes(passed=1)


def test_what_lies_unread_is_told(run):
    run("one = domain.open('one'); one.send('one', 7, b'x')", passed=1, errors=1).fnmatch_lines(
        ["  not received at endpoint 'one':", "    7 (0x7) from 'one', 1 byte:"]
    )


def test_processes_that_are_left_are_told_and_killed(run, tmp_path):
    output = run(
        f"""
        left = subprocess.Popen(["sleep", "1000"])
        open({str(tmp_path / "left")!r}, "w").write(str(left.pid))
        daemon = "(setsid sleep 2000 >/dev/null 2>&1 </dev/null &)"
        domain.start(["sh", "-c", daemon]).wait()
        """,
        SHORT,
        passed=1,
        errors=1,
    )
    output.fnmatch_lines_random(
        ["  still running, and killed: process *: sleep 1000", "  still running, and killed: process *: sleep 2000"]
    )
    pid = (tmp_path / "left").read_text()
    assert "\tZ" in (pathlib.Path("/proc") / pid / "status").read_text()
    os.waitpid(int(pid), 0)


def test_a_process_that_has_an_endpoint_after_a_fork_is_told_and_killed(run, tmp_path):
    run(
        f"""
        endpoint = linx.Endpoint("inherited")
        taken, take = os.pipe()
        pid = os.fork()
        if pid == 0:
            try:
                endpoint.poll()
                os.write(take, b"!")
                endpoint.receive(2)
            finally:
                os._exit(0)
        os.read(taken, 1)
        open({str(tmp_path / "left")!r}, "w").write(str(pid))
        endpoint.close()
        """,
        SHORT,
        passed=1,
        errors=1,
    ).fnmatch_lines(["  still running, and killed: process *python*"])
    os.waitpid(int((tmp_path / "left").read_text()), 0)


def test_endpoints_that_programs_do_not_close_are_told(run):
    careless = "import linx, os; endpoint = linx.Endpoint('careless'); os._exit(0)"
    body = f"domain.start([sys.executable, '-c', {careless!r}]).wait()"
    run(body, passed=1, errors=1).fnmatch_lines(
        ["  not closed: endpoint 'careless', whose process has ended without that"]
    )
    run(body + "; domain.allow_unclosed = True", passed=1)
    run(body + "; domain.start(PROGRAM, 'server').kill()", passed=1)


def test_an_endpoint_that_is_open_by_other_ways_is_told(run):
    run(
        """
        import ctypes
        library = ctypes.CDLL(os.environ["LINX_LIBRARY"])
        library.linx_open.restype = ctypes.c_void_p
        library.linx_close.argtypes = [ctypes.c_void_p]
        global handle
        handle = library.linx_open(b"foreign", 0, None)
        domain.peer("peer").always(1)
        """,
        passed=1,
        errors=1,
    ).fnmatch_lines(["  not closed: endpoint 'foreign', which some process still has"])


def test_what_a_failed_test_leaves_is_cleaned_up_without_a_word(run):
    output = run(
        """
        global kept
        kept = linx.Endpoint("kept")
        domain.start(["sleep", "1000"])
        subprocess.Popen(["sleep", "2000"])
        domain.peer("peer").expect(1)
        assert False
        """,
        failed=1,
    )
    output.no_fnmatch_line("*left*")
    output.no_fnmatch_line("*has not got*")


def test_a_fixture_of_ones_own_may_use_the_domain_and_fails_with_the_same_story(pytester, program):
    pytester.makepyfile(
        f"""
        import pytest

        @pytest.fixture
        def server(domain):
            server = domain.start({program!r}, "server")
            yield server
            assert server.shutdown() == 0

        @pytest.fixture
        def broken(domain):
            return domain.start(["echo", "no server"], "broken")

        def test_it(server, domain):
            domain.peer("peer").call("server", 10, reply=11)

        def test_broken(broken):
            pass
        """
    )
    result = pytester.runpytest("-p", "pytest_linx", PATIENT)
    result.assert_outcomes(passed=1, errors=1)
    result.stdout.fnmatch_lines(["*has not opened endpoint 'broken' before it ended, exit status 0", "  no server"])


def test_the_patience_is_an_option_or_a_setting(pytester):
    pytester.makeini("[pytest]\nlinx_timeout = 7.5")
    pytester.makepyfile(test_setting="def test_it(domain): assert domain.timeout == 7.5")
    pytester.runpytest("-p", "pytest_linx").assert_outcomes(passed=1)
    pytester.makepyfile(test_setting="def test_it(domain): assert domain.timeout == 3")
    pytester.runpytest("-p", "pytest_linx", "--linx-timeout=3").assert_outcomes(passed=1)


def test_an_interrupted_run_leaves_nothing(run, tmp_path):
    """As by Ctrl-C."""
    body = """
        domain.start(["sleep", "1000"])
        domain.peer("peer")
        raise KeyboardInterrupt
        """
    with pytest.raises(KeyboardInterrupt):
        run(body)
