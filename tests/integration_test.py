"""The back end of one's own in docs/integration.md does what is said of it."""

import re

import pytest

from console import SOURCE_DIR
from manual_test import comparable, play

PAGE = (SOURCE_DIR / "docs/integration.md").read_text()
INDENT = 8 * " "


def blocks():
    """The files of the step-by-step guide, and the session behind them: {name: text}."""
    guide = PAGE.split("## A back end of one's own\n")[1].split("\n## ")[0]
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


def test_a_back_end_of_ones_own(device):
    files = blocks()
    session = files.pop("a session")
    assert len(files) == 6
    for name, text in files.items():
        device.write(name, text.encode(), mode=0o755 if name.startswith("/bin/") else 0o644)
    console = device.console()
    password = re.search(r"password = (.*)", files["/tmp/acldb"]).group(1).encode()
    assert play(console, session, password) == 0
    assert comparable(console.screen.decode()) == comparable(session)


@pytest.mark.parametrize("option", re.findall(r"`(TESSEL_\w+)=", PAGE))
def test_the_options_are_there(option):
    sources = [SOURCE_DIR / "CMakeLists.txt", *(SOURCE_DIR / "cmake").rglob("*.cmake")]
    assert any(re.search(rf"\b{option}\b", path.read_text()) for path in sources)
