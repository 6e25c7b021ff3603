"""What the programs here read of Windows programs and libraries."""

import sys

try:
    import pefile
except ModuleNotFoundError:
    sys.exit("python3-pefile is missing; ./scripts/setup installs it")

# Kinds of resources.
ICON, GROUP_ICON, VERSION, MANIFEST = 3, 14, 16, 24
SYMBOL_SIZE = 18


def read(path, *directories):
    """Names of directories are "IMPORT", "EXPORT", "RESOURCE" and so on; what is not
    asked for is not read."""
    image = pefile.PE(str(path), fast_load=True)
    image.parse_data_directories(
        [pefile.DIRECTORY_ENTRY[f"IMAGE_DIRECTORY_ENTRY_{name}"] for name in directories])
    return image


def imports_of(path):
    """Names of the libraries that a file loads, those that it loads late included."""
    image = read(path, "IMPORT", "DELAY_IMPORT")
    found = [*getattr(image, "DIRECTORY_ENTRY_IMPORT", []),
             *getattr(image, "DIRECTORY_ENTRY_DELAY_IMPORT", [])]
    return [entry.dll.decode("ascii") for entry in found]


def exports_of(path):
    """Names of a library's functions, and where each one leads, as "LIBRARY.NAME", or
    None where it is the library's own."""
    image = read(path, "EXPORT")
    return {entry.name.decode("ascii"): entry.forwarder and entry.forwarder.decode("ascii")
            for entry in image.DIRECTORY_ENTRY_EXPORT.symbols if entry.name}


def entry_name(entry):
    return entry.id if entry.name is None else str(entry.name)


def resources_of(image, kind):
    """The contents of a kind's resources, by their names or numbers. There is one
    language only."""
    kinds = getattr(image, "DIRECTORY_ENTRY_RESOURCE", None)
    found = {}
    for group in (entry for entry in (kinds.entries if kinds else []) if entry.id == kind):
        for entry in group.directory.entries:
            data = entry.directory.entries[0].data.struct
            found[entry_name(entry)] = image.get_data(data.OffsetToData, data.Size)
    return found


def section_of(image, name):
    """A section's content, zeros behind it included, or None. A long name is given as
    the number of its place in the table behind the symbols."""
    header = image.FILE_HEADER
    names = header.PointerToSymbolTable + SYMBOL_SIZE * header.NumberOfSymbols
    for section in image.sections:
        found = section.Name.rstrip(b"\0")
        if found.startswith(b"/"):
            place = names + int(found[1:])
            found = image.__data__[place:image.__data__.find(b"\0", place)]
        if found == name.encode("ascii"):
            return section.get_data()
    return None
