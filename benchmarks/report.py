"""Turns samples into tables, a picture and a short answer."""

import datetime
import math
import os
import re
import shutil
import statistics
import subprocess
from collections import namedtuple
from functools import partial
from pathlib import Path

from device import ABSENT_EXTENSION, LAST_EXTENSION, QUICK, growing
from picture import draw

DOCS = Path(__file__).resolve().parent.parent / "docs"
BEGIN = "<!-- measured: begin -->\n"
END = "<!-- measured: end -->\n"
UNITS = {"ms": (1e3, 2), "µs": (1e6, 1), "KiB": (1 / 1024, 0), "": (1, 0)}  # factor, decimals
LINKED = {
    "shared": "shared C++ library",
    "inside": "C++ library inside",
    "static": "everything inside",
}
SIZE_LIMITS = {
    ("amd64", "shared"): 66_000,
    ("amd64", "inside"): 115_000,
    ("amd64", "static"): 1_560_000,
    ("armhf", "inside"): 68_000,
}
GROWTH_LIMIT = 1.1
OWN, OTHER = "#2f6fb0", "#9aa5b1"  # colours of bars

# group; what, with a star if the short answer tells it; by what it happens; what it is compared with;
# measurement, whose samples and whose others; unit; the most that the ratio may be
ROWS = """
start; *start to the prompt, ITEMS menu items; `tessel`; a bare C program with Readline; start tessel baseline; ms; 1.05
start; the same, everything inside; `tessel`; that C program, linked alike; start tessel_static baseline_static; ms; 1.05
start; *start with everything inside; `tessel`; `dash -i`, which edits no lines; start tessel_static dash; ms; 1.05
start; user instructions to the prompt; `valgrind --tool=callgrind tessel`; that C program; instructions tessel baseline; ; 1.2
start; *private dirty memory at the prompt; `/proc/PID/smaps_rollup`; a bare C program with Readline; Private_Dirty tessel baseline; KiB; 1.05
start; resident size at the prompt; `/proc/PID/smaps_rollup`; that C program; Rss tessel baseline; KiB; 1.1
keys; key to echo; `x` typed; a bare C program with Readline; key tessel baseline; µs; 1.05
keys; *key to echo; `x` typed; `bash --norc -i`; key tessel bash; µs; 1.05
commands; *`get` of TEXT KiB, pipe; `get part000000`; C loop, 255 bytes a piece: `loops pieces FILE`; get_pipe tessel loop; ms; 0.75
commands; `get` of TEXT KiB, terminal; `get part000000`; C loop, 255 bytes a piece: `loops pieces FILE`; get_terminal tessel loop; ms; 1.0
commands; *`save`, answer of TEXT KiB; `save`; `sed` with six replacements; save tessel sed; ms; 0.6
commands; *`get` for the last of EXTENSIONS extensions; `get part000003 LAST`; `grep -Fxq 'extN = LAST' FILE`; lookup_LAST tessel grep; ms; 0.6
commands; `get` for one not among EXTENSIONS extensions; `get part000003 ABSENT`; `grep -Fxq 'extN = ABSENT' FILE`; lookup_ABSENT tessel grep; ms; 0.6
commands; *`list` of PARTS parts, pipe; `list`; C loop, one write a line: `loops lines FILE`; list tessel loop; ms; 1.3
"""


Row = namedtuple("Row", "group what by against measurement subject other unit limit")


def rows(scale):
    text = ROWS.strip()
    for word, value in (
        ("ITEMS", scale.menu_items),
        ("TEXT", scale.text_size >> 10),
        ("EXTENSIONS", f"{scale.extensions:,}"),
        ("PARTS", f"{scale.listed_parts:,}"),
        ("LAST", LAST_EXTENSION),
        ("ABSENT", ABSENT_EXTENSION),
    ):
        text = text.replace(word, str(value))
    for line in text.splitlines():
        *names, samples, unit, limit = line.split("; ")
        yield Row(*names, *samples.split(), unit, float(limit))


