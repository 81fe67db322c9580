"""Passwords are neither in the history nor left in memory: the shell's memory is searched for them."""

import contextlib
import errno
import os
import random
import re
import select
import string

import pytest

import programs
from backup_test import BACKUP_FINISHED, RESTORE_FAILED, RESTORE_FINISHED, UP, questions, transfer
from console import ENVIRONMENT, PATIENCE, PROMPT

# Around the sizes of the C and C++ libraries' buffers for short strings and lines.
LENGTHS = (8, 15, 16, 17, 23, 24, 25, 31, 64, 119, 120, 121, 200, 239, 240, 241, 255, 256, 300)
PIECE = 6  # bytes; a shorter piece may be in memory by chance


def make_password(length):
    return "".join(random.choices(string.ascii_letters + string.digits, k=length)).encode()


def shell_process(device):
    """Returns the shell's process id on the host."""
    sandbox = re.search(rb'"child-pid": *(\d+)', device.read("/run/sandbox")).group(1).decode()
    namespace = os.readlink(f"/proc/{sandbox}/ns/pid")
    for process in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{process}/comm", encoding="ascii", errors="replace") as name:
                is_shell = name.read() == "tessel\n"
            if is_shell and os.readlink(f"/proc/{process}/ns/pid") == namespace:
                return process
        except (FileNotFoundError, ProcessLookupError, PermissionError):
            pass  # it has ended, or belongs to another user
    raise AssertionError("the shell does not run")


def memory(device):
    """Returns the writable memory of the shell's process: data, heap and stacks."""
    process = shell_process(device)
    blocks = []
    try:
        with open(f"/proc/{process}/maps", encoding="ascii") as file:
            areas = [line.split() for line in file]
        with open(f"/proc/{process}/mem", "rb", buffering=0) as file:
            for span, rights, *_ in areas:
                if rights.startswith("rw"):
                    start, end = (int(address, 16) for address in span.split("-"))
                    file.seek(start)
                    try:
                        blocks.append(file.read(end - start))
                    except OSError as error:
                        # Unmapped meanwhile, like the stack for starting a child.
                        if error.errno != errno.EIO:
                            raise
    except PermissionError as refusal:
        pytest.skip(f"the kernel does not let a process read another's memory: {refusal}")
    # A static program has only a few.
    assert len(blocks) > 3 and sum(map(len, blocks)) > 100_000
    return blocks


def pieces_in_memory(device, secret):
    pieces = {secret[start : start + PIECE] for start in range(len(secret) - PIECE + 1)}
    blocks = memory(device)
    return sorted(piece for piece in pieces if any(piece in block for block in blocks))


def set_password(device, password):
    entries = b"user_name = admin\npassword = " + password
    device.write("/tmp/acldb", b"section admin {\n" + entries + b"\n}\n")


def test_login_keeps_no_password(device):
    for length in LENGTHS:
        right, wrong = make_password(length), make_password(length)
        set_password(device, right)
        console = device.console()
        console.read_until(b"Username: ")
        console.attempt(b"somebody-else", wrong)
        assert pieces_in_memory(device, b"somebody-else"), "the search must find a text that is there"
        assert pieces_in_memory(device, wrong) == []
        console.exchange(b"admin", b"Password: ")
        console.exchange(right, PROMPT, echo=b"")
        assert pieces_in_memory(device, right) == []
        assert right not in console.screen and wrong not in console.screen
        assert console.leave() == 0


def test_interrupted_password_is_not_kept(device):
    console = device.console()
    console.read_until(b"Username: ")
    console.exchange(b"admin", b"Password: ")
    password = make_password(100)
    console.type(password + b"\x03")  # Ctrl-C
    console.read_until(b"Username: ")
    assert pieces_in_memory(device, password) == []


class Hold:
    """Makes a transfer wait, so that the shell can be inspected meanwhile."""

    def __init__(self, device):
        for name in ("waits", "go"):
            os.mkfifo(device.path(f"/record/{name}"))
        # Open for reading and writing, so that opening never blocks.
        self.waits = os.open(device.path("/record/waits"), os.O_RDWR)
        self.go = os.open(device.path("/record/go"), os.O_RDWR)
        wait = b"echo >/record/waits; read line </record/go\n"
        device.stand_in("wput", wait + b"echo FINISHED\n")
        device.stand_in("wget", wait)
        device.stand_in("backupconfig", b"/usr/bin/cat >/dev/null; exit 1\n")

    def wait(self):
        read_within_patience(self.waits)

    def release(self):
        os.write(self.go, b"\n")

    def close(self):
        os.close(self.waits)
        os.close(self.go)


