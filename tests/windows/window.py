"""Windows on a display, and a player's hands on them."""

import subprocess

from world.waiting import wait_for


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
