"""The get command: arguments, headings, and the readable text of a part."""

import pytest

from console import PROMPT, SHELL, SUMMARY_FILE

SYNTAX = b"ERROR: the syntax is: get configuration_part [extension_name]\n"
NO_PART = b"ERROR: There is no such configuration part\n"
NO_EXTENSION = b"ERROR: There is no such an extension\n"
HEADING = b"\nSIP settings\n\n"
END = b"\n\n"

EXTENSION_DATABASE = "/etc/tarn-conf/telephony/extensiondb"
NEXT_LITERAL = b"\x16"


def text_of(device, summary):
    """Returns what get prints of a summary file, without the heading and the two line feeds."""
    device.record_requests(answer=b"never shown\n", summary=summary)
    shown = device.log_in().command(b"get sip")
    assert shown.startswith(HEADING) and shown.endswith(END)
    return shown[len(HEADING) : -len(END)]


# Arguments


@pytest.mark.parametrize(
    "line, echo",
    [
        (b"get", None),
        (b"get   ", None),
        (b"get " + NEXT_LITERAL + b"\t", b"get    "),
    ],
)
def test_no_argument_gives_the_syntax(device, line, echo):
    device.record_requests()
    assert device.log_in().command(line, echo=echo) == SYNTAX
    assert device.requests() == []


@pytest.mark.parametrize(
    "argument",
    [
        b"nothing",
        b"SIP",
        b"si",
        b"sip2",
        b"ext_forward",  # needs an extension
        b"sip 201",  # takes none
        b"nothing 201",
        b"nothing nobody",
        b"EXT_FORWARD 201",
        b"%s%n",
    ],
)
def test_part_that_is_not_in_the_catalogue_searched_is_refused(device, argument):
    device.record_requests()
    assert device.log_in().command(b"get " + argument) == NO_PART
    assert device.requests() == []


def test_tab_between_part_and_extension_makes_one_unknown_name(device):
    shown = device.log_in().command(
        b"get ext_forward" + NEXT_LITERAL + b"\t201", echo=b"get ext_forward        201"
    )
    assert shown == NO_PART


@pytest.mark.parametrize(
    "extension",
    [
        b"999",
        b"20",
        b"2011",
        b" 201",  # two blanks: the name begins with one
        b"201 202",
        b"sip1",  # a key, not a name
        b"901",  # in a section that is not searched
    ],
)
def test_unknown_extension_is_refused(device, extension):
    device.record_requests()
    assert device.log_in().command(b"get ext_forward " + extension) == NO_EXTENSION
    assert device.requests() == []


@pytest.mark.parametrize("extension", [b"100", b"201", b"301", b"701", b"809"])
def test_extension_of_every_kind_is_found(device, extension):
    device.record_requests()
    assert device.log_in().command(b"get ext_forward " + extension) == (
        b"\nCall forwarding for extension " + extension + b"\n\n" + END
    )


def test_extension_names_differ_by_letter_case(device):
    device.write(EXTENSION_DATABASE, b"section extension {\na = Desk\n}\n")
    device.record_requests()
    console = device.log_in()
    assert console.command(b"get ext_forward desk") == NO_EXTENSION
    assert console.command(b"get ext_forward Desk") == (
        b"\nCall forwarding for extension Desk\n\n" + END
    )


def test_extension_name_with_blanks_inside_is_the_rest_of_the_line(device):
    device.write(EXTENSION_DATABASE, b"section paging {\na = front  desk 1\n}\n")
    device.record_requests()
    assert device.log_in().command(b"get ext_forward front  desk 1") == (
        b"\nCall forwarding for extension front  desk 1\n\n" + END
    )
    assert device.requests()[0]["QUERY_STRING"].endswith("&extensionName=front  desk 1")


def test_extension_database_is_read_anew_by_every_get(device):
    device.record_requests()
    console = device.log_in()
    assert console.command(b"get ext_forward 555") == NO_EXTENSION
    device.write(EXTENSION_DATABASE, b"section callpark {\nnew = 555\n}\n")
    assert console.command(b"get ext_forward 555") == (
        b"\nCall forwarding for extension 555\n\n" + END
    )
    assert console.command(b"get ext_forward 201") == NO_EXTENSION


