"""No answer to a question of backup or restore runs a command, neither in the interpreter that runs
the command line nor in the one that wput starts for its input command, with parts of the address in
double quotes. Nor does an answer make an FTP client send a command to the server. The FTP clients and
the server are real, and the server accepts any login.

The commands in the answers create a file in the current folder and contain no slash, which would end
that part of the address. Most answers skip the dialogue, to save time: the product's own function
makes command lines of thousands of them.
"""

import ast
import re

import pytest

import programs
from backup_test import BACKUP_FAILED, BACKUP_FINISHED, RESTORE_FAILED, RESTORE_FINISHED, questions
from console import PROGRAM_DIR, PROMPT, SOURCE_DIR

TOOLS = SOURCE_DIR / "tests" / "tools"
RUNNER = "/record/run_command_lines"
LINES = "/record/lines"

PLACES = ("server", "port", "path", "user", "password")
GOOD = {
    "server": "127.0.0.1",
    "port": "2121",
    "path": "dir",
    "user": "user",
    "password": "pw",
}

SUBSTITUTIONS = (
    "$(touch canary)",
    "`touch canary`",
    "$(touch${IFS}canary)",
    "`>canary`",
    "${x:-$(touch canary)}",
    "~$(touch canary)",
    "\\$(touch canary)",
    "\\\\$(touch canary)",
    "\\`touch canary\\`",
    "$((x[$(touch canary)]))",
)
# What might end the quotes around an answer, and what might then begin a command.
ENDS_OF_QUOTES = ("", "'", '"', '\\"', "\\'")
COMMANDS = (
    ";touch canary;",
    "&touch canary&",
    "|touch canary|",
    "||touch canary #",
    "\ntouch canary\n",
    "\n\ttouch\tcanary\n",
    ">canary ",
    " >canary <",
    ";(touch canary);",
    ";{ touch canary;};",
    ";! touch canary;",
    ";/usr/bin/touc? canary;",
    "\n/usr/bin/[t]ouc* canary\n",
    "$(touch canary)",
    "`touch canary`",
)
SPECIAL = "\t\n !\"#$&'()*;<>?[\\]`{|}~"
HALF_ESCAPES = ("%", "%1K", "%2", "%%", "%2$", "%\\", "%g", "%5", "%6")


def escaped(text, characters=SPECIAL, form="%{:02X}"):
    return "".join(form.format(ord(c)) if c in characters else c for c in text)


def payloads():
    """Returns the texts to type, without duplicates."""
    typed = list(SUBSTITUTIONS)
    typed += [end + command + end for end in ENDS_OF_QUOTES for command in COMMANDS]
    texts = list(typed)
    texts += [escaped(text) for text in typed]
    texts += [escaped(text, '$`"\\', "%{:02x}") for text in typed]
    texts += [escaped(text, form="%25{:02X}") for text in SUBSTITUTIONS]
    texts += [half + text for half in HALF_ESCAPES for text in SUBSTITUTIONS[:2]]
    texts += ["%{}24(touch canary)", "%2%34(touch canary)", "%%3234(touch canary)"]
    return list(dict.fromkeys(texts))


