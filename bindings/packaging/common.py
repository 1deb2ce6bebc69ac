"""What all packages share: the systems, the libraries for them, and archives that depend on nothing but
their contents."""
import os
import pathlib
import re
import time
import zipfile
from typing import NamedTuple

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BINDINGS = SOURCE / "bindings"
VERSION = re.search(r"^project\(QzHidAPI VERSION ([\d.]+)", (SOURCE / "CMakeLists.txt").read_text(), re.M)[1]
SUMMARY = "Finds and services USB hub controllers through their vendor HID interface"
AUTHORS = "The QzHidAPI authors"
EPOCH = int(os.environ.get("SOURCE_DATE_EPOCH", 315619200))  # the first day that a zip file can name, or so


class System(NamedTuple):
    """What packages call a system, and the name of the library there."""

    wheel: str
    node: str
    dotnet: str
    library: str


# The libraries for Linux need version 2.17 of the C library.
SYSTEMS = {
    "linux-x64": System("manylinux_2_17_x86_64", "linux-x64", "linux-x64", "libQzHidAPI.so.1"),
    "linux-arm64": System("manylinux_2_17_aarch64", "linux-arm64", "linux-arm64", "libQzHidAPI.so.1"),
    "windows-x64": System("win_amd64", "win32-x64", "win-x64", "QzHidAPI.dll"),
    "windows-arm64": System("win_arm64", "win32-arm64", "win-arm64", "QzHidAPI.dll"),
}


class PackageError(Exception):
    """Why a package cannot be made."""


class Libraries(NamedTuple):
    """The two libraries for one system."""

    system: System
    real: bytes
    virtual: bytes
    licences: dict

    def files(self, folder):
        """Their names and contents in a package; the folder is that for the system."""
        return {f"{folder}/{self.system.library}": self.real,
                f"{folder}/virtual/{self.system.library}": self.virtual}

    def licence_files(self, folder):
        """The licences of what is linked into them; the folder is that for the system."""
        return {f"{folder}/licences/{name}": text for name, text in self.licences.items()}


def find_libraries(name, folder):
    """Looks in the folder and those below it, as `cmake --install` fills them."""
    if name not in SYSTEMS:
        raise PackageError(f"there is no system {name} (there are: {' '.join(SYSTEMS)})")
    system = SYSTEMS[name]
    found = {True: [], False: []}
    for file in sorted(pathlib.Path(folder).rglob(system.library)):
        found[file.parent.name == "virtual"].append(file.read_bytes())
    for virtual, files in found.items():
        if len(files) != 1:
            raise PackageError(f"{folder} has {len(files)} {'virtual ' if virtual else ''}libraries {system.library}")
    licences = {file.name: file.read_bytes() for file in sorted(pathlib.Path(folder).rglob("licences/*.txt"))}
    return Libraries(system, found[False][0], found[True][0], licences)


def tree(folder, *patterns):
    """The files of a folder of the bindings, by their paths in it."""
    base = BINDINGS / folder
    return {file.relative_to(base).as_posix(): file.read_bytes()
            for pattern in patterns for file in sorted(base.glob(pattern)) if file.is_file()}


def licence():
    return (SOURCE / "LICENSE").read_bytes()


def write_zip(path, files):
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, data in files.items():
            entry = zipfile.ZipInfo(name, time.gmtime(EPOCH)[:6])
            entry.external_attr = 0o100644 << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            archive.writestr(entry, data)
