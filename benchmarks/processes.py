"""Starts, feeds and times programs on a pseudo-terminal or on pipes, with as little overhead as
possible. Times are in seconds."""

import fcntl
import os
import signal
import struct
import termios
import time

ENVIRONMENT = {"PATH": "/bin:/usr/bin", "HOME": "/", "SHELL": "/bin/sh", "TERM": "xterm"}
SHELL_PROMPT = b"tessel:> "
CHUNK = 65536


class Process:
    """A running program and the other ends of its input and output. Leaving the context kills it."""

    def __init__(self, command, inside, keyboard, screen):
        streams = [(os.POSIX_SPAWN_DUP2, inside[stream > 0], stream) for stream in range(3)]
        if keyboard == screen:  # a session leader's controlling terminal is the first that it opens
            streams[0] = (os.POSIX_SPAWN_OPEN, 0, os.ttyname(inside[0]), os.O_RDWR, 0)
        self.keyboard, self.screen, self.unread = keyboard, screen, b""
        self.started = time.perf_counter()
        self.pid = os.posix_spawn(
            command[0], command, ENVIRONMENT, file_actions=streams, setsid=True
        )
        for end in set(inside):
            os.close(end)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)
        for end in {self.keyboard, self.screen}:
            os.close(end)

    def type(self, text):
        os.write(self.keyboard, text)

    def read_until(self, ending):
        """Reads up to and including ending. Returns the time at which it arrived."""
        now = time.perf_counter()
        while (found := self.unread.find(ending)) < 0:
            piece = os.read(self.screen, CHUNK)
            now = time.perf_counter()
            if not piece:
                raise EOFError(f"expected {ending!r}, got {self.unread!r}")
            self.unread = self.unread[1 - len(ending) :] + piece
        self.unread = self.unread[found + len(ending) :]
        return now

    def time_to(self, prompt):
        """Reads up to the prompt. Returns the time from the program's start."""
        return self.read_until(prompt) - self.started

    def time_line(self, line, ending=SHELL_PROMPT):
        """Types a line and reads up to ending. Returns the time this took."""
        start = time.perf_counter()
        self.type(line)
        return self.read_until(ending) - start

    def wait_until_idle(self):
        """Waits until the process is seen asleep several times in a row."""
        asleep = 0
        while asleep < 5:
            with open(f"/proc/{self.pid}/stat", "rb") as stat:
                state = stat.read().rsplit(b") ", 1)[1][:1]
            asleep = asleep + 1 if state == b"S" else 0
            time.sleep(0.01)


def start_on_terminal(command):
    """Starts a program as session leader on a new terminal. Returns the Process."""
    master, slave = os.openpty()
    fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 80, 0, 0))
    return Process(command, (slave, slave), master, master)


def start_on_pipes(command):
    """Starts a program with pipes for its streams. Returns the Process."""
    its_input, keyboard = os.pipe()
    screen, its_output = os.pipe()
    return Process(command, (its_input, its_output), keyboard, screen)


def log_in(process):
    """Takes a shell from its start to its first command prompt. Returns it."""
    for prompt, answer in ((b"Username: ", b"admin\n"), (b"Password: ", b"gateway\n")):
        process.read_until(prompt)
        process.type(answer)
    process.read_until(SHELL_PROMPT)
    return process


def time_run(command):
    """Runs a program with its output read through a pipe. Returns the time to its end."""
    with start_on_pipes(command) as process:
        while os.read(process.screen, CHUNK):
            pass
        os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT)
        return time.perf_counter() - process.started
