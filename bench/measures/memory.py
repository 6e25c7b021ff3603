"""What large downloads hold in memory, and what they leave."""

from measures import room
from measures.tables import Table, bytes_text

TITLE = "Memory"


def mebibytes(kibibytes):
    return f"{kibibytes / 1024:,.0f}"


def add_row(table, options, files, size, *arguments):
    """Every run downloads one file at a time."""
    runs = 1 if "--alone" in arguments else 2
    room.reset_player(realms=1)
    figures = options.bench.start_launcher(*arguments)
    start, peak, end = figures["startKiB"], figures["peakKiB"], figures["endKiB"]
    table.add(
        f"{files} of {bytes_text(size)}, {'one run' if runs == 1 else 'two runs'}",
        mebibytes(start), mebibytes(peak), f"{(peak - start) * 1024 / size / runs:.2f}",
        mebibytes(end), mebibytes(end - start))


def measure(options):
    scale = 32 if options.quick else 1
    table = Table("files", "start MiB", "peak MiB", "peak by file and run", "end MiB", "kept MiB")
    for files, size in [(1, 1024 * room.MEBIBYTE // scale), (8, 64 * room.MEBIBYTE // scale)]:
        options.bench.publish(files, size)
        add_row(table, options, files, size, "--alone")
        add_row(table, options, files, size)
    table.note("Resident memory. \"Peak by file and run\" is what comes on top of the start, "
               "divided by the size of the file and the downloads that go on at a time.")
    return table
