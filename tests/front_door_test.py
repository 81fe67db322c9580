"""The commands at the top of the repository: their help, their progress reports, and that they and the
tests leave the user's terminal alone."""

import contextlib
import os
import re
import select
import shutil
import signal
import sys
import tempfile
from pathlib import Path

import pexpect
import pytest

import programs
from console import ENVIRONMENT, PATIENCE, PROGRAM_DIR, PROMPT, SOURCE_DIR, WINDOW, wait_until

TESTS = SOURCE_DIR / "tests"
AT_TERMINAL = SOURCE_DIR / ".ci/at_terminal"

# What a program could do to the terminal at which the tests run.
INTRUDER = """
import programs
INTRUDE = "for order in 'echo intruder >/dev/tty' 'stty -echo </dev/tty' 'read line';"
INTRUDE += ' do sh -c "$order" && exit 1; done; exit 0'

def test_program_that_runs_to_its_end():
    assert programs.run(["sh", "-c", INTRUDE]).returncode == 0

def test_program_that_is_started():
    assert programs.start(["sh", "-c", INTRUDE]).wait() == 0
"""


def at_terminal(*command, **options):
    """Runs a command at a terminal. Returns (status, output)."""
    done = programs.run(
        [AT_TERMINAL, *command],
        stdout=programs.PIPE,
        stderr=programs.STDOUT,
        text=True,
        timeout=6 * PATIENCE,  # it may be a whole run of tests
        **options,
    )
    return done.returncode, done.stdout


def pytest_at_terminal(*words):
    return at_terminal(sys.executable, "-m", "pytest", "-q", "-c", TESTS / "pytest.ini", *words)


# The terminal at which the tests run


def test_no_program_that_a_test_starts_reaches_the_terminal(tmp_path):
    (tmp_path / "intruder_test.py").write_text(INTRUDER)
    # Without -s pytest would redirect the standard streams.
    status, seen = pytest_at_terminal(
        "-s", f"--confcutdir={tmp_path}", "-o", f"pythonpath={TESTS}", tmp_path
    )
    assert (status, "intruder" in seen) == (0, False), seen
    assert "2 passed" in seen


def test_tests_pass_at_a_terminal():
    some = [TESTS / f"{name}_test.py" for name in ("help", "session_picture", "include_graph")]
    status, seen = pytest_at_terminal(*some)
    assert (status, "failed" in seen) == (0, False), seen


def test_programs_of_a_test_do_not_inherit_ignored_signals():
    start = """import programs
print(programs.run(["sh", "-c", "trap 'exit 7' QUIT; kill -s QUIT $$"]).returncode)"""
    done = programs.run(
        [sys.executable, "-B", "-c", start],
        cwd=TESTS,
        capture_output=True,
        preexec_fn=lambda: signal.signal(signal.SIGQUIT, signal.SIG_IGN),
    )
    assert done.stdout == b"7\n"


def test_programs_are_started_in_one_place():
    starts = re.compile(
        r"import.* (subprocess|pty)\b|pexpect\.(spawn|run)\("
        r"|\bos\.(fork|forkpty|popen|system|posix_spawnp?|spawn\w+|exec\w+)\("
    )
    found = {
        path.name
        for path in TESTS.rglob("*.py")
        # Programs that run within a sandbox are in string literals.
        if any(starts.search(line) for line in path.read_text().splitlines() if '"' not in line)
    }
    assert found == {"programs.py"}


def test_temporary_files_are_in_the_build_folder(tmp_path):
    made = programs.run(["mktemp"], capture_output=True, text=True, check=True, env=ENVIRONMENT)
    with tempfile.NamedTemporaryFile() as file:
        for path in (tmp_path, Path(made.stdout.strip()), Path(file.name)):
            assert PROGRAM_DIR.absolute() in path.parents
    Path(made.stdout.strip()).unlink()


def test_changing_or_reading_the_terminal_is_detected():
    assert at_terminal("sh", "-c", "echo seen; exit 3") == (3, "typed ahead\nseen\n")
    status, seen = at_terminal("stty", "-echo")
    assert (status, "modes have changed" in seen) == (1, True)
    status, seen = at_terminal("sh", "-c", "read line </dev/tty")
    assert (status, "read from" in seen) == (1, True)


