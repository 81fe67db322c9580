"""The drawing of the house in docs/maintainers.md, and what the house promises."""

import importlib.machinery
import importlib.util
import re
import shutil
import subprocess

import pytest

from console import SOURCE_DIR

DRAW = SOURCE_DIR / "scripts/draw_house"


@pytest.fixture(scope="module", name="rooms")
def fixture_rooms():
    loader = importlib.machinery.SourceFileLoader("draw_house", str(DRAW))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("draw_house", loader))
    loader.exec_module(module)
    return module.house()[0]


def test_the_drawing_is_current():
    done = subprocess.run([DRAW, "--check"], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (0, "")


def test_a_new_include_is_noticed(tmp_path):
    folders = [path.parent.name for path in SOURCE_DIR.glob("*/*.h")]
    for folder in {"docs", "scripts", *folders}:
        shutil.copytree(SOURCE_DIR / folder, tmp_path / folder)
    with open(tmp_path / "config/config_text.cpp", "a", encoding="utf-8") as source:
        source.write('#include "shell/text.h"\n')
    draw = tmp_path / "scripts/draw_house"
    done = subprocess.run([draw, "--check"], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (
        1,
        "draw_house: docs/maintainers.md is not current; run scripts/draw_house\n",
    )
    subprocess.run([draw], check=True)
    assert "config --> ground\n" in (tmp_path / "docs/maintainers.md").read_text()


def test_every_source_of_the_product_has_a_room(rooms):
    lists = (SOURCE_DIR / "CMakeLists.txt").read_text()
    product = re.search(r"add_library\(tessel_core OBJECT([^)]*)\)", lists).group(1)
    assert {*re.findall(r"(\w+)/\w+\.cpp", product)} - {"shell"} == {*rooms} - {"top", "ground"}


def test_nothing_runs_in_a_circle(rooms):
    left = dict(rooms)
    while left:
        free = [room for room, used in left.items() if not used & left.keys()]
        assert free, f"in a circle: {left}"
        for room in free:
            del left[room]


def test_the_readers_and_the_ground_use_nobody(rooms):
    assert rooms["config"] == rooms["ground"] == set()
