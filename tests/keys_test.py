"""Keys that end or hang an unguarded line editor, and random keys. scripts/fuzz_keys searches longer."""

import pytest

from keys import fault, report, search

SECONDS = 20  # enough, without the guards, to find one of these faults

# {fault of the editor: (keys that trigger it, terminal, locale, start-up file)}
KNOWN = {
    "undo list of a history line": (
        [b"m\x0fl\r\x10", b"d\x0f", b"\x1bn\x07", b"n\x10\x10\x0f", b"\x0ee\x0f"],
    ),
    "undo list of a line searched for in vi mode": (
        [b"x\r", b"\x1b\r", b"\x1b", b"\x10", b"?c\0a\x1b", b"3j", b"\x10", b"\x03", b"\r"],
    ),
    "word without an end in vi mode": (
        [b"\x1b\r", b"s\xe8\xb5\xb4\xaa", b"\x1b", b"0W"],
        "vt100",
        "C.UTF-8",
    ),
    "window of two columns": ([(24, 2), b"abcdefghij", b"\x01"], "dumb"),
    "window that becomes narrow": ([b"abcdefghij", (1, 1), (1, 2), b"\x01"], "dumb"),
}


@pytest.mark.parametrize("session", KNOWN.values(), ids=KNOWN)
def test_keys_do_not_end_the_session(device, session):
    assert not fault(device, *session)


def test_random_keys_do_not_end_the_session(device):
    sessions, steps, found = search(device, SECONDS, "brief")
    report(sessions, steps, found)
    assert sessions > 0
    assert not found
