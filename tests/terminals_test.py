"""All kinds of terminals, typing and pasting. A command prints the same bytes everywhere; only what the
line editor adds differs: echo, prompt, control sequences."""

import os
import re
import termios

import pytest

from console import (
    END_SESSIONS,
    ENVIRONMENT,
    PASSWORD,
    PATIENCE,
    PROMPT,
    REFUSAL,
    SAVE_FILE,
    USER,
    WINDOW,
    wait_until,
)

LOGIN = USER + b"\n" + PASSWORD + b"\n"
UMLAUTS = "Grüße, 線路 ☎".encode()
LATIN_1 = b"Gr\xfc\xdfe"
TERMINALS = [None, "", "dumb", "no-such-terminal", "vt100", "xterm"]
WINDOWS = [(0, 0), (1, 1), (24, 80)]
COMMANDS = (
    *(b"list", b"help", b"help help", b"get sip", b"log_ls", b"show cm", b"show x"),
    *(b"a=1", b"b=2", b"save", b"save"),
)
PASTE_START = b"\x1b[200~"
PASTE_END = b"\x1b[201~"
PASTE_PATIENCE = 3 * PATIENCE

ESCAPE_SEQUENCE = re.compile(rb"\x1b(\[[0-9;?]*[ -/]*[@-~]|[()][0-9A-B]|[=>78MDEHc])|[\x00-\x20]")


@pytest.fixture(autouse=True)
def prepare(device):
    device.record_requests(
        answer=b"#ERRORname#VAL" + UMLAUTS + b"#MSG" + LATIN_1 + b"#END\\n",
        summary=b"VERSION=2.1.4\nname=" + UMLAUTS + b"\nother=" + LATIN_1 + b"\n",
    )
    device.write("/var/log/cm.log", b"tab\there, bell\x07, " + UMLAUTS + b"\n" + LATIN_1 + b"\n")
    device.write(
        "/etc/menutree.conf",
        b'ITEM /cgi-bin/sip.cgi {\n ACL = auto\n CAP = "' + UMLAUTS + b'"\n}\n'
        b'ITEM /cgi-bin/dns.cgi {\n ACL = auto\n CAP = "' + LATIN_1 + b'"\n}\n',
    )


def environment(term):
    others = {name: value for name, value in ENVIRONMENT.items() if name != "TERM"}
    return others if term is None else {**others, "TERM": term}


def printed_without_a_terminal(device):
    """Returns what each command prints in a session through a pipe."""
    output = device.run(LOGIN + b"".join(line + b"\n" for line in COMMANDS)).output
    _, *exchanges = output.split(b"\n" + PROMPT)
    printed = []
    for line, exchange in zip(COMMANDS, exchanges):
        echo, _, answer = exchange.partition(b"\n")
        assert echo == line
        printed.append(answer + b"\n" if answer else b"")
    return printed


def is_editing(console):
    """Returns whether the line editor controls the terminal and does the echo."""
    return not console.modes()[3] & termios.ICANON


def modes_of_a_new_terminal(prepare):
    ours, its = os.openpty()
    prepare(its)
    modes = termios.tcgetattr(its)
    os.close(ours)
    os.close(its)
    return modes


def log_in(console):
    # Narrow terminals wrap the prompt, so it cannot be waited for.
    console.read_until(b"Administrator\n\n")
    wait_until(lambda: is_editing(console))
    console.enter(USER)
    console.read_until(b"Password: ")
    console.enter(PASSWORD)
    wait_until(lambda: is_editing(console))


@pytest.mark.parametrize("window", WINDOWS, ids="{0[0]}x{0[1]}".format)
@pytest.mark.parametrize("term", TERMINALS)
def test_commands_print_the_same_on_every_terminal(device, term, window):
    expected = printed_without_a_terminal(device)
    assert UMLAUTS in b"".join(expected)
    console = device.console(environment=environment(term), window=window)
    log_in(console)
    for line, answer in zip(COMMANDS, expected):
        console.enter(line)
        if answer:
            before = console.read_until(answer)[: -len(answer)]
            # Before it comes the editor's own output, in whatever form: prompts and echo.
            shown = ESCAPE_SEQUENCE.sub(b"", before)
            assert set(shown) <= set(PROMPT + b"".join(COMMANDS))
        wait_until(lambda: is_editing(console))
    console.type(b"\x04")
    status, rest = console.end()
    assert status == 0
    assert console.modes() == console.modes_at_start()
    assert set(ESCAPE_SEQUENCE.sub(b"", rest)) <= set(PROMPT)


# With and without CLOCAL, the session must not change how the line is set.
@pytest.mark.parametrize("local", [True, False])
def test_serial_line_is_left_as_it_was_found(device, local):
    def prepare_line(terminal):
        modes = termios.tcgetattr(terminal)
        modes[2] = modes[2] | termios.CLOCAL if local else modes[2] & ~termios.CLOCAL
        modes[2] |= termios.HUPCL
        modes[4] = modes[5] = termios.B9600
        termios.tcsetattr(terminal, termios.TCSANOW, modes)

    expected = modes_of_a_new_terminal(prepare_line)
    printed = printed_without_a_terminal(device)
    console = device.console(prepare=lambda: prepare_line(0))
    console.log_in()
    for line, answer in zip(COMMANDS, printed):
        assert console.command(line) == answer
    assert console.leave() == 0
    assert console.modes() == expected


