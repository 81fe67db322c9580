"""The FastCGI client's whole environment, and that none of it is left after a request."""

import pytest

from console import SHELL

# The environment of every program on the device: the login's, the current directory that sh adds, and
# the window size that the line editor adds.
ALWAYS = {
    "PATH": "/bin:/usr/bin",
    "HOME": "/",
    "SHELL": "/bin/sh",
    "TERM": "dumb",
    "PWD": "/",
    "LINES": "24",
    "COLUMNS": "4000",
}
SUMMARY_ACTION = "cgiaction=Start generating a legible configuration file"
INHERITED = [
    "REQUEST_METHOD=POST",
    "PATH_INFO=inherited",
    "QUERY_STRING=in herited",
    "REMOTE_ADDR=192.0.2.1",
    "CONTENT_TYPE=text/plain",
]


def request(program, query=None):
    environment = {
        **ALWAYS,
        "REQUEST_METHOD": "GET",
        "PATH_INFO": program,
        "REMOTE_ADDR": "CGI2FastCGI",
        "CONTENT_TYPE": "application/x-www-form-urlencoded",
    }
    if query is not None:
        environment["QUERY_STRING"] = query
    return environment


def environment_of_children(device, console):
    """Returns the environment that the shell gives to a program other than the client."""
    device.remove("/var/log/cm.log")
    device.path("/var/log/cm.log").symlink_to("/proc/self/environ")
    variables = console.command(b"show cm").decode().split("\0")[:-1]
    # Valgrind leaves an empty LD_PRELOAD.
    return dict(variable.split("=", 1) for variable in variables if variable != "LD_PRELOAD=")


SAVE_REQUEST = request(
    "putconf.cgi", "cgiaction=do_save&localHiddenFilename=/tmp/consoleLCFile"
)


def test_general_part(device):
    device.record_requests()
    device.log_in().command(b"get sip")
    assert device.requests() == [
        request("getconfsummary.cgi", SUMMARY_ACTION + "&parampattern=sip")
    ]


def test_extension_part_is_asked_for_by_its_caption(device):
    device.record_requests()
    device.log_in().command(b"get ext_forward 201")
    assert device.requests() == [
        request(
            "getconfsummary.cgi",
            SUMMARY_ACTION + "&cgiDescription=Call forwarding&extensionName=201",
        )
    ]


@pytest.mark.parametrize(
    "line, query",
    [
        (b"get fax", "&parampattern=fax"),
        (b"get fax 220", "&cgiDescription=Fax line&extensionName=220"),
        (b"get ext_identity 201", "&cgiDescription=Name & number&extensionName=201"),
    ],
)
def test_nothing_in_a_query_is_encoded(device, line, query):
    device.record_requests()
    device.log_in().command(line)
    assert device.requests() == [request("getconfsummary.cgi", SUMMARY_ACTION + query)]


def test_caption_with_every_kind_of_character_is_passed_on(device):
    caption = "a=b & c \"d\" 100% $HOME `id` 'e' \\n #1"
    device.write(
        "/etc/menutree.conf",
        b'ITEM x {\nACL = auto,extension\nCAP = "' + caption.encode() + b'"\n}\n',
    )
    device.record_requests()
    device.log_in().command(b"get x 201")
    assert device.requests() == [
        request(
            "getconfsummary.cgi",
            SUMMARY_ACTION + "&cgiDescription=" + caption + "&extensionName=201",
        )
    ]


def test_save(device):
    device.record_requests()
    console = device.log_in()
    console.command(b"a=1")
    console.command(b"save")
    assert device.requests() == [SAVE_REQUEST]


def test_logout_sends_no_query(device):
    device.record_requests()
    device.log_in().leave()
    assert device.requests() == [request("logout.cgi")]


def test_logout_after_three_wrong_logins_is_the_same(device):
    device.record_requests()
    result = device.run(3 * b"nobody\nnothing\n")
    assert result.status == 1
    # Without a window the line editor assumes the default size.
    assert device.requests() == [{**request("logout.cgi"), "COLUMNS": "80"}]


