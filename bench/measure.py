"""Measures on the device, within its sandbox, and writes all samples to a JSON file.

usage: measure.py quick|full RESULTS

A measurement is a name and, for every program measured side by side, its samples. Programs take
turns within every round.
"""

import gc
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

import processes
from processes import SHELL_PROMPT, log_in_on_pipes, log_in_on_terminal, start_on_terminal
from scale import FULL, KEYS_AT_A_TIME, QUICK

DATA = Path("/data")
SCRATCH = Path("/data/scratch")
BUILD = "/build/bench/"
MENU = "/etc/menutree.conf"
SUMMARY = "/tmp/script_legconftmp.txt"
EXTENSIONS = "/etc/tarn-conf/telephony/extensiondb"

OTHERS = Path("/others")


def unpacked(program):
    """The start of a command line that runs an unpacked program with the libraries unpacked with it."""
    (loader,) = OTHERS.glob("lib*/ld-linux*.so.*")
    (libraries,) = OTHERS.glob("usr/lib/*-linux-gnu*")
    return [str(loader), "--library-path", f"{libraries}:{libraries}/frr", f"{OTHERS}{program}"]


TESSEL = [BUILD + "tessel_static"]
FLOOR = [BUILD + "floor_static"]
USER_PROMPT = rb"Username: "
PIECE_SIZE = 255  # bytes of a summary that are written at a time

# name: command and the end of its prompt
PROMPTS = {
    "tessel": (TESSEL, USER_PROMPT),
    "floor": (FLOOR, USER_PROMPT),
    "tessel_shared": ([BUILD + "tessel_shared"], USER_PROMPT),
    "floor_shared": ([BUILD + "floor_shared"], USER_PROMPT),
    "bash": (["/usr/bin/bash", "--norc", "-i"], rb"[#$] "),
    "dash": (["/usr/bin/dash", "-i"], rb"[#$] "),
    "busybox ash": (["/others/bin/busybox", "ash"], rb"[#$] (\x1b\[6n)?"),
    "lftp": (["/usr/bin/lftp"], rb"lftp :~> "),
    "sqlite3": (["/usr/bin/sqlite3"], rb"sqlite> "),
    "vtysh": (unpacked("/usr/bin/vtysh"), rb"# "),
}
SED = ["/usr/bin/sed", "-e", r"s/\\n/\n/g", "-e", "s/#ERROR/Error in /g"]
SED += [
    "-e",
    "s/#ERROR_GLOBAL/Error: /g",
    "-e",
    "s/#VAL/=/g",
    "-e",
    "s/#MSG/. /g",
    "-e",
    "s/#END//g",
]


def in_turns(rounds, actions):
    """Calls every action once a round, after a round that does not count. Returns the samples. The
    order changes: what follows a large program finds the caches cold, what follows one of its kind
    warm."""
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


# Start


def time_to_prompt(command, prompt):
    process, start = start_on_terminal(command)
    with process:
        return process.read_until(prompt) - start


def start_vtysh_daemon():
    os.makedirs("/run/frr", exist_ok=True)
    subprocess.run(
        unpacked("/usr/lib/frr/staticd")
        + ["-u", "root", "-g", "root", "-d", "-f", "/dev/null", "-P", "0"],
        check=True,
        stderr=subprocess.DEVNULL,
    )


def measure_start(scale):
    start_vtysh_daemon()
    actions = {
        name: lambda command=command, prompt=prompt: time_to_prompt(command, prompt)
        for name, (command, prompt) in PROMPTS.items()
    }
    return {"start": in_turns(scale.rounds, actions)}


