#!/usr/bin/env bash
# includes_test.sh ROOT: no source includes a layer above it, and the check reports each kind of
# include that does.
set -euo pipefail
check=$(dirname "$0")/check_includes.sh
"$check" "$1"

tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
# file PATH INCLUDE...: writes a source file with these includes.
file() {
  local path=$tree/$1
  shift
  mkdir -p "${path%/*}"
  printf '#include "%s"\n' "$@" >"$path"
}
file src/api/good.cpp api/a.h flow/a.h QzHidAPI.h
file src/platform/virtual/good.cpp virtualhub/bus/machine.h
file src/flow/bad.cpp flow/a.h api/a.h
file src/device/bad.h discovery/a.h
file src/transport/bad.h firmware/a.h
file src/log/bad.h transport/a.h
file src/platform/linux/bad.cpp virtualhub/bus/machine.h log/a.h
file src/discovery/bad.cpp ../api/a.h
file virtualhub/bus/bad.cpp virtualhub/bus/machine.h platform/platform.h
file tools/qzhid/bad.cpp qzhid/a.h transport/a.h

expected='src/device/bad.h:1: src/device must not include "discovery/a.h"
src/discovery/bad.cpp:1: src/discovery must not include "../api/a.h"
src/flow/bad.cpp:2: src/flow must not include "api/a.h"
src/log/bad.h:1: src/log must not include "transport/a.h"
src/platform/linux/bad.cpp:1: src/platform/linux must not include "virtualhub/bus/machine.h"
src/platform/linux/bad.cpp:2: src/platform/linux must not include "log/a.h"
src/transport/bad.h:1: src/transport must not include "firmware/a.h"
tools/qzhid/bad.cpp:2: tools/qzhid must not include "transport/a.h"
virtualhub/bus/bad.cpp:2: virtualhub/bus must not include "platform/platform.h"'
reported=$("$check" "$tree" | LC_ALL=C sort) && { echo 'the check passes bad includes'; exit 1; }
diff <(echo "$expected") <(echo "$reported")
