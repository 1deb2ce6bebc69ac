#!/bin/sh
# archive_test.sh CMAKE CPACK BUILD PROCESSOR SCRIPT: the archive of the build folder contains what users
# need and nothing else, and the installer contains the same files. To be installed under Wine, that one is
# put into BUILD/tests/installer, with one of an older version that has a file more; SCRIPT makes installers.
set -eu
cmake=$1 build=$3 processor=$4
architecture=$(echo "$processor" | tr A-Z a-z)
tests=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
"$2" --config "$build/CPackConfig.cmake" -B "$work" > log 2>&1 || { cat log >&2; exit 1; }
archive=$(echo QzHidAPI-*-windows-"$architecture".zip)
"$cmake" -E tar xf "$archive"
name=${archive%.zip}
python3 "$tests/packaging/documents_test.py" "$name/share/doc/QzHidAPI"
find "$name" -type f | cut -d/ -f2- |
  sed -E 's,/licences/.*,/licences/,; /(LICENSE|licences\/)$/!s,/doc/QzHidAPI/.*,/doc/QzHidAPI/,; s,-[a-z]*\.cmake,-TYPE.cmake,' |
  LC_ALL=C sort -u > found
cat > expected << END
bin/QzHidAPI.dll
bin/qzhid.exe
bin/qzhub.exe
bin/virtual/QzHidAPI.dll
include/QzHidAPI.h
lib/QzHidAPI.lib
lib/cmake/QzHidAPI/QzHidAPIConfig.cmake
lib/cmake/QzHidAPI/QzHidAPIConfigVersion.cmake
lib/cmake/QzHidAPI/QzHidAPITargets-TYPE.cmake
lib/cmake/QzHidAPI/QzHidAPITargets.cmake
lib/libQzHidAPI.dll.a
lib/pkgconfig/qzhidapi.pc
lib/virtual/QzHidAPI.lib
lib/virtual/libQzHidAPI.dll.a
share/doc/QzHidAPI/
share/doc/QzHidAPI/LICENSE
share/doc/QzHidAPI/licences/
END
diff -u expected found

installer=$name.msi
msiextract -C installed "$installer" > log
diff -r "$name" installed/QzHidAPI
template=$(msiinfo suminfo "$installer" | sed -n 's/^Template: //p')
[ "$template" = "$processor;1033" ] || { echo "the installer is for $template" >&2; exit 1; }

mkdir lists
cp "$archive" "$installer" lists
/usr/bin/python3 "${5%/packaging/*}/tests/packaging/lists_test.py" lists "$build"

output=$build/tests/installer
rm -rf "$output"
mkdir "$output"
list() { (cd "$name" && find . -type f | LC_ALL=C sort) > "$output/$1.txt"; }
list new
mv "$installer" "$output"
: > "$name/bin/gone.exe"
list older
"$cmake" "-DCPACK_TEMPORARY_DIRECTORY=$work/$name" "-DCPACK_PACKAGE_DIRECTORY=$output" \
  -DCPACK_PACKAGE_FILE_NAME=older -DCPACK_PACKAGE_VERSION=0.9.0 "-DCPACK_QZ_PROCESSOR=$processor" -P "$5"