def growths(results, scale):
    """What grows, with what, and the seconds by size, without what it takes for nothing at all. Of
    the fastest runs: what other programs take from the machine is not to be taken for growth."""
    items, extensions, size = scale.least
    for name, what, least in (
        ("start", "menu items", items),
        ("lookup", "extensions, the wanted one not among them", extensions),
        ("get", "bytes of the part", size),
        ("save", "bytes of the answer", size),
    ):
        fastest = {n: min(results[f"grow_{name}"][str(n)]) for n in growing(least)}
        nothing = fastest.pop(0)
        yield name, what, {n: max(seconds - nothing, 1e-7) for n, seconds in fastest.items()}


# What is made of samples


def typical(samples):
    """The lower quartile, on which a busy machine has less influence than on the median; and that."""
    if len(samples) < 2:
        return samples[0], samples[0]
    low, median, _ = statistics.quantiles(samples, n=4)
    return low, median


def ratios(row, results):
    subject, other = (typical(results[row.measurement][who]) for who in (row.subject, row.other))
    return [mine / its for mine, its in zip(subject, other)]


def exponent(points):
    """The power of n by which the time grows between the least and the largest n."""
    (least, first), *_, (most, last) = points.items()
    return math.log(last / first) / math.log(most / least)


# Tables


def table(heads, lines):
    """A table whose columns of figures, named with a colon after them, stand to the right."""
    cells = [[head.rstrip(":") for head in heads]]
    cells += [["--:" if head.endswith(":") else "---" for head in heads]]
    return "\n".join("| " + " | ".join(line) + " |" for line in cells + lines) + "\n"


def shown(value, unit):
    factor, decimals = UNITS[unit]
    return f"{value * factor:,.{decimals}f} {unit}".rstrip()


def shown_samples(samples, unit):
    low, median = typical(samples)
    return shown(low, unit) + ("" if len(samples) < 2 else f" ({shown(median, unit).split()[0]})")


def verdict(value, limit):
    return "yes" if value <= limit else "**no**"


def size_table(results, _scale):
    lines = []
    for architecture, sizes in results["sizes"].items():
        for linkage, size in sizes.items():
            limit = SIZE_LIMITS.get((architecture, linkage))
            reached = [f"{limit:,}", verdict(size, limit)] if limit else ["", ""]
            lines.append([architecture, LINKED[linkage], f"{size:,}", *reached])
    text = table(["program, by `strip`", "linkage", "bytes:", "at most:", "reached"], lines)
    if not results["position_independent"]:
        text += "\nWith everything inside the program is **not** position-independent.\n"
    if "armhf" not in results["sizes"]:
        text += "\narmhf was not measured: `scripts/build_target armhf` brings what it takes to build.\n"
    return text


def comparison_table(group, results, scale):
    lines = []
    for row in rows(scale):
        if row.group == group:
            low, median = ratios(row, results)
            mine, its = (results[row.measurement][who] for who in (row.subject, row.other))
            cells = [row.what.lstrip("*"), row.by, shown_samples(mine, row.unit), row.against]
            cells += [shown_samples(its, row.unit), f"{low:.2f} ({median:.2f})"]
            lines.append([*cells, f"{row.limit:g}", verdict(low, row.limit)])
    heads = ["what", "by", "tessel:", "against", "the other:", "ratio:", "at most:", "reached"]
    return table(heads, lines)


def growth_table(results, scale):
    lines = []
    for name, what, points in growths(results, scale):
        power = exponent(points)
        times = [shown(seconds, "ms") for seconds in points.values()]
        ends = [f"{power:.2f}", str(GROWTH_LIMIT), verdict(power, GROWTH_LIMIT)]
        lines.append([name, what, f"{min(points):,}", *times, *ends])
    heads = ["what", "grows with", "n:", "n more:", "10 n:", "100 n:", "1,000 n:"]
    return table([*heads, "exponent:", "at most:", "reached"], lines)


