"""The dialogue before the first prompt."""

import pytest

from console import GREETING, PROMPT, REFUSAL, SHELL

ACCESS_DATABASE = "/tmp/acldb"


def access_database(user=b"admin", password=b"gateway", section=b"admin"):
    return b"section %s {\nuser_name = %s\npassword = %s\n}\n" % (section, user, password)


def refused(device):
    """Types the correct credentials three times. Returns the output and the exit status."""
    console = device.console()
    console.read_until(b"Username: ")
    for _ in range(2):
        console.attempt(b"admin", b"gateway")
    console.exchange(b"admin", b"Password: ")
    console.enter(b"gateway")
    status, _ = console.end()
    return console.screen, status


def test_correct_login_is_followed_by_one_line_feed_and_the_prompt(device):
    console = device.log_in()
    assert console.screen == GREETING + b"Username: admin\nPassword: \n\ntessel:> "


def test_successful_login_alone_makes_no_request(device):
    device.record_requests()
    device.log_in()
    assert device.requests() == []


@pytest.mark.parametrize(
    "user, password",
    [
        (b"admin ", b"gateway"),
        (b" admin", b"gateway"),
        (b"Admin", b"gateway"),
        (b"ADMIN", b"gateway"),
        (b"admi", b"gateway"),
        (b"admin1", b"gateway"),
        (b"", b"gateway"),
        (b"root", b"gateway"),
        (b"user", b"user"),
        (b"admin", b"gateway "),
        (b"admin", b" gateway"),
        (b"admin", b"Gateway"),
        (b"admin", b"gatewa"),
        (b"admin", b"gateway1"),
        (b"admin", b""),
        (b"gateway", b"admin"),
        (b"", b""),
    ],
)
def test_credentials_other_than_the_stored_ones_are_refused(device, user, password):
    console = device.console()
    console.read_until(b"Username: ")
    console.attempt(user, password)
    assert console.screen == (
        GREETING + b"Username: " + user + b"\nPassword: \n" + REFUSAL + b"Username: "
    )


@pytest.mark.parametrize("failures", [1, 2])
def test_correct_credentials_are_accepted_after_wrong_ones(device, failures):
    console = device.console()
    console.read_until(b"Username: ")
    for _ in range(failures):
        console.attempt(b"admin", b"wrong")
    console.exchange(b"admin", b"Password: ")
    assert console.exchange(b"gateway", PROMPT, echo=b"") == b"\n" + PROMPT
    assert console.leave() == 0


def test_third_wrong_login_logs_out_once_and_ends_with_status_1(device):
    device.record_requests()
    console = device.console()
    console.read_until(b"Username: ")
    console.attempt(b"admin", b"one")
    console.attempt(b"nobody", b"gateway")
    console.exchange(b"admin", b"Password: ")
    assert device.requests() == []
    console.enter(b"three")
    assert console.end() == (1, b"\n" + REFUSAL)
    assert console.screen == (
        GREETING
        + b"Username: admin\nPassword: \n"
        + REFUSAL
        + b"Username: nobody\nPassword: \n"
        + REFUSAL
        + b"Username: admin\nPassword: \n"
        + REFUSAL
    )
    assert [request["PATH_INFO"] for request in device.requests()] == ["logout.cgi"]


def test_refusal_is_shown_before_the_logout(device):
    device.stand_in("fcgiclient", b"echo logout >&2\n")
    console = device.console()
    console.read_until(b"Username: ")
    for _ in range(2):
        console.attempt(b"a", b"b")
    console.exchange(b"a", b"Password: ")
    console.enter(b"b")
    assert console.end() == (1, b"\n" + REFUSAL + b"logout\n")


def test_access_database_created_between_attempts_takes_effect(device):
    device.remove(ACCESS_DATABASE)
    console = device.console()
    console.read_until(b"Username: ")
    console.attempt(b"admin", b"gateway")
    device.write(ACCESS_DATABASE, access_database())
    console.exchange(b"admin", b"Password: ")
    assert console.exchange(b"gateway", PROMPT, echo=b"") == b"\n" + PROMPT


def test_access_database_corrected_between_attempts_takes_effect(device):
    console = device.console()
    console.read_until(b"Username: ")
    console.attempt(b"chief", b"secret")
    device.write(ACCESS_DATABASE, access_database(b"chief", b"secret"))
    console.exchange(b"chief", b"Password: ")
    assert console.exchange(b"secret", PROMPT, echo=b"") == b"\n" + PROMPT


def test_access_database_is_read_after_the_password_was_typed(device):
    console = device.console()
    console.read_until(b"Username: ")
    console.exchange(b"chief", b"Password: ")
    device.write(ACCESS_DATABASE, access_database(b"chief", b"secret"))
    assert console.exchange(b"secret", PROMPT, echo=b"") == b"\n" + PROMPT


@pytest.mark.parametrize(
    "database",
    [
        None,
        b"",
        access_database(section=b"administrator"),
        access_database(section=b"Admin"),
        b"section admin {\npassword = gateway\n}\n",
        b"section admin {\nuser_name = admin\n}\n",
        b"section admin {\nUser_Name = admin\npassword = gateway\n}\n",
        b"section admin {\nuser_name = admin\n}\nsection user {\npassword = gateway\n}\n",
        b"user_name = admin\npassword = gateway\n",
        b"section admin {\nuser_name = admin\n}\npassword = gateway\n",
    ],
    ids=[
        "no database",
        "empty database",
        "other section",
        "section in capitals",
        "no user name",
        "no password",
        "key in capitals",
        "password in another section",
        "entries outside a section",
        "password after the section",
    ],
)
def test_nobody_can_log_in_without_stored_credentials(device, database):
    device.remove(ACCESS_DATABASE)
    if database is not None:
        device.write(ACCESS_DATABASE, database)
    screen, status = refused(device)
    assert screen == GREETING + 3 * (b"Username: admin\nPassword: \n" + REFUSAL)
    assert status == 1
    assert device.served() == ["GET logout.cgi"]


