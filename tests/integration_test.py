"""The back end that readers of docs/integration.md write does what the page says."""

import os
import re
import shutil

import pytest

import programs
from console import ON_MACHINE, PROMPT, SOURCE_DIR
from manual_test import comparable, play

PAGE = (SOURCE_DIR / "docs/integration.md").read_text()
INDENT = 8 * " "


def blocks():
    """Returns the files of the step-by-step guide, and the session after them: {name: text}."""
    guide = PAGE.split("## Write a back end\n")[1].split("\n## ")[0]
    texts = re.split(rf"(?m)^{INDENT}# (/\S+|a session)\n", guide)
    return {
        name: "".join(
            line[len(INDENT) :] if line.startswith(INDENT) else "\n"
            for line in re.match(rf"(?:{INDENT}.*\n|\n(?=\n*{INDENT}))*", text)
            .group()
            .splitlines(True)
        ).rstrip("\n")
        + "\n"
        for name, text in zip(texts[1::2], texts[2::2])
    }


CLIENT = "/bin/fcgiclient"
STORE = "/etc/settings"
USER, PASSWORD = b"root", b"change me"


@pytest.fixture(name="guided")
def fixture_guided(device):
    """A device set up as the guide says."""
    files = blocks()
    del files["a session"]
    assert len(files) == 6
    for name, text in files.items():
        device.write(name, text.encode(), mode=0o755 if name == CLIENT else 0o644)
    if not ON_MACHINE:
        # Debian's is a link through /etc, which is the device's here.
        device.path("/bin/awk").symlink_to(os.path.realpath(shutil.which("awk")))
    return device


def assert_session_of_the_guide(console):
    session = blocks()["a session"]
    assert play(console, session, PASSWORD) == 0
    assert comparable(console.screen.decode()) == comparable(session)


def test_session_of_the_guide(guided):
    assert_session_of_the_guide(guided.console())


def log_in(device):
    console = device.console()
    console.log_in(USER, PASSWORD)
    return console


UNKNOWN = (
    b".*=x",
    b"lan.addres.=9",
    b"lan.address",
    b"lan.address\\n=9",
    b"^lan.address=9",
    b"Lan.Address=9",
    b"phone.1=x",
    b"=x",
    b"=",
    b"\\",
    b"-n",
    b"%s%n",
    b"$(touch${IFS}ran)=x",
    b"`touch`;touch",
    b"/etc/settings=x",
    b"store=/etc/passwd",
    b"VERSION=9",
)


@pytest.mark.parametrize("setting", UNKNOWN)
def test_its_client_rejects_an_invalid_setting_and_changes_nothing(guided, setting):
    before = guided.read(STORE)
    console = log_in(guided)
    assert console.command(b"lan.gateway=192.168.1.1") == b""
    assert console.command(setting) == b""
    shown = setting.replace(b"\\n", b"\n")
    assert console.command(b"save") == b"Error in %s. There is no such setting\n" % shown
    assert guided.read(STORE) == before
    assert not guided.exists("/ran")


VALUES = (
    b"",
    b"=",
    b"a=b==",
    b"x\\nphone.12.name=y",
    b"x\\ty\\\\",
    b"&\\&\\1",
    b"$(touch${IFS}ran)`touch`",
    b"'\"%s%n*?[a]{b};|<>()",
    b"#END#ERROR",
    b"-n",
    b"\xc3\xa9\xff",
    b"v" * 200,
)


@pytest.mark.parametrize("value", VALUES)
def test_its_client_keeps_a_value_as_it_was_typed(guided, value):
    before = guided.read(STORE)
    console = log_in(guided)
    console.enter(b"phone.11.name=" + value)
    console.read_until(PROMPT)
    assert console.command(b"save") == b""
    old = b"phone.11.name=Reception\n"
    assert guided.read(STORE) == before.replace(old, b"phone.11.name=" + value + b"\n")


