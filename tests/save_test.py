"""The save command: the queue, the save file, and how the answer is printed."""

import pytest

from console import SAVE_FILE, SHELL

NOTHING_TO_SAVE = b"ERROR: Nothing to save\n"
VERSION_FILE = "/etc/version.txt"


def shown(device, answer, setting=b"a=1"):
    """Returns what save prints when the back end gives this answer."""
    device.record_requests(answer=answer)
    console = device.log_in()
    console.command(setting)
    return console.command(b"save")


def save_file(device, *settings):
    device.record_requests()
    console = device.log_in()
    for setting in settings:
        console.command(setting)
    console.command(b"save")
    return device.read(SAVE_FILE)


# The queue


def test_nothing_queued_is_refused_and_nothing_happens(device):
    device.record_requests()
    assert device.log_in().command(b"save") == NOTHING_TO_SAVE
    assert device.requests() == []
    assert not device.exists(SAVE_FILE)


def test_arguments_are_ignored_and_not_queued(device):
    device.record_requests()
    console = device.log_in()
    assert console.command(b"save a=1") == NOTHING_TO_SAVE
    console.command(b"b=2")
    console.command(b"save c=3")
    assert device.read(SAVE_FILE) == b"VERSION=2.1.4\nb=2\n"


def test_second_save_has_nothing_to_save(device):
    device.record_requests()
    console = device.log_in()
    console.command(b"a=1")
    assert console.command(b"save") == b""
    assert console.command(b"save") == NOTHING_TO_SAVE
    assert len(device.requests()) == 1


def test_rejected_settings_are_not_kept(device):
    device.record_requests(answer=b"#ERRORa#VAL1#MSGno#END")
    console = device.log_in()
    console.command(b"a=1")
    console.command(b"save")
    console.command(b"b=2")
    console.command(b"save")
    assert device.read(SAVE_FILE) == b"VERSION=2.1.4\nb=2\n"


# The save file


def test_save_file_holds_the_version_and_the_settings_in_order(device):
    device.write(VERSION_FILE, b"Version: 2.1\n")
    assert save_file(device, b"b=2", b"a=1") == b"VERSION=2.1\nb=2\na=1\n"


@pytest.mark.parametrize("first", [b"VERSION=1.0", b"MY_VERSION=1.0", b"VERSION="])
def test_first_setting_with_a_version_suppresses_the_version_line(device, first):
    assert save_file(device, first, b"a=1") == first + b"\na=1\n"


@pytest.mark.parametrize("first", [b"version=1.0", b"VERSION", b"VERSION:1"])
def test_first_setting_other_than_a_version_does_not_suppress_it(device, first):
    assert save_file(device, first) == b"VERSION=2.1.4\n" + first + b"\n"


def test_version_queued_later_gives_two_version_lines(device):
    assert save_file(device, b"a=1", b"VERSION=1.0") == b"VERSION=2.1.4\na=1\nVERSION=1.0\n"


@pytest.mark.parametrize(
    "version_file, version",
    [
        (b"Version:3.0\n", b"3.0"),
        (b"Version: 3.0", b"3.0"),
        (b"  Version :  3.0 beta  \r\n", b"3.0 beta"),
        (b"# Version: 1\nVersion: 3.0 # new\n", b"3.0"),
        (b"Version: 1:2\nVersion: 9\n", b"1:2"),
        (b"Version:\n", b""),
        (b"version: 3.0\n", b"ENTRY_NOT_FOUND"),
        (b"Version = 3.0\n", b"ENTRY_NOT_FOUND"),
        (b"", b"ENTRY_NOT_FOUND"),
    ],
)
def test_version_is_read_from_the_version_file(device, version_file, version):
    device.write(VERSION_FILE, version_file)
    assert save_file(device, b"a=1") == b"VERSION=" + version + b"\na=1\n"


def test_missing_version_file_writes_the_marker(device):
    device.remove(VERSION_FILE)
    assert save_file(device, b"a=1") == b"VERSION=ENTRY_NOT_FOUND\na=1\n"


def test_version_file_is_read_anew_by_every_save(device):
    device.record_requests()
    console = device.log_in()
    console.command(b"a=1")
    console.command(b"save")
    device.write(VERSION_FILE, b"Version: 9\n")
    console.command(b"a=1")
    console.command(b"save")
    assert device.read(SAVE_FILE) == b"VERSION=9\na=1\n"


def test_settings_are_written_unchanged(device):
    setting = b"a=%s\\n#END\"'`$(id)&;|<>*?"
    assert save_file(device, setting) == b"VERSION=2.1.4\n" + setting + b"\n"


def test_next_save_overwrites_a_longer_file(device):
    device.write(SAVE_FILE, b"old\n" * 1000)
    assert save_file(device, b"a=1") == b"VERSION=2.1.4\na=1\n"


