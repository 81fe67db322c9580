"""The emulated 32-bit machine and its serial line.

The machine either is the device itself, or hosts the devices of the tests. It then runs consoles on its
serial line, one after the other, and sessions without a terminal, each in a root folder shared with the
tests.
"""

import atexit
import io
import os
import re
import shlex
import shutil
import socket
import tempfile
from pathlib import Path

import pexpect
import pytest
from pexpect.fdpexpect import fdspawn

import programs
from console import ENVIRONMENT, PATIENCE, SHELL, SOURCE_DIR, WINDOW, Console, Device, RunResult

IMAGE = Path(os.environ.get("TESSEL_IMAGE") or SOURCE_DIR / "build" / "machine").absolute()
START = SOURCE_DIR / "gateway" / "machine" / "start"
# Where the folder shared with the tests is mounted on the machine.
SHARE = "/mnt/host"
# The machine's FTP server changes its user, unlike the host's; and a folder shared with the host cannot
# hold sockets.
SANDBOX_OPTIONS = (
    "--tmpfs /run/backend --cap-add CAP_SETUID --cap-add CAP_SETGID --cap-add CAP_SYS_CHROOT"
)

# {target: {file or FILE::TEST: why it cannot run there}}
HOST_PROCESSES = "looks at processes of the host"
PRELOADED = "preloads a library that is made for 64 bits"
STATIC = "preloads a library into the program, which is static"
SANDBOX_OF_THE_HOST = "runs in a sandbox of the host"
SLOW_LINE = "takes minutes on an emulated line; machine_test.py pastes what is enough there"
SSH_SERVER = "uses an ssh server of the host"
NOT_ON_TARGET = {
    "armhf": {
        "bare_device_test.py": SANDBOX_OF_THE_HOST,
        "bad_input_test.py::test_back_end_that_is_down":
            "removes the socket from the device's folder, which has none here",
        "failing_allocations_test.py": PRELOADED,
        "failing_calls_test.py": PRELOADED,
        "ftp_answers_test.py": "runs Python on the device, which has none here",
        "injection_test.py": "runs Python on the device, which has none here",
        "integration_test.py::test_client_of_a_fastcgi_server": "runs a server on the host",
        "keys_test.py": HOST_PROCESSES,
        "login_ways_test.py": "starts servers of the host; here it is the device's own getty",
        "gateway_test.py": SANDBOX_OF_THE_HOST,
        "manual_test.py": SANDBOX_OF_THE_HOST,
        "model_test.py": SANDBOX_OF_THE_HOST,
        "pipe_test.py::test_session_runs_to_its_end_when_nobody_reads_its_output":
            "gives the device a pipe of the host",
        "pipe_test.py::test_session_over_ssh_is_like_a_session_through_a_pipe": SSH_SERVER,
        "pipe_test.py::test_session_over_ssh_ends_with_exit": SSH_SERVER,
        "pipe_test.py::test_three_wrong_logins_over_ssh_end_with_status_1": SSH_SERVER,
        "secrets_test.py": HOST_PROCESSES,
        "signals_test.py": HOST_PROCESSES,
        "small_domains_test.py": "runs Python on the device, which has none here",
        "soak_test.py": HOST_PROCESSES,
        "terminals_test.py::test_pasted_line_of_100000_characters_is_one_line": SLOW_LINE,
        "terminals_test.py::test_pasted_10000_lines_are_all_handled": SLOW_LINE,
        "terminals_test.py::test_pasted_settings_are_saved_whole": SLOW_LINE,
        "turns_test.py": HOST_PROCESSES,
    },
    "i386": {
        "failing_allocations_test.py": PRELOADED,
        "failing_calls_test.py": PRELOADED,
        "ftp_answers_test.py": "needs a test program that a static build does not have",
        "injection_test.py": "needs a test program that a static build does not have",
        "small_domains_test.py": "needs a test program that a static build does not have",
        "soak_test.py": "takes a long time and does not depend on the target",
    },
    "musl": {
        "failing_allocations_test.py": STATIC,
        "failing_calls_test.py": STATIC,
    },
}  # fmt: skip
MACHINE_ONLY = {"machine_test.py"}


