"""A patch day on one server of this machine: how many players it serves at a time, and
whether halden-publish estimate tells how long a line is full; what a cache spares, and
what publications cost."""

import json
import resource
import subprocess
from pathlib import Path

from measures import fleetcosts, room
from measures.tables import Table, bytes_text
from world.waiting import wait_for

TITLE = "Fleet"
STATE = Path("/run/halden")
PID = STATE / "nginx.pid"
KEYS = [("RSA-2048", "rsa:2048"), ("ECDSA P-256", "ec:prime256v1")]
CONNECTIONS = 4096
LINE = 100  # Mbit/s


def raise_limit():
    """Of open files, for the server and the players."""
    _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))


def serve(options, key):
    """Anew, with a certificate of this kind."""
    options.bench.community.stop()
    wait_for("the server has ended", lambda: not PID.exists())
    room.remove(STATE / "tls")
    options.bench.community.serve("--key", key, "--connections", str(CONNECTIONS))


def server_memory():
    """KiB of the server's process now, without what it shares."""
    process = PID.read_text(encoding="utf-8").strip()
    rollup = Path(f"/proc/{process}/smaps_rollup").read_text(encoding="utf-8")
    return sum(int(line.split()[1]) for line in rollup.splitlines()
               if line.startswith(("Private_Clean", "Private_Dirty")))


def play(options, players, starts, *habits):
    """What that many players met, who all start at the same moment."""
    run = subprocess.run(
        [options.programs / "bench" / "bench_players", "--settled", "--players", str(players),
         "--starts", str(starts), "--authority", room.AUTHORITY, *habits],
        check=True, stdout=subprocess.PIPE, encoding="utf-8")
    return json.loads(run.stdout)


def met(report):
    """Whether everybody got everything, in a word."""
    return str(sum(report["failures"].values()) + report["missing"] + report["wrong"])


def patch_day(options, files, size, crowds):
    options.bench.publish(files, size)
    table = Table(f"{files} files of {bytes_text(size)}", "players at a time", "connections/s",
                  "files/s", "MiB/s", "server KiB by player", "refused")
    for name, key in KEYS:
        serve(options, key)
        before = server_memory()
        for players in crowds:
            report = play(options, players, 1)
            seconds = report["seconds"]
            table.add(name, f"{players:,}", f"{report['requests'] / seconds:,.0f}",
                      f"{2 * files * players / seconds:,.0f}",
                      f"{report['bytes'] / room.MEBIBYTE / seconds:,.0f}",
                      f"{max(0, server_memory() - before) / players:.1f}", met(report))
    return table


def limit_line(megabits):
    """In front of the loopback, with packets as large as an Ethernet's."""
    subprocess.run(["ip", "link", "set", "lo", "mtu", "1500"], check=True)
    subprocess.run(["tc", "qdisc", "replace", "dev", "lo", "root", "tbf", "rate", f"{megabits}mbit",
                    "burst", "256kb", "latency", "200ms"], check=True)


def free_line():
    subprocess.run(["tc", "qdisc", "del", "dev", "lo", "root"], check=True)
    subprocess.run(["ip", "link", "set", "lo", "mtu", "65536"], check=True)


def estimate(options, players):
    run = subprocess.run(
        [options.programs / "halden-publish", "estimate", room.TREE, "--json", "--players",
         str(players), "--line", str(LINE)], check=True, stdout=subprocess.PIPE, encoding="utf-8")
    return json.loads(run.stdout)["anew"]["lineSeconds"]


def limited_line(options):
    table = Table("", "players", "estimated s", "simulated s", "ratio")
    rows = [(20, 65536), (10, room.MEBIBYTE)]
    serve(options, KEYS[0][1])
    for files, size in rows:
        options.bench.publish(files, size)
        for players in [5] if options.quick else [10, 40]:
            expected = estimate(options, players)
            limit_line(LINE)
            try:
                report = play(options, players, 1)
            finally:
                free_line()
            table.add(f"{files} files of {bytes_text(size)}", players, f"{expected:.1f}",
                      f"{report['seconds']:.1f}", f"{report['seconds'] / expected:.2f}")
    table.note(f"A line of {LINE} Mbit/s, in front of the loopback.")
    return table


def measure(options):
    raise_limit()
    crowds = [10, 50] if options.quick else [10, 30, 100, 300, 1000]
    tables = [patch_day(options, 10, 65536, crowds),
              patch_day(options, 2, 16 * room.MEBIBYTE, crowds[:1 if options.quick else 3]),
              limited_line(options)]
    serve(options, KEYS[0][1])
    options.bench.publish(10, 65536)
    return [*tables, fleetcosts.edge(options, play, met, crowds[-2]), fleetcosts.costs(options)]
