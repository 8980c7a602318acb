"""The program linx, in front of the demonstration device: at work, and after it was killed."""
import collections
import contextlib
import json
import os
import pathlib
import shutil
import signal
import subprocess
import threading
import time

import pytest

from device import PATIENCE, SERVERS, domain_of, process_of, start_device

LINX = os.environ["LINX_PROGRAM"]
STEADY = [name for name in SERVERS if name != "GpsHal"]  # which is killed and started again all the time
EVENTS = 64  # that an endpoint's record keeps
DISSECTOR = pathlib.Path(__file__).resolve().parents[2] / "tools" / "wireshark" / "linx.lua"
FIELDS = [word for name in ("from", "to", "number", "size", "latency") for word in ("-e", f"linx.{name}")]
needs_tshark = pytest.mark.skipif(shutil.which("tshark") is None, reason="tshark is not installed")


class View:
    """What linx says of a device's domain."""

    def __init__(self, device):
        self.path = domain_of(device)

    def run(self, *words, status=0):
        done = subprocess.run(
            [LINX, "--domain", self.path, *words], capture_output=True, timeout=PATIENCE, check=False
        )
        assert done.returncode == status, (words, done)
        return done.stdout

    def json(self, *words, status=0):
        return json.loads(self.run(*words, "-j", status=status))

    def lines(self, *words):
        return [json.loads(line) for line in self.run(*words, "-j").splitlines()]

    def list(self):
        return {endpoint["name"]: endpoint for endpoint in self.json("list")}


@pytest.fixture
def device(domain):
    device = start_device(domain, rounds=1000)
    device.wait_for_output("everybody is here and ready")
    return device


@pytest.fixture
def view(device):
    view = View(device)
    yield view
    device.signal(signal.SIGINT)
    device.wait()


def await_end(process):
    """Until it is gone, or a zombie that whoever inherited it has not asked for."""
    try:
        while " Z " not in pathlib.Path(f"/proc/{process}/stat").read_text():
            os.sched_yield()
    except (FileNotFoundError, ProcessLookupError):
        pass


@pytest.fixture
def dead(domain):
    """A domain in which everybody was killed."""
    device = start_device(domain, rounds=1000)
    device.wait_for_output("everybody is here and ready")
    view = View(device)
    processes = [endpoint["pid"] for endpoint in view.list().values()]
    device.kill()
    for process in processes:
        await_end(process)
    yield view
    shutil.rmtree(view.path)


def test_every_server_is_listed_with_its_process(view, device):
    listed = view.list()
    for name in STEADY:
        assert listed[name]["pid"] == process_of(device, name)
        assert listed[name]["process"] == name[:15]
        assert listed[name]["state"] in ("running", "sleeping", "waiting")


def test_nothing_is_wrong_with_it(view):
    assert view.json("doctor") == []


def test_a_stopped_server_is_found(view, device):
    process = process_of(device, "UiMgr")
    os.kill(process, signal.SIGSTOP)
    assert view.list()["UiMgr"]["state"] == "stopped"
    found = {(finding["finding"], finding["subject"]) for finding in view.json("doctor", status=1)}
    assert ("stopped", f"UiMgr, process {process}") in found
    os.kill(process, signal.SIGCONT)


def test_its_traffic_is_counted(view):
    rates = {rate["name"]: rate for rate in view.json("hz", "--timeout", "500ms")}
    assert rates["SysTickHal"]["out_per_second"] > 0
    assert rates["UiMgr"]["in_per_second"] > 0


def test_what_is_monitored_was_sent_by_servers_to_each_other(view):
    seen = view.lines("monitor", "-N", "200")
    assert len(seen) == 200
    known = set(SERVERS) | {"TestCycle"}
    for signal_sent in seen:
        assert {signal_sent["from"], signal_sent["to"]} <= known
        assert signal_sent["size"] >= 4 + len(signal_sent["data"]) // 2 or signal_sent["size"] == 4


def test_a_report_is_one_page_and_a_graph_names_the_servers(view, tmp_path):
    page = tmp_path / "report.html"
    view.run("report", "-o", str(page))
    text = page.read_text()
    assert text.startswith("<!DOCTYPE html>") and "PlaybackMgr" in text
    assert 'src="http' not in text and 'href="http' not in text
    graph = view.run("graph", "--dot").decode()
    assert graph.startswith("digraph") and "StreamMgr -> PlaybackMgr" in graph


