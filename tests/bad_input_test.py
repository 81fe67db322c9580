"""Broken files, a missing client, a misbehaving back end: nothing ends or hangs the shell, and only
save and exit empty the queue of settings."""

import os

import pytest

from console import GREETING, PROMPT, REFUSAL, SAVE_FILE, SUMMARY_FILE

LOGIN = b"admin\ngateway\n"
LOGGED_IN = GREETING + b"Username: admin\n\n" + PROMPT
MENU_TREE = "/etc/menutree.conf"
ACCESS_DATABASE = "/tmp/acldb"
EXTENSION_DATABASE = "/etc/tarn-conf/telephony/extensiondb"
VERSION_FILE = "/etc/version.txt"
MEGABYTE = 1 << 20


def missing(device, name):
    device.remove(name)


def unreadable(device, name):
    device.path(name).chmod(0)


def folder(device, name):
    device.make_folder(name)


def dangling_link(device, name):
    device.remove(name)
    device.path(name).symlink_to("/nowhere")


def link_to_itself(device, name):
    device.remove(name)
    device.path(name).symlink_to(os.path.basename(name))


def pipe_without_writer(device, name):
    device.remove(name)
    os.mkfifo(device.path(name))


def empty(device, name):
    device.write(name)


def line_feeds_only(device, name):
    device.write(name, b"\n" * MEGABYTE)


def nul_characters(device, name):
    device.write(name, b"\0" * MEGABYTE)


def every_byte(device, name):
    device.write(name, bytes(range(256)) * 4096)


def endless_line(device, name):
    device.write(name, b"x" * (24 * MEGABYTE))


def endless_opening(device, name):
    device.write(name, b"section admin ITEM Version: {" * MEGABYTE)


def unclosed_sections(device, name):
    device.write(name, b"ITEM a {\nACL=auto\nsection extension {\na=201\n" * 20000)


def braces_only(device, name):
    device.write(name, b"{\n}\n}\n{{\n}}\n" * 50000)


BROKEN = [
    missing,
    unreadable,
    folder,
    dangling_link,
    link_to_itself,
    pipe_without_writer,
    empty,
    line_feeds_only,
    nul_characters,
    every_byte,
    endless_line,
    endless_opening,
    unclosed_sections,
    braces_only,
]


@pytest.fixture(params=BROKEN, ids=lambda function: function.__name__)
def broken(request):
    """Returns a function that breaks a file of the device."""
    return request.param


def answer_to(result, line):
    """Returns the output of a session through a pipe between that line and the next prompt."""
    _, found, rest = result.output.partition(PROMPT + line + b"\n")
    assert found
    return rest[: rest.index(PROMPT)]


def test_session_survives_a_broken_menu_tree(device, broken):
    broken(device, MENU_TREE)
    device.record_requests(answer=b"saved\n")
    result = device.run(LOGIN + b"a=1\nlist\nget sip\nget ext_dnd 201\nsave\nexit\n")
    assert result.status == 0
    assert answer_to(result, b"list").startswith(b"\n*** General configuration parts ***\n\n")
    assert answer_to(result, b"get sip") == b"ERROR: There is no such configuration part\n"
    assert answer_to(result, b"save") == b"saved\n"
    assert device.read(SAVE_FILE) == b"VERSION=2.1.4\na=1\n"


@pytest.mark.parametrize("broken_menu", [missing, unreadable, folder, pipe_without_writer, empty])
def test_unreadable_menu_tree_offers_nothing(device, broken_menu):
    broken_menu(device, MENU_TREE)
    assert device.log_in().command(b"list") == (
        b"\n*** General configuration parts ***\n\n\n*** Extension configuration parts ***\n\n\n"
    )


def test_broken_access_database_lets_nobody_in(device, broken):
    broken(device, ACCESS_DATABASE)
    device.record_requests()
    result = device.run(3 * LOGIN + b"help\n")
    assert result.output == GREETING + 3 * (b"Username: admin\n" + REFUSAL)
    assert result.status == 1
    assert [request["PATH_INFO"] for request in device.requests()] == ["logout.cgi"]