# Answers that shift the parts of the address: X is in a part other than the one that was asked for.
SHIFTED = (
    {"server": "X@127.0.0.1", "user": "", "password": ""},
    {"server": "X:y@127.0.0.1", "user": "", "password": ""},
    {"server": "xX:y@127.0.0.1"},
    {"server": "u;X:p@127.0.0.1", "user": ""},
    {"server": "127.0.0.1@X"},
    {"server": "127.0.0.1:2121/X", "port": "", "path": ""},
    {"server": "127.0.0.1:2121/X", "port": "21"},
    {"server": "", "port": "", "path": ".X@127.0.0.1:2121/x", "user": ""},
    {"server": "", "port": "", "path": ".X:z@127.0.0.1:2121/x", "user": ""},
    {"server": "", "port": "", "path": "./X", "user": "127.0.0.1:2121"},
    {"port": "2121/X", "path": ""},
    {"port": "2121@X"},
    {"port": "X@127.0.0.1:2121"},
    {"port": "x@127.0.0.1:2121/X"},
    {"port": "X:p@127.0.0.1:2121", "user": ""},
    {"path": "//X//"},
    {"path": "x@y/X"},
    {"path": "/X@127.0.0.1:2121/z"},
    {"path": "X;type=a"},
    {"path": "x;type=X"},
    {"path": "x?X"},
    {"path": "x#X"},
    {"path": ".X", "port": ""},
    {"path": "../X"},
    {"user": "127.0.0.1", "password": "2121/X"},
    {"user": "127.0.0.1/", "password": "X"},
    {"user": "127.0.0.1:2121/", "password": "X"},
    {"user": "127.0.0.1:2121/X", "password": ""},
    {"user": "u@X"},
    {"user": "X@v"},
    {"user": "a:bX"},
    {"user": "X:b"},
    {"user": "X:b@127.0.0.1:2121/X"},
    {"user": "ftp://X"},
    {"password": "p@127.0.0.1:2121/X"},
    {"password": "X@127.0.0.1:2121/X"},
    {"password": "X@X"},
    # A backslash that escapes the closing quote swaps quoted and unquoted text.
    {"user": "u\\", "path": "X"},
    {"user": "u%5C", "path": "X"},
    {"user": "u%5c", "path": "X"},
    {"user": "X\\", "path": "X\\"},
)
# Texts that run a command in wput's interpreter if they are not escaped.
DANGEROUS = (
    "$(touch canary)",
    "`touch canary`",
    '";touch canary;"',
    ";touch canary #",
    '\\$(touch canary)"',
    '\\";touch canary;\\"',
    "%24(touch canary)",
    "%24%28touch%20canary%29",
    "%60touch%20canary%60",
    "%22;touch canary;%22",
    "%22%0atouch canary%0a%22",
    "%2524(touch canary)",
    "%5c%22;touch canary;%5c%22",
    "%5C$(touch canary)",
    "%$(touch canary)",
    "%2$(touch canary)",
    "%1K$(touch canary)",
)


def shifted(answers, text):
    return {**GOOD, **{place: value.replace("X", text) for place, value in answers.items()}}


def command_lines(direction, cases):
    """Returns the product's command lines for these answers."""
    texts = [text for case in cases for text in (direction, *(case[place] for place in PLACES))]
    printed = programs.run(
        [PROGRAM_DIR / "tests" / "print_transfer_command"],
        input="".join(text + "\0" for text in texts).encode(),
        stdout=programs.PIPE,
        check=True,
        timeout=60,
    ).stdout
    lines = printed.split(b"\0")[:-1]
    assert len(lines) == len(cases)
    return lines


def careless_lines(cases):
    """Returns command lines of backups that are quoted only for the interpreter that runs them, which
    is how the address in the command line of a restore is quoted."""
    head, tail = b"/bin/wget -nv -t 3 --passive-ftp ", b" -O - |"
    addresses = (line[len(head) : line.index(tail)] for line in command_lines("restore", cases))
    return [
        b'wput -B -t 3 -I "backupconfig -b -d stdout" ' + address + b"/x.bin >/dev/null 2>&1"
        for address in addresses
    ]


def make_open_device(device):
    """Starts an FTP server that accepts any login, for clients that do not wait between attempts."""
    device.serve_ftp("--any-login --log-lines")
    # If two clients created the folder at once, one of them would fail.
    device.make_folder("/home/backup/dir")
    device.write("/etc/wputrc", b"wait_retry = 0\n")
    device.write("/etc/wgetrc", b"waitretry = 0\n")


def cases_that_ran(device, lines, cases, locale="C"):
    """Runs the command lines on the device. Returns the cases in which an answer ran a command."""
    make_open_device(device)
    # The content of the backup does not matter here, and a real one takes longer than the rest.
    device.stand_in("backupconfig", b"echo backup\n")
    device.write(RUNNER, (TOOLS / "run_command_lines").read_bytes(), mode=0o755)
    device.write(LINES, b"".join(line + b"\0" for line in lines))
    start = ("/usr/bin/env", f"LC_ALL={locale}", "/usr/bin/python3", RUNNER, LINES)
    result = device.run(b"", *start, patience=120)
    *numbers, end, count = result.output.split()
    assert (result.status, end, int(count)) == (0, b"ran", len(cases)), result
    return [cases[int(number)] for number in numbers]


def logins(device):
    """Returns the number of logins at the FTP server."""
    return device.read("/var/log/ftp.log").count(b"\nlogin ")


