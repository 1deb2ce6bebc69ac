#!/bin/sh
# consumer_test.sh CMAKE BUILD PROJECT: installs the build folder, moves what was installed, and builds
# the hosts in PROJECT with it, through CMake and through pkg-config. They work on virtual hubs.
set -eu
cmake=$1 build=$2 project=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$build" --prefix "$work/first" > "$work/log"
prefix=$work/moved
mv "$work/first" "$prefix"
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name qzhidapi.pc)")
QZ_VIRTUAL_HUB=$work/scenario.json
export PKG_CONFIG_PATH QZ_VIRTUAL_HUB
echo '{"time": "virtual", "devices": [{"name": "hub", "port": "1"}]}' > "$QZ_VIRTUAL_HUB"
libraries=$(pkg-config --variable=libdir qzhidapi)
virtual=$(pkg-config --variable=virtuallibdir qzhidapi)

fail() { echo "$*" >&2; exit 1; }
# finds_hub PROGRAM [FOLDER]: the program finds the virtual hub with the libraries in that folder.
finds_hub() {
  said=$(LD_LIBRARY_PATH=${2:-} "$1") || fail "$1 failed: $said"
  [ "$said" = '1 hub, 1.02' ] || fail "$1 said '$said'"
}

configure() {
  "$cmake" -S "$project" -B "$work/$1" "-DCMAKE_PREFIX_PATH=$prefix" "-DWANTED_VERSION=$1" \
    > "$work/log" 2>&1
}
configure 1.0 && "$cmake" --build "$work/1.0" > "$work/log" 2>&1 ||
  fail "$(cat "$work/log")"
finds_hub "$work/1.0/virtual_host"
for version in 1.99 2.0 0.9; do
  if configure $version; then fail "accepted as version $version"; fi
  grep -q 'compatible with requested version' "$work/log" || fail "$(cat "$work/log")"
done

# The flags are separate words.
# shellcheck disable=SC2046,SC2086
$CC $CFLAGS $(pkg-config --cflags qzhidapi) "$project/../host.c" $(pkg-config --libs qzhidapi) \
  -o "$work/host"
for host in "$work/1.0/real_host" "$work/host"; do
  finds_hub "$host" "$virtual"
  LD_LIBRARY_PATH=$libraries ldd "$host" | grep -qF "=> $libraries/libQzHidAPI.so.1 " ||
    fail "$host does not load the library of $libraries"
done
