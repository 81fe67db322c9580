"""The help command, and what Tab offers."""

import pytest

from console import PROMPT, SAVE_FILE

ROWS = {
    b"list": b"list\t\tShow configuration parts that can be modified.\n",
    b"get": b"get\t\tGenerate configuration part.\n",
    b"save": b"save\t\tSave configuration part.\n",
    b"exit": b"exit\t\tExit tessel.\n",
    b"help": b"help\t\tDisplay the help.\n",
    b"backup": b"backup\t\tBackup and download configuration.\n",
    b"restore": b"restore\t\tUpload configuration.\n",
    b"log_ls": b"log_ls\t\tDisplay log files that can be viewed.\n",
    b"show": b"show\t\tShow logfile.\n",
}
POSSIBILITIES = (
    b"list\tget\tsave\texit\thelp\tbackup\t\n"
    b"restore\tlog_ls\tshow\t\n"
)


def test_help_prints_all_commands_in_order(device):
    assert device.log_in().command(b"help") == b"\n" + b"".join(ROWS.values()) + b"\n"


@pytest.mark.parametrize("name", ROWS)
def test_help_for_a_command_prints_only_its_row(device, name):
    assert device.log_in().command(b"help " + name) == b"\n" + ROWS[name] + b"\n"


@pytest.mark.parametrize(
    "argument", [b"HELP", b"Get", b"lis", b"lists", b"get save", b"%s%n", b"a  b", b"`'"]
)
def test_help_for_anything_else_prints_the_possibilities(device, argument):
    assert device.log_in().command(b"help " + argument) == (
        b"\nNo commands match `" + argument + b"'.  Possibilties are:\n" + POSSIBILITIES + b"\n"
    )


def test_tab_completes_a_file_name_of_the_current_directory(device):
    device.write("/sip_settings.txt")
    console = device.log_in()
    assert console.command(b"sip_s\t", echo=b"sip_settings.txt ") == b""
    console.command(b"save")
    assert device.read(SAVE_FILE) == b"VERSION=2.1.4\nsip_settings.txt\n"


def test_tab_completes_a_path_in_an_argument(device):
    console = device.log_in()
    console.command(b"a=1 /etc/menut\t", echo=b"a=1 /etc/menutree.conf ")


@pytest.mark.parametrize("start", [b"hel", b"lis", b"log_", b"resto", b"exi"])
def test_tab_never_completes_a_command(device, start):
    console = device.log_in()
    console.command(start + b"\t\t", echo=start + b"\x07\x07")
    console.command(b"save")
    assert device.read(SAVE_FILE) == b"VERSION=2.1.4\n" + start + b"\n"


def test_tab_on_an_empty_line_lists_the_files_of_the_current_directory(device):
    console = device.log_in()
    console.type(b"\t\t")
    offered = console.read_until(PROMPT).split(b"\n")[1].split()
    files = [path.name.encode() for path in device.root.iterdir()]
    assert sorted(name.rstrip(b"/") for name in offered) == sorted(files)
