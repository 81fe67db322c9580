"""The shell started by login programs and servers: the recipes of docs/login.md word for word, each with
the real server in a sandbox; and arguments on the command line.

The servers are unpacked but not installed, because installing one would start it on this machine."""

import os
import re
import shlex
from pathlib import Path

import pytest

import programs
from console import ENVIRONMENT, PATIENCE, PROGRAM_DIR, SOURCE_DIR, Console

GATEWAY = SOURCE_DIR / "gateway"
RECIPES = (SOURCE_DIR / "docs/login.md").read_text()
GREETING = b"Please, login as an Administrator\n\n"
SIP = b"\nSIP settings\n\nsip.transport=udp\n"


def recipe(file, about=""):
    """Returns the content of a file in docs/login.md, from the block that contains the words."""
    blocks = re.findall(r"((?:^    .*\n|^\n(?=    \w))+)", RECIPES, re.MULTILINE)
    lines = [[line[4:] for line in block.splitlines() if line] for block in blocks]
    found = [
        "\n".join(block[1:]) + "\n"
        for block in lines
        if block[0] == f"# {file}" and about in "\n".join(block)
    ]
    assert len(found) == 1, f"{len(found)} recipes for {file} with {about!r}"
    return found[0]


UNPACKED = SOURCE_DIR / "build/servers"
PACKAGES = (
    "openssh-server",
    "inetutils-inetd",
    "inetutils-telnetd",
    "busybox-static",
    "util-linux",
)
# {name in the sandbox: where the server comes from}
PROGRAMS = {
    "/usr/sbin/sshd": UNPACKED / "usr/sbin/sshd",
    "/usr/sbin/inetutils-inetd": UNPACKED / "usr/sbin/inetutils-inetd",
    "/usr/sbin/telnetd": UNPACKED / "usr/sbin/telnetd",
    "/usr/sbin/agetty": UNPACKED / "usr/sbin/agetty",
    "/usr/sbin/busybox": UNPACKED / "usr/bin/busybox",
    "/usr/sbin/dropbear": Path("/usr/sbin/dropbear"),
}


@pytest.fixture(scope="module", autouse=True)
def fixture_servers():
    architecture = programs.run(
        ["dpkg", "--print-architecture"], capture_output=True, text=True, check=True
    ).stdout.strip()
    make = [SOURCE_DIR / "scripts/make_sysroot", architecture, UNPACKED, *PACKAGES]
    UNPACKED.parent.mkdir(exist_ok=True)
    programs.run(["flock", f"{UNPACKED}.lock", *make], check=True)
    for program in (*PROGRAMS.values(), "/usr/bin/inetutils-telnet"):
        # If a server were missing, tests would pass for the wrong reason.
        assert os.access(program, os.X_OK), program


def missing_libraries():
    """Returns the servers' libraries that this machine does not have."""
    unpacked = UNPACKED.glob("usr/lib/*/lib*.so.*")
    return [path for path in unpacked if not Path("/", path.relative_to(UNPACKED)).exists()]


# init must be process 1, and be so in /proc.
UNSHARE = ("/usr/bin/unshare", "--pid", "--fork", "--kill-child", "--mount-proc")
INIT = ("/usr/bin/env", "-i", *UNSHARE, "/sbin/init")


class UserSandbox:
    """A sandbox on the device's root in which commands run with that user id. In the development
    gateway's own sandbox they are root without capabilities: an init needs the capabilities, and a
    user's server must not be root."""

    def __init__(self, device, uid=0):
        self.device = device
        self.uid = uid

    def command_line(self, *command):
        folders = [f"/{name}" for name in ("lib", "lib32", "lib64", "libx32", "sbin")]
        bound = [("--ro-bind-try", name, name) for name in folders if not os.path.islink(name)]
        folders = [str(path) for path in Path("/usr").iterdir() if path.name != "sbin"]
        bound += [("--ro-bind", name, name) for name in folders if not os.path.islink(name)]
        bound += [("--ro-bind", str(path), name) for name, path in PROGRAMS.items()]
        bound.append(("--ro-bind", str(UNPACKED / "usr/lib/openssh"), "/usr/lib/openssh"))
        bound += [
            ("--ro-bind", str(path), f"/opt/libraries/{path.name}") for path in missing_libraries()
        ]
        user = str(self.uid)
        return [
            "bwrap",
            "--unshare-all",
            "--unshare-user",
            "--uid",
            user,
            "--gid",
            user,
            "--cap-add",
            "ALL",
            "--die-with-parent",
            "--as-pid-1",
            "--hostname",
            "gateway",
            "--bind",
            str(self.device.root),
            "/",
            *(word for words in bound for word in words),
            "--proc",
            "/proc",
            "--dev",
            "/dev",
            "--ro-bind",
            str(GATEWAY),
            "/opt/gateway",
            "--ro-bind",
            str(PROGRAM_DIR / "gateway"),
            "/opt/backend",
            "--ro-bind",
            str(PROGRAM_DIR / "tessel"),
            "/bin/tessel",
            "--chdir",
            "/",
            "env",
            "-i",
            "PATH=/sbin:/bin:/usr/sbin:/usr/bin",
            "HOME=/",
            "TERM=dumb",
            "LD_LIBRARY_PATH=/opt/libraries",
            "sh",
            "/opt/gateway/boot",
            *command,
        ]

    def console(self, *command):
        console = Console(self.command_line(*command))
        self.device._consoles.append(console)
        return console

    def run(self, *command, typed=b""):
        return programs.run(
            self.command_line(*command),
            input=typed,
            capture_output=True,
            env=ENVIRONMENT,
            timeout=PATIENCE,
            check=False,
        )


