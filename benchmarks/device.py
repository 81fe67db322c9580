"""Makes the device for the measurements: the development gateway's root folder, with the input files
of every size in /data."""

import random
import shutil
import subprocess
from dataclasses import dataclass
from pathlib import Path

SOURCE_DIR = Path(__file__).resolve().parent.parent
MIB = 1024 * 1024
STEPS = 3  # growth is measured from a size to 10, 100 and 1,000 times that


@dataclass(frozen=True)
class Scale:
    """How often, and with how much input, to measure."""

    rounds: int  # of a measurement that takes milliseconds
    growth_rounds: int
    keys: int  # typed at each prompt; a multiple of KEYS_AT_A_TIME
    menu_items: int
    extensions: int
    text_size: int  # bytes of a summary file, and of a save program's answer
    listed_parts: int
    least: tuple  # growth: the smallest numbers of menu items, extensions and bytes


FULL = Scale(200, 30, 4000, 60, 10_000, MIB, 1_000, (100, 1_000, 64 * 1024))
QUICK = Scale(3, 2, 40, 60, 1_000, MIB // 16, 100, (10, 10, 256))

MARKERS = ("#ERROR", "#VAL", "#MSG", "#END", "\\n", "#ERROR_GLOBAL")
RECORD_SIZE = 100  # bytes of a save program's answer per marker
KINDS = ("attendant", "extension", "pickup", "callpark", "paging")


def growing(least):
    """Returns the sizes at which growth is measured: 0, then from least to 1,000 times that."""
    return [0] + [least * 10**step for step in range(STEPS + 1)]


def menu_tree(items, acls=("auto,admin", "auto,admin", "auto,admin", "auto,extension", "admin")):
    """Returns a menu in shuffled order, as menus are not sorted; the same at every call."""
    numbers = list(range(items))
    random.Random(items).shuffle(numbers)
    return "".join(
        f"ITEM /cgi-bin/part{number:06}.cgi {{\n"
        f"    ACL = {acls[number % len(acls)]}\n"
        f'    CAP = "Part number {number}"\n'
        "}\n"
        for number in numbers
    )


def listing(parts):
    """Returns what list prints for a menu of general parts."""
    return "".join(f"part{number:06} (Part number {number})\n" for number in range(parts))


def repeated(text, size):
    return (text * (size // len(text) + 1))[:size]


def summary(size):
    """Returns a summary file: the version line, then size bytes of a part's readable text."""
    lines = [f"sip.account.{line:05}.display_name=Reception\n" for line in range(10_000)]
    return "VERSION=1.0\n" + repeated("".join(lines), size)


def answer(size):
    """Returns a save program's answer of size bytes, with a marker in every line."""
    lines = [marker.rjust(RECORD_SIZE - 1, "x") + "\n" for marker in MARKERS]
    return repeated("".join(lines), size)


# Many other names contain these, so that a plain text search finds false matches.
LAST_EXTENSION = "7"  # the last of every database
ABSENT_EXTENSION = "3"  # in no database


def extension_entry(number, name):
    return f"ext{number} = {name}\n"


def extension_database(entries):
    """Returns a database of extensions named 10, 11 and so on, and LAST_EXTENSION."""
    names = [str(10 + number) for number in range(max(entries - 1, 0))] + [LAST_EXTENSION]
    lines = [extension_entry(number, names[number]) for number in range(entries)]
    share = -(-entries // len(KINDS))
    return "".join(
        f"section {kind} {{\n{''.join(lines[first * share:][:share])}}}\n"
        for first, kind in enumerate(KINDS)
    )


def make_device(root, programs, scale):
    """Makes the root folder, with the input files for that scale in /data."""
    subprocess.run([SOURCE_DIR / "gateway" / "make_root", "--fresh", root], check=True)
    shutil.copy(programs / "benchmarks" / "client", root / "bin" / "fcgiclient")
    for folder in ("data", "build", "benchmarks"):
        (root / folder).mkdir()
    items, extensions, size = map(growing, scale.least)
    for kind, make, counts in (
        ("menu", menu_tree, {scale.menu_items, *items}),
        ("extensions", extension_database, {scale.extensions, *extensions}),
        ("summary", summary, {scale.text_size, *size}),
        ("answer", answer, {scale.text_size, *size}),
    ):
        for count in counts:
            (root / "data" / f"{kind}.{count}").write_text(make(count))
    (root / "data" / "menu.list").write_text(menu_tree(scale.listed_parts, ("auto",)))
    (root / "data" / "listing").write_text(listing(scale.listed_parts))
