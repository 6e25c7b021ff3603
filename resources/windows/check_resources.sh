#!/bin/sh
# Reads the launcher's resources back out of PROGRAM, or of a trivial Windows
# program that it builds with them.
#
#   check_resources.sh SOURCE_DIR WORK_DIR [PROGRAM]
#
# SOURCE_DIR is the project's top folder; WORK_DIR is made and may be thrown away.
# Exit codes: 0 good, 1 a resource is wrong, 2 wrong call, 77 a tool is missing.
set -eu

[ $# -eq 2 ] || [ $# -eq 3 ] || { echo "usage: $0 SOURCE_DIR WORK_DIR [PROGRAM]" >&2; exit 2; }

resources=$(cd "$1/resources" && pwd)
mkdir -p "$2"
work=$(cd "$2" && pwd)
program=${3:-$work/trivial.exe}
prefix=${HALDEN_MINGW_PREFIX:-x86_64-w64-mingw32-}
failures=0

fail() {
    echo "check_resources: $1" >&2
    echo "    mend: $2" >&2
    failures=$((failures + 1))
}

needed="wrestool icotool python3"
[ $# -eq 3 ] || needed="cc ${prefix}windres ${prefix}as ${prefix}ld $needed"
for tool in $needed; do
    command -v "$tool" >/dev/null 2>&1 || {
        echo "check_resources: $tool is missing; install a C compiler, binutils-mingw-w64-x86-64, icoutils and python3" >&2
        exit 77
    }
done

# Any C preprocessor will do: the resource script includes no header.
build_program() {
    rm -f "$work/resources.o" "$work/trivial.exe"
    sed "s|@HALDEN_RESOURCES_DIR@|$resources|g" "$resources/windows/launcher.rc.in" >"$work/launcher.rc" &&
    "${prefix}windres" --preprocessor=cc --preprocessor-arg=-E --preprocessor-arg=-xc \
        --preprocessor-arg=-DRC_INVOKED "$work/launcher.rc" -O coff -o "$work/resources.o" &&
    printf '.globl start\nstart:\n\txorl %%eax, %%eax\n\tret\n' | "${prefix}as" -o "$work/entry.o" - &&
    "${prefix}ld" -e start --subsystem windows -o "$work/trivial.exe" "$work/entry.o" "$work/resources.o"
}

extract() { # TYPE NAME FILE [--raw]
    rm -f "$3"
    wrestool --extract ${4:+"$4"} --type="$1" --name="$2" --output="$3" "$program" 2>/dev/null || true
    [ -s "$3" ]
}

check_icon() {
    if [ "$(wrestool --list --type=14 "$program" | grep -c "^--type=14 ")" != 1 ]; then
        fail "the program has not exactly one icon group" "keep one ICON line in windows/launcher.rc.in"
    fi
    if ! extract 14 IDI_ICON1 "$work/icon.ico"; then
        fail "there is no icon group named IDI_ICON1" \
            "write 'IDI_ICON1 ICON ...' in windows/launcher.rc.in and define IDI_ICON1 nowhere"
        return 0
    fi
    # The order of the fields tells the image's size, depth and kind.
    icotool --list "$resources/icons/Halden-Logo.ico" | sort >"$work/icon.want"
    icotool --list "$work/icon.ico" | sort >"$work/icon.have"
    cmp -s "$work/icon.want" "$work/icon.have" ||
        fail "the icon group differs from icons/Halden-Logo.ico" "name that file in windows/launcher.rc.in"
    for size in 16 20 24 32 40 48 64 128 256; do
        grep -q -- "--width=$size --height=$size --bit-depth=32 " "$work/icon.have" ||
            fail "the icon lacks its $size-pixel image" "run resources/make_resources.py"
    done
}

check_version() {
    if ! extract 16 1 "$work/version.bin" --raw; then
        fail "there is no version block 1" "restore '1 VERSIONINFO' in windows/launcher.rc.in"
        return 0
    fi
    python3 - "$work/version.bin" <<'PYTHON' || failures=$((failures + 1))
import struct
import sys

WANTED = {"ProductName": "Halden-Launcher", "OriginalFilename": "Halden-Launcher.exe",
          "FileVersion": "0.0.0.0", "ProductVersion": "0.0.0.0",
          "CompanyName": "", "FileDescription": "", "InternalName": "", "LegalCopyright": ""}
data = open(sys.argv[1], "rb").read()


def aligned(offset):
    return (offset + 3) & ~3


def block(offset):
    """Length, key, value, whether it is text, and the first child's place."""
    length, value_length, is_text = struct.unpack_from("<HHH", data, offset)
    end = offset + 6
    while data[end:end + 2] != b"\0\0":
        end += 2
    key = data[offset + 6:end].decode("utf-16-le")
    start = aligned(end + 2)
    size = value_length * 2 if is_text else value_length
    return length, key, data[start:start + size], aligned(start + size)


def children(offset):
    length, _, _, child = block(offset)
    while child < offset + length:
        yield child
        child = aligned(child + block(child)[0])


_, _, fixed, _ = block(0)
numbers = struct.unpack_from("<13I", fixed)
wrong = []
if numbers[0] != 0xFEEF04BD or any(numbers[2:6]):
    wrong.append("FILEVERSION and PRODUCTVERSION must be 0,0,0,0")
if numbers[8] != 0x40004 or numbers[9] != 1:
    wrong.append("FILEOS must be 0x40004L and FILETYPE 0x1L")
found = {}
for part in children(0):
    if block(part)[1] == "StringFileInfo":
        for table in children(part):
            for entry in children(table):
                _, key, value, _ = block(entry)
                found[key] = value.decode("utf-16-le").rstrip("\0")
for key in sorted(WANTED.keys() | found.keys()):
    wanted, have = WANTED.get(key, ""), found.get(key)
    if have != wanted and not (have is None and key not in WANTED):
        wrong.append(f'{key} must be "{wanted}", but ' + ("is missing" if have is None else f'is "{have}"'))
for line in wrong:
    print(f"check_resources: version block: {line}\n    mend: the VERSIONINFO block of windows/launcher.rc.in",
          file=sys.stderr)
sys.exit(1 if wrong else 0)
PYTHON
}

check_manifest() {
    if ! extract 24 1 "$work/manifest.xml" --raw; then
        fail "there is no manifest 1" "restore the line '1 24 ...' in windows/launcher.rc.in"
        return 0
    fi
    cmp -s "$work/manifest.xml" "$resources/windows/launcher.manifest" ||
        fail "the embedded manifest is not windows/launcher.manifest" "name that file in windows/launcher.rc.in"
    python3 - "$work/manifest.xml" <<'PYTHON' || failures=$((failures + 1))
import sys
import xml.etree.ElementTree as tree

SETTINGS = {"dpiAware": "true/pm", "dpiAwareness": "PerMonitorV2, PerMonitor",
            "longPathAware": "true", "activeCodePage": "UTF-8"}
SYSTEMS = {"Windows 8.1": "{1f676c76-80e1-4239-95bb-83d0f6d0da78}",
           "Windows 10 and 11": "{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"}
wrong = []
try:
    elements = list(tree.parse(sys.argv[1]).getroot().iter())
except tree.ParseError as error:
    elements, wrong = [], [f"it is no good XML: {error}"]


def named(name):
    return [element for element in elements if element.tag.rsplit("}", 1)[-1] == name]


for name, value in SETTINGS.items():
    if [(element.text or "").strip() for element in named(name)] != [value]:
        wrong.append(f"<{name}> must be {value}")
if [element.get("level") for element in named("requestedExecutionLevel")] != ["asInvoker"]:
    wrong.append("requestedExecutionLevel must be asInvoker")
identities = [(element.get("name"), element.get("version")) for element in named("assemblyIdentity")]
if identities != [("Halden-Launcher", "0.0.0.0"), ("Microsoft.Windows.Common-Controls", "6.0.0.0")]:
    wrong.append("it must name Halden-Launcher 0.0.0.0 and depend on Common-Controls 6.0.0.0")
systems = {(element.get("Id") or "").lower() for element in named("supportedOS")}
wrong += [f"supportedOS lacks {name}, {guid}" for name, guid in SYSTEMS.items() if guid not in systems]
for line in wrong:
    print(f"check_resources: manifest: {line}\n    mend: windows/launcher.manifest", file=sys.stderr)
sys.exit(1 if wrong else 0)
PYTHON
}

if [ $# -eq 2 ] && ! build_program; then
    fail "the resources do not compile" "see the message above; the resource script is $work/launcher.rc"
    exit 1
fi
check_icon
check_version
check_manifest
[ "$failures" -eq 0 ] || exit 1
echo "check_resources: icon group, version block and manifest are good"
