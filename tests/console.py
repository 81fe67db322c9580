"""Devices for the tests, and consoles to operate them.

A Device is the root folder of a development gateway. Tests change its files, put stand-ins for its
programs into its /bin, and then open a Console, a pseudo-terminal that the shell runs on, or feed a
whole session to the shell through a pipe. Everything seen and typed is bytes.
"""

import atexit
import functools
import io
import os
import select
import shutil
import signal
import tempfile
import termios
import time
from collections import namedtuple
from pathlib import Path

import pexpect

import programs

SOURCE_DIR = Path(os.environ.get("TESSEL_SOURCE_DIR") or Path(__file__).resolve().parent.parent)
PROGRAM_DIR = Path(os.environ.get("TESSEL_PROGRAM_DIR") or SOURCE_DIR / "build")
MAKE_ROOT = SOURCE_DIR / "gateway" / "make_root"
START = SOURCE_DIR / "gateway" / "start"

# Temporary files of the tests, and of all programs that they start, are in the build folder.
TEMPORARY_FILES = PROGRAM_DIR.absolute() / "tmp"
TEMPORARY_FILES.mkdir(parents=True, exist_ok=True)
os.environ["TMPDIR"] = tempfile.tempdir = str(TEMPORARY_FILES)

SHELL = "/bin/tessel"
USER = b"admin"
PASSWORD = b"gateway"
PROMPT = b"tessel:> "
GREETING = b"Please, login as an Administrator\n\n"
REFUSAL = b"Wrong username or password\n\n"

SUMMARY_FILE = "/tmp/script_legconftmp.txt"
SAVE_FILE = "/tmp/consoleLCFile"

# A terminal without control sequences.
ENVIRONMENT = {**os.environ, "TERM": "dumb"}
# Wide enough for the line editor to show every line in one row.
WINDOW = (24, 4000)
# The 32-bit target that the tests are for, if any. Devices of armhf run on an emulated machine, and
# its serial line is the console.
TARGET = os.environ.get("TESSEL_TARGET", "")
ON_MACHINE = TARGET == "armhf"
# Seconds until a missing answer is a failure.
PATIENCE = int(os.environ.get("TESSEL_TEST_PATIENCE") or 20)
# Whether sessions that a test leaves open are ended rather than killed: only then are leaks reported and
# coverage data written.
END_SESSIONS = "TESSEL_TEST_END_SESSIONS" in os.environ

RunResult = namedtuple("RunResult", "status output errors")


def wait_until(condition):
    """Polls until the condition holds."""
    deadline = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < deadline, "the condition does not become true"
        time.sleep(0.01)


def _without_crlf(screen):
    """Returns the screen with the terminal's line ends turned back into line feeds."""
    return screen.replace(b"\r\n", b"\n")


def _as_found():
    """Resets SIGPIPE, which Python ignores, to its default action, as a login shell inherits it."""
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)


@functools.cache
def _factory_root():
    """Returns the root folder of a device with factory settings, to copy: making one takes longer."""
    folder = tempfile.mkdtemp(prefix="tessel-factory-")
    atexit.register(shutil.rmtree, folder)
    root = Path(folder) / "root"
    programs.run(["/bin/sh", MAKE_ROOT, root], check=True, timeout=PATIENCE)
    return root