def test_extension_database_is_not_read_for_an_unknown_part(device):
    device.remove(EXTENSION_DATABASE)
    assert device.log_in().command(b"get nothing 201") == NO_PART


def test_name_in_both_catalogues_is_the_extension_part_with_an_extension_only(device):
    device.record_requests()
    console = device.log_in()
    assert console.command(b"get fax") == b"\nFax over IP (T.38)\n\n" + END
    assert console.command(b"get fax 220") == b"\nFax line for extension 220\n\n" + END


def test_part_with_the_empty_name_cannot_be_requested(device):
    device.write("/etc/menutree.conf", b"ITEM /cgi-bin/ {\nACL = auto\n}\n")
    console = device.log_in()
    assert console.command(b"get") == SYNTAX
    assert console.command(b"get x") == NO_PART


# TARN_PATH


@pytest.mark.parametrize(
    "value, database",
    [
        ("/opt-conf/", "/opt-conf/telephony/extensiondb"),
        ("/opt-conf", "/opt-conftelephony/extensiondb"),
        ("", "/telephony/extensiondb"),  # relative to the current directory, which is /
        ("./x/", "/x/telephony/extensiondb"),
    ],
)
def test_tarn_path_is_used_exactly_as_given(device, value, database):
    device.write(database, b"section extension {\na = 555\n}\n")
    device.record_requests()
    console = device.log_in("/bin/env", f"TARN_PATH={value}", SHELL)
    assert console.command(b"get ext_forward 555") == (
        b"\nCall forwarding for extension 555\n\n" + END
    )
    assert console.command(b"get ext_forward 201") == NO_EXTENSION


# The readable text


def test_version_line_is_dropped_and_two_line_feeds_end_the_text(device):
    device.record_requests(answer=b"never shown\n", summary=b"VERSION=1.0\na=1\n")
    assert device.log_in().command(b"get sip") == b"\nSIP settings\n\na=1\n\n\n"


def test_extension_part_is_printed_below_its_own_heading(device):
    device.record_requests(summary=b"VERSION=1.0\na=1\n")
    assert device.log_in().command(b"get ext_forward 201") == (
        b"\nCall forwarding for extension 201\n\na=1\n\n\n"
    )


@pytest.mark.parametrize(
    "summary, text",
    [
        (b"", b""),
        (b"VERSION=1\n", b""),
        (b"VERSION", b"VERSION"),
        (b"VERSION=1 and no line feed", b"VERSION=1 and no line feed"),
        (b"a=1\nb=2\n", b"a=1\nb=2\n"),
        (b"a=1", b"a=1"),
        (b"version=1\na=1\n", b"version=1\na=1\n"),
        (b"dropped too\nVERSION=1\na=1\n", b"a=1\n"),
        (b"CONVERSIONS=1\na=1\n", b"a=1\n"),
        (b"VERSION=1\nVERSION=2\na=1\n", b"VERSION=2\na=1\n"),
        (b"VERSION=1\n\n\na=1\n\n", b"\n\na=1\n\n"),
        (b"VERSION=1\r\na=1\r\n", b"a=1\r\n"),
        (b"VERSION=1\na=%s%n\\n#END\n", b"a=%s%n\\n#END\n"),
        (b"VERSION=1\n\xff\x80\x1b[2Jx\n", b"\xff\x80\x1b[2Jx\n"),
        # Pieces of 255 bytes
        (b"VERSION=1\n" + b"x" * 245, b"x" * 245),
        (b"VERSION=1\n" + b"x" * 246, b"x" * 246),
        (b"VERSION=" + b"v" * 246 + b"\n" + b"rest\n", b"rest\n"),
        (b"VERSION=" + b"v" * 247 + b"\nrest\n", b"VERSION=" + b"v" * 247 + b"\nrest\n"),
        (
            b"VERSION=" + b"v" * 247 + b"VERSION=2\na=1\n",
            b"VERSION=" + b"v" * 247 + b"VERSION=2\na=1\n",
        ),
        (
            b"VERSION=1\nVERSION=2\n" + b"x" * 235 + b"VERSION=3\n",
            b"VERSION=2\n" + b"x" * 235 + b"VERSION=3\n",
        ),
        (b"p" * 255 + b"dropped VERSION=1\na=1\n", b"p" * 255 + b"a=1\n"),
        (b"p" * 255 + b"VERSION=1\n", b"p" * 255),
        (b"p" * 248 + b"VERSION\na=1\n", b"p" * 248 + b"VERSION\na=1\n"),
        (b"p" * 248 + b"VERSION=1\na=1\n", b"p" * 248 + b"VERSION=1\na=1\n"),
        (b"p" * 247 + b"VERSION\na=1\n", b"a=1\n"),
        (b"p" * 250 + b"VERSION=1\na=1\n", b"p" * 250 + b"VERSION=1\na=1\n"),
        (b"p" * 250 + b"VERSION=1\nVERSION=2\na=1\n", b"p" * 250 + b"VERSI" + b"a=1\n"),
        (b"p" * 255 + b"VERSION\n" + b"x" * 247, b"p" * 255 + b"x" * 247),
        # After a NUL, the rest of the piece is lost
        (b"VERSION=1\na=1\0lost\n", b"a=1"),
        (b"\0VERSION=1\na=1\n", b""),
        (b"VERSION=1\na\0" + b"l" * 243 + b"next piece\n", b"anext piece\n"),
        (b"\0" * 255 + b"VERSION=1\na=1\n", b"a=1\n"),
        (b"\0" * 1000, b""),
    ],
)
def test_text_of_a_summary_file(device, summary, text):
    assert text_of(device, summary) == text


