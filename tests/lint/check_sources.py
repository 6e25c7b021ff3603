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
# Beside the launcher: the updater is one small file without Qt, the publisher
# runs without a window. The launcher knows neither.
COMPANIONS = ["publisher", "updater"]
# What the publisher shares with the launcher: the library halden_manifest and
# constants. It judges a program as the updater at the players' end will.
PUBLISHER_SHARES = SHARED | {
    "update/launcherfiles.h", "update/patchlayout.h", "update/patchmanifest.h",
    "updater/programheader.h",
}
LONGEST_FUNCTION = 50


def sources(root, *folders):
    for folder in folders:
        yield from sorted(
            path for path in (root / folder).rglob("*") if path.suffix in (".cpp", ".h")
        )


def includes(path):
    """Headers of the system's own folders."""
    return re.findall(r'^\s*#\s*include "([a-z]+/[^"]+)"', path.read_text(), re.M)


def check_launcher_layers(root):
    """An include may only point to the same layer or one below."""
    for path in sources(root, *LAYERS):
        name = path.relative_to(root).as_posix()
        level = LAYERS.index(path.parent.name)
        for include in includes(path):
            folder = include.split("/")[0]
            if folder in COMPANIONS:
                yield (f"{name}: includes {include}; the launcher knows neither the updater nor "
                       "the publisher, so move what both need down, into halden_manifest")
            if include in SHARED or (name, include) in UPWARDS or folder not in LAYERS:
                continue
            if LAYERS.index(folder) > level:
                yield (f"{name}: includes {include} of a higher layer; turn the call into a "
                       "signal, or move what is needed down")


def check_layers(root):
    yield from check_launcher_layers(root)
    for path in sources(root, "publisher"):
        for include in includes(path):
            if include.split("/")[0] != "publisher" and include not in PUBLISHER_SHARES:
                yield (f"{path.relative_to(root)}: includes {include}; the publisher shares only "
                       "what reads manifests, so move what is needed there")
    for path in sources(root, "updater"):
        for include in re.findall(r'^\s*#\s*include ([<"].*[>"])', path.read_text(), re.M):
            if re.match(r'"(?!updater/)|<Qt?[A-Z]', include):
                yield (f"{path.relative_to(root)}: includes {include}; the updater is a single "
                       "file, it has nothing but itself, the standard library and the system")


# The two that wait by the clock, because nothing tells them of its time: the
# publisher until a second begins, the updater until a scanner lets go of a file.
WAITS_BY_THE_CLOCK = {"publisher/clock.cpp", "updater/platform_linux.cpp",
                      "updater/platform_windows.cpp"}


def check_waits(root):
    """Waiting is for conditions, never for time."""
    pattern = re.compile(
        r"\b(QTest::qWait|QTest::qSleep|QThread::[mu]?sleep|[un]?sleep|nanosleep|Sleep|"
        r"sleep_(?:for|until))\s*\(")
    for path in sources(root, "tests", *LAYERS, *COMPANIONS):
        if path.relative_to(root).as_posix() in WAITS_BY_THE_CLOCK:
            continue
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
    """Start line and length of every function in our brace style, which gives the
    braces of nothing else a line of their own."""
    starts = {}
    for number, line in enumerate(text.splitlines(), 1):
        brace = line.lstrip(" ")
        indent = len(line) - len(brace)
        if brace == "{":
            starts[indent] = number
        elif brace == "}" and indent in starts:
            start = starts.pop(indent)
            yield start, number - start - 1


def check_lengths(root):
    """A function is short enough to read at one go."""
    for path in sources(root, "tests", "bench", *LAYERS, *COMPANIONS):
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