class Device:
    """The root folder of a device, and the shells that run on it."""

    def __init__(self, root):
        self.root = Path(root)
        self._consoles = []
        self._runs = []
        self._serves_ftp = False
        shutil.copytree(_factory_root(), self.root, symlinks=True)
        self.path("/record").mkdir()

    def path(self, name):
        """Returns the host's path of a file of the device."""
        return self.root / name.lstrip("/")

    def read(self, name):
        return self.path(name).read_bytes()

    def exists(self, name):
        return os.path.lexists(self.path(name))

    def write(self, name, content=b"", mode=0o644):
        """Writes a file, replacing whatever has that name."""
        self.remove(name)
        path = self.path(name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
        path.chmod(mode)

    def make_folder(self, name):
        """Makes an empty folder, replacing whatever has that name."""
        self.remove(name)
        self.path(name).mkdir()

    def remove(self, name):
        path = self.path(name)
        if path.is_dir() and not path.is_symlink():
            shutil.rmtree(path)
        elif self.exists(name):
            path.unlink()

    def stand_in(self, name, script):
        """Replaces the program of that name in /bin with a sh script."""
        self.write(f"/bin/{name}", b"#!/usr/bin/sh\n" + script, mode=0o755)

    # Recorders of the shell's calls and requests. They write to /record.

    def record_requests(self, answer=b"", summary=None):
        """Replaces the FastCGI client with one that records its environment, writes the summary file
        if a summary is given, and prints the answer."""
        script = b"{ env | sort; echo; } >>/record/requests\n"
        if summary is not None:
            self.write("/record/summary", summary)
            script += b"/usr/bin/cp /record/summary " + SUMMARY_FILE.encode() + b"\n"
        self.write("/record/answer", answer)
        self.stand_in("fcgiclient", script + b"/usr/bin/cat /record/answer\n")

    def requests(self):
        """Returns the environments recorded by record_requests, oldest first."""
        if not self.exists("/record/requests"):
            return []
        notes = self.read("/record/requests").decode().split("\n\n")[:-1]
        # Valgrind leaves an empty LD_PRELOAD.
        lines = [[line for line in note.split("\n") if line != "LD_PRELOAD="] for note in notes]
        return [dict(line.split("=", 1) for line in request) for request in lines]

    def record_command_lines(self):
        """Makes the command interpreter record its command lines."""
        self.stand_in(
            "sh",
            b'[ "$1" != -c ] || { for last; do :; done; printf "%s\\n" "$last"; } '
            b">>/record/command_lines\n"
            b'exec /usr/bin/sh "$@"\n',
        )
        self.write("/record/command_lines")

    def command_lines(self):
        """Returns the command interpreter's command lines, oldest first."""
        return self.read("/record/command_lines").splitlines()

    def record_calls(self, name, then=b"exit 0"):
        """Replaces a program with one that records its call and then runs a script."""
        self.stand_in(
            name,
            b'call=${0##*/}; for word; do call="$call [$word]"; done\n'
            b'printf "%s\\n" "$call" >>/record/calls\n' + then + b"\n",
        )

    def calls(self):
        """Returns the calls recorded by record_calls, oldest first: name [word] [word] ..."""
        return self.read("/record/calls").splitlines() if self.exists("/record/calls") else []

    def served(self):
        """Returns the requests that reached the back end."""
        log = "/var/lib/gateway/requests.log"
        return self.read(log).decode().splitlines() if self.exists(log) else []

    def serve_ftp(self, options=""):
        """Makes the device run the FTP server, with these options, from its next start."""
        self._serves_ftp = True
        self.write("/etc/ftp_options", options.encode() + b"\n")

    # Sessions

    def start_command(self, command=()):
        """Returns the command line that runs the shell, or another command, on the device."""
        start = [str(START), *(["--ftp"] if self._serves_ftp else [])]
        return ["/bin/sh", *start, str(self.root), str(PROGRAM_DIR), *(command or [SHELL])]

    def console(self, *command, **terminal):
        """Starts the shell, or another command, on a new terminal. Returns the Console, to which the
        keyword arguments are passed."""
        console = self._new_console(command, **terminal)
        self._consoles.append(console)
        return console

    def log_in(self, *command):
        """Returns a new console with the administrator logged in."""
        console = self.console(*command)
        console.log_in()
        return console

    def run(self, session, *command, patience=PATIENCE):
        """Feeds a session to the shell through a pipe, without a terminal. Returns a RunResult."""
        result = self._run(command, session, patience)
        self._runs.append(result)
        return result

    def _new_console(self, command, **terminal):
        return Console(self.start_command(command), **terminal)

    def _run(self, command, session, patience):
        done = programs.run(
            self.start_command(command),
            input=session,
            capture_output=True,
            env=ENVIRONMENT,
            timeout=patience,
        )
        return RunResult(done.returncode, done.stdout, done.stderr)

    def transcripts(self):
        """Yields what was seen, as (title, text), for the report of a failure."""
        for console in self._consoles:
            yield "last exchange", _readable(console.last_exchange)
            yield "whole console", _readable(console.screen)
        for run in self._runs:
            yield "output of a run", _readable(run.output)
            yield "errors of a run", _readable(run.errors)

    def memory_errors(self):
        """Returns what sanitizers or valgrind have reported about the shell."""
        reports = [path.read_text(errors="replace") for path in self.path("/record").glob("memory.*")]
        return "\n".join(report for report in reports if report)

    def close(self):
        for console in self._consoles:
            console.close()
        errors = self.memory_errors()
        shutil.rmtree(self.root, ignore_errors=True)
        if self.root.exists():
            # Tests remove permissions of folders. The last process of a console may still be running.
            programs.run(["chmod", "-R", "u+rwX", self.root], check=False, stderr=programs.DEVNULL)
            for _ in range(10):
                shutil.rmtree(self.root, ignore_errors=True)
        assert not self.root.exists(), f"{self.root} cannot be removed"
        assert not errors, errors


class Console:
    """A session at a terminal, which has no control sequences unless the environment sets TERM. Before
    the command starts, prepare is called in its process, with the terminal as standard input."""

    def __init__(self, command, environment=None, window=WINDOW, prepare=lambda: None):
        self._shown = io.BytesIO()
        self._exchange_start = 0
        self._child = programs.on_terminal(
            command[0],
            command[1:],
            env=ENVIRONMENT if environment is None else environment,
            dimensions=window,
            timeout=PATIENCE,
            maxread=65536,
            preexec_fn=lambda: (_as_found(), prepare()),
        )
        self._child.delaybeforesend = None
        self._child.delayafterread = None
        self._child.ptyproc.delayafterclose = 0
        self._child.logfile_read = self._shown

    @property
    def screen(self):
        """Everything seen so far."""
        return _without_crlf(self._shown.getvalue())

    @property
    def last_exchange(self):
        """Everything seen since something was last typed."""
        return _without_crlf(self._shown.getvalue()[self._exchange_start :])

    def type(self, keys):
        """Presses keys; b"\\r" is Enter."""
        self._exchange_start = self._shown.tell()
        self._child.send(keys)

    def enter(self, line):
        self.type(line + b"\r")

    def paste(self, text, patience=PATIENCE, speed=None):
        """Types more than a terminal accepts at once, reading the screen meanwhile, at the given number
        of bytes per second or as fast as the terminal allows."""
        self._exchange_start = self._shown.tell()
        terminal = self._child.fileno()
        start = time.monotonic()
        deadline = start + patience
        length = len(text)
        os.set_blocking(terminal, False)
        while text:
            assert time.monotonic() < deadline, f"the terminal does not accept the last {len(text)} bytes"
            due = len(text)
            if speed:
                due -= max(0, length - int(speed * (time.monotonic() - start)))
            readable, writable, _ = select.select(
                [terminal], [terminal] if due > 0 else [], [], 1 if due > 0 else 0.01
            )
            if readable:
                self._child.read_nonblocking(65536, timeout=0)
            if writable:
                try:
                    text = text[os.write(terminal, text[: min(due, 4096)]) :]
                except BlockingIOError:
                    pass  # there was room, but not enough
        os.set_blocking(terminal, True)

    def read_until(self, text):
        """Waits for the text. Returns everything seen up to its end."""
        try:
            self._child.expect_exact(text.replace(b"\n", b"\r\n"))
        except (pexpect.TIMEOUT, pexpect.EOF) as failure:
            raise AssertionError(
                f"{text!r} does not come ({type(failure).__name__}); the last exchange was\n"
                + _readable(self.last_exchange)
            ) from None
        return _without_crlf(self._child.before) + text

    def exchange(self, line, until, echo=None):
        """Enters a line and waits for the text that ends the answer. Returns the answer: everything after
        the echo of the line, the final text included."""
        self.enter(line)
        seen = self.read_until(until)
        expected = (line if echo is None else echo) + b"\n"
        assert seen.startswith(expected), f"the echo of {line!r} is\n" + _readable(seen)
        return seen[len(expected) :]

    def command(self, line, echo=None):
        """Enters a line at the prompt. Returns what is printed before the next prompt."""
        return self.exchange(line, PROMPT, echo)[: -len(PROMPT)]

    def log_in(self, user=USER, password=PASSWORD):
        """Logs in and waits for the first prompt."""
        self.read_until(b"Username: ")
        self.exchange(user, b"Password: ")
        self.exchange(password, PROMPT, echo=b"")

    def attempt(self, user, password):
        """Gives wrong answers to the two login questions, the first already asked. Returns the output up
        to the next question for the user name."""
        self.exchange(user, b"Password: ")
        return self.exchange(password, b"Username: ", echo=b"")

    def end(self):
        """Waits for the end of the session. Returns its exit status and the rest of its output."""
        try:
            self._child.expect_exact(pexpect.EOF)
        except pexpect.TIMEOUT:
            raise AssertionError(
                "the session does not end; the last exchange was\n" + _readable(self.last_exchange)
            ) from None
        self._child.wait()
        return self._child.exitstatus, _without_crlf(self._child.before)

    def send_signal(self, number):
        """Sends a signal to the command."""
        self._child.kill(number)

    def leave(self, line=b"exit"):
        """Enters a line that must end the session silently. Returns the exit status."""
        self.enter(line)
        status, rest = self.end()
        assert rest == line + b"\n", "the session does not end silently:\n" + _readable(rest)
        return status

    def modes(self):
        """Returns the terminal's modes, as of termios."""
        return termios.tcgetattr(self._child.fileno())

    def modes_at_start(self):
        """Returns the modes of a new terminal."""
        ours, its = os.openpty()
        modes = termios.tcgetattr(its)
        os.close(ours)
        os.close(its)
        return modes

    def hang_up(self):
        """Closes the terminal, which hangs it up."""
        self._child.ptyproc.fileobj.close()

    def status_after_hang_up(self):
        """Waits for the end of the session. Returns its exit status."""
        wait_until(lambda: not self._child.isalive())
        return self._child.exitstatus

    def close(self):
        if END_SESSIONS and self._child.isalive():
            self.send_signal(signal.SIGTERM)
            self._child.expect([pexpect.EOF, pexpect.TIMEOUT], timeout=PATIENCE / 2)
        if self._child.isalive():
            # The sandbox dies with the script that started it.
            self._child.kill(signal.SIGKILL)
            self._child.wait()
        self._child.close()


def _readable(screen):
    return screen.decode("ascii", "backslashreplace")
