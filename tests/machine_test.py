"""The shell as the emulated device runs it: by getty, directly on the serial line, with the device's
own reboot. Every test boots a machine."""

import re
from dataclasses import dataclass
from typing import Callable

import pexpect
import pytest

import programs
from console import (
    ENVIRONMENT,
    GREETING,
    PASSWORD,
    PATIENCE,
    PROMPT,
    SHELL,
    USER,
    Console,
    wait_until,
)
from machine import IMAGE, START


@pytest.fixture(name="machine")
def fixture_machine(machine_room):
    return machine_room.boot(term="dumb")


class Line(Console):
    """The serial line of a machine, and what runs on it."""

    def __init__(self, machine):
        self._shown = machine.shown
        self._exchange_start = self._shown.tell()
        self._child = machine.line

    def expect_login(self):
        self.read_until(GREETING)
        self.log_in()

    def ask(self, question, answer):
        self.read_until(question)
        self.enter(answer)

    def type_and_wait(self, text):
        self.type(text)
        self.read_until(text)


@pytest.fixture(name="line")
def fixture_line(machine):
    """Returns the line of a machine just booted, with the administrator logged in."""
    line = Line(machine)
    line.expect_login()
    return line


def transfer(line, command, path):
    """Answers the questions of backup or restore, for the FTP server of the device."""
    line.enter(command)
    line.ask(b"Server: ", b"127.0.0.1")
    line.ask(b"Port: ", b"")
    line.ask(b"ath: ", path)
    line.ask(b"Username: ", b"backup")
    line.ask(b"Password: ", b"secret")


def back_up(line):
    transfer(line, b"backup", b"")
    line.read_until(b"Configuration backup finished!\n")
    line.read_until(PROMPT)


def shell_of(machine):
    return machine.sh("pidof tessel")


def logouts(machine):
    return int(machine.sh("grep -c logout.cgi /var/lib/gateway/requests.log"))


def saved(machine, name):
    return machine.sh(f"grep '^{name}=' /var/lib/gateway/settings.conf")


def test_shell_is_the_first_process_of_its_session_on_the_serial_line(machine, line):
    # Process, process group, session, the terminal's foreground group
    assert machine.sh("cut -d' ' -f1,5,6,8 /proc/$(pidof tessel)/stat").split() == (
        4 * [shell_of(machine)]
    )
    assert machine.sh("readlink /proc/$(pidof tessel)/fd/0") == "/dev/ttyAMA0"


@pytest.mark.parametrize("end", [b"exit\r", b"\x04"])
def test_next_administrator_gets_the_login_after_the_end_of_a_session(machine, line, end):
    line.type(end)
    line.expect_login()
    assert logouts(machine) == 1


def test_next_administrator_gets_the_login_after_three_wrong_passwords(machine):
    line = Line(machine)
    line.read_until(b"Username: ")
    for _ in range(2):
        line.attempt(b"admin", b"wrong")
    line.exchange(b"admin", b"Password: ")
    line.enter(b"wrong")
    line.expect_login()
    assert logouts(machine) == 1


# Events on the line, in every state of a session


@dataclass
class State:
    """How to take a session to a state, and from there back to its prompt."""

    enter: Callable
    leave: Callable
    program: str = ""  # the program that runs in this state
    in_login: bool = False


def hold(machine, program):
    """Replaces a program of the device with one that blocks."""
    held = "case $PATH_INFO in putconf.cgi|logout.cgi) exec $0.real ;; esac; exec sleep 5000"
    machine.sh(
        f"path=$(command -v {program}); mv $path $path.real;"
        f" printf '#!/bin/sh\\n%s\\n' '{held}' >$path; chmod +x $path"
    )


def enter_user_name(machine, line):
    line.read_until(b"Username: ")
    line.type_and_wait(USER)


def finish_user_name(line):
    line.enter(b"")
    line.ask(b"Password: ", PASSWORD)
    line.read_until(PROMPT)


def enter_password(machine, line):
    line.ask(b"Username: ", USER)
    line.read_until(b"Password: ")
    line.type(PASSWORD)


def finish_password(line):
    # The keys are now part of the password.
    line.enter(b"")
    line.log_in()


def log_in(line):
    line.log_in()
    assert line.command(b"dns.domain=typed.example.net") == b""


def enter_half_a_command(machine, line):
    log_in(line)
    line.type_and_wait(b"log_l")


def finish_command(line):
    line.enter(b"s")
    assert line.read_until(PROMPT).endswith(b"\ncm\nsip\nsip_reg\nQ.931\n\n" + PROMPT)


def enter_server(machine, line):
    log_in(line)
    line.enter(b"backup")
    line.read_until(b"Server: ")
    line.type_and_wait(b"127.0.0.1")


def finish_backup(line):
    line.enter(b"")
    line.ask(b"Port: ", b"1")
    line.ask(b"ath: ", b"")
    line.ask(b"Username: ", b"")
    line.ask(b"Password: ", b"")
    line.read_until(b"Configuration backup failed!\n" + PROMPT)