def test_the_killed_tell_their_last_events_in_one_order(dead):
    assert {endpoint["state"] for endpoint in dead.list().values()} == {"dead"}
    events = dead.lines("record")
    counts = collections.defaultdict(list)
    sent = set()
    for event in events:
        counts[event["endpoint"]].append(event["count"])
        way = (event["number"], event["size"])
        if event["kind"] == "sent":
            sent.add((event["endpoint"], event["peer"], *way))
    for endpoint in STEADY:
        own = counts[endpoint]
        assert 0 < len(own) <= EVENTS, endpoint
        assert own == list(range(own[0], own[0] + len(own))), endpoint
    assert any((event["peer"], event["endpoint"], event["number"], event["size"]) in sent
               for event in events if event["kind"] == "received")  # fmt: skip


def test_the_killed_still_tell_who_held_what(dead):
    held = dead.json("holders")
    assert all(holder["signals"] >= 0 and holder["owner"] in set(SERVERS) | {"TestCycle"} for holder in held)
    assert "UiMgr" in dead.run("status", "UiMgr").decode()
    dead.run("report", "-o", "-")


class Conversation:
    """Two who ask and answer, in the domain of the test."""

    ROUNDS = 20

    def __init__(self, domain):
        domain.peer("server").always(2000).answer(2001, lambda request: bytes(2 * len(request.data)))
        self.client = domain.open("client")
        self.ask(0)  # they know each other now
        self.seconds = []

    def ask(self, size):
        begin = time.monotonic()
        self.client.call("server", 2000, bytes(size), reply=2001)
        return time.monotonic() - begin

    def hold(self):
        self.seconds = [self.ask(size) for size in range(self.ROUNDS)]

    def is_told_by(self, lines):
        told = [line.split("\t") for line in lines.decode().splitlines()]
        sent = []
        for size in range(self.ROUNDS):
            sent += [["client", "server", "2000", str(4 + size)], ["server", "client", "2001", str(4 + 2 * size)]]
        assert [line[:4] for line in told] == sent
        assert {line[4] for line in told[::2]} == {""}
        for line, took in zip(told[1::2], self.seconds):
            assert 0 < float(line[4]) < took


def tshark(tmp_path, *words):
    # A home of its own: what the user has configured, or installed there, is none of the test's business.
    environment = dict(os.environ, HOME=str(tmp_path), XDG_CONFIG_HOME=str(tmp_path))
    environment.pop("LD_PRELOAD", None)  # a sanitizer's, which is not for it
    command = ["tshark", "-n", "-l", "-X", f"lua_script:{DISSECTOR}", "-T", "fields", *FIELDS, *words]
    return subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=environment)


@needs_tshark
def test_a_capture_of_what_is_sent_is_shown_by_tshark(domain, tmp_path):
    conversation = Conversation(domain)
    file = tmp_path / "capture.pcapng"
    capture = subprocess.Popen([LINX, "capture", "-w", str(file)])
    while not file.exists() or file.stat().st_size == 0:
        os.sched_yield()
    conversation.hold()
    capture.send_signal(signal.SIGINT)
    assert capture.wait(PATIENCE) == 0
    conversation.is_told_by(tshark(tmp_path, "-r", str(file)).communicate(timeout=PATIENCE)[0])


def forward(source, sink):
    """Everything, until the source ends or nobody reads the sink any more."""
    with source, contextlib.suppress(BrokenPipeError), sink:
        while data := source.read1():
            sink.write(data)
            sink.flush()


@needs_tshark
def test_tshark_shows_what_is_sent_meanwhile(domain, tmp_path):
    conversation = Conversation(domain)
    shown = tshark(tmp_path, "-i", "-", "-c", str(2 * Conversation.ROUNDS))
    capture = subprocess.Popen([LINX, "capture", "-w", "-"], stdout=subprocess.PIPE)
    shown.stdin.write(capture.stdout.read1())  # which comes once it captures
    forwarding = threading.Thread(target=forward, args=(capture.stdout, shown.stdin))
    forwarding.start()
    conversation.hold()
    lines = shown.stdout.read()
    assert shown.wait(PATIENCE) == 0
    capture.send_signal(signal.SIGINT)
    forwarding.join()
    capture.wait(PATIENCE)
    conversation.is_told_by(lines)
