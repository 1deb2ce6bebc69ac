#!/bin/sh
# abi_test.sh SOURCE: packaging/abi/abi.sh accepts a library with the interface of the header, and says why
# it does not accept one with another interface. These libraries are made from the header and do nothing.
set -eu
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
abi=$source/packaging/abi/abi.sh

# make FOLDER: a library of the header and the symbol versions in that folder.
make() {
  sed -e '/^QZ_STATIC_ASSERT(/d' -e '/^QZ_API /,/;/s/;$/ { __builtin_trap(); }/' "$1/QzHidAPI.h" > "$1/stub.cpp"
  "${CXX:-c++}" -std=c++20 -g -fPIC -shared -nostdlib -fvisibility=hidden -Wl,-soname,libQzHidAPI.so.1 \
    -Wl,--version-script="$1/exports.map" -o "$1/library" "$1/stub.cpp"
}
# refuses FOLDER TEXT: the library there is not accepted, and this text says why.
refuses() {
  ! sh "$abi" check "$work/$1/library" > "$work/said" 2>&1 || { echo "$1: accepted" >&2; exit 1; }
  grep -qF -e "$2" "$work/said" || { echo "$1: does not say '$2':"; cat "$work/said"; exit 1; } >&2
}
# changed NAME SCRIPT TEXT...: that change of the header is not accepted, and these texts say why.
changed() {
  name=$1 script=$2
  shift 2
  mkdir -p "$work/$name"
  cp "$source/cmake/exports.map" "$work/$name"
  sed "$script" "$source/include/QzHidAPI.h" > "$work/$name/QzHidAPI.h"
  ! cmp -s "$source/include/QzHidAPI.h" "$work/$name/QzHidAPI.h" || { echo "$name: no change" >&2; exit 1; }
  make "$work/$name"
  for text; do refuses "$name" "$text"; done
}

mkdir "$work/same"
cp "$source/cmake/exports.map" "$source/include/QzHidAPI.h" "$work/same"
make "$work/same"
sh "$abi" check "$work/same/library"

incompatible='or give the library a new'
changed parameter 's/^\(QZ_API .*QZ_HidGPIOW(.*\)uint32_t level/\1uint8_t level/' "parameter 3 of type 'typedef uint32_t'" "$incompatible"
changed result 's/^QZ_API void QZ_CloseDev(/QZ_API int32_t QZ_CloseDev(/' QZ_CloseDev "$incompatible"
changed field 's/^  uint32_t dwDevSubType;/&\n  uint32_t Added;/' "'uint32_t Added'" "$incompatible"
changed order 's/^  uint32_t Level;/  uint32_t Swapped;/; s/^  uint32_t Port;/  uint32_t Level;/; s/Swapped/Port/' HidDevRecord "$incompatible"
changed callback 's/^\(typedef void (\*QZ_ProgressCallback)(\)int32_t/\1int64_t/' QZ_UpdateDev "$incompatible"
changed removed '/^QZ_API .*QZ_HidGPIOW(/d' '1 Removed function' QZ_HidGPIOW "$incompatible"
changed added 's/^QZ_API .*QZ_HidGPIOW(.*/&\nQZ_API void QZ_Added(void);/' '1 Added function' 'sh packaging/abi/abi.sh store'

mkdir "$work/stripped"
strip -g -o "$work/stripped/library" "$work/same/library"
refuses stripped 'no debug information'

# The dump has the function now, but the list of symbols does not.
cp -r "$source/packaging" "$work/packaging"
abi=$work/packaging/abi/abi.sh symbols=$work/packaging/debian/libqzhidapi1.symbols
sh "$abi" store "$work/added/library"
refuses added '+ QZ_Added@QZHIDAPI_1.0 '
# The list has it, but not with a symbol version of its own.
echo ' QZ_Added@QZHIDAPI_1.0 1.1.0' >> "$symbols"
refuses added '1.0 1.1.0'
echo 'QZHIDAPI_1.1 { global: QZ_Added; } QZHIDAPI_1.0;' >> "$work/added/exports.map"
sed -i '$d' "$symbols"
printf ' %s@QZHIDAPI_1.1 1.1.0\n' QZHIDAPI_1.1 QZ_Added >> "$symbols"
make "$work/added"
sh "$abi" store "$work/added/library"
sh "$abi" check "$work/added/library"
