"""backup and restore: the dialogue, the command lines and how their outcome is judged. The programs in
the command lines are stand-ins that record their calls."""

import re
from datetime import datetime, timedelta, timezone

import pytest

from console import PROMPT, SAVE_FILE, SHELL, wait_until

BACKUP_LOG = "/tmp/auto-backup.log"
RESTORE_LOG = "/tmp/restorelog.txt"
BACKUP_FINISHED = b"Configuration backup finished!\n"
BACKUP_FAILED = b"Configuration backup failed!\n"
RESTORE_FINISHED = b"Configuration restore finished.!\nRebooting...\n"
RESTORE_FAILED = b"Configuration restore failed.!\n"
ANSWERS = {"server": b"10.0.0.1", "port": b"", "path": b"", "user": b"", "password": b""}
UP = b"\x10"  # Ctrl-P recalls the previous line


def questions(command):
    path = b"Server path: " if command.startswith(b"backup") else b"File path: "
    names = (b"Server: ", b"Port: ", path, b"Username: ", b"Password: ")
    return [PROMPT + name for name in names]


def transfer(console, command, **answers):
    """Types the command and answers its questions. Returns the output after the last answer."""
    answers = {**ANSWERS, **answers}
    shown = console.exchange(command, questions(command)[0])
    kind = command.split()[0]
    assert shown == b"Starting configuration %s...\n%s" % (kind, questions(command)[0])
    for question, name in zip(questions(command)[1:], answers):
        assert console.exchange(answers[name], question) == question
    return console.exchange(answers["password"], PROMPT, echo=b"")[: -len(PROMPT)]


def printf(text):
    """Returns a sh command that prints the text."""
    return b"printf '" + b"".join(b"\\%03o" % byte for byte in text) + b"'"


@pytest.fixture
def console(device):
    """Returns the console of a device whose transfer programs succeed."""
    device.record_command_lines()
    device.record_calls("wput", b"echo FINISHED")
    device.record_calls("wget", b"echo archive")
    device.record_calls(
        "backupconfig", b"cat >/record/restored; echo restored >" + RESTORE_LOG.encode()
    )
    device.record_calls("reboot")
    return device.log_in()


def without_name(command_line):
    """Returns the backup command line with NAME in place of the file name."""
    name = re.search(rb"config_\d{4}-\d{1,2}-\d{1,2}_\d{4}\.bin", command_line)
    assert name, command_line
    return command_line.replace(name.group(), b"NAME")


# The dialogue


def test_backup_asks_its_questions_in_order_and_does_not_echo_the_password(console):
    transfer(
        console, b"backup", port=b"2121", path=b"/backups", user=b"ftpuser", password=b"ftppass"
    )
    assert console.screen.endswith(
        b"tessel:> backup\n"
        b"Starting configuration backup...\n"
        b"tessel:> Server: 10.0.0.1\n"
        b"tessel:> Port: 2121\n"
        b"tessel:> Server path: /backups\n"
        b"tessel:> Username: ftpuser\n"
        b"tessel:> Password: \n"
        b"Configuration backup finished!\n"
        b"tessel:> "
    )


def test_restore_asks_its_questions_in_order_and_does_not_echo_the_password(console):
    transfer(
        console, b"restore", port=b"2121", path=b"/b/x.bin", user=b"ftpuser", password=b"ftppass"
    )
    assert console.screen.endswith(
        b"tessel:> restore\n"
        b"Starting configuration restore...\n"
        b"tessel:> Server: 10.0.0.1\n"
        b"tessel:> Port: 2121\n"
        b"tessel:> File path: /b/x.bin\n"
        b"tessel:> Username: ftpuser\n"
        b"tessel:> Password: \n"
        b"Configuration restore finished.!\n"
        b"Rebooting...\n"
        b"tessel:> "
    )


@pytest.mark.parametrize("command", [b"backup", b"restore"])
def test_answers_are_not_in_the_history(console, command):
    transfer(console, command, port=b"21", path=b"/x", user=b"ftpuser", password=b"ftppass")
    console.enter(UP)
    assert console.read_until(questions(command)[0]).startswith(command + b"\nStarting ")


