#!/bin/sh
# archive_test.sh CMAKE CPACK BUILD ARCHITECTURE: the archive of the build folder contains what users need
# and nothing else.
set -eu
cmake=$1 build=$3 architecture=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
"$2" --config "$build/CPackConfig.cmake" -B "$work" > log 2>&1 || { cat log >&2; exit 1; }
archive=$(echo QzHidAPI-*-windows-"$architecture".zip)
"$cmake" -E tar xf "$archive"
name=${archive%.zip}
find "$name" -type f | cut -d/ -f2- | sed -E 's,/(docs|examples)/.*,/\1/,; s,-[a-z]*\.cmake,-TYPE.cmake,' |
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
share/doc/QzHidAPI/CHANGELOG.md
share/doc/QzHidAPI/CONTRIBUTING.md
share/doc/QzHidAPI/LICENSE
share/doc/QzHidAPI/README.md
share/doc/QzHidAPI/SECURITY.md
share/doc/QzHidAPI/docs/
share/doc/QzHidAPI/examples/
END
diff -u expected found
