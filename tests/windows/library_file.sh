#!/bin/sh
# library_file.sh DLL SYMBOLS VERSION MACHINE LIB: the DLL is for that type of processor, exports exactly
# the functions in that list of symbols, needs only DLLs of the system, has the system's protections, and
# has that version. LIB, which is made of the header, imports the same functions from a DLL of that name.
set -eu
dll=$1 symbols=$2 version=$3 machine=$4 import_library=$5
fail() { echo "$dll: $*" >&2; exit 1; }

exported=$(llvm-readobj --coff-exports "$dll" | sed -n 's/^ *Name: //p' | LC_ALL=C sort)
listed=$(sed -n 's/^ \(QZ_[A-Za-z0-9_]*\)@.*/\1/p' "$symbols" | LC_ALL=C sort)
[ -n "$exported" ] && [ "$exported" = "$listed" ] || fail "exported: $exported; listed: $listed"

imported=$(llvm-readobj --file-headers "$import_library")
[ "$(echo "$imported" | sed -n 's/^Symbol: \(QZ_.*\)/\1/p' | LC_ALL=C sort)" = "$listed" ] ||
  fail "$import_library imports: $imported"
echo "$imported" | grep -q '^File: QzHidAPI.dll$' || fail "$import_library is for another DLL"
[ -z "$(echo "$imported" | sed -n "s/^ *Machine: //p" | grep -v "^$machine ")" ] ||
  fail "$import_library is for another processor"

llvm-readobj --coff-imports "$dll" | sed -n 's/^ *Name: //p' | tr 'A-Z' 'a-z' | LC_ALL=C sort -u |
  grep -vxE '(advapi32|cfgmgr32|hid|kernel32|msvcrt|setupapi|user32|api-ms-win-crt-[a-z0-9-]+)\.dll' &&
  fail "needs more than the system's DLLs"

headers=$(llvm-readobj --file-headers "$dll")
for fact in "Machine: $machine" IMAGE_DLL_CHARACTERISTICS_DYNAMIC_BASE \
  IMAGE_DLL_CHARACTERISTICS_NX_COMPAT IMAGE_DLL_CHARACTERISTICS_HIGH_ENTROPY_VA; do
  echo "$headers" | grep -q "$fact" || fail "not $fact"
done

# The toolchain for ARM64 does not support it.
[ "$machine" != IMAGE_FILE_MACHINE_AMD64 ] || llvm-nm "$dll" | grep -q ' __stack_chk_fail$' ||
  fail "no stack protector"

texts=$(strings -e l "$dll")
for name in FileVersion ProductVersion; do
  echo "$texts" | grep -A1 -x "$name" | grep -qx "$version" || fail "$name is not $version"
done

# The ARM64 library that ships has no debug information and is smaller than 700 KB.
size=$(stat -c %s "$dll")
[ "$machine" != IMAGE_FILE_MACHINE_ARM64 ] || [ "$size" -lt 700000 ] || fail "$size bytes"