@pytest.mark.parametrize("command", [b"backup", b"restore"])
def test_answers_are_not_queued(device, console, command):
    device.record_requests()
    console.command(b"a=1")
    transfer(console, command, port=b"21", path=b"/x", user=b"ftpuser", password=b"ftppass")
    console.command(b"save")
    assert device.read(SAVE_FILE) == b"VERSION=2.1.4\na=1\n"


@pytest.mark.parametrize("line", [b"backup now", b"restore 10.0.0.2 x"])
def test_arguments_are_ignored(device, console, line):
    transfer(console, line)
    assert b"10.0.0.1" in device.command_lines()[0]
    assert b"now" not in device.command_lines()[0] and b"10.0.0.2" not in device.command_lines()[0]


@pytest.mark.parametrize("command", [b"backup", b"restore"])
def test_end_of_input_at_a_question_is_an_empty_answer(device, console, command):
    console.enter(command)
    for question in questions(command):
        console.read_until(question)
        console.type(b"\x04")
    console.read_until(BACKUP_FINISHED if command == b"backup" else RESTORE_FINISHED)
    console.read_until(PROMPT)
    line = device.command_lines()[0]
    if command == b"backup":
        # The address already ends in a slash, so none is added before the name.
        assert without_name(line) == (
            b'wput -B -t 3 -I "backupconfig -b -d stdout" ftp://NAME > /tmp/auto-backup.log 2>&1'
        )
    else:
        assert line == (
            b"/bin/wget -nv -t 3 --passive-ftp ftp://"
            b" -O - | /bin/backupconfig -r -s stdin -l /tmp/restorelog.txt"
        )
    assert console.command(b"save") == b"ERROR: Nothing to save\n"


# The command lines

ADDRESSES = [
    # answers, the address up to the path, the path
    ({}, b"10.0.0.1", b""),
    ({"port": b"21", "path": b"/backups"}, b"10.0.0.1:21", b"/backups"),
    (
        {"port": b"21", "path": b"/backups", "user": b"admin", "password": b"pw"},
        b"admin:pw@10.0.0.1:21",
        b"/backups",
    ),
    ({"path": b"/b", "user": b"admin"}, b"admin@10.0.0.1", b"/b"),
    ({"path": b"/b", "password": b"pw"}, b"10.0.0.1", b"/b"),
    ({"path": b"backups"}, b"10.0.0.1", b"/backups"),
    ({"path": b"a/b/c"}, b"10.0.0.1", b"/a/b/c"),
    ({"path": b".x"}, b"10.0.0.1", b".x"),
    ({"path": b"./x", "port": b"21"}, b"10.0.0.1:21", b"./x"),
    ({"path": b"//x"}, b"10.0.0.1", b"//x"),
    ({"server": b"ftp.example.net"}, b"ftp.example.net", b""),
    ({"server": b"", "port": b"", "path": b"/b"}, b"", b"/b"),
]


@pytest.mark.parametrize("answers, host, path", ADDRESSES)
def test_backup_command_line(device, console, answers, host, path):
    transfer(console, b"backup", **answers)
    (line,) = device.command_lines()
    assert without_name(line) == (
        b'wput -B -t 3 -I "backupconfig -b -d stdout" ftp://' + host + path
        + b"/NAME > /tmp/auto-backup.log 2>&1"
    )


@pytest.mark.parametrize("path", [b"/backups/", b"backups/", b"/"])
def test_backup_directory_that_ends_in_a_slash_gets_no_second_one(device, console, path):
    transfer(console, b"backup", path=path)
    assert without_name(device.command_lines()[0]) == (
        b'wput -B -t 3 -I "backupconfig -b -d stdout" ftp://10.0.0.1/'
        + path.lstrip(b"/")
        + b"NAME > /tmp/auto-backup.log 2>&1"
    )


