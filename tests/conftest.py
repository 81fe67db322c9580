"""Gives every test a device of its own and shows what happened at its consoles when it fails."""

import tempfile
from pathlib import Path

import pytest

from console import MAKE_ROOT, PROGRAM_DIR, Device


def pytest_sessionstart():
    for needed in (MAKE_ROOT, PROGRAM_DIR / "tessel", PROGRAM_DIR / "gateway" / "gateway_backend"):
        if not needed.exists():
            pytest.exit(f"{needed} is missing: build with -DTESSEL_GATEWAY=ON", returncode=2)


@pytest.fixture
def device():
    """A device with factory settings that runs nothing yet."""
    with tempfile.TemporaryDirectory(prefix="tessel-test-") as folder:
        device = Device(Path(folder) / "root")
        yield device
        device.close()


def pytest_make_parametrize_id(val):
    """Keeps the names of tests short whose parameters are long."""
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
