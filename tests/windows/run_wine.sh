#!/bin/sh
# run_wine.sh FOLDER: runs the Windows tests of that build folder under Wine. Writes a JUnit report of
# each program to FOLDER/tests/results. Needs only a shell, so that it also runs in a root folder for
# another processor.
set -u
here=$(cd "$(dirname "$0")" && pwd)
cd "$1/tests" || exit 1
WINEPREFIX=$(mktemp -d)
export WINEPREFIX WINEDEBUG=-all LC_ALL=C.UTF-8
wine=/usr/lib/wine/wine64
trap '/usr/lib/wine/wineserver -k; /usr/lib/wine/wineserver -w; rm -rf "$WINEPREFIX"' EXIT
rm -rf results
mkdir results

# The prefix is made with the system's own DLLs, without the replacements.
{ $wine cmd /c ver && $wine winecfg /v win10; } >results/prefix.log 2>&1 || {
  cat results/prefix.log
  exit 1
}

# report NAME COMMAND...: runs a command and reports its tests: the number that it prints like
# GoogleTest, or one if it prints none. If it fails without printing a failure, that counts as one.
# (The programs' own reports are useless, because Wine for ARM64 cannot format the numbers in them.)
report() {
  name=$1 log=results/$1.log
  shift
  printf '%s ... ' "$name"
  if timeout 600 "$@" >"$log" 2>&1; then said=ok; else said=FAILED; fi
  echo "$said"
  counted() { sed -n "s/^\[  $1  \] \([0-9]*\) test.*/\1/p" "$log"; }
  passed=$(counted PASSED) failed=$(counted FAILED)
  : "${failed:=0}"
  if [ "$said" = ok ]; then
    : "${passed:=1}"
  else
    [ "$failed" -gt 0 ] || failed=1
    grep -v '^\[ *\(RUN\|OK\|---*\) *\]' "$log"
  fi
  printf '<testsuites tests="%d" failures="%d"></testsuites>\n' $((${passed:-0} + failed)) "$failed" \
    >"results/$name.xml"
}

# With the system's own DLLs. This comes first: what replaces them is also found by the services that the
# system starts.
export WINEDLLOVERRIDES='winedbg.exe=d'
report hid_stack $wine without_doubles/hid_stack_test.exe
report msvc_hosts "$here/run_msvc_hosts.sh" msvc
# Emulated, this takes too long, and Wine for ARM64 does not know the folder of 64-bit programs.
[ "$(uname -m)" = aarch64 ] || report installer "$here/run_installer.sh" installer

WINEDLLOVERRIDES='hid,setupapi,cfgmgr32=n;winedbg.exe=d'
# What Wine's own dump service needs does not work under emulation.
if [ "$(uname -m)" = aarch64 ]; then
  cp system/dbghelp.dll "$WINEPREFIX/drive_c/windows/system32"
  WINEDLLOVERRIDES="$WINEDLLOVERRIDES;dbghelp=n"
fi
for program in *_test.exe; do
  report "${program%.exe}" $wine "$program"
done
report example_on_doubles "$here/run_example.sh" .
report example_on_virtual_library "$here/run_example.sh" ../bin/virtual
report qzhid "$here/run_qzhid.sh" ../bin
