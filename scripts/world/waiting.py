"""What does not come about, and how long it is waited for."""

import time

# Of the longest wait for anything; everything is usually done in a few seconds, but
# machines are slow sometimes.
PATIENCE_IN_SECONDS = 240


class WorldFailure(Exception):
    """Something is not as it has to be; the text says what."""


def require(condition, what):
    if not condition:
        raise WorldFailure(what)


def wait_for(what, condition, patience=PATIENCE_IN_SECONDS, sign_of_life=None):
    """Returns what the condition returns as soon as that is true. With a sign of
    life, what it returns has to change within the given time, and the whole may take
    longer."""
    seen, since = None, time.monotonic()
    while True:
        result = condition()
        if result:
            return result
        if sign_of_life and (now := sign_of_life()) != seen:
            seen, since = now, time.monotonic()
        require(time.monotonic() - since <= patience,
                f"in {patience} seconds it has not come to this: {what}")
        # Windows, files and processes of others tell nobody when they have changed.
        time.sleep(0.1)
