"""The demonstration device as its README tells of it: whole, and server by server among stand-ins."""
import enum
import os
import re
import select
import shutil
import signal
import struct

import pytest

import linx
from device import DEMO, PATIENCE, SERVERS, domain_of, process_of, start_device



class Number(enum.IntEnum):
    """As in demo/protocol.h."""

    SHUTDOWN = 1280
    PROCESS_DIED = 1281
    HELLO = 0x2000
    START = 0x2001
    READY = 0x2002
    PEER_BACK = 0x2005
    PEER_ENDED = 0x2006
    CONFIG_REQUEST = 0x2100
    CONFIG_REPLY = 0x2101
    LOCATE = 0x2400
    POSITION_REQUEST = 0x2401
    POSITION_REPLY = 0x2402
    FIX_REQUEST = 0x2403


REPORT = "qiIQ232s"  # as in demo/report.h: time, server, fact, value, text
CONFIG = "QIIIIII"  # seed, payload, tick period, time of a fix, time of an answer, ticks to connect, reserved
POSITION = "iii"  # process, latitude, longitude
GPS_HAL = 12  # as in directory/e_Process.h


# The whole device, which makes a domain of its own.


@pytest.fixture
def device(domain):
    return start_device(domain)


@pytest.fixture
def observer(device, monkeypatch):
    """An endpoint in the device's own domain, from when everybody is there."""
    path = device.wait_for_output(re.compile(r"domain (/\S+),")).group(1)
    device.wait_for_output("everybody is here and ready")
    monkeypatch.setenv("LINX_DOMAIN", path)
    with linx.Endpoint("observer") as endpoint:
        yield endpoint


def test_everything_happens_that_is_to_happen(domain):
    device = domain.start([DEMO, "--seed", "3", "--limit", str(PATIENCE)])
    assert device.wait() == 0
    device.wait_for_output("Everything happened that was to happen.")
    assert not os.path.exists(domain_of(device))


def test_every_server_can_be_hunted(device, observer):
    spids = {name: observer.hunt(name, timeout=PATIENCE) for name in SERVERS}
    assert {observer.name_of(spid) for spid in spids.values()} == set(SERVERS)


def test_a_server_that_is_killed_spoils_the_run_which_ends_the_others_and_says_so(device, observer):
    spids = {name: observer.hunt(name, timeout=PATIENCE) for name in SERVERS if name != "GpsHal"}
    device.expect_end()
    os.kill(process_of(device, "PlaybackMgr"), signal.SIGKILL)
    for spid in spids.values():
        observer.wait_end(spid, timeout=PATIENCE)
    assert device.wait() == 1
    device.wait_for_output("Not everything happened.")
    assert not os.path.exists(domain_of(device))


def test_the_servers_die_with_a_launcher_that_is_killed_and_its_directory_stays(device, observer):
    spids = [observer.hunt(name, timeout=PATIENCE) for name in SERVERS if name != "GpsHal"]
    device.kill()
    for spid in spids:
        observer.wait_end(spid, timeout=PATIENCE)
    assert os.path.exists(domain_of(device))
    shutil.rmtree(domain_of(device))


def test_an_interrupted_run_ends_its_servers_and_leaves_nothing(device, observer):
    device.signal(signal.SIGINT)
    assert device.wait() == 128 + signal.SIGINT
    device.wait_for_output("all servers ended, nothing left behind")
    assert not os.path.exists(domain_of(device))


# Servers of it in the domain of the test.


