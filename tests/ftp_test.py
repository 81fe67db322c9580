"""backup and restore with the real wput and wget, an FTP server, the development gateway's backup
program and its back end."""

import ast
import hashlib
import re
from datetime import datetime, timezone

import pytest

from backup_test import (
    BACKUP_FAILED,
    BACKUP_FINISHED,
    BACKUP_LOG,
    RESTORE_FAILED,
    RESTORE_FINISHED,
    RESTORE_LOG,
    names_between,
    transfer,
)
from console import PROMPT, SHELL
from round_trip_test import settings

HOME = "/home/backup"
STORE = "/var/lib/gateway/settings.conf"
SYSTEM_LOG = "/var/log/cm.log"
FTP_LOG = "/var/log/ftp.log"
LOGIN = {"server": b"127.0.0.1", "port": b"2121", "user": b"backup", "password": b"secret"}
STARTED = b"backupconfig: restore started\n"
EMPTY = STARTED + b"backupconfig: ERROR: the archive is empty, nothing was received\n"
CUT = STARTED + b"backupconfig: ERROR: the archive is cut short or damaged\n"
DAMAGED = STARTED + b"backupconfig: ERROR: the archive is damaged, its checksum is wrong\n"
FOREIGN = STARTED + b"backupconfig: ERROR: this is not an archive of this device\n"


@pytest.fixture(name="device")
def fixture_device(device):
    """A device whose FTP clients do not wait between attempts."""
    device.write("/etc/wputrc", b"wait_retry = 0\n")
    device.write("/etc/wgetrc", b"waitretry = 0\n")
    device.serve_ftp()
    return device


def backup(console, **answers):
    return transfer(console, b"backup", **{**LOGIN, **answers})


def restore(console, path, **answers):
    return transfer(console, b"restore", path=path, **{**LOGIN, **answers})


def change(console, setting):
    assert console.command(setting) == b""
    assert console.command(b"save") == b"1 setting saved\n"


def archive_of(content):
    """Returns the archive that the backup program makes of these settings."""
    body = b"firmware 2.1.4 length %d\n%s" % (len(content), content)
    return b"GATEWAY-BACKUP 1 %s\n%s" % (hashlib.sha256(body).hexdigest().encode(), body)


def archives(device, folder=HOME):
    """Returns {name: content} of the files in the server's folder."""
    files = (path for path in device.path(folder).rglob("*") if path.is_file())
    return {path.name.encode(): path.read_bytes() for path in files}


def state(device):
    """Returns what a failed restore must leave alone."""
    return device.read(STORE), device.read(SYSTEM_LOG)


def assert_refused(device, console, outcome, log, before):
    """Asserts that a restore failed for the reason in the log and changed nothing."""
    # wget's messages come first.
    assert outcome.endswith(log + RESTORE_FAILED)
    assert outcome.count(b"Configuration") == 1
    assert state(device) == before
    assert not device.exists(RESTORE_LOG)
    assert settings(console, b"sip")[b"sip.local_port"] == b"5060"


# Backup, then restore


def test_restore_brings_back_the_settings_of_the_backup(device):
    console = device.log_in()
    change(console, b"sip.local_port=5070")
    start = datetime.now(timezone.utc)
    assert backup(console, path=b"/archives") == BACKUP_FINISHED
    ((name, content),) = archives(device).items()
    assert device.path(f"{HOME}/archives/{name.decode()}").is_file()
    assert name in names_between(start, datetime.now(timezone.utc))
    assert content == archive_of(device.read(STORE))
    assert b"\nsip.local_port=5070\n" in content
    assert not device.exists(BACKUP_LOG)

    change(console, b"sip.local_port=5080")
    change(console, b"sip.keepalive=off")
    assert settings(console, b"sip")[b"sip.local_port"] == b"5080"
    outcome = restore(console, b"archives/" + name)
    assert outcome.endswith(b"\n" + RESTORE_FINISHED)
    assert outcome.count(b"\n") == 3, "one line of wget, two of the shell"
    assert not device.exists(RESTORE_LOG)
    after = settings(console, b"sip")
    assert after[b"sip.local_port"] == b"5070"
    assert after[b"sip.keepalive"] == b"on"
    assert device.read(SYSTEM_LOG).endswith(b" reboot: up again\n")
    assert b"secret" not in console.screen
    assert console.leave() == 0
    assert settings(device.log_in(), b"sip") == after


