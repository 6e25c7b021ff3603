"""What stays of update runs: counted objects and bytes of heap."""

from measures import room
from measures.tables import Table

TITLE = "200 update runs"
DOWNLOADS_PER_RUN = 3  # updater, launcher, manifest: none has changed


def prepare(options):
    options.bench.publish(10, 65536)
    room.reset_player(realms=1)
    options.bench.start_launcher()  # from here on nothing changes


def growth_table(rounds):
    table = Table("start-up checks", "runs", "downloads", "heap KiB", "objects",
                  "threads", "descriptors", "resident MiB")
    for figures in rounds:
        table.add(
            figures["starts"], figures["runs"], figures["downloads"],
            f"{figures['heap'] / 1024:,.0f}", sum(figures["objects"].values()),
            figures["threads"], figures["descriptors"], f"{figures['residentKiB'] / 1024:.0f}")
    return table


def object_table(first, last):
    """Only classes of which there are more at the end than after the first
    check's two runs."""
    table = Table("class", "at first", "at the end", "per download", "per run", "per check")
    spans = [last[key] - first[key] for key in ["downloads", "runs", "starts"]]
    for name in sorted(last["objects"]):
        before, after = (figures["objects"].get(name, 0) for figures in [first, last])
        if after > before:
            table.add(f"`{name}`", before, after, *(f"{(after - before) / s:.2f}" for s in spans))
    return table


def measure(options):
    prepare(options)
    *rounds, comparison = options.bench.run("bench_leaks", 20 if options.quick else 200)
    first, last = rounds[0], rounds[-1]
    downloads = last["downloads"] - first["downloads"]
    by_download = comparison["heapPerDownload"]
    rest = last["heap"] - first["heap"] - downloads * by_download
    growth = growth_table(rounds)
    growth.note(
        f"A download by itself, without any run, leaves {by_download:,} bytes of heap. "
        f"{downloads:,} downloads between the first and the last row leave "
        f"{downloads * by_download / 1024:,.0f} KiB; the heap has grown by "
        f"{(last['heap'] - first['heap']) / 1024:,.0f} KiB, which leaves "
        f"{rest / (last['runs'] - first['runs']):,.0f} bytes for each run.")
    return [growth, object_table(first, last)]