def test_logout_leaves_an_inherited_query_alone(device):
    device.record_requests()
    device.log_in("/bin/env", "QUERY_STRING=in herited", SHELL).leave()
    assert device.requests() == [request("logout.cgi", "in herited")]


def test_inherited_values_are_overwritten(device):
    device.record_requests()
    console = device.log_in("/bin/env", *INHERITED, SHELL)
    console.command(b"get sip")
    console.command(b"a=1")
    console.command(b"save")
    console.leave()
    assert device.requests() == [
        request("getconfsummary.cgi", SUMMARY_ACTION + "&parampattern=sip"),
        SAVE_REQUEST,
        request("logout.cgi"),  # the first request has replaced the inherited query
    ]


def test_other_cgi_variables_are_passed_on(device):
    device.record_requests()
    found = {"CONTENT_LENGTH": "7", "SCRIPT_NAME": "/x"}
    device.run(
        b"admin\ngateway\nget sip\nexit\n", "/bin/env", *map("=".join, found.items()), SHELL
    )
    requests = device.requests()
    assert len(requests) == 2
    for request in requests:
        assert found.items() <= request.items()


def test_nothing_is_left_of_a_request(device):
    device.record_requests()
    console = device.log_in()
    console.command(b"get sip")
    assert environment_of_children(device, console) == ALWAYS
    console.command(b"a=1")
    console.command(b"save")
    assert environment_of_children(device, console) == ALWAYS


def test_inherited_values_are_gone_after_the_first_request(device):
    device.record_requests()
    console = device.log_in("/bin/env", *INHERITED, SHELL)
    assert environment_of_children(device, console) == {
        **ALWAYS,
        **dict(text.split("=", 1) for text in INHERITED),
    }
    console.command(b"get sip")
    assert environment_of_children(device, console) == ALWAYS


def test_nothing_is_left_of_a_request_whose_client_cannot_be_started(device):
    # With a limit of four open files, no pipe can be opened.
    console = device.log_in(
        "/bin/env", *INHERITED, "/bin/sh", "-c", f"ulimit -n 5; exec {SHELL}"
    )
    console.command(b"get sip")
    assert environment_of_children(device, console) == ALWAYS


def test_refused_commands_make_no_request(device):
    device.record_requests()
    console = device.log_in()
    for line in (b"get", b"get x", b"get sip 201", b"get ext_dnd 999", b"save", b"list", b"help"):
        console.command(line)
    assert device.requests() == []


def test_client_is_called_by_its_path_without_arguments(device):
    device.record_command_lines()
    device.record_calls("fcgiclient")
    console = device.log_in()
    console.command(b"get sip")
    console.command(b"a=1")
    console.command(b"save")
    console.leave()
    assert device.command_lines() == 3 * [b"/bin/fcgiclient"]
    assert device.calls() == 3 * [b"fcgiclient"]


def test_client_elsewhere_on_the_search_path_is_not_used(device):
    device.record_requests()
    device.stand_in("elsewhere/fcgiclient", b"echo wrong >>/record/calls\n")
    console = device.log_in("/bin/env", "PATH=/bin/elsewhere:/bin:/usr/bin", SHELL)
    console.command(b"get sip")
    assert device.calls() == []
    assert len(device.requests()) == 1


def test_output_of_the_logout_is_not_shown_and_not_waited_for(device):
    device.stand_in("fcgiclient", b"echo bye\necho more\n")
    assert device.log_in().leave() == 0


def test_errors_of_the_client_go_to_the_terminal(device):
    device.stand_in("fcgiclient", b"echo answer\necho trouble >&2\n")
    console = device.log_in()
    console.command(b"a=1")
    assert console.command(b"save") == b"trouble\nanswer\n"


def test_client_has_the_input_of_the_shell(device):
    device.stand_in("fcgiclient", b"[ -t 0 ] && echo terminal\n")
    console = device.log_in()
    console.command(b"a=1")
    assert console.command(b"save") == b"terminal\n"
