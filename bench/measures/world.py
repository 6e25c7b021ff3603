"""The world inside the sandbox: a community that publishes, its web server, a
player with clients, and the programs that are timed there."""

import json
import os
import shutil
import statistics
import subprocess
import time
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
HOME = Path("/home/player/Halden Launcher")
CACHE = HOME / "ClientDataStorage"
CLIENTS = Path("/home/player/clients")
TREE = Path("/srv/halden")
SERVER = "download.tarnwick.example"
PATCH_FILES = f"https://{SERVER}/wow-client-patch/live"
AUTHORITY = "/run/halden/authority.pem"
PUBLISHED = 1_714_550_400  # 1 May 2024: whatever a player has is newer
MEBIBYTE = 1 << 20


class World:
    def __init__(self, programs):
        self.programs = programs

    def publish(self, source):
        """Publishes a folder of patch files, as an admin does. Clears what was
        published before."""
        shutil.rmtree(TREE, ignore_errors=True)
        TREE.mkdir(parents=True)
        subprocess.run(
            [self.programs / "halden-publish", "build", "--separator", "/", "--no-flush",
             source, TREE],
            check=True, stdout=subprocess.DEVNULL)
        (TREE / "launcher.info").write_text("<h1>Bench</h1>")
        for name in ["Halden-Launcher.exe", "Halden-Launcher-Updater.exe"]:
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


def serve():
    """Once for all benchmarks; what is published may change."""
    TREE.mkdir(parents=True, exist_ok=True)
    subprocess.run([PROJECT / "scripts" / "serve-community", TREE], check=True)


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
        shutil.rmtree(folder, ignore_errors=True)
    (HOME / "Settings").mkdir()
    for name in ["Halden-Launcher.exe", "Halden-Launcher-Updater.exe"]:
        (HOME / name).write_bytes(b"stands in for the program")
    lines = ["[realms]", f"size={realms}"]
    for n in range(1, realms + 1):
        client = CLIENTS / str(n % clients)
        (client / "Data").mkdir(parents=True, exist_ok=True)
        lines += [f"{n}-realmName=Halden {n}", f"{n}-realmHost=logon.tarnwick.example",
                  f"{n}-clientPath={client}", f"{n}-testRealm=false", f"{n}-language=deDE"]
    lines += ["[selected_realm]", "realmid=1"]
    (HOME / "Settings" / "realms.ini").write_text("\n".join(lines) + "\n")


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
