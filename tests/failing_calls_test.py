"""Whole sessions in which one system or library call fails, the first or second time or every time.
Nothing crashes or hangs, whatever does not depend on the call is as usual, the session logs out once,
and settings wait for the next save.

A preloaded library, tools/failing_calls.cpp, makes the program's calls and the line editor's reads
fail. The C library's internal calls cannot be replaced this way; the full disk is a real one.
Allocations that fail: failing_allocations_test.py.
"""

import itertools
import shutil
import signal
from dataclasses import dataclass, field

import pytest

import programs
from console import (
    ENVIRONMENT,
    GREETING,
    PATIENCE,
    PROGRAM_DIR,
    PROMPT,
    REFUSAL,
    SAVE_FILE,
    SHELL,
    RunResult,
)
from turns_test import turn

LIBRARY = PROGRAM_DIR / "tests" / "failing_calls.so"
RECORD = "/record/failures"

MENU_TREE = b"""
ITEM sip.cgi {
ACL = auto
CAP = "SIP settings"
}
ITEM forward.cgi {
ACL = auto,extension
CAP = "Call forwarding"
}
"""
ACCOUNT = b"section admin {\nuser_name=admin\npassword=gateway\n}\n"
EXTENSIONS = b"section extension {\n1=201\n}\n"
HEADINGS = (
    b"\n*** General configuration parts ***\n\n%s\n*** Extension configuration parts ***\n\n%s\n"
)
UNKNOWN_PART = b"ERROR: There is no such configuration part\n"
UNKNOWN_EXTENSION = b"ERROR: There is no such an extension\n"
FAILED_BACKUP = b"Configuration backup failed!\n"
FAILED_RESTORE = b"Configuration restore failed.!\n"

LOGIN = b"admin\ngateway\n"
ANSWERS = b"10.0.0.1\n21\n/b\nftpuser\nftppass\n"
# {step: what is typed}
TYPED = {
    "login": LOGIN,
    "list": b"list\n",
    "get": b"get sip\n",
    "get_extension": b"get forward 201\n",
    "setting": b"a=1\n",
    "save": b"save\n",
    "show": b"show cm\n",
    "log_ls": b"log_ls\n",
    "other_setting": b"b=2\n",
    "backup": b"backup\n" + ANSWERS,
    "restore": b"restore\n" + ANSWERS,
    "help": b"help exit\n",
    "other_save": b"save\n",
    "exit": b"exit\n",
}


def transfer(command, path, outcome):
    start = b"%s\nStarting configuration %s...\n" % (command, command)
    questions = (b"Server: 10.0.0.1\n", b"Port: 21\n", path + b": /b\n", b"Username: ftpuser\n")
    return start + b"".join(PROMPT + question for question in questions) + outcome


def backup(outcome):
    return transfer(b"backup", b"Server path", outcome)


def restore(outcome):
    return transfer(b"restore", b"File path", outcome)


# {step: what is seen}, the prompts between the steps left out.
SEEN = {
    "login": GREETING + b"Username: admin\n\n",
    "list": b"list\n" + HEADINGS % (b"sip (SIP settings)\n", b"forward (Call forwarding)\n"),
    "get": b"get sip\n\nSIP settings\n\nx=1\n\n\n",
    "get_extension": b"get forward 201\n\nCall forwarding for extension 201\n\nx=1\n\n\n",
    "setting": b"a=1\n",
    "save": b"save\nError in a=1. no\nsaved\n",
    "show": b"show cm\nthe log\n",
    "log_ls": b"log_ls\n\ncm\nsip\nsip_reg\nQ.931\n\n",
    "other_setting": b"b=2\n",
    "backup": backup(b"Configuration backup finished!\n"),
    "restore": restore(b"Configuration restore finished.!\nRebooting...\n"),
    "help": b"help exit\n\nexit\t\tExit tessel.\n\n",
    "other_save": b"save\nError in a=1. no\nsaved\n",
    "exit": b"exit\n",
}