@pytest.mark.parametrize("direction", ["backup", "restore"])
@pytest.mark.parametrize("place", PLACES)
def test_command_in_an_answer_does_not_run(device, place, direction):
    cases = [{**GOOD, place: text} for text in payloads()]
    assert cases_that_ran(device, command_lines(direction, cases), cases) == []
    if place in ("path", "user", "password"):
        assert logins(device) > len(cases) / 2, "the answers did not get as far as the server"


@pytest.mark.parametrize("direction", ["backup", "restore"])
def test_command_in_an_address_with_shifted_parts_does_not_run(device, direction):
    cases = [shifted(answers, text) for answers in SHIFTED for text in DANGEROUS]
    assert cases_that_ran(device, command_lines(direction, cases), cases) == []
    assert logins(device) > len(cases) / 4, "the answers did not get as far as the server"


# Typed at the console; keys that the line editor would handle are quoted

QUOTED = b"\x16"  # Ctrl-V takes the next key literally
TYPED = (
    b"$(touch ran)",
    b"`touch ran`",
    b'";touch ran;"',
    b"';touch ran;'",
    b'\\";touch ran;\\"',
    b"\n\ttouch\tran\n",
    b"%24(touch ran)",
    b"%22;touch ran;%22",
    b"%60touch ran%60",
    b" & touch ran | touch ran > ran # ",
    b"!$(touch ran)!!",
)
# At the password question the terminal itself handles the keys: a line feed ends the line.
TYPED_AS_PASSWORD = [text for text in TYPED if b"\n" not in text]


def keys(text):
    """Returns the keys to press for a text."""
    return text.replace(b"\n", QUOTED + b"\n").replace(b"\t", QUOTED + b"\t")


@pytest.mark.parametrize("command", [b"backup", b"restore"])
@pytest.mark.parametrize("place", PLACES)
def test_command_typed_as_an_answer_does_not_run(device, place, command):
    make_open_device(device)
    console = device.log_in()
    texts = TYPED_AS_PASSWORD if place == "password" else TYPED
    for text in texts:
        answers = {**GOOD, place: text.decode()}
        console.enter(command)
        for question, name in zip(questions(command), PLACES):
            console.read_until(question)
            console.enter(keys(answers[name].encode()))
        outcome = console.read_until(b"!\n" + PROMPT)
        assert outcome[: -len(PROMPT)].endswith((BACKUP_FINISHED, BACKUP_FAILED, RESTORE_FAILED))
        assert not device.exists("/ran"), text
    if place in ("path", "user", "password"):
        assert logins(device) > len(texts) / 2, "the answers did not get as far as the server"


# Proof that the tests above can fail


@pytest.mark.parametrize(
    "answers, form",
    [
        ({"server": "X@127.0.0.1", "user": "", "password": ""}, "decoded"),
        ({"server": "127.0.0.1:2121/X"}, "as typed"),
        ({"port": "x@127.0.0.1:2121/X"}, "as typed"),
        ({"path": "X"}, "as typed"),
        ({"path": "dir/X/b"}, "as typed"),
        ({"user": "X"}, "decoded"),
        ({"user": "X@v"}, "decoded"),
        ({"user": "127.0.0.1:2121/", "password": "X"}, "as typed"),
    ],
)
def test_commands_run_without_quoting_for_wputs_interpreter(device, answers, form):
    typed = ["$(touch canary)", "`touch canary`", '";touch canary;"']
    runs = typed + ([escaped(text) for text in typed] if form == "decoded" else [])
    cases = [shifted(answers, text) for text in runs]
    assert cases_that_ran(device, careless_lines(cases), cases) == cases


def test_commands_run_without_escaping_a_backslash_before_the_quote(device):
    # A folder for each client: if two created the same one at once, one of them would fail.
    path = "dir/{};touch canary #"
    users = ("u\\", "u%5C", "u%5c")
    cases = [{**GOOD, "user": u, "path": path.format(i)} for i, u in enumerate(users)]
    assert cases_that_ran(device, careless_lines(cases), cases) == cases


@pytest.mark.parametrize("direction", ["backup", "restore"])
def test_commands_run_without_quoting_for_the_command_interpreter(device, direction):
    cases = [{**GOOD, place: ";touch canary;"} for place in PLACES]
    lines = [line.replace(b"'", b"") for line in command_lines(direction, cases)]
    assert cases_that_ran(device, lines, cases) == cases


