"""The prompt: how a typed line is handled, the history, and the end of a session."""

import pytest

from console import GREETING, PROMPT, SAVE_FILE

UP = b"\x10"  # Ctrl-P recalls the previous line
NEXT_LITERAL = b"\x16"  # Ctrl-V takes the next key literally
HELP_FOR_HELP = b"\nhelp\t\tDisplay the help.\n\n"


@pytest.fixture
def console(device):
    device.record_requests()
    return device.log_in()


def saved(device, console):
    """Types save. Returns the settings that were pending."""
    assert console.command(b"save") == b""
    version, *settings = device.read(SAVE_FILE).split(b"\n")
    assert version == b"VERSION=2.1.4"
    assert settings.pop() == b""
    return settings


def test_blanks_around_a_line_are_dropped(console):
    assert console.command(b"   help   ") == console.command(b"help")


def test_history_holds_the_trimmed_line(console):
    console.command(b"   help help   ")
    assert console.command(UP, echo=b"help help") == HELP_FOR_HELP


@pytest.mark.parametrize(
    "keys, echo",
    [
        (b"", b""),
        (b"   ", b"   "),
        (NEXT_LITERAL + b"\t", b"       "),
        (b" " + NEXT_LITERAL + b"\t ", b"        "),
    ],
)
def test_line_of_blanks_is_neither_kept_nor_queued(console, keys, echo):
    console.command(b"help help")
    assert console.command(keys, echo=echo) == b""
    assert console.command(UP, echo=b"help help") == HELP_FOR_HELP
    assert console.command(b"save") == b"ERROR: Nothing to save\n"


def test_tab_separates_command_and_argument(console):
    assert console.command(b"help" + NEXT_LITERAL + b"\thelp", echo=b"help   help") == HELP_FOR_HELP


def test_several_blanks_separate_command_and_argument(console):
    assert console.command(b"help   help") == HELP_FOR_HELP


def test_blanks_inside_the_argument_are_kept(console):
    assert console.command(b"help a  b") == (
        b"\nNo commands match `a  b'.  Possibilties are:\n"
        b"list\tget\tsave\texit\thelp\tbackup\t\nrestore\tlog_ls\tshow\t\n\n"
    )


def test_only_the_first_word_of_a_setting_is_queued_and_the_whole_line_remembered(device, console):
    assert console.command(b"a=1 b=2") == b""
    assert console.command(UP, echo=b"a=1 b=2") == b""
    assert saved(device, console) == [b"a=1", b"a=1"]


def test_setting_written_with_blanks_queues_its_name(device, console):
    console.command(b"name = value")
    console.command(b"other" + NEXT_LITERAL + b"\t= value", echo=b"other  = value")
    assert saved(device, console) == [b"name", b"other"]


def test_other_control_characters_are_not_blanks(device, console):
    console.command(NEXT_LITERAL + b"\x0ca=1" + NEXT_LITERAL + b"\x0c", echo=b"^La=1^L")
    assert saved(device, console) == [b"\x0ca=1\x0c"]


def test_unknown_word_is_queued_without_a_message(device, console):
    assert console.command(b"frobnicate") == b""
    assert saved(device, console) == [b"frobnicate"]


@pytest.mark.parametrize("word", [b"Exit", b"EXIT", b"Help", b"exits", b"exi", b"LIST", b"get=1"])
def test_word_that_is_not_exactly_a_command_is_queued(device, console, word):
    assert console.command(word) == b""
    assert saved(device, console) == [word]


def test_word_of_256_bytes_is_queued(device, console):
    assert console.command(b"x" * 256) == b""
    assert saved(device, console) == [b"x" * 256]


def test_word_of_257_bytes_is_dropped_silently(console):
    assert console.command(b"x" * 257) == b""
    assert console.command(b"save") == b"ERROR: Nothing to save\n"


def test_long_line_with_a_short_first_word_queues_that_word(device, console):
    line = b"a=123 " + b"y" * 294
    assert len(line) == 300
    assert console.command(line) == b""
    assert saved(device, console) == [b"a=123"]


def test_hundred_settings_are_kept_in_the_order_typed(device, console):
    settings = [b"s%d=%d" % (number, number) for number in range(1, 101)]
    for setting in settings:
        assert console.command(setting) == b""
    assert saved(device, console) == settings


def test_settings_101_and_102_each_push_out_the_oldest(device, console):
    settings = [b"s%d=%d" % (number, number) for number in range(1, 103)]
    for setting in settings[:101]:
        assert console.command(setting) == b""
    console.command(settings[101])
    assert saved(device, console) == settings[2:]


def test_dropped_word_pushes_nothing_out_of_a_full_queue(device, console):
    settings = [b"s%d=%d" % (number, number) for number in range(1, 101)]
    for setting in settings:
        console.command(setting)
    console.command(b"x" * 257)
    assert saved(device, console) == settings


def test_equal_settings_are_each_queued(device, console):
    for setting in (b"a=1", b"b=2", b"a=1"):
        console.command(setting)
    assert saved(device, console) == [b"a=1", b"b=2", b"a=1"]


def test_pending_settings_survive_every_other_command(device, console):
    console.command(b"a=1")
    for line in (b"list", b"get", b"get sip", b"help", b"log_ls", b"show", b"show cm", b"show x"):
        console.command(line)
    assert saved(device, console) == [b"a=1"]


def test_pending_settings_are_lost_at_the_end(device, console):
    console.command(b"a=1")
    assert console.leave() == 0
    assert not device.exists(SAVE_FILE)
    assert device.log_in().command(b"save") == b"ERROR: Nothing to save\n"


def test_history_does_not_outlive_the_session(device, console):
    console.command(b"help help")
    assert console.leave() == 0
    assert device.log_in().command(UP, echo=b"") == b""


@pytest.mark.parametrize("line", [b"exit", b"exit now", b"  exit  ", b"exit exit help"])
def test_exit_logs_out_once_and_ends_with_status_0(device, console, line):
    assert console.leave(line) == 0
    assert [request["PATH_INFO"] for request in device.requests()] == ["logout.cgi"]


def test_end_of_input_logs_out_once_and_ends_with_status_0_silently(device, console):
    console.type(b"\x04")
    assert console.end() == (0, b"")
    assert [request["PATH_INFO"] for request in device.requests()] == ["logout.cgi"]


def test_nothing_typed_after_exit_is_read(device):
    result = device.run(b"admin\ngateway\nexit\nhelp\nsave\n")
    assert result.output == GREETING + b"Username: admin\n\n" + PROMPT + b"exit\n"


def test_refused_commands_end_nothing_and_the_exit_status_stays_0(console):
    assert console.command(b"get nothing") == b"ERROR: There is no such configuration part\n"
    assert console.command(b"show nothing") == b"ERROR: There is no such log file\n"
    assert console.command(b"save") == b"ERROR: Nothing to save\n"
    assert console.command(b"help help") == HELP_FOR_HELP
    assert console.leave() == 0
