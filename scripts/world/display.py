"""A display that exists in memory only, and its picture."""

import mmap
import os
import struct
import subprocess
import tempfile
from pathlib import Path

from world.waiting import require, wait_for


class Display:
    """Programs are shown on it with its `environment`. The display keeps its picture
    as an X window dump, whose header is a row of numbers."""

    HEADER_SIZE, HEIGHT, WIDTH, LINE, COLOURS = 0, 5, 4, 12, 19

    def __init__(self, width, height, *options):
        """Of this size, with further options of Xvfb."""
        self.folder = tempfile.TemporaryDirectory()
        reading, writing = os.pipe()
        self.server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writing), "-screen", "0", f"{width}x{height}x24",
             "-fbdir", self.folder.name, "-nolisten", "tcp", "-noreset",
             *options],
            pass_fds=[writing], stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(writing)
        # It is ready when it says its number.
        with os.fdopen(reading) as numbers:
            number = numbers.readline().strip()
        require(number, "Xvfb does not start")
        self.environment = {"DISPLAY": f":{number}"}
        with (Path(self.folder.name) / "Xvfb_screen0").open("rb") as file:
            self.memory = mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)

    def use(self):
        """For whatever this process starts."""
        os.environ.update(self.environment)
        os.environ.pop("WAYLAND_DISPLAY", None)

    def field(self, index):
        return struct.unpack_from(">I", self.memory, index * 4)[0]

    def picture(self, area):
        """Rows of blue, green, red and nothing."""
        x, y, width, height = area
        start = self.field(self.HEADER_SIZE) + self.field(self.COLOURS) * 12
        line = self.field(self.LINE)
        return [self.memory[start + row * line + x * 4:start + row * line + (x + width) * 4]
                for row in range(y, y + height)]

    def wait_until_settled(self):
        """Until the whole picture has stood still for a moment, which is shorter than
        a text cursor takes to blink."""
        whole = (0, 0, self.field(self.WIDTH), self.field(self.HEIGHT))
        seen = []

        def is_settled():
            seen.append(self.picture(whole))
            return len(seen) > 4 and all(one == seen[-1] for one in seen[-4:])

        wait_for("the picture stands still", is_settled)

    def save(self, path):
        """The whole picture, as the ending of the path says."""
        # Installed for those who take screenshots.
        from PIL import Image
        size = (self.field(self.WIDTH), self.field(self.HEIGHT))
        pixels = b"".join(self.picture((0, 0, *size)))
        Image.frombytes("RGB", size, pixels, "raw", "BGRX").save(path)

    def close(self):
        self.server.terminate()
        self.server.wait()
        self.memory.close()
        self.folder.cleanup()
