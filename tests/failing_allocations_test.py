"""Whole sessions in which one memory allocation fails: in turn every allocation after the first prompt,
by the program or a library. A command may be refused, but the session continues and logs out once, and
the settings typed are there for the next save. `lost` lists the exceptions.

A preloaded library, tools/failing_allocations.cpp, makes the allocations fail.
"""

import shutil
from collections import defaultdict
from dataclasses import dataclass

import pytest

from console import GREETING, PATIENCE, PROGRAM_DIR, PROMPT

LIBRARY = PROGRAM_DIR / "tests" / "failing_allocations.so"
PARTS = 4  # the sessions are divided among this many tests

# The names are too long for a string object to hold them without an allocation.
MENU_TREE = b"""
ITEM telephony_over_the_network.cgi {
ACL = auto
CAP = "Telephony over the network"
}
ITEM forwarding_of_incoming_calls.cgi {
ACL = auto,extension
CAP = "Forwarding of incoming calls"
}
"""
EXTENSIONS = b"section extension {\n1=Reception desk upstairs\n}\n"
# {question of a transfer: answer}, without the password question, which is not in the output.
ANSWERS = {
    b"Server: ": b"backup.server.of.the.company",
    b"Port: ": b"2121",
    b"PATH: ": b"/backups/of/all/the/gateways",
    b"Username: ": b"backup.of.the.gateway",
}
PASSWORD = b"correct.horse.battery.staple"
ANSWER_LINES = b"".join(answer + b"\n" for answer in [*ANSWERS.values(), PASSWORD])
REGISTRAR, USER, LAST = (
    b"telephony.sip.registrar=10.0.0.1",
    b"telephony.sip.user=reception",
    b"last.of.all.settings=1",
)
VERSION = b"VERSION=2.1.4 of the firmware of the gateway"
REFUSED = b"ERROR: Out of memory\n"
ANSWER_TO_SAVE = b"Error in telephony.sip.registrar=1. no\nsaved\n"
NOTHING_TO_SAVE = b"ERROR: Nothing to save\n"
GENERAL_HEADING = b"\nTelephony over the network\n\n"
EXTENSION_HEADING = b"\nForwarding of incoming calls for extension Reception desk upstairs\n\n"
FAILED = {
    "backup": b"Configuration backup failed!\n",
    "restore": b"Configuration restore failed.!\n",
}


def dialogue(command, path, answered):
    """Returns what a transfer shows if its outcome comes after that many answered questions."""
    text = b"Starting configuration " + command + b"...\n"
    for question, answer in list(ANSWERS.items())[:answered]:
        text += PROMPT + question.replace(b"PATH", path) + answer + b"\n"
    return text


def backup(outcome, answered=len(ANSWERS)):
    return dialogue(b"backup", b"Server path", answered) + outcome


def restore(outcome, answered=len(ANSWERS)):
    return dialogue(b"restore", b"File path", answered) + outcome


# {step: (what is typed, what is seen)}. A refused save is followed by another.
STEPS = {
    "list": (
        b"list",
        b"\n*** General configuration parts ***\n\n"
        b"telephony_over_the_network (Telephony over the network)\n"
        b"\n*** Extension configuration parts ***\n\n"
        b"forwarding_of_incoming_calls (Forwarding of incoming calls)\n\n",
    ),
    "get": (b"get telephony_over_the_network", GENERAL_HEADING + b"x=1\n\n\n"),
    "get of an extension": (
        b"get forwarding_of_incoming_calls Reception desk upstairs",
        EXTENSION_HEADING + b"x=1\n\n\n",
    ),
    "get of nothing": (
        b"get no_such_configuration_part", b"ERROR: There is no such configuration part\n"
    ),
    "get alone": (b"get", b"ERROR: the syntax is: get configuration_part [extension_name]\n"),
    "setting": (REGISTRAR, b""),
    "other setting": (USER, b""),
    "save": (b"save", ANSWER_TO_SAVE),
    "save again": (b"save", NOTHING_TO_SAVE),
    "show": (b"show cm", b"the log\n"),
    "show of nothing": (b"show no_such_log_file_here", b"ERROR: There is no such log file\n"),
    "log_ls": (b"log_ls", b"\ncm\nsip\nsip_reg\nQ.931\n\n"),
    "help": (b"help exit", b"\nexit\t\tExit tessel.\n\n"),
    "last setting": (LAST, b""),
    "last save": (b"save", ANSWER_TO_SAVE),
    "last save again": (b"save", NOTHING_TO_SAVE),
    "backup": (b"backup", backup(b"Configuration backup finished!\n")),
    "restore": (b"restore", restore(b"the archive is broken\n" + FAILED["restore"])),
    "exit": (b"exit", b""),
}  # fmt: skip
TYPED = b"admin\ngateway\n" + b"".join(
    line + b"\n" + (ANSWER_LINES if step in FAILED else b"") for step, (line, _) in STEPS.items()
)
SUMMARY_QUERY = b"getconfsummary.cgi|cgiaction=Start generating a legible configuration file&"
SAVE_QUERY = b"putconf.cgi|cgiaction=do_save&localHiddenFilename=/tmp/consoleLCFile\n"
REQUESTS = {
    "get": SUMMARY_QUERY + b"parampattern=telephony_over_the_network\n",
    "get of an extension": SUMMARY_QUERY
    + b"cgiDescription=Forwarding of incoming calls&extensionName=Reception desk upstairs\n",
    "save": SAVE_QUERY,
    "last save": SAVE_QUERY,
    "exit": b"logout.cgi|unset\n",
}
SAVED = {"save": [VERSION, REGISTRAR, USER], "last save": [VERSION, LAST]}