class Stage:
    """Starts servers, and stands in for those whom every server needs."""

    def __init__(self, domain):
        self.domain = domain
        self.reports, self.reports_end = os.pipe()
        domain.name_numbers(Number)
        self.watchdog = domain.peer("WatchdogMgr")
        self.hellos = self.watchdog.always(Number.HELLO).answer(Number.START)

    def close(self):
        os.close(self.reports)
        os.close(self.reports_end)

    def start(self, name):
        server = self.domain.start(
            [DEMO, "serve", name, "--reports", str(self.reports_end), "--front-panel", "0"]
            + ["--seed", "7", "--payload", "4096", "--limit", str(PATIENCE)],
            name,
            pass_fds=[self.reports_end],
        )
        self.watchdog.expect(Number.READY, b"", sender=name).wait()
        return server

    def stand_in_for_config(self):
        config = struct.pack(CONFIG, 7, 4096, 40, 1000 * PATIENCE, 900 * PATIENCE, 3, 0)
        self.domain.peer("ConfigMgr").always(Number.CONFIG_REQUEST).answer(Number.CONFIG_REPLY, config)

    def wait_for_report(self, wanted):
        """Until a server reports something that contains this text."""
        said = []
        while not (said and wanted in said[-1]):
            assert select.select([self.reports], [], [], PATIENCE)[0], f"nobody reports {wanted!r}, but {said}"
            report = os.read(self.reports, struct.calcsize(REPORT))
            said.append(struct.unpack(REPORT, report)[4].rstrip(b"\0").decode())


@pytest.fixture
def stage(domain):
    stage = Stage(domain)
    yield stage
    stage.close()


def test_config_mgr_gives_the_configuration_to_whoever_asks(domain, stage):
    server = stage.start("ConfigMgr")
    asker = domain.peer("asker")
    config = asker.call("ConfigMgr", Number.CONFIG_REQUEST, reply=Number.CONFIG_REPLY).unpack(CONFIG)
    assert config == (7, 4096, 40, 2000 * PATIENCE, 900 * PATIENCE, 3, 0)
    assert server.shutdown() == 0


def test_a_server_tells_its_process_when_it_announces_itself(domain, stage):
    server = stage.start("ConfigMgr")
    assert [message.unpack("i") for message in stage.hellos.messages] == [(server.pid,)]


def test_state_mgr_is_told_that_gps_hal_was_killed_and_reaches_the_new_one(domain, stage):
    stage.stand_in_for_config()
    gps = stage.start("GpsHal")
    state = stage.start("StateMgr")
    position = domain.peer("asker").call("GpsHal", Number.POSITION_REQUEST, reply=Number.POSITION_REPLY)
    assert position.unpack(POSITION)[0] == gps.pid

    domain.peer("UiMgr").send("StateMgr", Number.LOCATE)
    stage.wait_for_report("looks for satellites; StateMgr waits for its answer")
    gps.kill()
    stage.watchdog.send("StateMgr", Number.PROCESS_DIED, linx.pack("i", GPS_HAL))
    stage.wait_for_report("GpsHal died while it waited: Request returned 113")
    stage.wait_for_report("supervises GpsHal: told that it ended")
    gps.restart()
    stage.watchdog.expect(Number.READY, sender="GpsHal").wait()
    stage.watchdog.send("StateMgr", Number.PEER_BACK, linx.pack("ii", GPS_HAL, gps.pid))
    stage.wait_for_report(f"reaches GpsHal under the same name, now process {gps.pid}")
    assert state.shutdown() == 0


def test_state_mgr_asks_who_stands_in_for_gps_hal(domain, stage):
    stage.stand_in_for_config()
    gps = domain.peer("GpsHal")
    state = stage.start("StateMgr")
    domain.peer("UiMgr").send("StateMgr", Number.LOCATE)
    gps.expect(Number.FIX_REQUEST, b"", sender="StateMgr").wait()
    gps.close()
    gps.open()
    stage.watchdog.send("StateMgr", Number.PROCESS_DIED, linx.pack("i", GPS_HAL))
    stage.wait_for_report("supervises GpsHal: told that it ended")
    stage.watchdog.send("StateMgr", Number.PEER_BACK, linx.pack("ii", GPS_HAL, 99))
    gps.expect(Number.POSITION_REQUEST, sender="StateMgr").answer(Number.POSITION_REPLY, linx.pack(POSITION, 99, 1, 2))
    stage.wait_for_report("reaches GpsHal under the same name, now process 99")
    assert state.shutdown() == 0
