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

TITLE = "Push"
FILES = 2000
NAMES = ["alder", "birch", "cedar"]
TLS_PORT = 8443
SFTP_PORT = 2022
LINE = 100  # Mbit/s
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
        f"http {{\n{site}\n}}\n", encoding="utf-8")
    return subprocess.Popen(["/usr/sbin/nginx", "-e", "stderr", "-c", folder / "nginx.conf"])


def site_of(folder, listen):
    site = SITE.read_text(encoding="utf-8")
    for text, other in [("listen 443 ssl", f"listen {listen} ssl"), (" tls/", f" {TLS}/"),
                        ("/srv/halden", f"{folder}/tree"), ("/var/log/nginx/", f"{folder}/")]:
        site = site.replace(text, other)
    return site


class Fleet:
    """Three web servers of this machine with folders that are reached by SFTP."""

    def __init__(self, place, other_place):
        self.place = place
        # What lies in memory may take half of it in each place, which is less than what
        # three servers have.
        self.folders = {name: (other_place if name == NAMES[-1] else place) / name
                        for name in NAMES}
        self.processes = []
        self.file = place / "fleet.ini"

    def serve(self):
        password = subprocess.run(["rclone", "obscure", "secret"], check=True,
                                  stdout=subprocess.PIPE, encoding="utf-8").stdout.strip()
        remotes, servers = "", ""
        for name, folder in self.folders.items():
            (folder / "tree").mkdir(parents=True)
            self.processes += [
                nginx(folder, site_of(folder, f"{host(name)}:{TLS_PORT}")),
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
        for folder in self.folders.values():
            for path in (folder / "tree").iterdir():
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
def served():
    def place(**where):
        return tempfile.TemporaryDirectory(prefix="bench-push-", **where)

    with place() as one, place(dir="/var") as other:
        fleet = Fleet(Path(one), Path(other))
        try:
            fleet.serve()
            yield fleet
        finally:
            fleet.stop()


def each_of_three(command):
    """By hand, one server after the other."""
    return f'for name in "${{@:2}}"; do {command}; done'


def at_once(command):
    """By hand, the three at a time."""
    return f'for name in "${{@:2}}"; do {command} & p+=($!); done; wait "${{p[@]}}"'


LISTING = "rclone lists, three at once"
UNCHANGED = "push, unchanged"
COPY = 'rclone copy "$1" "$name:"'
LIST = 'rclone lsf --recursive "$name:"'


def by_hand(way):
    return room.timed("bash", "-ec", way, "bench", room.TREE, *NAMES)


def push(options, fleet):
    # What is published as a launcher is none.
    return room.timed(options.programs / "halden-publish", "push", room.TREE, "--fleet",
                      fleet.file, "--days", "0", "--separator", "/", "--pause", "0",
                      "--accept", "not-a-program")


def contest(options, fleet):
    """Seconds by what has been done."""
    seconds = {}
    for name, way in [("rclone, one server after the other", each_of_three(COPY)),
                      ("rclone, three at once", at_once(COPY))]:
        fleet.empty()
        seconds[name] = by_hand(way)
    fleet.empty()
    seconds["push"] = push(options, fleet)
    seconds[LISTING] = by_hand(at_once(LIST))
    seconds[UNCHANGED] = push(options, fleet)
    return seconds


@contextmanager
def line(megabits):
    """Between this machine, as it were, and the servers: so much each way."""
    def tc(*arguments):
        subprocess.run(["tc", *map(str, arguments)], check=True, stderr=subprocess.DEVNULL)

    subprocess.run(["ip", "link", "set", "lo", "mtu", "1500"], check=True)
    tc("qdisc", "replace", "dev", "lo", "root", "handle", "1:", "htb")
    for number, direction in enumerate(["dport", "sport"], 1):
        tc("class", "add", "dev", "lo", "parent", "1:", "classid", f"1:{number}", "htb", "rate",
           f"{megabits}mbit", "quantum", 15000)
        for port in TLS_PORT, SFTP_PORT:
            tc("filter", "add", "dev", "lo", "parent", "1:", "protocol", "ip", "u32", "match",
               "ip", direction, port, "0xffff", "flowid", f"1:{number}")
    try:
        yield
    finally:
        tc("qdisc", "del", "dev", "lo", "root")
        subprocess.run(["ip", "link", "set", "lo", "mtu", "65536"], check=True)


def table_of(files, size, where, seconds):
    """Unchanged pushes stand beside a listing, all others beside the better way by hand."""
    better = min(value for name, value in seconds.items() if name.startswith("rclone, "))
    listing = seconds[LISTING]
    table = Table(f"{files:,} files of {bytes_text(size)}, {where}", "seconds", "ratio")
    for name, value in seconds.items():
        floor = listing if name in (LISTING, UNCHANGED) else better
        table.add(name, f"{value:.1f}", f"{value / floor:.2f}")
    return table


def contests(options, fleet):
    mib = 16 if options.quick else 4096 if options.full else 1024
    files = 100 if options.quick else FILES
    size = mib * room.MEBIBYTE // files
    options.bench.publish(files, size)
    yield table_of(files, size, "on the loopback", contest(options, fleet))
    files = 20 if options.quick else 200
    size = room.MEBIBYTE // 2
    options.bench.publish(files, size)
    with line(LINE):
        yield table_of(files, size, f"{LINE} Mbit/s each way", contest(options, fleet))


def measure(options):
    with served() as fleet:
        tables = list(contests(options, fleet))
    tables[-1].note(
        "By SFTP; servers, rclone and push share the machine. A push also checks the tree, asks "
        "each server for every file that is new to it, and probes. It stands beside the better "
        "way by hand, and an unchanged one beside the listing of all three servers at once.")
    return tables
