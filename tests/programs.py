"""Starts programs for the tests, and nothing else does: each in a session of its own, and without
standard input unless it is given one, so that none reaches the terminal of whoever runs the tests."""

import os
import signal
import subprocess
from subprocess import DEVNULL, PIPE, STDOUT, CompletedProcess

import pexpect

__all__ = ["DEVNULL", "PIPE", "STDOUT", "on_terminal", "run", "start"]


def start(command, **options):
    """A subprocess.Popen."""
    return subprocess.Popen(command, start_new_session=True, **{"stdin": DEVNULL, **options})


def run(command, input=None, capture_output=False, timeout=None, check=False, **options):
    """What subprocess.run does. What takes too long, or is interrupted, is killed with all that it
    has started."""
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
    """A pexpect.spawn: the program has a new terminal as its controlling one."""
    return pexpect.spawn(command, list(arguments), **options)