def wait_for_get(machine, line):
    hold(machine, "/bin/fcgiclient")
    log_in(line)
    line.exchange(b"get sip", b"SIP settings\n\n")
    wait_until(lambda: machine.sh("pidof sleep"))


def wait_for_transfer(machine, line):
    hold(machine, "wput")
    log_in(line)
    transfer(line, b"backup", b"")
    wait_until(lambda: machine.sh("pidof sleep"))


def show_a_large_log(machine, line):
    machine.sh("echo 'a line of the log' >/var/log/cm.log; truncate -s 1G /var/log/cm.log")
    log_in(line)
    line.enter(b"show cm")
    line.read_until(b"a line of the log\n")


def read_prompt(line):
    line.read_until(PROMPT)


STATES = {
    "user name": State(enter_user_name, finish_user_name, in_login=True),
    "password": State(enter_password, finish_password, in_login=True),
    "half a command": State(enter_half_a_command, finish_command),
    "question": State(enter_server, finish_backup),
    "get": State(wait_for_get, read_prompt, "sleep"),
    "transfer": State(wait_for_transfer, read_prompt, "sleep"),
    "show": State(show_a_large_log, read_prompt, "cat"),
}
KEYS = {b"\x1c": b"^\\", b"\x1a": b"^Z"}
# {state: (what is shown after Ctrl-C, what is typed then)}
INTERRUPTED = {
    "user name": (b"^C\nUsername: ", USER),
    "half a command": (b"^C\n" + PROMPT, b"log_l"),
    "question": (b"^C\nConfiguration backup failed!\n" + PROMPT, b""),
}


@pytest.mark.parametrize("state", [state for state in STATES if not STATES[state].program])
def test_keys_leave_the_session_and_its_settings_as_they_are(machine, state):
    line = Line(machine)
    STATES[state].enter(machine, line)
    shell = shell_of(machine)
    for key, shown in KEYS.items():
        line.type(key)
        if state != "password":
            line.read_until(shown)
    assert_session_goes_on(machine, line, state, shell)


@pytest.mark.parametrize("state", INTERRUPTED)
def test_interrupt_drops_what_is_typed_and_keeps_the_settings(machine, state):
    line = Line(machine)
    STATES[state].enter(machine, line)
    shell = shell_of(machine)
    shown, typed = INTERRUPTED[state]
    line.type(b"\x03")
    line.read_until(shown)
    line.type(typed)
    if state == "question":
        assert line.command(b"save") == b"1 setting saved\n"
        assert shell_of(machine) == shell
    else:
        line.read_until(typed)
        assert_session_goes_on(machine, line, state, shell)


@pytest.mark.parametrize("term", ["vt100", "linux"])
def test_pasted_settings_are_saved_whole(machine_room, term):
    machine = machine_room.boot(term=term)
    line = Line(machine)
    line.expect_login()
    names = [b"part.%02d" % number for number in range(100)]
    line.type(b"".join(name + b"=1\r" for name in names) + b"save\r")
    answer = line.read_until(b"No settings saved\n")
    assert re.findall(rb"Error in (\S+)=1\. ", answer) == names
    assert b"\x1b[?2004" not in line.screen


@pytest.mark.parametrize("key", [b"\x03", b"\x1c"])
@pytest.mark.parametrize("state", [state for state in STATES if STATES[state].program])
def test_keys_end_a_program_and_not_the_session(machine, state, key):
    line = Line(machine)
    STATES[state].enter(machine, line)
    shell = shell_of(machine)
    # Ctrl-Z is ignored: nothing could bring a stopped program back to the foreground.
    line.type(b"\x1a")
    line.read_until(b"^Z")
    assert machine.sh(f"pidof {STATES[state].program}")
    line.type(key)
    assert_session_goes_on(machine, line, state, shell)


def assert_session_goes_on(machine, line, state, shell):
    STATES[state].leave(line)
    assert shell_of(machine) == shell
    assert not machine.sh("pidof sleep cat wput")
    if not STATES[state].in_login:
        assert line.command(b"save") == b"1 setting saved\n"
        assert saved(machine, "dns.domain") == "dns.domain=typed.example.net"


@pytest.mark.parametrize("state", STATES)
def test_lost_carrier_ends_the_session_and_the_next_administrator_gets_the_login(machine, state):
    line = Line(machine)
    STATES[state].enter(machine, line)
    shell = shell_of(machine)
    machine.lose_carrier()
    line.expect_login()
    assert shell_of(machine) not in ("", shell)
    assert not machine.sh("pidof sleep cat wput")
    assert logouts(machine) == 1
    # Earlier settings are gone.
    assert line.command(b"save") == b"ERROR: Nothing to save\n"
    assert not saved(machine, "dns.domain")


def test_line_without_modem_signals_keeps_the_session_when_unplugged(machine, line):
    line.command(b"pending=1")
    machine.reconnect_line()
    again = Line(machine)
    again.command(b"dns.domain=pulled.example.net")
    assert b"Error in pending=1" in again.command(b"save")