def test_session_and_queue_survive_a_broken_extension_database(device, broken):
    broken(device, EXTENSION_DATABASE)
    device.record_requests(answer=b"saved\n")
    result = device.run(LOGIN + b"a=1\nget ext_dnd 209\nget sip\nsave\nexit\n")
    assert result.status == 0
    assert answer_to(result, b"get ext_dnd 209") == b"ERROR: There is no such an extension\n"
    assert answer_to(result, b"get sip").startswith(b"\nSIP settings\n\n")
    assert answer_to(result, b"save") == b"saved\n"
    assert device.read(SAVE_FILE) == b"VERSION=2.1.4\na=1\n"


def test_broken_version_file_affects_only_the_version_line(device, broken):
    broken(device, VERSION_FILE)
    device.record_requests(answer=b"saved\n")
    result = device.run(LOGIN + b"a=1\nb=2\nsave\nsave\nexit\n")
    assert result.status == 0
    assert answer_to(result, b"save") == b"saved\n"
    assert b"save\nERROR: Nothing to save\n" in result.output
    saved = device.read(SAVE_FILE)
    assert saved.startswith(b"VERSION=") and saved.endswith(b"\na=1\nb=2\n")


def test_session_continues_with_every_file_missing(device):
    console = device.log_in()
    for name in (MENU_TREE, ACCESS_DATABASE, EXTENSION_DATABASE, VERSION_FILE, "/bin/fcgiclient"):
        device.remove(name)
    console.command(b"a=1")
    assert console.command(b"get sip").startswith(b"\nSIP settings\n\n")
    assert console.command(b"get ext_dnd 201") == b"ERROR: There is no such an extension\n"
    console.command(b"save")
    assert device.read(SAVE_FILE) == b"VERSION=ENTRY_NOT_FOUND\na=1\n"
    console.enter(b"exit")
    assert console.end()[0] == 0


# The client


def client_missing(device):
    device.remove("/bin/fcgiclient")


def client_not_executable(device):
    device.write("/bin/fcgiclient", b"#!/usr/bin/sh\n", mode=0o644)


def client_is_no_program(device):
    device.write("/bin/fcgiclient", b"\x7fELF" + b"\0" * 100, mode=0o755)


def client_is_a_folder(device):
    device.make_folder("/bin/fcgiclient")


def client_says_nothing(device):
    device.stand_in("fcgiclient", b"")


def client_fails(device):
    device.stand_in("fcgiclient", b"exit 1")


def client_kills_itself(device):
    device.stand_in("fcgiclient", b"kill -SEGV $$")


def client_closes_its_output(device):
    device.stand_in("fcgiclient", b"exec >&-\nexit 0")


@pytest.mark.parametrize(
    "client",
    [
        client_missing,
        client_not_executable,
        client_is_no_program,
        client_is_a_folder,
        client_says_nothing,
        client_fails,
        client_kills_itself,
        client_closes_its_output,
    ],
    ids=lambda function: function.__name__,
)
def test_session_continues_without_an_answer(device, client):
    client(device)
    device.write(SUMMARY_FILE, b"VERSION=1\nold=1\n")
    result = device.run(LOGIN + b"get sip\na=1\nget sip\nsave\nsave\nexit\n")
    assert result.output == (
        LOGGED_IN
        + b"get sip\n\nSIP settings\n\nold=1\n\n\n"
        + PROMPT
        + b"a=1\n"
        + PROMPT
        + b"get sip\n\nSIP settings\n\nold=1\n\n\n"
        + PROMPT
        + b"save\n"
        + PROMPT
        + b"save\nERROR: Nothing to save\n"
        + PROMPT
        + b"exit\n"
    )
    assert result.status == 0
    assert device.read(SAVE_FILE) == b"VERSION=2.1.4\na=1\n"


