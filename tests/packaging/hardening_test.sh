#!/bin/sh
# hardening_test.sh TYPE FILE...: the programs and libraries have the protections of the linker and, in
# builds of a TYPE that optimises, of the compiler.
set -eu
type=$1
shift
fail() { echo "$file: $*" >&2; exit 1; }
for file in "$@"; do
  headers=$(LC_ALL=C readelf -W -h -l -d "$file")
  has() { echo "$headers" | grep -qE "$1"; }
  has '^ *Type: +DYN ' || fail 'is not position-independent'
  has '^ *GNU_RELRO ' || fail 'has no RELRO'
  has '\((FLAGS|FLAGS_1)\).*NOW' || fail 'is not bound at start'
  has '^ *GNU_STACK .* RW ' || fail 'has an executable stack'
  [ "$type" != Debug ] || continue
  symbols=$(LC_ALL=C readelf -W --dyn-syms "$file")
  echo "$symbols" | grep -qE ' UND __[a-z]+_chk@' || fail 'checks no lengths'
  # A static runtime hides the function; only x64 code then shows by itself where it compares.
  echo "$symbols" | grep -q ' UND __stack_chk_fail@' || has '^ *Machine: *AArch64' ||
    objdump -d "$file" | grep -q '%fs:0x28' || fail 'has no stack protector'
done
