#!/bin/sh
# export_table.sh LIBRARY HEADER: the library exports the functions that the header declares, 27 of
# them, and nothing else.
set -eu
exported=$(nm -D --defined-only "$1" | awk '{ print $NF }' | LC_ALL=C sort)
declared=$(grep '^QZ_API ' "$2" | grep -o 'QZ_[A-Za-z0-9_]*(' | tr -d '(' | LC_ALL=C sort)
if [ "$exported" != "$declared" ] || [ "$(echo "$exported" | wc -l)" -ne 27 ]; then
  printf 'exported:\n%s\ndeclared:\n%s\n' "$exported" "$declared" >&2
  exit 1
fi
