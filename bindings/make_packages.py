#!/usr/bin/env python3
"""make_packages.py OUT SYSTEM=FOLDER...: makes the packages of the bindings in the folder OUT, with the
libraries for the systems that are named (linux-x64, linux-arm64, windows-x64, windows-arm64). Each FOLDER has
a library somewhere, and the virtual one in a folder "virtual"."""
import argparse
import pathlib
import sys

from packaging import deb, wheel
from packaging.common import PackageError, find_libraries


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("out", type=pathlib.Path)
    parser.add_argument("libraries", nargs="+", metavar="SYSTEM=FOLDER")
    options = parser.parse_args()
    try:
        found = {}
        for argument in options.libraries:
            name, _, folder = argument.partition("=")
            found[name] = find_libraries(name, folder)
        options.out.mkdir(parents=True, exist_ok=True)
        for libraries in found.values():
            print(wheel.make(options.out, libraries))
        print(deb.make(options.out))
    except PackageError as error:
        sys.exit(f"make_packages.py: {error}")


if __name__ == "__main__":
    main()
