"""Plays the sessions in tests/sessions and compares the whole screen with them.

A session file begins with a description, up to a line of dashes. What follows is the administrator's
screen, with typed text between « and »; Enter follows each, except «^D», the end of input. What is
typed at a password question does not appear on the screen. A line [exit status N] ends a run of the
shell; the next run finds the device as the previous one left it.
"""

import difflib
import re
from pathlib import Path

import pytest

SESSIONS = sorted((Path(__file__).parent / "sessions").glob("*.session"))
TYPED = re.compile("«(.*?)»")
END_OF_INPUT = "^D"


def runs_of(text):
    """Returns the runs of a session, each as (screen with typed text marked, exit status)."""
    body = text.split("\n" + 20 * "-", 1)[1].split("\n", 1)[1]
    *runs, rest = re.split(r"\[exit status (\d+)\]\n", body)
    assert runs and not rest.strip(), "a session ends with a line [exit status N]"
    return [(screen.lstrip("\n"), int(status)) for screen, status in zip(runs[::2], runs[1::2])]


def play(console, marked):
    """Types each marked text when the text before it on its line has appeared. Returns the expected
    screen and the exit status."""
    expected = ""
    # The end of input is not echoed, so the line break after it is not on the screen.
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
