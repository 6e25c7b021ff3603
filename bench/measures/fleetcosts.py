"""What a cache in front of a server spares it, and what publications cost, by their size
and the number of their files."""

import json
import subprocess
import tempfile
from pathlib import Path

from measures import push, room
from measures.tables import Table, bytes_text

EDGE = room.PROJECT / "packaging/nginx/halden-edge.conf"
EDGE_ADDRESS = "127.0.0.21:8443"
ORIGIN = "127.0.0.1:443"
GIGABIT = 1000  # Mbit/s


def edge_site(folder):
    """The administrators' cache, before the community's server."""
    site = EDGE.read_text(encoding="utf-8")
    for text, other in [
            ("listen 443 ssl", f"listen {EDGE_ADDRESS} ssl"), (" tls/", f" {push.TLS}/"),
            ("/var/cache/nginx/halden", f"{folder}/cache"), ("192.0.2.10:443", ORIGIN),
            ("    server 192.0.2.11:443 max_fails=3 fail_timeout=5s;\n", ""),
            ("    server 192.0.2.11:443 backup;\n", ""),
            ("/etc/ssl/certs/ca-certificates.crt", str(room.AUTHORITY))]:
        site = site.replace(text, other)
    return site


def edge(options, play, met, players):
    """How much reaches the server when everybody starts at the same moment: `play` lets
    them, and `met` tells who was refused."""
    table = Table(f"{players} players, 10 files of 64 KiB", "requests", "at the server",
                  "MiB from the server", "refused")
    with tempfile.TemporaryDirectory(prefix="bench-edge-") as place:
        process = push.nginx(Path(place), edge_site(place))
        try:
            host, port = EDGE_ADDRESS.split(":")
            push.wait_for("the cache serves", lambda: push.is_up(host, port))
            for name, address in [("without a cache", ORIGIN), ("an empty cache", EDGE_ADDRESS),
                                  ("a full one", EDGE_ADDRESS)]:
                options.bench.community.forget_requests()
                report = play(options, players, 1, "--servers", address)
                requests = options.bench.community.requests()
                sent = sum(request.size for request in requests)
                table.add(name, f"{report['requests']:,}", f"{len(requests):,}",
                          f"{sent / room.MEBIBYTE:,.0f}", met(report))
        finally:
            process.terminate()
            process.wait()
    return table


def estimate(options, players):
    run = subprocess.run(
        [options.programs / "halden-publish", "estimate", room.TREE, "--json", "--players",
         str(players), "--line", str(GIGABIT)], check=True, stdout=subprocess.PIPE,
        encoding="utf-8")
    return json.loads(run.stdout)["anew"]


def costs(options):
    """By halden-publish estimate, for those who fetch all of it."""
    table = Table("patch", "players", "h: the line", "h: connections", "servers for an evening")
    small, large = (1, 4) if options.quick else (100, 1024)
    for mib, files in [(small, 10), (large, 10), (large, 1000), (large, 4000), (large, 20000)]:
        size = mib * room.MEBIBYTE
        options.bench.publish(files, size // files)
        for players in 300, 3000, 10000:
            told = estimate(options, players)
            table.add(f"{bytes_text(size)} in {files:,} files", f"{players:,}", f"{told['lineSeconds'] / 3600:.2f}",
                      f"{told['connectionSeconds'] / 3600:.2f}", told["serversForAnEvening"])
    table.note(f"{GIGABIT} Mbit/s, and 500 new connections a second, for each server.")
    return table
