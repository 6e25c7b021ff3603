"""The publisher on many small files, for trees of growing size, beside md5sum and cp
and beside find, with a picture.

Nothing is deleted while it measures, since a file system is slower at making files
for a while after many have gone. Processor seconds are told beside the seconds that
pass, because a busy machine disturbs them less."""

import os
import subprocess
import tempfile
import time
from pathlib import Path

from measures import plot
from measures.tables import Table

COUNTS = [5000, 20000, 80000, 200000]
QUICK_COUNTS = [200, 1000]
FILE_SIZE = 2048
FILES_IN_A_FOLDER = 500
TITLES = ["files", "md5sum,cp", "cp of what is served", "build", "of by hand", "unchanged",
          "find", "of find", "check", "processor: build", "unchanged", "KiB by file"]
BY_HAND = 'find "$1" -type f -print0 | xargs -0 -P1 md5sum; cp -r "$1" "$2"'


class Spent:
    """What a command took: seconds that pass, processor seconds, memory in KiB."""

    def __init__(self, *command, **settings):
        begin = time.monotonic()
        with tempfile.TemporaryFile() as said:
            process = subprocess.Popen(command, stdout=said, **settings)
            _, status, usage = os.wait4(process.pid, 0)
            self.seconds = time.monotonic() - begin
            if status != 0:
                said.seek(0)
                raise RuntimeError(f"{command} failed: {said.read(4096).decode()}")
        self.processor = usage.ru_utime + usage.ru_stime
        self.memory = usage.ru_maxrss


def make_tree(root, count):
    block = os.urandom(FILE_SIZE)
    for n in range(count):
        path = root / "Data" / f"folder {n // FILES_IN_A_FOLDER}" / f"patch-{n}.mpq"
        if n % FILES_IN_A_FOLDER == 0:
            path.parent.mkdir(parents=True)
        path.write_bytes((f"{n}\n".encode() + block)[:FILE_SIZE])


def row(program, place, count):
    """The cells of TITLES, as numbers."""
    source, server = place / "source", place / "server"
    environment = os.environ | {"XDG_CACHE_HOME": str(place / "cache")}
    make_tree(source, count)
    os.sync()
    hand = Spent("bash", "-ec", BY_HAND, "bench", source, place / "copy")
    os.sync()
    command = [program, "build", source, server, "--no-flush"]
    build = Spent(*command, env=environment)
    unchanged = Spent(*command, env=environment)
    find = Spent("find", source, server, "-printf", "%s %T@ %p\\n")
    check = Spent(program, "check", server, env=environment)
    os.sync()
    # A folder for each file: what the addresses cost a file system by themselves.
    served = Spent("cp", "-r", server, place / "served")
    memory = max(build.memory, unchanged.memory) / count
    return [count, hand.seconds, served.seconds, build.seconds, build.seconds / hand.seconds,
            unchanged.seconds, find.seconds, unchanged.seconds / find.seconds, check.seconds,
            build.processor / hand.processor, unchanged.processor / find.processor, memory]


def picture(rows):
    return plot.publishing([
        {"files": files, "build": build / files, "unchanged": unchanged / files,
         "check": check / files, "memory": memory}
        for files, _, _, build, _, unchanged, _, _, check, _, _, memory in rows])


def measure(options):
    with tempfile.TemporaryDirectory(prefix="bench-growth-") as place:
        rows = [row(options.programs / "halden-publish", Path(place, str(count)), count)
                for count in (QUICK_COUNTS if options.quick else COUNTS)]
    table = Table(*TITLES)
    for count, *figures in rows:
        table.add(f"{count:,}", *(f"{figure:.2f}" for figure in figures))
    table.note(f"Files of 2 KiB, {'on a disk' if options.on else 'in memory'}; seconds, and ratios "
               "beside them. The last ratios are those of processor seconds, of both cores, to the "
               "same work by hand.")
    if not options.on:
        options.picture.with_name("publishing.svg").write_text(picture(rows), encoding="utf-8")
    return table
