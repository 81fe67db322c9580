"""What docs/integration.md requires of a device is enough: the static shell runs in a root folder with
BusyBox, scripts in place of the device's own programs, and nothing else."""

import re
import shutil
from pathlib import Path

import pytest

import programs
from backup_test import BACKUP_FINISHED, RESTORE_FAILED, RESTORE_FINISHED, transfer
from console import END_SESSIONS, ENVIRONMENT, PROGRAM_DIR, PROMPT, SOURCE_DIR, TARGET, Console
from integration_test import CLIENT, PASSWORD, USER, assert_session_of_the_guide, blocks

STATIC_SHELL = PROGRAM_DIR / ("tessel" if TARGET else "tests/tessel_alone")
UNPACKED = SOURCE_DIR / "build/busybox"
TERMINALS = ("vt100", "vt102", "vt220", "linux", "xterm")
# The applets that the shell runs, then those that the guide's client and the other scripts need.
APPLETS = ("cat", "sh", "wget") + ("awk", "mv")
ARCHIVE = b"archive\n"
SCRIPTS = {
    "/bin/wput": "echo FINISHED",
    "/bin/backupconfig": "read -r line && echo $line >/restored && [ $line = archive ]",
    "/bin/reboot": "echo >/rebooted",
}


pytestmark = pytest.mark.skipif(
    END_SESSIONS, reason="sanitizers, valgrind and coverage need additional libraries"
)


@pytest.fixture(scope="module", name="busybox")
def fixture_busybox():
    architecture = programs.run(
        ["dpkg", "--print-architecture"], capture_output=True, text=True, check=True
    ).stdout.strip()
    make = [SOURCE_DIR / "scripts/make_sysroot", architecture, UNPACKED, "busybox-static"]
    UNPACKED.parent.mkdir(exist_ok=True)
    programs.run(["flock", f"{UNPACKED}.lock", *make], check=True)
    return UNPACKED / "usr/bin/busybox"


class BareDevice:
    """A root folder with BusyBox, the shell, the files of the integration guide, and scripts."""

    def __init__(self, root, busybox):
        self.root = root
        for name in ("bin", "dev", "tmp", "var/log"):
            (root / name).mkdir(parents=True)
        shutil.copy(busybox, root / "bin")
        shutil.copy(STATIC_SHELL, root / "bin/tessel")
        for applet in APPLETS:
            (root / "bin" / applet).symlink_to("busybox")
        for name, text in blocks().items():
            if name != "a session":
                self.write(name, text)
        for name, line in SCRIPTS.items():
            self.write(name, f"#!/bin/sh\n{line}\n")
        for name in (CLIENT, *SCRIPTS):
            self.path(name).chmod(0o755)
        self._consoles = []

    def path(self, name):
        return self.root / name.lstrip("/")

    def write(self, name, text):
        self.path(name).parent.mkdir(parents=True, exist_ok=True)
        self.path(name).write_text(text)

    def add_terminal(self, name):
        entry = self.path(f"/usr/share/terminfo/{name[0]}/{name}")
        entry.parent.mkdir(parents=True)
        # Debian 12 and Debian 13 have them in different places.
        places = (Path(place, name[0], name) for place in ("/lib/terminfo", "/usr/share/terminfo"))
        shutil.copy(next(filter(Path.exists, places)), entry)

    def console(self, term="vt100", **options):
        """Starts the shell, with the host's network. Returns its console."""
        sandbox = ["bwrap", "--unshare-user", "--unshare-pid", "--die-with-parent", "--clearenv"]
        sandbox += ["--bind", str(self.root), "/", "--dev", "/dev"]
        sandbox += ["--setenv", "PATH", "/bin", "--setenv", "TERM", term]
        console = Console([*sandbox, "/bin/tessel"], environment=ENVIRONMENT, **options)
        self._consoles.append(console)
        return console

    def log_in(self, **options):
        console = self.console(**options)
        console.log_in(USER, PASSWORD)
        return console

    def close(self):
        for console in self._consoles:
            console.close()


@pytest.fixture(name="bare_device")
def fixture_bare_device(tmp_path, busybox):
    device = BareDevice(tmp_path / "root", busybox)
    yield device
    device.close()


