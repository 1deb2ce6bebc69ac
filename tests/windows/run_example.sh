#!/bin/sh
# run_example.sh FOLDER: the example program updates a hub with the library in that folder.
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cp "$1"/*.dll ../bin/update_hub.exe ../bin/qzhub.exe "$folder"
cd "$folder"
/usr/lib/wine/wine64 qzhub.exe image --out hub.bin --size 65536 --version 0210
/usr/lib/wine/wine64 update_hub.exe hub.bin >output.txt || { cat output.txt; exit 1; }
tr -d '\r' <output.txt | tail -n 1 | grep -x 'updated: 1.02 -> 2.10'