@pytest.mark.parametrize("port", [b"", b"21", b"2121"])
@pytest.mark.parametrize(
    "path, where",
    [(b"", ""), (b"/", ""), (b"a", "a"), (b"/a/b/", "a/b"), (b"two words", "two words")],
)
def test_backup_goes_to_the_port_and_the_folder_that_were_named(device, port, path, where):
    console = device.log_in()
    assert backup(console, port=port, path=path) == BACKUP_FINISHED
    (name,) = archives(device)
    assert device.path(f"{HOME}/{where}/{name.decode()}").is_file()
    outcome = restore(console, path.rstrip(b"/") + b"/" + name, port=port)
    assert outcome.endswith(b"\n" + RESTORE_FINISHED)


@pytest.mark.parametrize("folder", [b"a;b", b"a#b", b"a$b?c d"])
def test_folder_name_with_characters_that_are_special_in_addresses(device, folder):
    console = device.log_in()
    assert backup(console, path=folder) == BACKUP_FINISHED
    (name,) = archives(device, f"{HOME}/{folder.decode()}")
    # For wget, each of the two characters ends the path.
    typed = folder.replace(b";", b"%3B").replace(b"#", b"%23")
    if typed != folder:
        assert restore(console, folder + b"/" + name).endswith(EMPTY + RESTORE_FAILED)
    assert restore(console, typed + b"/" + name).endswith(b"\n" + RESTORE_FINISHED)


def test_later_backup_within_the_same_minute_is_kept(device):
    console = device.log_in()
    for proxy in (b"short", b"a-longer-name", b"tiny"):
        change(console, b"sip.outbound_proxy=" + proxy)
        assert backup(console) == BACKUP_FINISHED
        assert archive_of(device.read(STORE)) in archives(device).values()


def test_session_without_a_terminal_backs_up_and_restores(device):
    answers = b"127.0.0.1\n2121\n%s\nbackup\nsecret\n"
    result = device.run(b"admin\ngateway\nbackup\n" + answers % b"" + b"exit\n")
    assert (BACKUP_FINISHED + b"tessel:> exit\n") in result.output
    (name,) = archives(device)
    result = device.run(b"admin\ngateway\nrestore\n" + answers % name + b"exit\n")
    assert (RESTORE_FINISHED + b"tessel:> exit\n") in result.output
    assert b"secret" not in result.output + result.errors


# Failing transfers


def test_wrong_password(device):
    device.write(f"{HOME}/x.bin", archive_of(b"sip.local_port=5999\n"))
    console = device.log_in()
    before = state(device)
    for login in ({"password": b"wrong"}, {"password": b""}, {"user": b"nobody"}, {"user": b""}):
        assert backup(console, **login) == BACKUP_FAILED
        assert_refused(device, console, restore(console, b"x.bin", **login), EMPTY, before)
    assert list(archives(device)) == [b"x.bin"]
    assert not device.exists(BACKUP_LOG)
    # Each server words it differently.
    log = device.read(FTP_LOG)
    assert log.count(b" FTP session opened") + log.count(b" CONNECT: ") >= 8
    assert b" logged in." not in log and b" OK LOGIN: " not in log


@pytest.mark.parametrize(
    "answers",
    [{"port": b"2122"}, {"server": b"nowhere.example.net"}, {"server": b""}, {"port": b"x"}],
    ids=["nobody listens", "no such host", "no host", "no port"],
)
def test_no_server(device, answers):
    console = device.log_in()
    before = state(device)
    assert backup(console, **answers) == BACKUP_FAILED
    assert_refused(device, console, restore(console, b"x.bin", **answers), EMPTY, before)
    assert not device.exists(BACKUP_LOG)


@pytest.mark.parametrize("options", ["--full", "--readonly"])
def test_no_room_and_no_right_to_write_on_the_server(device, options):
    device.serve_ftp(options)
    console = device.log_in()
    assert backup(console) == BACKUP_FAILED
    assert all(content == b"" for content in archives(device).values())
    assert not device.exists(BACKUP_LOG)


