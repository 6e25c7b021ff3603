"""The publisher against what an admin would type: md5sum over every file, then cp.
"cp" returns before the data is on the disk, as "build" does with --no-flush; with its
default "build" waits, so it stands beside a "cp" that is followed by "sync"."""

import os
import statistics
import tempfile
from pathlib import Path

from measures import publishsmall, room
from measures.tables import Table

TITLE = "Publishing"
FILES = 2000
FOLDERS = 40
HASHES_BY_HAND = 'find "$1" -type f -print0 | xargs -0 -P1 md5sum'
BY_HAND = HASHES_BY_HAND + '; cp -r "$1" "$2"'
BY_HAND_SYNCED = BY_HAND + '; sync -f "$2"'
# What two cores could save at best, did they never wait for each other.
BY_HAND_ON_TWO_CORES = """
half() { find "$1" -type f -print0 | sort -z | awk -v RS='\\0' -v ORS='\\0' "NR % 2 == $2"; }
each() { half "$1" "$3" | xargs -0 md5sum; half "$1" "$3" | xargs -0 cp --parents -t "$2"; }
mkdir "$2"
each "$1" "$2" 0 & one=$!
each "$1" "$2" 1
wait "$one"
"""

# Each of ours beside the way by hand.
ROWS = [
    ("md5sum, cp", None),
    ("md5sum, cp, half of it on each of two cores", "md5sum, cp"),
    ("build --no-flush", "md5sum, cp"),
    ("md5sum, cp, sync", None),
    ("build", "md5sum, cp, sync"),
    ("md5sum", None),
    ("build, unchanged", "md5sum, cp"),
    ("build --rehash, unchanged", "md5sum, cp"),
]


def sizes(count, total):
    """Half of the bytes in one file of a hundred, the rest spread evenly."""
    large = max(1, count // 100)
    each_large = total // 2 // large
    each_small = max(1, (total - large * each_large) // max(1, count - large))
    return [each_large] * large + [each_small] * (count - large)


def make_tree(root, total):
    """A few large files and many small ones."""
    for n, size in enumerate(sizes(FILES, total)):
        room.write_files(root / "Data" / f"folder {n % FOLDERS}", 1, size, first=n)


class Contest:
    """One source, and a folder that each contestant finds empty."""

    def __init__(self, program, place):
        self.program = program
        self.source = place / "source"
        self.work = place / "work"
        self.cache = place / "cache"

    def fresh(self, name):
        # What an earlier round has remembered would spare this one the reading.
        for folder in (self.work, self.cache):
            room.remove(folder)
        self.work.mkdir()
        # No round pays for what an earlier one has left to write.
        os.sync()
        return self.work / name

    def by_hand(self, script, *target):
        return room.timed("bash", "-ec", script, "bench", self.source, *target)

    def build(self, target, *options):
        return room.timed(self.program, "build", self.source, target, *options,
                           env=os.environ | {"XDG_CACHE_HOME": str(self.cache)})

    def round(self):
        times = {"md5sum, cp": self.by_hand(BY_HAND, self.fresh("copy")),
                 "md5sum, cp, half of it on each of two cores":
                     self.by_hand(BY_HAND_ON_TWO_CORES, self.fresh("copy")),
                 "build --no-flush": self.build(self.fresh("server"), "--no-flush"),
                 "md5sum, cp, sync": self.by_hand(BY_HAND_SYNCED, self.fresh("copy")),
                 "build": self.build(self.fresh("server"))}
        os.sync()
        server = self.work / "server"
        return times | {"md5sum": self.by_hand(HASHES_BY_HAND),
                        "build, unchanged": self.build(server),
                        "build --rehash, unchanged": self.build(server, "--rehash")}


def large_and_small(options):
    mib = 64 if options.quick else 4096 if options.full else 1024
    with tempfile.TemporaryDirectory(prefix="bench-publish-") as place:
        contest = Contest(options.programs / "halden-publish", Path(place))
        make_tree(contest.source, mib * room.MEBIBYTE)
        contest.by_hand('find "$1" -type f -print0 | xargs -0 cat >/dev/null')
        rounds = [contest.round() for _ in range(options.rounds)]
    median = {name: statistics.median(times[name] for times in rounds) for name, _ in ROWS}
    table = Table("", "seconds", "of by hand")
    for name, base in ROWS:
        ratio = f"{median[name] / median[base]:.2f}" if base else ""
        table.add(name, f"{median[name]:.2f}", ratio)
    table.note(f"{FILES} files, {mib} MiB, {os.cpu_count()} cores, median of {options.rounds}.")
    return table


def measure(options):
    return [large_and_small(options), publishsmall.measure(options)]
