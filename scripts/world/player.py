"""Players: their game clients, and what the launcher keeps in its folder."""

from dataclasses import dataclass
from pathlib import Path

from world.community import md5

REALM_LIST = "Data/deDE/realmlist.wtf"
UNTOUCHED_REALM_LIST = b"set realmlist somewhere"
# Of the program on its real platform, which goes by its date when it asks the server.
PROGRAMS = ["Halden-Launcher.exe", "Halden-Launcher-Updater.exe"]


@dataclass
class Realm:
    """An entry in the launcher's realm list."""

    name: str
    client: Path
    host: str = "logon.tarnwick.example"
    is_test: bool = False


def realms_ini(realms, selected=1, developer=False):
    """The text of "Settings/realms.ini"."""
    lines = ["[realms]", f"size={len(realms)}"]
    for n, realm in enumerate(realms, 1):
        lines += [
            f'{n}-realmName="{realm.name}"',
            f"{n}-realmHost={realm.host}",
            f'{n}-clientPath="{realm.client}"',
            f"{n}-testRealm={str(realm.is_test).lower()}",
            f"{n}-language=deDE",
        ]
    lines += ["[selected_realm]", f"realmid={selected}"]
    if developer:
        lines.append("dev=true")
    return "\n".join(lines) + "\n"


def settle(home, realms, programs, developer=False):
    """What the launcher finds in its folder: a realm list, and stand-ins for these
    programs. They are newer than what is published, so there is nothing to hand over
    to the updater."""
    (home / "Settings").mkdir(parents=True)
    (home / "Settings/realms.ini").write_text(
        realms_ini(realms, developer=developer), encoding="utf-8")
    for name in programs:
        (home / name).write_bytes(b"stands in for the program")


def write_files(folder, contents):
    for name, content in contents.items():
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        (folder / name).write_bytes(content)


def make_client(folder, extra=None):
    """A game client, with further files by their paths. Returns all contents."""
    contents = {"wow.exe": b"MZ", REALM_LIST: UNTOUCHED_REALM_LIST, **(extra or {})}
    write_files(folder, contents)
    return contents


def wrong_files(client, wanted):
    """What is missing or different in a client, of files with this MD5."""
    return [f"{'different' if (client / name).exists() else 'missing'}: {name}"
            for name, digest in wanted.items() if md5(client / name) != digest]