def count_instructions(command):
    """User instructions from the program's first one to where it waits for a key: callgrind writes
    its totals when a signal ends the program."""
    totals = SCRATCH / "callgrind.out"
    valgrind = ["/usr/bin/valgrind", "-q", "--tool=callgrind", "--vgdb=no"]
    valgrind += [f"--log-file={SCRATCH}/valgrind.log", f"--callgrind-out-file={totals}"]
    process, _ = start_on_terminal(valgrind + command)
    with process:
        process.read_until(USER_PROMPT)
        process.wait_until_idle()
        os.kill(process.pid, signal.SIGUSR1)
        os.waitpid(process.pid, 0)
        process.pid = None
    return int(re.search(r"^(?:summary|totals): (\d+)", totals.read_text(), re.MULTILINE)[1])


def count_calls(command, log_in, keys):
    """System calls from the program's start to where it waits, that many keys after a prompt."""
    trace = SCRATCH / "trace"
    process, _ = start_on_terminal(["/usr/bin/strace", "-o", str(trace)] + command)
    with process:
        process.read_until(USER_PROMPT)
        log_in(process)
        for _ in range(keys):
            process.type(b"x")
            process.read_until(b"x")
        child = processes.only_child(process.pid)
        process.wait_until_idle(child)
        processes.kill(child, signal.SIGKILL)
        os.waitpid(process.pid, 0)
        process.pid = None
    return sum(line[0].isalpha() for line in trace.read_text().splitlines())


def stay(_process):
    pass


def log_in_to_shell(process):
    process.type(b"admin\r")
    process.read_until(rb"Password: ")
    process.type(b"gateway\r")
    process.read_until(SHELL_PROMPT)


def pass_user_prompt(process):
    process.type(b"\r")
    process.read_until(SHELL_PROMPT)


def calls_per_key(command, log_in, keys):
    return (count_calls(command, log_in, keys) - count_calls(command, log_in, 0)) / keys


def measure_counts(scale):
    keys = scale.counted_keys
    return {
        "instructions": {
            "tessel": [count_instructions(TESSEL)],
            "floor": [count_instructions(FLOOR)],
        },
        "calls": {"tessel": [count_calls(TESSEL, stay, 0)], "floor": [count_calls(FLOOR, stay, 0)]},
        "calls_per_key": {
            "tessel": [calls_per_key(TESSEL, log_in_to_shell, keys)],
            "floor": [calls_per_key(FLOOR, pass_user_prompt, keys)],
        },
    }


def memory_at_prompt(command, prompt):
    process, _ = start_on_terminal(command)
    with process:
        process.read_until(prompt)
        process.wait_until_idle()
        return process.memory()


def measure_memory(scale):
    pairs = in_turns(
        scale.long_rounds,
        {name: lambda pair=PROMPTS[name]: memory_at_prompt(*pair) for name in ("tessel", "floor")},
    )
    return {
        "dirty": {name: [dirty for dirty, _ in samples] for name, samples in pairs.items()},
        "peak": {name: [peak for _, peak in samples] for name, samples in pairs.items()},
    }


# Keys


def time_keys(process, count):
    """Types a character and takes it back, that many times. Returns how long each echo took."""
    times = []
    for _ in range(count):
        start = time.perf_counter()
        os.write(process.keyboard, b"x")
        os.read(process.screen, 1024)
        times.append(time.perf_counter() - start)
        os.write(process.keyboard, b"\x7f")
        os.read(process.screen, 1024)
    return times


