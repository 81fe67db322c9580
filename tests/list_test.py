"""The list command: which items of the menu tree are offered, and how."""

import pytest

MENU_TREE = "/etc/menutree.conf"


def item(header, acl=b"auto", caption=None):
    text = b"ITEM " + header + b" {\n"
    text += b"" if acl is None else b"    ACL = " + acl + b"\n"
    text += b"" if caption is None else b"    CAP = " + caption + b"\n"
    return text + b"}\n"


def listing(general=(), extension=()):
    return (
        b"\n*** General configuration parts ***\n\n"
        + b"".join(line + b"\n" for line in general)
        + b"\n*** Extension configuration parts ***\n\n"
        + b"".join(line + b"\n" for line in extension)
        + b"\n"
    )


def listed(device, *items):
    device.write(MENU_TREE, b"".join(items))
    return device.log_in().command(b"list")


def test_parts_of_a_device_with_factory_settings(device):
    assert device.log_in().command(b"list") == listing(
        [
            b"codecs (Voice codecs)",
            b"dhcp (DHCP server)",
            b"dialplan (Dial plan)",
            b"dns (Name service)",
            b"echo (echo)",
            b"fax (Fax over IP (T.38))",
            b"isdnports (ISDN ports)",
            b"network (Network)",
            b"ntp (Date and time)",
            b"qos (Quality of service)",
            b"sip (SIP settings)",
            b"sipreg (SIP registration)",
            b"snmp (Network monitoring)",
            b"syslog (System log)",
            b"tones (Tones & ringing)",
            b"webaccess (Web access)",
        ],
        [
            b"ext_dnd (Do not disturb)",
            b"ext_forward (Call forwarding)",
            b"ext_identity (Name & number)",
            b"ext_speeddial (Speed dial)",
            b"ext_voicemail (Voice mailbox)",
            b"ext_waiting (Call waiting)",
            b"fax (Fax line)",
        ],
    )


def test_empty_menu_prints_both_headings_and_a_line_feed(device):
    assert listed(device) == (
        b"\n*** General configuration parts ***\n\n\n*** Extension configuration parts ***\n\n\n"
    )


@pytest.mark.parametrize("argument", [b"extension", b"sip", b"*", b"list"])
def test_arguments_change_nothing(device, argument):
    console = device.log_in()
    assert console.command(b"list " + argument) == console.command(b"list")


def test_names_are_in_byte_order(device):
    names = [b"b", b"a", b"B", b"1", b"aa", b"_", b"a-b", b"a.b", b"\xc3\xa4", b"~"]
    assert listed(device, *(item(name) for name in names)) == listing(
        name + b" (" + name + b")"
        for name in [b"1", b"B", b"_", b"a", b"a-b", b"a.b", b"aa", b"b", b"~", b"\xc3\xa4"]
    )


@pytest.mark.parametrize(
    "header, name",
    [
        (b"/cgi-bin/voicemail.cgi", b"voicemail"),
        (b"admin/lcrwizard2.cgi?step=1", b"lcrwizard2"),
        (b"callforward", b"callforward"),
        (b"/cgi-bin/", b""),
        (b"a.cgi/b.cgi", b"a"),
        (b"/x/y/z", b"z"),
        (b"sip.CGI", b"sip.CGI"),
        (b".cgi", b""),
    ],
)
def test_name_is_taken_from_the_header(device, header, name):
    assert listed(device, item(header)) == listing([name + b" (" + name + b")"])


@pytest.mark.parametrize(
    "title, caption",
    [
        (b'"Call forwarding"', b"Call forwarding"),
        (b"Call forwarding", b"part"),
        (b'"Call', b"Call"),
        (b'Call"', b"part"),
        (b'""', b"part"),
        (b'"', b"part"),
        (b'The "inner" text', b"inner"),
        (b'"a" and "b"', b'a" and "b'),
        (b'"#1 in town"', b"#1 in town"),
        (b'"Call\0forwarding"', b"Call"),
        (b'"Call\0for\0warding"', b"Call"),
        (b'"  wide  "', b"  wide  "),
        (b'"50%s%n"', b"50%s%n"),
        (None, b"part"),
        (b"", b"part"),
    ],
)
def test_caption_is_the_quoted_text_of_the_title_or_else_the_name(device, title, caption):
    assert listed(device, item(b"part", caption=title)) == listing([b"part (" + caption + b")"])


