"""The model: a second, simple implementation of the shell.

Input: files, typed lines and the behaviour of the programs around the shell. Output: the screen, files,
requests and command lines. It is written from the manual page and the integration guide alone and shares
no code with the program, so that a mistake in either shows as a difference. All text is bytes.
"""

from dataclasses import dataclass, field
from urllib.parse import unquote_to_bytes

PROMPT = b"tessel:> "
NOT_FOUND = b"ENTRY_NOT_FOUND"
FOLDER = "a folder"  # value in Gateway.files: a folder in place of the file

MENU_TREE = "/etc/menutree.conf"
VERSION_FILE = "/etc/version.txt"
ACCESS_DATABASE = "/tmp/acldb"
SUMMARY_FILE = "/tmp/script_legconftmp.txt"
SAVE_FILE = "/tmp/consoleLCFile"
BACKUP_LOG = "/tmp/auto-backup.log"
RESTORE_LOG = "/tmp/restorelog.txt"
BACKUP_NAME = b"config_NAME.bin"  # placeholder: the name contains the time
ANY_ADDRESS = b"ftp://..."  # placeholder: the client would not get it as typed
NO_CLIENT = b"/usr/bin/sh: 1: /bin/fcgiclient: not found\n"  # the command interpreter's message

LOGS = {
    b"cm": "/var/log/cm.log",
    b"sip": "/tmp/logs/sip_ua.log",
    b"sip_reg": "/tmp/logs/sip_reg.log",
    b"Q.931": "/tmp/logs/isdnagent.log",
}
COMMANDS = [
    (b"list", b"Show configuration parts that can be modified"),
    (b"get", b"Generate configuration part"),
    (b"save", b"Save configuration part"),
    (b"exit", b"Exit tessel"),
    (b"help", b"Display the help"),
    (b"backup", b"Backup and download configuration"),
    (b"restore", b"Upload configuration"),
    (b"log_ls", b"Display log files that can be viewed"),
    (b"show", b"Show logfile"),
]
SAFE_IN_A_WORD = frozenset(
    b"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789@%+=:,./-_~"
)
ACTIVE = frozenset(b'$`"\\%')


@dataclass
class Gateway:
    """The device's files, and how the programs around the shell will behave."""

    files: dict  # {path: bytes or FOLDER}; others are absent
    environment: dict = field(default_factory=dict)
    client: bool = True  # is there a FastCGI client?
    answers: list = field(default_factory=list)  # per request: (summary or None, answer)
    transfers: list = field(default_factory=list)  # per transfer: (log or None, status)


@dataclass
class Outcome:
    screen: bytes = b""
    errors: bytes = b""
    status: int = 0
    requests: list = field(default_factory=list)
    command_lines: list = field(default_factory=list)
    calls: dict = field(default_factory=dict)  # program: the words of each call
    files: dict = field(default_factory=dict)


# Configuration files


def trim(text):
    return text.strip(b" \t\r")


def strip(line, comment=b"#"):
    line = trim(line)
    quoted, blank = False, True
    for i in range(len(line)):
        c = line[i : i + 1]
        if c == comment and blank and not quoted:
            return trim(line[:i])
        if c == b'"':
            quoted = not quoted
        blank = c in (b" ", b"\t", b"\r")
    return line


def split_entry(line, assignment):
    """Returns (key, value), or None."""
    key, sign, value = strip(line).partition(assignment)
    return (trim(key), trim(value)) if sign else None


def lookup(entries, key):
    return next((value for name, value in entries if name == key), None)


def opening(lines, i, keyword):
    """Returns (header, index of the first line inside) if a section opens at line i, else None."""
    line = strip(lines[i])
    if not line.startswith(keyword):
        return None
    rest = line[len(keyword) :]
    if rest and rest[:1] not in (b" ", b"\t", b"\r", b"{"):
        return None
    if rest.endswith(b"{"):
        return trim(rest[:-1]), i + 1
    for j in range(i + 1, len(lines)):
        if strip(lines[j]) == b"{":
            return trim(rest), j + 1
        if strip(lines[j]):
            return None
    return None


def sections(text, keyword):
    """Returns all sections as (header, entries), in file order."""
    found, inside = [], False
    lines = text.split(b"\n")
    i = 0
    while i < len(lines):
        opened = opening(lines, i, keyword)
        if opened:
            found.append((opened[0], []))
            inside, i = True, opened[1]
            continue
        if strip(lines[i]) == b"}":
            inside = False
        elif inside and split_entry(lines[i], b"="):
            found[-1][1].append(split_entry(lines[i], b"="))
        i += 1
    return found