# Help

# These run on the device, or are called by a package manager or by a test in a sandbox.
NOT_FOR_USERS = re.compile(
    r"gateway/(backupconfig|boot|fcgiclient|reboot|start_daemon)|packaging/.*|tests/.*"
    r"|gateway/machine/(agent|ftp_server|init|play_session|session|set_up|shut_down)"
)


def commands():
    """Returns the paths of the executable files that users may start."""
    listed = programs.run(
        ["git", "-c", "safe.directory=*", "ls-files", "-s", "--", SOURCE_DIR],
        cwd=SOURCE_DIR,
        capture_output=True,
        text=True,
        check=True,
    ).stdout
    names = re.findall(r"^100755 .*\t(.*)$", listed, re.MULTILINE)
    return [name for name in names if not NOT_FOR_USERS.fullmatch(name)]


@pytest.mark.parametrize("option", ["-h", "--help"])
@pytest.mark.parametrize("name", commands())
def test_help_option_prints_usage_and_starts_nothing(name, option, tmp_path):
    for program in ("cat", "dirname", "env", "python3", "sed", "sh"):
        (tmp_path / program).symlink_to(f"/usr/bin/{program}")
    done = programs.run(
        [SOURCE_DIR / name, option],
        env={"PATH": str(tmp_path), "PYTHONDONTWRITEBYTECODE": "1"},
        capture_output=True,
        text=True,
        timeout=PATIENCE,
    )
    assert (done.returncode, done.stderr) == (0, "")
    assert re.search(rf"^usage: \S*{Path(name).name}\b", done.stdout, re.MULTILINE)


# The stages of ./check

STAGE = SOURCE_DIR / "scripts/stage"
SOME_TESTS = """
import pytest

@pytest.mark.parametrize("letter", "ab")
def test_letter(letter):
    assert letter == "a"

def test_device(device):
    assert device.console().read_until(b"Username: ") == b"?"

@pytest.mark.skip
def test_later():
    pass
"""


def run_stage(folder, *command, title="[1/2] some tests", **options):
    return programs.run(
        [STAGE, title, folder / "1-some.log", *command],
        stdout=programs.PIPE,
        stderr=programs.STDOUT,
        text=True,
        timeout=PATIENCE,
        **options,
    )


def test_stage_reports_each_failure_with_its_transcript_and_how_to_repeat_it(tmp_path):
    (tmp_path / "some_test.py").write_text(SOME_TESTS)
    pytest_words = [sys.executable, "-m", "pytest", "-q", "-c", TESTS / "pytest.ini", "-p", "conftest"]
    # This pytest is not a worker of the test run.
    alone = {name: value for name, value in ENVIRONMENT.items() if "XDIST" not in name}
    done = run_stage(
        tmp_path,
        *pytest_words,
        f"--confcutdir={tmp_path}",
        "--junitxml={results}",
        tmp_path,
        env={**alone, "PYTHONPATH": TESTS, "TESSEL_TRANSCRIPTS": tmp_path / "failures"},
    )
    assert done.returncode == 1
    first, counts, *failures = done.stdout.splitlines()
    assert first == "[1/2] some tests"
    assert re.fullmatch(r" +1 passed, 2 failed, 1 skipped in \d:\d\d", counts)
    named = [line for line in failures if line.startswith("FAILED")]
    assert named == ["FAILED some_test.py::test_letter[b]", "FAILED some_test.py::test_device"]
    assert re.findall(r"to repeat: +(.*)", done.stdout) == [
        "./check test_letter",
        "./check test_device",
    ]
    for transcript in re.findall(r"transcript: (.*)", done.stdout):
        assert "AssertionError" in Path(transcript).read_text()
    assert "--- whole console ---\nPlease, login as" in Path(transcript).read_text()
    summary = programs.run([STAGE, "--summary", tmp_path, "83"], capture_output=True, text=True).stdout
    assert [line for line in summary.splitlines() if line.startswith("FAILED")] == named
    assert summary.endswith(
        f"1 passed, 2 failed, 1 skipped, in 1:23. The logs are in {tmp_path}.\n"
    )