# What is typed


def saved(device, console):
    console.enter(b"save")
    console.read_until(b"Error in name")
    return device.read(SAVE_FILE).split(b"\n", 1)[1]


@pytest.mark.parametrize("term", ["dumb", "vt100", "xterm"])
@pytest.mark.parametrize("text", [UMLAUTS.replace(b" ", b""), LATIN_1, bytes(range(0x80, 0x100))])
def test_typed_setting_keeps_its_bytes(device, term, text):
    console = device.console(environment=environment(term))
    console.log_in()
    console.enter(b"name=" + text)
    assert saved(device, console) == b"name=" + text + b"\n"


# One by one, as on a slow line: the editor handles bytes that arrive together differently.
@pytest.mark.parametrize("text", [UMLAUTS.replace(b" ", b""), LATIN_1, bytes(range(0x80, 0x100))])
def test_setting_typed_slowly_keeps_its_bytes(device, text):
    console = device.console()
    console.log_in()
    console.type(b"name=")
    console.read_until(b"name=")
    for byte in text:
        console.type(bytes([byte]))
        console.read_until(bytes([byte]) if byte < 0x80 else b"\\%o" % byte)
    console.enter(b"")
    assert saved(device, console) == b"name=" + text + b"\n"


@pytest.mark.parametrize("text", [UMLAUTS, LATIN_1])
def test_typed_user_name_and_password_keep_their_bytes(device, text):
    device.write(
        "/tmp/acldb", b"section admin {\nuser_name=" + text + b"\npassword=" + text + b"\n}\n"
    )
    console = device.console()
    console.read_until(b"Username: ")
    console.enter(text)
    console.read_until(b"Password: ")
    console.enter(text)
    console.read_until(b"\n\n" + PROMPT)


# What is pasted


@pytest.mark.parametrize("term, window", [("dumb", WINDOW), ("xterm", (24, 80))])
def test_pasted_line_of_100000_characters_is_one_line(device, term, window):
    console = device.console(environment=environment(term), window=window)
    log_in(console)
    console.paste(b"a=1 " + b"x" * 100_000 + b"\r" + b"y" * 100_000 + b"\r", PASTE_PATIENCE)
    assert saved(device, console) == b"a=1\n"


def test_pasted_password_of_100000_characters_is_a_wrong_one(device):
    console = device.console()
    console.read_until(b"Username: ")
    console.enter(USER)
    console.read_until(b"Password: ")
    console.paste(b"x" * 100_000 + b"\r")
    console.read_until(REFUSAL + b"Username: ")
    console.enter(USER)
    console.read_until(b"Password: ")
    console.enter(PASSWORD)
    console.read_until(PROMPT)


@pytest.mark.parametrize("term", ["dumb", "xterm"])
def test_pasted_10000_lines_are_all_handled(device, term):
    console = device.console(environment=environment(term))
    log_in(console)
    lines = b"".join(b"s%d=1\r" % number for number in range(10_000))
    console.paste(lines, PASTE_PATIENCE)
    assert saved(device, console) == b"".join(b"s%d=1\n" % number for number in range(9900, 10_000))


SETTINGS = [b"part.%02d=value-%d" % (number, number) for number in range(100)]


# The start-up file cannot turn on bracketed paste, and the marks of a terminal that sends them anyway
# are ignored.
@pytest.mark.parametrize("speed", [960, None], ids=["9600", "full speed"])
@pytest.mark.parametrize("marked", [False, True], ids=["", "marked"])
@pytest.mark.parametrize("term", ["xterm", "vt100", "linux"])
def test_pasted_settings_are_saved_whole(device, term, marked, speed):
    device.write("/.inputrc", b"set enable-bracketed-paste on\n")
    console = device.console(environment=environment(term), window=(24, 80))
    log_in(console)
    lines = b"\r".join(SETTINGS) + b"\r"
    console.paste(PASTE_START + lines + PASTE_END if marked else lines, PASTE_PATIENCE, speed)
    assert saved(device, console) == b"\n".join(SETTINGS) + b"\n"
    console.enter(b"exit")
    assert console.end()[0] == 0
    assert b"\x1b[?2004" not in console.screen


def test_pasted_line_feeds_end_lines(device):
    console = device.console(environment=environment("xterm"))
    console.log_in()
    console.paste(b"\n".join(SETTINGS) + b"\n", PASTE_PATIENCE)
    assert saved(device, console) == b"\n".join(SETTINGS) + b"\n"


@pytest.mark.skipif(END_SESSIONS, reason="sanitizers and valgrind need more stack")
@pytest.mark.parametrize("terminal", ["dumb", "vt100", "xterm-256color"])
def test_stack_of_128_kib_is_enough(device, terminal):
    device.record_calls("wput", b"echo FINISHED")
    typed = LOGIN + b"\n".join(COMMANDS) + b"\nbackup\nh\n1\np\nu\nw\nexit\n"
    limited = f"ulimit -s 128 && TERM={terminal} exec /bin/tessel"
    result = device.run(typed, "/bin/sh", "-c", limited)
    assert result.status == 0
    assert b"Configuration backup finished!\n" in result.output
