"""Programs on a pseudo-terminal or on pipes, started, fed and timed with as little as possible in
between. Times are in seconds."""

import fcntl
import os
import re
import signal
import struct
import termios
import time
from contextlib import suppress

# Of the shell and of its floor; the editor knows this terminal.
ENVIRONMENT = {"PATH": "/bin:/usr/bin", "HOME": "/", "SHELL": "/bin/sh", "TERM": "xterm"}
SHELL_PROMPT = rb"tessel:> "
CHUNK = 65536
PATIENCE = 60  # until something that never comes is a failure


def limit_waiting():
    """Makes every wait of this process end, with an error, some time."""

    def give_up(_signal, _frame):
        raise TimeoutError("a program that is measured does not answer")

    signal.signal(signal.SIGALRM, give_up)


class Process:
    """A started program with one end of what it reads and writes. Killed when left."""

    def __init__(self, pid, keyboard, screen):
        self.pid = pid
        self.keyboard = keyboard
        self.screen = screen

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.pid is not None:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        for end in {self.keyboard, self.screen}:
            os.close(end)

    def type(self, text):
        os.write(self.keyboard, text)

    def read_until(self, pattern):
        """Reads up to the pattern, which must stand at the end of what has come so far. Returns
        the time at which it did."""
        ending = re.compile(pattern + rb"\Z")
        seen = b""
        signal.alarm(PATIENCE)
        while True:
            piece = os.read(self.screen, CHUNK)
            now = time.perf_counter()
            if not piece:
                raise EOFError(f"{pattern!r} does not come, only {seen!r}")
            seen = seen[-200:] + piece
            if ending.search(seen):
                signal.alarm(0)
                return now

    def run_to_end(self, text=b""):
        """Types the text and lets cat read everything to the end. Returns how long that took."""
        start = time.perf_counter()
        if text:
            self.type(text)
        sink = [
            (os.POSIX_SPAWN_DUP2, self.screen, 0),
            (os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0),
            (os.POSIX_SPAWN_OPEN, 2, "/dev/null", os.O_WRONLY, 0),
        ]
        signal.alarm(PATIENCE)
        # The end of a terminal is an error to cat.
        os.waitpid(os.posix_spawn("/usr/bin/cat", ["cat"], ENVIRONMENT, file_actions=sink), 0)
        elapsed = time.perf_counter() - start
        _, status = os.waitpid(self.pid, 0)
        signal.alarm(0)
        self.pid = None
        if status != 0:
            raise RuntimeError(f"a measured program ended with wait status {status}")
        return elapsed

    def wait_until_idle(self, pid=None):
        """Waits until the process (of that id) sleeps, looked at several times in a row."""
        pid = pid or self.pid
        asleep = 0
        while asleep < 5:
            with open(f"/proc/{pid}/stat", "rb") as stat:
                state = stat.read().rsplit(b") ", 1)[1][:1]
            asleep = asleep + 1 if state == b"S" else 0
            time.sleep(0.01)

    def memory(self):
        """Private dirty memory and peak resident size, in bytes."""
        return (
            _kib(f"/proc/{self.pid}/smaps_rollup", "Private_Dirty"),
            _kib(f"/proc/{self.pid}/status", "VmHWM"),
        )


def _kib(path, name):
    with open(path, encoding="ascii") as file:
        for line in file:
            if line.startswith(name + ":"):
                return int(line.split()[1]) * 1024
    raise LookupError(f"{path} has no {name}")


def start_on_terminal(command):
    """Starts a program as the first of a session on a new terminal. Returns it and the time."""
    master, slave = os.openpty()
    fcntl.ioctl(master, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 80, 0, 0))
    streams = [
        (os.POSIX_SPAWN_CLOSE, master),
        (os.POSIX_SPAWN_OPEN, 0, os.ttyname(slave), os.O_RDWR, 0),
        (os.POSIX_SPAWN_DUP2, 0, 1),
        (os.POSIX_SPAWN_DUP2, 0, 2),
    ]
    os.set_inheritable(slave, False)
    start = time.perf_counter()
    pid = os.posix_spawn(command[0], command, ENVIRONMENT, file_actions=streams, setsid=True)
    os.close(slave)
    return Process(pid, master, master), start


def start_on_pipes(command):
    """Starts a program, without a terminal, between two pipes."""
    its_input, keyboard = os.pipe()
    screen, its_output = os.pipe()
    streams = [
        (os.POSIX_SPAWN_DUP2, its_input, 0),
        (os.POSIX_SPAWN_DUP2, its_output, 1),
        (os.POSIX_SPAWN_OPEN, 2, "/dev/null", os.O_WRONLY, 0),
    ]
    pid = os.posix_spawn(command[0], command, ENVIRONMENT, file_actions=streams, setsid=True)
    os.close(its_input)
    os.close(its_output)
    return Process(pid, keyboard, screen)


def log_in_on_terminal(command):
    process, _ = start_on_terminal(command)
    process.read_until(rb"Username: ")
    process.type(b"admin\r")
    process.read_until(rb"Password: ")
    process.type(b"gateway\r")
    process.read_until(SHELL_PROMPT)
    return process


def log_in_on_pipes(command):
    process = start_on_pipes(command)
    process.type(b"admin\ngateway\n")
    process.read_until(SHELL_PROMPT)
    return process


def run(command, output="/dev/null"):
    """Runs a program without input. Returns how long it took and its exit status."""
    streams = [
        (os.POSIX_SPAWN_OPEN, 0, "/dev/null", os.O_RDONLY, 0),
        (os.POSIX_SPAWN_OPEN, 1, output, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644),
    ]
    start = time.perf_counter()
    pid = os.posix_spawn(command[0], command, ENVIRONMENT, file_actions=streams)
    _, status = os.waitpid(pid, 0)
    return time.perf_counter() - start, os.waitstatus_to_exitcode(status)


def only_child(pid):
    """The id of a process's only child."""
    with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
        (child,) = file.read().split()
    return int(child)


def kill(pid, number):
    with suppress(ProcessLookupError):
        os.kill(pid, number)
