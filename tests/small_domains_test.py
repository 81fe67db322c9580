"""Exhaustive tests: every short answer to every question of a transfer, made of characters that are special
in a command interpreter, an address or a decoder. The interpreter splits each command line, and the line
that wput makes of the address for its input command, into exactly the intended words: nothing else runs.

Answers are up to two characters long; TESSEL_ANSWER_LENGTH=4 tries all up to four, 3.5 million.
"""

import itertools
import os
import re
import shutil
import tempfile

import pytest

import programs
from console import PATIENCE
from injection_test import GOOD, PLACES, cases_that_ran, command_lines, make_open_device, shifted

LENGTH = int(os.environ.get("TESSEL_ANSWER_LENGTH") or 2)
CHARACTERS = "'\"\\$`;&|>(*#~ \n%240a@:/."
AT_ONCE = 20_000
# The interpreters of Debian and of small devices; those installed are used.
SHELLS = [["sh"], ["bash", "--posix", "-O", "failglob"], ["busybox", "sh"]]

FILE = "config_2025-3-7_0905.bin"
HEADS = {
    "backup": b'wput -B -t 3 -I "backupconfig -b -d stdout" ',
    "restore": b"/bin/wget -nv -t 3 --passive-ftp ",
}
TAILS = {
    "backup": b" > /tmp/auto-backup.log 2>&1",
    "restore": b" -O - | /bin/backupconfig -r -s stdin -l /tmp/restorelog.txt",
}
WORDS_BEFORE = {
    "backup": [b"wput", b"-B", b"-t", b"3", b"-I", b"backupconfig -b -d stdout"],
    "restore": [b"/bin/wget", b"-nv", b"-t", b"3", b"--passive-ftp"],
}

ACTIVE = rb'[$`"\\]'
ESCAPE = re.compile(rb"%([0-9a-fA-F]{2})")
LINE_END = re.compile(rb"[\r\n\0]")
# Active characters, literal or encoded, and percent signs that decoders treat differently.
HARMFUL = re.compile(ACTIVE + rb"|%(?=24|60|22|5[cC])|%(?![0-9a-fA-F]{2})")


def answers():
    for length in range(LENGTH + 1):
        for characters in itertools.product(CHARACTERS, repeat=length):
            yield "".join(characters)


def chunks(texts):
    texts = iter(texts)
    while chunk := list(itertools.islice(texts, AT_ONCE)):
        yield chunk


def decoded(text):
    return ESCAPE.sub(lambda escape: bytes([int(escape[1], 16)]), text)


def escaped(text):
    return re.sub(ACTIVE, lambda c: b"%%%02X" % c[0][0], text)


def escaped_twice(text):
    return HARMFUL.sub(lambda c: b"%25" + (b"" if c[0] == b"%" else b"%02X" % c[0][0]), text)


def typed_address(direction, case):
    user = case["user"] + (":" + case["password"] if case["password"] else "") + "@"
    port = ":" + case["port"] if case["port"] else ""
    slash = "" if case["path"][:1] in ("", "/", ".") else "/"
    address = "ftp://" + (user if case["user"] else "") + case["server"] + port + slash + case["path"]
    if direction == "backup":
        address += ("" if address.endswith("/") else "/") + FILE
    return address.encode()


def disarmed(address):
    """Returns the address with active characters encoded so that wput's interpreter sees none."""
    authority, slash, path = address.removeprefix(b"ftp://").partition(b"/")
    login, at, server = authority.rpartition(b"@")
    user, colon, password = login.partition(b":")
    return b"ftp://%b%b%b%b%b%b" % (
        escaped_twice(user), colon, password, at, escaped_twice(server), slash + escaped(path)
    )  # fmt: skip


def meant_address(direction, case):
    """Returns the intended address for the FTP client: one with a line end is made to fail."""
    address = typed_address(direction, case)
    once = decoded(address)
    if any(map(LINE_END.search, (address, once, decoded(once)))):
        address = re.sub(rb"[%\r\n\0]", b"%2525", address)
        address += b"%" if direction == "backup" else b"%2525"
    return disarmed(address) if direction == "backup" else address


