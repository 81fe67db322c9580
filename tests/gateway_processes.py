"""The processes of a running gateway, seen from the host."""

import os
import re
import select
from pathlib import Path

# Seconds until a process that does not end is a failure.
PATIENCE = 30


def _name(entry):
    name = (entry / "comm").read_text().strip()
    # Under valgrind the program runs within its tool.
    return "tessel" if name.startswith("memcheck") else name


def running(root):
    """Returns {process id: name} of the gateway on that root folder, which must be running."""
    child = re.search(r'"child-pid": *(\d+)', (Path(root) / "run/sandbox").read_text())
    namespace = os.readlink(f"/proc/{child.group(1)}/ns/pid")
    found = {}
    for entry in Path("/proc").glob("[0-9]*"):
        try:
            if os.readlink(entry / "ns/pid") == namespace:
                found[int(entry.name)] = _name(entry)
        except OSError:
            pass  # another user's, or ended meanwhile
    return found


class Sandbox:
    """The processes that a gateway was running when this object was made."""

    def __init__(self, root):
        self._names = running(root)
        self._handles = [os.pidfd_open(number) for number in self._names]
        # At least the first process, the back end and the command.
        assert len(self._handles) >= 3

    def process(self, name):
        """Returns the host's process id of the only process of that name."""
        (number,) = (number for number, known in self._names.items() if known == name)
        return number

    def processor_time(self):
        """Returns the seconds of processor time used so far."""
        ticks = 0
        for number in self._names:
            try:
                fields = Path(f"/proc/{number}/stat").read_text().rpartition(")")[2].split()
            except OSError:
                continue  # has ended
            ticks += int(fields[11]) + int(fields[12])
        return ticks / os.sysconf("SC_CLK_TCK")

    def has_ended(self):
        """Waits until all processes have ended. Returns False if one has not ended in time."""
        for handle in self._handles:
            ended, _, _ = select.select([handle], [], [], PATIENCE)
            os.close(handle)
            if not ended:
                return False
        return True
