"""Runs in the device's sandbox: measures, and writes all samples to a JSON file.

usage: measure.py quick|full RESULTS GROUP...

A measurement is a name and the samples of each program compared. The programs take turns within
every round.
"""

import gc
import json
import os
import random
import re
import signal
import sys
import time
from functools import partial
from pathlib import Path

from device import ABSENT_EXTENSION, FULL, LAST_EXTENSION, QUICK, extension_entry, growing
from processes import SHELL_PROMPT, log_in, start_on_pipes, start_on_terminal, time_run

DATA = Path("/data")
# Where the programs look for their input files.
PLACES = {
    "menu": Path("/etc/menutree.conf"),
    "extensions": Path("/etc/tarn-conf/telephony/extensiondb"),
    "summary": Path("/tmp/script_legconftmp.txt"),
    "answer": DATA / "answer",
}
USER_PROMPT = b"Username: "
TESSEL = ["/build/default/tessel"]
MINIMAL = ["/build/default/benchmarks/minimal"]
LOOPS = "/build/default/benchmarks/loops"
LOOPS_PROMPT = b"loops:> "
BASH = ["/usr/bin/bash", "--norc", "-i"]
# {name: (command, end of its prompt)}
PROMPTS = {
    "tessel": (TESSEL, USER_PROMPT),
    "minimal": (MINIMAL, USER_PROMPT),
    "tessel_static": (["/build/static/tessel"], USER_PROMPT),
    "minimal_static": (["/build/static/benchmarks/minimal"], USER_PROMPT),
    "bash": (BASH, b"# "),
    "dash": (["/usr/bin/dash", "-i"], b"# "),
}
REPLACEMENTS = (r"\\n/\n", "#ERROR/Error in ", "#ERROR_GLOBAL/Error: ", "#VAL/=", "#MSG/. ", "#END/")
SED = ["/usr/bin/sed", *(word for pair in REPLACEMENTS for word in ("-e", f"s/{pair}/g"))]
KEYS_AT_A_TIME = 20
PATIENCE = 600  # seconds until a program that does not answer counts as failed


def in_turns(rounds, actions):
    """Calls every action once per round, after a warm-up round. Returns {name: samples}. The order is
    shuffled, since the caches are warm after a similar program and cold after a large one."""
    samples = {name: [] for name in actions}
    order = list(actions)
    dice = random.Random(1)
    for count in range(rounds + 1):
        dice.shuffle(order)
        for name in order:
            value = actions[name]()
            if count > 0:
                samples[name].append(value)
    return samples


def put(kind, count):
    """Puts the input file of that kind and size where the programs look for it."""
    PLACES[kind].unlink(missing_ok=True)
    PLACES[kind].symlink_to(DATA / f"{kind}.{count}")


# Start and memory


def time_to_prompt(command, prompt):
    with start_on_terminal(command) as process:
        return process.time_to(prompt)


def count_instructions(name):
    """Returns the number of user instructions from a program's start until it waits for a key. callgrind
    writes its totals when a signal ends the program."""
    command, prompt = PROMPTS[name]
    profile = DATA / f"callgrind.{name}"
    valgrind = ["/usr/bin/valgrind", "-q", "--tool=callgrind", "--vgdb=no", "--log-file=/dev/null"]
    with start_on_terminal([*valgrind, f"--callgrind-out-file={profile}", *command]) as process:
        process.read_until(prompt)
        process.wait_until_idle()
        os.kill(process.pid, signal.SIGUSR1)
        os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT)
    return int(re.search(r"^(?:summary|totals): (\d+)", profile.read_text(), re.MULTILINE)[1])


def memory_at_prompt(name, kind):
    command, prompt = PROMPTS[name]
    with start_on_terminal(command) as process:
        process.read_until(prompt)
        process.wait_until_idle()
        rollup = Path(f"/proc/{process.pid}/smaps_rollup").read_text()
    return int(re.search(rf"^{kind}: +(\d+) kB", rollup, re.MULTILINE)[1]) * 1024