BASE = [b"GET", b"CGI2FastCGI", b"application/x-www-form-urlencoded"]
SUMMARY_QUERY = b"cgiaction=Start generating a legible configuration file&"
SAVE_QUERY = b"cgiaction=do_save&localHiddenFilename=" + SAVE_FILE.encode()
GET_REQUEST = [b"getconfsummary.cgi", SUMMARY_QUERY + b"parampattern=sip", *BASE]
GET_EXTENSION_REQUEST = [
    b"getconfsummary.cgi",
    SUMMARY_QUERY + b"cgiDescription=Call forwarding&extensionName=201",
    *BASE,
]
SAVE_REQUEST = [b"putconf.cgi", SAVE_QUERY, *BASE]
LOGOUT_REQUEST = [b"logout.cgi", b"unset", *BASE]
REQUESTS = {
    "get": GET_REQUEST,
    "get_extension": GET_EXTENSION_REQUEST,
    "save": SAVE_REQUEST,
    "other_save": SAVE_REQUEST,
    "logout": LOGOUT_REQUEST,
}
SAVED = [b"VERSION=2.1\na=1\n", b"VERSION=2.1\nb=2\n"]


@dataclass
class Outcome:
    """How a session differs from one in which nothing fails. A step or request that is None does not
    take place. Where a step has several texts, any of them may be seen. The screen may end with lines
    that belong to no step."""

    seen: dict = field(default_factory=dict)
    typed: dict = field(default_factory=dict)
    requests: dict = field(default_factory=dict)
    saved: list = field(default_factory=lambda: SAVED)
    status: int = 0
    last: bytes = b""


UNCHANGED = Outcome()


def without_login(question=b"Username: admin\n", typed=LOGIN):
    """Returns the outcome when the login is impossible: only the logout, then status 1."""
    return Outcome(
        seen={**dict.fromkeys(SEEN), "login": GREETING + 3 * (question + REFUSAL)},
        typed={"login": 3 * typed},
        requests={**dict.fromkeys(REQUESTS), "logout": LOGOUT_REQUEST},
        saved=[],
        status=1,
    )


def ended_after(step, last):
    """Returns the outcome when the input ends after a step."""
    steps = list(SEEN)
    later = steps[steps.index(step) + 1 :]
    return Outcome(
        seen=dict.fromkeys(later),
        requests={name: None for name in REQUESTS if name in later},
        saved=SAVED[: 2 - ("save" in later) - ("other_save" in later)],
        last=last,
    )


REFUSED_ONCE = GREETING + b"Username: admin\n" + REFUSAL + b"Username: admin\n\n"
SECOND_LOGIN = Outcome(seen={"login": REFUSED_ONCE}, typed={"login": 2 * LOGIN})
NO_MENU_TREE = Outcome(
    seen={
        "list": b"list\n" + HEADINGS % (b"", b""),
        "get": b"get sip\n" + UNKNOWN_PART,
        "get_extension": b"get forward 201\n" + UNKNOWN_PART,
    },
    requests={"get": None, "get_extension": None},
)
NO_EXTENSIONS = Outcome(
    seen={"get_extension": b"get forward 201\n" + UNKNOWN_EXTENSION},
    requests={"get_extension": None},
)
NO_VERSION = Outcome(saved=[b"VERSION=ENTRY_NOT_FOUND\na=1\n", SAVED[1]])
NO_OTHER_VERSION = Outcome(saved=[SAVED[0], b"VERSION=ENTRY_NOT_FOUND\nb=2\n"])
# The four files read during the session, in that order; version.txt twice.
READ_FILES = [NO_MENU_TREE, SECOND_LOGIN, NO_EXTENSIONS, NO_VERSION, NO_OTHER_VERSION]

