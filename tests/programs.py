"""The only place where the tests start programs: in a new session and by default without standard input, so
that none reaches the terminal of whoever runs the tests, and with the default action for every signal."""

import os
import signal
import subprocess
from subprocess import DEVNULL, PIPE, STDOUT, CompletedProcess

import pexpect

# nohup and a shell's & ignore some of these, and a sh script cannot trap what it inherits ignored.
for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM):
    if signal.getsignal(number) is signal.SIG_IGN:
        signal.signal(number, signal.SIG_DFL)

__all__ = ["DEVNULL", "PIPE", "STDOUT", "on_terminal", "run", "start"]


def start(command, **options):
    """Returns a subprocess.Popen."""
    return subprocess.Popen(command, start_new_session=True, **{"stdin": DEVNULL, **options})


def run(command, input=None, capture_output=False, timeout=None, check=False, **options):
    """Like subprocess.run. On a time-out or an interrupt, kills the program and all that it has started."""
    if input is not None:
        options["stdin"] = PIPE
    if capture_output:
        options.update(stdout=PIPE, stderr=PIPE)
    with start(command, **options) as process:
        try:
            output, errors = process.communicate(input, timeout=timeout)
        except BaseException:
            os.killpg(process.pid, signal.SIGKILL)
            raise
    done = CompletedProcess(command, process.returncode, output, errors)
    if check:
        done.check_returncode()
    return done


def on_terminal(command, arguments=(), **options):
    """Returns a pexpect.spawn. The program's controlling terminal is a new one."""
    return pexpect.spawn(command, list(arguments), **options)
