"""Measures the shell on a device in a sandbox and reports the figures.

usage: run.py [--quick] [--docs] FOLDER [GROUP...]

FOLDER holds a build with -DTESSEL_BENCH=ON for each linkage (default, shared, static), and may hold
armhf-default and so on; or it is a single build, used for every linkage.
Leaves results.json, performance.md, performance.svg and the callgrind profiles in FOLDER.
"""

import json
import os
import shutil
import subprocess
import sys
from pathlib import Path

import report
from device import FULL, QUICK, SOURCE_DIR, make_device

GROUPS = ("sizes", "start", "keys", "commands", "growth")
LINKAGES = ("shared", "default", "static")
ELF_TYPE = slice(16, 18)
SHARED_OBJECT = b"\3\0"  # or a position-independent program


def program_folder(folder, name):
    return folder if (folder / "tessel").exists() else folder / name


def sandbox(root, folder, command):
    """Returns the command line that runs a command on the device."""
    line = ["bwrap", "--unshare-all", "--die-with-parent", "--hostname", "gateway"]
    if os.geteuid() != 0:
        line += ["--unshare-user", "--uid", "0", "--gid", "0"]
    line += ["--bind", root, "/", "--ro-bind", "/usr", "/usr", "--proc", "/proc", "--dev", "/dev"]
    for directory in ("lib", "lib32", "lib64", "libx32", "sbin"):
        if not os.path.islink("/" + directory):
            line += ["--ro-bind-try", "/" + directory, "/" + directory]
    for linkage in LINKAGES:
        line += ["--ro-bind", program_folder(folder, linkage), f"/build/{linkage}"]
    line += ["--ro-bind", SOURCE_DIR / "benchmarks", "/benchmarks", "--chdir", "/", *command]
    return list(map(str, line))


def measure_sizes(folder):
    """Returns {architecture: {linkage: bytes}} of the stripped programs that were built."""
    native = subprocess.check_output(["dpkg", "--print-architecture"], text=True).strip()
    sizes = {}
    for architecture, prefix, strip in (
        (native, "", "strip"),
        ("armhf", "armhf-", "arm-linux-gnueabihf-strip"),
    ):
        if prefix and not (folder / f"{prefix}default").exists():
            continue
        sizes[architecture] = {}
        for linkage in LINKAGES:
            program = program_folder(folder, prefix + linkage) / "tessel"
            subprocess.run([strip, "-o", folder / "stripped", program], check=True)
            sizes[architecture][linkage] = (folder / "stripped").stat().st_size
    return sizes


def is_position_independent(program):
    with open(program, "rb") as file:
        return file.read(ELF_TYPE.stop)[ELF_TYPE] == SHARED_OBJECT


def measure(folder, quick, groups):
    # Until the file is on disk, its pages count as dirty memory of the program.
    os.sync()
    root = folder / "device"
    make_device(root, program_folder(folder, "default"), QUICK if quick else FULL)
    command = ["/usr/bin/python3", "-B", "/benchmarks/measure.py", "quick" if quick else "full"]
    environment = {"PATH": "/bin:/usr/bin", "HOME": "/", "TERM": "xterm"}
    subprocess.run(
        sandbox(root, folder, [*command, "/data/results.json", *groups]), check=True, env=environment
    )
    results = json.loads((root / "data" / "results.json").read_text())
    for profile in (root / "data").glob("callgrind.*"):
        shutil.copy(profile, folder)
    shutil.rmtree(root)
    return results


def main(arguments):
    options = {word for word in arguments if word.startswith("--")}
    folder, *groups = [word for word in arguments if word not in options] or [None]
    if folder is None or not options <= {"--quick", "--docs"} or not set(groups) <= set(GROUPS):
        sys.exit(__doc__)
    folder = Path(folder).resolve()
    wanted = [group for group in GROUPS if not groups or group in groups]
    results = {}
    if "sizes" in wanted:
        results["sizes"] = measure_sizes(folder)
        static = program_folder(folder, "static") / "tessel"
        results["position_independent"] = is_position_independent(static)
    in_sandbox = [group for group in wanted if group != "sizes"]
    if in_sandbox:
        results.update(measure(folder, "--quick" in options, in_sandbox))
    (folder / "results.json").write_text(json.dumps(results))
    scale = QUICK if "--quick" in options else FULL
    report.write(results, scale, wanted, folder, "--docs" in options and not groups)


if __name__ == "__main__":
    main(sys.argv[1:])
