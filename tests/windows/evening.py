#!/usr/bin/env python3
"""Plays a player's first evening on Windows, inside scripts/sandbox and under
tests/windows/in-wine: from the installer to the newer launcher and back to
nothing but the player's own settings. The player is called as USER says, with an
umlaut and a blank, and works with mouse and keyboard only.

usage: evening.py --scripts FOLDER --publish PROGRAM --package FOLDER --newer FILE
                  --game FILE --screenshots FOLDER

PACKAGE is what scripts/package-windows has made, NEWER a launcher with a higher
version number, GAME a program that reports how it was started."""

import argparse
import hashlib
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from screen import EveningFailure, Screen, Window, wait_for, xdotool

ACCESS_LOG = Path("/run/halden/access.log")
WORK = Path("/home/player")
PROFILE = Path("/users") / os.environ["USER"]
FOLDER = PROFILE / "AppData/Local/Programs/Halden Launcher"
SHORTCUTS = PROFILE / "AppData/Roaming/Microsoft/Windows/Start Menu/Programs"
PLAYED = WORK / "played.txt"

WINDOW = "Halden Launcher"
DIALOG = "Halden Launcher Client hinzufügen"
# Places in the forms.
NAME, HOST, PATH, OK = (270, 65), (270, 135), (270, 200), (272, 366)
ADD_CLIENT, SELECTOR, START = (885, 615), (1000, 505), (1000, 545)
INFO_TEXT, VERSION, DOWNLOAD = (30, 200, 311, 391), (30, 680, 221, 20), (30, 630, 611, 20)
# The installer's, see installer.nsi.
EXIT_RUNNING = 3
# Of the labels' letters; blue comes first.
GOLD = bytes((0, 215, 255))


def say(text):
    print(f"evening: {text}", flush=True)


def require(condition, what):
    if not condition:
        raise EveningFailure(what)


def only(paths):
    found = list(paths)
    require(len(found) == 1, f"there should be one package, not {len(found)}; run package-windows")
    return found[0]


def md5(path):
    try:
        return hashlib.md5(path.read_bytes()).hexdigest()
    except FileNotFoundError:
        return None


class Client:
    """A game client of the player's, and an entry in the launcher."""

    def __init__(self, folder, realm, host):
        self.folder = Path("/") / folder
        self.native = "C:\\" + folder.replace("/", "\\")
        self.realm, self.host = realm, host

    def lay_out(self, game):
        (self.folder / "Data/deDE").mkdir(parents=True)
        (self.folder / "wow.exe").write_bytes(b"MZ")
        shutil.copy(game, self.folder / "patched_wow.exe")
        (self.folder / "patched_wow.exe.report").write_text(str(PLAYED), encoding="utf-8")
        (self.folder / "Data/deDE/realmlist.wtf").write_text("set realmlist somewhere")

    @property
    def realmlist(self):
        return self.folder / "Data/deDE/realmlist.wtf"


CLIENTS = [Client("Spiele/WoW Eins", "Halden", "logon.tarnwick.example"),
           Client("Spiele/WoW Zwei", "Halden Ost", "ost.tarnwick.example")]


class Community:
    def __init__(self, options):
        self.options = options
        self.source = WORK / "patch"
        self.tree = WORK / "server"

    def halden_publish(self, *arguments):
        result = subprocess.run([self.options.publish, *arguments], stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, encoding="utf-8")
        require(result.returncode == 0,
                f"halden-publish {arguments[0]}, exit code {result.returncode}:\n{result.stdout}")

    def publish_launcher(self, program):
        self.halden_publish("build-launcher", "--launcher", program,
                            "--updater", self.options.updater, self.tree)

    def publish_packed_launcher(self):
        """The same programs as in the package, with the same dates: a server whose
        copy is newer would hand it to every player once."""
        self.publish_launcher(self.options.launcher)
        for program in (self.options.launcher, self.options.updater):
            date = program.stat().st_mtime
            os.utime(self.tree / program.name, (date, date))

    def publish_patch(self):
        scripts = self.options.scripts
        subprocess.run([scripts / "make-source-tree", "--files", "8", "--largest", "4000000",
                        self.source], check=True)
        self.halden_publish("build", self.source / "live", self.tree)
        shutil.copy(self.source / "launcher.info", self.tree)

    def serve(self):
        subprocess.run([self.options.scripts / "serve-community", self.tree], check=True)

    def patch_files(self):
        root = self.source / "live"
        return {path.relative_to(root): md5(path) for path in root.rglob("*") if path.is_file()}

    @staticmethod
    def requests():
        return re.findall(r"^GET (\S+) (\d+)", ACCESS_LOG.read_text(encoding="utf-8"), re.MULTILINE)


