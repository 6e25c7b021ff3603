"""What a player waits for: a first evening over lines of different lengths and widths,
against the floor of the very conversation that the line has seen."""

import json
import subprocess

from measures import room
from measures.cold import CURL, addresses, by_hand
from measures.tables import Table, bytes_text

TITLE = "A player's line"
SERVER_PORT = 8443
ROUND_TRIPS = [10, 30, 80]  # ms
WIDTHS = [16, 50, 250]  # Mbit/s
LATE = [0, 1]  # %
# The launcher's connections: TCP, a TLS 1.2 handshake of two, request and answer.
ROUND_TRIPS_OF_A_REQUEST = 4
RUNS = 2
# What is asked for beside the two runs: the window's text.
OTHER_REQUESTS = 1


class Line:
    """In front of the server, as long as it is open."""

    def __init__(self, options, round_trip, width, late):
        self.process = subprocess.Popen(
            [options.programs / "bench" / "bench_line", "--server-port", str(SERVER_PORT),
             "--round-trip", str(round_trip), "--line", str(width), "--late", str(late)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, encoding="utf-8")
        if self.process.stdout.readline() != "ready\n":
            raise RuntimeError("the line cannot be opened")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()

    def close(self):
        """What went over it."""
        return json.loads(self.process.communicate()[0])


def floor_of(seen, round_trip, width):
    """Seconds: one round trip after the other of a run, and all bytes over the line."""
    requests = (seen["connections"] - OTHER_REQUESTS) / RUNS
    return requests * ROUND_TRIPS_OF_A_REQUEST * round_trip / 1000 + seen["bytes"] * 8 / width / 1e6


def play(options, files, *line):
    """Seconds that a start of the launcher takes over this line, and their floor."""
    room.reset_player(realms=1)
    with Line(options, *line) as opened:
        figures = options.bench.start_launcher()
        seen = opened.close()
    if figures["runs"] != RUNS or seen["connections"] < RUNS * files:
        raise RuntimeError(f"not a first evening: {figures}, {seen}")
    return seen["seconds"], floor_of(seen, *line[:2])


def curl(options, *line):
    with Line(options, *line):
        urls = addresses()
        return by_hand(CURL, urls)() * len(urls)


def waits(options, files, size):
    options.bench.publish(files, size)
    table = Table(f"{files} files of {bytes_text(size)}", "floor s", "launcher s", "ratio",
                  "1 % late: s", "ratio", "`curl` s", "1 % late: s")
    for round_trip in [30] if options.quick else ROUND_TRIPS:
        for width in [50] if options.quick else WIDTHS:
            cells, by_curl = [], []
            for late in LATE:
                seconds, floor = play(options, files, round_trip, width, late)
                if not cells:
                    cells.append(f"{floor:.2f}")
                cells += [f"{seconds:.2f}", f"{seconds / floor:.2f}"]
                by_curl.append(f"{curl(options, round_trip, width, late):.2f}")
            table.add(f"{round_trip} ms, {width} Mbit/s", *cells, *by_curl)
    return table


def measure(options):
    options.bench.community.stop()
    options.bench.community.serve("--port", str(SERVER_PORT))
    try:
        tables = [waits(options, 25, 65536), waits(options, 2, 4 * room.MEBIBYTE)]
    finally:
        options.bench.community.stop()
    options.bench.serve()
    tables[-1].note("Of both update runs of a start, which fetch every file twice; `curl` fetches "
                    "it once, over one connection. \"Late\" is what arrives a round trip after its "
                    "turn, in pieces of 4 KiB. One round each.")
    return tables
