"""push to three servers reached by SSH against rclone by hand to the same three."""

import os
import shutil
import subprocess
import tempfile
from contextlib import contextmanager
from pathlib import Path

from measures import room
from measures.tables import Table, bytes_text
from world.waiting import wait_for

FILES = 2000
NAMES = ["alder", "birch", "cedar"]
TLS_PORT = 8443
SFTP_PORT = 2022
SITE = room.PROJECT / "packaging/nginx/halden-community.conf"
TLS = Path("/run/halden/tls")


def host(name):
    return f"127.0.0.{11 + NAMES.index(name)}"


def is_up(address, port):
    """Whether somebody accepts connections there."""
    return subprocess.run(["bash", "-c", f": </dev/tcp/{address}/{port}"], check=False,
                          stderr=subprocess.DEVNULL).returncode == 0


def nginx(folder, site):
    """With this site and nothing else."""
    user = "user root;" if os.geteuid() == 0 else ""
    (folder / "nginx.conf").write_text(
        f"daemon off; worker_processes 1; {user} pid {folder}/pid; error_log {folder}/error.log;\n"
        "events { worker_connections 4096; }\n"
        "http { log_format requests '$request_uri $status $body_bytes_sent';\n"
        f"access_log {folder}/access.log requests;\n{site}\n}}\n", encoding="utf-8")
    return subprocess.Popen(["/usr/sbin/nginx", "-e", "stderr", "-c", folder / "nginx.conf"])


def site_of(tree, listen):
    site = SITE.read_text(encoding="utf-8")
    for text, other in [("listen 443 ssl", f"listen {listen} ssl"), ("/srv/halden", str(tree)),
                        (" tls/", f" {TLS}/")]:
        site = site.replace(text, other)
    return site


class Fleet:
    """Three web servers of this machine with folders that are reached by SFTP."""

    def __init__(self, place):
        self.place = place
        self.processes = []
        self.file = place / "fleet.ini"

    def serve(self):
        password = subprocess.run(["rclone", "obscure", "secret"], check=True,
                                  stdout=subprocess.PIPE, encoding="utf-8").stdout.strip()
        remotes, servers = "", ""
        for name in NAMES:
            folder = self.place / name
            (folder / "tree").mkdir(parents=True)
            self.processes += [
                nginx(folder, site_of(folder / "tree", f"{host(name)}:{TLS_PORT}")),
                subprocess.Popen(
                    ["rclone", "serve", "sftp", folder / "tree", "--addr",
                     f"{host(name)}:{SFTP_PORT}", "--user", "admin", "--pass", "secret",
                     "--dir-cache-time", "0s"], stderr=subprocess.DEVNULL)]
            remotes += (f"[{name}]\ntype = sftp\nhost = {host(name)}\nport = {SFTP_PORT}\n"
                        f"user = admin\npass = {password}\n")
            servers += (f"[{name}]\nremote = {name}:\naddress = https://{room.SERVER}/\n"
                        f"connect = {host(name)}:{TLS_PORT}\n")
        (self.place / "rclone.conf").write_text(remotes, encoding="utf-8")
        self.file.write_text(servers, encoding="utf-8")
        os.environ["RCLONE_CONFIG"] = str(self.place / "rclone.conf")
        for name in NAMES:
            for port in TLS_PORT, SFTP_PORT:
                wait_for(f"{name} serves", lambda n=name, p=port: is_up(host(n), p))

    def empty(self):
        for name in NAMES:
            for path in (self.place / name / "tree").iterdir():
                if path.is_dir():
                    shutil.rmtree(path)
                else:
                    path.unlink()
        os.sync()

    def stop(self):
        for process in self.processes:
            process.terminate()
            process.wait()


@contextmanager
def served(place):
    fleet = Fleet(place)
    try:
        fleet.serve()
        yield fleet
    finally:
        fleet.stop()


def one_after_the_other(tree):
    return room.timed("bash", "-ec", 'for name in "${@:2}"; do rclone copy "$1" "$name:"; done',
                      "bench", tree, *NAMES)


def in_parallel(tree):
    return room.timed(
        "bash", "-ec",
        'for name in "${@:2}"; do rclone copy "$1" "$name:" & p+=($!); done; wait "${p[@]}"',
        "bench", tree, *NAMES)


def push(options, fleet):
    # What is published as a launcher is none.
    return room.timed(options.programs / "halden-publish", "push", room.TREE, "--fleet",
                      fleet.file, "--days", "0", "--separator", "/", "--pause", "0",
                      "--accept", "not-a-program")


def measure(options):
    mib = 16 if options.quick else 4096 if options.full else 1024
    files = 100 if options.quick else FILES
    options.bench.publish(files, mib * room.MEBIBYTE // files)
    with tempfile.TemporaryDirectory(prefix="bench-push-") as place:
        with served(Path(place)) as fleet:
            hand = {}
            for name, way in [("rclone, one server after the other", one_after_the_other),
                              ("rclone, three at once", in_parallel)]:
                fleet.empty()
                hand[name] = way(room.TREE)
            fleet.empty()
            first = push(options, fleet)
            again = push(options, fleet)
    better = min(hand.values())
    table = Table("to three servers", "seconds", "of the better by hand")
    for name, seconds in [*hand.items(), ("push", first), ("push, unchanged", again)]:
        table.add(name, f"{seconds:.1f}", f"{seconds / better:.2f}")
    table.note(
        f"{files:,} files, {bytes_text(mib * room.MEBIBYTE)}, by SFTP; servers, rclone and push "
        "share the machine. `push` also checks the tree, and asks each server for every file.")
    return table
