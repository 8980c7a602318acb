"""The demonstration device, for tests that have it run."""
import os
import re

DEMO = os.environ.get("LINX_DEMO", "")
PATIENCE = 100  # seconds, as an option of the demonstration
SERVERS = [
    "WatchdogMgr", "ConfigMgr", "StateMgr", "ConnectionMgr", "StreamMgr", "PlaybackMgr", "UiMgr", "SysTickHal", "GpsHal"
]  # fmt: skip


def start_device(domain, rounds=10):
    """The whole device, which makes a domain of its own."""
    return domain.start([DEMO, "--seed", "6", "--rounds", str(rounds), "--limit", str(PATIENCE)])


def process_of(device, name):
    return int(device.wait_for_output(re.compile(rf"starts {name}, process (\d+)\n")).group(1))


def domain_of(device):
    return device.wait_for_output(re.compile(r"domain (/\S+),")).group(1)
