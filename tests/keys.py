"""Presses random keys in sessions, to find keys that end or hang the session.

usage: keys.py [SECONDS [SEED]]
       keys.py --replay SESSION

Plays sessions with the program in TESSEL_PROGRAM_DIR for SECONDS (default 60). For each session that does
not end with a logout and status 0, prints the reason and the command that replays it; the exit status is
then 1.
"""

import array
import ast
import fcntl
import os
import random
import re
import shlex
import struct
import sys
import tempfile
import termios
import time
from pathlib import Path

import programs
from console import ENVIRONMENT, PASSWORD, PATIENCE, PROMPT, SHELL, USER, Device
from gateway_processes import running

TERMS = ["vt100", "xterm", "linux", "dumb"]
LOCALES = ["C", "C.UTF-8"]
LENGTHS = [30, 60, 120, 120, 300, 300, 1000, 3000]  # steps of a session
SIZES = [1, 2, 3, 5, 24, 80, 200]
START_UP_FILES = [
    *3 * [b""],
    b"set editing-mode vi\nset show-mode-in-prompt on\n",
    b"set convert-meta off\nset input-meta on\nset mark-modified-lines on\n",
    b"set horizontal-scroll-mode on\nset completion-query-items 2\nset enable-bracketed-paste on\n",
]

IN_TRANSIT = 0.05  # seconds that a key may take to reach the shell

ESCAPE = b"\x1b"
ENTER = b"\r"
INTERRUPT = b"\x03"
END_OF_INPUT = b"\x04"
SUSPEND = b"\x1a"

HISTORY = [b"\x10", b"\x0e", b"\x0f", b"\x12", b"\x13", b"\x1f", b"\x18\x15"]
HISTORY += [ESCAPE + key for key in (b"p", b"n", b"<", b">", b"r", b".", b"_", b"#", b"[A", b"[B")]
SPECIAL = [ESCAPE + b"[" + key for key in (b"C", b"D", b"H", b"F", b"3~", b"2~", b"1;5C", b"200~")]
MODES = [ESCAPE + ENTER, ESCAPE + b"\n", b"\x18(", b"\x18)", b"\x18e", b"\x18\x12", b"\x16"]
WORDS = [b"help", b"list", b"log_ls", b"a=1", b"abc def", b"'q", b"a\\", b"/etc/", b"~/", b"save"]
VI = b"iIaAsScCrRxXdDyYpPuUhjklwWbBeE0$^fFtT;,.~/?nNGvV%@_|*\\=&mq#oO3 2"

# A report need not end the session, and leaks do not matter here.
SANITIZERS = "halt_on_error=0:detect_leaks=0"
# Reads of a few bytes beyond the end of a text: a word that ends with a backslash, a row of the screen.
# They have no effect that a user could notice.
HARMLESS = re.compile(
    r"READ of size.*?#\d+ \S+ in (history_tokenize|update_line|_rl_compare_chars)", re.DOTALL
)


def any_of(rng, kinds):
    """Returns the result of one of the kinds, [(weight, function)], chosen at random by weight."""
    pick = rng.random() * sum(weight for weight, _ in kinds)
    for weight, make in kinds:
        pick -= weight
        if pick < 0:
            return make()
    return kinds[-1][1]()


def step(rng):
    """Returns keys that belong together, or a window size."""

    def byte(first, end):
        return bytes([rng.randrange(first, end)])

    return any_of(
        rng,
        [
            (16, lambda: byte(0, 256)),
            (12, lambda: byte(0, 32)),
            (14, lambda: ESCAPE + byte(0, 128)),
            (4, lambda: ESCAPE + byte(ord("0"), ord("9")) * rng.randrange(1, 4)),
            (3, lambda: ESCAPE),
            (12, lambda: rng.choice(HISTORY)),
            (6, lambda: rng.choice(SPECIAL)),
            (3, lambda: rng.choice(MODES)),
            (9, lambda: rng.choice(WORDS)),
            (9, lambda: ENTER),
            (8, lambda: bytes([rng.choice(VI)])),
            (2, lambda: b"\t"),
            (1, lambda: byte(128, 256)),
            (1, lambda: INTERRUPT),
            (2, lambda: (rng.choice(SIZES), rng.choice(SIZES))),
        ],
    )