def test_stage_shows_the_end_of_a_failed_builds_output(tmp_path):
    done = run_stage(tmp_path, "sh", "-c", "seq 1000; exit 3")
    assert done.returncode == 3
    lines = done.stdout.splitlines()
    assert lines[0] == "[1/2] some tests"
    assert re.fullmatch(r" +failed in \d:\d\d", lines[1])
    assert lines[2:-1] == [str(number) for number in range(971, 1001)]
    assert lines[-1] == f"The whole output is in {tmp_path}/1-some.log."
    assert (tmp_path / "1-some.log").read_text().count("\n") == 1000


@pytest.mark.parametrize(
    "said, shown",
    [
        ("[12/345] Building CXX object", "12 of 345"),
        ("  3/14 Test #7: lint.shell ...   Passed", "3 of 14"),
        (" 3/14 Test #7: lint.shell ...***Failed", "3 of 14, 1 failed"),
        ("..F.sE..  [ 45%]", "8 tests, 45 %, 2 failed"),
        (r"..... [ 99%]\n.F\c", "7 tests, 99 %, 1 failed"),
    ],
)
def test_stage_updates_its_line_at_a_terminal(tmp_path, said, shown):
    words = ["[2/6] build", str(tmp_path / "2-build.log"), "sh", "-c", f"/bin/echo -e '{said}'; exec sleep 1000"]
    stage = programs.on_terminal(str(STAGE), words, timeout=PATIENCE, encoding="utf-8")
    stage.expect(r"\[2/6\] build  0:0\d  ")
    stage.expect_exact(shown)
    # Ctrl-C ends the stage and its command.
    stage.sendintr()
    stage.expect(pexpect.EOF)
    stage.close()
    assert stage.exitstatus == 130


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_stage_ends_with_everything_it_has_started(tmp_path, number):
    script = f"echo $$ >'{tmp_path}/process'; exec sleep 1000"
    with programs.start([STAGE, "a stage", tmp_path / "a.log", "sh", "-c", script]) as stage:
        wait_until((tmp_path / "process").exists)
        wait_until((tmp_path / "process").read_text)
        started = os.pidfd_open(int((tmp_path / "process").read_text()))
        stage.send_signal(number)
        assert stage.wait(timeout=PATIENCE) == 130
    assert select.select([started], [], [], PATIENCE)[0]
    os.close(started)


def test_stage_keeps_its_command_from_the_terminal(tmp_path):
    script = "! sh -c 'echo intruder >/dev/tty' && ! read -r line"
    status, seen = at_terminal(STAGE, "a stage", tmp_path / "log", "sh", "-c", script)
    assert (status, "intruder" in seen, "done in" in seen) == (0, False, True)


def test_lint_rechecks_files_that_changed_or_had_findings(tmp_path):
    tool = tmp_path / "clang-tidy-19"
    commands = tmp_path / "compile_commands.json"

    def lint(status):
        tool.write_text(f"#!/bin/sh\n[ $1 = --version ] || {{ echo looked; exit {status}; }}\n")
        tool.chmod(0o755)
        done = programs.run(
            [SOURCE_DIR / "scripts/lint", "tidy", tmp_path, "shell/main.cpp"],
            env={**ENVIRONMENT, "PATH": f"{tmp_path}:{ENVIRONMENT['PATH']}"},
            capture_output=True,
            text=True,
        )
        return done.returncode, done.stdout

    commands.write_text("[]")
    assert lint(1) == (1, "looked\n")
    assert lint(0) == (0, "looked\n")
    assert lint(0) == (0, "")
    commands.write_text("[{}]")
    assert lint(0) == (0, "looked\n")


# Clones: owners, copies