GET_WITHOUT_TEXT = b"get sip\n\nSIP settings\n\n\n\n"
GET_EXTENSION_WITHOUT_TEXT = b"get forward 201\n\nCall forwarding for extension 201\n\n\n\n"
GET_HALF = b"get sip\n\nSIP settings\n\n"
GET_EXTENSION_HALF = b"get forward 201\n\nCall forwarding for extension 201\n\n"
NO_SUMMARY = Outcome(seen={"get": GET_WITHOUT_TEXT})
NO_OTHER_SUMMARY = Outcome(seen={"get_extension": GET_EXTENSION_WITHOUT_TEXT})
NO_SUMMARIES = Outcome(
    seen={"get": GET_WITHOUT_TEXT, "get_extension": GET_EXTENSION_WITHOUT_TEXT}
)
NO_BACKUP = Outcome(typed={"backup": b"backup\n"}, seen={"backup": b"backup\n"})

# call, which, how -> outcome
FAILURES = {}


def failure(call, which, errors, outcome):
    for error in errors.split():
        FAILURES[call, which, error] = outcome


for number, file_outcome in enumerate(READ_FILES, start=1):
    failure("open", number, "EMFILE EINTR", file_outcome)
    failure("fstat", number, "EIO", file_outcome)
    # Each file takes two reads; the second finds its end.
    failure("read", 2 * number - 1, "EIO", file_outcome)
    failure("read", 2 * number, "EIO", file_outcome)
    failure("read", 2 * number - 1, "EINTR short", UNCHANGED)
    failure("read", 2 * number, "EINTR", UNCHANGED)
failure("open", "every", "EMFILE ENOMEM", without_login())
failure("fstat", "every", "EIO", without_login())
failure("read", "every", "EIO", without_login())
failure("read", "every", "short", UNCHANGED)
for which in (1, 2, "every"):
    failure("close", which, "EIO EINTR", UNCHANGED)

# The two summaries, the save file, the logs of backup and restore, and the save file again.
# If the save file cannot be created, the back end reads the one of the save before.
failure("fopen", 1, "EMFILE", NO_SUMMARY)
failure("fopen", 2, "EIO", NO_OTHER_SUMMARY)
failure("fopen", 3, "ENOSPC EACCES", Outcome(saved=[b"no file\n", SAVED[1]]))
failure("fopen", 4, "EMFILE", UNCHANGED)
failure("fopen", 5, "EMFILE", UNCHANGED)
failure("fopen", 6, "ENOSPC", Outcome(saved=[SAVED[0], SAVED[0]]))
failure(
    "fopen", "every", "EMFILE", Outcome(seen=NO_SUMMARIES.seen, saved=2 * [b"no file\n"])
)
failure("fread", 1, "EIO EINTR", NO_SUMMARY)
failure("fread", 2, "EIO", NO_OTHER_SUMMARY)
failure("fread", "every", "EIO", NO_SUMMARIES)
# Seven bytes of the summary: the word VERSION, but not all of VERSION=1.
failure("fread", 1, "short", Outcome(seen={"get": GET_HALF + b"VERSION\n\n"}))
failure("fclose", 1, "EIO", UNCHANGED)
failure("fclose", 2, "EIO", UNCHANGED)
failure("fclose", "every", "ENOSPC", UNCHANGED)

# The log of a backup: FINISHED
failure("getc", 1, "EIO", UNCHANGED)
failure("getc", 2, "EIO", Outcome(seen={"backup": backup(FAILED_BACKUP)}))
failure("getc", "every", "EIO", UNCHANGED)
for which in (1, 2, "every"):
    failure("unlink", which, "EIO EACCES", UNCHANGED)

