#!/bin/sh
# archive_test.sh CPACK BUILD NAME FOLDER: makes the archive of the build folder in that folder. It contains
# what users need and nothing else, in a folder with its name.
set -eu
name=$3 folder=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rm -rf "$folder"
"$1" --config "$2/CPackConfig.cmake" -G TGZ -B "$folder" > "$work/log" 2>&1 || { cat "$work/log" >&2; exit 1; }
[ "$(ls "$folder"/*.tar.gz)" = "$folder/$name.tar.gz" ] || { ls "$folder" >&2; exit 1; }
tar -x -f "$folder/$name.tar.gz" -C "$work" "$name/share/doc/QzHidAPI"
python3 "$(dirname "$0")/documents_test.py" "$work/$name/share/doc/QzHidAPI"
tar -t -f "$folder/$name.tar.gz" | grep -v '/$' |
  sed -E "s|^$name/||; s|/licences/.*|/licences/|; /(LICENSE|licences\/)$/!s|/doc/QzHidAPI/.*|/doc/QzHidAPI/|; s,\.so\.1\.[0-9.]+$,.so.VERSION," |
  LC_ALL=C sort -u > "$work/found"
cat > "$work/expected" << END
bin/qzhid
bin/qzhub
include/QzHidAPI.h
install.sh
lib/cmake/QzHidAPI/QzHidAPIConfig.cmake
lib/cmake/QzHidAPI/QzHidAPIConfigVersion.cmake
lib/cmake/QzHidAPI/QzHidAPITargets-release.cmake
lib/cmake/QzHidAPI/QzHidAPITargets.cmake
lib/libQzHidAPI.so
lib/libQzHidAPI.so.1
lib/libQzHidAPI.so.VERSION
lib/pkgconfig/qzhidapi.pc
lib/qzhidapi/virtual/libQzHidAPI.so
lib/qzhidapi/virtual/libQzHidAPI.so.1
lib/qzhidapi/virtual/libQzHidAPI.so.VERSION
lib/udev/rules.d/70-qzhidapi.rules
lib/wireshark/plugins/qzhid.lua
share/bash-completion/completions/qzhid
share/bash-completion/completions/qzhub
share/doc/QzHidAPI/
share/doc/QzHidAPI/LICENSE
share/doc/QzHidAPI/licences/
share/man/man1/qzhid.1.gz
share/man/man1/qzhub.1.gz
share/qzhidapi/qzhidapi-usbhid.conf
share/zsh/site-functions/_qzhid
share/zsh/site-functions/_qzhub
END
diff -u "$work/expected" "$work/found" >&2