class Clone:
    """A clone of the sources in which ./run has already built."""

    def __init__(self, folder):
        self.folder = folder
        folder.mkdir()
        for name in ("run", "check", "fuzz", "bench"):
            shutil.copy(SOURCE_DIR / name, folder)
        for name in ("scripts", "gateway", "tests"):
            (folder / name).symlink_to(SOURCE_DIR / name)
        for build in (folder / "build/run", folder / "build/armhf"):
            build.mkdir(parents=True)
        for name in ("tessel", "gateway"):
            (folder / "build/run" / name).symlink_to(PROGRAM_DIR / name)
        self.stand_ins = folder / "stand-ins"
        self.stand_ins.mkdir()
        self.stand_in("cmake", "exit 0")
        self.environment = {**ENVIRONMENT, "PATH": f"{self.stand_ins}:{ENVIRONMENT['PATH']}"}

    def stand_in(self, name, script):
        path = self.stand_ins / name
        path.write_text(f"#!/bin/sh\n{script}\n")
        path.chmod(0o755)

    def run(self, command, *options, **others):
        return programs.run(
            [self.folder / command, *options],
            env=self.environment,
            capture_output=True,
            timeout=PATIENCE,
            **others,
        )

    def play(self, *lines, options=()):
        """Plays a session of these lines with ./run. Returns what it prints."""
        session = "\n".join(["admin", "gateway", *lines, "exit", ""]).encode()
        done = self.run("run", *options, input=session)
        assert done.returncode == 0, done
        return done.stdout.decode()

    def at_terminal(self):
        """Starts ./run at a terminal. Returns the pexpect object."""
        return programs.on_terminal(
            str(self.folder / "run"),
            env=self.environment,
            dimensions=WINDOW,
            timeout=PATIENCE,
            encoding="utf-8",
        )

    def files(self):
        return sorted(self.folder.rglob("*"))


@pytest.fixture(name="clone")
def fixture_clone(tmp_path):
    return Clone(tmp_path / "clone")


@pytest.mark.parametrize("command", ["run", "check", "fuzz", "bench"])
def test_a_clone_used_by_another_user_is_refused_and_not_changed(clone, command):
    clone.stand_in("id", "echo 54321")
    before = clone.files()
    done = clone.run(command, text=True)
    assert (done.returncode, done.stdout) == (1, "")
    me = Path(clone.folder).owner()
    assert done.stderr.endswith(f"files of {me}: continue as {me}, or make your own clone.\n")
    assert done.stderr.count("\n") == 1
    assert clone.files() == before


def test_first_build_in_a_users_clone_is_refused_to_root(clone):
    shutil.rmtree(clone.folder / "build")
    clone.stand_in("id", "echo 0")
    clone.stand_in("stat", "echo 1000")
    clone.environment.update(SUDO_UID="1000", SUDO_USER="alice")
    before = clone.files()
    done = clone.run("run", text=True)
    assert done.returncode == 1
    assert done.stderr.startswith("This clone belongs to alice: start this without sudo")
    assert clone.files() == before


def test_a_second_check_is_refused(clone):
    (clone.folder / "build/check").mkdir()
    with programs.start(
        ["flock", clone.folder / "build/check.lock", "cat"], stdin=programs.PIPE, stdout=programs.PIPE
    ) as first:
        first.stdin.write(b"held\n")
        first.stdin.flush()
        assert first.stdout.readline() == b"held\n"
        done = clone.run("check", text=True)
        first.stdin.close()
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == "check: another ./check is running in build/check; wait for it or stop it.\n"


def test_builds_made_in_another_place_are_rebuilt(clone):
    for name, place in (("check", "/somewhere/else"), ("sanitizers", clone.folder / "build/sanitizers")):
        folder = clone.folder / "build" / name
        folder.mkdir()
        (folder / "CMakeCache.txt").write_text(f"CMAKE_CACHEFILE_DIR:INTERNAL={place}\n")
    done = clone.run("scripts/claim_build", text=True)
    assert done.returncode == 0
    assert done.stderr == (
        "build/check was built in another place, /somewhere/else: rebuilding.\n"
    )
    assert sorted(path.name for path in (clone.folder / "build").iterdir()) == [
        "armhf",
        "run",
        "sanitizers",
    ]


# ./run


def test_a_copied_clone_runs_its_own_program(clone):
    cache = clone.folder / "build/run/CMakeCache.txt"
    cache.write_text("CMAKE_CACHEFILE_DIR:INTERNAL=/original/build/run\n")
    done = clone.run("run", input=b"")
    assert b"built in another place, /original/build/run: rebuilding.\n" in done.stderr
    # The copied program has been removed, and the stand-in for cmake builds none.
    assert (done.returncode, done.stdout) == (1, b"")
    assert not (clone.folder / "build/run/tessel").exists()


