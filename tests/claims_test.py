"""docs/security.md has a row in its table of tests for each of its claims, and those tests exist."""

import re

import pytest

from console import SOURCE_DIR

NOTES = SOURCE_DIR / "docs" / "security.md"
REFERENCE = re.compile(r"`(\w+\.(?:py|cpp))::(\w+)(?:\.(\w+))?`")


def references():
    return sorted(set(REFERENCE.findall(NOTES.read_text())))


def claims():
    """Returns the words in bold type at the beginning of each list item."""
    return re.findall(r"^- \*\*(.+?)\.?\*\*", NOTES.read_text(), re.MULTILINE)


def rows():
    """Returns the rows of the table: {claim: tests}."""
    table = NOTES.read_text().split("\n## The tests\n")[1]
    return dict(re.findall(r"^\| (.+?) \| (.+) \|$", table, re.MULTILINE)[1:])


@pytest.mark.parametrize("file, name, case", references())
def test_named_test_exists(file, name, case):
    (path,) = (path for path in SOURCE_DIR.glob(f"*/{file}") if path.parent.name != "build")
    text = path.read_text()
    if case:
        assert re.search(rf"^TEST(?:_F)?\({name}, {case}\)", text, re.MULTILINE)
    else:
        assert re.search(rf"^def {name}\(", text, re.MULTILINE)


def test_every_item_is_a_claim_with_a_name():
    assert len(claims()) == len(re.findall(r"^- ", NOTES.read_text(), re.MULTILINE)) > 20


def test_the_table_has_a_row_for_each_claim_in_their_order():
    assert list(rows()) == claims()


@pytest.mark.parametrize("claim", claims())
def test_claim_has_a_test(claim):
    assert REFERENCE.search(rows()[claim])