TABLES = {
    "sizes": ("Size", size_table),
    "start": ("Start and memory", partial(comparison_table, "start")),
    "keys": ("Typing", partial(comparison_table, "keys")),
    "commands": ("Commands", partial(comparison_table, "commands")),
    "growth": ("Growth", growth_table),
}


def machine():
    model = re.search(r"^model name\s*:\s*(.*)", Path("/proc/cpuinfo").read_text(), re.MULTILINE)
    system = re.search(r'^PRETTY_NAME="?([^"\n]*)', Path("/etc/os-release").read_text(), re.MULTILINE)
    compiler = subprocess.check_output(["c++", "--version"], text=True).splitlines()[0]
    return f"{model[1] if model else os.uname().machine}, {os.cpu_count()} cores, {system[1]}, {compiler}"


def tables(results, scale, groups):
    parts = ["A trial run: these figures say little.\n"] if scale is QUICK else []
    parts.append(
        f"Measured on {datetime.date.today()} on {machine()}; load at the end:"
        f" {os.getloadavg()[0]:.1f}. Lower quartiles, with the medians in brackets.\n"
    )
    for group in groups:
        title, make = TABLES[group]
        parts.append(f"### {title}: `./bench {group}`\n\n{make(results, scale)}")
    return "\n".join(parts)


# The short answer


def short_answer(results, scale):
    """Is it fast and small? In a few lines."""
    lines = [
        f"{linkage}: " + ", ".join(f"{by[name]:,} bytes on {who}" for who, by in results["sizes"].items())
        for name, linkage in LINKED.items()
    ]
    for row in rows(scale):
        if row.what.startswith("*"):
            mine = shown(typical(results[row.measurement][row.subject])[0], row.unit)
            against = row.against.split(": `")[0]
            lines.append(f"{row.what[1:]}: {mine}, {ratios(row, results)[0]:.2f} times {against}")
    steepest = max(exponent(points) for _, _, points in growths(results, scale))
    lines.append(f"beyond that: time grows with a power of at most {steepest:.2f} of the size")
    return "".join(f"- {line}\n" for line in lines)


def picture(results):
    names = {
        "tessel_static": "tessel, everything inside",
        "dash": "dash -i (edits no lines)",
        "baseline_static": "bare C program, everything inside",
        "tessel": "tessel",
        "baseline": "bare C program with Readline",
        "bash": "bash --norc -i",
    }
    starts = [
        (words, low := typical(results["start"][name])[0], shown(low, "ms"), OWN if "tessel" in name else OTHER)
        for name, words in names.items()
    ]
    sizes = [
        (f"{architecture}, {LINKED[linkage]}", size, f"{size:,} bytes", OWN)
        for architecture, by_linkage in results["sizes"].items()
        for linkage, size in by_linkage.items()
    ]
    starts.sort(key=lambda bar: bar[1])
    return draw((("Start to the first prompt", starts), ("Size of the program, stripped", sizes)))


def write(results, scale, groups, folder, into_docs):
    """Prints the tables and, when all was measured, leaves the page's part and the picture in the
    folder, and in the docs if they are to be there."""
    text = tables(results, scale, groups)
    print(text)
    if set(groups) != set(TABLES):
        return
    head = "![Bars: start to the first prompt, and sizes](performance.svg)\n\n"
    text = head + short_answer(results, scale) + f"\n## The figures\n\n{text}"
    (folder / "performance.svg").write_text(picture(results), encoding="utf-8")
    (folder / "performance.md").write_text(text, encoding="utf-8")
    if into_docs:
        page = DOCS / "performance.md"
        before, after = re.split(f"(?<={BEGIN})(?s:.*)(?={END})", page.read_text(encoding="utf-8"))
        page.write_text(before + text + after, encoding="utf-8")
        shutil.copy(folder / "performance.svg", DOCS)
