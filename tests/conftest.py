"""Gives every test its own device, and reports what happened at its consoles if it fails."""

import os
import re
import tempfile
from pathlib import Path

import pytest

from console import MAKE_ROOT, ON_MACHINE, PROGRAM_DIR, TARGET, Device
from machine import MACHINE_ONLY, NOT_ON_TARGET, MachineDevice, MachineRoom

# The fixtures of tests that run the shell or its back end.
GATEWAYS = {"bare_device", "device", "gateway", "sandbox"}

# The files that take longest run first, so that the worker processes finish at about the same time.
LONG = (
    "model", "package", "recipes", "login_ways", "keys", "turns", "soak", "builders", "injection", "ftp_answers",
    "failing_allocations", "secrets", "signals",
)  # fmt: skip
# {file: group}. The tests of a group run in one process, since they share something that is expensive to
# make, or cannot be made twice at the same time.
TOGETHER = {
    "package_test.py": "package_test.py",
    "recipes_test.py": "package_test.py",
    "login_ways_test.py": "login_ways_test.py",
}


@pytest.hookimpl(tryfirst=True)  # xdist looks at the marks in its own
def pytest_collection_modifyitems(items):
    """Sorts the tests if several processes run them. Skips those that cannot run on the target, giving the
    reason."""
    if "PYTEST_XDIST_WORKER" in os.environ:
        ranks = {f"{name}_test.py": rank for rank, name in enumerate(LONG)}
        items.sort(key=lambda item: ranks.get(item.path.name, len(ranks)))
    for item in items:
        if item.path.name in TOGETHER:
            item.add_marker(pytest.mark.xdist_group(TOGETHER[item.path.name]))
        file = item.path.name
        reason = None
        target = item.get_closest_marker("target")
        if target:
            reason = None if TARGET in target.args else f"part of ./check --target {target.args[0]}"
        elif file in MACHINE_ONLY:
            reason = None if ON_MACHINE else "needs an emulated machine: ./check --target armhf"
        elif TARGET and not GATEWAYS.intersection(item.fixturenames):
            reason = "runs nothing on the device"
        else:
            not_there = NOT_ON_TARGET.get(TARGET, {})
            reason = not_there.get(f"{file}::{item.originalname}", not_there.get(file))
        if reason:
            item.add_marker(pytest.mark.skip(reason=reason))


def pytest_sessionstart():
    for needed in (MAKE_ROOT, PROGRAM_DIR / "tessel", PROGRAM_DIR / "gateway" / "gateway_backend"):
        if not needed.exists():
            pytest.exit(f"{needed} is missing: build with -DTESSEL_GATEWAY=ON", returncode=2)


@pytest.fixture(scope="session")
def machine_room():
    """Returns the MachineRoom, which boots emulated machines."""
    room = MachineRoom()
    yield room
    room.close()


@pytest.fixture
def device(machine_room):
    """Returns a device with factory settings, on which nothing runs yet."""
    machine = machine_room.for_devices() if ON_MACHINE else None
    where = machine.share if machine else None
    with tempfile.TemporaryDirectory(prefix="tessel-test-", dir=where) as folder:
        root = Path(folder) / "root"
        device = MachineDevice(root, machine) if machine else Device(root)
        yield device
        device.close()


def pytest_make_parametrize_id(val):
    """Shortens the names of tests with long parameters."""
    if isinstance(val, bytes) and len(val) > 40:
        return f"{val[:20]!r}...{len(val)} bytes"
    return None


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    outcome = yield
    report = outcome.get_result()
    device = getattr(item, "funcargs", {}).get("device")
    if report.failed and call.when == "call" and device is not None:
        report.sections.extend(device.transcripts())


def pytest_runtest_logreport(report):
    """Writes the transcript of a failed test into the folder named by TESSEL_TRANSCRIPTS."""
    folder = os.environ.get("TESSEL_TRANSCRIPTS")
    # With several processes the main one gets each report too.
    if not (report.failed and folder) or "PYTEST_XDIST_WORKER" in os.environ:
        return
    # xdist appends the group.
    name = re.sub(r"@\w+\.py$", "", report.nodeid.rpartition("/")[2])
    name = re.sub(r"[^\w.-]+", "_", name)[:120]
    texts = [report.longreprtext, *(f"--- {title} ---\n{text}" for title, text in report.sections)]
    Path(folder).mkdir(parents=True, exist_ok=True)
    Path(folder, f"{name}.txt").write_text("\n".join(texts) + "\n", encoding="utf-8")


def pytest_terminal_summary(terminalreporter):
    """Prints the figures that tests have recorded."""
    for report in terminalreporter.getreports("passed"):
        for name, value in report.user_properties:
            terminalreporter.write_line(f"{name}: {value}")
