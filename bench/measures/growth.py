"""What a run costs against the number of entries in the manifest."""

import statistics

from measures import plot, room
from measures.tables import Table

TITLE = "Growth"
ENTRIES = [10, 100, 1000, 5000, 20000]
FILE_SIZE = 4096


def fill(options, entries):
    options.bench.publish(entries, FILE_SIZE)


def first_evening_and_next(options, entries):
    """Figures of a cold start and of an unchanged one after it; by entry where
    they are times."""
    fill(options, entries)
    room.reset_player(realms=1)
    cold = options.bench.start_launcher()
    warm = options.bench.start_launcher()
    return {
        "entries": entries,
        "fetch": cold["fetch"] / entries / 2,
        "reconcile": statistics.mean(warm["reconcile"]) / entries,
        "install": statistics.mean(warm["install"]) / entries,
        "threads": cold["mostThreads"],
        "descriptors": cold["mostDescriptors"],
        "peak": cold["peakKiB"] / 1024,
    }


COLUMNS = [
    ("fetch", "fetch ms", 1000, ".2f"),
    ("reconcile", "reconcile µs", 1e6, ".0f"),
    ("install", "install µs", 1e6, ".0f"),
    ("threads", "threads", 1, "d"),
    ("descriptors", "descriptors", 1, "d"),
    ("peak", "peak MiB", 1, ".0f"),
]


def measure(options):
    rows = [first_evening_and_next(options, entries)
            for entries in ([10, 100, 500] if options.quick else ENTRIES)]
    table = Table("entries", *(title for _, title, _, _ in COLUMNS))
    for row in rows:
        table.add(f"{row['entries']:,}", *(
            f"{row[key] * factor:{form}}" for key, _, factor, form in COLUMNS))
    table.note("Two runs side by side, one client, files of 4 KiB. Times are by entry and run: "
               "the fetch of a cold start, the other two of an unchanged start after it. Threads "
               "and descriptors are the most that were seen, memory is the resident peak.")
    options.picture.write_text(plot.growth(rows), encoding="utf-8")
    return table
