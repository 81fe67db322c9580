"""The commands that everybody meets first, and how they treat the terminal that they are given."""

import re
import sys
import tempfile
from pathlib import Path

import programs
from console import ENVIRONMENT, PATIENCE, PROGRAM_DIR, SOURCE_DIR

TESTS = SOURCE_DIR / "tests"
AT_TERMINAL = SOURCE_DIR / ".ci/at_terminal"

# Whatever a program can do to the terminal of the person who runs the tests.
INTRUDER = """
import programs
INTRUDE = "for order in 'echo intruder >/dev/tty' 'stty -echo </dev/tty' 'read line';"
INTRUDE += ' do sh -c "$order" && exit 1; done; exit 0'

def test_program_that_runs_to_its_end():
    assert programs.run(["sh", "-c", INTRUDE]).returncode == 0

def test_program_that_is_started():
    assert programs.start(["sh", "-c", INTRUDE]).wait() == 0
"""


def at_terminal(*command, **options):
    """Runs a command at a terminal; returns its status and what was seen."""
    done = programs.run(
        [AT_TERMINAL, *command],
        stdout=programs.PIPE,
        stderr=programs.STDOUT,
        text=True,
        timeout=PATIENCE,
        **options,
    )
    return done.returncode, done.stdout


def pytest_at_terminal(*words):
    return at_terminal(sys.executable, "-m", "pytest", "-q", "-c", TESTS / "pytest.ini", *words)


# The terminal of whoever runs the tests


def test_no_program_of_a_test_reaches_the_terminal(tmp_path):
    (tmp_path / "intruder_test.py").write_text(INTRUDER)
    # Without -s pytest itself would keep them from its standard streams.
    status, seen = pytest_at_terminal(
        "-s", f"--confcutdir={tmp_path}", "-o", f"pythonpath={TESTS}", tmp_path
    )
    assert (status, "intruder" in seen) == (0, False), seen
    assert "2 passed" in seen


def test_tests_run_at_a_terminal_as_without_one():
    some = [TESTS / f"{name}_test.py" for name in ("help", "session_picture", "include_graph")]
    status, seen = pytest_at_terminal(*some)
    assert (status, "failed" in seen) == (0, False), seen


def test_programs_are_started_in_one_place():
    starts = re.compile(
        r"import.* (subprocess|pty)\b|pexpect\.(spawn|run)\("
        r"|\bos\.(fork|forkpty|popen|system|posix_spawnp?|spawn\w+|exec\w+)\("
    )
    found = {
        path.name
        for path in TESTS.rglob("*.py")
        # What is run within a sandbox stands in a text.
        if any(starts.search(line) for line in path.read_text().splitlines() if '"' not in line)
    }
    assert found == {"programs.py"}


def test_temporary_files_stand_in_the_build_folder(tmp_path):
    made = programs.run(["mktemp"], capture_output=True, text=True, check=True, env=ENVIRONMENT)
    with tempfile.NamedTemporaryFile() as file:
        for path in (tmp_path, Path(made.stdout.strip()), Path(file.name)):
            assert PROGRAM_DIR.absolute() in path.parents
    Path(made.stdout.strip()).unlink()


def test_a_terminal_that_was_changed_or_read_from_is_noticed():
    assert at_terminal("sh", "-c", "echo seen; exit 3") == (3, "typed ahead\nseen\n")
    status, seen = at_terminal("stty", "-echo")
    assert (status, "other settings" in seen) == (1, True)
    status, seen = at_terminal("sh", "-c", "read line </dev/tty")
    assert (status, "read from" in seen) == (1, True)
