"""The tables in docs/integration.md are right about what the FTP clients make of the answers. Clients and
server are real; the server accepts any login and logs every line."""

import re

import pytest

from backup_test import BACKUP_FAILED, BACKUP_FINISHED, RESTORE_FAILED, transfer
from console import SOURCE_DIR
from injection_test import GOOD, cases_that_ran, command_lines, ftp_lines, make_open_device

TABLES = (SOURCE_DIR / "docs/integration.md").read_text().split("\n### What answers may hold\n")[1]
PRINTABLE = [chr(code) for code in range(32, 127)]
PLACES = {"user": "user name", "password": "password", "path": "path"}
CANNOT = {("backup", "user"): '$"\\`', ("restore", "path"): "*"}
# {(direction, question): the command that carries the answer to the server}
VERBS = {
    ("backup", "path"): b"CWD ",
    ("restore", "path"): b"SIZE ",
    ("backup", "user"): b"USER ",
    ("restore", "user"): b"USER ",
    ("backup", "password"): b"PASS ",
    ("restore", "password"): b"PASS ",
}


def row(name):
    """Returns the cells of the row of that name: {"backup": text, "restore": text}."""
    cells = re.search(rf"(?m)^\| {re.escape(name)} \| (.*) \| (.*) \|$", TABLES).groups()
    return dict(zip(("backup", "restore"), cells))


def characters(cell):
    return "".join(re.findall(r"`(.)`", cell))


def arrived(device, direction, place, form):
    """Returns the characters that reach the server when typed in that form between two letters, and all
    that were tried."""
    # In a path, a slash is a separator.
    tried = [c for c in PRINTABLE if (place, c) != ("path", "/")]
    cases = [{**GOOD, place: f"a{form(c)}b"} for c in tried]
    assert cases_that_ran(device, command_lines(direction, cases), cases) == []
    sent = set(ftp_lines(device))
    verb = VERBS[direction, place]
    return {c for c in tried if verb + f"a{c}b".encode() in sent}, set(tried)


@pytest.mark.parametrize("direction", ["backup", "restore"])
@pytest.mark.parametrize("place", PLACES)
def test_characters_that_have_to_be_encoded(device, direction, place):
    as_it_stands, tried = arrived(device, direction, place, lambda c: c)
    special = set(characters(row(PLACES[place])[direction]))
    assert tried - as_it_stands == special | set(CANNOT.get((direction, place), ""))


@pytest.mark.parametrize("direction", ["backup", "restore"])
@pytest.mark.parametrize("place", PLACES)
def test_characters_that_can_be_encoded(device, direction, place):
    encoded, tried = arrived(device, direction, place, lambda c: f"%{ord(c):02X}")
    assert tried - encoded == set(CANNOT.get((direction, place), ""))


@pytest.mark.parametrize("place", ["path", "password"])
def test_folder_or_password_with_shell_characters_can_be_used(device, place):
    cases = [{**GOOD, place: f"a{c}b"} for c in '$"\\`']
    cases_that_ran(device, command_lines("backup", cases), cases)
    sent = ftp_lines(device)
    for c in '$"\\`':
        assert VERBS["backup", place] + f"a{c}b".encode() in sent


def test_characters_that_cannot_be_used_are_those_of_the_table():
    cells = row("cannot be used")
    assert set(characters(cells["backup"])) | {"`"} == set(CANNOT["backup", "user"])
    assert set(characters(cells["restore"])) == set(CANNOT["restore", "path"])


@pytest.fixture(name="transferred")
def fixture_transferred(device):
    """Returns a function that makes a transfer with the given answers and returns the output and the lines
    that the server received."""
    make_open_device(device)
    console = device.log_in()

    def transferred(command, **answers):
        words = {place: text.encode() for place, text in {**GOOD, **answers}.items()}
        outcome = transfer(console, command.encode(), **words)
        log = "/var/log/ftp.log"
        return outcome, ftp_lines(device) if device.exists(log) else []

    return transferred


@pytest.mark.parametrize("place", ["user", "password"])
def test_escape_is_decoded_once_for_a_backup_and_twice_for_a_restore(transferred, place):
    verb = VERBS["backup", place]
    assert verb + b"%41" in transferred("backup", **{place: "%2541"})[1]
    assert verb + b"A" in transferred("restore", **{place: "%2541"})[1]


