"""Measures on a device in a sandbox and reports.

usage: run.py [--quick] [--docs] BUILD_DIR [GROUP...]

BUILD_DIR is a build with -DTESSEL_BENCH=ON. Leaves bench/results.json, bench/performance.md and
bench/performance.svg in it. --quick measures just enough to see that everything can be measured;
--docs puts table and picture into docs/.
"""

import json
import os
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

import report  # noqa: E402
from device import SOURCE_DIR, make_device  # noqa: E402
from scale import FULL, QUICK  # noqa: E402


# Programs to compare with that are better not installed: one starts a service, one takes the place
# of the system's own.
OTHERS = SOURCE_DIR / "build" / "others"
OTHER_PACKAGES = ("frr", "busybox-static")


def unpack_others():
    architecture = subprocess.check_output(["dpkg", "--print-architecture"], text=True).strip()
    make = [SOURCE_DIR / "scripts" / "make_sysroot", architecture, OTHERS, *OTHER_PACKAGES]
    OTHERS.parent.mkdir(exist_ok=True)
    subprocess.run(["flock", f"{OTHERS}.lock", *make], check=True)


def sandbox(root, build, command):
    """The command line that runs a command on the device."""
    line = ["bwrap", "--unshare-all", "--die-with-parent", "--hostname", "gateway"]
    if os.geteuid() != 0:
        line += ["--unshare-user", "--uid", "0", "--gid", "0"]
    line += ["--bind", root, "/", "--ro-bind", "/usr", "/usr", "--proc", "/proc", "--dev", "/dev"]
    for directory in ("lib", "lib32", "lib64", "libx32", "sbin"):
        if not os.path.islink("/" + directory):
            line += ["--ro-bind-try", "/" + directory, "/" + directory]
    line += ["--ro-bind", build, "/build", "--ro-bind", SOURCE_DIR / "bench", "/bench"]
    line += ["--ro-bind", OTHERS, "/others"]
    line += ["--chdir", "/", *command]
    return list(map(str, line))


def stripped_sizes(build, scratch):
    sizes = {}
    for linkage in ("shared", "static"):
        for name in ("tessel", "floor"):
            stripped = scratch / f"{name}_{linkage}"
            program = build / "bench" / f"{name}_{linkage}"
            subprocess.run(["strip", "-o", stripped, program], check=True)
            sizes.setdefault(f"size_{linkage}", {})[name] = [stripped.stat().st_size]
    return sizes


def measure(build, quick, groups):
    unpack_others()
    # What was just built would count as memory that has been written.
    os.sync()
    with tempfile.TemporaryDirectory(prefix="tessel-bench-") as folder:
        root = Path(folder) / "root"
        make_device(root, QUICK if quick else FULL)
        size = "quick" if quick else "full"
        command = ["/usr/bin/python3", "-B", "/bench/measure.py", size, "/data/results.json"]
        environment = {"PATH": "/bin:/usr/bin", "HOME": "/", "TERM": "xterm"}
        subprocess.run(sandbox(root, build, command + groups), check=True, env=environment)
        results = json.loads((root / "data" / "results.json").read_text())
        results.update(stripped_sizes(build, Path(folder)))
    return results


def main(arguments):
    options = [word for word in arguments if word.startswith("--")]
    words = [word for word in arguments if not word.startswith("--")]
    if not words or not set(options) <= {"--quick", "--docs"}:
        sys.exit(__doc__)
    build = Path(words[0]).resolve()
    quick = "--quick" in options
    results = measure(build, quick, words[1:])
    (build / "bench" / "results.json").write_text(json.dumps(results))
    report.write(results, quick, build / "bench", "--docs" in options, partial=bool(words[1:]))


if __name__ == "__main__":
    main(sys.argv[1:])
