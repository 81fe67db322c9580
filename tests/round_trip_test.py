"""Round trips: settings go through the real FastCGI client to the real back end and back."""

from console import SAVE_FILE


def settings(console, part):
    """Returns the settings that get shows, without the heading."""
    lines = console.command(b"get " + part).split(b"\n")
    return dict(line.split(b"=", 1) for line in lines if b"=" in line)


def test_part_is_shown_as_the_back_end_renders_it(device):
    assert device.log_in().command(b"get dns") == (
        b"\nName service\n\n"
        b"dns.primary=192.168.1.1\n"
        b"dns.secondary=\n"
        b"dns.domain=example.net\n"
        b"\n\n"
    )


def test_saved_setting_is_shown_by_get_and_survives_a_restart(device):
    console = device.log_in()
    before = settings(console, b"sip")
    assert before[b"sip.local_port"] == b"5060"
    assert console.command(b"sip.local_port=5070") == b""
    assert settings(console, b"sip") == before, "nothing is saved before save"
    assert console.command(b"save") == b"1 setting saved\n"
    assert settings(console, b"sip") == {**before, b"sip.local_port": b"5070"}
    assert console.leave() == 0
    assert settings(device.log_in(), b"sip") == {**before, b"sip.local_port": b"5070"}


def test_setting_of_one_extension_leaves_the_others_alone(device):
    console = device.log_in()
    console.command(b"ext_forward.202.busy=0205550100")
    assert console.command(b"save") == b"1 setting saved\n"
    assert settings(console, b"ext_forward 202")[b"ext_forward.202.busy"] == b"0205550100"
    assert settings(console, b"ext_forward 201")[b"ext_forward.201.busy"] == b"202"
    assert settings(console, b"ext_forward 203")[b"ext_forward.203.busy"] == b""


def test_wrong_values_are_rejected_in_words_and_the_rest_is_saved(device):
    console = device.log_in()
    for line in (
        b"sip.local_port=99",
        b"sip.transport=tls",
        b"sip.transport=smoke",
        b"sip.nothing=1",
        b"word",
        b"sip.keepalive=off",
    ):
        assert console.command(line) == b""
    assert console.command(b"save") == (
        b"Error in sip.local_port=99. It must be a whole number from 1024 to 65535\n"
        b"Error in sip.transport=smoke. It must be one of udp, tcp, tls\n"
        b"Error in sip.nothing=1. There is no such setting\n"
        b"Error in word=. A setting is written as NAME=VALUE\n"
        b"2 settings saved\n"
    )
    after = settings(console, b"sip")
    assert after[b"sip.local_port"] == b"5060"
    assert after[b"sip.transport"] == b"tls"
    assert after[b"sip.keepalive"] == b"off"
    assert console.command(b"save") == b"ERROR: Nothing to save\n"


def test_settings_for_another_firmware_are_a_global_error(device):
    console = device.log_in()
    console.command(b"VERSION=1.0")
    console.command(b"sip.local_port=5070")
    assert console.command(b"save") == (
        b"Error in _GLOBAL. The settings are for firmware 1.0, this is 2.1.4. Nothing was saved\n"
    )
    assert settings(console, b"sip")[b"sip.local_port"] == b"5060"


def test_version_typed_first_is_accepted_when_it_is_right(device):
    console = device.log_in()
    console.command(b"VERSION=2.1.4")
    console.command(b"sip.local_port=5070")
    assert console.command(b"save") == b"1 setting saved\n"
    assert device.read(SAVE_FILE) == b"VERSION=2.1.4\nsip.local_port=5070\n"


def test_hundred_settings_are_saved_at_once(device):
    console = device.log_in()
    for number in range(100):
        console.command(b"sip.session_timer=%d" % (1000 + number))
    assert console.command(b"save") == b"1 setting saved\n"
    assert settings(console, b"sip")[b"sip.session_timer"] == b"1099"


def test_text_shown_by_get_can_be_typed_back(device):
    console = device.log_in()
    before = settings(console, b"ext_identity 201")
    for name, value in before.items():
        console.command(name + b"=" + value)
    assert console.command(b"save") == b"%d settings saved\n" % len(before)
    assert settings(console, b"ext_identity 201") == before


def test_every_part_on_the_list_can_be_read(device):
    console = device.log_in()
    general, extension = console.command(b"list").split(b"*** Extension configuration parts ***")
    for listing, argument, words in (
        (general, b"", b""),
        (extension, b" 201", b" for extension 201"),
    ):
        rows = [row for row in listing.split(b"\n") if row.endswith(b")")]
        assert len(rows) >= 6
        for row in rows:
            name, caption = row[:-1].split(b" (", 1)
            assert console.command(b"get " + name + argument).startswith(
                b"\n" + caption + words + b"\n\n"
            )


def test_new_extension_can_be_configured_at_once(device):
    console = device.log_in()
    assert console.command(b"get ext_dnd 299") == b"ERROR: There is no such an extension\n"
    database = "/etc/tarn-conf/telephony/extensiondb"
    device.write(database, device.read(database) + b"section paging {\nnew = 299\n}\n")
    # Only the first section of a kind counts.
    assert console.command(b"get ext_dnd 299") == b"ERROR: There is no such an extension\n"
    device.write(database, device.read(database).replace(b"sip1 =", b"new = 299\n    sip1 ="))
    assert console.command(b"get ext_dnd 299").startswith(
        b"\nDo not disturb for extension 299\n\next_dnd.299.enabled=off\n"
    )


def test_back_end_receives_every_request_once_and_one_logout(device):
    console = device.log_in()
    console.command(b"get sip")
    console.command(b"get ext_dnd 201")
    console.command(b"sip.local_port=5070")
    console.command(b"save")
    assert console.leave() == 0
    summary = "GET getconfsummary.cgi cgiaction=Start generating a legible configuration file"
    assert device.served() == [
        summary + "&parampattern=sip",
        summary + "&cgiDescription=Do not disturb&extensionName=201",
        "GET putconf.cgi cgiaction=do_save&localHiddenFilename=/tmp/consoleLCFile",
        "GET logout.cgi",
    ]


def test_back_end_receives_one_logout_for_every_kind_of_end(device):
    assert device.log_in().leave() == 0
    console = device.log_in()
    console.type(b"\x04")
    assert console.end() == (0, b"")
    assert device.run(b"admin\ngateway\n").status == 0
    assert device.run(b"admin\nwrong\n" * 3).status == 1
    assert device.served() == 4 * ["GET logout.cgi"]