@pytest.fixture(name="server")
def fixture_server(tmp_path):
    """Returns the port of an FTP server on the host that serves archives."""
    home = tmp_path / "home"
    home.mkdir()
    for name in ("archive", "sharp#;name"):
        (home / name).write_bytes(ARCHIVE)
    (home / "other").write_bytes(b"other\n")
    command = ["/usr/bin/python3", "-m", "pyftpdlib", "-i", "127.0.0.1", "-p", "0", "-d", str(home)]
    command += ["-u", "backup", "-P", "sec@ret"]
    with programs.start(command, stderr=programs.PIPE, text=True) as process:
        lines = iter(process.stderr.readline, "")
        ports = (re.search(r"starting FTP server on .*:(\d+)", line) for line in lines)
        yield next(filter(None, ports)).group(1).encode()
        process.kill()


def restore(console, port, path):
    answers = {"server": b"127.0.0.1", "port": port, "user": b"backup", "password": b"sec@ret"}
    return transfer(console, b"restore", **answers, path=path)


def test_shell_is_static():
    headers = programs.run(["readelf", "-lW", STATIC_SHELL], capture_output=True, check=True)
    assert b" INTERP " not in headers.stdout and b"LOAD" in headers.stdout


def test_session_of_the_integration_guide(bare_device):
    console = bare_device.console("dumb")
    assert_session_of_the_guide(console)
    assert b"Garage" in bare_device.path("/etc/settings").read_bytes()


def test_log_and_backup(bare_device):
    bare_device.write("/var/log/cm.log", "one\ntwo\n")
    console = bare_device.log_in()
    assert console.command(b"show cm") == b"one\ntwo\n"
    assert transfer(console, b"backup") == BACKUP_FINISHED
    assert console.leave() == 0


@pytest.mark.parametrize("path", [b"archive", b"sharp#;name"])
def test_restore_with_wget_of_busybox(bare_device, server, path):
    console = bare_device.log_in()
    assert restore(console, server, path).endswith(RESTORE_FINISHED)
    assert bare_device.path("/restored").read_bytes() == ARCHIVE
    assert bare_device.path("/rebooted").exists()
    assert console.leave() == 0


@pytest.mark.parametrize("path", [b"other", b"missing", b"sharp%23;name"])
def test_restore_of_a_file_that_is_not_an_archive_fails(bare_device, server, path):
    console = bare_device.log_in()
    assert restore(console, server, path).endswith(RESTORE_FAILED)
    assert not bare_device.path("/rebooted").exists()
    assert console.leave() == 0


# A line longer than the window, edited at its beginning.
NARROW = {"window": (24, 20)}
LONG = b"0123456789abcdefghijklmnopq"
TO_START = b"\x01"




@pytest.mark.parametrize("term", TERMINALS)
def test_long_line_wraps_on_a_known_terminal(bare_device, term):
    bare_device.add_terminal(term)
    console = bare_device.log_in(term=term, **NARROW)
    console.type(LONG)
    console.read_until(LONG[-4:])
    console.type(TO_START)
    console.read_until(b"\x1b[A")
    assert b"<" not in console.screen


@pytest.mark.parametrize("term", TERMINALS)
def test_long_line_scrolls_sideways_on_an_unknown_terminal(bare_device, term):
    console = bare_device.log_in(term=term, **NARROW)
    console.type(LONG)
    console.read_until(b"<")
    console.type(TO_START)
    console.read_until(b">")
    # The editing keys work: the line is deleted, and a mistyped command is corrected.
    console.type(b"\x0b" + b"elp list\x01h\r")
    console.read_until(b"\nlist\t\t")
    console.read_until(PROMPT)
    assert b"\x1b" not in console.screen
    assert console.leave() == 0


def test_memory_at_the_prompt(bare_device, record_property):
    """Records the figures and compares them with a generous limit."""
    program = bare_device.path("/bin/tessel")
    programs.run(["strip", program], check=True)
    console = bare_device.log_in()
    (process,) = (path for path in Path("/proc").glob("[0-9]*") if runs(path, program))
    (resident,) = re.findall(r"VmRSS:\s+(\d+) kB", (process / "status").read_text())
    private = re.findall(r"Private_\w+:\s+(\d+) kB", (process / "smaps_rollup").read_text())
    record_property(
        "static",
        f"tessel at its prompt: {resident} KiB resident, {sum(map(int, private))} KiB of them its"
        f" own; the program: {program.stat().st_size} bytes",
    )
    assert 0 < int(resident) < 4 * 1024
    assert console.leave() == 0


def runs(process, program):
    """Returns whether the process runs the program; not if it is another user's or has ended."""
    try:
        return (process / "exe").samefile(program)
    except OSError:
        return False
