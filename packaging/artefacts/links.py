"""What a program or library consists of: which files the linker put into it, and which headers the compiler read for
it. The link is repeated with an option that makes the linker name its files."""
import functools
import os
import pathlib
import re
import subprocess
import tempfile
from typing import NamedTuple

import origins


class Build(NamedTuple):
    """What was read for a program or library, from outside the project; shared files are the system's own."""

    static_files: list
    shared_files: list
    headers: list


@functools.cache
def build_of(folder, target):
    read = _files_of_link(folder, target)
    ours = [file for file in read if not file.startswith("/")]
    outside = {file for file in read if file.startswith("/")}
    shared = {file for file in outside if re.search(r"\.so(\.\d+)*$", file)}
    system = [] if any("/o/" in file for file in shared) else sorted(shared)  # Zig has stand-ins for them
    return Build(sorted(outside - shared), system, sorted(_headers(folder, _objects(folder, ours))))


def _ninja(folder, *arguments):
    return subprocess.run(["ninja", "-C", folder, "--quiet", "-t", *arguments], check=True, capture_output=True,
                          text=True).stdout


def _files_of_link(folder, target):
    """The files that the linker reads, as it names them: those of the build relative to its folder."""
    command = _ninja(folder, "commands", "-s", target).splitlines()[-1]
    with tempfile.TemporaryDirectory() as scratch:
        command, count = re.subn(r"(?<= -o )\S+", f"{scratch}/{pathlib.Path(target).name}", command)
        command = re.sub(r"--out-implib,\S+", f"--out-implib,{scratch}/import", command)
        is_zig = "/@zigc/" in command
        if not is_zig:
            command = command.replace(" -o ", " -Wl,--trace -o ", 1)
        run = subprocess.run(["sh", "-c", command], cwd=folder, check=True, capture_output=True, text=True,
                             env={**os.environ, "ZIG_VERBOSE_LINK": "1"})
        said = (run.stderr.split() if is_zig else run.stdout.splitlines()) if count == 1 else []
    files = {word for word in said if re.search(r"\.(a|o|obj|lib|so(\.\d+)*)$", word) and not word.startswith("-")}
    files = {os.path.relpath(file, folder) if file.startswith(f"{folder}/") else file for file in files}
    # A linker for ELF files also reads texts of that name, which name the library.
    return {file for file in files if not _is_text(pathlib.Path(folder, file)) and scratch not in file}


def _is_text(file):
    with file.open("rb") as stream:
        return stream.read(2) == b"/*"


def _objects(folder, files):
    """The object files among files of a build, and those in its archives."""
    objects = set()
    for file in files:
        if file.endswith((".o", ".obj")):
            objects.add(file)
        else:
            inputs = _ninja(folder, "query", file).partition("  outputs:")[0]
            objects |= {line.strip(" |") for line in inputs.splitlines() if line.endswith((".o", ".obj"))}
    return objects


@functools.cache
def _read_for(folder):
    """The files that the compiler read for each object file."""
    read, current = {}, None
    for line in _ninja(folder, "deps").splitlines():
        if line.startswith("    "):
            current.add(line.strip())
        elif line:
            current = read.setdefault(line.partition(": ")[0], set())
    return read


def _headers(folder, objects):
    source = re.search(r"^CMAKE_HOME_DIRECTORY:\w+=(.*)$", pathlib.Path(folder, "CMakeCache.txt").read_text(), re.M)[1]
    files = set().union(*(_read_for(folder).get(name, set()) for name in objects))
    paths = {os.path.join(folder, file) for file in files}
    # A cross build reaches the headers of packages through a link in its folder.
    paths = {os.path.realpath(path) if os.path.normpath(path).startswith(f"{source}/") else path for path in paths}
    return {path for path in paths if not os.path.normpath(path).startswith(f"{os.path.realpath(source)}/")}


def needed_libraries(file):
    """The names of the libraries that a program or library loads, from its file."""
    if file.read_bytes()[:4] == b"\x7fELF":
        said = subprocess.run(["readelf", "--dynamic", "--wide", file], check=True, capture_output=True, text=True)
        return sorted(re.findall(r"\(NEEDED\).*\[(.*)\]", said.stdout))
    said = subprocess.run(["llvm-readobj", "--coff-imports", file], check=True, capture_output=True, text=True)
    return sorted(set(re.findall(r"^  Name: (.*)$", said.stdout, re.M)))


def needed_part(name, shared_files):
    """The Debian package of a needed library if the build used the system's; otherwise only its name."""
    for file in map(os.path.realpath, shared_files):
        if os.path.basename(file).startswith(name):
            return origins.debian_part(origins.debian_packages({file})[file], name)
    return origins.Part(name, "", "NOASSERTION", file_name=name)