# The back end's answers: two lines each for the gets and the saves, then end of file.
# The shell does not wait for the client then, so the summary may not be written yet.
HASTY = {
    "get": (SEEN["get"], GET_WITHOUT_TEXT),
    "get_extension": (SEEN["get_extension"], GET_EXTENSION_WITHOUT_TEXT),
}
failure("fgets", 1, "EIO", Outcome(seen={"get": HASTY["get"]}))
failure("fgets", 2, "EIO", UNCHANGED)
failure("fgets", 7, "EIO", Outcome(seen={"save": b"save\n"}))
failure("fgets", 8, "EIO", Outcome(seen={"save": b"save\nError in a=1. no\n"}))
failure("fgets", 9, "EIO", UNCHANGED)
failure(
    "fgets", "every", "EIO", Outcome(seen={**HASTY, "save": b"save\n", "other_save": b"save\n"})
)
failure("popen", 1, "EMFILE", Outcome(seen={"get": GET_HALF}, requests={"get": None}))
failure(
    "popen",
    2,
    "EAGAIN",
    Outcome(
        seen={"get_extension": GET_EXTENSION_HALF},
        requests={"get_extension": None},
    ),
)
failure(
    "popen", 3, "ENOMEM", Outcome(seen={"save": b"save\n"}, requests={"save": None}, saved=SAVED[1:])
)
failure(
    "popen",
    4,
    "EAGAIN",
    Outcome(seen={"other_save": b"save\n"}, requests={"other_save": None}, saved=SAVED[:1]),
)
failure("popen", 5, "ENOMEM", Outcome(requests={"logout": None}))
failure(
    "popen",
    "every",
    "ENOMEM EMFILE",
    Outcome(
        seen={
            "get": GET_HALF,
            "get_extension": GET_EXTENSION_HALF,
            "save": b"save\n",
            "other_save": b"save\n",
        },
        requests=dict.fromkeys(REQUESTS),
        saved=[],
    ),
)
for which in (1, 2, "every"):
    failure("pclose", which, "EINTR ECHILD", UNCHANGED)

# A request is not made without all of its five variables, but a logout is attempted.
NO_MEMORY = b"ERROR: Out of memory\n"
for number in range(1, 6):
    failure(
        "setenv", number, "ENOMEM", Outcome(seen={"get": GET_HALF + NO_MEMORY}, requests={"get": None})
    )
failure(
    "setenv",
    "every",
    "ENOMEM",
    Outcome(
        seen={
            "get": GET_HALF + NO_MEMORY,
            "get_extension": GET_EXTENSION_HALF + NO_MEMORY,
            "save": b"save\n" + NO_MEMORY,
            "other_save": b"save\n" + NO_MEMORY,
        },
        requests={**dict.fromkeys(REQUESTS), "logout": 5 * [b"unset"]},
        saved=[],
    ),
)
failure("unsetenv", 1, "EINVAL", UNCHANGED)
failure("unsetenv", 2, "EINVAL", UNCHANGED)
failure(
    "unsetenv",
    "every",
    "EINVAL",
    Outcome(requests={"logout": [b"logout.cgi", SAVE_QUERY, *BASE]}),
)
FAILED_SYSTEM = {
    "show": b"show cm\n",
    "backup": backup(FAILED_BACKUP),
    "restore": restore(FAILED_RESTORE),
}
for number, (step, shown) in enumerate(FAILED_SYSTEM.items(), start=1):
    failure("system", number, "EAGAIN ENOMEM", Outcome(seen={step: shown}))
failure("system", 4, "EAGAIN", UNCHANGED)  # reboot
failure("system", "every", "EAGAIN", Outcome(seen=FAILED_SYSTEM))

# Questions: the line meant for one question answers the next.
failure(
    "readline",
    1,
    "EIO",
    Outcome(
        typed={"login": b"gateway\n" + LOGIN},
        seen={"login": GREETING + REFUSAL + b"Username: admin\n\n"},
    ),
)
failure("readline", 2, "EIO", ended_after("login", last=b""))
failure("readline", "every", "EIO", without_login(question=b""))
# A password is read byte by byte: the login's takes eight reads, so the ninth is the backup's first.
NO_PASSWORD = Outcome(typed={"login": b"admin\n" + LOGIN}, seen={"login": REFUSED_ONCE})
NO_BACKUP_PASSWORD = Outcome(typed={"backup": b"backup\n10.0.0.1\n21\n/b\nftpuser\n"})
failure("open_terminal", "every", "EACCES EMFILE", UNCHANGED)
# Without a lock, each session continues without waiting for its turn.
for which in (1, "every"):
    failure("open_folder", which, "EMFILE EACCES", UNCHANGED)
    failure("flock", which, "ENOLCK EINTR", UNCHANGED)
