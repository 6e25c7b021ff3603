"""The publisher against what an admin would type."""

import re
import subprocess

from measures import plot, world
from measures.tables import Table

TITLE = "Publishing"


def measure(options):
    mib = 64 if options.quick else 4096 if options.full else 1024
    run = subprocess.run(
        [world.PROJECT / "bench" / "bench_publish", options.programs / "halden-publish",
         "--mib", str(mib), "--rounds", "1" if options.quick else str(options.rounds)],
        check=True, stdout=subprocess.PIPE, encoding="utf-8")
    heading, _, *rows = run.stdout.splitlines()
    table = Table("", "seconds", "of by hand")
    for row in rows:
        cells = re.split(r"\s{2,}", row.strip())
        table.add(*cells, *[""] * (len(table.titles) - len(cells)))
    table.note(heading + ".")
    return [table, growth(options)]


def growth(options):
    """The same for trees of many small files, with a picture."""
    counts = ["200", "1000"] if options.quick else ["5000", "20000", "80000", "200000"]
    run = subprocess.run(
        [world.PROJECT / "bench" / "bench_publish_growth", options.programs / "halden-publish",
         "--files", *counts],
        check=True, stdout=subprocess.PIPE, encoding="utf-8")
    titles, *rows = [re.split(r"\s{2,}", line.strip()) for line in run.stdout.splitlines()]
    table = Table(*titles)
    for row in rows:
        table.add(f"{int(row[0]):,}", *row[1:])
    table.note("Files of 2 KiB, in memory; seconds, and ratios beside them. The last ratios are "
               "those of processor seconds, of both cores, to the same work by hand.")
    figures = [{"files": int(row[0]), "build": float(row[2]) / int(row[0]),
                "unchanged": float(row[4]) / int(row[0]), "check": float(row[7]) / int(row[0]),
                "memory": float(row[10])} for row in rows]
    options.picture.with_name("publishing.svg").write_text(
        plot.publishing(figures), encoding="utf-8")
    return table
