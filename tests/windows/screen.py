"""A virtual display, its picture, and a player's hands on it."""

import mmap
import os
import struct
import subprocess
import tempfile
import time
from pathlib import Path

from PIL import Image

# The longest wait for anything, in seconds; everything is usually done in a few,
# but machines are slow sometimes.
PATIENCE = 240


class EveningFailure(Exception):
    pass


def wait_for(what, condition, patience=PATIENCE):
    """Returns what the condition returns as soon as that is true."""
    end = time.monotonic() + patience
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise EveningFailure(f"in {patience} seconds it has not come to this: {what}")
        time.sleep(0.1)


class Screen:
    """The header of an X window dump, in which the display keeps its picture, is a
    row of numbers."""

    HEADER_SIZE, HEIGHT, WIDTH, LINE, COLOURS = 0, 5, 4, 12, 19

    def __init__(self, width, height):
        self.folder = tempfile.TemporaryDirectory()
        reading, writing = os.pipe()
        self.server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writing), "-screen", "0", f"{width}x{height}x24",
             "-fbdir", self.folder.name, "-nolisten", "tcp", "-noreset"],
            pass_fds=[writing], stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(writing)
        with os.fdopen(reading) as numbers:
            number = numbers.readline().strip()
        if not number:
            raise EveningFailure("Xvfb does not start")
        os.environ["DISPLAY"] = f":{number}"
        with (Path(self.folder.name) / "Xvfb_screen0").open("rb") as file:
            self.memory = mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)

    def field(self, index):
        return struct.unpack_from(">I", self.memory, index * 4)[0]

    def picture(self, area):
        """Rows of blue, green, red and nothing."""
        x, y, width, height = area
        start = self.field(self.HEADER_SIZE) + self.field(self.COLOURS) * 12
        line = self.field(self.LINE)
        return [self.memory[start + row * line + x * 4:start + row * line + (x + width) * 4]
                for row in range(y, y + height)]

    def settled_picture(self, area):
        """The picture when it has stood still for a moment, which is shorter than a
        text cursor takes to blink."""
        seen = []

        def is_settled():
            seen.append(self.picture(area))
            return len(seen) > 4 and all(one == seen[-1] for one in seen[-4:])

        wait_for("the picture stands still", is_settled)
        return seen[-1]

    def save(self, path, settled):
        width, height = self.field(self.WIDTH), self.field(self.HEIGHT)
        whole = (0, 0, width, height)
        rows = self.settled_picture(whole) if settled else self.picture(whole)
        Image.frombytes("RGB", (width, height), b"".join(rows), "raw", "BGRX").save(path)

    def close(self):
        self.server.terminate()
        self.server.wait()


def xdotool(*arguments):
    result = subprocess.run(
        ["xdotool", *[str(argument) for argument in arguments]],
        stdin=subprocess.DEVNULL, capture_output=True, encoding="utf-8")
    return result.stdout


class Window:
    """A window by its title, once it is shown."""

    def __init__(self, title):
        self.title = title
        self.id = wait_for(f'the window "{title}" is shown', lambda: self.find(title))
        self.activate()

    @staticmethod
    def find(title):
        # Titles are patterns; ours have nothing in them that means something.
        found = xdotool("search", "--onlyvisible", "--name", f"^{title}$").split()
        return found[-1] if found else None

    def activate(self):
        def has_focus():
            xdotool("windowfocus", self.id)
            return xdotool("getwindowfocus").strip() == self.id
        wait_for(f'"{self.title}" has the focus', has_focus)

    def click(self, x, y):
        xdotool("mousemove", "--window", self.id, x, y, "click", 1)

    def type(self, text):
        """What an American keyboard has; Wine does not follow one that changes."""
        xdotool("type", "--delay", 20, text)

    def press(self, *keys):
        for key in keys:
            xdotool("key", key)

    def fill(self, x, y, text):
        """Replaces what stands in a field."""
        self.click(x, y)
        self.press("ctrl+a")
        self.type(text)

    def area(self, x, y, width, height):
        """A part of the window, on the screen."""
        place = dict(line.split("=") for line in
                     xdotool("getwindowgeometry", "--shell", self.id).split())
        return int(place["X"]) + x, int(place["Y"]) + y, width, height

    def wait_until_closed(self):
        wait_for(f'"{self.title}" has gone', lambda: self.find(self.title) != self.id)