def test_stored_credentials_are_taken_from_the_admin_section_only(device):
    device.write(
        ACCESS_DATABASE,
        access_database(b"first", b"one", section=b"user")
        + access_database(b"second", b"two")
        + access_database(b"third", b"three", section=b"guest"),
    )
    console = device.console()
    console.read_until(b"Username: ")
    console.attempt(b"first", b"one")
    console.attempt(b"third", b"three")
    console.exchange(b"second", b"Password: ")
    assert console.exchange(b"two", PROMPT, echo=b"") == b"\n" + PROMPT


@pytest.mark.parametrize(
    "stored, typed",
    [
        (b"pa#ss", b"pa#ss"),
        (b"gateway # changed last week", b"gateway"),
        (b'"quoted"', b'"quoted"'),
        (b"two words", b"two words"),
        (b"a=b", b"a=b"),
        (b"%s$(id)`id`", b"%s$(id)`id`"),
        (b"a\x01b\x02", b"a\x01b\x02"),
        (b"x" * 1000, b"x" * 1000),
    ],
)
def test_password_is_compared_as_it_is_stored(device, stored, typed):
    device.write(ACCESS_DATABASE, access_database(password=stored))
    console = device.console()
    console.log_in(password=typed)
    assert console.screen == GREETING + b"Username: admin\nPassword: \n\ntessel:> "


def test_end_of_input_at_the_user_name_is_a_wrong_attempt_that_still_asks_for_the_password(device):
    console = device.console()
    console.read_until(b"Username: ")
    for _ in range(2):
        console.type(b"\x04")
        console.read_until(b"Password: ")
        console.exchange(b"gateway", b"Username: ", echo=b"")
    console.type(b"\x04")
    console.read_until(b"Password: ")
    console.enter(b"gateway")
    assert console.end() == (1, b"\n" + REFUSAL)
    assert console.screen == GREETING + 3 * (b"Username: Password: \n" + REFUSAL)


def test_end_of_input_at_the_password_is_a_wrong_attempt(device):
    console = device.console()
    console.read_until(b"Username: ")
    console.exchange(b"admin", b"Password: ")
    console.type(b"\x04")
    console.read_until(b"Username: ")
    assert console.screen == GREETING + b"Username: admin\nPassword: " + REFUSAL + b"Username: "


def test_user_name_is_not_in_the_history(device):
    console = device.log_in()
    assert console.command(b"\x10", echo=b"") == b""


def test_menu_tree_is_read_before_the_login(device):
    device.write("/etc/menutree.conf", b'ITEM old {\nACL = auto\nCAP = "Before"\n}\n')
    console = device.console()
    console.read_until(b"Username: ")
    device.write("/etc/menutree.conf", b'ITEM new {\nACL = auto\nCAP = "After"\n}\n')
    console.exchange(b"admin", b"Password: ")
    console.exchange(b"gateway", PROMPT, echo=b"")
    assert console.command(b"list") == (
        b"\n*** General configuration parts ***\n\n"
        b"old (Before)\n"
        b"\n*** Extension configuration parts ***\n\n"
        b"\n"
    )


def test_line_editor_has_its_default_name_during_the_login_only(device):
    device.write(
        "/.inputrc",
        b'$if other\n"\\C-t": "default name"\n$else\n"\\C-t": "own name"\n$endif\n',
    )
    console = device.console()
    console.read_until(b"Username: ")
    console.exchange(b"\x14", b"Password: ", echo=b"default name")
    console.exchange(b"", b"Username: ", echo=b"")
    console.exchange(b"admin", b"Password: ")
    console.exchange(b"gateway", PROMPT, echo=b"")
    reread = b"\x18\x12"
    assert console.command(reread + b"\x14", echo=b"own name") == b""


def test_tab_completes_names_of_files_before_the_login(device):
    console = device.console()
    console.read_until(b"Username: ")
    console.exchange(b"/etc/menut\t", b"Password: ", echo=b"/etc/menutree.conf ")


def test_no_key_reveals_accounts_before_the_login(device):
    console = device.console()
    console.read_until(b"Username: ")
    console.exchange(b"~root\x1b&", b"Password: ", echo=b"~root")
    console.exchange(b"", b"Username: ", echo=b"")
    console.exchange(b"~root/\t", b"Password: ", echo=b"~root/\x07")


def test_macro_recorded_before_the_login_is_gone_after_it(device):
    console = device.console()
    console.read_until(b"Username: ")
    console.enter(b"\x18(exit\x18)\x15admin")
    console.read_until(b"Password: ")
    console.exchange(b"gateway", PROMPT, echo=b"")
    assert console.command(b"\x18ehelp exit", echo=b"\x07help exit") != b""


def test_text_erased_before_the_login_can_be_brought_back_after_it(device):
    console = device.console()
    console.read_until(b"Username: ")
    console.enter(b"help exit\x15admin")
    console.read_until(b"Password: ")
    console.exchange(b"gateway", PROMPT, echo=b"")
    assert console.command(b"\x19", echo=b"help exit") != b""


def test_command_line_arguments_are_ignored(device):
    console = device.log_in(SHELL, "--help", "-x", "exit")
    assert console.screen == GREETING + b"Username: admin\nPassword: \n\ntessel:> "
    assert console.leave() == 0