def test_its_client_treats_each_line_of_a_setting_as_a_setting(guided):
    console = log_in(guided)
    console.enter(b"phone.11.name=x\x16\nphone.12.name=y\x16\nphone.13.name=z")
    console.read_until(PROMPT)
    assert console.command(b"save") == b"Error in phone.13.name=z. There is no such setting\n"
    assert b"phone.11.name=x\nphone.12.name=y\n" in guided.read(STORE)


def test_its_client_reads_no_input_and_survives_a_hang_up(guided):
    guided.write("/tmp/consoleLCFile", b"VERSION=1.0\nphone.11.name=x\n")
    # During the request.
    guided.stand_in("mv", b'kill -HUP "$PPID"\nexec /usr/bin/mv "$@"\n')
    request = "PATH_INFO=putconf.cgi QUERY_STRING=localHiddenFilename=/tmp/consoleLCFile"
    result = guided.run(b"typed ahead\n", "/bin/sh", "-c", f"{request} {CLIENT} && cat")
    assert (result.status, result.output) == (0, b"typed ahead\n")
    assert b"phone.11.name=x\n" in guided.read(STORE)


# Existing FastCGI servers

SERVED_BY_SHELL = b"""#!/bin/sh
printf 'Content-Type: text/plain\\r\\n\\r\\n'
exec /www/settings
"""
SERVED_BY_PHP = b"""<?php
header("Content-Type: text/plain");
putenv("PATH_INFO=" . $_SERVER["PATH_INFO"]);
putenv("QUERY_STRING=" . $_SERVER["QUERY_STRING"]);
passthru("/www/settings");
"""
UNPACKED = SOURCE_DIR / "build/fcgiwrap"


def fcgiwrap():
    """Returns the server, unpacked but not installed, because installing it would start it here."""
    run = {"capture_output": True, "text": True, "check": True}
    architecture = programs.run(["dpkg", "--print-architecture"], **run).stdout.strip()
    make = [SOURCE_DIR / "scripts/make_sysroot", architecture, UNPACKED, "fcgiwrap"]
    UNPACKED.parent.mkdir(exist_ok=True)
    programs.run(["flock", f"{UNPACKED}.lock", *make], check=True)
    return (UNPACKED / "usr/sbin/fcgiwrap").read_bytes()


@pytest.mark.parametrize(
    "server",
    [
        "fcgiwrap",
        pytest.param(
            "php-cgi",
            marks=pytest.mark.skipif(not shutil.which("php-cgi"), reason="there is no php-cgi"),
        ),
    ],
)
def test_client_of_a_fastcgi_server(guided, server):
    guided.write("/www/settings", guided.read(CLIENT), mode=0o755)
    program = SERVED_BY_SHELL if server == "fcgiwrap" else SERVED_BY_PHP
    for name in ("getconfsummary.cgi", "putconf.cgi", "logout.cgi"):
        guided.write(f"/www/{name}", program, mode=0o755)
    if server == "fcgiwrap":
        guided.write("/bin/fcgiwrap", fcgiwrap(), mode=0o755)
    client = re.search(r"\n    # /bin/fcgiclient\n((?:    .*\n)+)", PAGE).group(1)
    guided.write(CLIENT, re.sub(r"(?m)^    ", "", client).encode(), mode=0o755)
    # Variables that the shell inherits must not reach the server.
    path = "/bin/fcgiwrap" if server == "fcgiwrap" else os.path.realpath(shutil.which(server))
    start = f"spawn-fcgi -s /run/backend.socket -- {path} >/dev/null 2>&1"
    shell = "CONTENT_LENGTH=5 exec /bin/tessel"
    assert_session_of_the_guide(guided.console("/bin/sh", "-c", f"{start} && {shell}"))


def test_the_build_options_exist():
    options = set(re.findall(r"`(TESSEL_\w+)`", PAGE))
    assert "TESSEL_STATIC" in options
    sources = [SOURCE_DIR / "CMakeLists.txt", *(SOURCE_DIR / "cmake").rglob("*.cmake")]
    words = {word for path in sources for word in re.findall(r"\w+", path.read_text())}
    assert options <= words
