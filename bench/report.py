"""Turns samples into a table and a picture, and tells what was not measured."""

import datetime
import math
import os
import platform
import re
import statistics
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

from picture import draw
from scale import FULL, QUICK

DOCS = Path(__file__).resolve().parent.parent / "docs"
BEGIN = "<!-- measured: begin -->\n"
END = "<!-- measured: end -->\n"

# How a unit is shown: its factor and its decimals.
UNITS = {
    "ms": (1e3, 2),
    "µs": (1e6, 1),
    "KiB": (1 / 1024, 1),
    "": (1, 0),
    "writes": (1, 4),
}


@dataclass(frozen=True)
class Row:
    """One line of the table: two sets of samples, what is made of them and what is to be reached."""

    what: str
    against: str
    measurement: str
    unit: str
    limit: float = None  # of the comparison; None: shown as it is
    compare: str = "ratio"  # or "more" (difference), "equal", "ahead" (ratio below the limit)
    subject: str = "tessel"
    other: str = "floor"
    share: float = 0.5  # the quantile that is compared


def rows(scale):
    """The table's lines in their order."""
    small, large = scale.answer_sizes
    items, text = max(scale.menu_sizes), f"{scale.text_size >> 20} MiB"
    start = "start to the user-name prompt, 60 menu items"
    loop, floor = "C loop, 255 bytes a piece", "floor"
    return (
        Row(start, "floor, C++ library inside", "start", "ms", 1.1),
        Row(
            start,
            "floor, shared C++ library",
            "start",
            "ms",
            1.1,
            "ratio",
            "tessel_shared",
            "floor_shared",
        ),
        Row(start, "bash --norc -i", "start", "ms", 1, "ahead", other="bash"),
        Row(start, "lftp", "start", "ms", 1, "ahead", other="lftp"),
        Row(start, "sqlite3", "start", "ms", 1, "ahead", other="sqlite3"),
        Row(start, "vtysh", "start", "ms", 1, "ahead", other="vtysh"),
        Row(start, "dash -i (does not edit lines)", "start", "ms", other="dash"),
        Row(start, "busybox ash (small editor of its own)", "start", "ms", other="busybox ash"),
        Row("user instructions to the prompt", floor, "instructions", "", 1.15),
        Row("private dirty memory at the prompt", floor, "dirty", "KiB", 1.15),
        Row("peak resident size at the prompt", floor, "peak", "KiB", 1.15),
        Row("system calls to the prompt", floor, "calls", "", 30, "more"),
        Row("system calls per key", floor, "calls_per_key", "", 0, "equal"),
        Row("key to echo, median", floor, "key", "µs", 1.1),
        Row("key to echo, 99th percentile", floor, "key", "µs", 1.5, share=0.99),
        Row("key to echo, median", "bash", "key", "µs", 1.1, other="bash"),
        Row("key to echo, 99th percentile", "bash", "key", "µs", 1.5, other="bash", share=0.99),
        Row(f"`get` of {text}, into a pipe", loop, "get_pipe", "ms", 0.75),
        Row(f"`get` of {text}, on a terminal", loop, "get_terminal", "ms", 1.0),
        Row("writes per piece on a terminal", "one", "get_writes", "writes", 0, "equal"),
        Row(
            f"`save`, answer of {text} in lines of 100 bytes",
            "sed, six replacements",
            "save_lines",
            "ms",
            0.5,
        ),
        Row(
            f"`save`, answer of {text} in one line", "sed, six replacements", "save_line", "ms", 0.5
        ),
        Row(
            f"`save`, answer of {large >> 10} KiB",
            f"`save`, {small >> 10} KiB",
            "save_growth",
            "ms",
            4.5,
        ),
        Row(
            f"`get` for an absent extension among {scale.extensions:,}",
            "grep -Fxq",
            "extension",
            "ms",
            1.5,
        ),
        Row(
            "peak resident size after that",
            "the database's size",
            "extension_peak",
            "KiB",
            4 << 20,
            "more",
        ),
        Row(f"start with {items:,} menu items", "mawk, extracting the same", "menu", "ms", 0.6),
        Row(
            f"`list` of {scale.listed_parts:,} parts, into a pipe",
            "C loop, a write a line",
            "list",
            "ms",
            1.1,
        ),
        Row("stripped program, shared C++ library", floor, "size_shared", "KiB", 64 << 10, "more"),
        Row("stripped program, C++ library inside", floor, "size_static", "KiB", 64 << 10, "more"),
    )


