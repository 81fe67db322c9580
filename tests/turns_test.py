"""Sessions take turns using the files that they share with the back end."""

import contextlib
import fcntl
import os
import signal
from pathlib import Path

import pytest

from console import PATIENCE, PROMPT, SAVE_FILE, SHELL, SUMMARY_FILE, wait_until
from secrets_test import shell_process

SESSIONS = 20
ROUNDS = 15
TITLES = [b"ITEM part%d {\nACL = auto\nCAP = \"Part %d\"\n}\n" % (n, n) for n in range(SESSIONS)]
# Slow enough for other sessions to interfere.
BACK_END = (
    b"case $PATH_INFO in\n"
    b"putconf.cgi) sleep .01; cat " + SAVE_FILE.encode() + b" >>/record/saved ;;\n"
    b"getconfsummary.cgi) echo VERSION=1 >" + SUMMARY_FILE.encode() + b"\n"
    b'echo "${QUERY_STRING##*=} it is" >>' + SUMMARY_FILE.encode() + b"; sleep .01 ;;\n"
    b"esac\n"
)
# All sessions run at once; meanwhile, others are stopped for a moment and then killed.
SCRIPT = f"""
sessions=
for n in $(seq 0 {SESSIONS - 1}); do
    {SHELL} </record/in.$n >/record/out.$n 2>/dev/null &
    sessions="$sessions $!"
done
while :; do
    for pause in .03 .11 .05 1.2 .17; do
        {SHELL} </record/in.victim >>/record/out.victim 2>/dev/null &
        sleep $pause; kill -STOP $!; sleep .04; kill -CONT $!; sleep .02; kill -KILL $!
    done
done &
killer=$!
wait $sessions
kill $killer
""".encode()


@contextlib.contextmanager
def turn(device):
    """Holds the turn, as another session would, within a with statement."""
    folder = os.open(device.path("/tmp"), os.O_RDONLY)
    try:
        fcntl.flock(folder, fcntl.LOCK_EX)
        yield
    finally:
        os.close(folder)


def wait_for_turn(device):
    """Returns when the shell is waiting for its turn: it has opened the folder and sleeps. A signal that
    comes before would not end the wait."""
    process = shell_process(device)
    folder = os.stat(device.path("/tmp")).st_ino
    wait_until(lambda: folder in _open_files(process) and _sleeps(process))


def _sleeps(process):
    return Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0] == "S"


def _open_files(process):
    files = set()
    for name in os.listdir(f"/proc/{process}/fd"):
        with contextlib.suppress(OSError):  # closed meanwhile
            files.add(os.stat(f"/proc/{process}/fd/{name}").st_ino)
    return files


def write_session(device, number):
    lines = [b"admin", b"gateway"]
    for count in range(ROUNDS):
        lines += [b"s%d_%d=1" % (number, count), b"save", b"get part%d" % number]
    device.write(f"/record/in.{number}", b"\n".join([*lines, b"exit", b""]))


def test_twenty_sessions_lose_no_setting_and_print_no_other_part(device):
    device.stand_in("fcgiclient", BACK_END)
    device.write("/etc/menutree.conf", b"".join(TITLES))
    for number in range(SESSIONS):
        write_session(device, number)
    device.write("/record/in.victim", b"admin\ngateway\n" + 500 * b"v=1\nsave\nget part0\n")
    device.write("/record/play", SCRIPT)
    device.run(b"", "/usr/bin/sh", "/record/play", patience=10 * PATIENCE)
    saved = [line for line in device.read("/record/saved").split() if b"_" in line]
    assert sorted(saved) == sorted(
        b"s%d_%d=1" % (n, i) for n in range(SESSIONS) for i in range(ROUNDS)
    )
    for number in range(SESSIONS):
        text = b"\nPart %d\n\npart%d it is\n\n\n" % (number, number)
        output = device.read(f"/record/out.{number}")
        assert output.count(b" it is\n") == output.count(text) == ROUNDS
    assert b"part0 it is" in device.read("/record/out.victim"), "no killed session had a turn"


@pytest.mark.parametrize("line", [b"save", b"get sip"])
def test_session_waits_for_its_turn_silently(device, line):
    device.record_requests(summary=b"VERSION=1\nx=1\n", answer=b"x=1\n")
    console = device.log_in()
    console.command(b"a=1")
    with turn(device):
        console.enter(line)
        wait_for_turn(device)
        assert device.requests() == []
    console.read_until(b"\n" + PROMPT)
    heading = b"\nSIP settings\n\n" if line == b"get sip" else b""
    assert console.last_exchange.startswith(line + b"\n" + heading + b"x=1\n")
    assert console.leave() == 0


@pytest.mark.parametrize("line", [b"save", b"get sip"])
def test_interrupt_ends_the_wait_and_keeps_the_settings(device, line):
    device.record_requests()
    console = device.log_in()
    console.command(b"a=1")
    with turn(device):
        console.enter(line)
        wait_for_turn(device)
        console.type(b"\x03")
        console.read_until(b"\n" + PROMPT)
        assert device.requests() == []
    console.command(b"save")
    assert device.read(SAVE_FILE).endswith(b"\na=1\n")


def test_request_to_end_ends_the_wait_and_the_logout_does_not_wait(device):
    device.record_requests()
    console = device.log_in()
    console.command(b"a=1")
    with turn(device):
        console.enter(b"save")
        wait_for_turn(device)
        os.kill(int(shell_process(device)), signal.SIGTERM)
        assert console.end()[0] == 0
        assert [request["PATH_INFO"] for request in device.requests()] == ["logout.cgi"]


def test_turn_ends_even_if_the_client_leaves_a_process_behind(device):
    device.stand_in("fcgiclient", b"sleep 1000 >/dev/null 2>&1 &\n")
    console = device.log_in()
    console.command(b"get sip")
    console.command(b"get sip")
    assert console.leave() == 0


def test_turn_of_a_killed_session_ends(device):
    os.mkfifo(device.path("/record/busy"))
    device.stand_in("fcgiclient", b"[ $PATH_INFO = logout.cgi ] || : >/record/busy\n")
    console = device.log_in()
    console.enter(b"get sip")
    wait_for_turn(device)
    os.kill(int(shell_process(device)), signal.SIGKILL)
    console.end()
    with turn(device):
        pass
