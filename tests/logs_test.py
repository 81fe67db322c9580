"""The commands log_ls and show."""

import pytest

LOGS = {
    b"cm": "/var/log/cm.log",
    b"sip": "/tmp/logs/sip_ua.log",
    b"sip_reg": "/tmp/logs/sip_reg.log",
    b"Q.931": "/tmp/logs/isdnagent.log",
}
SYNTAX = b"ERROR: the syntax is: show log_type\n"
NO_LOG = b"ERROR: There is no such log file\n"
NEXT_LITERAL = b"\x16"


def words_of_cat(device, path):
    """Returns the error message of the device's cat for this file."""
    words = device.run(b"", "cat", path).errors
    assert words.startswith(b"cat: ") and path.encode() in words
    return words


@pytest.mark.parametrize("line", [b"log_ls", b"log_ls sip", b"log_ls a b"])
def test_log_ls_prints_the_names_in_order(device, line):
    assert device.log_in().command(line) == b"\ncm\nsip\nsip_reg\nQ.931\n\n"


@pytest.mark.parametrize("name", LOGS)
def test_show_prints_the_log_of_that_name(device, name):
    for other, path in LOGS.items():
        device.write(path, b"the log of " + other + b"\n")
    assert device.log_in().command(b"show " + name) == b"the log of " + name + b"\n"


@pytest.mark.parametrize("name", LOGS)
def test_show_runs_cat_on_the_path_of_the_table(device, name):
    device.record_command_lines()
    device.log_in().command(b"show " + name)
    assert device.command_lines() == [b"cat " + LOGS[name].encode()]


@pytest.mark.parametrize(
    "line, echo",
    [
        (b"show   sip", None),
        (b"show" + NEXT_LITERAL + b"\tsip", b"show   sip"),
        (b"  show sip  ", None),
    ],
)
def test_blanks_around_the_name_do_not_matter(device, line, echo):
    device.write(LOGS[b"sip"], b"one line\n")
    assert device.log_in().command(line, echo=echo) == b"one line\n"


@pytest.mark.parametrize("line", [b"show", b"show   "])
def test_show_alone_gives_the_syntax_and_runs_nothing(device, line):
    device.record_command_lines()
    assert device.log_in().command(line) == SYNTAX
    assert device.command_lines() == []


@pytest.mark.parametrize(
    "argument",
    [
        b"q.931",
        b"SIP",
        b"CM",
        b"sip extra",
        b"sip  sip_reg",
        b"si",
        b"sip_",
        b"sip_regs",
        b"Q.93",
        b"Q_931",
        b"/var/log/cm.log",
        b"../cm",
        b"sip;id",
        b"$(id)",
        b"`id`",
        b"%s%n",
    ],
)
def test_anything_but_a_name_is_refused_and_runs_nothing(device, argument):
    device.record_command_lines()
    assert device.log_in().command(b"show " + argument) == NO_LOG
    assert device.command_lines() == []


@pytest.mark.parametrize("name", LOGS)
def test_error_for_a_missing_log_is_that_of_cat(device, name):
    device.remove(LOGS[name])
    words = words_of_cat(device, LOGS[name])
    assert device.log_in().command(b"show " + name) == words


def test_error_for_an_unreadable_log_is_that_of_cat(device):
    path = LOGS[b"sip"]
    device.write(path, b"secret\n", mode=0)
    words = words_of_cat(device, path)
    assert device.log_in().command(b"show sip") == words


def test_only_the_command_interpreter_reports_a_missing_cat(device):
    console = device.log_in("/bin/env", "PATH=/bin", "/bin/tessel")
    device.remove("/bin/cat")
    assert console.command(b"show sip") == b"sh: 1: cat: not found\n"
    assert console.command(b"show x") == NO_LOG


def test_empty_log_prints_nothing(device):
    device.write(LOGS[b"cm"])
    assert device.log_in().command(b"show cm") == b""


def test_log_without_a_last_line_feed_is_printed_as_it_is(device):
    device.write(LOGS[b"cm"], b"one\ntwo")
    assert device.log_in().command(b"show cm") == b"one\ntwo"


def test_large_binary_log_is_printed_byte_for_byte(device):
    log = bytes(range(256)) * 4096
    device.write(LOGS[b"cm"], log)
    assert log in device.run(b"admin\ngateway\nshow cm\n").output


def test_error_status_of_cat_does_not_matter(device):
    device.stand_in("cat", b"echo shown: $*\nexit 7\n")
    console = device.log_in()
    assert console.command(b"show sip_reg") == b"shown: /tmp/logs/sip_reg.log\n"
    assert console.command(b"log_ls") == b"\ncm\nsip\nsip_reg\nQ.931\n\n"