def steps(rng):
    """Returns the steps of a session. Only a few include Ctrl-D, which ends most sessions early."""
    count = rng.choice(LENGTHS)
    without = SUSPEND if rng.random() < 0.1 else SUSPEND + END_OF_INPUT
    made = []
    while len(made) < count:
        one = step(rng)
        made.append(one.translate(None, without) if isinstance(one, bytes) else one)
    return made


class Session:
    """The shell on a terminal whose two ends are watched, to see when a key has been handled."""

    def __init__(self, device, term, locale):
        self.screen = bytearray()
        self._device = device
        self._shell = None  # process id, once it is known
        self._ours, self._its = os.openpty()
        os.set_blocking(self._ours, False)
        self.set_window(24, 80)
        modes = termios.tcgetattr(self._its)
        modes[0] &= ~termios.IXON  # Ctrl-S would stop the output and hang the session
        termios.tcsetattr(self._its, termios.TCSANOW, modes)
        self._process = programs.start(
            device.start_command(
                ["/usr/bin/env", f"LC_ALL={locale}", f"ASAN_OPTIONS={SANITIZERS}", SHELL]
            ),
            stdin=self._its,
            stdout=self._its,
            stderr=self._its,
            env={**ENVIRONMENT, "TERM": term},
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0),
        )
        self._deadline = time.monotonic() + PATIENCE

    def set_window(self, rows, columns):
        fcntl.ioctl(self._ours, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def has_ended(self):
        return self._process.poll() is not None

    def look(self):
        try:
            self.screen += os.read(self._ours, 65536)
        except OSError:
            pass  # nothing to read
        del self.screen[:-100_000]

    def wait_until(self, condition):
        """Returns False if the session ends first. Fails if it hangs."""
        pause = 0
        while not condition():
            self.look()
            if self.has_ended():
                return False
            assert time.monotonic() < self._deadline, "the session hangs"
            pause += 1
            if pause > 3:
                time.sleep(0.0001)
        return True

    def bytes_read(self):
        """Returns how many bytes the shell has read since its start, from the terminal or elsewhere."""
        try:
            return int(re.search(rb"rchar: (\d+)", self._proc("io")).group(1))
        except OSError:
            return 0  # not permitted

    def is_idle(self):
        """Whether all keys have been read and the shell is waiting."""
        waiting = array.array("i", [0])
        fcntl.ioctl(self._its, termios.FIONREAD, waiting)
        if waiting[0]:
            return False
        try:
            return self._proc("stat").rpartition(b")")[2].split()[0] == b"S"
        except OSError:
            return True  # it has ended

    def _proc(self, name):
        return Path(f"/proc/{self._shell}/{name}").read_bytes()

    def settle(self, expected):
        """Waits until that many bytes have been read in all, and handled. Keys take some time to get
        through the terminal, and those that become a signal are never read."""
        sure = time.monotonic() + IN_TRANSIT
        return self.wait_until(
            lambda: self.bytes_read() >= expected or time.monotonic() > sure
        ) and self.wait_until(self.is_idle)

    def press(self, keys, wait=True):
        """Returns False if the session has ended."""
        self._deadline = time.monotonic() + PATIENCE
        expected = self.bytes_read() + len(keys)
        while keys:
            if self.has_ended():
                return False
            try:
                keys = keys[os.write(self._ours, keys) :]
            except BlockingIOError:
                self.look()
                assert time.monotonic() < self._deadline, "the session hangs"
        return self.settle(expected) if wait else True

    def log_in(self):
        for question, answer in ((b"Username: ", USER), (b"Password: ", PASSWORD)):
            assert self.wait_until(lambda asked=question: asked in self.screen)
            self.press(answer + ENTER, wait=False)
        assert self.wait_until(lambda: PROMPT in self.screen)
        processes = running(self._device.root)
        (self._shell,) = (number for number, name in processes.items() if name == "tessel")

    def play(self, made, in_a_row):
        """Returns False if the session has ended."""
        for one in made:
            if isinstance(one, tuple):
                self.set_window(*one)
                self.wait_until(self.is_idle)
                continue
            pieces = [one] if in_a_row else [bytes([key]) for key in one]
            if not all(self.press(piece, wait=not in_a_row) for piece in pieces):
                return False
        return True

    def status(self):
        """Leaves the shell, whatever it is doing. Returns its exit status."""
        self.set_window(24, 80)
        for _ in range(20):
            # Leaves questions of the editor and of backup, and macros. Then no more keys are pressed,
            # since Ctrl-C would end the logout.
            for keys in (b"\x07" + INTERRUPT, b"\x18)" + INTERRUPT, b"exit" + ENTER):
                self.press(keys)
            soon = time.monotonic() + PATIENCE / 10
            if not self.wait_until(lambda soon=soon: time.monotonic() > soon):
                break
        self.wait_until(self.has_ended)
        return self._process.wait(PATIENCE)

    def close(self):
        if not self.has_ended():
            self._process.kill()
            self._process.wait()
        self.look()
        os.close(self._ours)
        os.close(self._its)


def take_memory_errors(device):
    """Returns the sanitizers' new reports about the shell or its editor, without harmless ones."""
    reports = [
        report
        for report in re.split(r"^={65}$", device.memory_errors(), flags=re.MULTILINE)
        if "Sanitizer" in report and not HARMLESS.search(report)
    ]
    for path in device.path("/record").glob("memory.*"):
        path.unlink()
    return "\n".join(reports)


def fault(device, made, term="vt100", locale="C", start_up=b"", in_a_row=False):
    """Plays a session of these steps. Returns what went wrong, or "" if it ended as it should."""
    device.write("/.inputrc", start_up)
    device.remove("/var/lib/gateway/requests.log")
    session = Session(device, term, locale)
    try:
        session.log_in()
        session.play(made, in_a_row)
        status = session.status()
    except AssertionError as failure:
        return str(failure)
    finally:
        session.close()
    errors = take_memory_errors(device)
    if errors:
        return errors
    if status != 0:
        return f"the session ends with status {status}"
    return "" if sum("logout.cgi" in line for line in device.served()) == 1 else "there is no logout"


def search(device, seconds, seed):
    """Plays random sessions. Returns their number, the number of their steps, and the findings: what
    went wrong, and the session as arguments of fault."""
    end = time.monotonic() + seconds
    sessions = played = 0
    found = []
    while time.monotonic() < end:
        rng = random.Random(f"{seed} {sessions}")
        made = steps(rng)
        place = (rng.choice(TERMS), rng.choice(LOCALES), rng.choice(START_UP_FILES))
        session = (made, *place, rng.random() < 0.25)
        wrong = fault(device, *session)
        sessions += 1
        played += len(made)
        if wrong:
            found.append((wrong, session))
    return sessions, played, found


def report(sessions, played, found):
    for wrong, session in found:
        print(f"{wrong}\nTo replay it:\n    tests/keys.py --replay {shlex.quote(repr(session))}\n")
    print(f"{sessions} sessions of {played} steps, {len(found)} findings")


def main(arguments):
    if arguments and arguments[0] in ("-h", "--help"):
        print(__doc__.strip())
        return 0
    with tempfile.TemporaryDirectory(prefix="tessel-keys-") as folder:
        device = Device(Path(folder) / "root")
        try:
            if arguments[:1] == ["--replay"]:
                wrong = fault(device, *ast.literal_eval(arguments[1]))
                print(wrong or "nothing is wrong")
                return 1 if wrong else 0
            seconds = float(arguments[0]) if arguments else 60
            seed = arguments[1] if len(arguments) > 1 else "1"
            result = search(device, seconds, seed)
        finally:
            device.close()
    report(*result)
    return 1 if result[2] else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