@pytest.mark.parametrize("answers, host, path", ADDRESSES)
def test_restore_command_line(device, console, answers, host, path):
    transfer(console, b"restore", **answers)
    assert device.command_lines() == [
        b"/bin/wget -nv -t 3 --passive-ftp ftp://" + host + path
        + b" -O - | /bin/backupconfig -r -s stdin -l /tmp/restorelog.txt",
        b"reboot",
    ]


def test_backup_programs_receive_their_arguments(device, console):
    transfer(console, b"backup", port=b"21", path=b"/b", user=b"u", password=b"p")
    (call,) = device.calls()
    assert without_name(call) == (
        b"wput [-B] [-t] [3] [-I] [backupconfig -b -d stdout] [ftp://u:p@10.0.0.1:21/b/NAME]"
    )


def test_restore_programs_receive_their_arguments_and_the_archive(device, console):
    device.record_calls("wget", printf(bytes(range(256))))
    transfer(console, b"restore", port=b"21", path=b"/b", user=b"u", password=b"p")
    assert sorted(device.calls()) == [
        b"backupconfig [-r] [-s] [stdin] [-l] [/tmp/restorelog.txt]",
        b"reboot",
        b"wget [-nv] [-t] [3] [--passive-ftp] [ftp://u:p@10.0.0.1:21/b] [-O] [-]",
    ]
    assert device.read("/record/restored") == bytes(range(256))


FULL_ANSWERS = {
    "server": b"10.0.0.1",
    "port": b"21",
    "path": b"/p",
    "user": b"u",
    "password": b"w",
}
QUESTIONS = list(FULL_ANSWERS)
# Special to the command interpreter outside quotes, and inside double quotes too.
HARMLESS = b"a b;c&d'e|f>g<h(i)*?[j]!k{l,m}~n"
ACTIVE = [b"$(echo>/ran)", b"`echo>/ran`", b'"$(echo>/ran)"', b"'$(echo>/ran)'", b"';echo>/ran;'"]


def address(answers):
    slash = b"" if answers["path"].startswith((b"/", b".")) else b"/"
    login = answers["user"] + b":" + answers["password"] + b"@"
    server = answers["server"] + b":" + answers["port"]
    return b"ftp://" + login + server + slash + answers["path"]


@pytest.mark.parametrize("text", [HARMLESS, b"\\ $HOME " + b" ".join(ACTIVE)])
@pytest.mark.parametrize("question", QUESTIONS)
def test_wget_receives_every_answer_as_it_was_typed(device, console, question, text):
    answers = {**FULL_ANSWERS, question: text}
    assert transfer(console, b"restore", **answers) == RESTORE_FINISHED
    assert sorted(device.calls())[2] == (
        b"wget [-nv] [-t] [3] [--passive-ftp] [" + address(answers) + b"] [-O] [-]"
    )
    assert not device.exists("/ran")


@pytest.mark.parametrize("question", QUESTIONS)
def test_wput_receives_every_harmless_answer_as_it_was_typed(device, console, question):
    answers = {**FULL_ANSWERS, question: HARMLESS}
    assert transfer(console, b"backup", **answers) == BACKUP_FINISHED
    (call,) = device.calls()
    assert without_name(call) == (
        b"wput [-B] [-t] [3] [-I] [backupconfig -b -d stdout] ["
        + address(answers)
        + b"/NAME]"
    )


@pytest.mark.parametrize("text", ACTIVE)
def test_no_answer_to_a_backup_runs_a_command(device, console, text):
    transfer(console, b"backup", **dict.fromkeys(QUESTIONS, text))
    assert len(device.calls()) == 1
    assert not device.exists("/ran")


def elsewhere(device, name):
    """Makes a program that records its calls in a folder of its own. Returns a PATH that begins with this
    folder."""
    device.record_calls(f"elsewhere/{name}", b"echo FINISHED")
    return "PATH=/bin/elsewhere:/bin:/usr/bin"


def test_wput_is_found_on_the_search_path(device):
    device.stand_in("wput", b"exit 1")
    console = device.log_in("/bin/env", elsewhere(device, "wput"), SHELL)
    assert transfer(console, b"backup") == BACKUP_FINISHED
    assert len(device.calls()) == 1


