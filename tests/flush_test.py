"""When output is written: what is one write, and what stays buffered until the next prompt."""

import re

import pytest

from console import GREETING, PROMPT, REFUSAL, SHELL

TRACE = (
    "/usr/bin/strace",
    "-o",
    "/record/writes",
    "-xx",
    "--string-limit=1000000",
    "--signal=none",
    # The leak sanitizer does not work on a traced program.
    "--env=ASAN_OPTIONS=detect_leaks=0",
    "--trace=write,writev,pwrite64",
    SHELL,
)


def writes(device):
    """Returns the shell's writes to standard output."""
    trace = device.read("/record/writes").decode()
    # musl writes buffered and new text in one writev call.
    calls = re.findall(r"^writev?\(1, (.*), \d+\) += \d+$", trace, re.MULTILINE)
    assert calls, trace
    texts = ("".join(re.findall(r'"((?:\\x[0-9a-f]{2})*)"', call)) for call in calls)
    return [bytes.fromhex(text.replace("\\x", "")) for text in texts]


def at_a_terminal(device, line):
    console = device.log_in(*TRACE)
    console.command(line)
    assert console.leave() == 0


def through_a_pipe(device, line):
    assert device.run(b"admin\ngateway\n" + line + b"\nexit\n", *TRACE).status == 0


@pytest.fixture(params=[at_a_terminal, through_a_pipe])
def hand_over(request):
    """Returns a function that has the shell handle a line."""
    return request.param


def writes_of_command(device, line, hand_over):
    """Returns the writes after a line at the prompt, up to the one that ends with the next prompt."""
    hand_over(device, line)
    rest = writes(device)
    while not rest.pop(0).endswith(PROMPT):
        pass
    echo = b""
    while echo != line + b"\n":
        echo += rest.pop(0)
        assert (line + b"\n").startswith(echo)
    last = next(number for number, text in enumerate(rest) if text.endswith(PROMPT))
    return rest[: last + 1]


def test_list_is_one_write_per_line_and_per_heading(device, hand_over):
    device.write(
        "/etc/menutree.conf",
        b'ITEM sip {\nACL = auto\nCAP = "SIP settings"\n}\n'
        b"ITEM echo {\nACL = auto\n}\n"
        b'ITEM forward {\nACL = auto,extension\nCAP = "Call forwarding"\n}\n',
    )
    assert writes_of_command(device, b"list", hand_over) == [
        b"\n*** General configuration parts ***\n\n",
        b"echo (echo)\n",
        b"sip (SIP settings)\n",
        b"\n*** Extension configuration parts ***\n\n",
        b"forward (Call forwarding)\n",
        b"\n",
        PROMPT,
    ]


def test_summary_is_one_write_per_piece_of_255_bytes(device, hand_over):
    text = b"".join(b"setting%d=value\n" % number for number in range(50))
    summary = b"VERSION=1\n" + text
    device.record_requests(summary=summary)
    pieces = [summary[start : start + 255] for start in range(0, len(summary), 255)]
    pieces[0] = pieces[0][len(b"VERSION=1\n") :]
    assert len(pieces) > 3 and len(pieces[-1]) < 255
    assert writes_of_command(device, b"get sip", hand_over) == [
        b"\nSIP settings\n\n",
        *pieces,
        b"\n\n",
        PROMPT,
    ]


def test_heading_of_an_extension_part_is_one_write(device, hand_over):
    device.record_requests()
    assert writes_of_command(device, b"get ext_dnd 201", hand_over) == [
        b"\nDo not disturb for extension 201\n\n",
        b"\n\n",
        PROMPT,
    ]


@pytest.mark.parametrize(
    "line, text",
    [
        (b"get nothing", b"ERROR: There is no such configuration part\n"),
        (b"get nothing 201", b"ERROR: There is no such configuration part\n"),
        (b"get ext_dnd 999", b"ERROR: There is no such an extension\n"),
        (b"save", b"ERROR: Nothing to save\n"),
    ],
)
def test_refusal_is_flushed_at_once(device, hand_over, line, text):
    assert writes_of_command(device, line, hand_over) == [text, PROMPT]


@pytest.mark.parametrize(
    "line, text",
    [
        (b"get", b"ERROR: the syntax is: get configuration_part [extension_name]\n"),
        (b"show", b"ERROR: the syntax is: show log_type\n"),
        (b"show nothing", b"ERROR: There is no such log file\n"),
        (b"log_ls", b"\ncm\nsip\nsip_reg\nQ.931\n\n"),
        (b"help get", b"\nget\t\tGenerate configuration part.\n\n"),
        (
            b"help nothing",
            b"\nNo commands match `nothing'.  Possibilties are:\n"
            b"list\tget\tsave\texit\thelp\tbackup\t\nrestore\tlog_ls\tshow\t\n\n",
        ),
    ],
)
def test_unflushed_text_is_written_with_the_next_prompt(device, line, text):
    # At a terminal the line editor flushes before its prompt.
    assert writes_of_command(device, line, through_a_pipe) == [text + PROMPT]


def test_greeting_and_refusals_are_flushed_at_once_at_a_terminal(device):
    console = device.console(*TRACE)
    console.read_until(b"Username: ")
    console.attempt(b"", b"")
    console.exchange(b"admin", b"Password: ")
    console.exchange(b"gateway", PROMPT, echo=b"")
    console.leave()
    # getpass writes to the terminal directly.
    assert writes(device)[:5] == [GREETING, b"Username: ", b"\n", REFUSAL, b"Username: "]


def test_third_refusal_is_flushed_at_once(device):
    device.run(b"", *TRACE)
    assert writes(device) == [GREETING] + 3 * [b"Username: ", REFUSAL]


def test_line_feed_after_the_login_is_written_with_the_first_prompt(device):
    device.run(b"admin\ngateway\n", *TRACE)
    assert writes(device) == [GREETING, b"Username: ", b"admin", b"\n", b"\n" + PROMPT]