@pytest.mark.parametrize(
    "acl, general, extension",
    [
        (b"auto", True, False),
        (b"auto,extension", False, True),
        (b"extension,auto", False, True),
        (b"semiautomatic", True, False),
        (b"autoextensions", False, True),
        (b"admin", False, False),
        (b"extension", False, False),
        (b"Auto", False, False),
        (b"", False, False),
        (None, False, False),
    ],
)
def test_access_list_decides_where_an_item_is_listed(device, acl, general, extension):
    line = [b"part (Title)"]
    assert listed(device, item(b"part", acl, b'"Title"')) == listing(
        line if general else [], line if extension else []
    )


@pytest.mark.parametrize("name", [b"lcrwizard", b"isdnwizard", b"isdnsignaling"])
@pytest.mark.parametrize("acl", [b"auto", b"auto,extension"])
def test_wizards_are_never_offered(device, name, acl):
    assert listed(device, item(b"/cgi-bin/" + name + b".cgi", acl)) == listing()


def test_name_that_only_begins_like_a_wizard_is_offered(device):
    assert listed(device, item(b"lcrwizard2"), item(b"isdnwizards"), item(b"LCRwizard")) == listing(
        [b"LCRwizard (LCRwizard)", b"isdnwizards (isdnwizards)", b"lcrwizard2 (lcrwizard2)"]
    )


def test_item_with_the_empty_name_keeps_its_caption(device):
    assert listed(device, item(b"/cgi-bin/", caption=b'"All"')) == listing([b" (All)"])


def test_first_item_of_a_name_keeps_its_caption(device):
    assert listed(
        device,
        item(b"/a/sip.cgi", caption=b'"First"'),
        item(b"/b/sip.cgi", caption=b'"Second"'),
        item(b"/c/sip.cgi", b"auto,extension", b'"Third"'),
        item(b"/d/sip.cgi", b"auto,extension", b'"Fourth"'),
    ) == listing([b"sip (First)"], [b"sip (Third)"])


def test_sorting_and_duplicate_names_do_not_depend_on_where_names_differ(device):
    starts = [b"same_beginning_of_all"[:length] for length in range(22)]
    names = sorted({start + end for start in starts for end in (b"", b"a", b"\xff")} - {b""})
    # Neither sorted nor reversed
    numbers = [number * 29 % len(names) for number in range(len(names))]
    assert sorted(numbers) == list(range(len(names)))
    items = [item(names[number], caption=b'"%d"' % number) for number in numbers]
    again = [item(names[number], caption=b'"again"') for number in numbers]
    assert listed(device, *items, *again) == listing(
        name + b" (%d)" % number for number, name in enumerate(names)
    )


def test_menu_changed_while_the_shell_runs_is_seen_by_the_next_one(device):
    device.write(MENU_TREE, item(b"old"))
    console = device.log_in()
    device.write(MENU_TREE, item(b"new"))
    assert console.command(b"list") == listing([b"old (old)"])
    assert console.leave() == 0
    assert device.log_in().command(b"list") == listing([b"new (new)"])


def test_opening_brace_may_be_alone_on_the_next_line(device):
    device.write(MENU_TREE, b'# menu\nITEM sip\n{\nACL=auto # all\nCAP="SIP"\n}\n')
    assert device.log_in().command(b"list") == listing([b"sip (SIP)"])


def test_entries_after_the_closing_brace_belong_to_no_item(device):
    items = (item(b"sip", caption=None), b'CAP = "stray"\n', item(b"dns", acl=None), b"ACL = auto\n")
    assert listed(device, *items) == listing([b"sip (sip)"])