@dataclass(frozen=True)
class Outcome:
    status: int
    screen: bytes
    requests: bytes
    saved: bytes


def outcome(seen=None, requests=None, saved=None):
    """Returns the usual outcome with these steps changed."""
    texts = {step: text for step, (_, text) in STEPS.items()} | (seen or {})
    lines = [line + b"\n" + texts[step] for step, (line, _) in STEPS.items()]
    settings = (SAVED | (saved or {})).values()
    return Outcome(
        0,
        PROMPT.join([GREETING + b"Username: admin\n\n", *lines]),
        b"".join((REQUESTS | (requests or {})).values()),
        b"".join(line + b"\n" for lines in settings for line in lines),
    )


def refused():
    """Yields the outcomes in which one command is refused or one transfer fails."""
    for step, heading in {"get": GENERAL_HEADING, "get of an extension": EXTENSION_HEADING}.items():
        for seen in (REFUSED, heading + REFUSED):
            yield outcome({step: seen}, {step: b""})
    for step in ("get of nothing", "get alone", "save again", "show", "show of nothing", "last save again"):
        yield outcome({step: REFUSED})
    for step, others in {"setting": [USER], "other setting": [REGISTRAR]}.items():
        yield outcome({step: REFUSED}, saved={"save": [VERSION, *others]})
    yield outcome(
        {"last setting": REFUSED, "last save": NOTHING_TO_SAVE}, {"last save": b""}, {"last save": []}
    )
    for step in ("save", "last save"):
        seen = {step: REFUSED, f"{step} again": ANSWER_TO_SAVE}
        yield outcome(seen)  # before the back end was asked, or after it
        yield outcome(seen, {step: 2 * SAVE_QUERY}, {step: 2 * SAVED[step]})
    for step, transfer in {"backup": backup, "restore": restore}.items():
        for seen in failed_transfers(transfer, FAILED[step]):
            yield outcome({step: seen})


def failed_transfers(transfer, failure):
    """Yields what a failed transfer shows. Answers not read are left for the prompt, and so is the rest
    of a password, which is read byte by byte."""
    yield transfer(failure)
    lines = [*ANSWERS.values(), PASSWORD]
    for answered in range(len(lines)):
        left = [PROMPT + line + b"\n" for line in lines[answered:]]
        yield transfer(failure, answered) + b"".join(left)
    for start in range(1, len(PASSWORD)):
        yield transfer(failure) + PROMPT + PASSWORD[start:] + b"\n"


def lost(function):
    """Yields the outcomes in which more is lost because that function fails: as much as when it fails
    for another reason. A save uses up the settings even if its program does not run or finds no file,
    and a logout is attempted only once."""
    if function == "popen":
        yield outcome({"get": GENERAL_HEADING}, {"get": b""})
        yield outcome({"get of an extension": EXTENSION_HEADING}, {"get of an extension": b""})
        for step in ("save", "last save"):
            yield outcome({step: b""}, {step: b""}, {step: []})
        yield outcome(requests={"exit": b""})
    elif function == "fopen":
        yield outcome({"get": GENERAL_HEADING + b"\n\n"})
        yield outcome({"get of an extension": EXTENSION_HEADING + b"\n\n"})
        yield outcome(saved={"save": []})
        yield outcome(saved={"last save": SAVED["save"]})  # the file is still that of the first
    elif function == "setenv":
        yield outcome(requests={"exit": b"unset|unset\n"})


