"""Turns samples into tables, a chart and a summary."""

import datetime
import math
import operator
import os
import re
import shutil
import statistics
import subprocess
from collections import namedtuple
from functools import partial
from pathlib import Path

from device import ABSENT_EXTENSION, LAST_EXTENSION, QUICK, growing
from chart import draw

DOCS = Path(__file__).resolve().parent.parent / "docs"
BEGIN = "<!-- measured: begin -->\n"
END = "<!-- measured: end -->\n"
UNITS = {"ms": (1e3, 2), "µs": (1e6, 1), "KiB": (1 / 1024, 0), "": (1, 0)}  # factor, decimals
LINKAGES = {
    "shared": "shared C++ library",
    "default": "C++ library linked in (default)",
    "static": "fully static",
}
SIZE_LIMITS = {
    ("amd64", "shared"): 66_000,
    ("amd64", "default"): 115_000,
    ("amd64", "static"): 1_560_000,
    ("armhf", "default"): 68_000,
}
GROWTH_LIMIT = 1.1
TESSEL_COLOUR, BASELINE_COLOUR = "#2f6fb0", "#9aa5b1"

# group; what is measured, starred if the summary has it; how; the baseline; measurement, whose samples
# and the baseline's; unit; target: the highest ratio
ROWS = """
start; *start to the first prompt, ITEMS menu items; `tessel`; minimal C program with Readline; start tessel minimal; ms; 1.05
start; start, fully static; `tessel`; that C program, fully static; start tessel_static minimal_static; ms; 1.05
start; *start, fully static; `tessel`; `dash -i`, which has no line editor; start tessel_static dash; ms; 1.05
start; user instructions to the first prompt; `valgrind --tool=callgrind tessel`; minimal C program with Readline; instructions tessel minimal; ; 1.2
start; *private dirty memory at the prompt; `/proc/PID/smaps_rollup`; minimal C program with Readline; Private_Dirty tessel minimal; KiB; 1.05
start; resident memory at the prompt; `/proc/PID/smaps_rollup`; minimal C program with Readline; Rss tessel minimal; KiB; 1.1
keys; key to echo; `x` typed; minimal C program with Readline; key tessel minimal; µs; 1.05
keys; *key to echo; `x` typed; `bash --norc -i`; key tessel bash; µs; 1.05
commands; *`get` of TEXT KiB into a pipe; `get part000000`; C loop, 255 bytes at a time: `loops pieces FILE`; get_pipe tessel loop; ms; 0.75
commands; `get` of TEXT KiB to a terminal; `get part000000`; C loop, 255 bytes at a time: `loops pieces FILE`; get_terminal tessel loop; ms; 1.0
commands; *`save` with an answer of TEXT KiB; `save`; `sed` with six replacements; save tessel sed; ms; 0.6
commands; *`get` for the last of EXTENSIONS extensions; `get part000003 LAST`; `grep -Fxq 'extN = LAST' FILE`; lookup_LAST tessel grep; ms; 0.6
commands; `get` for an unknown extension, EXTENSIONS known; `get part000003 ABSENT`; `grep -Fxq 'extN = ABSENT' FILE`; lookup_ABSENT tessel grep; ms; 0.6
commands; *`list` of PARTS parts into a pipe; `list`; C loop, one write per line: `loops lines FILE`; list tessel loop; ms; 1.3
"""


Row = namedtuple("Row", "group what how baseline measurement subject other unit limit")


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
    """Yields what grows, with what, and {size: seconds}: the median of what each round takes longer than
    at size 0, so that a machine that changes its speed between rounds does not count as growth."""
    items, extensions, size = scale.least
    for name, what, least in (
        ("start", "menu items", items),
        ("lookup", "extensions, not including the wanted one", extensions),
        ("get", "bytes of the part", size),
        ("save", "bytes of the answer", size),
    ):
        empty, *samples = (results[f"grow_{name}"][str(n)] for n in growing(least))
        longer = [statistics.median(map(operator.sub, each, empty)) for each in samples]
        yield name, what, {n: max(time, 1e-7) for n, time in zip(growing(least)[1:], longer)}


# Statistics


def typical(samples):
    """Returns (lower quartile, median). A busy machine affects the lower quartile less."""
    if len(samples) < 2:
        return samples[0], samples[0]
    low, median, _ = statistics.quantiles(samples, n=4)
    return low, median


def ratios(row, results):
    subject, other = (typical(results[row.measurement][who]) for who in (row.subject, row.other))
    return [own / baseline for own, baseline in zip(subject, other)]


def exponent(points):
    """Returns the power of n with which the time grows from the smallest to the largest n."""
    (least, first), *_, (most, last) = points.items()
    return math.log(last / first) / math.log(most / least)


# Tables


def table(heads, lines):
    """Returns a Markdown table. Columns whose heading ends in a colon are right-aligned."""
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
            target = [f"{limit:,}", verdict(size, limit)] if limit else ["", ""]
            lines.append([architecture, LINKAGES[linkage], f"{size:,}", *target])
    text = table(["stripped, for", "linkage", "bytes:", "target, at most:", "met"], lines)
    if not results["position_independent"]:
        text += "\nThe fully static program is **not** position-independent.\n"
    if "armhf" not in results["sizes"]:
        text += "\narmhf was not measured: run `scripts/build_target armhf` first.\n"
    return text


