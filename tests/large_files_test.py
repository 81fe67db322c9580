"""Files whose size does not fit in a 32-bit offset."""

import pytest

from backup_test import BACKUP_FAILED, BACKUP_FINISHED, RESTORE_FAILED, transfer
from console import GREETING, PATIENCE, PROMPT, SHELL

LOGIN = b"admin\ngateway\n"
LOGGED_IN = GREETING + b"Username: admin\n\n" + PROMPT
PIECE = 255  # bytes of a summary read at once, and printed up to the first NUL
OVER_2_GIB = 2**31 // PIECE * PIECE + PIECE
# An emulated machine is slow.
LONG = 15 * PATIENCE


def fill(path):
    """Returns sh commands that make a file with a line at each end and a hole in between, on a tmpfs of
    its own."""
    return b"printf 'VERSION=1\\nfirst=1\\n' >%s; truncate -s %d %s; echo last=1 >>%s\n" % (
        path,
        OVER_2_GIB,
        path,
        path,
    )


def test_summary_over_2_gib_is_printed_to_its_end(device):
    device.stand_in(
        "fcgiclient",
        b"case $PATH_INFO in getconf*)\n%s"
        b"ln -s /dev/shm/summary /tmp/script_legconftmp.txt\nesac\n" % fill(b"/dev/shm/summary"),
    )
    result = device.run(LOGIN + b"get sip\nexit\n", patience=LONG)
    assert result.output == (
        LOGGED_IN + b"get sip\n\nSIP settings\n\nfirst=1\nlast=1\n\n\n" + PROMPT + b"exit\n"
    )
    assert result.status == 0


# This tests the device's cat.
def test_log_over_2_gib_is_shown_to_its_end(device):
    device.remove("/var/log/cm.log")
    script = fill(b"/dev/shm/log") + (
        b"ln -s /dev/shm/log /var/log/cm.log; %s | { head -c 100; tail -c 100; }" % SHELL.encode()
    )
    result = device.run(LOGIN + b"show cm\nexit\n", "/bin/sh", "-c", script.decode(), patience=LONG)
    start = LOGGED_IN + b"show cm\nVERSION=1\nfirst=1\n"
    assert result.output.startswith(start)
    assert result.output.endswith(b"\0last=1\n" + PROMPT + b"exit\n")


@pytest.mark.parametrize(
    "line, outcome", [(b"FINISHED", BACKUP_FINISHED), (b"refused", BACKUP_FAILED)]
)
def test_backup_is_judged_by_a_log_over_2_gib(device, line, outcome):
    device.stand_in("wput", b"echo %s; truncate -s %d /tmp/auto-backup.log" % (line, OVER_2_GIB))
    assert transfer(device.log_in(), b"backup") == outcome
    assert not device.exists("/tmp/auto-backup.log")


def test_failed_restore_shows_the_beginning_of_a_log_over_2_gib(device):
    device.stand_in("wget", b"exit 1")
    device.stand_in(
        "backupconfig",
        b"echo refused >/tmp/restorelog.txt\ntruncate -s %d /tmp/restorelog.txt; exit 1"
        % OVER_2_GIB,
    )
    outcome = transfer(device.log_in(), b"restore")
    assert outcome.startswith(b"refused\n")
    assert outcome.endswith(RESTORE_FAILED)
