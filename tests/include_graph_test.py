"""The include graph in docs/maintainers.md is current, and every include points down."""

import importlib.machinery
import importlib.util
import re
import shutil

import pytest

import programs
from console import SOURCE_DIR

DRAW = SOURCE_DIR / "scripts/draw_includes"


@pytest.fixture(scope="module", name="draw_includes")
def fixture_draw_includes():
    loader = importlib.machinery.SourceFileLoader("draw_includes", str(DRAW))
    module = importlib.util.module_from_spec(
        importlib.util.spec_from_loader("draw_includes", loader)
    )
    loader.exec_module(module)
    return module


def test_the_drawing_is_current():
    done = programs.run([DRAW, "--check"], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (0, "")


def test_a_new_include_is_noticed(tmp_path):
    folders = [path.parent.name for path in SOURCE_DIR.glob("*/*.h")]
    for folder in {"docs", "scripts", *folders}:
        shutil.copytree(SOURCE_DIR / folder, tmp_path / folder)
    with open(tmp_path / "config/config_text.cpp", "a", encoding="utf-8") as source:
        source.write('#include "console/text.h"\n')
    draw = tmp_path / "scripts/draw_includes"
    done = programs.run([draw, "--check"], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (
        1,
        "draw_includes: docs/maintainers.md is out of date; run scripts/draw_includes\n",
    )
    programs.run([draw], check=True)
    assert "config --> console\n" in (tmp_path / "docs/maintainers.md").read_text()


def test_every_folder_of_the_product_is_drawn(draw_includes):
    lists = (SOURCE_DIR / "CMakeLists.txt").read_text()
    product = re.search(r"add_library\(tessel_core OBJECT([^)]*)\)", lists).group(1)
    assert {*re.findall(r"(\w+)/\w+\.cpp", product)} == {*draw_includes.FOLDERS}


def test_every_include_points_down(draw_includes):
    order = draw_includes.FOLDERS
    for folder, used in draw_includes.include_graph().items():
        assert used <= {*order[order.index(folder) + 1 :]}, folder


def test_readers_and_console_include_no_other_folder(draw_includes):
    graph = draw_includes.include_graph()
    assert graph["config"] == graph["console"] == set()
