#!/bin/sh
# make.sh BUILD FOLDER: makes the Debian packages of a build folder in that folder.
set -eu
. "$(dirname "$0")/../folders.sh"
build=$(cd "$1" && pwd)
into "$2"
architecture=$(dpkg --print-architecture)
# What is different if the files are for another system: its architecture, and the libraries they need.
if [ -f "$build/install/portable.conf" ]; then
  . "$build/install/portable.conf"
  export QZ_LIBRARIES="$libraries" DEB_BUILD_OPTIONS=nostrip # they have nothing to strip
fi

mkdir "$work/source"
cp -r "$source/packaging/debian" "$work/source/debian"
sh "$source/packaging/changelog.sh" debian "$source/CHANGELOG.md" > "$work/source/debian/changelog"
cd "$work/source"
QZ_BUILD=$build dpkg-buildpackage -b -d -us -uc --host-arch="$architecture" > "$work/log" 2>&1 ||
  { cat "$work/log" >&2; exit 1; }
rm -f "$folder"/*.deb
mv "$work"/*.deb "$folder"
