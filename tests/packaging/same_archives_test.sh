#!/bin/sh
# same_archives_test.sh CPACK BUILD COMPARE: cpack makes the same archives and installers again, later and in
# another time zone; COMPARE says where they differ. All files in them have the time that it is given.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for run in first second; do
  "$1" --config "$2/CPackConfig.cmake" -D CPACK_QZ_SOURCE_DATE_EPOCH=1700000000 -B "$work/$run" > "$work/log" 2>&1 ||
    { cat "$work/log" >&2; exit 1; }
  rm -rf "$work/$run/_CPack_Packages"
  export TZ=Asia/Tokyo
done
"$3" "$work/first" "$work/second"

# Whoever makes them, and in whatever order the files come.
packaging=$(dirname "$3")/..
mkdir "$work/files" "$work/one" "$work/two"
touch "$work/files/a" "$work/files/b"
tar -C "$work/files" --owner=root:0 --group=root:0 -czf "$work/one/x.tar.gz" a b
tar -C "$work/files" --owner=builder:1000 --group=builder:1000 -czf "$work/two/x.tar.gz" b a
"$packaging/settle_archives.py" "$work/one/x.tar.gz" "$work/two/x.tar.gz"
"$3" "$work/one" "$work/two"

export TZ=UTC
cd "$work/first"
for archive in *.tar.gz *.zip; do
  case $archive in
    \*.*) continue ;;
    *.zip) unzip() { /usr/bin/python3 -m zipfile -l "$1" | tail -n +2; }; list=unzip when='2023-11-14 22:13:20' ;;
    *) list='tar --list --verbose --file' when='2023-11-14 22:13' ;;
  esac
  if $list "$archive" | grep -v " $when "; then
    echo "these have another time" >&2
    exit 1
  fi
done
