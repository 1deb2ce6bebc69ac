#!/bin/sh
# source.sh FOLDER: makes the Debian source package of the last commit in that folder, the same each time.
set -eu
. "$(dirname "$0")/../folders.sh"
into "$1"

git -C "$source" -c tar.umask=022 archive --prefix=source/ HEAD | tar -x -C "$work"
cd "$work/source"
cp -r packaging/debian debian
sh packaging/changelog.sh debian CHANGELOG.md > debian/changelog
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(dpkg-parsechangelog -S Timestamp)}
export SOURCE_DATE_EPOCH
version=$(dpkg-parsechangelog -S Version)
mv "$work/source" "$work/qzhidapi-$version"
cd "$work"
dpkg-source --build "qzhidapi-$version" > log 2>&1 || { cat log >&2; exit 1; }
rm -f "$folder"/*.dsc "$folder"/*.tar.xz
mv ./*.dsc ./*.tar.xz "$folder"
