"""The demonstration device, for tests that have it run."""
import os
import re

DEMO = os.environ.get("LINX_DEMO", "")
SERVERS_OF = os.environ.get("LINX_DEMO_SERVERS")  # another build of it, for the servers
PATIENCE = 100  # seconds, as an option of the demonstration
SERVERS = [
    "WatchdogMgr", "ConfigMgr", "StateMgr", "ConnectionMgr", "StreamMgr", "PlaybackMgr", "UiMgr", "SysTickHal", "GpsHal"
]  # fmt: skip


def start_device(domain, rounds=10):
    """The whole device, which makes a domain of its own."""
    others = ["--servers", SERVERS_OF] if SERVERS_OF else []
    return domain.start([DEMO, "--seed", "6", "--rounds", str(rounds), "--limit", str(PATIENCE), *others])


def process_of(device, name):
    return int(device.wait_for_output(re.compile(rf"starts {name}, process (\d+)\n")).group(1))


def domain_of(device):
    return device.wait_for_output(re.compile(r"domain (/\S+),")).group(1)