@pytest.mark.parametrize("size, log", [(0, EMPTY), (1, FOREIGN), (100, CUT), (300, CUT)])
def test_server_drops_the_connection_during_a_transfer(device, size, log):
    device.write(f"{HOME}/x.bin", archive_of(device.read(STORE)))
    device.serve_ftp(f"--drop-after {size}")
    console = device.log_in()
    before = state(device)
    assert backup(console) == BACKUP_FAILED
    uploaded = [content for name, content in archives(device).items() if name != b"x.bin"]
    assert all(len(content) <= size for content in uploaded)
    assert_refused(device, console, restore(console, b"x.bin"), log, before)


END_SERVER = b"""
echo x >/record/server_ends
for process in /proc/[0-9]*; do
    if grep -qs -e ftp_server -e vsftpd "$process/cmdline"; then kill -KILL "${process#/proc/}"; fi
done
"""


def test_server_ends_during_an_upload(device):
    halves = (b"echo the first half\n", b"echo the second half\n")
    device.stand_in("backupconfig", END_SERVER.join(halves))
    console = device.log_in()
    assert backup(console) == BACKUP_FAILED
    assert device.exists("/record/server_ends")
    # Later backups work: the next start brings the server back.
    assert backup(console) == BACKUP_FAILED


def test_server_ends_during_a_download(device):
    # More than the buffers hold, so that the server is still sending.
    device.write(f"{HOME}/x.bin", archive_of(b"filler=0123456789abcdef0123456789abcdef\n" * 10**6))
    device.write("/record/backupconfig", device.read("/bin/backupconfig"), mode=0o755)
    device.stand_in(
        "backupconfig",
        b"{ dd bs=1000 count=1 iflag=fullblock 2>/dev/null\n"
        + END_SERVER
        + b'cat\n} | /record/backupconfig "$@"\n',
    )
    console = device.log_in()
    before = state(device)
    outcome = restore(console, b"x.bin")
    assert device.exists("/record/server_ends")
    assert_refused(device, console, outcome, CUT, before)


def test_wput_that_is_not_installed(device):
    # The folder with the host's programs is not on this path.
    console = device.log_in("/bin/env", "PATH=/bin", SHELL)
    device.remove("/bin/wput")
    assert backup(console) == BACKUP_FAILED
    assert not device.exists(BACKUP_LOG)
    assert archives(device) == {}


def test_wget_that_is_not_installed(device):
    console = device.log_in()
    before = state(device)
    device.remove("/bin/wget")
    outcome = restore(console, b"x.bin")
    assert outcome == b"sh: 1: /bin/wget: not found\n" + EMPTY + RESTORE_FAILED
    assert_refused(device, console, outcome, EMPTY, before)


# Files that cannot be restored


def make_unreadable(device, name):
    device.write(name, archive_of(b""), mode=0)


@pytest.mark.parametrize(
    "make",
    [lambda device, name: None, lambda device, name: device.make_folder(name), make_unreadable],
    ids=["missing", "folder", "unreadable"],
)
def test_file_that_the_server_does_not_serve(device, make):
    make(device, f"{HOME}/x.bin")
    console = device.log_in()
    before = state(device)
    assert_refused(device, console, restore(console, b"x.bin"), EMPTY, before)
    assert_refused(device, console, restore(console, b"no/such/folder/x.bin"), EMPTY, before)


def flipped(archive, position):
    position %= len(archive)
    return archive[:position] + bytes([archive[position] ^ 1]) + archive[position + 1 :]


