"""Plays a session of the real program on a device whose programs are recording stand-ins."""

import re
import time

from console import ENVIRONMENT, SHELL, Device
from model import (
    ACCESS_DATABASE,
    ANY_ADDRESS,
    BACKUP_LOG,
    BACKUP_NAME,
    FOLDER,
    LOGS,
    MENU_TREE,
    RESTORE_LOG,
    SAVE_FILE,
    SUMMARY_FILE,
    VERSION_FILE,
    Outcome,
    word,
)

DATABASE = "/etc/tarn-conf/telephony/extensiondb"
OTHER_DATABASE = "/alt/telephony/extensiondb"
FILES = [
    *(MENU_TREE, VERSION_FILE, ACCESS_DATABASE, DATABASE, OTHER_DATABASE, SUMMARY_FILE, SAVE_FILE),
    *(BACKUP_LOG, RESTORE_LOG, *LOGS.values()),
]

# The editor takes every byte literally, as on an 8-bit terminal, and shows the line in one row.
INPUTRC = b"""set disable-completion on
set convert-meta off
set input-meta on
set output-meta on
"""
SURROUNDINGS = {"PATH", "HOME", "SHELL", "TERM", "INPUTRC", "COLUMNS", "LINES", "PWD", "LD_PRELOAD"}

INTERPRETER = b"""[ "$1" = -c ] || exec /usr/bin/sh "$@"
for last; do :; done
printf '%s\\0' "$last" >>/record/command_lines
exec /usr/bin/sh "$@"
"""
COUNT = b"read -r n </record/%s; echo $((n + 1)) >/record/%s\n"
CLIENT = (
    COUNT % (b"requests_made", b"requests_made")
    + b"""
{ /usr/bin/cat /proc/self/environ; printf '\\0'; } >>/record/requests
[ ! -e /record/summary.$n ] || /usr/bin/cp /record/summary.$n /tmp/script_legconftmp.txt 2>/dev/null
[ ! -e /record/answer.$n ] || /usr/bin/cat /record/answer.$n
"""
)
NOTE_CALL = b'{ printf "%s\\0" "$@"; printf "\\0"; } >>/record/calls.${0##*/}\n'
NEXT_TRANSFER = (
    COUNT % (b"transfers_made", b"transfers_made")
    + b"""
status=0
[ ! -e /record/status.$n ] || read -r status </record/status.$n
"""
)
PROGRAMS = {
    "sh": INTERPRETER,
    "wget": NOTE_CALL,
    "reboot": b"echo >>/record/calls.reboot\n",
    "wput": NOTE_CALL
    + NEXT_TRANSFER
    + b"[ ! -e /record/log.$n ] || /usr/bin/cat /record/log.$n\nexit $status\n",
    "backupconfig": NOTE_CALL
    + b"while read -r line; do :; done\n"
    + NEXT_TRANSFER
    + b"[ ! -e /record/log.$n ] || /usr/bin/cp /record/log.$n /tmp/restorelog.txt\nexit $status\n",
}


class RecordingDevice:
    """One device for many sessions; each finds only the files of its own gateway."""

    def __init__(self, root):
        self.device = Device(root)
        for name, script in PROGRAMS.items():
            self.device.stand_in(name, script)
        self.device.write("/etc/inputrc", INPUTRC)

    def play(self, gateway, typed):
        self._prepare(gateway)
        started = time.time()
        environment = {"INPUTRC": b"/etc/inputrc", "COLUMNS": b"30000", **gateway.environment}
        settings = [name.encode() + b"=" + value for name, value in environment.items()]
        result = self.device.run(typed, "/usr/bin/env", *settings, SHELL)
        names = {backup_name(started), backup_name(time.time())}
        return Outcome(
            screen=result.output,
            errors=result.errors,
            status=result.status,
            requests=self._requests(),
            command_lines=[
                without_time(line, names) for line in self._records("command_lines", b"\0")
            ],
            calls=self._calls(names),
            files={path: self._content(path) for path in FILES if self.device.exists(path)},
        )

    def close(self):
        self.device.close()

    def _prepare(self, gateway):
        for path in FILES:
            content = gateway.files.get(path)
            if content is FOLDER:
                self.device.make_folder(path)
            elif content is None:
                self.device.remove(path)
            else:
                self.device.write(path, content)
        self.device.make_folder("/record")
        self.device.write("/record/requests_made", b"0\n")
        self.device.write("/record/transfers_made", b"0\n")
        if gateway.client:
            self.device.stand_in("fcgiclient", CLIENT)
        else:
            self.device.remove("/bin/fcgiclient")
        for number, (summary, answer) in enumerate(gateway.answers):
            self.device.write(f"/record/answer.{number}", answer)
            if summary is not None:
                self.device.write(f"/record/summary.{number}", summary)
        for number, (log, status) in enumerate(gateway.transfers):
            self.device.write(f"/record/status.{number}", b"%d\n" % status)
            if log is not None:
                self.device.write(f"/record/log.{number}", log)

    def _content(self, path):
        return FOLDER if self.device.path(path).is_dir() else self.device.read(path)

    def _records(self, name, end):
        if not self.device.exists(f"/record/{name}"):
            return []
        return self.device.read(f"/record/{name}").split(end)[:-1]

    def _requests(self):
        requests = []
        for note in self._records("requests", b"\0\0"):
            variables = (variable.partition(b"=") for variable in note.split(b"\0"))
            request = {name.decode(): value for name, _, value in variables}
            requests.append({k: v for k, v in request.items() if k not in SURROUNDINGS})
        return requests

    def _calls(self, names):
        calls = {}
        for program in ("wget", "wput", "backupconfig"):
            for call in self._records(f"calls.{program}", b"\0\0"):
                words = [without_time(text, names) for text in call.split(b"\0")]
                calls.setdefault(program, []).append(words)
        if self._records("calls.reboot", b"\n"):
            calls["reboot"] = [[] for _ in self._records("calls.reboot", b"\n")]
        return calls


def backup_name(seconds):
    """Returns the name of a backup begun at that time. The sandbox has no time zone."""
    now = time.gmtime(seconds)
    return b"config_%d-%d-%d_%02d%02d.bin" % now[:5]


def without_time(text, names):
    for name in names:
        text = text.replace(name, BACKUP_NAME)
    return text


def without_open_addresses(seen, expected):
    """Returns what was seen without the addresses that the model leaves open. The rest of their command
    lines must be as expected."""
    address = word(ANY_ADDRESS)
    for i, (line, other) in enumerate(zip(seen.command_lines, expected.command_lines)):
        start, mark, end = other.partition(address)
        if mark and line.startswith(start) and line.endswith(end):
            seen.command_lines[i] = other
    for client in ("wput", "wget"):
        for call, other in zip(seen.calls.get(client, []), expected.calls.get(client, [])):
            if ANY_ADDRESS in other and len(call) == len(other):
                call[other.index(ANY_ADDRESS)] = ANY_ADDRESS
    return seen