class Launcher:
    """A launcher that the player has started, and what its log says."""

    starts = 0

    def __init__(self):
        Launcher.starts += 1
        self.log = WORK / f"launcher-{Launcher.starts}.log"
        with self.log.open("wb") as log:
            self.process = subprocess.Popen(
                ["wine", str(FOLDER / "Halden-Launcher.exe")], cwd=FOLDER,
                stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def text(self):
        return self.log.read_text(encoding="utf-8", errors="replace")

    def wait_until_patched(self):
        """Two runs go side by side."""
        wait_for("both update runs have come to the clients",
                 lambda: self.text().count("now copy Data into Client") == 2)

    def close(self, window):
        window.activate()
        window.press("alt+F4")
        self.wait_until_ended()

    def wait_until_ended(self):
        wait_for("the launcher has ended", lambda: self.process.poll() is not None)
        require(self.process.returncode == 0, f"the launcher ended with {self.process.returncode}")


class Evening:
    def __init__(self, options):
        self.options = options
        self.community = Community(options)
        self.screen = Screen(1280, 800)
        self.shots = 0

    def screenshot(self, name, settled=True):
        self.shots += 1
        path = self.options.screenshots / f"{self.shots}-{name}.png"
        self.screen.save(path, settled)
        say(f"screenshot: {path}")

    def play(self):
        self.community.publish_patch()
        self.community.publish_packed_launcher()
        self.community.serve()
        for client in CLIENTS:
            client.lay_out(self.options.game)
        self.install()
        self.first_start()
        self.upgrade()
        self.second_start()
        self.third_start()
        self.uninstall()

    def run_installer(self, wanted):
        code = subprocess.run(["wine", self.options.installer, "/S"], check=False).returncode
        require(code == wanted, f"the installer's exit code is {code} and not {wanted}")

    def install(self):
        say("installing silently")
        self.run_installer(0)
        require((FOLDER / "Halden-Launcher.exe").read_bytes() == self.options.launcher.read_bytes(),
                "the installed launcher is not the packed one")
        require(list(SHORTCUTS.rglob("*.lnk")), "there is no start menu entry")

    def fill_in(self, dialog, client):
        dialog.fill(*NAME, client.realm)
        dialog.fill(*HOST, client.host)
        dialog.fill(*PATH, client.native)
        self.screenshot(f"client-{client.realm.replace(' ', '-').lower()}")
        dialog.click(*OK)
        dialog.wait_until_closed()

    def stored(self):
        """What the launcher has written, unescaped as far as it matters here."""
        path = FOLDER / "Settings/realms.ini"
        return path.read_text(encoding="utf-8") if path.exists() else ""

    def first_start(self):
        say("first start: the launcher asks for a client")
        launcher = Launcher()
        self.fill_in(Window(DIALOG), CLIENTS[0])
        window = Window(WINDOW)
        launcher.wait_until_patched()
        require(("/Halden-Launcher.exe", "200") not in self.community.requests(),
                "the installer's launcher has fetched itself; are the dates the same?")
        self.verify_info_text(window)
        self.screenshot("first-start")

        say("adding a second client")
        window.click(*ADD_CLIENT)
        self.fill_in(Window(DIALOG), CLIENTS[1])
        self.verify_entries(selected=1)
        say("the installer does not disturb a launcher that runs")
        self.run_installer(EXIT_RUNNING)
        launcher.close(Window(WINDOW))

    def upgrade(self):
        cached = self.cached_files()
        require(cached, "nothing has been downloaded")
        self.install()
        self.verify_entries(selected=1)
        require(self.cached_files() == cached, "the upgrade has changed the patch cache")

    @staticmethod
    def cached_files():
        root = FOLDER / "ClientDataStorage"
        return {path: md5(path) for path in root.rglob("*") if path.is_file()}

    def verify_info_text(self, window):
        require(("/alert", "200") in self.community.requests(), "nobody asked for the information text")
        def white_pixels():
            return sum(row.count(b"\xff\xff\xff")
                       for row in self.screen.picture(window.area(*INFO_TEXT)))
        wait_for("the information text is shown on its white paper", lambda: white_pixels() > 50_000)

    def verify_entries(self, selected):
        wanted = [f"{n}-clientPath={client.native}".replace("\\", "\\\\")
                  for n, client in enumerate(CLIENTS, 1)]
        wanted += ["size=2", f"realmid={selected}"]
        wait_for(f"the store holds {wanted}",
                 lambda: set(wanted) <= set(self.stored().splitlines()))

    def second_start(self):
        say("second start: patches into both clients")
        launcher = Launcher()
        window = Window(WINDOW)
        launcher.wait_until_patched()
        self.verify_clients()
        self.old_version = self.version_shown_by(window)
        self.screenshot("patched")

        say("picking the second realm and starting the game")
        window.click(*SELECTOR)
        window.press("Down", "Return")
        wait_for("the realm list is written", lambda: CLIENTS[1].realmlist.read_text(encoding="utf-8")
                 == f"set realmlist {CLIENTS[1].host}")
        require(CLIENTS[0].realmlist.read_text() == "set realmlist somewhere",
                "the realm list of the other client was written")
        self.screenshot("realm-picked")
        window.click(*START)
        wait_for("the game has started", lambda: PLAYED.exists() and PLAYED.read_text().endswith("\n"))
        started = PLAYED.read_text(encoding="utf-8").split("|")[0]
        require(started == f"C:{CLIENTS[1].folder}/patched_wow.exe", f"this was started: {started}")
        launcher.close(window)

    def verify_clients(self):
        files = self.community.patch_files()
        require(files, "there is no patch")
        for client in CLIENTS:
            # The second run takes away and puts back what the first one has put there.
            wait_for(f"all files in {client.folder} are as published",
                     lambda folder=client.folder: all(md5(folder / name) == digest
                                                      for name, digest in files.items()))
        say(f"{len(files)} files in each of {len(CLIENTS)} clients are as published")

    def third_start(self):
        say("third start: there is a newer launcher")
        self.community.publish_launcher(self.options.newer)
        launcher = Launcher()
        launcher.wait_until_ended()
        newer = self.options.newer.read_bytes()
        wait_for("the launcher has been exchanged",
                 lambda: (FOLDER / "Halden-Launcher.exe").read_bytes() == newer)
        window = Window(WINDOW)
        require(self.version_shown_by(window) != self.old_version,
                "the window that came back shows the same version")
        wait_for("the newer launcher goes on to the manifest, in both update runs",
                 lambda: self.manifest_requests_of_the_newer_launcher() == 2)
        wait_for("the last download has ended", lambda: not self.gold_in(window, DOWNLOAD))
        require(not list(FOLDER.glob("*.tmp")), "the newer launcher still waits")
        log = (FOLDER / "Halden-Launcher-Updater.log").read_text(encoding="utf-8")
        require(log.count("started the launcher\n") == 1, f"the updater says:\n{log}")
        self.screenshot("newer-launcher")
        window.press("alt+F4")
        window.wait_until_closed()

    def gold_in(self, window, area):
        """Where the letters of a label are."""
        return [(x, y) for y, row in enumerate(self.screen.picture(window.area(*area)))
                for x in range(len(row) // 4) if row[x * 4:x * 4 + 3] == GOLD]

    def version_shown_by(self, window):
        """As letters, which do not move when something else is painted."""
        seen = []

        def is_settled():
            seen.append(self.gold_in(window, VERSION))
            return seen[-1] and seen[-5:].count(seen[-1]) == 5

        wait_for("the window shows its version", is_settled)
        return seen[-1]

    def manifest_requests_of_the_newer_launcher(self):
        """It is told that it is the newest; the older one was handed a file."""
        requests = self.community.requests()
        program = "/Halden-Launcher.exe"
        last_handed_out = len(requests) - 1 - requests[::-1].index((program, "200"))
        later = requests[last_handed_out:]
        if (program, "304") not in later:
            return 0
        return [path for path, _ in later[later.index((program, "304")):]].count("/patch.ini")

    def uninstall(self):
        say("uninstalling silently")
        subprocess.run(["wine", FOLDER / "Uninstall.exe", "/S"], check=False)
        # It goes on as a copy of itself, since it removes itself.
        wait_for("the uninstaller has finished", lambda: not (FOLDER / "Uninstall.exe").exists())
        left = sorted(path.name for path in FOLDER.iterdir())
        require(left == ["ClientDataStorage", "Settings"], f"left in the folder: {left}")
        self.verify_entries(selected=2)
        wait_for("the start menu entry has gone", lambda: not list(SHORTCUTS.rglob("Halden*.lnk")))
        self.verify_clients()


def main():
    parser = argparse.ArgumentParser()
    for name in ("scripts", "publish", "package", "newer", "game", "screenshots"):
        parser.add_argument(f"--{name}", type=Path, required=True)
    options = parser.parse_args()
    options.installer = only(options.package.glob("*-setup.exe"))
    options.launcher = options.package / "Halden Launcher/Halden-Launcher.exe"
    options.updater = options.package / "Halden Launcher/Halden-Launcher-Updater.exe"
    evening = Evening(options)
    try:
        evening.play()
    except (EveningFailure, subprocess.CalledProcessError) as failure:
        evening.screenshot("failed", settled=False)
        for folder in (FOLDER, evening.community.tree):
            print(subprocess.run(["ls", "-l", "--full-time", folder], capture_output=True,
                                 encoding="utf-8", errors="replace", check=False).stdout)
        print(*evening.community.requests(), sep="\n")
        for log in sorted(WORK.glob("launcher-*.log")):
            print(f"--- {log.name}\n{log.read_text(encoding='utf-8', errors='replace')[-4000:]}")
        print(f"evening: FAILED: {failure}", file=sys.stderr)
        return 1
    finally:
        evening.screen.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