def words(shell, lines):
    """Returns the words into which the interpreter splits each line. It finds no programs to run."""
    script = b"p() { printf '%s\\0' \"$@\" ''; }\n" + b"".join(b"p " + line + b"\n" for line in lines)
    with tempfile.NamedTemporaryFile() as file:  # standard input would be read byte by byte
        file.write(script)
        file.flush()
        done = programs.run(
            ["/usr/bin/env", "-i", "PATH=/nowhere", shutil.which(shell[0]), *shell[1:], file.name],
            capture_output=True,
            timeout=20 * PATIENCE,
        )
    assert (done.returncode, done.stderr) == (0, b"")
    # The only empty word of a line is the last one, which p adds.
    return [line.split(b"\0") for line in done.stdout.split(b"\0\0")[:-1]]


def installed_shells():
    return [shell for shell in SHELLS if shutil.which(shell[0])]


def quoted_tail(direction):
    """Returns the tail of a command line with its operators quoted, and its words."""
    tail = re.sub(rb"(\S*[>|&]\S*)", rb"'\1'", TAILS[direction])
    return tail, TAILS[direction].split()


def check(direction, cases):
    lines = command_lines(direction, cases)
    head, tail = HEADS[direction], TAILS[direction]
    assert all(line.startswith(head) and line.endswith(tail) for line in lines)
    quoted, words_after = quoted_tail(direction)
    addresses = [meant_address(direction, case) for case in cases]
    expected = [[*WORDS_BEFORE[direction], address, *words_after] for address in addresses]
    # The text after the address is constant, so its operators need not be executed.
    parsed = [line[: -len(tail)] + quoted for line in lines]
    for shell in installed_shells():
        assert words(shell, parsed) == expected
    if direction == "backup":
        check_input_commands(addresses)


def input_command(address):
    """Returns the line that wput's interpreter runs, and the words that it should have."""
    authority, _, path = address.removeprefix(b"ftp://").partition(b"/")
    login, at, server = authority.rpartition(b"@")
    user = decoded(login.partition(b":")[0]) if at else b"anonymous"
    host, _, port = server.partition(b":")
    number = re.match(rb"\d*", port)[0] or (b"0" if port else b"21")
    folder, _, name = path.rpartition(b"/")
    texts = [user, decoded(host), folder.removeprefix(b"/"), name]
    before, after = b"backupconfig -b -d stdout ftp", [b'"%b"' % text for text in texts]
    line = b" ".join([before, *after[:2], number, *after[2:]])
    return line, [*before.split(), *texts[:2], number, *texts[2:]]


def check_input_commands(addresses):
    commands = [input_command(address) for address in dict.fromkeys(addresses)]
    # An empty word would look like the end of the line.
    lines = [line.replace(b'""', b"-") for line, _ in commands]
    expected = [[text or b"-" for text in texts] for _, texts in commands]
    for shell in installed_shells():
        assert words(shell, lines) == expected


@pytest.mark.parametrize("direction", ["backup", "restore"])
@pytest.mark.parametrize("place", PLACES)
def test_interpreter_sees_the_intended_words(place, direction):
    count = 0
    for texts in chunks(answers()):
        check(direction, [{**GOOD, place: text} for text in texts])
        count += len(texts)
    assert count == sum(len(CHARACTERS) ** length for length in range(LENGTH + 1))


# Answers for which wput gets as far as running its input command.
REACHING = (
    {"user": "X"},
    {"password": "X"},
    {"path": "X"},
    {"server": "X@127.0.0.1", "user": ""},
    {"port": "2121/X"},
)


@pytest.mark.parametrize("answers_with_x", REACHING, ids=lambda answers: next(iter(answers)))
def test_predicted_input_command_is_the_one_that_wput_runs(device, answers_with_x):
    make_open_device(device)
    device.record_command_lines()
    texts = ["".join(text) for text in itertools.product(CHARACTERS, repeat=2)]
    cases = [shifted(answers_with_x, text) for text in ["a%41b", "%4", *texts[::5]]]
    assert cases_that_ran(device, command_lines("backup", cases), cases) == []
    expected = {input_command(meant_address("backup", case))[0] for case in cases}
    ran = [line for line in device.command_lines() if line.startswith(b"backupconfig -b")]
    assert set(ran) <= expected
    assert len(ran) > len(cases) / 2