def use_program(device, name, program):
    """Replaces a program of the device with a link to another."""
    device.write(name)
    device.path(name).unlink()
    device.path(name).symlink_to(os.path.relpath(program, Path(name).parent))


def expect_session(console):
    """Logs in, prints a part and leaves the session at its prompt."""
    assert console.read_until(b"Username: ").endswith(GREETING + b"Username: ")
    console.exchange(b"admin", b"Password: ")
    assert console.exchange(b"gateway", b"tessel:> ", echo=b"") == b"\ntessel:> "
    assert console.command(b"get sip").startswith(SIP)


# Serial lines


@pytest.fixture(name="line")
def fixture_line(device):
    """Returns a function that runs a command on a serial line of the device."""
    device.remove("/sbin")
    device.write("/opt/serial_line", (SOURCE_DIR / "tests/serial_line").read_bytes())

    def serve(*command):
        return UserSandbox(device).console("/usr/bin/python3", "/opt/serial_line", *command)

    return serve


def expect_sessions_on(console):
    """Plays a session, a failed login and another session on one line."""
    expect_session(console)
    console.enter(b"exit")
    console.read_until(GREETING + b"Username: ")
    for _ in range(2):
        console.attempt(b"admin", b"wrong")
    console.exchange(b"admin", b"Password: ")
    assert console.exchange(b"wrong", b"Username: ", echo=b"").endswith(GREETING + b"Username: ")
    console.exchange(b"admin", b"Password: ")
    console.exchange(b"gateway", b"tessel:> ", echo=b"")


def test_getty_from_inittab(device, line):
    for name in ("/sbin/init", "/sbin/getty"):
        use_program(device, name, "/usr/sbin/busybox")
    device.write("/etc/inittab", recipe("/etc/inittab", "ttyS0::").encode())
    expect_sessions_on(line(*INIT))


def agetty_commands():
    (line,) = recipe("/etc/inittab", "S0:2345").splitlines()
    yield line.split(":", 3)[3]
    unit = "/etc/systemd/system/serial-getty@ttyS0.service.d/tessel.conf"
    start = [line for line in recipe(unit).splitlines() if line.startswith("ExecStart=")]
    assert start[0] == "ExecStart=", "the first ExecStart must reset the unit's own command"
    yield start[1].replace("ExecStart=-", "").replace("%I", "ttyS0").replace("$TERM", "vt220")


@pytest.mark.parametrize("command", agetty_commands(), ids=["inittab", "systemd"])
def test_agetty(device, line, command):
    use_program(device, "/sbin/agetty", "/usr/sbin/agetty")
    console = line("/usr/bin/sh", "-c", f"while :; do /usr/bin/setsid -w {command}; done")
    expect_sessions_on(console)


# Telnet

WAIT_FOR_PORT = "until grep -q ':%04X .* 0A ' /proc/net/tcp /proc/net/tcp6; do sleep 0.02; done\n"


def expect_telnet_session(console):
    seen = console.read_until(GREETING)
    assert b"Linux" not in seen, "telnetd must not print the system's name"
    # The echo comes from the server.
    for question, answer in (
        (b"Username: ", b"admin"),
        (b"Password: ", b"gateway"),
        (b"\ntessel:> ", b"get sip"),
    ):
        console.read_until(question)
        console.enter(answer)
    assert SIP in console.read_until(b"\ntessel:> ")
    console.enter(b"exit")
    assert b"Connection closed by foreign host" in console.end()[1]


def test_telnetd_from_inetd(device):
    device.write("/etc/inetd.conf", recipe("/etc/inetd.conf").encode())
    device.write("/etc/services", b"telnet 23/tcp\n")
    device.write("/etc/protocols", b"tcp 6 TCP\n")
    server = "/usr/sbin/inetutils-inetd /etc/inetd.conf\n"
    client = "exec inetutils-telnet 127.0.0.1 23"
    expect_telnet_session(
        UserSandbox(device).console("sh", "-c", server + WAIT_FOR_PORT % 23 + client)
    )


