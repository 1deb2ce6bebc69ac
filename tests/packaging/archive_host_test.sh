#!/bin/sh
# archive_host_test.sh ARCHIVE CONSUMER: hosts that this system's compilers build with the archive, through
# pkg-config, work with it: one in C, and one in C++ whose threads end during an update, although the
# library has a C++ runtime of its own.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*" >&2; exit 1; }
tar -x -f "$1" -C "$work" --strip-components=1
PKG_CONFIG_PATH=$work/lib/pkgconfig QZ_VIRTUAL_HUB=$work/hub.json
LD_LIBRARY_PATH=$(PKG_CONFIG_PATH=$PKG_CONFIG_PATH pkg-config --variable=virtuallibdir qzhidapi)
export PKG_CONFIG_PATH QZ_VIRTUAL_HUB LD_LIBRARY_PATH
# shellcheck disable=SC2046
{
  cc "$2/host.c" $(pkg-config --cflags --libs qzhidapi) -o "$work/host"
  c++ -std=c++20 "$2/ending.cpp" $(pkg-config --cflags --libs qzhidapi) -pthread -o "$work/ending"
}
echo '{"time": "virtual", "devices": [{"name": "hub", "port": "1"}]}' > "$QZ_VIRTUAL_HUB"
said=$("$work/host") && [ "$said" = '1 hub, 1.02' ] || fail "host says '$said'"
"$work/bin/qzhub" image --out "$work/new.bin" --version 0210
said=$("$work/ending" "$work/new.bin") && [ "$said" = '2 returned, 1 done' ] || fail "ending says '$said'"
