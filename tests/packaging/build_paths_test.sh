#!/bin/sh
# build_paths_test.sh SOURCE FILE...: no program or library names the folder in which it was built.
set -eu
source=$1
shift
if grep --files-with-matches --fixed-strings --text "$source" "$@"; then
  echo 'these name the folder of the sources' >&2
  exit 1
fi