def test_greeting_says_how_to_back_up(clone):
    shown = clone.at_terminal()
    with contextlib.closing(shown):
        shown.expect_exact("Please, login")
        greeting = shown.before
        login = re.search(r"User name (\w+), password (\w+)\.", greeting).groups()
        answers = re.search(
            r" backup +server ([\d.]+), user (\w+), password (\w+), the rest empty\r\n", greeting
        ).groups()
        folder = re.search(r"its files are in\s+(build/gateway/\S+)\.\r\n", greeting).group(1)
        for question, answer in zip(("Username: ", "Password: ", "tessel:> "), (*login, "backup")):
            shown.expect_exact(question)
            shown.send(answer + "\r")
        server, user, password = answers
        for question, answer in (
            ("Server: ", server),
            ("Port: ", ""),
            ("Server path: ", ""),
            ("Username: ", user),
            ("Password: ", password),
        ):
            shown.expect_exact(question)
            shown.send(answer + "\r")
        shown.expect_exact("Configuration backup finished!\r\n" + PROMPT.decode())
        assert len(list((clone.folder / folder).glob("config_*.bin"))) == 1
        shown.send("exit\r")
        shown.expect_exact(pexpect.EOF)


def test_greeting_says_how_to_leave_and_that_other_words_are_settings(clone):
    shown = clone.at_terminal()
    with contextlib.closing(shown):
        shown.expect_exact("Username: ")
        assert (
            "any other word is kept as a setting. exit or Ctrl-D leaves.\r\n" in shown.before
        )
        assert "The FTP server can be reached from the sandbox only" in shown.before


def test_non_ascii_characters_are_shown_as_typed(clone):
    shown = clone.at_terminal()
    with contextlib.closing(shown):
        for question, answer in (("Username: ", "admin"), ("Password: ", "gateway")):
            shown.expect_exact(question)
            shown.send(answer + "\r")
        shown.expect_exact("tessel:> ")
        shown.send("sip.user_agent=na\u00efv")
        shown.expect_exact("sip.user_agent=na\u00efv")


def test_a_second_run_is_refused_before_any_greeting(clone):
    first = clone.at_terminal()
    with contextlib.closing(first):
        first.expect_exact("Username: ")
        second = clone.at_terminal()
        second.expect_exact(pexpect.EOF)
        second.close()
        assert second.exitstatus == 1
        assert second.before == (
            "run: A gateway with its files in build/gateway is already running;"
            " leave that one first.\r\n"
        )


def test_a_second_device_is_refused(clone):
    lock = clone.folder / "build/device-files/lock"
    lock.parent.mkdir()
    with open(lock, "w", encoding="ascii"):
        holder = programs.start(["flock", lock, "cat"], stdin=programs.PIPE, stdout=programs.PIPE)
        holder.stdin.write(b"held\n")
        holder.stdin.flush()
        assert holder.stdout.readline() == b"held\n"
        done = clone.run("run", "--device", text=True)
        holder.communicate()
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == (
        "run: An emulated device with its files in build/device-files is already running;"
        " leave that one first.\n"
    )


def test_a_second_run_waits_until_the_first_has_built(clone):
    held_up = clone.folder / "held up"
    clone.stand_in("cmake", f"[ ! -p '{held_up}' ] || {{ read -r go <'{held_up}'; rm '{held_up}'; }}")
    os.mkfifo(held_up)
    first = clone.at_terminal()
    with contextlib.closing(first):
        # Now the first is building.
        with open(held_up, "w", encoding="ascii") as go:
            second = clone.at_terminal()
            second.expect_exact("run: waiting for another ./run, which is building.\r\n")
            go.write("\n")
        with contextlib.closing(second):
            first.expect_exact("Username: ")
            second.expect_exact(pexpect.EOF)
            assert re.search("build/gateway is already|is already running on .*build/gateway", second.before)


def test_backups_survive_fresh_settings(clone):
    ftp = ("127.0.0.1", "", "", "backup", "secret")
    assert "1 setting saved" in clone.play("sip.local_port=5071", "save", "backup", *ftp)
    assert "sip.local_port=5071" in clone.play("get sip")
    assert "sip.local_port=5060" in clone.play("get sip", options=["--fresh"])
    (backup,) = (clone.folder / "build/gateway/home/backup").iterdir()
    restored = clone.play("restore", "127.0.0.1", "", backup.name, *ftp[3:], "get sip")
    assert "sip.local_port=5071" in restored