def comparison_table(group, results, scale):
    lines = []
    for row in rows(scale):
        if row.group == group:
            low, median = ratios(row, results)
            own, other = (results[row.measurement][who] for who in (row.subject, row.other))
            cells = [row.what.lstrip("*"), row.how, shown_samples(own, row.unit), row.baseline]
            cells += [shown_samples(other, row.unit), f"{low:.2f} ({median:.2f})"]
            lines.append([*cells, f"{row.limit:g}", verdict(low, row.limit)])
    heads = ["measured", "how", "tessel:", "baseline", "baseline's:", "ratio:", "target, at most:", "met"]
    return table(heads, lines)


def growth_table(results, scale):
    lines = []
    for name, what, points in growths(results, scale):
        power = exponent(points)
        times = [shown(seconds, "ms") for seconds in points.values()]
        ends = [f"{power:.2f}", str(GROWTH_LIMIT), verdict(power, GROWTH_LIMIT)]
        lines.append([name, what, f"{min(points):,}", *times, *ends])
    heads = ["measured", "grows with", "n:", "time at n:", "10 n:", "100 n:", "1,000 n:"]
    return table([*heads, "exponent:", "target, at most:", "met"], lines)


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
    parts = ["A quick run: too few samples to judge by.\n"] if scale is QUICK else []
    parts.append(
        f"Measured on {datetime.date.today()} on {machine()}; load average at the"
        f" end: {os.getloadavg()[0]:.1f}. Figures are lower quartiles, medians in brackets.\n"
    )
    for group in groups:
        title, make = TABLES[group]
        parts.append(f"### {title}: `./bench {group}`\n\n{make(results, scale)}")
    return "\n".join(parts)


# The summary


def verdicts(results, scale):
    """Yields for each target whether it is met."""
    for architecture, by_linkage in results["sizes"].items():
        for linkage, size in by_linkage.items():
            if (architecture, linkage) in SIZE_LIMITS:
                yield size <= SIZE_LIMITS[architecture, linkage]
    yield from (ratios(row, results)[0] <= row.limit for row in rows(scale))
    yield from (exponent(points) <= GROWTH_LIMIT for _, _, points in growths(results, scale))


def summary(results, scale):
    """Returns the summary: ten lines of figures and a sentence about growth and targets."""
    lines = []
    for architecture, by_linkage in results["sizes"].items():
        sizes = "; ".join(f"{LINKAGES[linkage]} {size:,} bytes" for linkage, size in by_linkage.items())
        lines.append(f"program size, stripped, {architecture}: {sizes}")
    for row in rows(scale):
        if row.what.startswith("*"):
            own = shown(typical(results[row.measurement][row.subject])[0], row.unit)
            baseline = row.baseline.split(": `")[0]
            lines.append(f"{row.what[1:]}: {own}, {ratios(row, results)[0]:.2f} × {baseline}")
    steepest = max(exponent(points) for _, _, points in growths(results, scale))
    met = list(verdicts(results, scale))
    return "".join(f"- {line}\n" for line in lines) + (
        f"\nTime grows with at most the {steepest:.2f}th power of the input size."
        f" {sum(met)} of {len(met)} targets are met.\n"
    )


def chart(results):
    names = {
        "tessel_static": "tessel, fully static",
        "dash": "dash -i (no line editor)",
        "minimal_static": "minimal C program, fully static",
        "tessel": "tessel",
        "minimal": "minimal C program with Readline",
        "bash": "bash --norc -i",
    }
    starts = []
    for name, words in names.items():
        low, _ = typical(results["start"][name])
        colour = TESSEL_COLOUR if "tessel" in name else BASELINE_COLOUR
        starts.append((words, low, shown(low, "ms"), colour))
    sizes = [
        (f"{architecture}, {LINKAGES[linkage]}", size, f"{size:,} bytes", TESSEL_COLOUR)
        for architecture, by_linkage in results["sizes"].items()
        for linkage, size in by_linkage.items()
    ]
    starts.sort(key=lambda bar: bar[1])
    return draw((("Start to the first prompt", starts), ("Size of the program, stripped", sizes)))


def write(results, scale, groups, folder, into_docs):
    """Prints the tables. When every group was measured, also writes the measured part of the page and
    the chart into the folder, and into docs/ if asked."""
    text = tables(results, scale, groups)
    print(text)
    if set(groups) != set(TABLES):
        return
    head = "![Bar chart: start to the first prompt, and program sizes](performance.svg)\n\n"
    text = head + summary(results, scale) + f"\n## The figures\n\n{text}"
    (folder / "performance.svg").write_text(chart(results), encoding="utf-8")
    (folder / "performance.md").write_text(text, encoding="utf-8")
    if into_docs:
        page = DOCS / "performance.md"
        before, after = re.split(f"(?<={BEGIN})(?s:.*)(?={END})", page.read_text(encoding="utf-8"))
        page.write_text(before + text + after, encoding="utf-8")
        shutil.copy(folder / "performance.svg", DOCS)