# What is made of samples


def quantile(samples, share):
    ordered = sorted(samples)
    return ordered[min(len(ordered) - 1, math.floor(share * len(ordered)))]


def typical(samples, share):
    return statistics.median(samples) if share == 0.5 else quantile(samples, share)


def compared(row, results):
    subject, other = (
        typical(results[row.measurement][name], row.share) for name in (row.subject, row.other)
    )
    return subject - other if row.compare in ("more", "equal") else subject / other


def reached(row, value):
    if row.compare == "equal":
        return value == row.limit
    return value < row.limit if row.compare == "ahead" else value <= row.limit


def exponent(points):
    """The power of n that fits the (n, value) pairs best."""
    logs = [(math.log(n), math.log(value)) for n, value in points]
    mean_x = statistics.fmean(x for x, _ in logs)
    mean_y = statistics.fmean(y for _, y in logs)
    return sum((x - mean_x) * (y - mean_y) for x, y in logs) / sum(
        (x - mean_x) ** 2 for x, _ in logs
    )


def menu_growth(results, scale):
    """(items, seconds beyond the start with the usual menu) for every size. Of the fastest starts:
    what other programs take from the machine is not to be taken for growth."""
    growth = results["menu_growth"]
    usual = min(growth["menu.usual"])
    return [(items, max(min(growth[f"menu.{items}"]) - usual, 1e-6)) for items in scale.menu_sizes]


# The table


def shown(value, unit):
    factor, decimals = UNITS[unit]
    return f"{value * factor:,.{decimals}f}" + (f" {unit}" if unit in ("ms", "µs", "KiB") else "")


def shown_samples(samples, unit, share):
    text = shown(typical(samples, share), unit)
    if len(samples) < 2:
        return text
    if share != 0.5:
        return f"{text} (of {len(samples)})"
    factor, decimals = UNITS[unit]
    low, high = (f"{quantile(samples, part) * factor:,.{decimals}f}" for part in (0.25, 0.75))
    return f"{text} ({low} to {high})"


def shown_comparison(row, value):
    if row.compare == "more":
        return shown(value, row.unit) + " more"
    if row.compare == "equal":
        return "equal" if value == 0 else f"{value:+.6f}"
    return f"{value:.2f} x"


def shown_limit(row):
    if row.limit is None:
        return "shown as it is"
    if row.compare == "more":
        return shown(row.limit, row.unit) + " more"
    return {"equal": "equal", "ahead": "ahead"}.get(row.compare, f"{row.limit:g} x")


def table_line(row, results):
    value = compared(row, results)
    samples = results[row.measurement]
    cells = (
        row.what,
        row.against,
        shown_samples(samples[row.subject], row.unit, row.share),
        shown_samples(samples[row.other], row.unit, row.share),
        shown_comparison(row, value),
        shown_limit(row),
        "" if row.limit is None else "yes" if reached(row, value) else "**no**",
    )
    return "| " + " | ".join(cells) + " |"


def main_table(results, scale):
    lines = ["| what | against | tessel | the other | compared | to reach | reached |"]
    lines += ["|---|---|--:|--:|--:|--:|---|"]
    lines += [table_line(row, results) for row in rows(scale) if row.measurement in results]
    return "\n".join(lines) + "\n"


def menu_table(results, scale):
    points = menu_growth(results, scale)
    lines = [
        "| menu items | fastest start, beyond that with 60 items | for each item |",
        "|--:|--:|--:|",
    ]
    lines += [
        f"| {items:,} | {shown(seconds, 'ms')} | {seconds / items * 1e9:,.0f} ns |"
        for items, seconds in points
    ]
    return "\n".join(lines) + f"\n\nFitted order of growth: n^{exponent(points):.2f}.\n"


