"""The number that mono's compiler chooses at random for each assembly, by which debuggers tell assemblies apart."""
import hashlib
import struct

from .common import PackageError

ROOT = b"BSJB"  # where the tables of an assembly begin
LENGTH = 16


def settle(assembly):
    """The assembly with a number that follows from its contents."""
    place = _numbers(assembly)
    blank = assembly[:place] + bytes(LENGTH) + assembly[place + LENGTH:]
    return blank[:place] + hashlib.sha256(blank).digest()[:LENGTH] + blank[place + LENGTH:]


def _numbers(assembly):
    """Where the heap of numbers is, of which an assembly has one: ECMA-335, II.24.2."""
    if assembly.count(ROOT) != 1:
        raise PackageError("the compiler's assembly has no tables, or two")
    root = assembly.index(ROOT)
    (version_length,) = struct.unpack_from("<I", assembly, root + 12)
    place = root + 16 + version_length
    (count,) = struct.unpack_from("<H", assembly, place + 2)
    place += 4
    for _ in range(count):
        offset, size = struct.unpack_from("<II", assembly, place)
        name = assembly[place + 8:assembly.index(b"\0", place + 8)]
        if name == b"#GUID" and size == LENGTH:
            return root + offset
        place += 8 + (len(name) // 4 + 1) * 4
    raise PackageError("the compiler's assembly has no number, or several")