for call in ("poll", "read_byte"):
    failure(call, 1, "EIO", NO_PASSWORD)
    failure(call, 9, "EIO", NO_BACKUP_PASSWORD)
    failure(call, "every", "EIO", without_login(typed=b"admin\n"))
    for which in (1, 2, 9):
        failure(call, which, "EINTR", UNCHANGED)

failure("gettimeofday", 1, "EINVAL", NO_BACKUP)
failure("gettimeofday", "every", "EINVAL", NO_BACKUP)
failure("localtime", 1, "EINVAL", NO_BACKUP)
failure("localtime", "every", "EINVAL", NO_BACKUP)
failure("timer_create", 1, "EAGAIN ENOMEM", UNCHANGED)
failure("timer_create", "every", "EAGAIN", UNCHANGED)
for which in (1, 2, "every"):
    failure("signal", which, "EINVAL", UNCHANGED)
for which in (1, 2):
    failure("fflush", which, "EIO ENOSPC EINTR", UNCHANGED)
LISTED = b"sip (SIP settings)\nforward (Call forwarding)\n"
failure(  # the lines of a list come when the line editor flushes them
    "fflush",
    "every",
    "EIO ENOSPC EINTR",
    Outcome(seen={"list": b"list\n" + HEADINGS % (b"", b"") + LISTED}),
)
failure("isatty", 1, "ENOTTY", UNCHANGED)
failure("isatty", "every", "EIO", UNCHANGED)
failure("setvbuf", 1, "ENOMEM", UNCHANGED)

# Output that cannot be written is lost.
failure("write", 1, "EIO ENOSPC nothing", Outcome(seen={"login": b"Username: admin\n\n"}))
for which in (1, 2):
    failure("write", which, "EINTR short", UNCHANGED)
failure(
    "write",
    "every",
    "EIO",
    Outcome(
        seen={
            "login": b"Username: admin\n\n",
            "list": b"list\n" + LISTED,
            "get": b"get sip\n",
            "get_extension": b"get forward 201\n",
        }
    ),
)
failure("fwrite", 1, "EIO EINTR", Outcome(seen={"login": GREETING + b"Username: admin\n"}))
failure("fwrite", 12, "EIO", Outcome(seen={"save": b"save\n"}))
failure("fwrite", 12, "short", Outcome(seen={"save": b"save\nError in a="}))
failure(
    "fwrite",
    "every",
    "EIO",
    Outcome(
        seen={
            "login": GREETING + b"Username: admin\n",
            "list": b"list\n" + HEADINGS % (b"", b""),
            "save": b"save\n",
            "backup": backup(b"").replace(b"Starting configuration backup...\n", b""),
            "restore": restore(b"").replace(b"Starting configuration restore...\n", b""),
            "other_save": b"save\n",
        },
        saved=[b"\n\n", b"\n\n"],
    ),
)
failure("printf", 1, "EIO", Outcome(seen={"log_ls": b"log_ls\n\nsip\nsip_reg\nQ.931\n\n"}))
failure("printf", 2, "EIO", Outcome(seen={"log_ls": b"log_ls\n\ncm\nsip_reg\nQ.931\n\n"}))
failure(
    "printf", "every", "EIO", Outcome(seen={"log_ls": b"log_ls\n\n\n", "help": b"help exit\n\n\n"})
)
failure(
    "puts", 1, "EIO", Outcome(seen={"log_ls": b"log_ls\n\ncm\nsip\nsip_reg\nQ.931"})
)
failure("putchar", 1, "EIO", Outcome(seen={"help": b"help exit\nexit\t\tExit tessel.\n\n"}))
failure("putchar", 2, "EIO", Outcome(seen={"help": b"help exit\n\nexit\t\tExit tessel.\n"}))
failure("putchar", "every", "EIO", Outcome(seen={"help": b"help exit\nexit\t\tExit tessel.\n"}))
failure("fputc", 1, "ENOSPC", Outcome(saved=[b"VERSION=2.1a=1\n", SAVED[1]]))
failure("fputc", 2, "ENOSPC", Outcome(saved=[b"VERSION=2.1\na=1", SAVED[1]]))
failure("fputc", "every", "ENOSPC", Outcome(saved=[b"VERSION=2.1a=1", b"VERSION=2.1b=2"]))