def functions_table(benchmarks):
    lines = [
        "| function | measured from | to | for each | fitted order | error of the fit | power of n |",
        "|---|--:|--:|--:|---|--:|--:|",
    ]
    names = dict.fromkeys(entry["run_name"].split("/")[0] for entry in benchmarks)
    for name in names:
        entries = [entry for entry in benchmarks if entry["name"].startswith(name + "/")]
        points = [(int(entry["name"].split("/")[1]), entry["cpu_time"]) for entry in entries]
        fit = {
            entry["name"][len(name) :]: entry
            for entry in benchmarks
            if entry["name"].startswith(name)
        }
        count, time = points[-1]
        lines.append(
            f"| `{name}` | {points[0][0]:,} | {count:,} | {time / count:,.1f} ns |"
            f" {fit['_BigO']['big_o']} | {fit['_RMS']['rms']:.0%} | {exponent(points):.2f} |"
        )
    return "\n".join(lines) + "\n"


def machine():
    model = re.search(r"^model name\s*:\s*(.*)", Path("/proc/cpuinfo").read_text(), re.MULTILINE)
    system = re.search(
        r'^PRETTY_NAME="?([^"\n]*)', Path("/etc/os-release").read_text(), re.MULTILINE
    )
    compiler = subprocess.run(
        ["c++", "--version"], capture_output=True, text=True, check=True
    ).stdout
    return (
        f"{model[1] if model else platform.machine()}, {os.cpu_count()} cores,"
        f" {platform.system()} {platform.release()}, {system[1]}, {compiler.splitlines()[0]}"
    )


def text_of(results, scale):
    today = datetime.date.today()
    load, *_ = os.getloadavg()
    parts = ["A trial run: these figures say little.\n"] if scale is QUICK else []
    parts += [
        f"Measured on {today} on {machine()}; load at the end: {load:.1f}.\n",
        "Medians, with the quartiles in brackets. The C++ library is inside where nothing else is said.\n",
        main_table(results, scale),
    ]
    if "menu_growth" in results:
        parts.append(menu_table(results, scale))
    if "functions" in results:
        parts.append(functions_table(results["functions"]))
    return "\n".join(parts)


# What the figures are for


def unmeasured(results, scale):
    """Names of the measurements that are missing or empty."""
    needed = {(row.measurement, name) for row in rows(scale) for name in (row.subject, row.other)}
    needed |= {("menu_growth", f"menu.{items}") for items in scale.menu_sizes}
    missing = [
        f"{measurement}: {name}"
        for measurement, name in sorted(needed)
        if not results.get(measurement, {}).get(name)
    ]
    if not any(entry["name"].endswith("_BigO") for entry in results.get("functions", [])):
        missing.append("functions")
    return missing


def put_into_docs(text):
    page = DOCS / "performance.md"
    before, rest = page.read_text(encoding="utf-8").split(BEGIN)
    _, after = rest.split(END)
    page.write_text(before + BEGIN + text + END + after, encoding="utf-8")


def write(results, quick, folder, into_docs, partial):
    """Prints the table, leaves it and the picture in the folder, and in the docs if they are to be
    there. Ends the program with status 1 when anything was not measured, unless only a part was
    asked for."""
    scale = QUICK if quick else FULL
    missing = [] if partial else unmeasured(results, scale)
    if missing:
        sys.exit("bench: not measured: " + ", ".join(missing))
    text = text_of(results, scale)
    print(text)
    (folder / "performance.md").write_text(text, encoding="utf-8")
    if partial:
        return
    picture = draw(results, [(row, compared(row, results)) for row in rows(scale)])
    (folder / "performance.svg").write_text(picture, encoding="utf-8")
    if into_docs:
        put_into_docs(text)
        (DOCS / "performance.svg").write_text(picture, encoding="utf-8")
