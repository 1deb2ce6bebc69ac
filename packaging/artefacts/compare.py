#!/usr/bin/env python3
"""compare.py FIRST SECOND: compares two folders of packages and archives byte by byte. Prints the sum of each file,
and where files differ: which member of an archive, and at which byte. Fails if anything differs."""
import hashlib
import itertools
import pathlib
import sys

import archives


def files(folder):
    return {file.relative_to(folder).as_posix(): file for file in sorted(pathlib.Path(folder).rglob("*"))
            if file.is_file()}


def first_difference(first, second):
    """The offset of the first byte that differs, or None."""
    if first == second:
        return None
    pairs = itertools.zip_longest(first, second)
    return next(offset for offset, (one, other) in enumerate(pairs) if one != other)


def entry_differences(first, second):
    """How two lists of entries differ, one line each."""
    names = [[entry.name for entry in entries] for entries in (first, second)]
    for name in sorted(set(names[0]) ^ set(names[1])):
        yield f"{name}: only in the {'first' if name in names[0] else 'second'}"
    if names[0] != names[1] and sorted(names[0]) == sorted(names[1]):
        yield "the order of the members differs"
    others = {entry.name: entry for entry in second}
    for entry in first:
        other = others.get(entry.name, entry)
        offset = first_difference(entry.contents or b"", other.contents or b"")
        if offset is not None:
            yield f"{entry.name}: differs at byte {offset}"
        if entry.attributes != other.attributes:
            yield f"{entry.name}: {entry.attributes} / {other.attributes}"


def differences(first, second):
    """How two files differ, one line each; nothing if they are equal."""
    offset = first_difference(first.read_bytes(), second.read_bytes())
    if offset is None:
        return
    yield f"differs at byte {offset}"
    yield from entry_differences(archives.read(first), archives.read(second))


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    first, second = files(sys.argv[1]), files(sys.argv[2])
    if not first:
        sys.exit(f"compare.py: there is nothing in {sys.argv[1]}")
    different = set(first) ^ set(second)
    for name in sorted(different):
        print(f"DIFFERENT  {name}: only in the {'first' if name in first else 'second'}")
    for name in sorted(set(first) & set(second)):
        found = list(differences(first[name], second[name]))
        if found:
            different.add(name)
            print(f"DIFFERENT  {name}")
            for line in found:
                print(f"           {line}")
        else:
            print(f"{hashlib.sha256(first[name].read_bytes()).hexdigest()}  {name}")
    print(f"{len(set(first) | set(second)) - len(different)} equal, {len(different)} different")
    sys.exit(1 if different else 0)


if __name__ == "__main__":
    main()
