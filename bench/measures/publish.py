"""The publisher against what an admin would type."""

import re
import subprocess

from measures import world
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
    return table
