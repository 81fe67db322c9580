"""Draws a bar chart."""

from html import escape

WIDTH = 720
LEFT = 290  # where the bars begin
LONGEST_BAR = 320
LINE_HEIGHT = 22


def draw(blocks):
    """Returns the chart as SVG. A block is a heading and its bars: (name, length, label, colour)."""
    parts = []
    y = 22
    for heading, bars in blocks:
        parts.append(f'<text x="{LEFT}" y="{y}" font-weight="bold">{escape(heading)}</text>')
        for name, length, label, colour in bars:
            y += LINE_HEIGHT
            width = length / max(bar[1] for bar in bars) * LONGEST_BAR
            parts += [
                f'<text x="{LEFT - 8}" y="{y}" text-anchor="end">{escape(name)}</text>',
                f'<rect x="{LEFT}" y="{y - 12}" width="{width:.0f}" height="16" fill="{colour}"/>',
                f'<text x="{LEFT + width + 6:.0f}" y="{y}">{escape(label)}</text>',
            ]
        y += 2 * LINE_HEIGHT
    return (
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {y - LINE_HEIGHT}"'
        ' font-family="sans-serif" font-size="12">\n'
        '<rect width="100%" height="100%" fill="#fff"/>\n' + "\n".join(parts) + "\n</svg>\n"
    )
