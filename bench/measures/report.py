"""What it takes to read access logs, against another program that does."""

import os
import random
import subprocess
import time
from pathlib import Path

from measures import room
from measures.tables import Table, bytes_text

TITLE = "Access logs"
FOLDER = Path("/home/player/logs")
PLAYERS = 100_000
BEGIN = 1_793_600_000
# What a start asks for, by its runs.
START = [("/alert", 200, 412)] + 2 * [
    ("/Halden-Launcher-Updater.exe", 304, 0), ("/Halden-Launcher.exe", 304, 0),
    ("/patch.ini", 200, 14_800)]
PATCH_FILES = [f"/wow-client-patch/live/Data/{n:032x}/patch-{n}.mpq" for n in range(10)]


def address(player):
    return f"{10 + player % 80}.{player >> 8 & 255}.{player & 255}.{player * 7 & 255}"


def start_of(player, second, chance):
    stamp = time.strftime("%d/%b/%Y:%H:%M:%S", time.gmtime(BEGIN + second))
    asked = START + 2 * [(chance.choice(PATCH_FILES), 200, 25_000_000)]
    return "".join(
        f'{address(player)} - - [{stamp} +0000] "GET {path} HTTP/1.1" {status} {size} "-" '
        '"Tarnwick Launcher"\n' for path, status, size in asked).encode()


def write_log(path, size):
    """Everybody comes once before anybody comes again."""
    chance = random.Random(1)
    written = starts = 0
    with path.open("wb") as file:
        while written < size:
            player = starts if starts < PLAYERS else chance.randrange(PLAYERS)
            written += file.write(start_of(player, starts // 20, chance))
            starts += 1


def lines_of(path):
    with path.open("rb") as file:
        return sum(block.count(b"\n") for block in iter(lambda: file.read(1 << 20), b""))


def cost(*command):
    """Seconds of a processor and KiB at the peak, on the second core."""
    process = subprocess.Popen(
        ["taskset", "--cpu-list", str(os.cpu_count() - 1), *map(str, command)],
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise RuntimeError(f"{command[0]} ended with {process.returncode}")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss


def of_another(logs):
    return cost("goaccess", *logs, "--log-format=COMBINED", "--no-progress",
                "--no-global-config", "--output", FOLDER / "other.json")


def measure(options):
    piece = (16 if options.quick else 256) * room.MEBIBYTE
    FOLDER.mkdir(parents=True, exist_ok=True)
    log, small = FOLDER / "piece.log", FOLDER / "small.log"
    write_log(log, piece)
    write_log(small, piece // 26)
    lines = lines_of(log)
    table = Table("log", "lines", "halden-publish s", "peak MiB", "goaccess s", "ratio")
    for logs, beside in [([small], True), ([log], False), ([log] * 4, True), ([log] * 16, False)]:
        size = sum(one.stat().st_size for one in logs)
        count = lines * len(logs) if logs[0] == log else lines_of(small)
        own, peak = cost(options.programs / "halden-publish", "report", "--json", *logs)
        other = of_another(logs)[0] if beside else None
        table.add(
            bytes_text(round(size / room.MEBIBYTE) * room.MEBIBYTE), f"{count:,}", f"{own:.2f}",
            f"{peak / 1024:.0f}", f"{other:.2f}" if other else "",
            f"{other / own:.0f}" if other else "")
    room.remove(FOLDER)
    table.note(
        f"Combined lines of up to {PLAYERS:,} players. Seconds are those of a processor, of one "
        "core each; larger logs are the same piece several times over.")
    return table
