#!/bin/sh
# make.sh BUILD FOLDER: makes the RPM packages of a portable build in that folder.
set -eu
. "$(dirname "$0")/../folders.sh"
build=$(cd "$1" && pwd)
into "$2"
. "$build/install/portable.conf"

{ cat "$build/install/qzhidapi.spec" && sh "$source/packaging/changelog.sh" rpm "$source/CHANGELOG.md"; } \
  > "$work/qzhidapi.spec"
export HOME="$work" # without the user's own settings
rpmbuild -bb --target "$processor-linux" --define "_topdir $work" --define "_dbpath $work/database" \
  --define "build $build" "$work/qzhidapi.spec" > "$work/log" 2>&1 || { cat "$work/log" >&2; exit 1; }
rm -f "$folder"/*.rpm
mv "$work/RPMS/$processor"/*.rpm "$folder"
