"""Tables that look the same on a terminal and in docs/performance.md."""

import os
import platform
import re
from pathlib import Path


class Table:
    """Titles and rows of texts; the first column is a name, the others stand to
    the right. Notes follow below, one sentence or more each."""

    def __init__(self, *titles):
        self.titles = titles
        self.rows = []
        self.notes = []

    def add(self, *cells):
        self.rows.append([str(cell) for cell in cells])

    def note(self, text):
        self.notes.append(text)

    def markdown(self):
        lines = [self.titles, ["---"] + ["---:"] * (len(self.titles) - 1), *self.rows]
        table = "\n".join("| " + " | ".join(cells) + " |" for cells in lines)
        return "\n\n".join([table, *self.notes])

    def text(self):
        rows = [self.titles, *self.rows]
        widths = [max(map(len, column)) for column in zip(*rows)]
        lines = [cells[0].ljust(widths[0]) + "".join(
            "  " + cell.rjust(width) for cell, width in zip(cells[1:], widths[1:]))
            for cells in rows]
        lines.insert(1, "-" * len(lines[0]))
        return "\n".join([*lines, *self.notes])


def bytes_text(count):
    for unit in ["bytes", "KiB", "MiB"]:
        if count < 1024:
            return f"{count:g} {unit}"
        count /= 1024
    return f"{count:g} GiB"


def machine():
    """The machine, in a line."""
    cpu = re.search(r"^model name\s*:\s*(.+)$", Path("/proc/cpuinfo").read_text(), re.M)
    memory = re.search(r"^MemTotal:\s*(\d+)", Path("/proc/meminfo").read_text(), re.M)
    return (f"{cpu[1] if cpu else platform.machine()}, {os.cpu_count()} cores, "
            f"{int(memory[1]) / (1 << 20):.0f} GiB, Linux {platform.release()}")