# What the FTP clients send to the server

LINE_ENDS = (
    "\n",
    "\r",
    "\r\n",
    "%0a",
    "%0D",
    "%0d%0A",
    "%250a",
    "%250D%250A",
    "%%30a",
    "%25%30%61",
    "%0%61",
    "%00\n",
    "%25\n0a",
)
FTP_LINE = re.compile(
    rb"(?:AUTH|USER|PASS|SYST|PWD|TYPE|CWD|CDUP|MKD|SIZE|PASV|EPSV|PORT|EPRT|LIST|REST|RETR|STOR|QUIT)"
    rb"(?: [^\r\n]*)?"
)


def ftp_lines(device):
    """Returns the lines that the server received."""
    log = device.read("/var/log/ftp.log").decode().splitlines()
    return [ast.literal_eval(line[len("line ") :]) for line in log if line.startswith("line ")]


def injected(device):
    """Returns the lines that begin within an answer. wget turns line ends into blanks; this counts too."""
    return [line for line in ftp_lines(device) if not FTP_LINE.fullmatch(line) or b" DELE" in line]


def with_line_ends(form="x{}DELE"):
    texts = [form.format(end) for end in LINE_ENDS]
    straight = [{**GOOD, place: text} for place in PLACES for text in texts]
    return straight + [shifted(answers, text) for answers in SHIFTED for text in texts]


@pytest.mark.parametrize("locale", ["C", "C.UTF-8"])
@pytest.mark.parametrize("direction", ["backup", "restore"])
def test_no_answer_sends_an_extra_line_to_the_server(device, direction, locale):
    cases = with_line_ends()
    assert cases_that_ran(device, command_lines(direction, cases), cases, locale) == []
    assert injected(device) == []
    sent = ftp_lines(device)
    if direction == "backup":
        # wput fails before it creates a folder named after the rest.
        assert sent == []
    else:
        assert len(sent) > len(cases), "the answers did not get as far as the server"


@pytest.mark.parametrize("place", ["path", "user", "password"])
def test_extra_lines_are_sent_without_treating_line_ends(device, place):
    ends = ("\n", "\r\n", "%0a", "%0D%0A")
    (line,) = command_lines("backup", [{**GOOD, place: "x<END>DELE"}])
    lines = [line.replace(b"<END>", end.encode()) for end in ends]
    assert cases_that_ran(device, lines, [{}] * len(lines)) == []
    assert len(injected(device)) >= len(lines)


@pytest.mark.parametrize("place", ["path", "user", "password"])
def test_blanks_are_sent_without_treating_line_ends(device, place):
    ends = ("\n", "\r\n", "%0a", "%0D%0A", "%250a")
    (line,) = command_lines("restore", [{**GOOD, place: "x<END>DELE"}])
    lines = [line.replace(b"<END>", end.encode()) for end in ends]
    assert cases_that_ran(device, lines, [{}] * len(lines)) == []
    assert len(injected(device)) >= len(lines)


@pytest.mark.parametrize("place", PLACES)
def test_transfer_with_a_line_end_in_an_answer_fails(device, place):
    make_open_device(device)
    console = device.log_in()

    def transfer(command, answers):
        console.enter(command)
        for question, name in zip(questions(command), PLACES):
            console.read_until(question)
            console.enter(keys(answers[name].encode()))
        console.read_until(b"Configuration ")
        return b"Configuration " + console.read_until(PROMPT)[: -len(PROMPT)]

    assert transfer(b"backup", GOOD) == BACKUP_FINISHED
    (archive,) = device.path("/home/backup/dir").iterdir()
    answers = {**GOOD, "path": f"dir/{archive.name}"}
    assert transfer(b"restore", answers) == RESTORE_FINISHED
    for end in ("%0a", "%250D", "\n"):
        if place == "password" and end == "\n":
            continue  # ends the answer
        assert transfer(b"backup", {**GOOD, place: GOOD[place] + end}) == BACKUP_FAILED
        ended = {**answers, place: answers[place] + end}
        assert transfer(b"restore", ended) == RESTORE_FAILED
    assert list(device.path("/home/backup").rglob("*.*")) == [archive]
    assert injected(device) == []
