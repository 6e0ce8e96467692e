"""Figures, tables and charts for docs/performance.md."""
import math
import re
import statistics
from pathlib import Path


def short(number):
    """Two significant digits, without an exponent."""
    if number == 0 or not math.isfinite(number):
        return "0"
    places = 1 - math.floor(math.log10(abs(number)))
    rounded = round(number, places)
    places = max(1 - math.floor(math.log10(abs(rounded))), 0)  # 9.96 has become 10
    return f"{rounded:,.{places}f}"


class Figure:
    """One thing measured several times: its median, lowest and highest value."""

    def __init__(self, values):
        self.values = list(values)
        self.median, self.least, self.most = statistics.median(self.values), min(self.values), max(self.values)

    def __str__(self):
        low, high = short(self.least), short(self.most)
        return short(self.median) + (f" ({low} to {high})" if low != high else "")

    def scaled(self, factor):
        return Figure(value * factor for value in self.values)

    def over(self, other):
        """The ratio of two figures measured side by side, run by run."""
        return Figure(own / its for own, its in zip(self.values, other.values))

    def above(self, other):
        return Figure(own - its for own, its in zip(self.values, other.values))


def verdict(figure, limit, at_most=True):
    """The target for a figure, and whether its median, as shown, meets it."""
    median = float(short(figure.median).replace(",", ""))
    met = median <= limit if at_most else median >= limit
    return f"{'at most' if at_most else 'at least'} {short(limit)}: {'yes' if met else '**no**'}"


def table(head, rows):
    lines = [head, ["---"] * len(head), *rows]
    return "\n".join("| " + " | ".join("" if cell is None else str(cell) for cell in line) + " |" for line in lines)


COLOURS = ("#b5541c", "#2b6cb0", "#2f855a")


def chart(title, places, lines):
    """An SVG with a line for each name through its figures at these places. Both axes are linear and start at zero, so
    linear growth is a straight line. Bars show lowest to highest; one that is far longer than the rest is cut off."""
    width, height, left, right, top, bottom = 480, 220, 56, 120, 34, 32
    measured = [figure for figures in lines.values() for figure in figures]
    highest = min(max(figure.most for figure in measured), 2 * max(figure.median for figure in measured)) or 1
    step = 10 ** math.floor(math.log10(highest))
    step = next(step * part for part in (0.2, 0.5, 1, 2) if highest / (step * part) <= 5)
    ceiling = math.ceil(highest / step) * step
    across = lambda place: left + (width - left - right) * place / places[-1]
    along = lambda value: top + (height - top - bottom) * (1 - min(value / ceiling, 1))
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
             'font-family="sans-serif" font-size="11">',
             '<rect width="100%" height="100%" fill="white"/>',
             f'<text x="10" y="18" font-size="13">{title}</text>']
    for index in range(round(ceiling / step) + 1):
        y = along(index * step)
        parts.append(f'<path d="M{left} {y:.1f}H{width - right}" stroke="#ddd"/>'
                     f'<text x="{left - 6}" y="{y + 4:.1f}" text-anchor="end">{index * step:g}</text>')
    free = -math.inf  # the first pixel not yet covered by a label
    for place in places:
        if across(place) - 10 >= free:
            parts.append(f'<text x="{across(place):.1f}" y="{height - 12}" text-anchor="middle">{place}</text>')
            free = across(place) + 10
    ends = []
    for colour, (name, figures) in zip(COLOURS, lines.items()):
        points = [(across(place), along(figure.median)) for place, figure in zip(places, figures)]
        parts.append(f'<g stroke="{colour}" fill="none"><path stroke-width="2" d="M'
                     + "L".join(f"{x:.1f} {y:.1f}" for x, y in points) + '"/><path d="'
                     + "".join(f"M{x:.1f} {along(figure.least):.1f}V{along(figure.most):.1f}"
                               for (x, _), figure in zip(points, figures)) + '"/></g>')
        ends.append((points[-1][1], colour, name))
    lowest = -math.inf
    for index, (y, colour, name) in enumerate(sorted(ends)):  # keep names off one another and off the labels
        lowest = max(min(y, along(0) - 13 * (len(ends) - 1 - index)), lowest + 13)
        parts.append(f'<text x="{width - right + 8}" y="{lowest + 4:.1f}" fill="{colour}">{name}</text>')
    return "\n".join(parts + ["</svg>", ""])


def write_page(page, sections):
    """Replaces the text between the page's markers: `sections` has a text for each marker's name."""
    text = page.read_text()
    for name, content in sections.items():
        pattern = rf"(<!-- {name} -->\n).*?(<!-- end -->)"
        text, count = re.subn(pattern, lambda found: found[1] + content.strip() + "\n" + found[2], text, flags=re.S)
        if count != 1:
            raise SystemExit(f"bench: {page} has no place for {name}")
    page.write_text(text)
