#!/usr/bin/env python3
"""make_packages.py [--node-modules FOLDER] OUT SYSTEM=FOLDER...: makes the packages of the bindings in the
folder OUT, with the libraries for the systems that are named (linux-x64, linux-arm64, windows-x64, windows-arm64).
Each FOLDER has a library somewhere, and the virtual one in a folder "virtual". The Node package is made if the
folder of node modules is given, which has koffi."""
import argparse
import pathlib
import sys

from packaging import deb, npm, nuget, wheel
from packaging.common import PackageError, find_libraries


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("out", type=pathlib.Path)
    parser.add_argument("libraries", nargs="+", metavar="SYSTEM=FOLDER")
    parser.add_argument("--node-modules", type=pathlib.Path)
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
        print(nuget.make(options.out, found.values()))
        if options.node_modules:
            print(npm.make(options.out, found.values(), options.node_modules))
    except PackageError as error:
        sys.exit(f"make_packages.py: {error}")


if __name__ == "__main__":
    main()
