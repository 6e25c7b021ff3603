"""The launcher's process, and what its log tells."""

import subprocess
import time

from world.waiting import require, wait_for

RUNS_PER_START = 2
# Entries that only lend their name to removals lie in this folder, which is none.
PLACEHOLDER = "halden-vacant"


class RunLog:
    """What the log of one start tells of its update runs, which go side by side. Both
    are over when each has begun to install and every copy has been logged, the failed
    ones included. The texts are the wrong way round: a copy that worked "could not
    write file". For the placeholders of removals there is nothing to copy."""

    def __init__(self, text):
        self.lines = text.splitlines()

    def count(self, beginning, without=None):
        return sum(line.startswith(beginning) and not (without and without in line)
                   for line in self.lines)

    def failed_copies(self):
        return self.count("copy of file", without=PLACEHOLDER)

    def both_install(self):
        return self.count("now copy Data into Client") == RUNS_PER_START

    def both_have_ended(self, copies):
        """`copies` are those of both runs together."""
        done = self.count("could not write file") + self.failed_copies()
        return self.both_install() and done >= copies

    def both_download(self, name):
        """Whether each has begun to download this file."""
        return sum(line.startswith("true QUrl(") and name in line
                   for line in self.lines) == RUNS_PER_START


class Launcher:
    """A launcher that has been started, by this command and in this folder."""

    def __init__(self, command, folder, log):
        self.path = log
        self.began = time.time()
        with log.open("wb") as said:
            self.process = subprocess.Popen(
                command, cwd=folder, stdin=subprocess.DEVNULL, stdout=said, stderr=said)

    def log(self):
        return RunLog(self.path.read_text(encoding="utf-8", errors="replace"))

    def has_ended(self):
        return self.process.poll() is not None

    def wait_for_log(self, what, condition, **patience):
        """Until the condition is true of the log, which it cannot become without a
        process."""
        def is_so():
            ended = self.has_ended()
            if condition(self.log()):
                return True
            require(not ended, f"the launcher ended early, exit code {self.process.returncode}")
            return False
        wait_for(what, is_so, sign_of_life=lambda: self.path.stat().st_size, **patience)

    def seconds_to_last_line(self):
        return self.path.stat().st_mtime - self.began

    def close(self):
        if not self.has_ended():
            self.process.terminate()
        self.process.wait()