def test_answer_of_megabytes_to_get_is_discarded(device):
    device.write("/record/large", b"0123456789abcde\n" * (MEGABYTE // 2))
    device.stand_in("fcgiclient", b"/usr/bin/cat /record/large\n")
    device.write(SUMMARY_FILE, b"VERSION=1\na=1\n")
    result = device.run(LOGIN + b"get sip\nexit\n")
    assert result.output == LOGGED_IN + b"get sip\n\nSIP settings\n\na=1\n\n\n" + PROMPT + b"exit\n"


@pytest.mark.parametrize(
    "answer",
    [b"0123456789abcde\n" * (MEGABYTE // 2), b"x" * (8 * MEGABYTE), b"#ERR" * (2 * MEGABYTE)],
)
def test_answer_of_megabytes_to_save_is_shown_whole(device, answer):
    device.record_requests(answer=answer)
    result = device.run(LOGIN + b"a=1\nsave\nexit\n")
    assert result.output == (
        LOGGED_IN + b"a=1\n" + PROMPT + b"save\n" + answer + PROMPT + b"exit\n"
    )


def test_megabytes_of_markers_are_replaced(device):
    device.record_requests(answer=b"#ERROR#VAL#MSG#END\\n" * (MEGABYTE // 4))
    result = device.run(LOGIN + b"a=1\nsave\nexit\n")
    assert answer_to(result, b"save") == b"Error in =. \n" * (MEGABYTE // 4)


def test_endless_answer_to_the_logout_does_not_delay_the_end(device):
    device.stand_in("fcgiclient", b"while echo more; do :; done 2>/dev/null\n")
    assert device.run(LOGIN + b"exit\n").status == 0


def test_back_end_that_is_down(device):
    console = device.log_in()
    device.remove("/run/backend/socket")
    console.command(b"a=1")
    assert console.command(b"get sip") == b"\nSIP settings\n\n\n\n"
    assert console.command(b"save") == b""
    assert device.read(SAVE_FILE) == b"VERSION=2.1.4\na=1\n"
    assert console.leave() == 0


# The files under /tmp


@pytest.mark.parametrize(
    "summary, text",
    [
        (b"", b""),
        (b"a=1\n", b"a=1\n"),
        (b"\0" * MEGABYTE, b""),
        (b"VERSION=1\n" + b"\0" * MEGABYTE, b""),
        (b"VERSION=1\n" + b"x" * (4 * MEGABYTE), b"x" * (4 * MEGABYTE)),
        (b"VERSION" * MEGABYTE, b"VERSION" * MEGABYTE),
    ],
)
def test_odd_summary_file(device, summary, text):
    device.record_requests()
    device.write(SUMMARY_FILE, summary)
    result = device.run(LOGIN + b"get sip\n")
    assert result.output == LOGGED_IN + b"get sip\n\nSIP settings\n\n" + text + b"\n\n" + PROMPT


@pytest.mark.parametrize(
    "spoil", [missing, unreadable, folder, dangling_link, link_to_itself],
    ids=lambda function: function.__name__,
)
def test_unreadable_summary_file(device, spoil):
    device.record_requests()
    device.write(SUMMARY_FILE, b"VERSION=1\na=1\n")
    spoil(device, SUMMARY_FILE)
    console = device.log_in()
    assert console.command(b"get sip") == b"\nSIP settings\n\n\n\n"
    assert console.leave() == 0


def save_file_without_rights(device):
    device.write(SAVE_FILE, b"old\n", mode=0o444)


def save_file_is_a_folder(device):
    device.make_folder(SAVE_FILE)


def save_file_leads_nowhere(device):
    device.path(SAVE_FILE).symlink_to("/nowhere/at/all")


def folder_without_rights(device):
    device.path("/tmp").chmod(0o555)


def disk_full(device):
    device.path(SAVE_FILE).symlink_to("/dev/full")


@pytest.mark.parametrize(
    "spoil",
    [
        save_file_without_rights,
        save_file_is_a_folder,
        save_file_leads_nowhere,
        folder_without_rights,
        disk_full,
    ],
    ids=lambda function: function.__name__,
)
def test_unwritable_save_file(device, spoil):
    device.record_requests(answer=b"nothing to read\n")
    spoil(device)
    console = device.log_in()
    console.command(b"a=1")
    assert console.command(b"save") == b"nothing to read\n"
    assert [request["PATH_INFO"] for request in device.requests()] == ["putconf.cgi"]
    assert console.command(b"save") == b"ERROR: Nothing to save\n"
    assert console.leave() == 0


def test_missing_command_interpreter(device):
    console = device.log_in()
    device.remove("/bin/sh")
    console.command(b"a=1")
    assert console.command(b"get sip") == b"\nSIP settings\n\n"
    assert console.command(b"show cm") == b""
    assert console.command(b"save") == b""
    assert console.command(b"save") == b"ERROR: Nothing to save\n"
    assert console.leave() == 0
