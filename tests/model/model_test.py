"""Made-up sessions, played by the program and by the model of it: what is seen, requested, run and
left behind must be the same bytes.

A check plays the same few hundred each time; TESSEL_MODEL_SESSIONS=5000 plays so many new ones.
"""

import os
import tempfile
from pathlib import Path

import pytest
from hypothesis import HealthCheck, Phase, configuration, given, settings

import model
from sandbox import Sandbox, without_open_addresses
from sessions import made_up_sessions

SESSIONS_IN_A_CHECK = 300
wanted = os.environ.get("TESSEL_MODEL_SESSIONS")


@pytest.fixture(scope="module")
def sandbox():
    with tempfile.TemporaryDirectory(prefix="tessel-model-") as folder:
        configuration.set_hypothesis_home_dir(Path(folder) / "hypothesis")
        sandbox = Sandbox(Path(folder) / "root")
        yield sandbox
        sandbox.close()


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
def test_program_and_model_agree(sandbox, session):
    gateway, typed = session
    expected = model.play(gateway, typed)
    seen = without_open_addresses(sandbox.play(gateway, typed), expected)
    for what in ("screen", "status", "errors", "requests", "command_lines", "calls", "files"):
        assert (what, getattr(seen, what)) == (what, getattr(expected, what))