def test_save_file_exists_when_the_save_program_runs(device):
    device.stand_in("fcgiclient", b"/usr/bin/cat " + SAVE_FILE.encode() + b"\n")
    console = device.log_in()
    console.command(b"a=1")
    assert console.command(b"save") == b"VERSION=2.1.4\na=1\n"


def test_save_file_that_cannot_be_created_stops_nothing(device):
    device.make_folder(SAVE_FILE)
    device.record_requests(answer=b"saved\n")
    console = device.log_in()
    console.command(b"a=1")
    assert console.command(b"save") == b"saved\n"
    assert device.requests()[0]["PATH_INFO"] == "putconf.cgi"
    assert console.command(b"save") == NOTHING_TO_SAVE


def test_client_that_cannot_be_started_prints_nothing_and_empties_the_queue(device):
    device.record_requests(answer=b"saved\n")
    # With a limit of five open files, one of them the turn's lock, no pipe can be opened.
    console = device.log_in("/bin/sh", "-c", f"ulimit -n 5; exec {SHELL}")
    console.command(b"VERSION=1")
    assert console.command(b"save") == b""
    assert device.read(SAVE_FILE) == b"VERSION=1\n"
    assert device.requests() == []
    assert console.command(b"save") == NOTHING_TO_SAVE


def test_missing_client_empties_the_queue(device):
    console = device.log_in()
    device.remove("/bin/fcgiclient")
    console.command(b"a=1")
    assert console.command(b"save") == b"sh: 1: /bin/fcgiclient: not found\n"
    assert console.command(b"save") == NOTHING_TO_SAVE


def test_status_of_the_client_does_not_matter(device):
    device.stand_in("fcgiclient", b"echo saved\nexit 3\n")
    console = device.log_in()
    console.command(b"a=1")
    assert console.command(b"save") == b"saved\n"
    assert console.command(b"save") == NOTHING_TO_SAVE


# The answer


@pytest.mark.parametrize(
    "answer, words",
    [
        (b"", b""),
        (b"Settings saved\n", b"Settings saved\n"),
        (b"no line feed", b"no line feed"),
        (b"\n\n", b"\n\n"),
        (b"#ERRORport#VAL99#MSGout of range#END", b"Error in port=99. out of range"),
        (b"#ERROR_GLOBAL#MSGdisk full#END", b"Error in _GLOBAL. disk full"),
        (b"#ERROR_GLOBAL disk full", b"Error in _GLOBAL disk full"),
        (b"one\\ntwo\\n", b"one\ntwo\n"),
        (b"one\\n\ntwo", b"one\n\ntwo"),
        (b"\\\\n", b"\\\n"),
        (b"\\N\\t\\", b"\\N\\t\\"),
        (
            b"#ERRORa#VAL1#MSGno#END\\n#ERRORb#VAL2#MSGnever#END\n",
            b"Error in a=1. no\nError in b=2. never\n",
        ),
        (b"#END#END#VAL#VAL", b"=="),
        (b"##END", b"#"),
        (b"#error #Val #msg #end # ERROR", b"#error #Val #msg #end # ERROR"),
        (b"#ERRORS", b"Error in S"),
        # Replacements are made in a fixed order, so an earlier one does not see the result of a later one
        (b"#VA#ENDL", b"#VAL"),
        (b"#ERR#ENDOR", b"#ERROR"),
        (b"#E#ENDND", b"#END"),
        (b"\\#ENDn", b"\\n"),
        (b"%s%n%%", b"%s%n%%"),
        (b"\xff\x80\x1b\n", b"\xff\x80\x1b\n"),
    ],
)
def test_markers_in_the_answer_are_replaced(device, answer, words):
    assert shown(device, answer) == words


@pytest.mark.parametrize("length", [253, 254, 255, 256, 508, 509, 5000])
def test_long_line_of_an_answer_is_shown_whole(device, length):
    line = (b"0123456789" * 500)[:length]
    assert shown(device, line + b"\nnext\n") == line + b"\nnext\n"


@pytest.mark.parametrize(
    "marker, words", [(b"#ERROR", b"Error in "), (b"\\n", b"\n"), (b"#END", b"")]
)
@pytest.mark.parametrize("position", range(249, 256))
def test_marker_across_the_pieces_of_a_long_line_is_rewritten(device, marker, words, position):
    before = b"x" * position
    assert shown(device, before + marker + b"after\n") == before + words + b"after\n"


def test_nul_character_loses_the_rest_of_its_line(device):
    assert shown(device, b"a\0lost\nb\n") == b"ab\n"


def test_settings_are_not_part_of_the_answer(device):
    assert shown(device, b"ok\n", setting=b"#ERROR\\n#END") == b"ok\n"
