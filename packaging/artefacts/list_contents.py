#!/usr/bin/env python3
"""list_contents.py FOLDER [BUILD...]: writes a list beside each package or archive in the folder, NAME.spdx.json,
of its files and of what they were made of, and SHA256SUMS. The programs and libraries were built in the build folders;
source packages need none. SOURCE_DATE_EPOCH is the time that the lists name."""
import functools
import hashlib
import json
import os
import pathlib
import re
import struct
import subprocess
import sys
import tempfile

import archives
import links
import origins
import spdx

SOURCE = pathlib.Path(__file__).resolve().parents[2]
VERSION = re.search(r"^project\(QzHidAPI VERSION ([\d.]+)", (SOURCE / "CMakeLists.txt").read_text(), re.M)[1]
SUMS = "SHA256SUMS"
LIST = ".spdx.json"


class ListError(Exception):
    """Why a list cannot be made."""


def machine_of(contents):
    """The system and processor that a program or library is for; None for other files."""
    if contents[:4] == b"\x7fELF":
        return "ELF", struct.unpack_from("<H", contents, 18)[0]
    if contents[:2] == b"MZ" and b"BSJB" not in contents:  # which assemblies for .NET have
        return "PE", struct.unpack_from("<H", contents, struct.unpack_from("<I", contents, 60)[0] + 4)[0]
    return None


@functools.cache
def _build_target(build, is_virtual, name):
    """The target of a build folder that makes a program or library with this name, relative to the folder."""
    for folder in ("lib", "bin"):
        file = pathlib.Path(build, folder, "virtual" if is_virtual else "", name)
        if file.is_file():
            return os.path.relpath(os.path.realpath(file), os.path.realpath(build))
    return None


def find_target(builds, name, contents):
    path = pathlib.PurePosixPath(name)
    for build in builds:
        target = _build_target(build, path.parent.name == "virtual", path.name)
        if target and machine_of(pathlib.Path(build, target).read_bytes()) == machine_of(contents):
            return build, target
    raise ListError(f"nothing in {' '.join(builds)} makes {name}")


def add_parts_of_program(document, builds, name, contents, texts):
    """Adds what a program or library has in it and what it needs."""
    build, target = find_target(builds, name, contents)
    made_of = links.build_of(build, target)
    linked = origins.parts_of(made_of.static_files)
    compiled = [part for part in origins.parts_of(made_of.headers) if part not in linked]
    for parts, comment in ((linked, "linked in"), (compiled, "code of its headers is compiled in")):
        for part in parts:
            document.add_part(part, "STATIC_LINK", name, comment)
            if part.licence_text and part.licence_text not in texts:
                raise ListError(f"{name} has {part.name} in it, but the licence text {part.licence_text} is missing")
    with tempfile.NamedTemporaryFile() as file:
        file.write(contents)
        file.flush()
        for library in links.needed_libraries(pathlib.Path(file.name)):
            document.add_part(links.needed_part(library, made_of.shared_files), "DYNAMIC_LINK", name)


def bundled_module(files, manifest_name):
    """The Node module that a package brings along, from its manifest."""
    manifest = json.loads(files[manifest_name])
    address = f"pkg:npm/{manifest['name'].replace('@', '%40')}@{manifest['version']}"
    return origins.Part(manifest["name"], manifest["version"], manifest["license"], address=address)


def add_needed_packages(document, artefact):
    """Adds the packages that a Debian package depends on, with the versions that it asks for."""
    fields = subprocess.run(["dpkg-deb", "--field", artefact, "Depends"], check=True, capture_output=True, text=True)
    for name, version in re.findall(r"([a-z0-9.+-]+)(?: \(([^)]*)\))?", fields.stdout):
        document.add_part(origins.Part(name, "", "NOASSERTION"), "DEPENDS_ON", comment=version)


def list_of(artefact, builds, epoch):
    document = spdx.Document(artefact.name, artefact.read_bytes(), VERSION, epoch)
    files = archives.shipped_files(artefact)
    texts = set(re.findall(r"/licen[cs]es/(?:[^/\n]+/)?([^/\n]+)\.txt(?:\.gz)?$", "\n".join(files), re.M))
    for name, contents in files.items():
        document.add_file(name, contents)
    for name, contents in files.items():
        if re.search(r"(^|/)node_modules/(@[^/]+/)?[^/]+/package\.json$", name):
            document.add_part(bundled_module(files, name), "CONTAINS")
        elif builds and machine_of(contents) and "/node_modules/" not in name:
            add_parts_of_program(document, builds, name, contents, texts)
    if artefact.suffix == ".deb":
        add_needed_packages(document, artefact)
    return document.as_json()


def write(folder, builds, epoch):
    artefacts = sorted(file for file in folder.iterdir() if file.name != SUMS and not file.name.endswith(LIST))
    if not artefacts:
        raise ListError(f"there is nothing in {folder}")
    contents = {artefact.name: artefact.read_bytes() for artefact in artefacts}
    for artefact in artefacts:
        text = json.dumps(list_of(artefact, builds, epoch), indent=1, ensure_ascii=False)
        contents[f"{artefact.name}{LIST}"] = f"{text}\n".encode()
    sums = [f"{hashlib.sha256(contents[name]).hexdigest()}  {name}\n" for name in sorted(contents)]
    contents[SUMS] = "".join(sums).encode()
    for name in set(contents) - {artefact.name for artefact in artefacts}:
        (folder / name).write_bytes(contents[name])


def main():
    epoch = os.environ.get("SOURCE_DATE_EPOCH", "")
    if len(sys.argv) < 2 or not epoch.isdigit():
        sys.exit(__doc__)
    folder, *builds = sys.argv[1:]
    try:
        write(pathlib.Path(folder), [os.path.abspath(build) for build in builds], int(epoch))
    except (ListError, origins.UnknownOrigin) as error:
        sys.exit(f"list_contents.py: {error}")


if __name__ == "__main__":
    main()