def test_busybox_telnetd_from_inittab(device):
    device.remove("/sbin")
    for name in ("/sbin/init", "/bin/busybox"):
        use_program(device, name, "/usr/sbin/busybox")
    device.write("/etc/inittab", recipe("/etc/inittab", "telnetd").encode())
    server = f"setsid {' '.join(INIT)} </dev/null >/dev/null 2>&1 &\n"
    client = "exec inetutils-telnet 127.0.0.1 23"
    expect_telnet_session(
        UserSandbox(device).console("sh", "-c", server + WAIT_FOR_PORT % 23 + client)
    )


# Over ssh. The servers run as the account's own user, who may take no port below 1024.

PORT = 2222
SERVERS = {
    "openssh": "/usr/sbin/sshd -f /etc/ssh/sshd_config -h /etc/ssh/host_key -o PidFile=none"
    f" -o ListenAddress=127.0.0.1 -p {PORT} -E /var/log/sshd.log\n",
    "dropbear": "dropbearconvert openssh dropbear /etc/ssh/host_key /etc/ssh/dropbear_key 2>/dev/null\n"
    f"/usr/sbin/dropbear -R -E -p 127.0.0.1:{PORT} -r /etc/ssh/dropbear_key $DROPBEAR_EXTRA_ARGS"
    " -P /run/dropbear.pid 2>/var/log/dropbear.log\n",
}
CLIENT_CONFIGURATION = f"""\
Host gateway
    HostName 127.0.0.1
    Port {PORT}
    User %s
    IdentityFile /etc/ssh/client_key
    UserKnownHostsFile /etc/ssh/known_hosts
    LogLevel ERROR
"""


class SshDevice:
    """A device with an account that can be reached over ssh."""

    def __init__(self, device, server):
        self.device = device
        self.server = SERVERS[server]
        for key in ("host_key", "client_key"):
            path = device.path(f"/etc/ssh/{key}")
            path.parent.mkdir(exist_ok=True)
            programs.run(
                ["ssh-keygen", "-q", "-N", "", "-t", "ed25519", "-C", "", "-f", path], check=True
            )
        self.public_key = device.read("/etc/ssh/client_key.pub").decode().strip()
        host_key = device.read("/etc/ssh/host_key.pub")
        device.write("/etc/ssh/known_hosts", b"[127.0.0.1]:%d %s" % (PORT, host_key))
        device.write("/etc/shells", recipe("/etc/shells").encode() + b"/bin/sh\n")
        self.configure("Subsystem sftp /usr/lib/openssh/sftp-server\n")

    def configure(self, text):
        self.device.write("/etc/ssh/sshd_config", text.encode())

    def add_account(self, line, keys=None):
        name, _, uid, gid, _, home, _ = line.strip().split(":")
        self.sandbox = UserSandbox(self.device, int(uid))
        self.device.write("/etc/passwd", self.device.read("/etc/passwd") + line.encode())
        self.device.write("/etc/shadow", recipe("/etc/shadow", name).encode(), 0o600)
        self.device.write(
            "/etc/group", self.device.read("/etc/group") + f"{name}:x:{gid}:\n".encode()
        )
        self.device.write(
            f"{home}/.ssh/authorized_keys", (keys or self.public_key).encode() + b"\n", 0o600
        )
        self.device.path(f"{home}/.ssh").chmod(0o700)
        self.device.write("/etc/ssh/client", (CLIENT_CONFIGURATION % name).encode(), 0o600)

    def client(self, command):
        return ("sh", "-c", self.server + WAIT_FOR_PORT % PORT + command)

    def console(self, command):
        return self.sandbox.console(*self.client("exec " + command))

    def run(self, command, typed=b""):
        return self.sandbox.run(*self.client(command), typed=typed)


def account_alone(ssh):
    """The account's shell alone, without settings in the server's configuration."""
    ssh.add_account(recipe("/etc/passwd", "admin"))


def account_with_the_shell(ssh):
    ssh.configure(
        ssh.device.read("/etc/ssh/sshd_config").decode()
        + recipe("/etc/ssh/sshd_config", "User admin")
    )
    ssh.server = recipe("/etc/default/dropbear") + ssh.server
    ssh.add_account(recipe("/etc/passwd", "admin"))


def account_with_a_forced_command(ssh):
    ssh.configure(
        ssh.device.read("/etc/ssh/sshd_config").decode()
        + recipe("/etc/ssh/sshd_config", "User operator")
    )
    ssh.add_account(recipe("/etc/passwd", "operator"))


def account_with_a_forced_key(ssh):
    about = "restrict," if ssh.server is SERVERS["openssh"] else "no-port-forwarding,"
    keys = recipe("~/.ssh/authorized_keys", about).strip().replace("KEY", ssh.public_key)
    ssh.add_account(recipe("/etc/passwd", "operator"), keys)


