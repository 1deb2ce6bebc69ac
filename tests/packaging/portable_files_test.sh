#!/bin/sh
# portable_files_test.sh VERSION FILE...: the programs and libraries need nothing but the C library, and
# none of it that is newer than that version.
set -eu
newest=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# needs FILE: prints what the file needs: libraries, and versions of their symbols.
needs() {
  LC_ALL=C readelf -W -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]$/\1/p'
  LC_ALL=C readelf -W -V "$1" | sed -n '/\.gnu\.version_r/,$s/.* Name: \([^ ]*\) .*/\1/p' | sort -u
}
# judge FILE: prints what it should not need.
judge() {
  needs "$1" > "$work/needs"
  grep -q '^libc\.so\.6$' "$work/needs" && grep -q '^GLIBC_' "$work/needs" || echo 'reads as needing nothing'
  sed -n 's/^GLIBC_//p' "$work/needs" | while read -r version; do
    [ "$(printf '%s\n' "$version" "$newest" | sort -V | tail -n 1)" = "$newest" ] || echo "GLIBC_$version"
  done
  grep -vE '^(GLIBC_.*|lib(c|m|dl|pthread|rt)\.so\.[0-9]|ld-linux-[a-z0-9-]+\.so\.[0-9])$' "$work/needs" || true
}
failures=0
for file in "$@"; do
  found=$(judge "$file" | tr '\n' ' ')
  [ -z "$found" ] || { echo "$file: $found" >&2; failures=1; }
done
# Programs of this system need more, and that shows.
judge "$(command -v cmake)" | grep -q '^GLIBC_' || { echo 'newer versions are not seen' >&2; failures=1; }
judge "$(command -v cmake)" | grep -q '^libstdc++' || { echo 'other libraries are not seen' >&2; failures=1; }
exit $failures