def test_large_summary_is_printed_byte_for_byte(device):
    lines = b"".join(b"setting%d=value\n" % number for number in range(20000))
    device.record_requests(summary=b"VERSION=1\n" + lines)
    result = device.run(b"admin\ngateway\nget sip\n")
    assert result.output.endswith(b"get sip\n" + HEADING + lines + END + PROMPT)


def test_missing_summary_file_prints_only_the_two_line_feeds(device):
    device.record_requests()
    assert device.log_in().command(b"get sip") == HEADING + END


def test_unreadable_summary_file_prints_only_the_two_line_feeds(device):
    device.record_requests()
    device.write(SUMMARY_FILE, b"VERSION=1\na=1\n", mode=0)
    assert device.log_in().command(b"get sip") == HEADING + END


def test_old_summary_is_shown_when_the_back_end_writes_none(device):
    device.record_requests()
    device.write(SUMMARY_FILE, b"VERSION=1\nold=1\n")
    assert device.log_in().command(b"get sip") == HEADING + b"old=1\n" + END


def test_summary_file_is_read_after_the_end_of_the_clients_output(device):
    device.stand_in(
        "fcgiclient",
        b"i=0; while [ $i -lt 2000 ]; do echo a rather long line of output; i=$((i+1)); done\n"
        b"printf 'VERSION=1\\nlate=1\\n' >" + SUMMARY_FILE.encode() + b"\n",
    )
    assert device.log_in().command(b"get sip") == HEADING + b"late=1\n" + END


def test_summary_file_stays_and_is_not_written_by_the_shell(device):
    device.record_requests(summary=b"VERSION=1\na=1\n")
    device.log_in().command(b"get sip")
    assert device.read(SUMMARY_FILE) == b"VERSION=1\na=1\n"


def test_missing_client_shows_the_old_summary(device):
    device.write(SUMMARY_FILE, b"VERSION=1\nold=1\n")
    console = device.log_in()
    device.remove("/bin/fcgiclient")
    assert console.command(b"get sip") == (
        HEADING + b"sh: 1: /bin/fcgiclient: not found\n" + b"old=1\n" + END
    )


def test_only_the_heading_is_printed_when_the_client_cannot_be_started(device):
    device.record_requests(summary=b"VERSION=1\na=1\n")
    # With a limit of four open files, no pipe can be opened.
    console = device.log_in("/bin/sh", "-c", f"ulimit -n 5; exec {SHELL}")
    assert console.command(b"get sip") == HEADING
    assert device.requests() == []


def test_status_of_the_client_does_not_matter(device):
    device.stand_in(
        "fcgiclient",
        b"printf 'VERSION=1\\na=1\\n' >" + SUMMARY_FILE.encode() + b"\nexit 9\n",
    )
    assert device.log_in().command(b"get sip") == HEADING + b"a=1\n" + END