def test_reboot_is_found_on_the_search_path(device):
    device.stand_in("wget", b"")
    device.stand_in("backupconfig", b"")
    console = device.log_in("/bin/env", elsewhere(device, "reboot"), SHELL)
    assert transfer(console, b"restore") == RESTORE_FINISHED + b"FINISHED\n"
    assert device.calls() == [b"reboot"]


@pytest.mark.parametrize("name", ["wget", "backupconfig"])
def test_programs_of_restore_are_called_by_path(device, console, name):
    path = elsewhere(device, name)
    assert console.leave() == 0
    device.remove("/record/calls")
    console = device.log_in("/bin/env", path, SHELL)
    assert transfer(console, b"restore") == RESTORE_FINISHED
    called = sorted(call.split()[0] for call in device.calls())
    assert called == [b"backupconfig", b"reboot", b"wget"]
    assert device.read("/record/restored") == b"archive\n"


def names_between(start, end, zone=timezone.utc):
    """Returns the file names for all minutes from start to end."""
    names = set()
    while start <= end + timedelta(minutes=1):
        local = start.astimezone(zone)
        names.add(
            f"config_{local.year}-{local.month}-{local.day}_{local:%H%M}.bin".encode()
        )
        start += timedelta(minutes=1)
    return names


@pytest.mark.parametrize("hours", [0, 13, -11])
def test_backup_file_is_named_after_the_local_time(device, hours):
    device.record_command_lines()
    device.record_calls("wput", b"echo FINISHED")
    # POSIX counts hours west of Greenwich.
    console = device.log_in("/bin/env", f"TZ=XXX{-hours:+d}", SHELL)
    start = datetime.now(timezone.utc)
    transfer(console, b"backup")
    name = re.search(rb"/(config[^ ]*) ", device.command_lines()[0]).group(1)
    zone = timezone(timedelta(hours=hours))
    assert name in names_between(start, datetime.now(timezone.utc), zone)


# The outcome of a backup


@pytest.mark.parametrize(
    "log, status, outcome",
    [
        (b"FINISHED --12:00:00--\n", 0, BACKUP_FINISHED),
        (b"one\ntwo FINISHED.\nthree\n", 0, BACKUP_FINISHED),
        (b"FINISHED", 0, BACKUP_FINISHED),
        (b"UNFINISHED\n", 0, BACKUP_FINISHED),
        (b"", 0, BACKUP_FINISHED),
        (None, 0, BACKUP_FINISHED),
        (b"Error: cannot log in\n", 0, BACKUP_FAILED),
        (b"finished\n", 0, BACKUP_FAILED),
        (b"FINI\nSHED\n", 0, BACKUP_FAILED),
        (b"\n", 0, BACKUP_FAILED),
        (b"FINISHED\n", 1, BACKUP_FAILED),
        (b"FINISHED\n", 255, BACKUP_FAILED),
        (b"", 1, BACKUP_FAILED),
        (None, 1, BACKUP_FAILED),
        # Reading stops at a line of more than 1023 characters
        (b"x" * 1023 + b"\nFINISHED\n", 0, BACKUP_FINISHED),
        (b"x" * 1015 + b"FINISHED\n", 0, BACKUP_FINISHED),
        (b"one\n" + b"x" * 1024 + b"\nFINISHED\n", 0, BACKUP_FAILED),
        (b"FINISHED\n" + b"x" * 1024 + b"\n", 0, BACKUP_FINISHED),
        (b"one\n" + b"x" * 1017 + b"FINISHED\n", 0, BACKUP_FAILED),
        (b"x" * 1024 + b"\none\n", 0, BACKUP_FINISHED),
        (b"x" * 1015 + b"FINISHED", 0, BACKUP_FINISHED),
        (b"one\n" + b"x" * 1016 + b"FINISHED", 0, BACKUP_FAILED),
        # A NUL byte ends its line
        (b"one\0FINISHED\n", 0, BACKUP_FAILED),
        (b"one\0two\nFINISHED\n", 0, BACKUP_FINISHED),
    ],
)
def test_outcome_of_a_backup(device, log, status, outcome):
    then = b"rm " + BACKUP_LOG.encode() if log is None else b"/usr/bin/cat /record/log"
    device.write("/record/log", log or b"")
    device.stand_in("wput", then + b"\nexit %d\n" % status)
    console = device.log_in()
    assert transfer(console, b"backup") == outcome
    assert not device.exists(BACKUP_LOG)
    assert console.command(b"save") == b"ERROR: Nothing to save\n"


