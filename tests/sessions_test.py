"""Plays the sessions in the folder sessions and compares what the screen shows with them, whole.

A session file begins with what it shows in plain words, down to a line of dashes. What follows is
the screen of an administrator, with what is typed set between « and »; each ends with the Enter key,
but «^D», which is the end of input. What is typed at a password question does not appear on the
screen. A line [exit status N] ends a run of the shell; the next run finds the device as the one
before left it.
"""

import difflib
import re
from pathlib import Path

import pytest

SESSIONS = sorted((Path(__file__).parent / "sessions").glob("*.session"))
TYPED = re.compile("«(.*?)»")
END_OF_INPUT = "^D"


def runs_of(text):
    """The runs of a session, each as (screen with typed text marked, exit status)."""
    body = text.split("\n" + 20 * "-", 1)[1].split("\n", 1)[1]
    *runs, rest = re.split(r"\[exit status (\d+)\]\n", body)
    assert runs and not rest.strip(), "a session ends with a line [exit status N]"
    return [(screen.lstrip("\n"), int(status)) for screen, status in zip(runs[::2], runs[1::2])]


def play(console, marked):
    """Types what is marked, each when what stands before it on its line is there. Returns the
    screen that is expected and the exit status."""
    expected = ""
    # Nothing is shown for the end of input, so the line break behind it is not on the screen.
    pieces = TYPED.split(marked.replace(f"«{END_OF_INPUT}»\n", f"«{END_OF_INPUT}»"))
    for shown, typed in zip(pieces[::2], pieces[1::2]):
        expected += shown
        question = shown.rpartition("\n")[2]
        console.read_until(question.encode())
        if typed == END_OF_INPUT:
            console.type(b"\x04")
        else:
            console.enter(typed.encode())
            expected += "" if question.endswith("Password: ") else typed
    return expected + pieces[-1], console.end()[0]


def difference(expected, found):
    return "".join(
        difflib.unified_diff(
            expected.splitlines(keepends=True), found.splitlines(keepends=True), "session", "screen"
        )
    )


def test_there_are_sessions():
    assert SESSIONS


@pytest.mark.parametrize("path", SESSIONS, ids=lambda path: path.stem)
def test_session(device, path):
    for marked, expected_status in runs_of(path.read_text(encoding="utf-8")):
        console = device.console()
        expected, status = play(console, marked)
        found = console.screen.decode()
        assert found == expected, "\n" + difference(expected, found)
        assert status == expected_status