def measure_keys(scale):
    floor, _ = start_on_terminal(FLOOR)
    bash, _ = start_on_terminal(PROMPTS["bash"][0])
    with log_in_on_terminal(TESSEL) as tessel, floor, bash:
        floor.read_until(USER_PROMPT)
        pass_user_prompt(floor)
        bash.read_until(PROMPTS["bash"][1])
        samples = {"tessel": [], "floor": [], "bash": []}
        typists = {"tessel": tessel, "floor": floor, "bash": bash}
        for process in typists.values():
            process.wait_until_idle()
            time_keys(process, KEYS_AT_A_TIME)
        for _ in range(scale.keys // KEYS_AT_A_TIME):
            for name, process in typists.items():
                samples[name] += time_keys(process, KEYS_AT_A_TIME)
    return {"key": samples}


# Commands


def rest_of_session(log_in, line):
    """How long a command takes in a session that then ends, its output read to the end."""
    with log_in(TESSEL) as session:
        return session.run_to_end(line + b"\nexit\n")


def whole_run(command):
    """How long a program takes, its output read to the end through a pipe."""
    start = time.perf_counter()
    process = processes.start_on_pipes(command)
    with process:
        process.run_to_end()
        return time.perf_counter() - start


def whole_run_on_terminal(command):
    process, start = start_on_terminal(command)
    with process:
        process.run_to_end()
        return time.perf_counter() - start


def measure_get(scale):
    loop = [BUILD + "floor_pieces", SUMMARY]
    return {
        "get_pipe": in_turns(
            scale.long_rounds,
            {
                "tessel": lambda: rest_of_session(log_in_on_pipes, b"get part000000"),
                "floor": lambda: whole_run(loop),
            },
        ),
        "get_terminal": in_turns(
            scale.long_rounds,
            {
                "tessel": lambda: rest_of_session(log_in_on_terminal, b"get part000000"),
                "floor": lambda: whole_run_on_terminal(loop),
            },
        ),
        "get_writes": {"tessel": [writes_per_piece()], "floor": [1.0]},
    }


# A write that has come to its end. One that is interrupted before it begins starts again.
WRITTEN = re.compile(r" (write\(1, |<\.\.\. write resumed>).*= \d+$")


def writes_per_piece():
    """Writes to the terminal between the heading of get and what closes it, by pieces."""
    trace = SCRATCH / "writes"
    strace = ["/usr/bin/strace", "--seccomp-bpf", "-f", "-e", "trace=write", "-o", str(trace)]
    with log_in_on_terminal(strace + TESSEL) as process:
        process.type(b"get part000000\r")
        process.read_until(rb"\r\n\r\n.*" + SHELL_PROMPT)
        process.type(b"exit\r")
        os.waitpid(process.pid, 0)
        process.pid = None
    writes = None
    with open(trace, encoding="ascii") as lines:
        for line in lines:
            if 'write(1, "\\nPart number 0\\n\\n"' in line:
                writes = 0
            elif 'write(1, "\\n\\n", 2)' in line:
                break
            elif writes is not None:
                writes += bool(WRITTEN.search(line))
    return writes / -(-os.path.getsize(SUMMARY) // PIECE_SIZE)


def put_answer(name):
    shutil.copyfile(DATA / name, DATA / "answer")


def save_time(log_in=log_in_on_pipes):
    with log_in(TESSEL) as session:
        session.type(b"a=1\n")
        session.read_until(SHELL_PROMPT)
        return session.run_to_end(b"save\nexit\n")


def save_time_within_session(name):
    put_answer(name)
    with log_in_on_pipes(TESSEL) as session:
        session.type(b"a=1\n")
        session.read_until(SHELL_PROMPT)
        start = time.perf_counter()
        session.type(b"save\n")
        return session.read_until(SHELL_PROMPT) - start


def measure_save(scale):
    results = {}
    for layout in ("lines", "line"):
        put_answer(f"answer.{layout}")
        results[f"save_{layout}"] = in_turns(
            scale.long_rounds,
            {"tessel": save_time, "floor": lambda: whole_run([*SED, "/data/answer"])},
        )
    small, large = scale.answer_sizes
    results["save_growth"] = in_turns(
        scale.rounds // 2,
        {
            "tessel": lambda: save_time_within_session(f"answer.{large}"),
            "floor": lambda: save_time_within_session(f"answer.{small}"),
        },
    )
    return results


def get_absent_extension(session):
    start = time.perf_counter()
    session.type(b"get part000003 999\n")
    return session.read_until(SHELL_PROMPT) - start


def measure_extensions(scale):
    grep = ["/usr/bin/grep", "-Fxq", "999", EXTENSIONS]
    with log_in_on_pipes(TESSEL) as session:
        times = in_turns(
            scale.rounds // 2,
            {
                "tessel": lambda: get_absent_extension(session),
                "floor": lambda: processes.run(grep)[0],
            },
        )
        peak = session.memory()[1]
    return {
        "extension": times,
        "extension_peak": {"tessel": [peak], "floor": [os.path.getsize(EXTENSIONS)]},
    }


def start_with_menu(name):
    shutil.copyfile(DATA / name, MENU)
    return time_to_prompt(TESSEL, USER_PROMPT)


def measure_menu(scale):
    largest = max(scale.menu_sizes)
    awk = ["/usr/bin/mawk", "-f", "/bench/floors/menu_tree.awk", str(DATA / f"menu.{largest}")]
    shutil.copyfile(DATA / f"menu.{largest}", MENU)
    results = {
        "menu": in_turns(
            scale.rounds // 4 + 1,
            {
                "tessel": lambda: time_to_prompt(TESSEL, USER_PROMPT),
                "floor": lambda: processes.run(awk)[0],
            },
        )
    }
    names = ["menu.usual"] + [f"menu.{items}" for items in scale.menu_sizes]
    results["menu_growth"] = in_turns(
        scale.rounds // 4 + 1, {name: lambda name=name: start_with_menu(name) for name in names}
    )
    shutil.copyfile(DATA / "menu.usual", MENU)
    return results


# The end of the session counts; after several lists it weighs little.
LISTS_IN_A_ROW = 10


def measure_list(scale):
    shutil.copyfile(DATA / "menu.list", MENU)
    lines = SCRATCH / "lines"
    awk = ["/usr/bin/mawk", "-f", "/bench/floors/menu_tree.awk", MENU]
    listing = subprocess.run(awk, check=True, capture_output=True, text=True).stdout
    names_and_captions = [line.split(" ", 2)[1:] for line in sorted(listing.splitlines())]
    listed = "".join(f"{name} ({caption})\n" for name, caption in names_and_captions)
    lines.write_text(listed * LISTS_IN_A_ROW, encoding="ascii")
    typed = b"\n".join([b"list"] * LISTS_IN_A_ROW)
    results = in_turns(
        scale.long_rounds * 2,
        {
            "tessel": lambda: rest_of_session(log_in_on_pipes, typed),
            "floor": lambda: whole_run([BUILD + "floor_lines", str(lines)]),
        },
    )
    shutil.copyfile(DATA / "menu.usual", MENU)
    return {"list": results}


# Functions


def measure_functions(scale):
    """Times of functions over sizes, with the order of growth that Google Benchmark fits."""
    out = SCRATCH / "functions.json"
    command = [BUILD + "functions_bench", f"--benchmark_out={out}"]
    command += ["--benchmark_min_time=" + ("0.2" if scale is FULL else "0.001")]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return {"functions": json.loads(out.read_text())["benchmarks"]}


MEASURES = (
    measure_start,
    measure_counts,
    measure_memory,
    measure_keys,
    measure_get,
    measure_save,
    measure_extensions,
    measure_menu,
    measure_list,
    measure_functions,
)


def main():
    _, size, results_path = sys.argv[:3]
    wanted = sys.argv[3:]
    scale = FULL if size == "full" else QUICK
    SCRATCH.mkdir(exist_ok=True)
    processes.limit_waiting()
    gc.disable()
    results = {}
    for measure in MEASURES:
        name = measure.__name__.replace("measure_", "")
        if wanted and name not in wanted:
            continue
        start = time.monotonic()
        print(f"measuring {name} ", end="", file=sys.stderr, flush=True)
        results.update(measure(scale))
        print(f"{time.monotonic() - start:.0f} s", file=sys.stderr, flush=True)
    Path(results_path).write_text(json.dumps(results), encoding="ascii")


if __name__ == "__main__":
    main()
