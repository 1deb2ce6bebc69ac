#!/bin/sh
# export_table.sh LIBRARY HEADER SONAME: the library has that soname and exports exactly the 27
# functions that the header declares, each with the version of the interface.
set -eu
version=QZHIDAPI_1.0
# Some linkers list the version itself, too.
exported=$(nm -D --defined-only "$1" | awk '{ print $NF }' | grep -vx "$version" | LC_ALL=C sort)
declared=$(grep '^QZ_API ' "$2" | grep -o 'QZ_[A-Za-z0-9_]*(' | tr -d '(' | LC_ALL=C sort)
expected=$(echo "$declared" | sed "s/\$/@@$version/" | LC_ALL=C sort)
if [ "$exported" != "$expected" ] || [ "$(echo "$declared" | wc -l)" -ne 27 ]; then
  printf 'exported:\n%s\nexpected:\n%s\n' "$exported" "$expected" >&2
  exit 1
fi
objdump -p "$1" | grep -qx " *SONAME  *$3" || { echo "$1: the soname is not $3" >&2; exit 1; }
