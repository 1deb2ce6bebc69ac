#!/bin/sh
# subdirectory_test.sh CMAKE PROJECT SOURCES: a host's project includes the library with add_subdirectory
# and with FetchContent. By default it gets only the library, which needs no package; on request it also
# gets the virtual library, and a host runs on it.
set -eu
cmake=$1 project=$2 sources=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*" >&2; exit 1; }
# build FOLDER SETTING...: configures and builds the project in that folder.
build() {
  folder=$work/$1
  shift
  { "$cmake" -G Ninja -DCMAKE_UNITY_BUILD=ON -S "$project" -B "$folder" "-DLIBRARY_SOURCES=$sources" "$@" &&
    "$cmake" --build "$folder"; } > "$work/log" 2>&1 || fail "$(cat "$work/log")"
}

without_packages=
for package in CLI11 GTest benchmark nlohmann_json spdlog; do
  without_packages="$without_packages -DCMAKE_DISABLE_FIND_PACKAGE_$package=ON"
done
# shellcheck disable=SC2086
build alone $without_packages
find "$work/alone" -name '*.so' > "$work/libraries"
[ "$(wc -l < "$work/libraries")" -eq 1 ] || fail "built: $(cat "$work/libraries")"
[ ! -e "$work/alone/QzHidAPI/bin" ] || fail 'tools or tests were built'
DESTDIR=$work/installed "$cmake" --install "$work/alone" > "$work/log"
[ ! -e "$work/installed" ] || fail 'installing the host also installs the library'

build with_virtual -DFETCH=ON -DQZ_BUILD_VIRTUAL_LIBRARY=ON
echo '{"time": "virtual", "devices": [{"name": "hub", "port": "1"}]}' > "$work/scenario.json"
said=$(QZ_VIRTUAL_HUB=$work/scenario.json "$work/with_virtual/virtual_host") || fail "failed: $said"
[ "$said" = '1 hub, 1.02' ] || fail "said: $said"
