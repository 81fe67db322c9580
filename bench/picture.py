"""Draws the figures as bars."""

import statistics
from html import escape

WIDTH = 950
LABEL_WIDTH = 480
BAR_WIDTH = 330  # of a bar that is exactly as long as allowed, and of the longest time
BAR_HEIGHT = 14
LINE_HEIGHT = 22
GOOD, BAD, NEUTRAL, OWN = "#4a8f5c", "#c0504d", "#9aa5b1", "#2f6fb0"

STARTED = {
    "tessel": "tessel",
    "floor": "floor",
    "bash": "bash --norc -i",
    "dash": "dash -i",
    "busybox ash": "busybox ash",
    "sqlite3": "sqlite3",
    "lftp": "lftp",
}


def label(y, text):
    return f'<text x="{LABEL_WIDTH - 8}" y="{y + 11}" text-anchor="end">{escape(text)}</text>'


def bar(y, length, colour, value):
    # What would leave the picture is cut, and says so.
    end = min(length, WIDTH - LABEL_WIDTH - 90)
    return (
        f'<rect x="{LABEL_WIDTH}" y="{y}" width="{end:.1f}" height="{BAR_HEIGHT}" fill="{colour}"/>'
        f'<text x="{LABEL_WIDTH + end + 6:.1f}" y="{y + 11}">{escape(value)}'
        f'{" (cut)" if end < length else ""}</text>'
    )


def heading(y, text):
    return f'<text x="{LABEL_WIDTH}" y="{y + 11}" font-weight="bold">{escape(text)}</text>'


def draw_starts(samples, y):
    """Times to the first prompt."""
    medians = {name: statistics.median(samples[name]) for name in STARTED}
    longest = max(medians.values())
    parts = [heading(y, "Start to the first prompt")]
    for name, median in sorted(medians.items(), key=lambda item: item[1]):
        y += LINE_HEIGHT
        colour = OWN if name == "tessel" else NEUTRAL
        parts.append(label(y, STARTED[name]))
        parts.append(bar(y, median / longest * BAR_WIDTH, colour, f"{median * 1e3:.2f} ms"))
    return parts, y


def draw_ratios(compared_rows, y):
    """Shares of what is allowed; the line is where all of it is used up."""
    parts = [heading(y, "Share of what is allowed (shorter is better)")]
    top = y + LINE_HEIGHT
    for row, value in compared_rows:
        if not row.limit:
            continue
        y += LINE_HEIGHT
        share = max(value, 0) / row.limit
        parts.append(label(y, f"{row.what.replace('`', '')} / {row.against.replace('`', '')}"))
        parts.append(bar(y, share * BAR_WIDTH, GOOD if share <= 1 else BAD, f"{share:.0%}"))
    x = LABEL_WIDTH + BAR_WIDTH
    parts.append(
        f'<line x1="{x}" y1="{top - 4}" x2="{x}" y2="{y + LINE_HEIGHT - 4}" stroke="#333"/>'
    )
    return parts, y


def draw(results, compared_rows):
    """An SVG picture of the rows with their compared values."""
    starts, y = draw_starts(results["start"], 10)
    ratios, y = draw_ratios(compared_rows, y + 2 * LINE_HEIGHT)
    height = y + LINE_HEIGHT + 10
    return (
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}"'
        f' viewBox="0 0 {WIDTH} {height}" font-family="sans-serif" font-size="12">\n'
        f'<rect width="{WIDTH}" height="{height}" fill="#fff"/>\n'
        + "\n".join(starts + ratios)
        + "\n</svg>\n"
    )