def test_restore_restarts_the_machine_with_the_restored_settings(machine, line):
    back_up(line)
    name = machine.sh("ls /home/backup")
    line.command(b"dns.domain=changed.example.net")
    assert line.command(b"save") == b"1 setting saved\n"
    assert b"\ndns.domain=changed.example.net\n" in line.command(b"get dns")
    boot = machine.sh("cat /proc/sys/kernel/random/boot_id")
    transfer(line, b"restore", name.encode())
    line.read_until(b"Configuration restore finished.!\nRebooting...\n")
    machine.wait_until_ready()
    line.expect_login()
    assert machine.sh("cat /proc/sys/kernel/random/boot_id") != boot
    assert b"\ndns.domain=example.net\n" in line.command(b"get dns")


def test_backup_of_the_year_2040_has_the_year_in_its_name(machine, line):
    # The distribution's FTP server for 32-bit ARM does not serve after 2038.
    machine.sh("printf '#!/bin/sh\\necho $* >/tmp/words; echo FINISHED\\n' >/usr/bin/wput")
    assert machine.sh("date -s '2040-06-01 12:34:50' && date +%Y").endswith("2040")
    back_up(line)
    words = machine.sh("cat /tmp/words")
    assert re.search(r"/config_2040-6-1_123[4-9]\.bin$", words), words


def test_more_than_the_line_holds_can_be_pasted(machine, line):
    words = b"".join(b"s%d=1\r" % number for number in range(1000))
    line.type(words)
    line.type(b"save\r")
    answer = line.read_until(b"No settings saved\n" + PROMPT)
    rejected = re.findall(rb"Error in (\w+)=1\. ", answer)
    assert rejected == [b"s%d" % number for number in range(900, 1000)]


def test_terminal_that_starts_the_machine_is_its_serial_line(machine_room, tmp_path):
    machine_room.close()
    words = [str(IMAGE), str(tmp_path)]
    machine = programs.on_terminal(str(START), words, env=ENVIRONMENT, timeout=PATIENCE)
    machine.expect_exact(GREETING.replace(b"\n", b"\r\n") + b"Username: ")
    machine.send(USER + b"\r")
    machine.expect_exact(b"Password: ")
    machine.send(PASSWORD + b"\r")
    machine.expect_exact(b"\r\n\r\n" + PROMPT)
    machine.send(b"\x01x")
    machine.expect(pexpect.EOF)
    machine.wait()
    assert machine.exitstatus == 0


def test_session_is_played_on_the_serial_line(machine_room, tmp_path):
    machine_room.close()

    def play(*lines, options=()):
        done = programs.run(
            [START.parent / "play", *options, IMAGE, tmp_path],
            input=b"".join(line + b"\n" for line in lines),
            capture_output=True,
            timeout=PATIENCE,
        )
        assert done.stderr == b"The device is booting.\n"
        return done.returncode, done.stdout

    login = (USER, PASSWORD)
    seen = b"\n" + GREETING + b"Username: admin\nPassword: \n\n" + PROMPT
    saved = b"sip.local_port=5071\n" + PROMPT + b"save\n1 setting saved\n" + PROMPT + b"exit\n"
    assert play(*login, b"sip.local_port=5071", b"save", b"exit") == (0, seen + saved)
    # Settings survive a restart of the machine, and the session ends at the end of the file.
    status, shown = play(*login, b"get sip")
    assert (status, b"\nsip.local_port=5071\n" in shown) == (0, True)
    status, shown = play(*login, b"get sip", options=["--fresh"])
    assert (status, b"\nsip.local_port=5060\n" in shown) == (0, True)
    assert play(*(USER, b"wrong") * 3)[0] == 1


def test_kernel_messages_are_shown_at_a_terminal(machine_room, tmp_path):
    machine_room.close()
    words = [str(IMAGE), str(tmp_path)]
    terminal = programs.on_terminal(str(START), words, env=ENVIRONMENT, timeout=PATIENCE)
    terminal.expect_exact(b"Linux version")
    terminal.expect_exact(b"Username: ")
    terminal.close()


def test_memory_at_the_prompt(machine, line, record_property):
    """Records the figures and compares them with generous limits."""
    process = f"/proc/{shell_of(machine)}"
    (resident,) = re.findall(r"VmRSS:\s+(\d+) kB", machine.sh(f"cat {process}/status"))
    private = re.findall(r"Private_\w+:\s+(\d+) kB", machine.sh(f"cat {process}/smaps_rollup"))
    size = int(machine.sh(f"stat -L -c %s {SHELL}"))
    resident, private = int(resident), sum(map(int, private))
    record_property(
        "on the device",
        f"tessel at its prompt: {resident} KiB resident, {private} KiB of them its own;"
        f" the program: {size} bytes",
    )
    assert 0 < private < 1024
    assert private < resident < 6 * 1024
    assert 0 < size < 1024 * 1024
