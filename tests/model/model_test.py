"""Random sessions played by the program and by its model: screen, requests, command lines and files must
be the same bytes.

A check plays the same few hundred each time; TESSEL_MODEL_SESSIONS=5000 plays that many new ones.
"""

import os
import tempfile
from pathlib import Path

import pytest
from hypothesis import HealthCheck, Phase, configuration, example, given, settings

import model
from recording_device import RecordingDevice, without_open_addresses
from sessions import made_up_sessions

SESSIONS_IN_A_CHECK = 300
wanted = os.environ.get("TESSEL_MODEL_SESSIONS")

# What random sessions rarely contain: text before the version line, the longest line of a log and a
# longer one, a single character that must be quoted.
SELDOM_MET = model.Gateway(
    files={
        model.ACCESS_DATABASE: b"section admin {\nuser_name=admin\npassword=gateway\n}\n",
        model.MENU_TREE: b'ITEM sip.cgi {\nACL=auto\nCAP="SIP"\n}\n',
    },
    answers=[(b"lost\nmy VERSION=1\nkept\n" + b"x" * 300 + b"\nVERSION=2\n", b"")],
    transfers=[
        (b"x" * 1023 + b"\nrest\n", 1),
        (b"a\n" + b"x" * 1024 + b"\nrest\n", 1),
        (b"x" * 1023 + b"\nFINISHED", 0),
        (b"x" * 1024 + b"\nFINISHED", 0),
    ],
)
TYPED = b"admin\ngateway\nget sip\n" + b"".join(
    command + b"\n10.0.0.1\n21\n/a;b\nadmin\npw\n"
    for command in (b"restore", b"restore", b"backup", b"backup")
)


@pytest.fixture(scope="module")
def recording_device():
    with tempfile.TemporaryDirectory(prefix="tessel-model-") as folder:
        configuration.set_hypothesis_home_dir(Path(folder) / "hypothesis")
        recording_device = RecordingDevice(Path(folder) / "root")
        yield recording_device
        recording_device.close()


@settings(
    max_examples=int(wanted or SESSIONS_IN_A_CHECK),
    derandomize=wanted is None,
    database=None,
    deadline=None,
    phases=[Phase.explicit, Phase.generate, Phase.shrink],
    suppress_health_check=list(HealthCheck),
    print_blob=True,
)
@given(made_up_sessions())
@example((SELDOM_MET, TYPED))
def test_program_and_model_agree(recording_device, session):
    gateway, typed = session
    expected = model.play(gateway, typed)
    seen = without_open_addresses(recording_device.play(gateway, typed), expected)
    for what in ("screen", "status", "errors", "requests", "command_lines", "calls", "files"):
        assert (what, getattr(seen, what)) == (what, getattr(expected, what))