def test_errors_of_wput_are_part_of_the_log_and_not_shown(device):
    console = device.log_in()
    device.stand_in("wput", b"echo trouble >&2; echo FINISHED >&2")
    assert transfer(console, b"backup") == BACKUP_FINISHED
    device.stand_in("wput", b"echo trouble >&2")
    assert transfer(console, b"backup") == BACKUP_FAILED


def test_missing_wput_fails_the_backup_silently(device):
    console = device.log_in("/bin/env", "PATH=/bin", SHELL)
    device.remove("/bin/wput")
    assert transfer(console, b"backup") == BACKUP_FAILED
    assert not device.exists(BACKUP_LOG)


def test_wput_ended_by_a_signal_fails_the_backup(device):
    device.stand_in("wput", b"echo FINISHED\nkill -KILL $$\n")
    assert transfer(device.log_in(), b"backup") == BACKUP_FAILED
    assert not device.exists(BACKUP_LOG)


@pytest.mark.parametrize("status, outcome", [(0, BACKUP_FINISHED), (1, BACKUP_FAILED)])
def test_backup_log_that_cannot_be_read_is_left_alone(device, status, outcome):
    log = BACKUP_LOG.encode()
    device.stand_in("wput", b"echo trouble\nchmod 0 " + log + b"\nexit %d\n" % status)
    assert transfer(device.log_in(), b"backup") == outcome
    assert device.exists(BACKUP_LOG)


def test_folder_in_place_of_the_backup_log_fails_the_backup_and_stays(device, console):
    device.make_folder(BACKUP_LOG)
    outcome = transfer(console, b"backup")
    assert BACKUP_LOG.encode() in outcome and outcome.endswith(b"\n" + BACKUP_FAILED)
    assert outcome.count(b"\n") == 2
    assert device.calls() == [] and device.path(BACKUP_LOG).is_dir()


def test_old_backup_log_does_not_count(device):
    device.write(BACKUP_LOG, b"trouble\n")
    device.stand_in("wput", b"")
    assert transfer(device.log_in(), b"backup") == BACKUP_FINISHED


def test_second_backup_is_judged_by_its_own_log(device):
    device.stand_in("wput", b"echo trouble")
    console = device.log_in()
    assert transfer(console, b"backup") == BACKUP_FAILED
    device.stand_in("wput", b"echo FINISHED")
    assert transfer(console, b"backup") == BACKUP_FINISHED


# The outcome of a restore


@pytest.mark.parametrize("log", [b"restored\n", b"", b"ERROR: broken\n", None])
def test_restore_that_succeeds_reboots_and_does_not_show_the_log(device, console, log):
    then = b"exit 0" if log is None else printf(log) + b" >" + RESTORE_LOG.encode()
    device.record_calls("backupconfig", then)
    assert transfer(console, b"restore") == RESTORE_FINISHED
    assert device.calls().count(b"reboot") == 1
    assert not device.exists(RESTORE_LOG)


