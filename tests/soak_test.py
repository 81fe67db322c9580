"""A session of 10,000 commands: memory, open files and children do not grow with it."""

from dataclasses import dataclass

import programs
from console import ENVIRONMENT, PROMPT

COMMANDS = 10_000
WARM_UP = 1_000
# Bytes that a line takes in the line editor's history: a block each for the line, its time and its entry,
# and space in an array that doubles in size.
HISTORY = 128
PAGE = 4096
PATIENCE = 600

# One command in five starts other programs.
ROUND = [
    b"list",
    b"get sip",
    b"a=1",
    b"b=2 and more",
    b"help",
    b"help nothing",
    b"log_ls",
    b"show nothing",
    b"get nothing",
    b"get ext_forward 999",
    b"get",
    b"c=3",
    b"w" * 300,
    b"show",
    b"",
    b"save",
    b"save",
    b"show cm",
    b"get ext_forward 201",
]
BACKUP = [b"backup", b"10.0.0.1", b"21", b"/b", b"user", b"secret"]
RESTORE = [b"restore", b"10.0.0.1", b"21", b"/b", b"user", b"secret"]

# When the part "measured" is requested, records the shell's memory, open files and children.
CLIENT = rb"""
case $QUERY_STRING in
*parampattern=measured)
    for process in /proc/[0-9]*; do
        read -r name <"$process/comm" || continue
        [ "$name" = tessel ] || continue
        shell=${process#/proc/}
        while read -r key value rest; do
            [ "$key" != VmRSS: ] || resident=$value
        done <"$process/status"
        # The shell continues meanwhile, and closes the descriptors with which it started this client.
        tries=0
        while set -- "$process"/fd/* && [ $# -gt 5 ] && [ $tries -lt 1000 ]; do
            /usr/bin/sleep 0.01
            tries=$((tries + 1))
        done
        descriptors=$#
    done
    children=0
    for process in /proc/[0-9]*; do
        while read -r key value; do
            [ "$key $value" != "PPid: $shell" ] || children=$((children + 1))
        done <"$process/status"
    done 2>/dev/null
    echo "$resident $descriptors $children" >>/record/measured
    ;;
*cgiaction=Start*) printf 'VERSION=1\nx=1\n' >/tmp/script_legconftmp.txt ;;
esac
printf '#ERRORa#VAL1#MSGno#END\n'
"""


@dataclass
class Held:
    resident: int  # kB
    descriptors: int
    children: int


def commands():
    """Returns the lines of 10,000 commands. A measurement ends the warm-up, and another the rest."""
    lines = []
    for number in range(1, COMMANDS + 1):
        if number in (WARM_UP, COMMANDS):
            lines.append(b"get measured")
        elif number % 100 == 50:
            lines.extend(BACKUP)
        elif number % 100 == 0:
            lines.extend(RESTORE)
        else:
            lines.append(ROUND[number % len(ROUND)])
    return lines


def test_ten_thousand_commands_leak_no_memory_files_or_children(device):
    menu_tree = device.read("/etc/menutree.conf")
    device.write("/etc/menutree.conf", menu_tree + b"\nITEM measured.cgi {\nACL = auto\n}\n")
    device.stand_in("fcgiclient", CLIENT)
    device.stand_in("wput", b"echo FINISHED")
    device.stand_in("wget", b"echo archive")
    device.stand_in("backupconfig", b"read -r archive; echo restored >/tmp/restorelog.txt")
    device.stand_in("reboot", b"")
    lines = commands()
    session = programs.run(
        device.start_command(),
        input=b"\n".join([b"admin", b"gateway", *lines, b"exit\n"]),
        capture_output=True,
        env=ENVIRONMENT,
        timeout=PATIENCE,
    )
    assert session.returncode == 0, session.stderr
    questions = 4 * (lines.count(b"backup") + lines.count(b"restore"))
    assert session.stdout.count(PROMPT) == COMMANDS + 1 + questions

    notes = device.read("/record/measured").splitlines()
    warm, end = (Held(*map(int, note.split())) for note in notes)
    assert (warm.children, end.children) == (1, 1)
    # The standard streams, the folder on which the turn's lock is held, and the pipe to the client.
    assert (warm.descriptors, end.descriptors) == (5, 5)
    grown = 1024 * (end.resident - warm.resident)
    assert grown <= HISTORY * (len(lines) - WARM_UP) + 16 * PAGE, f"{warm} has become {end}"
