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
