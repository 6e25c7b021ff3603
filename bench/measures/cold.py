"""A first evening: everything is fetched over TLS. Small files against the floor
that a fresh TLS connection for each file sets, large ones against one curl."""

import re
import shutil
import subprocess
import time
from pathlib import Path

from measures import room
from measures.tables import Table, bytes_text

TITLE = "Cold run"
PLACE = Path("/tmp/by-hand")
TLS = ["--tlsv1.2", "--tls-max", "1.2", "--cacert", room.AUTHORITY]


def addresses():
    """Of every published patch file, in the manifest's order."""
    root = room.TREE / "wow-client-patch" / "live"
    files = sorted(path for path in root.rglob("*.mpq"))
    return [f"{room.PATCH_FILES}/{path.relative_to(root)}" for path in files]


def clear_place():
    shutil.rmtree(PLACE, ignore_errors=True)
    PLACE.mkdir()


def publish(options, files, size):
    options.bench.publish(files, size)


def launcher(options, files, *arguments):
    """Seconds per download."""
    downloads = files * (1 if "--alone" in arguments else 2)

    def run():
        room.reset_player(realms=1)
        return options.bench.start_launcher(*arguments)["fetch"] / downloads
    return run


def handshakes(options):
    """Seconds per file when every file costs a fresh connection and nothing
    else."""
    path = addresses()[0].removeprefix(f"https://{room.SERVER}")
    seconds = 1 if options.quick else 3

    def run():
        begin = time.monotonic()
        output = subprocess.run(
            ["openssl", "s_time", "-connect", f"{room.SERVER}:443", "-tls1_2", "-new",
             "-www", path, "-time", str(seconds)],
            check=True, stdout=subprocess.PIPE, encoding="utf-8").stdout
        # The program's own clock counts whole seconds.
        return (time.monotonic() - begin) / int(re.search(r"(\d+) connections in", output)[1])
    return run


def by_hand(script, urls):
    """Seconds per file of a shell script that finds the addresses on standard
    input."""
    def run():
        clear_place()
        seconds = room.timed(
            "bash", "-ec", script, "bench", *TLS, cwd=PLACE, input="\n".join(urls) + "\n",
            text=True, stderr=subprocess.DEVNULL)
        found = len(list(PLACE.rglob("*.mpq")))
        if found != len(urls):
            raise RuntimeError(f"{found} instead of {len(urls)} files by: {script}")
        return seconds / len(urls)
    return run


CURL_EACH = 'while read -r url; do curl -sS "$@" -O "$url"; done'
CURL = "xargs printf 'url=%s\\nremote-name\\n' | curl -sS \"$@\" --config -"
WGET = f"wget -q -N --ca-certificate={room.AUTHORITY} -i -"
ARIA2 = (f"aria2c -q --ca-certificate={room.AUTHORITY} "
         "-j 2 --file-allocation=none --async-dns=false -i -")


def compare(table, rounds, unit, base, contestants):
    """Rows of the named contestants with their ratio to the base."""
    medians = room.median_rounds(rounds, *contestants.values())
    floor = medians[list(contestants).index(base)]
    for name, median in zip(contestants, medians):
        table.add(name, f"{median * unit:.2f}", f"{median / floor:.2f}")


def measure_small(options):
    files, size = (100 if options.quick else 1000), 65536
    publish(options, files, size)
    urls = addresses()
    table = Table(f"{files:,} files of {bytes_text(size)}", "ms per file", "ratio")
    compare(table, options.rounds, 1000, "`openssl s_time -new`: the floor", {
        "`openssl s_time -new`: the floor": handshakes(options),
        "launcher, one run by itself": launcher(options, files, "--alone"),
        "launcher, two runs side by side": launcher(options, files),
        "`curl`, one process per file": by_hand(CURL_EACH, urls[:files // 5]),
        "`curl`, one connection": by_hand(CURL, urls),
        "`wget -N`, one connection": by_hand(WGET, urls),
        "`aria2c`, two at a time": by_hand(ARIA2, urls),
    })
    return table


def measure_large(options):
    files, size = 8, (2 if options.quick else 64) * room.MEBIBYTE
    publish(options, files, size)
    urls = addresses()
    table = Table(f"{files} files of {bytes_text(size)}", "ms per MiB", "ratio")
    compare(table, options.rounds, 1000 / (size / room.MEBIBYTE), "`curl`, one connection", {
        "`curl`, one connection": by_hand(CURL, urls),
        "launcher, one run by itself": launcher(options, files, "--alone"),
        "launcher, two runs side by side": launcher(options, files),
        "`wget -N`, one connection": by_hand(WGET, urls),
        "`aria2c`, two at a time": by_hand(ARIA2, urls),
    })
    table.note(f"Medians of {options.rounds} alternating rounds. Of two runs side by side every "
               "file is fetched twice; the figure is per fetch.")
    return table


def measure(options):
    return [measure_small(options), measure_large(options)]
