#!/usr/bin/env bash
# Makes the packages for Python, Node and .NET in build/bindings, with the libraries for all systems. For
# `script/package bindings`, which sets SOURCE_DATE_EPOCH.
. "$(dirname "$0")/../script/lib.sh"

# Those for Linux run on every system with glibc 2.17 or newer.
presets=(portable-x64 linux-arm64 windows-x64 windows-arm64)
script/bootstrap native "${presets[@]}"
rm -rf build/bindings
libraries=()
for preset in "${presets[@]}"; do
  configure "$preset" "QZ_SOURCE_DATE_EPOCH=$SOURCE_DATE_EPOCH"
  build "$preset" QzHidAPI QzHidAPI_virtual
  folder=build/bindings/libraries/$preset
  for component in library licence; do
    cmake --install "build/$preset" --strip --component "$component" --prefix "$folder" >/dev/null
  done
  libraries+=("${preset/portable/linux}=$folder")
done
say 'packing bindings'
bindings/make_packages.py --node-modules "$cache/node/node_modules" build/bindings "${libraries[@]}"
rm -rf build/bindings/libraries
check_with_lintian bindings build/bindings/*.deb
packaging/artefacts/list_contents.py build/bindings "${presets[@]/#/build/}"
