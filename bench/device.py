"""Makes the device that is measured on: the development gateway's root folder with data of the sizes
that are measured, and a FastCGI client that costs as little as a client can."""

import random
import subprocess
from pathlib import Path

SOURCE_DIR = Path(__file__).resolve().parent.parent

# The user-name prompt is measured with a menu of this size.
MENU_ITEMS = 60

# get finds its summary in place; save gets the answer that stands in /data/answer.
CLIENT = """#!/bin/sh
[ "$PATH_INFO" = putconf.cgi ] && exec /usr/bin/cat /data/answer
exit 0
"""

# What vtysh (of package frr) needs to log in and to find a daemon's socket.
VTYSH_FILES = {
    "etc/frr/vtysh.conf": "service integrated-vtysh-config\n",
    "etc/pam.d/frr": "auth required pam_permit.so\naccount required pam_permit.so\n",
    "etc/group": "root:x:0:\nfrrvty:x:0:root\n",
}

MARKERS = ("#ERROR", "#VAL", "#MSG", "#END", "\\n", "#ERROR_GLOBAL")
RECORD_SIZE = 100  # bytes of a save program's answer, one marker in each


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


def menu_item(number):
    acl = ("auto,admin", "auto,admin", "auto,admin", "auto,extension", "admin")[number % 5]
    return (
        f"ITEM /cgi-bin/part{number:06}.cgi {{\n"
        f"    ACL = {acl}\n"
        f'    CAP = "Part number {number}"\n'
        "}\n"
    )


def menu_tree(items):
    """A menu in no order, as menus are; the same at every call."""
    numbers = list(range(items))
    random.Random(items).shuffle(numbers)
    return "".join(map(menu_item, numbers))


def menu_of_parts(parts):
    """A menu all of whose items are general parts."""
    return menu_tree(parts).replace("auto,extension", "auto").replace("= admin", "= auto")


def summary(size):
    """A part's readable text with its version line, of that many bytes behind that line."""
    lines = []
    length = 0
    while length < size:
        lines.append(f"sip.account.{len(lines) % 100000:05}.display_name=Reception\n")
        length += len(lines[-1])
    return "VERSION=1.0\n" + "".join(lines)[:size]


def answer(size, record_end):
    """A save program's answer with a marker in every 100 bytes; each record ends with record_end."""
    records = [
        "x" * (RECORD_SIZE - len(marker) - len(record_end)) + marker + record_end
        for marker in MARKERS
    ]
    cycle = "".join(records)
    return (cycle * (size // len(cycle) + 1))[:size]


def extension_database(entries):
    kinds = ("attendant", "extension", "pickup", "callpark", "paging")
    share = entries // len(kinds)
    sections = []
    for position, kind in enumerate(kinds):
        first = position * share
        lines = "".join(f"ext{n} = {200000 + n}\n" for n in range(first, first + share))
        sections.append(f"section {kind} {{\n{lines}}}\n")
    return "".join(sections)


def make_device(root, scale):
    """Makes the root folder, with everything that a run of that scale needs in /data."""
    subprocess.run([SOURCE_DIR / "gateway" / "make_root", "--fresh", root], check=True)
    client = root / "bin" / "fcgiclient"
    write(client, CLIENT)
    client.chmod(0o755)
    for name, text in VTYSH_FILES.items():
        write(root / name, text)
    (root / "var" / "tmp").mkdir()
    (root / "var" / "run").symlink_to("../run")
    for name in ("build", "bench", "others"):
        (root / name).mkdir()

    data = root / "data"
    write(data / "menu.usual", menu_tree(MENU_ITEMS))
    for items in scale.menu_sizes:
        write(data / f"menu.{items}", menu_tree(items))
    write(data / "menu.list", menu_of_parts(scale.listed_parts))
    write(data / "summary", summary(scale.text_size))
    write(data / "answer.lines", answer(scale.text_size, "\n"))
    write(data / "answer.line", answer(scale.text_size, ""))
    for size in scale.answer_sizes:
        write(data / f"answer.{size}", answer(size, "\n"))
    write(root / "etc" / "menutree.conf", menu_tree(MENU_ITEMS))
    write(root / "tmp" / "script_legconftmp.txt", summary(scale.text_size))
    write(
        root / "etc" / "tarn-conf" / "telephony" / "extensiondb",
        extension_database(scale.extensions),
    )
