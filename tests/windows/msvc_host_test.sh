#!/bin/sh
# msvc_host_test.sh CMAKE BUILD CONSUMER PROCESSOR OUTPUT: builds hosts as Visual C++ does, with clang-cl
# and lld-link, with the installed files of the build folder: through CMake, and by hand in C and C++.
# They call the library through QzHidAPI.lib, and are put into OUTPUT to run on virtual hubs.
set -eu
cmake=$1 build=$2 consumer=$3 processor=$4 output=$5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*" >&2; exit 1; }
quietly() { "$@" > "$work/log" 2>&1 || fail "$(cat "$work/log")"; }
clang_cl=$(command -v clang-cl || command -v clang-cl-14)
case $processor in
  x64) target=x86_64-pc-windows-msvc machine=i386:x86-64 ;;
  arm64) target=aarch64-pc-windows-msvc machine=arm64 ;;
esac

# For other places than the one where it was installed first.
for component in library development; do
  quietly "$cmake" --install "$build" --prefix "$work/first" --component $component
done
prefix=$work/moved
mv "$work/first" "$prefix"

# Instead of Microsoft's C library: the entry point, and two functions that Windows has.
flags="--target=$target /W4 /WX /GS- /X /I$consumer/msvc"
# The flags are separate words.
# shellcheck disable=SC2086
quietly "$clang_cl" $flags /c "/Fo$work/startup.obj" -- "$consumer/msvc/startup.c"
for function in kernel32.ExitProcess msvcrt.printf; do
  name=${function%.*}
  printf 'LIBRARY %s.dll\nEXPORTS\n%s\n' "$name" "${function#*.}" > "$work/$name.def"
  llvm-dlltool -m "$machine" -d "$work/$name.def" -l "$work/$name.lib"
done
runtime="$work/startup.obj $work/kernel32.lib $work/msvcrt.lib"
link_flags="/machine:$processor /subsystem:console /nodefaultlib /manifest:no"

quietly "$cmake" -G Ninja -S "$consumer/installed" -B "$work/build" \
  "-DCMAKE_PREFIX_PATH=$prefix" -DWANTED_VERSION=1.0 -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_SYSTEM_NAME=Windows "-DCMAKE_C_COMPILER=$clang_cl" -DCMAKE_LINKER=lld-link \
  -DCMAKE_AR="$(command -v llvm-lib)" -DCMAKE_MT="$(command -v llvm-mt)" \
  -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY "-DCMAKE_C_FLAGS=$flags" \
  "-DCMAKE_EXE_LINKER_FLAGS=$link_flags" "-DCMAKE_C_STANDARD_LIBRARIES=$runtime"
quietly "$cmake" --build "$work/build" --verbose
grep -qF "$prefix/lib/QzHidAPI.lib" "$work/log" || fail "not linked with it: $(cat "$work/log")"
grep -qF "$prefix/lib/virtual/QzHidAPI.lib" "$work/log" || fail "not linked with it: $(cat "$work/log")"

# Without CMake: what README.md says, in C and in C++. Here, the warnings are also those of the header.
for language in c p; do
  # shellcheck disable=SC2086
  quietly "$clang_cl" $flags "/I$prefix/include" "/Fo$work/" "/Fe$work/build/${language}_host.exe" \
    "/T$language$consumer/host.c" -fuse-ld=lld /link $link_flags $runtime "/libpath:$prefix/lib" QzHidAPI.lib
done

rm -rf "$output"
mkdir -p "$output"
mv "$work/build"/*.exe "$work/build/QzHidAPI.dll" "$output"
cmp "$prefix/bin/virtual/QzHidAPI.dll" "$output/QzHidAPI.dll"
expected='ExitProcess QZ_CloseDev QZ_FreeDevList QZ_ListAllHidDev QZ_OpenHid QZ_ReadDevVersion '
expected="${expected}QzHidAPI.dll kernel32.dll msvcrt.dll printf "
for host in real_host virtual_host c_host p_host; do
  llvm-readobj --coff-imports "$output/$host.exe" | sed -n 's/^ *Name: //p; s/^ *Symbol: \(.*\) (.*/\1/p' |
    LC_ALL=C sort | tr '\n' ' ' > "$work/imports"
  [ "$(cat "$work/imports")" = "$expected" ] || fail "$host imports: $(cat "$work/imports")"
done
