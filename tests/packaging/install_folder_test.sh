#!/bin/sh
# install_folder_test.sh CMAKE SOURCES: the folder of libraries that the command line names is one under
# the prefix, with or without a type.
set -eu
cmake=$1 sources=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for setting in CMAKE_INSTALL_LIBDIR=lib/named CMAKE_INSTALL_LIBDIR:PATH=lib/named; do
  rm -rf "$work/build"
  (cd "$work" && "$cmake" -G Ninja -S "$sources" -B build "-D$setting" -DQZ_BUILD_VIRTUAL_LIBRARY=OFF \
    -DQZ_BUILD_TOOLS=OFF -DQZ_BUILD_TESTS=OFF -DQZ_BUILD_BENCHMARKS=OFF) > "$work/log" 2>&1 ||
    { cat "$work/log" >&2; exit 1; }
  grep -qF "\${CMAKE_INSTALL_PREFIX}/lib/named/libQzHidAPI.so" "$work/build/cmake_install.cmake" ||
    { echo "$setting is not below the prefix" >&2; exit 1; }
done