ALLOWED = {outcome(), *refused()}
# Without memory the line editor's functions end the program with status 2: they have no way to report
# the failure. Unsaved settings are lost, and there is no logout.
EDITOR = ("readline", "add_history")


@pytest.fixture(name="gateway")
def fixture_gateway(device):
    device.write("/etc/menutree.conf", MENU_TREE)
    device.write("/etc/tarn-conf/telephony/extensiondb", EXTENSIONS)
    device.write("/etc/version.txt", VERSION.replace(b"VERSION=", b"Version: ") + b"\n")
    device.write("/tmp/acldb", b"section admin {\nuser_name=admin\npassword=gateway\n}\n")
    device.write("/var/log/cm.log", b"the log\n")
    device.stand_in(
        "fcgiclient",
        b"""echo "${PATH_INFO-unset}|${QUERY_STRING-unset}" >>$NOTES.requests
case ${PATH_INFO-unset} in
getconfsummary.cgi) printf 'VERSION=1\\nx=1\\n' >/tmp/script_legconftmp.txt ;;
putconf.cgi) cat /tmp/consoleLCFile >>$NOTES.saved ;;
*) exit ;;
esac
printf '#ERRORtelephony.sip.registrar#VAL1#MSGno#END\\nsaved\\n'
""",
    )
    device.stand_in("wput", b"echo FINISHED")
    device.stand_in("wget", b"echo archive")
    device.stand_in("backupconfig", b"echo the archive is broken >/tmp/restorelog.txt; exit 1")
    device.stand_in(
        "sessions",
        b"""for number; do
    export NOTES=/record/$number
    : >$NOTES.requests >$NOTES.saved
    rm -f /tmp/consoleLCFile /tmp/script_legconftmp.txt
    LD_PRELOAD=/record/failing_allocations.so FAIL_ALLOCATION=$number FAIL_RECORD=$NOTES.record \\
        /bin/tessel </record/typed >$NOTES.output 2>$NOTES.errors
    echo $? >$NOTES.status
done
""",
    )
    device.write("/record/typed", TYPED)
    shutil.copy(LIBRARY, device.path("/record/failing_allocations.so"))
    return device


def play(device, numbers):
    """Plays a session for each of these numbers, in which the allocation of that number fails."""
    result = device.run(b"", "/bin/sessions", *map(str, numbers), patience=10 * PATIENCE)
    assert result.status == 0, result


def note(device, number, name):
    return device.read(f"/record/{number}.{name}")


def played(device, number):
    return Outcome(
        int(note(device, number, "status")),
        note(device, number, "output"),
        note(device, number, "requests"),
        note(device, number, "saved"),
    )


def ended_by_editor(result, errors):
    usual = outcome()
    return (
        result.status == 2
        and errors.endswith(b": out of virtual memory\n")
        and usual.screen.startswith(result.screen)
        and usual.requests.removesuffix(REQUESTS["exit"]).startswith(result.requests)
        and usual.saved.startswith(result.saved)
    )


def judged(device, number, function):
    """Returns how a session ended."""
    result = played(device, number)
    if result in ALLOWED:
        return "unnoticed or refused"
    if result in lost(function):
        return "lost"
    if function in EDITOR and ended_by_editor(result, note(device, number, "errors")):
        return "ended by the editor"
    return "wrong"


@pytest.mark.parametrize("part", range(PARTS))
def test_allocation_fails(gateway, part, record_property):
    play(gateway, [0])
    assert played(gateway, 0) == outcome()
    name, count = note(gateway, 0, "record").split()
    assert name == b"allocations"
    numbers = range(1 + part, int(count) + 1, PARTS)
    assert len(numbers) > 50
    play(gateway, numbers)
    sessions = defaultdict(list)
    for number in numbers:
        function, met = note(gateway, number, "record").decode().split()[:2]
        assert int(met) == number, "the allocation did not fail"
        sessions[judged(gateway, number, function)].append((number, function))
    assert [(*each, played(gateway, each[0])) for each in sessions["wrong"]] == []
    counts = ", ".join(f"{len(found)} {what}" for what, found in sorted(sessions.items()) if found)
    record_property(f"allocations, part {part + 1} of {PARTS}", counts)