def account_where_sftp_asks_no_shell(ssh):
    ssh.configure("Subsystem sftp internal-sftp\n")
    account_with_the_shell(ssh)


WAYS = {
    "account-alone-openssh": ("openssh", account_alone),
    "account-openssh": ("openssh", account_with_the_shell),
    "account-openssh-internal-sftp": ("openssh", account_where_sftp_asks_no_shell),
    "account-dropbear": ("dropbear", account_with_the_shell),
    "forced-command-openssh": ("openssh", account_with_a_forced_command),
    "forced-key-openssh": ("openssh", account_with_a_forced_key),
    "forced-key-dropbear": ("dropbear", account_with_a_forced_key),
}


@pytest.fixture(name="ssh", params=WAYS)
def fixture_ssh(device, request):
    server, set_up = WAYS[request.param]
    ssh = SshDevice(device, server)
    set_up(ssh)
    return ssh


def test_session_over_ssh(ssh):
    console = ssh.console("ssh -F /etc/ssh/client -t gateway")
    expect_session(console)
    assert console.leave() == 0


def test_a_command_over_ssh_begins_the_dialogue(ssh):
    command = "ssh -F /etc/ssh/client -T gateway cat /etc/passwd"
    done = ssh.run(command, b"admin\ngateway\nget sip\nexit\n")
    assert done.returncode == 0, done.stderr
    assert done.stdout.startswith(GREETING)
    assert SIP in done.stdout and b"root:" not in done.stdout
    done = ssh.run(command + " </dev/null")
    assert done.returncode == 1
    assert done.stdout.count(b"Wrong username or password\n") == 3


# {name: command that copies a file to FILE}
COPIES = {
    "scp to": "scp -F /etc/ssh/client /etc/version.txt gateway:FILE",
    "scp from": "scp -F /etc/ssh/client gateway:/etc/version.txt FILE",
    "old scp to": "scp -O -F /etc/ssh/client /etc/version.txt gateway:FILE",
    "old scp from": "scp -O -F /etc/ssh/client gateway:/etc/version.txt FILE",
    "sftp": "echo put /etc/version.txt FILE | sftp -F /etc/ssh/client -b - gateway",
}
# The session must end when the client has ended.
WAIT_FOR_END = """
tries=500
while grep -qsx tessel /proc/[0-9]*/comm; do
    tries=$((tries - 1))
    [ $tries -gt 0 ] || { echo "a session is still running"; exit 99; }
    sleep 0.02
done
"""


def try_to_copy(ssh):
    """Returns the names of the copies that reported success, and of those that succeeded."""
    script = "".join(
        f"{command.replace('FILE', f'/tmp/{number}')} >&2 && echo {name}\n" + WAIT_FOR_END
        for number, (name, command) in enumerate(COPIES.items())
    )
    done = ssh.run(script)
    assert done.returncode != 99, done.stderr
    assert b"Permission denied" not in done.stderr, "the account cannot be reached at all"
    made = [name for number, name in enumerate(COPIES) if ssh.device.exists(f"/tmp/{number}")]
    return done.stdout.decode().splitlines(), made


def test_copying_over_ssh_fails(ssh):
    assert try_to_copy(ssh) == ([], [])


def test_copying_over_ssh_works_with_another_shell(device):
    """Shows that it is the shell that makes them fail."""
    ssh = SshDevice(device, "openssh")
    ssh.add_account(recipe("/etc/passwd", "operator"))
    assert try_to_copy(ssh) == (list(COPIES), list(COPIES))


# Only the server's configuration prevents this.
@pytest.mark.parametrize("ssh", [way for way in WAYS if "alone" not in way], indirect=True)
def test_no_port_is_forwarded(ssh):
    done = ssh.run("ssh -F /etc/ssh/client -o LogLevel=INFO -W 127.0.0.1:1 gateway")
    assert done.returncode != 0
    assert b"administratively prohibited" in done.stderr


# Arguments

AS = "import os, sys; os.execv('/bin/tessel', sys.argv[1:])"


@pytest.mark.parametrize(
    "words",
    [
        "-tessel",
        "tessel -c 'get sip'",
        "-tessel -c exit",
        "sh --",
        "tessel --help",
        "-x '' -- 'a b'",
    ],
)
def test_arguments_and_the_name_change_nothing(device, words):
    session = b"admin\ngateway\nget sip\nhelp get\nexit\n"
    plain = device.run(session)
    assert plain.status == 0 and SIP in plain.output
    assert device.run(session, "/usr/bin/python3", "-c", AS, *shlex.split(words)) == plain
    console = device.console("/usr/bin/python3", "-c", AS, *shlex.split(words))
    expect_session(console)
    assert console.leave() == 0
