"""What is in a package or archive of any kind that script/package makes."""
import io
import pathlib
import subprocess
import tarfile
import tempfile
import time
import zipfile
from typing import NamedTuple


class Entry(NamedTuple):
    """A member of an archive; what is not a regular file has no contents."""

    name: str
    contents: bytes | None
    attributes: str


def read(path):
    """The entries of an archive in their order. A file of another kind has none."""
    readers = {".deb": _debian_package, ".tgz": _tar, ".gz": _tar, ".xz": _tar, ".zip": _zip, ".whl": _zip,
               ".nupkg": _zip, ".msi": _installer, ".rpm": _rpm_package}
    reader = readers.get(path.suffix)
    return list(reader(path)) if reader else []


def shipped_files(path):
    """The names and contents of the files that a user of the archive gets."""
    entries = read(path)
    if path.suffix == ".deb":
        prefix = "data.tar"
        entries = [entry._replace(name=entry.name.partition("/")[2])
                   for entry in entries if entry.name.startswith(prefix) and "/" in entry.name]
    elif path.suffix == ".msi":
        entries = [entry for entry in entries if not entry.name.startswith(_TABLES)]
    return {entry.name.removeprefix("./"): entry.contents for entry in entries if entry.contents is not None}


def _when(seconds):
    return time.strftime("%Y-%m-%d %H:%M:%S", time.gmtime(seconds))


def _tar(source, prefix=""):
    stream = {"fileobj": source} if hasattr(source, "read") else {"name": source}
    with tarfile.open(mode="r:*", **stream) as archive:
        for member in archive:
            contents = archive.extractfile(member).read() if member.isfile() else None
            yield Entry(prefix + member.name, contents,
                        f"type {member.type.decode()}, mode {member.mode:o}, owner {member.uid} {member.uname}, "
                        f"group {member.gid} {member.gname}, time {_when(member.mtime)}, link to {member.linkname}")


def _zip(path):
    with zipfile.ZipFile(path) as archive:
        for member in archive.infolist():
            contents = None if member.is_dir() else archive.read(member)
            yield Entry(member.filename, contents,
                        f"mode {member.external_attr >> 16:o}, time {member.date_time}, extra {member.extra.hex()}")


def _debian_package(path):
    """The members of the package itself, and those of the archives in it."""
    rest = path.read_bytes().removeprefix(b"!<arch>\n")
    while rest:
        header, size = rest[:60], int(rest[48:58])
        name = header[:16].decode().rstrip(" /")
        contents = rest[60:60 + size]
        if ".tar" in name:
            yield from _tar(io.BytesIO(contents), f"{name}/")
        yield Entry(name, contents, f"time, owner, group, mode {header[16:48].decode().split()}")
        rest = rest[60 + size + size % 2:]


def _rpm_package(path):
    """The files that an RPM package installs."""
    with path.open("rb") as stream:
        archive = subprocess.run(["rpm2archive", "-"], stdin=stream, check=True, capture_output=True).stdout
    return _tar(io.BytesIO(archive))


_TABLES = "tables/"


def _installer(path):
    """The files that a Windows installer installs, and its tables."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["msiextract", "-C", folder, path], check=True, stdout=subprocess.DEVNULL)
        for file in sorted(pathlib.Path(folder).rglob("*")):
            if file.is_file():
                yield Entry(file.relative_to(folder).as_posix(), file.read_bytes(), "")
    for table in _output("msiinfo", "tables", path).decode().split():
        yield Entry(_TABLES + table, _output("msiinfo", "export", path, table), "")
    yield Entry(f"{_TABLES}summary", _output("msiinfo", "suminfo", path), "")


def _output(*command):
    return subprocess.run(command, check=True, capture_output=True).stdout
