"""The room that the benchmarks find: a community and its web server, a player with
clients, and the programs that are timed there."""

import json
import os
import shutil
import statistics
import subprocess
import time
from pathlib import Path

from world import player
from world.community import Community

PROJECT = Path(__file__).resolve().parents[2]
HOME = Path("/home/player/Halden Launcher")
CACHE = HOME / "ClientDataStorage"
CLIENTS = Path("/home/player/clients")
SOURCE = HOME / "source"
TREE = Path("/srv/halden")
SERVER = "download.tarnwick.example"
PATCH_FILES = f"https://{SERVER}/wow-client-patch/live"
AUTHORITY = "/run/halden/authority.pem"
PUBLISHED = 1_714_550_400  # 1 May 2024: whatever a player has is newer
MEBIBYTE = 1 << 20


class Bench:
    def __init__(self, programs):
        self.programs = programs
        self.community = Community(programs / "halden-publish", SOURCE, TREE)

    def serve(self):
        """Once for all benchmarks; what is published may change."""
        TREE.mkdir(parents=True, exist_ok=True)
        self.community.serve()

    def publish(self, count, size, kept_as=None):
        """Publishes so many patch files of this size, in place of what was published
        before. The admin's folder of them goes, or is moved to `kept_as`."""
        remove(TREE)
        TREE.mkdir(parents=True)
        source = SOURCE / "live"
        write_files(source / "Data", count, size)
        self.community.publish_patch("live", "--separator", "/", "--no-flush")
        if kept_as:
            source.rename(kept_as)
        remove(SOURCE)
        (TREE / "launcher.info").write_text("<h1>Bench</h1>")
        for name in player.PROGRAMS:
            (TREE / name).write_bytes(b"older than the player's")
            os.utime(TREE / name, (PUBLISHED, PUBLISHED))

    def program(self, name):
        """A program as a copy in the application folder, where the launcher has
        its files."""
        copy = HOME / name
        if not copy.exists():
            shutil.copy(self.programs / "bench" / name, copy)
        return copy

    def run(self, name, *arguments):
        """One line of JSON for each line that a program prints."""
        run = subprocess.run(
            [self.program(name), *map(str, arguments)], check=True, cwd=HOME,
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, encoding="utf-8")
        return [json.loads(line) for line in run.stdout.splitlines()]

    def start_launcher(self, *arguments):
        return self.run("bench_run", *arguments)[0]


def write_files(folder, count, size, first=0):
    """Files with different contents; the names tell nothing."""
    folder.mkdir(parents=True, exist_ok=True)
    block = os.urandom(min(size, MEBIBYTE))
    for n in range(first, first + count):
        with (folder / f"patch-{n}.mpq").open("wb") as file:
            file.write(f"{n}\n".encode().ljust(16))
            for start in range(16, size, MEBIBYTE):
                file.write(block[:min(MEBIBYTE, size - start)])


def reset_player(realms, clients=1):
    """A player's folder before the first evening but for the realm list, whose
    realms share the client folders in turn. Nothing is to hand over to the
    updater."""
    for folder in [CACHE, HOME / "Settings", CLIENTS]:
        remove(folder)
    folders = [CLIENTS / str(n % clients) for n in range(realms)]
    for folder in folders:
        (folder / "Data").mkdir(parents=True, exist_ok=True)
    player.settle(
        HOME, [player.Realm(f"Halden {n}", folder) for n, folder in enumerate(folders, 1)],
        player.PROGRAMS)


def timed(*command, **settings):
    """Seconds that a command takes."""
    begin = time.monotonic()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, **settings)
    return time.monotonic() - begin


def median_rounds(rounds, *contestants):
    """Medians of each contestant's figures, after one round that does not count.
    The contestants take turns, and every other round in the opposite order, so
    that none always follows the same one."""
    results = {contestant: [] for contestant in contestants}
    for n in range(rounds + 1):
        for contestant in contestants[::1 if n % 2 else -1]:
            figure = contestant()
            if n > 0:
                results[contestant].append(figure)
    return [statistics.median(figures) for figures in results.values()]


def remove(folder):
    shutil.rmtree(folder, ignore_errors=True)
