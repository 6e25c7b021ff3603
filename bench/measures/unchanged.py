"""An evening on which nothing has changed: the launcher against plain tools that
do the same work on the same files."""

import shutil

from measures import room
from measures.tables import Table, bytes_text

TITLE = "Unchanged run"
CLIENTS = 2
# Two runs go side by side, and each hashes the cache and fills every client.
RUNS = 2

BY_HAND = """
for run in $(seq "$1"); do
    find "$2" -type f -print0 | xargs -0 md5sum >/dev/null
    for client in "$3"/*; do cp -r "$2/." "$client"; done
done
"""


def prepare(bench, files, size):
    """The cache, both clients and the manifest as they are after an evening. The
    server keeps the manifest alone: nobody asks for more."""
    room.reset_player(realms=CLIENTS, clients=CLIENTS)
    room.CACHE.mkdir()
    bench.publish(files, size, kept_as=room.CACHE / "live")
    shutil.rmtree(room.TREE / "wow-client-patch")


def measure(options):
    files, size = (200, 10 * room.MEBIBYTE + room.MEBIBYTE // 4)
    if options.quick:
        size //= 64
    prepare(options.bench, files, size)

    def launcher():
        figures = options.bench.start_launcher()
        if figures["fetch"] or figures["runs"] != RUNS:
            raise RuntimeError(f"not an unchanged run: {figures}")
        return sum(figures["reconcile"]) + sum(figures["install"])

    def by_hand():
        return room.timed("bash", "-ec", BY_HAND, "bench", str(RUNS),
                           room.CACHE / "live", room.CLIENTS)

    ours, theirs = room.median_rounds(options.rounds, launcher, by_hand)
    table = Table("", "seconds", "ratio")
    table.add("`md5sum` of the cache and `cp` into both clients, twice", f"{theirs:.2f}", "1.00")
    table.add("launcher, both runs", f"{ours:.2f}", f"{ours / theirs:.2f}")
    table.note(f"A cache of {bytes_text(files * size)} in {files} files, {CLIENTS} clients; "
               f"median of {options.rounds} alternating rounds.")
    return table
