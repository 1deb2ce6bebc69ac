#!/bin/sh
# abi.sh check LIBRARY...: the libraries, which need debug information, have the binary interface
# of the release: the types in the dump beside this script, and the symbols in the list of the Debian
# package.
# abi.sh store LIBRARY: stores the interface of that library as the dump.
set -eu
action=$1
shift
folder=$(dirname "$0")
dump=$folder/libQzHidAPI.so.1.abi
symbols=$folder/../debian/libqzhidapi1.symbols
fail() { printf '%s\n' "$@" >&2; exit 1; }

# Only what a host can see, without anything that differs between build folders.
store() {
  abidw --exported-interfaces-only --drop-undefined-syms --no-architecture --no-show-locs --no-corpus-path \
    --no-comp-dir-path --no-elf-needed --no-write-default-sizes --type-id-style hash "$1" | sed "s/ path='[^']*'//" > "$dump.new"
  mv "$dump.new" "$dump"
}

# differences LIBRARY OPTION...: prints how the library differs from the dump; fails if it does.
differences() {
  library=$1
  shift
  abidiff --exported-interfaces-only --no-architecture --no-show-locs "$@" "$dump" "$library" 2>&1
}

check_types() {
  LC_ALL=C readelf -W -S "$1" | grep -q ' \.debug_info ' || fail "$1: no debug information"
  if changes=$(differences "$1"); then return; fi
  if differences "$1" --no-added-syms > /dev/null; then
    fail "$1: functions that $dump does not have:" "$changes" \
      "If they are meant to be part of the interface from now on, store them:" \
      "  sh packaging/abi/abi.sh store build/release/lib/libQzHidAPI.so"
  fi
  fail "$1: the interface is not that of $dump:" "$changes" \
    "Programs that exist would call the library wrongly. Undo the change, or give the library a new" \
    "soname, which is the major version in CMakeLists.txt, and a dump with the new name."
}

check_symbols() {
  changes=$(dpkg-gensymbols -c4 -plibqzhidapi1 -v0 -I"$symbols" -e"$1" -O/dev/null 2>&1) ||
    fail "$1: the symbols are not those in $symbols:" "$changes" \
      "Add a new function there, with a symbol version of its own in cmake/exports.map. Never remove one."
  changes=$(sed -n 's/^ .*@QZHIDAPI_\([0-9.]*\) /\1 /p' "$symbols" | awk 'index($2 ".", $1 ".") != 1')
  [ -z "$changes" ] || fail "$symbols: these symbol versions are not of the release beside them:" "$changes"
}

case $action in
  store) store "$1" ;;
  check)
    for library; do
      check_types "$library"
      check_symbols "$library"
    done
    ;;
  *) fail "abi.sh: check or store, not $action" ;;
esac