# The line editor's own reads, a byte each: an error ends the input, an interruption does not.
failure("libreadline/read_byte", 1, "EINTR", UNCHANGED)
failure("libreadline/read_byte", 2, "EINTR", UNCHANGED)
failure("libreadline/read_byte", len(b"admin\nlist\n") + 1, "EIO", ended_after("list", last=PROMPT))
failure("libreadline/read_byte", "every", "EIO", without_login(question=b"Username: "))


@pytest.fixture
def gateway(device):
    """A device with few parts, whose back end and transfer programs record what they are asked."""
    # Without a start-up file, all counted reads of the line editor are of typed lines.
    device.remove("/etc/inputrc")
    device.write("/etc/menutree.conf", MENU_TREE)
    device.write("/etc/tarn-conf/telephony/extensiondb", EXTENSIONS)
    device.write("/etc/version.txt", b"Version: 2.1\n")
    device.write("/tmp/acldb", ACCOUNT)
    device.write("/var/log/cm.log", b"the log\n")
    device.stand_in(
        "fcgiclient",
        b"""printf '%s|%s|%s|%s|%s\\n' "${PATH_INFO-unset}" "${QUERY_STRING-unset}" \\
    "${REQUEST_METHOD-unset}" "${REMOTE_ADDR-unset}" "${CONTENT_TYPE-unset}" >>/record/requests
case ${PATH_INFO-unset} in
getconfsummary.cgi) printf 'VERSION=1\\nx=1\\n' >/tmp/script_legconftmp.txt ;;
putconf.cgi)
    [ -e /tmp/consoleLCFile ] || echo 'no file' >/tmp/consoleLCFile
    cat /tmp/consoleLCFile >>/record/saved
    echo ---- >>/record/saved
    ;;
*) exit ;;
esac
printf '#ERRORa#VAL1#MSGno#END\\nsaved\\n'
""",
    )
    device.stand_in("wput", b"echo FINISHED")
    device.stand_in("wget", b"echo archive")
    device.stand_in("backupconfig", b"cat >/dev/null; echo restored >/tmp/restorelog.txt")
    device.stand_in("reboot", b"")
    shutil.copy(LIBRARY, device.path("/record/failing_calls.so"))
    return device


def merged(usual, changes):
    steps = {**usual, **changes}
    return [steps[name] for name in usual if steps[name] is not None]


def requests(device):
    if not device.exists("/record/requests"):
        return []
    return [line.split(b"|") for line in device.read("/record/requests").splitlines()]


def saved(device):
    return device.read("/record/saved").split(b"----\n")[:-1] if device.exists("/record/saved") else []


def screens(outcome):
    """Returns every screen that the outcome allows."""
    steps = [text if isinstance(text, tuple) else (text,) for text in merged(SEEN, outcome.seen)]
    return [PROMPT.join(texts) + outcome.last for texts in itertools.product(*steps)]


def check(device, result, outcome):
    assert result.output in screens(outcome)
    assert result.status == outcome.status
    assert requests(device) == merged(REQUESTS, outcome.requests)
    assert saved(device) == outcome.saved


def failing_shell(call, which, how):
    """Returns the command that runs the shell with a failing call."""
    return (
        "/bin/env",
        "LD_PRELOAD=/record/failing_calls.so",
        f"FAIL={call}:{which}:{how}",
        f"FAIL_RECORD={RECORD}",
        SHELL,
    )


def test_session_without_a_failing_call(gateway):
    check(gateway, gateway.run(b"".join(TYPED.values())), UNCHANGED)


@pytest.mark.parametrize("call, which, how", FAILURES)
def test_call_fails(gateway, call, which, how):
    outcome = FAILURES[call, which, how]
    typed = b"".join(merged(TYPED, outcome.typed))
    result = gateway.run(typed, *failing_shell(call, which, how))
    failed = gateway.read(RECORD).count(b"\n") if gateway.exists(RECORD) else 0
    assert failed > 0 if which == "every" else failed == 1, "the call did not fail"
    check(gateway, result, outcome)


