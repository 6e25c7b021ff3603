"""From the start of the process to the first painted window."""

import os
import subprocess
import time

from measures import world
from measures.tables import Table

TITLE = "Start"
REALMS = [1, 10, 200, 1000]


def start_display():
    """A virtual display; frames reach its memory and no farther."""
    reading, writing = os.pipe()
    display = subprocess.Popen(
        ["Xvfb", "-displayfd", str(writing), "-screen", "0", "1280x800x24", "-nolisten", "tcp"],
        pass_fds=[writing], stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.close(writing)
    with os.fdopen(reading) as numbers:
        return display, numbers.readline().strip()


def milliseconds_to_paint(environment, *command):
    began = time.monotonic_ns()
    run = subprocess.run(
        command, check=True, cwd=world.HOME, env=environment,
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, encoding="utf-8")
    return (int(run.stdout) - began) / 1e6


def contestants(options, environment):
    """Windows with nothing behind them, and the launcher with each realm list."""
    window = options.world.program("bench_window")
    launcher = options.world.program("bench_start")

    def show(*switches):
        return lambda: milliseconds_to_paint(environment, window, *switches)

    def start_with(realms):
        def start():
            world.reset_player(realms)
            return milliseconds_to_paint(environment, launcher)
        return start

    return {
        "bare window with the same picture": show(),
        "the same with a line of text": show("--text"),
        "the same with text and the TLS library": show("--text", "--tls"),
        **{f"launcher, {realms} realm{'s' if realms > 1 else ''}": start_with(realms)
           for realms in REALMS},
    }


def measure(options):
    rounds = 3 if options.quick else 21
    display, number = start_display()
    try:
        environment = {**os.environ, "DISPLAY": f":{number}", "QT_QPA_PLATFORM": "xcb"}
        runs = contestants(options, environment)
        medians = world.median_rounds(rounds, *runs.values())
    finally:
        display.terminate()
        display.wait()
    table = Table("", "milliseconds", "ratio")
    for name, median in zip(runs, medians):
        table.add(name, f"{median:.0f}", f"{median / medians[0]:.2f}")
    table.note(f"On a virtual X display (Xvfb); median of {rounds} alternating rounds.")
    return table