def test_broken_archive_changes_nothing(device):
    archive = archive_of(device.read(STORE).replace(b"isdn", b"ISDN") + b"sip.local_port=5999\n")
    broken = [
        (b"", EMPTY),
        (b"\n", FOREIGN),
        (bytes(range(256)) * 100, FOREIGN),
        (b"<html>No such page</html>\n", FOREIGN),
        (archive.replace(b"BACKUP 1", b"BACKUP 2"), FOREIGN),
        (b" " + archive, FOREIGN),
        (archive[:10], FOREIGN),
        (archive[:82], CUT),
        (archive[: len(archive) // 2], CUT),
        (archive[:-1], CUT),
        (archive[:-1] + b" ", DAMAGED),
        (archive + b"\n", DAMAGED),
        (flipped(archive, 0), FOREIGN),
        (flipped(archive, 30), DAMAGED),
        (flipped(archive, archive.index(b"firmware")), DAMAGED),
        (flipped(archive, archive.index(b"length")), DAMAGED),
        (flipped(archive, len(archive) // 2), DAMAGED),
        (flipped(archive, -2), DAMAGED),
    ]
    device.make_folder(HOME)
    for number, (content, _) in enumerate(broken):
        device.write(f"{HOME}/{number}.bin", content)
    device.write(f"{HOME}/right.bin", archive)
    console = device.log_in()
    before = state(device)
    for number, (_, log) in enumerate(broken):
        assert_refused(device, console, restore(console, b"%d.bin" % number), log, before)
    assert restore(console, b"right.bin").endswith(RESTORE_FINISHED)
    assert settings(console, b"sip")[b"sip.local_port"] == b"5999"


# Passwords

PRINTABLE = "".join(map(chr, range(32, 127)))
# These characters end an address or begin an escape, so they must be typed as escapes; all others can
# be typed as they are. For wget a percent sign begins an escape only if two hexadecimal digits follow,
# and it decodes the result again.
NOT_BY_WPUT = "%/"
NOT_BY_WGET = "#/?@[]"


def escaped(text, characters):
    return "".join(f"%{ord(c):02X}" if c in characters else c for c in text)


def logins(device):
    """Returns the (user name, password) pairs that the server received, oldest first."""
    lines = device.read(FTP_LOG).decode().splitlines()
    words = (line[len("login ") :] for line in lines if line.startswith("login "))
    return [tuple(ast.literal_eval(f"[{each}]")) for each in words]


def test_user_name_is_decoded_by_the_clients(device):
    device.serve_ftp("--any-login")
    console = device.log_in()
    assert backup(console, user=b"a%3Ab%3ac%2Fd") == BACKUP_FINISHED
    (name,) = archives(device)
    assert restore(console, name, user=b"a%3Ab%3ac%2Fd").endswith(RESTORE_FINISHED)
    assert logins(device) == [("a:b:c/d", "secret")] * 2


def delivered(device, passwords):
    """Returns the passwords that the server receives when these are typed, for a backup and for the
    restore of its file. Both must succeed with each password."""
    device.serve_ftp("--any-login")
    console = device.log_in()
    for typed in passwords:
        device.make_folder(HOME)
        by_wput, by_wget = typed
        assert backup(console, user=b"me", password=by_wput.encode()) == BACKUP_FINISHED
        (name,) = archives(device)
        outcome = restore(console, name, user=b"me", password=by_wget.encode())
        assert outcome.endswith(RESTORE_FINISHED)
    pairs = logins(device)
    assert {user for user, _ in pairs} == {"me"}
    return [password for _, password in pairs]


def test_password_of_all_printable_characters(device):
    rest = PRINTABLE.translate(dict.fromkeys(map(ord, NOT_BY_WPUT + NOT_BY_WGET)))
    typed = [
        (rest, rest),
        (rest[::-1], rest[::-1]),
        (escaped(PRINTABLE, NOT_BY_WPUT), escaped(PRINTABLE, NOT_BY_WGET)),
        (escaped(PRINTABLE, PRINTABLE), escaped(PRINTABLE, PRINTABLE)),
    ]
    arrived = [rest, rest[::-1], PRINTABLE, PRINTABLE]
    assert delivered(device, typed) == [each for each in arrived for _ in range(2)]


def test_percent_sign_before_two_digits_is_decoded_once_by_wput_and_twice_by_wget(device):
    typed = [("%41%2541", "%41%252541")]
    assert delivered(device, typed) == ["A%41", "A%41"]


@pytest.mark.parametrize("command, characters", [("backup", NOT_BY_WPUT), ("restore", NOT_BY_WGET)])
def test_characters_that_a_password_cannot_hold_unescaped(device, command, characters):
    device.serve_ftp("--any-login")
    console = device.log_in()
    for character in characters:
        typed = f"a{character}b"
        transfer(console, command.encode(), **{**LOGIN, "password": typed.encode()})
        assert typed not in [password for _, password in logins(device)]