def test_escape_is_decoded_once_for_a_restore_in_a_locale_of_utf_8(device):
    cases = [{**GOOD, "password": "%2541"}]
    cases_that_ran(device, command_lines("restore", cases), cases, "C.UTF-8")
    assert b"PASS %41" in ftp_lines(device)


@pytest.mark.parametrize("answer", ["%", "%4", "%4x", "a%b%%z"])
def test_percent_sign_that_does_not_begin_an_escape(transferred, answer):
    outcome, sent = transferred("backup", user=answer)
    assert outcome == BACKUP_FINISHED and b"USER " + answer.encode() in sent
    for place in ("password", "path"):
        assert transferred("backup", **{place: answer}) == (BACKUP_FAILED, sent)
    for place in ("user", "password", "path"):
        sent = transferred("restore", **{place: answer})[1]
        assert VERBS["restore", place] + answer.encode() in sent


@pytest.mark.parametrize(
    "path, by_wput, by_wget",
    [
        ("dir/x", b"CWD dir/x", [b"CWD /dir", b"SIZE x"]),
        ("/dir/x", b"CWD dir/x", [b"CWD /dir", b"SIZE x"]),
        ("/x", b"CWD x", [b"SIZE x"]),
        ("%2Fx", b"CWD /x", [b"SIZE /x"]),
        ("~/x", b"CWD ~/x", [b"CWD /~", b"SIZE x"]),
        ("a/../x", b"CWD x", [b"SIZE x"]),
        ("x;type=i", b"CWD x;type=i", [b"TYPE I", b"SIZE x"]),
        ("x;type=a", b"CWD x;type=a", [b"TYPE A"]),
    ],
)
def test_path(transferred, path, by_wput, by_wget):
    sent = transferred("backup", path=path)[1]
    assert [line for line in sent if line.startswith(b"CWD ")][0] == by_wput
    sent = transferred("restore", path=path)[1][len(sent) :]
    assert [line for line in sent if line.startswith((b"CWD", b"SIZE", b"TYPE A"))][
        : len(by_wget)
    ] == [line for line in by_wget if line != b"TYPE I"]


def test_path_that_begins_with_a_full_stop_belongs_to_the_server_or_its_port(transferred):
    assert transferred("backup", port="", path=".x")[0] == BACKUP_FAILED
    assert b"host address '127.0.0.1.x'" in transferred("restore", port="", path=".x")[0]
    assert transferred("backup", path=".x")[0] == BACKUP_FINISHED
    assert b"2121.x: Bad port number" in transferred("restore", path=".x")[0]


@pytest.mark.parametrize(
    "path", ["", "/", "dir/", "dir/x*.bin", "dir/x?.bin", "dir/x[12].bin", "dir/x].bin"]
)
def test_folder_or_pattern_is_listed_for_a_restore(device, transferred, path):
    device.write("/.listing", b"somebody's own\n")
    for number in (1, 2):
        device.write(f"/home/backup/dir/x{number}.bin", b"not an archive\n")
    outcome, sent = transferred("restore", path=path)
    assert outcome.endswith(RESTORE_FAILED)
    assert b"LIST" in {line.split()[0] for line in sent}
    assert not device.exists("/.listing")
    got = [line for line in sent if line.startswith(b"RETR ")]
    assert got == ([b"RETR x1.bin", b"RETR x2.bin"] if set("*?[") & set(path) else [])


def test_ipv6_is_for_restores_only(transferred):
    assert transferred("backup", server="[::1]") == (BACKUP_FAILED, [])
    outcome, _ = transferred("restore", server="[::1]")
    assert re.search(rb"Connection refused|Cannot assign|unreachable", outcome)


SHOWN = [{"port": "x"}, {"path": ".x"}, {"server": ""}, {"server": "::1"}] + [
    {place: f"se{c}cret"} for place, found in (("user", "?[]"), ("password", "?[]#/")) for c in found
]


@pytest.mark.parametrize("answers", SHOWN, ids=str)
def test_wget_shows_an_invalid_address_with_the_password(transferred, answers):
    answers = {"password": "secret", **answers}
    outcome, sent = transferred("restore", **answers)
    assert answers["password"].encode() in outcome and outcome.endswith(RESTORE_FAILED)
    assert sent == []


def test_at_sign_in_a_password_makes_a_restore_look_up_the_wrong_host(transferred):
    outcome, sent = transferred("restore", password="p@secret")
    assert b"unable to resolve host address 'secret@127.0.0.1'" in outcome and sent == []
    assert b"PASS p@secret" in transferred("backup", password="p@secret")[1]
