"""An admin at work: what is going to be published, what is published, and the web
server."""

import hashlib
import os
import re
import shutil
import subprocess
from dataclasses import dataclass
from pathlib import Path

from world.waiting import require

SCRIPTS = Path(__file__).resolve().parents[1]
ACCESS_LOG = Path("/run/halden/access.log")
KINDS = ["live", "test"]


def md5(path):
    """None where there is no file."""
    try:
        return hashlib.md5(path.read_bytes()).hexdigest()
    except FileNotFoundError:
        return None


@dataclass
class Request:
    """One that the server has answered, with the bytes of the answer's body."""

    path: str
    status: int
    size: int


class Community:
    """The folder `source` has a folder of patch files for each kind and the
    information text; `tree` is what the server serves."""

    def __init__(self, publisher, source, tree):
        self.publisher = publisher
        self.source = source
        self.tree = tree

    def halden_publish(self, command, *arguments):
        """What it says."""
        result = subprocess.run(
            [self.publisher, command, *arguments], check=False,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8")
        require(result.returncode == 0,
                f"halden-publish {command}, exit code {result.returncode}:\n{result.stdout}")
        return result.stdout

    def make_source(self, *options):
        subprocess.run([SCRIPTS / "make-source-tree", *options, self.source], check=True)

    def publish_patch(self, kind, *options):
        self.halden_publish("build", "--kind", kind, *options, self.source / kind, self.tree)

    def publish_launcher(self, launcher, updater):
        self.halden_publish(
            "build-launcher", "--launcher", launcher, "--updater", updater, self.tree)

    def publish_info_text(self):
        shutil.copy(self.source / "launcher.info", self.tree)

    def serve(self, *options):
        """Returns when the server accepts connections."""
        subprocess.run([SCRIPTS / "serve-community", *options, self.tree], check=True)

    @staticmethod
    def stop():
        """Returns when the server has been told to end."""
        subprocess.run([SCRIPTS / "serve-community", "--stop"], check=True)

    def source_files(self, kind):
        """Path in the client and MD5 of every file: by the admin's own folder, so
        nothing here relies on a manifest."""
        root = self.source / kind
        return {path.relative_to(root).as_posix(): md5(path)
                for path in root.rglob("*") if path.is_file()}

    def source_folders(self, kind):
        root = self.source / kind
        return [path.relative_to(root).as_posix() for path in root.rglob("*") if path.is_dir()]

    @staticmethod
    def requests():
        """In the order of the answers."""
        lines = re.findall(r"^\S+ (\S+) (\d+) (\d+)$", ACCESS_LOG.read_text(encoding="utf-8"),
                           re.MULTILINE)
        return [Request(path, int(status), int(size)) for path, status, size in lines]

    @staticmethod
    def forget_requests():
        # The server appends, so the file can be cut under its hands.
        os.truncate(ACCESS_LOG, 0)