class Machine:
    """A booted machine. The folder `share` is shared with it."""

    def __init__(self, *options, term="vt100"):
        self._folder = tempfile.mkdtemp(prefix="tessel-machine-")
        self.share = Path(self._folder) / "share"
        (self.share / "jobs").mkdir(parents=True)
        self._jobs = 0
        # A socket's path is limited to some hundred bytes; the folder's may be longer.
        here = os.open(self._folder, os.O_PATH)
        listeners = []
        for name in ("line", "agent"):
            listener = socket.socket(socket.AF_UNIX)
            listener.bind(f"/proc/self/fd/{here}/{name}")
            listener.listen()
            listener.settimeout(PATIENCE)
            listeners.append(listener)
        os.close(here)
        environment = {**os.environ, "TERM": term}
        # Everything seen on the serial line.
        self.shown = io.BytesIO()
        command = [START, "--line", "line", "--agent", "agent", *options, IMAGE, self.share]
        self._process = programs.start(command, env=environment, cwd=self._folder)
        atexit.register(self.close)
        self._listener = listeners[0]
        self.line = self._accept_line()
        self._agent = listeners[1].accept()[0]
        listeners[1].close()
        self._agent_spawn = fdspawn(self._agent, timeout=PATIENCE)

    def _accept_line(self):
        self._line_socket = self._listener.accept()[0]
        line = fdspawn(self._line_socket, timeout=PATIENCE, maxread=65536)
        line.delaybeforesend = None
        line.logfile_read = self.shown
        return line

    def wait_until_ready(self):
        """Waits until the machine has booted and accepts commands."""
        self._agent_spawn.expect_exact(b"ready\n")

    def order(self, *words):
        self._agent.sendall(" ".join(words).encode() + b"\n")

    def sh(self, script):
        """Runs a line of sh on the machine. Returns its output, in one line."""
        self.order("sh", script)
        # The machine stops while its output on the serial line is not read.
        while self._agent_spawn.expect([rb"answer ([^\n]*)\n", pexpect.TIMEOUT], timeout=0.1) == 1:
            self.line.expect([pexpect.TIMEOUT, pexpect.EOF], timeout=0)
        return self._agent_spawn.match.group(1).decode().strip()

    def lose_carrier(self):
        """Makes the machine's serial line lose its carrier."""
        self.order("hang_up")

    def reconnect_line(self):
        """Unplugs the serial line on the host's side and plugs it in again."""
        self._line_socket.close()
        self.line = self._accept_line()

    def path_of(self, root):
        """Returns the machine's path of a folder below the share."""
        return f"{SHARE}/{Path(root).relative_to(self.share)}"

    def new_job(self, command, before=""):
        """Prepares a job: a command line for the machine to run after some sh lines. Returns its name."""
        self._jobs += 1
        job = str(self._jobs)
        folder = self.share / "jobs" / job
        folder.mkdir()
        words = " ".join(shlex.quote(str(word)) for word in command)
        (folder / "command").write_text(
            f"echo $$ >/run/job.{job}\nexport TERM=dumb\n"
            f"export GATEWAY_SANDBOX_OPTIONS='{SANDBOX_OPTIONS}'\n"
            f"{before}exec {words}\n"
        )
        return job

    def run(self, command, session, patience=PATIENCE):
        """Runs a command without a terminal. Returns its status, output and errors."""
        job = self.new_job(command)
        folder = self.share / "jobs" / job
        (folder / "input").write_bytes(session)
        self.order("run", job)
        self._agent_spawn.expect(rb"ended %s (\d+)\n" % job.encode(), timeout=patience)
        status = int(self._agent_spawn.match.group(1))
        output, errors = ((folder / name).read_bytes() for name in ("output", "errors"))
        shutil.rmtree(folder)
        return status, output, errors

    def close(self):
        atexit.unregister(self.close)
        self._process.kill()
        self._process.wait()
        self._line_socket.close()
        self._agent.close()
        self._listener.close()
        shutil.rmtree(self._folder, ignore_errors=True)


class MachineRoom:
    """Runs one machine at a time."""

    def __init__(self):
        self._machine = None
        self._serves_devices = False

    def for_devices(self):
        """Returns the machine that hosts the devices of the tests."""
        if not self._serves_devices:
            self.boot("--tests")
            self._serves_devices = True
        return self._machine

    def boot(self, *options, **others):
        """Boots a machine after shutting down any other. Returns it when it is ready."""
        self.close()
        self._machine = Machine(*options, **others)
        self._machine.wait_until_ready()
        return self._machine

    def close(self):
        if self._machine:
            self._machine.close()
        self._machine = None
        self._serves_devices = False


