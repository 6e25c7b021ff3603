"""From the start of the process to the first painted window."""

import os
import subprocess
import time

from measures import room
from measures.tables import Table
from world.display import Display

TITLE = "Start"
REALMS = [1, 10, 200, 1000]


def milliseconds_to_paint(environment, *command):
    began = time.monotonic_ns()
    run = subprocess.run(
        command, check=True, cwd=room.HOME, env=environment,
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, encoding="utf-8")
    return (int(run.stdout) - began) / 1e6


def contestants(options, environment):
    """Windows with nothing behind them, and the launcher with each realm list."""
    window = options.bench.program("bench_window")
    launcher = options.bench.program("bench_start")

    def show(*switches):
        return lambda: milliseconds_to_paint(environment, window, *switches)

    def start_with(realms):
        def start():
            room.reset_player(realms)
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
    display = Display(1280, 800)
    try:
        environment = {**os.environ, **display.environment, "QT_QPA_PLATFORM": "xcb"}
        runs = contestants(options, environment)
        medians = room.median_rounds(rounds, *runs.values())
    finally:
        display.close()
    table = Table("", "milliseconds", "ratio")
    for name, median in zip(runs, medians):
        table.add(name, f"{median:.0f}", f"{median / medians[0]:.2f}")
    table.note(f"On a virtual X display (Xvfb); median of {rounds} alternating rounds.")
    return table
