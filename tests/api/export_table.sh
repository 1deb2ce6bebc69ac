#!/bin/sh
# export_table.sh LIBRARY HEADER SONAME SYMBOLS: the library has that soname and exports exactly the
# functions in that list of symbols, with the versions there. The header declares the same functions.
set -eu
symbols() { sed -n 's/^ \(QZ_[A-Za-z0-9_]*@[^ ]*\) .*/\1/p' "$1" | sed "$2" | LC_ALL=C sort; }
# Some linkers list the versions themselves, too.
exported=$(nm -D --defined-only "$1" | awk '$NF !~ /^QZHIDAPI_/ { print $NF }' | LC_ALL=C sort)
declared=$(grep '^QZ_API ' "$2" | grep -o 'QZ_[A-Za-z0-9_]*(' | tr -d '(' | LC_ALL=C sort)
expected=$(symbols "$4" 's/@/@@/')
if [ "$exported" != "$expected" ] || [ "$declared" != "$(symbols "$4" 's/@.*//')" ]; then
  printf 'exported:\n%s\ndeclared:\n%s\nexpected:\n%s\n' "$exported" "$declared" "$expected" >&2
  exit 1
fi
objdump -p "$1" | grep -qx " *SONAME  *$3" || { echo "$1: the soname is not $3" >&2; exit 1; }
