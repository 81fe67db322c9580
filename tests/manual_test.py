"""The manual page and the integration guide: between them they have every fixed text of the code, and
the examples of the manual page are what is seen at the development gateway."""

import re

import pytest

import programs
from console import PASSWORD, PROGRAM_DIR, SOURCE_DIR, START, Console

PAGE = SOURCE_DIR / "docs/tessel.8"
GUIDE = SOURCE_DIR / "docs/integration.md"
PRODUCT_FOLDERS = ("shell", "console", "config", "catalogue", "session", "cgi", "save", "backup", "logs")

# Texts in the code that are neither messages nor paths, and that no other program or file sees.
NOT_FOR_READERS = {
    "r",
    "w",  # how a file is opened
    "'",
    "'\\''",
    "%",
    "%25",
    "%2525",
    '$`"\\',
    "%24",
    "%60",
    "%22",
    "%5C",
    "\r\n\0",
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789@%+=:,./-_~",  # quoting an address
    "{\n",
    "}\n",  # section marks, with the end of the line
    "#",
    "=",
    "@",
    ":",
    "/",
    " (",
    ")\n",
    ": ",
    "enable-bracketed-paste",
    "editing-mode",
    "emacs",
    "off",  # variables of the line editor
    "\\e[200~",
    "\\e[201~",
    "~",  # not expanded
}
EMPTY = {"", "\n", "\n\n", " "}

# The other alternatives match comments and characters, so that no quote in them begins a literal.
TOKEN = re.compile(r"//[^\n]*|/\*.*?\*/|'(?:\\.|[^'\\])+'|\"((?:\\.|[^\"\\\n])*)\"", re.DOTALL)
JOINT = re.compile(r"\"\s*\n\s*\"")
ESCAPES = {"n": "\n", "r": "\r", "t": "\t", "0": "\0", '"': '"', "\\": "\\", "'": "'"}
CONVERSION = re.compile(r"%\d*[sd]")


def product_sources():
    for folder in PRODUCT_FOLDERS:
        for path in sorted((SOURCE_DIR / folder).iterdir()):
            if path.suffix in (".cpp", ".h") and not path.name.endswith("_test.cpp"):
                yield path


def texts_in(source):
    """Returns the string literals of a C++ source, without the names of headers."""
    code = JOINT.sub("", re.sub(r"(?m)^#.*$", "", source))
    for token in TOKEN.finditer(code):
        if token.group(1) is not None:
            yield re.sub(r"\\(.)", lambda escape: ESCAPES[escape.group(1)], token.group(1))


def squeeze(text):
    return re.sub(r"\s+", " ", text)


@pytest.fixture(scope="module", name="pages")
def fixture_pages():
    """The manual page and the guide as their readers see them, on one line."""
    shown = programs.run(
        ["mandoc", "-T", "ascii", "-O", "width=78", PAGE],
        capture_output=True,
        text=True,
        check=True,
    ).stdout
    return squeeze(re.sub(".\b", "", shown) + GUIDE.read_text().replace("`", ""))


def test_mandoc_reports_nothing():
    done = programs.run(
        ["mandoc", "-T", "lint", PAGE], capture_output=True, text=True, check=False
    )
    # Which other manual pages this machine has does not matter.
    messages = [
        line
        for line in (done.stdout + done.stderr).splitlines()
        if "outdated mandoc.db" not in line and "referenced manual not found" not in line
    ]
    assert messages == []


@pytest.mark.parametrize("path", product_sources(), ids=lambda path: path.name)
def test_the_pages_contain_every_fixed_text_of(path, pages):
    missing = [
        text
        for text in texts_in(path.read_text())
        if text not in NOT_FOR_READERS | EMPTY
        for piece in CONVERSION.split(text)
        if squeeze(piece).strip() not in pages
    ]
    assert missing == []


def test_undocumented_texts_are_all_in_the_code():
    texts = {text for path in product_sources() for text in texts_in(path.read_text())}
    assert NOT_FOR_READERS <= texts
    assert len(texts) > 100


def test_every_message_and_path_in_the_page_is_in_the_code():
    page = PAGE.read_text().replace("\\&", "")
    described = page.split(".Sh COMMANDS\n")[1].split("\n.Sh ")[0]
    messages = re.findall(r'(?m)^\.It Li "?([^"\n]+)"?$', described)
    paths = re.findall(r"/\w[\w./-]+/[\w.-]*\w", page.split("\n.Sh EXAMPLES\n")[0])
    assert messages and paths
    texts = {text for path in product_sources() for text in texts_in(path.read_text())}
    code = "\0".join(texts)
    assert [text for text in messages if text.replace("ERROR: ", "") not in code] == []
    assert [path for path in paths if path not in code] == []


def command_rows():
    table = (SOURCE_DIR / "shell/command_table.cpp").read_text()
    return re.findall(r'\{"(\w+)", \w+, "([^"]+)"\}', table)


def test_the_page_describes_every_command():
    source = PAGE.read_text().split(".Sh COMMANDS\n")[1].split("\n.Sh ")[0]
    described = re.findall(r"(?m)^\.It Ic (\w+).*\n\.Dq (.*)\.$", source)
    assert described == command_rows()
    assert len(described) == 9


# The examples

# A prompt and what is typed there; a password is not shown.
PASSWORD_QUESTION, FTP_PASSWORD_QUESTION = "Password:", "tessel:> Password:"
QUESTION = re.compile(
    r"(Username:|Password:|tessel:> (?:Server|Port|Server path|File path|Username|Password):|tessel:>)(?: (.*))?"
)
# Parts that vary: when a file was transferred, and its size.
VARYING = re.compile(r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d (URL:.*?) \[\d+\]", re.MULTILINE)


def examples():
    text = PAGE.read_text().split("\n.Sh EXAMPLES\n")[1].split("\n.Sh ")[0]
    return re.findall(r"(?ms)^\.Bd -literal -offset indent\n(.*?)^\.Ed$", text)


def comparable(screen):
    lines = (line.expandtabs().rstrip() for line in screen.splitlines())
    return VARYING.sub(r"\1", "\n".join(lines))


def play(console, example, password=PASSWORD):
    """Types the answers that the example shows. Returns the exit status."""
    hidden = {PASSWORD_QUESTION: password, FTP_PASSWORD_QUESTION: b"secret"}
    for line in example.splitlines():
        asked = QUESTION.fullmatch(line)
        if asked:
            question, answer = asked.group(1), (asked.group(2) or "").encode()
            console.read_until(b"\n" + question.encode() + b" ")
            console.enter(hidden.get(question, answer))
    return console.end()[0]


def test_the_examples_are_what_the_gateway_shows(device):
    """They are played one after the other, on one device."""
    assert len(examples()) == 4
    for example in examples():
        assert "\\" not in example, "an example with an escape would need to be formatted"
        name = re.search(r"nightly/(config_\S+\.bin)", example)
        if name:
            (backup,) = device.path("/home/backup/nightly").iterdir()
            backup.rename(backup.with_name(name.group(1)))
        console = Console(["/bin/sh", str(START), "--ftp", str(device.root), str(PROGRAM_DIR)])
        try:
            assert play(console, example) == 0
        finally:
            console.close()
        assert comparable(console.screen.decode()) == comparable(example)
