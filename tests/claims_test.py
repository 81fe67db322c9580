"""Every claim in docs/security.md names a test that proves it, and that test exists."""

import re

import pytest

from console import SOURCE_DIR

NOTES = SOURCE_DIR / "docs" / "security.md"
REFERENCE = re.compile(r"`(\w+\.(?:py|cpp))::(\w+)(?:\.(\w+))?`")


def references():
    return sorted(set(REFERENCE.findall(NOTES.read_text())))


def claims():
    """The items of all lists."""
    return re.findall(r"^- (?:.+\n)(?:  .+\n)*", NOTES.read_text(), re.MULTILINE)


@pytest.mark.parametrize("file, name, case", references())
def test_named_test_exists(file, name, case):
    (path,) = (path for path in SOURCE_DIR.glob(f"*/{file}") if path.parent.name != "build")
    text = path.read_text()
    if case:
        assert re.search(rf"^TEST(?:_F)?\({name}, {case}\)", text, re.MULTILINE)
    else:
        assert re.search(rf"^def {name}\(", text, re.MULTILINE)


@pytest.mark.parametrize("claim", claims(), ids=lambda claim: claim[2:40])
def test_claim_names_a_test(claim):
    assert REFERENCE.search(claim), claim
