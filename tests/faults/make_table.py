#!/usr/bin/env python3
"""Makes the tables of docs/reliability.md from what the fault tests have proved.

usage: make_table.py --check|--write CELLS_FOLDER PAGE

Each test program has left a file with its cells in CELLS_FOLDER: fault, target,
result and, for a cell that cannot be, the reason, divided by tabs. --write puts
the tables into the page, --check says where the page differs from them. A
container that is itself the tests' room cannot prove every cell: --check leaves
the page alone there, and says so.
"""

import difflib
import os
import pathlib
import sys

BEGIN = "<!-- made by tests/faults/make_table.py -->"
END = "<!-- end of what is made -->"
TARGETS = ["info text", "manifest", "patch file", "launcher executable", "updater"]
FAMILIES = {
    "tst_answerfaults": "The server's answers",
    "tst_transportfaults": "TLS and TCP",
    "tst_stalledruns": "Silence",
    "tst_diskfaults": "The player's disk",
    "tst_inputfaults": "What is read",
    "tst_machinefaults": "Clock and descriptors",
    "tst_killedruns": "Killed in the middle",
}
LEAST_FAULTS = 40
LEAST_CELLS = 150


def read_cells(path):
    """Rows in the order in which they were proved, by fault and target."""
    rows, reasons = {}, {}
    for line in path.read_text().splitlines():
        fault, target, result, reason = line.split("\t")
        rows.setdefault(fault, {})[target] = result
        if reason:
            reasons.setdefault(reason, []).append(fault)
    return rows, reasons


def table(title, rows, reasons):
    yield f"### {title}"
    yield ""
    yield "| Fault | " + " | ".join(TARGETS) + " |"
    yield "|---" * (len(TARGETS) + 1) + "|"
    for fault, cells in rows.items():
        yield f"| {fault} | " + " | ".join(cells.get(target, "–") for target in TARGETS) + " |"
    yield ""
    for reason, faults in reasons.items():
        names = ", ".join(dict.fromkeys(faults))
        yield f"–: {reason} ({names})."
        yield ""


def generated(folder):
    lines, faults, cells = [], 0, 0
    for program, title in FAMILIES.items():
        path = folder / f"{program}.tsv"
        if not path.exists():
            sys.exit(f"{path} is missing; run ctest -L faults first")
        rows, reasons = read_cells(path)
        faults += len(rows)
        cells += sum(result != "–" for row in rows.values() for result in row.values())
        lines += table(title, rows, reasons)
    if faults < LEAST_FAULTS or cells < LEAST_CELLS:
        sys.exit(f"only {faults} faults and {cells} cells; a test program has lost rows")
    return [BEGIN, "", f"{faults} faults, {cells} cells.", ""] + lines + [END]


def main():
    mode, folder, page = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
    if mode == "--check" and os.environ.get("HALDEN_ROOM") == "container":
        print("sandbox: left out in this container: reliability_page, which needs every cell proved")
        return 0
    lines = page.read_text().splitlines()
    first, last = lines.index(BEGIN), lines.index(END)
    made = generated(folder)
    if mode == "--write":
        page.write_text("\n".join(lines[:first] + made + lines[last + 1:]) + "\n")
        return 0
    differences = list(difflib.unified_diff(
        lines[first:last + 1], made, "the page", "what was proved", lineterm="", n=0))
    if differences:
        print("\n".join(differences))
        print(f"\nThe page is not what the tests have proved; to mend it:\n"
              f"  {sys.argv[0]} --write {folder} {page}")
    return 1 if differences else 0


if __name__ == "__main__":
    sys.exit(main())