def measure_start(scale):
    starts = {name: partial(time_to_prompt, *pair) for name, pair in PROMPTS.items()}
    pair = ("tessel", "minimal")
    results = {"start": in_turns(scale.rounds, starts)}
    results["instructions"] = {name: [count_instructions(name)] for name in pair}
    for kind in ("Private_Dirty", "Rss"):
        actions = {name: partial(memory_at_prompt, name, kind) for name in pair}
        results[kind] = in_turns(max(scale.rounds // 10, 2), actions)
    return results


# Keys


def time_keys(process):
    """Types a character and deletes it, several times. Returns the time of each echo."""
    times = []
    for _ in range(KEYS_AT_A_TIME):
        start = time.perf_counter()
        os.write(process.keyboard, b"x")
        os.read(process.screen, 1024)
        times.append(time.perf_counter() - start)
        os.write(process.keyboard, b"\x7f")
        os.read(process.screen, 1024)
    return times


def measure_keys(scale):
    bash = start_on_terminal(BASH)
    minimal = start_on_terminal(MINIMAL)
    with log_in(start_on_terminal(TESSEL)) as tessel, minimal, bash:
        minimal.read_until(USER_PROMPT)
        minimal.time_line(b"\n")
        bash.read_until(PROMPTS["bash"][1])
        processes = {"tessel": tessel, "minimal": minimal, "bash": bash}
        for process in processes.values():
            process.wait_until_idle()
        actions = {name: partial(time_keys, process) for name, process in processes.items()}
        samples = in_turns(scale.keys // KEYS_AT_A_TIME, actions)
    return {"key": {name: sum(times, []) for name, times in samples.items()}}


# Commands


def compare_with_loop(scale, start, line, *loop):
    """Returns samples of a command of the shell and of a C loop that prints the same."""
    with log_in(start(TESSEL)) as tessel, start([LOOPS, *loop]) as loops:
        loops.read_until(LOOPS_PROMPT)
        actions = {
            "tessel": partial(tessel.time_line, line),
            "loop": partial(loops.time_line, b"\n", LOOPS_PROMPT),
        }
        return in_turns(scale.rounds, actions)


def time_save(session):
    session.time_line(b"a=1\n")
    return session.time_line(b"save\n")


def time_lookup(session, name):
    """Returns the time from the typed line to the heading or the refusal."""
    known = name == LAST_EXTENSION
    ending = f"for extension {name}\n\n" if known else "There is no such an extension\n"
    elapsed = session.time_line(f"get part000003 {name}\n".encode(), ending.encode())
    session.read_until(SHELL_PROMPT)
    return elapsed


def compare_with_grep(scale, session, name, number):
    """Returns samples of get for an extension and of grep for its line in the database."""
    line = extension_entry(number, name).strip()
    grep = ["/usr/bin/grep", "-Fxq", line, str(PLACES["extensions"])]
    actions = {"tessel": partial(time_lookup, session, name), "grep": partial(time_run, grep)}
    return in_turns(scale.rounds, actions)


def measure_commands(scale):
    loop = ("pieces", str(PLACES["summary"]))
    line = b"get part000000\n"
    results = {
        "get_pipe": compare_with_loop(scale, start_on_pipes, line, *loop),
        "get_terminal": compare_with_loop(scale, start_on_terminal, line, *loop),
    }
    with log_in(start_on_pipes(TESSEL)) as session:
        sed = [*SED, str(PLACES["answer"])]
        actions = {"tessel": partial(time_save, session), "sed": partial(time_run, sed)}
        results["save"] = in_turns(scale.rounds, actions)
        for name, number in ((LAST_EXTENSION, scale.extensions - 1), (ABSENT_EXTENSION, scale.extensions)):
            results[f"lookup_{name}"] = compare_with_grep(scale, session, name, number)
    put("menu", "list")
    results["list"] = compare_with_loop(scale, start_on_pipes, b"list\n", "lines", "/data/listing")
    return results


# Growth


def growth_of(scale, kind, least, action):
    """Returns {size: samples} of the action, with an input file of each size put in place beforehand."""

    def at_size(count):
        put(kind, count)
        return action()

    return in_turns(
        scale.growth_rounds, {str(count): partial(at_size, count) for count in growing(least)}
    )


def measure_growth(scale):
    items, extensions, size = scale.least
    start = partial(time_to_prompt, TESSEL, USER_PROMPT)
    results = {"grow_start": growth_of(scale, "menu", items, start)}
    put("menu", scale.menu_items)
    with log_in(start_on_pipes(TESSEL)) as session:
        for name, kind, least, action in (
            ("lookup", "extensions", extensions, partial(time_lookup, session, ABSENT_EXTENSION)),
            ("get", "summary", size, partial(session.time_line, b"get part000000\n")),
            ("save", "answer", size, partial(time_save, session)),
        ):
            results[f"grow_{name}"] = growth_of(scale, kind, least, action)
    return results


MEASURES = {
    "start": measure_start,
    "keys": measure_keys,
    "commands": measure_commands,
    "growth": measure_growth,
}


def main():
    _, size, results_path, *groups = sys.argv
    scale = FULL if size == "full" else QUICK
    gc.disable()
    results = {}
    for group in groups:
        signal.alarm(PATIENCE)
        put("menu", scale.menu_items)
        put("extensions", scale.extensions)
        put("summary", scale.text_size)
        put("answer", scale.text_size)
        start = time.monotonic()
        print(f"measuring {group} ", end="", file=sys.stderr, flush=True)
        results.update(MEASURES[group](scale))
        print(f"{time.monotonic() - start:.0f} s", file=sys.stderr, flush=True)
    Path(results_path).write_text(json.dumps(results), encoding="ascii")


if __name__ == "__main__":
    main()
