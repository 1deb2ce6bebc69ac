#!/usr/bin/env bash
# Makes the packages for Python, Node and .NET in build/bindings, with the libraries for all systems. For
# `script/package bindings`.
. "$(dirname "$0")/../script/lib.sh"

presets=(release windows-x64 windows-arm64)
if grep -q '"name": "linux-arm64"' CMakePresets.json; then presets+=(linux-arm64); fi
script/bootstrap native "${presets[@]}"
rm -rf build/bindings
libraries=()
for preset in "${presets[@]}"; do
  build "$preset" QzHidAPI QzHidAPI_virtual
  folder=build/bindings/libraries/$preset
  cmake --install "build/$preset" --strip --component library --prefix "$folder" >/dev/null
  system=$preset
  if [ "$preset" = release ]; then system=linux-$(uname -m | sed 's/x86_64/x64/; s/aarch64/arm64/'); fi
  libraries+=("$system=$folder")
done
say 'packing bindings'
bindings/make_packages.py --node-modules "$cache/node/node_modules" build/bindings "${libraries[@]}"
rm -rf build/bindings/libraries