class MachineDevice(Device):
    """A device hosted by an emulated machine, which shares its root folder."""

    def __init__(self, root, machine):
        super().__init__(root)
        self._machine = machine

    def serve_ftp(self, options=""):
        if options:
            pytest.skip("the machine's FTP server cannot be made to fail")
        super().serve_ftp()

    def start_command(self, command=()):
        """Returns the command line to run on the machine."""
        start = ["/opt/gateway/start", *(["--ftp"] if self._serves_ftp else [])]
        root = self._machine.path_of(self.root)
        return ["/bin/sh", *start, root, "/opt/program", *(command or [SHELL])]

    def _new_console(self, command, environment=None, window=WINDOW, prepare=None):
        if prepare:
            pytest.skip("needs a terminal of the host")
        term = (environment or ENVIRONMENT).get("TERM")
        return SerialConsole(self._machine, self.start_command(command), term, window)

    def _run(self, command, session, patience):
        patience = max(patience, PATIENCE)
        return RunResult(*self._machine.run(self.start_command(command), session, patience))


class SerialConsole(Console):
    """A console on the machine's serial line."""

    def __init__(self, machine, command, term, window):
        self._shown = io.BytesIO()
        self._exchange_start = 0
        self._child = _SerialJob(machine, command, term, window, self._shown)
        self._machine = machine

    def modes(self):
        if self._child.exitstatus is None:
            return _modes(self._machine.sh("stty -g -F /dev/ttyAMA0"))
        return self._child.modes_at_end

    def modes_at_start(self):
        return self._child.modes_at_start

    def hang_up(self):
        self._machine.lose_carrier()


def _modes(text):
    """Returns the flags in the output of stty -g, in the order of termios."""
    return [int(word, 16) for word in text.split(":")[:4]]


class _SerialJob:
    """A command on the serial line, with the interface of a pexpect.spawn."""

    def __init__(self, machine, command, term, window, log):
        self._machine = machine
        self._line = machine.line
        self._log = log
        self.before = b""
        self.exitstatus = None
        self.modes_at_end = None
        before = "unset TERM\n" if term is None else f"export TERM={term}\n"
        before += "stty rows {} cols {}\n".format(*window)
        self._job = machine.new_job(command, before)
        self._end = re.compile(rb"\0ended %s (\d+) (\S+)\0" % self._job.encode())
        machine.order("console", self._job)
        self._line.logfile_read = None
        self._line.expect(rb"\0started %s (\S+)\0" % self._job.encode())
        self.modes_at_start = _modes(self._line.match.group(1).decode())
        log.write(self._line.buffer)
        self._line.logfile_read = log

    def fileno(self):
        return self._line.child_fd

    def send(self, keys):
        self._line.send(keys)

    def read_nonblocking(self, size, timeout):
        return self._line.read_nonblocking(size, timeout)

    def expect_exact(self, text):
        wanted = [self._end] if text is pexpect.EOF else [self._end, re.escape(text)]
        if self._line.expect(wanted) == 0:
            self._note_end()
            if text is not pexpect.EOF:
                raise pexpect.EOF("the console has ended")
        self.before = self._line.before

    def _note_end(self):
        status, modes = self._line.match.groups()
        self.exitstatus = int(status)
        self.modes_at_end = None if modes == b"none" else _modes(modes.decode())
        # The mark is not part of the output.
        self._log.seek(-len(self._line.match.group()) - len(self._line.buffer), os.SEEK_END)
        self._log.truncate()
        self._line.logfile_read = None

    def isalive(self):
        if self.exitstatus is None and self._line.expect([self._end, pexpect.TIMEOUT], 0.01) == 0:
            self._note_end()
        return self.exitstatus is None

    def kill(self, number):
        self._machine.order("kill", self._job, str(int(number)))

    def wait(self):
        if self.exitstatus is None:
            self._line.expect(self._end)
            self._note_end()

    def close(self):
        self._line.logfile_read = None
        shutil.rmtree(self._machine.share / "jobs" / self._job)
