#!/usr/bin/env bash
# arm64_files.sh: prints the folder with what a virtual machine for ARM64 takes from Debian: the unpacked
# kernel (boot/ and lib/modules/) and a static busybox (bin/). Downloads it on first use.
set -euo pipefail
cache=${XDG_CACHE_HOME:-$HOME/.cache}/qzhidapi/kernel-arm64

# In folders of its own, apt knows the packages for ARM64 without a change to this system.
fetch() {
  local work=$1 package
  mkdir -p "$work/state/lists/partial" "$work/cache/archives/partial" "$work/unpacked"
  : >"$work/status"
  for_arm64() {
    "$1" -o APT::Architecture=arm64 -o APT::Architectures=arm64 -o Dir::State="$work/state" \
      -o Dir::State::status="$work/status" -o Dir::Cache="$work/cache" "${@:2}"
  }
  for_arm64 apt-get update >"$work/log" 2>&1 || return 1
  package=$(for_arm64 apt-cache depends linux-image-arm64 | sed -n 's/^ *Depends: \(linux-image-[0-9][^ ]*\)$/\1/p' | head -n 1)
  echo "==> downloading $package for ARM64 (70 MB)" >&2
  (cd "$work" && for_arm64 apt-get download "$package" busybox-static) >>"$work/log" 2>&1 || return 1
  for file in "$work"/*.deb; do dpkg -x "$file" "$work/unpacked"; done
}

if [ ! -d "$cache" ]; then
  mkdir -p "${cache%/*}"
  work=$(mktemp -d "$cache.XXXXXX")
  trap 'rm -rf "$work"' EXIT
  fetch "$work" || { cat "$work/log" >&2; exit 1; }
  mv -T "$work/unpacked" "$cache" 2>/dev/null || true # another run may have been faster
fi
echo "$cache"
