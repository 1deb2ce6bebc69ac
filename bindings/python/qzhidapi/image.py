"""Firmware image files."""
from __future__ import annotations

import contextlib
import hashlib
import os
import pathlib
import re
import tempfile
import zlib
from ctypes import byref, c_uint16, c_uint32
from typing import Iterator, NamedTuple, Optional, Union

from ._library import Library, narrow
from .errors import QzHidError, Refused
from .hubs import Version

SHORTEST = 0x7FA8  # all ids and versions are before that
LONGEST = 0x1000000  # larger than any flash
SEAL = b"VHUBSEAL"
SEAL_AT = 0x7F80

Path = Union[str, "os.PathLike[str]"]


class Image(NamedTuple):
    """What an image file says about itself."""

    path: str
    vid: int
    pid: int
    version: Version


def read_image(path: Path, sha256: Optional[str] = None, flash_size: Optional[int] = None) -> bytes:
    """The contents of an image file. Raises Refused when it is not one, or not the wanted one."""
    if sha256 is not None and not re.fullmatch("[0-9a-fA-F]{64}", sha256):
        raise ValueError(f"'{sha256}' is not 64 hexadecimal digits")
    file = pathlib.Path(path)
    if not os.path.exists(file):
        raise _not_one(file, "does not exist")
    if not os.path.isfile(file):  # anything else may have no end
        raise _not_one(file, "is not a regular file")
    try:
        with file.open("rb") as stream:
            data = stream.read(LONGEST + 1)
    except OSError as error:
        raise _not_one(file, f"cannot be read: {error.strerror}") from None
    if len(data) < SHORTEST:
        raise _not_one(file, f"is too short: {len(data)} bytes of at least {SHORTEST}")
    if len(data) > LONGEST:
        raise _not_one(file, f"is too long: more than {LONGEST} bytes")
    if _is_damaged(data):
        raise _not_one(file, "is damaged: its length or checksum is wrong")
    if flash_size is not None and len(data) > flash_size:
        raise Refused(f"image {file} is longer than the flash: {len(data)} bytes of at most {flash_size}",
                      "use the image for this hub")
    digest = hashlib.sha256(data).hexdigest()
    if sha256 is not None and digest != sha256.lower():
        raise Refused(f"image {file} has the SHA-256 {digest}", f"use the image that has {sha256}")
    return data


@contextlib.contextmanager
def private_copy(data: bytes) -> Iterator[str]:
    """A file with that contents that nobody else can replace between the check and the writing."""
    try:
        folder = tempfile.TemporaryDirectory(prefix="qzhidapi-")
    except OSError as error:
        raise _no_copy(error) from None
    with folder:
        copy = os.path.join(folder.name, "image.bin")
        try:
            pathlib.Path(copy).write_bytes(data)
        except OSError as error:
            raise _no_copy(error) from None
        yield copy


def identify(library: Library, handle: int, copy: str) -> Image:
    """What the image says; the handle is that of any hub."""
    vid, pid, version = c_uint32(), c_uint32(), c_uint16()
    if not (library.QZ_GetHidBinFileVIDPID(narrow(copy), byref(vid), byref(pid))
            and library.QZ_ReadBinVersion(handle, narrow(copy), byref(version))):
        raise _no_copy(OSError(0, "it cannot be read"))
    return Image(copy, vid.value, pid.value, Version(version.value))


def _is_damaged(data: bytes) -> bool:
    """Of images that hold their own length and checksum, as those that qzhub makes."""
    if data[SEAL_AT:SEAL_AT + len(SEAL)] != SEAL:
        return False
    length, checksum = (int.from_bytes(data[at:at + 4], "little") for at in (SEAL_AT + 8, SEAL_AT + 12))
    if not SHORTEST <= length <= len(data):
        return True
    return zlib.crc32(data[SEAL_AT + 16:length], zlib.crc32(data[:SEAL_AT + 12])) != checksum


def _not_one(file: pathlib.Path, why: str) -> Refused:
    return Refused(f"image {file} {why}", "give the complete image file")


def _no_copy(error: OSError) -> QzHidError:
    return QzHidError(f"a private copy of the image cannot be made: {error.strerror}",
                      "free some space in the temporary folder, or choose another one with TMPDIR")
