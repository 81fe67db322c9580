"""The picture of a session in the README."""

import re
import xml.etree.ElementTree

import programs
from console import SOURCE_DIR
from sessions_test import TYPED, runs_of

PICTURE = SOURCE_DIR / "docs/session.svg"
SVG = "{http://www.w3.org/2000/svg}"


def test_the_picture_is_current(tmp_path):
    drawn = tmp_path / "session.svg"
    programs.run([SOURCE_DIR / "scripts/draw_session", drawn], check=True)
    assert drawn.read_text() == PICTURE.read_text(), "run scripts/draw_session"


def test_the_picture_shows_the_session_line_by_line():
    rows = {}
    for text in xml.etree.ElementTree.parse(PICTURE).getroot().iter(f"{SVG}text"):
        rows.setdefault(float(text.get("y")), []).append((float(text.get("x")), text.text))
    shown = ["".join(text for _, text in sorted(row)) for _, row in sorted(rows.items())]
    session = (SOURCE_DIR / "tests/sessions/overview.session").read_text(encoding="utf-8")
    ((marked, _),) = runs_of(session)
    screen = TYPED.sub(r"\1", marked.replace("Password: «gateway»", "Password: "))
    assert shown == [line for line in screen.split("\n") if line]


def test_the_readme_shows_it():
    readme = (SOURCE_DIR / "README.md").read_text()
    assert re.search(r"!\[[^\]]+\]\(docs/session\.svg\)", readme)