@pytest.mark.parametrize(
    "log, shown",
    [
        (b"Archive is broken\n", b"Archive is broken\n"),
        (b"one\n\n two \n", b"one\n\n two \n"),
        (b"no line feed", b"no line feed\n"),
        (b"", b""),
        (b"\n", b"\n"),
        (None, b""),
        (b"FINISHED\n", b"FINISHED\n"),
        (b"%s%n\n", b"%s%n\n"),
        (b"x" * 1023 + b"\nlast\n", b"x" * 1023 + b"\nlast\n"),
        (b"one\n" + b"x" * 1024 + b"\nlast\n", b"one\n"),
        (b"x" * 1024 + b"\nlast\n", b""),
        (b"one\n" + b"x" * 1023, b"one\n" + b"x" * 1023 + b"\n"),
        (b"one\n" + b"x" * 1024, b"one\n"),
        (b"\xff\t\x1b[1m\r\n", b"\xff\t\x1b[1m\r\n"),
        (b"one\0lost\n\0\ntwo\n", b"one\n\ntwo\n"),
        (b"line\n" * 5000, b"line\n" * 5000),
    ],
)
def test_restore_that_fails_shows_the_log_and_does_not_reboot(device, console, log, shown):
    device.write("/record/log", log or b"")
    then = b"" if log is None else b"/usr/bin/cp /record/log " + RESTORE_LOG.encode() + b"\n"
    device.record_calls("backupconfig", then + b"exit 1")
    assert transfer(console, b"restore") == shown + RESTORE_FAILED
    assert not any(call.startswith(b"reboot") for call in device.calls())
    assert not device.exists(RESTORE_LOG)


def test_status_of_the_backup_program_alone_decides_a_restore(device, console):
    device.record_calls("wget", b"exit 4")
    assert transfer(console, b"restore") == RESTORE_FINISHED


@pytest.mark.parametrize("status, outcome", [(0, RESTORE_FINISHED), (1, RESTORE_FAILED)])
def test_restore_log_that_cannot_be_read_is_left_alone(device, console, status, outcome):
    log = RESTORE_LOG.encode()
    device.record_calls(
        "backupconfig", b"echo text >" + log + b"\nchmod 0 " + log + b"\nexit %d" % status
    )
    assert transfer(console, b"restore") == outcome
    assert device.exists(RESTORE_LOG)


@pytest.mark.parametrize("status, outcome", [(0, RESTORE_FINISHED), (1, RESTORE_FAILED)])
def test_folder_in_place_of_the_restore_log_is_left_alone(device, console, status, outcome):
    device.make_folder(RESTORE_LOG)
    device.record_calls("backupconfig", b"exit %d" % status)
    assert transfer(console, b"restore") == outcome
    assert device.path(RESTORE_LOG).is_dir()


def test_restore_continues_when_only_its_interpreter_is_killed(device, console):
    wait = b"while [ ! -e /record/%s ]; do sleep 0.01; done\n"
    kill = b"kill -KILL $PPID\n"
    device.record_calls("wget", wait % b"restored" + kill + wait % b"go" + b"echo archive")
    assert transfer(console, b"restore") == RESTORE_FAILED
    device.write("/record/go")
    wait_until(lambda: device.exists(RESTORE_LOG))
    assert device.read("/record/restored") == b"archive\n"


def test_missing_backup_program_fails_the_restore(device, console):
    device.remove("/bin/backupconfig")
    assert transfer(console, b"restore").endswith(
        b"sh: 1: /bin/backupconfig: not found\n" + RESTORE_FAILED
    )


def test_errors_of_wget_are_shown_before_the_outcome(device, console):
    device.record_calls("wget", b"echo no such host >&2")
    device.record_calls("backupconfig", b"cat >/dev/null; exit 1")
    assert transfer(console, b"restore") == b"no such host\n" + RESTORE_FAILED


def test_outcome_is_shown_before_reboot_runs(device, console):
    device.record_calls("reboot", b"echo going down; exit 1")
    assert transfer(console, b"restore") == RESTORE_FINISHED + b"going down\n"


def test_missing_reboot_does_not_matter(device, console):
    device.remove("/bin/reboot")
    assert transfer(console, b"restore").startswith(RESTORE_FINISHED)
    assert console.command(b"save") == b"ERROR: Nothing to save\n"


def test_session_continues_after_a_restore_and_logs_out_once(device, console):
    device.record_requests()
    transfer(console, b"restore")
    assert console.command(b"help exit") == b"\nexit\t\tExit tessel.\n\n"
    assert device.requests() == []
    assert console.leave() == 0
    assert [request["PATH_INFO"] for request in device.requests()] == ["logout.cgi"]