def c_string(text):
    return text.split(b"\0")[0]


def stored(value):
    """Returns a value as read through the databases' fixed buffer."""
    return c_string(value[:4095])


# The session


class Shell:
    def __init__(self, gateway, typed):
        self.gateway = gateway
        self.files = dict(gateway.files)
        self.environment = dict(gateway.environment)
        self.typed = typed
        self.queue = []
        self.exit = False
        self.seen = Outcome()
        self.general = {}
        self.per_extension = {}

    def run(self):
        self.load_menu_tree()
        if self.log_in():
            self.loop()
        else:
            self.seen.status = 1
        self.request(b"logout.cgi", None)
        self.seen.files = self.files
        return self.seen

    # Terminal

    def show(self, text):
        self.seen.screen += text

    def take(self):
        if not self.typed:
            return None
        line, _, self.typed = self.typed.partition(b"\n")
        return line

    def read_line(self, prompt):
        self.show(prompt)
        line = self.take()
        if line is None:
            return None
        column = len(prompt)
        for i in range(len(line)):  # the editor shows a tab as blanks
            c = line[i : i + 1]
            shown = b" " * (8 - column % 8) if c == b"\t" else c
            self.show(shown)
            column += len(shown)
        self.show(b"\n")
        return line

    def read_password(self, prompt):
        self.seen.errors += prompt
        return self.take() or b""

    # Files and programs

    def content(self, path):
        content = self.files.get(path)
        return None if content is FOLDER else content

    def request(self, program, query):
        """Runs a program of the back end. Returns its answer."""
        self.environment.update(
            REQUEST_METHOD=b"GET",
            PATH_INFO=program,
            REMOTE_ADDR=b"CGI2FastCGI",
            CONTENT_TYPE=b"application/x-www-form-urlencoded",
        )
        if query is not None:
            self.environment["QUERY_STRING"] = query
        self.seen.command_lines.append(b"/bin/fcgiclient")
        answer = b""
        if not self.gateway.client:
            self.seen.errors += NO_CLIENT
        else:
            number = len(self.seen.requests)
            self.seen.requests.append(dict(self.environment))
            if number < len(self.gateway.answers):
                summary, answer = self.gateway.answers[number]
                if summary is not None and self.files.get(SUMMARY_FILE) is not FOLDER:
                    self.files[SUMMARY_FILE] = summary
        for name in ("REQUEST_METHOD", "PATH_INFO", "REMOTE_ADDR", "CONTENT_TYPE"):
            del self.environment[name]
        if query is not None:
            del self.environment["QUERY_STRING"]
        return answer

    def call(self, program, *words):
        self.seen.calls.setdefault(program, []).append(list(words))

    # Start-up

    def load_menu_tree(self):
        for header, entries in sections(self.content(MENU_TREE) or b"", b"ITEM"):
            acl = lookup(entries, b"ACL")
            if acl is None or acl == NOT_FOUND or b"auto" not in acl:
                continue
            name = header.split(b".cgi")[0].split(b"/")[-1]
            if name in (b"lcrwizard", b"isdnwizard", b"isdnsignaling"):
                continue
            title = lookup(entries, b"CAP") or b""
            caption = b""
            if title.count(b'"') == 1:
                caption = title.split(b'"')[1]
            elif title.count(b'"') > 1:
                caption = title[title.index(b'"') + 1 : title.rindex(b'"')]
            catalogue = self.per_extension if b"extension" in acl else self.general
            catalogue.setdefault(name, c_string(caption) or name)

    def log_in(self):
        self.show(b"Please, login as an Administrator\n\n")
        for _ in range(3):
            user = self.read_line(b"Username: ")
            password = self.read_password(b"Password: ")
            if user is not None and self.accepts(user, password):
                self.show(b"\n")
                return True
            self.show(b"Wrong username or password\n\n")
        return False

    def accepts(self, user, password):
        for header, entries in sections(self.content(ACCESS_DATABASE) or b"", b"section"):
            if header == b"admin":
                name, secret = lookup(entries, b"user_name"), lookup(entries, b"password")
                if name is None or secret is None:
                    return False
                return stored(name) == user and stored(secret) == password
        return False

    # Commands

    def loop(self):
        while not self.exit:
            line = self.read_line(PROMPT)
            if line is None:
                return
            line = line.strip(b" \t")
            if line:
                self.dispatch(line)

    def dispatch(self, line):
        end = min((line + sign).index(sign) for sign in (b" ", b"\t"))
        word, argument = line[:end], line[end:].strip(b" \t")
        if word in [name for name, _ in COMMANDS]:
            getattr(self, "do_" + word.decode())(argument)
        elif len(word) <= 256:
            self.queue = [*self.queue, word][-100:]

    def do_exit(self, _):
        self.exit = True

    def do_help(self, argument):
        rows = [row for row in COMMANDS if argument in (b"", row[0])]
        self.show(b"\n")
        for name, text in rows:
            self.show(name + b"\t\t" + text + b".\n")
        if not rows:
            self.show(b"No commands match `" + argument + b"'.  Possibilties are:\n")
            self.show(b"list\tget\tsave\texit\thelp\tbackup\t\nrestore\tlog_ls\tshow\t\n")
        self.show(b"\n")

    def do_list(self, _):
        self.show(b"\n*** General configuration parts ***\n\n")
        for name, caption in sorted(self.general.items()):
            self.show(name + b" (" + caption + b")\n")
        self.show(b"\n*** Extension configuration parts ***\n\n")
        for name, caption in sorted(self.per_extension.items()):
            self.show(name + b" (" + caption + b")\n")
        self.show(b"\n")

    def do_log_ls(self, _):
        self.show(b"\ncm\nsip\nsip_reg\nQ.931\n\n")

    def do_show(self, argument):
        if not argument:
            self.show(b"ERROR: the syntax is: show log_type\n")
        elif argument not in LOGS:
            self.show(b"ERROR: There is no such log file\n")
        else:
            path = LOGS[argument]
            self.seen.command_lines.append(b"cat " + path.encode())
            self.show(self.content(path) or b"")
            if path not in self.files:
                self.seen.errors += b"cat: %s: No such file or directory\n" % path.encode()
            elif self.files[path] is FOLDER:
                self.seen.errors += b"cat: %s: Is a directory\n" % path.encode()

    def do_get(self, argument):
        name, _, extension = argument.partition(b" ")
        parts = self.per_extension if extension else self.general
        if not argument:
            self.show(b"ERROR: the syntax is: get configuration_part [extension_name]\n")
        elif name not in parts:
            self.show(b"ERROR: There is no such configuration part\n")
        elif extension and not self.knows(extension):
            self.show(b"ERROR: There is no such an extension\n")
        else:
            self.show(b"\n" + parts[name])
            self.show((b" for extension " + extension if extension else b"") + b"\n\n")
            query = b"cgiaction=Start generating a legible configuration file"
            if extension:
                query += b"&cgiDescription=" + parts[name] + b"&extensionName=" + extension
            else:
                query += b"&parampattern=" + name
            self.request(b"getconfsummary.cgi", query)
            self.show_summary(self.content(SUMMARY_FILE) or b"")
            self.show(b"\n\n")

    def knows(self, extension):
        folder = self.gateway.environment.get("TARN_PATH", b"/etc/tarn-conf/").decode()
        path = folder + "telephony/extensiondb"
        if not path.startswith("/"):
            path = "/" + path  # the shell runs in /
        seen = set()
        for header, entries in sections(self.content(path) or b"", b"section"):
            # Of sections with the same name only the first is ever reached.
            if header in (b"attendant", b"extension", b"pickup", b"callpark", b"paging"):
                if header not in seen and extension in [stored(value) for _, value in entries]:
                    return True
                seen.add(header)
        return False

    def show_summary(self, content):
        passed = False
        for start in range(0, len(content), 255):
            piece = c_string(content[start : start + 255])
            if not passed and b"VERSION" in piece:
                passed = True
                line_feed = piece.find(b"\n", piece.index(b"VERSION"))
                if line_feed >= 0:
                    piece = piece[line_feed + 1 :]
            self.show(piece)

    def do_save(self, _):
        if not self.queue:
            self.show(b"ERROR: Nothing to save\n")
            return
        lines = list(self.queue)
        if b"VERSION=" not in lines[0]:
            lines.insert(0, b"VERSION=" + self.version())
        if self.files.get(SAVE_FILE) is not FOLDER:
            self.files[SAVE_FILE] = b"".join(line + b"\n" for line in lines)
        answer = self.request(
            b"putconf.cgi", b"cgiaction=do_save&localHiddenFilename=" + SAVE_FILE.encode()
        )
        self.show(self.in_words(answer))
        self.queue = []

    def version(self):
        lines = (self.content(VERSION_FILE) or b"").split(b"\n")
        entries = [entry for entry in (split_entry(line, b":") for line in lines) if entry]
        value = lookup(entries, b"Version")
        return NOT_FOUND if value is None else value

    @staticmethod
    def in_words(answer):
        text = b""
        while answer:  # read in pieces of lines, each cut at its first NUL
            end = min(answer.find(b"\n") + 1 or len(answer), 254)
            text += c_string(answer[:end])
            answer = answer[end:]
        for marker, words in (
            (b"\\n", b"\n"),
            (b"#ERROR", b"Error in "),
            (b"#ERROR_GLOBAL", b"Error: "),
            (b"#VAL", b"="),
            (b"#MSG", b". "),
            (b"#END", b""),
        ):
            text = text.replace(marker, words)
        return text

    # Transfers

    def ask(self, path_question):
        questions = (b"Server: ", b"Port: ", path_question, b"Username: ")
        server, port, path, user = [self.read_line(PROMPT + q) or b"" for q in questions]
        password = self.read_password(PROMPT + b"Password: ")
        address = b"ftp://"
        if user:
            address += user + (b":" + password if password else b"") + b"@"
        address += server + (b":" + port if port else b"")
        if path and path[:1] not in (b"/", b"."):
            address += b"/"
        return address + path

    def transfer(self):
        done = len(self.seen.calls.get("wput", [])) + len(self.seen.calls.get("wget", [])) - 1
        return self.gateway.transfers[done] if done < len(self.gateway.transfers) else (None, 0)

    def take_log(self, path):
        text = b""
        log = self.files.pop(path, b"")
        lines = log.split(b"\n")
        if not lines[-1]:
            lines.pop()
        for line in lines:
            if len(line) > 1023:
                break
            text += c_string(line) + b"\n"
        return text

    def do_backup(self, _):
        self.show(b"Starting configuration backup...\n")
        address = self.ask(b"Server path: ")
        if not address.endswith(b"/"):
            address += b"/"
        address += BACKUP_NAME
        if ACTIVE & set(address) or has_line_end(address):
            address = ANY_ADDRESS
        self.seen.command_lines.append(
            b'wput -B -t 3 -I "backupconfig -b -d stdout" '
            + word(address)
            + b" > /tmp/auto-backup.log 2>&1"
        )
        self.call("wput", b"-B", b"-t", b"3", b"-I", b"backupconfig -b -d stdout", address)
        log, status = self.transfer()
        self.files[BACKUP_LOG] = log or b""
        text = self.take_log(BACKUP_LOG)
        good = status == 0 and (not text or b"FINISHED" in text)
        self.show(b"Configuration backup " + (b"finished" if good else b"failed") + b"!\n")

    def do_restore(self, _):
        self.show(b"Starting configuration restore...\n")
        address = self.ask(b"File path: ")
        if has_line_end(address):
            address = ANY_ADDRESS
        self.seen.command_lines.append(
            b"/bin/wget -nv -t 3 --passive-ftp "
            + word(address)
            + b" -O - | /bin/backupconfig -r -s stdin -l /tmp/restorelog.txt"
        )
        self.call("wget", b"-nv", b"-t", b"3", b"--passive-ftp", address, b"-O", b"-")
        self.call("backupconfig", b"-r", b"-s", b"stdin", b"-l", RESTORE_LOG.encode())
        log, status = self.transfer()
        if log is not None:
            self.files[RESTORE_LOG] = log
        text = self.take_log(RESTORE_LOG)
        if status == 0:
            self.show(b"Configuration restore finished.!\nRebooting...\n")
            self.seen.command_lines.append(b"reboot")
            self.call("reboot")
        else:
            self.show(text + b"Configuration restore failed.!\n")


def has_line_end(address):
    """Returns whether the address contains a line end, as typed or decoded once or twice."""
    once = unquote_to_bytes(address)
    return bool(set(address + once + unquote_to_bytes(once)) & set(b"\r\n\0"))


def word(text):
    """Returns the text as one word for the command interpreter, in single quotes if needed."""
    if set(text) <= SAFE_IN_A_WORD:
        return text
    return b"'" + text.replace(b"'", b"'\\''") + b"'"


def play(gateway, typed):
    """Returns the Outcome of a session in which these bytes are typed."""
    return Shell(gateway, typed).run()
