"""Growth as a picture: both axes are logarithmic, so a cost per entry that stays
the same is a level line, and one that grows with the entries rises with the
dotted lines."""

import math

WIDTH, HEIGHT = 900, 420
LEFT, TOP, PANEL, DEPTH, GAP = 70, 50, 340, 290, 110
INK, PALE = "#333333", "#dddddd"
COLOURS = ["#1b6ca8", "#c8553d", "#3d8b5f"]


def decades(values):
    """Powers of ten around the values."""
    return range(math.floor(math.log10(min(values))), math.ceil(math.log10(max(values))) + 1)


class Panel:
    """One diagram. Every series is a name and a list of y values over the x
    values that all share."""

    def __init__(self, left, title, unit, x_values, series, x_title="entries in the manifest"):
        self.left, self.title, self.unit = left, title, unit
        self.x_title = x_title
        self.x_values, self.series = x_values, series
        self.x_decades = decades(x_values)
        self.y_decades = decades([y for _, values in series for y in values])

    def x(self, value):
        first, last = self.x_decades[0], self.x_decades[-1]
        return self.left + PANEL * (math.log10(value) - first) / (last - first)

    def y(self, value):
        first, last = self.y_decades[0], self.y_decades[-1]
        return TOP + DEPTH * (1 - (math.log10(value) - first) / max(1, last - first))

    def svg(self):
        return [*self.grid(), *self.proportional(), *self.curves()]

    def grid(self):
        yield text(self.left, TOP - 22, self.title, weight="bold")
        yield text(self.left, TOP - 7, self.unit, size=11)
        yield text(self.left + PANEL, TOP + DEPTH + 34, self.x_title, anchor="end")
        for power in self.x_decades:
            x = self.x(10 ** power)
            yield line(x, TOP, x, TOP + DEPTH, PALE)
            yield text(x, TOP + DEPTH + 16, f"{10 ** power:,}", anchor="middle", size=11)
        for power in self.y_decades:
            y = self.y(10 ** power)
            yield line(self.left, y, self.left + PANEL, y, PALE)
            yield text(self.left - 6, y + 4, f"{10.0 ** power:,g}", anchor="end", size=11)

    def proportional(self):
        """How a figure rises that is proportional to the entries: one line
        through each power of ten at the left edge."""
        low, high = self.x_decades[0], self.y_decades[-1]
        for power in self.y_decades[:-1]:
            steps = min(self.x_decades[-1] - low, high - power)
            yield line(self.x(10 ** low), self.y(10 ** power), self.x(10 ** (low + steps)),
                       self.y(10 ** (power + steps)), "#aaaaaa", dashes="2 4")

    def curves(self):
        ends = label_heights([self.y(values[-1]) for _, values in self.series])
        for (name, values), colour, end in zip(self.series, COLOURS, ends):
            points = [(self.x(x), self.y(y)) for x, y in zip(self.x_values, values)]
            path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
            yield f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>'
            for x, y in points:
                yield f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{colour}"/>'
            yield text(points[-1][0] + 9, end + 4, name, colour=colour)


def label_heights(wanted, apart=15):
    """The heights, moved down as far as the labels would cover each other."""
    heights = dict.fromkeys(range(len(wanted)))
    lowest = -math.inf
    for index in sorted(heights, key=wanted.__getitem__):
        lowest = heights[index] = max(wanted[index], lowest + apart)
    return list(heights.values())


def line(x1, y1, x2, y2, colour, dashes=None):
    dashed = f' stroke-dasharray="{dashes}"' if dashes else ""
    return (f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" '
            f'stroke="{colour}"{dashed}/>')


def text(x, y, content, anchor="start", size=13, weight="normal", colour=INK):
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}" '
            f'font-weight="{weight}" fill="{colour}">{content}</text>')


def document(panels, what):
    body = "\n".join(element for panel in panels for element in panel.svg())
    note = text(LEFT, HEIGHT - 12, f"dotted: proportional to the number of {what}", size=11)
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH + 60} {HEIGHT}" '
            f'font-family="sans-serif">\n<rect width="100%" height="100%" fill="white"/>\n'
            f"{body}\n{note}\n</svg>\n")


def publishing(rows):
    """The rows of the benchmark of many small files as a document."""
    files = [row["files"] for row in rows]
    times = [(name, [max(row[name], 1e-9) * 1e6 for row in rows])
             for name in ["build", "unchanged", "check"]]
    memory = [("memory", [row["memory"] for row in rows])]
    return document(
        [Panel(LEFT, "Time by file", "microseconds", files, times, "files"),
         Panel(LEFT + PANEL + GAP, "Most memory by file", "KiB", files, memory, "files")],
        "files")


def growth(rows):
    """The rows of the benchmark of the same name as a document."""
    entries = [row["entries"] for row in rows]
    times = [(name, [row[name] * 1000 for row in rows]) for name in
             ["fetch", "reconcile", "install"]]
    resources = [("peak MiB", [row["peak"] for row in rows]),
                 ("descriptors", [row["descriptors"] for row in rows]),
                 ("threads", [row["threads"] for row in rows])]
    second = LEFT + PANEL + GAP
    panels = [Panel(LEFT, "Time by entry", "milliseconds", entries, times),
              Panel(second, "Resources of the whole start", "number, or MiB", entries, resources)]
    return document(panels, "entries")