def test_session_continues_without_its_turn_when_another_one_hangs(gateway):
    with turn(gateway):
        result = gateway.run(b"".join(TYPED.values()), *failing_shell("pselect", "every", "nothing"))
    assert gateway.read(RECORD).count(b"\n") > 1000, "there was no wait"
    check(gateway, result, UNCHANGED)


def test_password_ends_with_the_input_after_an_interrupted_wait(gateway):
    result = gateway.run(b"admin\n", *failing_shell("poll", 1, "EINTR"))
    assert gateway.read(RECORD) == b"failed\n"
    no_more = b"Username: " + REFUSAL
    assert result.output == GREETING + b"Username: admin\n" + REFUSAL + 2 * no_more
    assert result.status == 1


# On a console


def failing_console(device, call, which, how):
    return device.console(*failing_shell(call, which, how))


@pytest.mark.parametrize("number", [2, 3, 4])
def test_lost_terminal_ends_the_session(gateway, number):
    """The shell checks its terminal after every read: user name, password and command."""
    console = failing_console(gateway, "isatty", number, "EIO")
    console.read_until(b"Username: ")
    if number > 2:
        console.exchange(b"admin", b"Password: ")
    if number > 3:
        console.exchange(b"gateway", PROMPT, echo=b"")
    console.enter({2: b"admin", 3: b"gateway", 4: b"save"}[number])
    status, _ = console.end()
    assert gateway.read(RECORD) == b"failed\n"
    assert status == (0 if number == 4 else 1)
    assert requests(gateway) == [LOGOUT_REQUEST]


@pytest.mark.parametrize("call", ["timer_create", "timer_settime"])
def test_request_to_end_needs_no_timer_at_the_prompt(gateway, call):
    console = failing_console(gateway, call, "every", "EAGAIN")
    console.log_in()
    console.send_signal(signal.SIGTERM)
    assert console.end()[0] == 0
    assert gateway.read(RECORD) == b"failed\n"
    assert requests(gateway) == [LOGOUT_REQUEST]


# Files that may not grow


def test_limit_on_the_size_of_files(device):
    """Output beyond the limit is lost, and SIGXFSZ does not end the session."""
    device.stand_in("fcgiclient", b"echo $PATH_INFO >>/record/asked")
    settings = b"".join(b"s%d=%s\n" % (number, b"x" * 250) for number in range(100))
    typed = LOGIN + settings + b"save\nhelp exit\nexit\n"
    result = device.run(typed, "/bin/sh", "-c", f"ulimit -f 40; exec {SHELL}")
    assert result.output.endswith(PROMPT + SEEN["help"] + PROMPT + b"exit\n")
    assert result.status == 0
    assert len(device.read(SAVE_FILE)) == 40 * 512 < len(settings)
    assert device.read("/record/asked") == b"putconf.cgi\nlogout.cgi\n"


# A full disk


def test_full_disk_under_tmp(gateway):
    """The first save file is empty and is submitted as it is. The backup frees some space, so later
    settings are saved."""
    gateway.stand_in("wput", b"rm /tmp/filler\necho FINISHED")
    script = """
cp -a "$1/tmp" "$1/record/tmp" && mount -t tmpfs -o size=64k tessel "$1/tmp" &&
    cp -a "$1/record/tmp/." "$1/tmp" && ! head -c 1M /dev/zero 2>/dev/null >"$1/tmp/filler" || exit 99
shift
exec "$@"
"""
    done = programs.run(
        ["unshare", "--map-root-user", "--mount", "sh", "-c", script, "sh", gateway.root]
        + gateway.start_command(),
        input=b"".join(TYPED.values()),
        capture_output=True,
        env=ENVIRONMENT,
        timeout=PATIENCE,
    )
    result = RunResult(done.returncode, done.stdout, done.stderr)
    check(gateway, result, Outcome(seen=NO_SUMMARIES.seen, saved=[b"", SAVED[1]]))