def read_within_patience(descriptor):
    assert select.select([descriptor], [], [], PATIENCE)[0], "nothing comes"
    return os.read(descriptor, 65536)


@pytest.fixture(name="hold")
def fixture_hold(device):
    with contextlib.closing(Hold(device)) as hold:
        yield hold


@pytest.mark.parametrize("command", [b"backup", b"restore"])
def test_transfer_keeps_no_password(device, hold, command):
    console = device.log_in()
    for length in LENGTHS:
        password = make_password(length)
        console.enter(command)
        answers = (b"server", b"21", b"dir", b"me", password)
        for question, answer in zip(questions(command), answers):
            console.read_until(question)
            console.enter(answer)
        hold.wait()
        assert pieces_in_memory(device, password), "the search does not find what is in use"
        hold.release()
        console.read_until(BACKUP_FINISHED if command == b"backup" else RESTORE_FAILED)
        console.read_until(PROMPT)
        assert pieces_in_memory(device, password) == []
        assert password not in console.screen


@pytest.mark.parametrize("command", [b"backup", b"restore"])
def test_password_that_is_not_used_is_not_kept(device, command):
    for name in ("wput", "wget", "backupconfig", "reboot"):
        device.stand_in(name, b"")
    console = device.log_in()
    for length in LENGTHS:
        password = make_password(length)
        transfer(console, command, user=b"", password=password)
        assert pieces_in_memory(device, password) == []


class Pipe:
    """A session without a terminal."""

    def __init__(self, device):
        self.process = programs.start(
            device.start_command(),
            stdin=programs.PIPE,
            stdout=programs.PIPE,
            stderr=programs.PIPE,
            env=ENVIRONMENT,
        )

    def send(self, text):
        self.process.stdin.write(text)
        self.process.stdin.flush()

    def read_until(self, end):
        seen = b""
        while not seen.endswith(end):
            more = read_within_patience(self.process.stdout.fileno())
            assert more, f"{end!r} does not come, but the end does after {seen!r}"
            seen += more
        return seen

    def end(self):
        """Returns the rest of the output, standard error included."""
        return b"".join(self.process.communicate(timeout=PATIENCE))

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.communicate()


def test_session_without_a_terminal_keeps_no_password(device, hold):
    for length in LENGTHS[::3]:
        with contextlib.closing(Pipe(device)) as pipe:
            play_session(device, hold, pipe, [make_password(length) for _ in range(3)])


def play_session(device, hold, pipe, passwords):
    set_password(device, passwords[0])
    pipe.send(b"admin\n" + passwords[0] + b"\n")
    seen = pipe.read_until(PROMPT)
    assert pieces_in_memory(device, passwords[0]) == []
    for command, password in zip((b"backup", b"restore"), passwords[1:]):
        pipe.send(command + b"\nserver\n21\ndir\nme\n" + password + b"\n")
        hold.wait()
        assert pieces_in_memory(device, password), "the search does not find what is in use"
        hold.release()
        seen += pipe.read_until(b"!\n" + PROMPT)
        assert pieces_in_memory(device, password) == []
    seen += pipe.end()
    assert [password for password in passwords if password in seen] == []


def test_history_keys_bring_back_no_password(device):
    set_password(device, b"first-secret")
    console = device.console()
    console.log_in(password=b"first-secret")
    for name in ("wput", "wget", "backupconfig", "reboot"):
        device.stand_in(name, b"")
    assert transfer(console, b"backup", user=b"me", password=b"second-secret") == BACKUP_FINISHED
    assert transfer(console, b"restore", user=b"me", password=b"third-secret") == RESTORE_FINISHED
    assert console.command(b"help exit") == b"\nexit\t\tExit tessel.\n\n"
    # At a question too, and further back than the history goes.
    console.enter(b"backup")
    console.read_until(questions(b"backup")[0])
    for _ in questions(b"backup")[1:]:
        console.type(UP * 9 + b"\x15\r")  # Ctrl-U deletes the line
        console.read_until(b": ")
    console.enter(b"")
    console.read_until(PROMPT)
    console.type(UP * 9 + b"\x15\r")
    console.read_until(PROMPT)
    assert b"secret" not in console.screen
