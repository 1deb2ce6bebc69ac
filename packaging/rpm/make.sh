#!/bin/sh
# make.sh BUILD FOLDER: makes the RPM packages of a portable build in that folder.
set -eu
source=$(cd "$(dirname "$0")/../.." && pwd)
build=$(cd "$1" && pwd)
mkdir -p "$2"
folder=$(cd "$2" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
. "$build/install/portable.conf"

{ cat "$build/install/qzhidapi.spec" && sh "$source/packaging/changelog.sh" rpm "$source/CHANGELOG.md"; } \
  > "$work/qzhidapi.spec"
# The time of the release, unless another one is given.
if [ -z "${SOURCE_DATE_EPOCH-}" ]; then
  SOURCE_DATE_EPOCH=$(date -u -d "$(sed -n 's/^## .*(\(.*\))$/\1/p;T;q' "$source/CHANGELOG.md")" +%s)
fi
export SOURCE_DATE_EPOCH HOME="$work" # without the user's own settings
rpmbuild -bb --target "$processor-linux" --define "_topdir $work" --define "_dbpath $work/database" \
  --define "build $build" "$work/qzhidapi.spec" > "$work/log" 2>&1 || { cat "$work/log" >&2; exit 1; }
rm -f "$folder"/*.rpm
mv "$work/RPMS/$processor"/*.rpm "$folder"
