#!/usr/bin/env python3
"""House rules that no compiler checks. Each failure says how to mend it.

usage: check_sources.py RULE SOURCE_FOLDER
"""

import pathlib
import re
import sys
import xml.etree.ElementTree

LAYERS = ["core", "net", "update", "ui", "app"]
# The constants are read by every layer.
SHARED = {"app/constants.h", "app/buildconfig.h"}
# The three looks upwards that the behaviour needs, each to one narrow header.
UPWARDS = {
    ("core/settingshandler.cpp", "ui/clientflows.h"),
    ("net/inithandler.h", "update/patchdownloaditem.h"),
    ("update/updatingprocedures.cpp", "ui/mainwindow.h"),
}
LONGEST_FUNCTION = 50


def sources(root, *folders):
    for folder in folders:
        yield from sorted(
            path for path in (root / folder).rglob("*") if path.suffix in (".cpp", ".h")
        )


def check_layers(root):
    """An include may only point to the same layer or one below."""
    for path in sources(root, *LAYERS):
        name = path.relative_to(root).as_posix()
        level = LAYERS.index(path.parent.name)
        for include in re.findall(r'^#include "([a-z]+/[^"]+)"', path.read_text(), re.M):
            folder = include.split("/")[0]
            if include in SHARED or (name, include) in UPWARDS or folder not in LAYERS:
                continue
            if LAYERS.index(folder) > level:
                yield (f"{name}: includes {include} of a higher layer; turn the call into a "
                       "signal, or move what is needed down")


def check_waits(root):
    """Tests wait for conditions, never for time."""
    pattern = re.compile(r"\b(QTest::qWait|QTest::qSleep|QThread::m?sleep|usleep|sleep)\s*\(")
    for path in sources(root, "tests", *LAYERS):
        for number, line in enumerate(path.read_text().splitlines(), 1):
            if pattern.search(line):
                yield (f"{path.relative_to(root)}:{number}: a bare wait; use QTRY_*, "
                       "QSignalSpy::wait or QTest::qWaitFor with a condition")


def check_resources(root):
    """Every file of the resource collection exists and is used."""
    collection = root / "resources" / "resources.qrc"
    users = "".join(
        path.read_text() for path in sorted((root / "ui").iterdir()) if path.suffix in (".cpp", ".ui")
    )
    for entry in xml.etree.ElementTree.parse(collection).iter("file"):
        if not (collection.parent / entry.text).is_file():
            yield f"resources.qrc: {entry.text} does not exist; add the file or drop the line"
        if f":/{entry.text}" not in users:
            yield f"resources.qrc: nothing in ui/ uses :/{entry.text}; use it or drop it"


def check_connections(root):
    """The system's objects are connected by signature, in the string form."""
    for path in sources(root, *LAYERS):
        text = path.read_text()
        for match in re.finditer(r"\bconnect\s*\(", text):
            if "SIGNAL(" not in text[match.start():match.start() + 200]:
                number = text.count("\n", 0, match.start()) + 1
                yield (f"{path.relative_to(root)}:{number}: a connection that is not in the "
                       "SIGNAL/SLOT form; other parts count on the names")


def functions(text):
    """Start line and length of every top-level block of our brace style."""
    start = None
    for number, line in enumerate(text.splitlines(), 1):
        if line == "{":
            start = number
        elif line == "}" and start is not None:
            yield start, number - start - 1
            start = None


def check_lengths(root):
    """A function is short enough to read at one go."""
    for path in sources(root, "tests", "bench", "updater", *LAYERS):
        for start, length in functions(path.read_text()):
            if length > LONGEST_FUNCTION:
                yield (f"{path.relative_to(root)}:{start}: {length} lines; split it "
                       f"(at most {LONGEST_FUNCTION})")


RULES = {
    "connections": check_connections,
    "layers": check_layers,
    "lengths": check_lengths,
    "resources": check_resources,
    "waits": check_waits,
}


def main():
    rule, root = sys.argv[1], pathlib.Path(sys.argv[2])
    findings = list(RULES[rule](root))
    print("\n".join(findings) or f"{rule}: nothing found")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
