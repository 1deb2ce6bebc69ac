#!/bin/sh
# host_guide_test.sh SOURCE LIBRARIES QZHUB: the hosts in the guide run on the virtual library in the
# folder LIBRARIES. They update a hub, even one that loses its power at the worst moment. All links
# in the documents lead to a file.
set -eu
source=$1 libraries=$2
guide=$source/docs/host-guide.md
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$3" image --out "$work/new.bin" --version 0210
# A sanitized library needs its runtime in hosts that are not sanitized.
sanitizers=$(ldd "$libraries/libQzHidAPI.so.1" | sed -n 's/.*=> \(.*san\.so[^ ]*\) .*/\1/p' | tr '\n' ' ')
failures=0
fail() { echo "$*" >&2; failures=1; }

# snippet LANGUAGE: prints the only block of code in that language.
snippet() { sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/p" "$guide" | sed '1d;$d'; }
snippet python > "$work/host.py"
snippet csharp > "$work/host.cs"
mcs -warnaserror "$work/host.cs" > "$work/log" 2>&1 || fail "$(cat "$work/log")"

# updates COMMAND...: the host updates a hub, also one that loses its power before or after the erase.
updates() {
  for request in '40/FF' '40/E8' '40/C8'; do
    printf '{"time": "virtual",
      "devices": [{"name": "hub", "port": "3.1", "i2c": [{"kind": "eeprom", "address": "0x50"}]}],
      "faults": [{"on": "request", "request": "%s", "action": "power_loss", "return_ms": 0}]}' \
      "$request" > "$work/scenario.json"
    env QZ_VIRTUAL_HUB="$work/scenario.json" LD_LIBRARY_PATH="$libraries" LD_PRELOAD="$sanitizers" \
      ASAN_OPTIONS=detect_leaks=0:handle_segv=0 "$@" "$work/new.bin" > "$work/output" 2> "$work/errors" &&
      grep -qx 'updated: 1.02 -> 2.10' "$work/output" ||
      fail "$1, power lost at $request: $(cat "$work/output" "$work/errors")"
  done
}
# rejects COMMAND...: the host rejects incomplete images, before it looks for a hub.
echo '{"time": "virtual", "devices": []}' > "$work/none.json"
rejects() {
  for size in 0 300 32679 16777217; do
    truncate -s $size "$work/odd.bin"
    if env QZ_VIRTUAL_HUB="$work/none.json" LD_LIBRARY_PATH="$libraries" LD_PRELOAD="$sanitizers" \
      ASAN_OPTIONS=detect_leaks=0:handle_segv=0 "$@" "$work/odd.bin" > "$work/output" 2>&1; then
      fail "$1 accepts $size bytes"
    fi
    grep -qxF "$work/odd.bin is not a complete firmware image" "$work/output" ||
      fail "$1, $size bytes: $(cat "$work/output")"
  done
}
rejects python3 "$work/host.py"
rejects mono "$work/host.exe"
updates python3 "$work/host.py"
grep -qx 'EEPROM: ffffffffffffffff' "$work/output" || fail "another EEPROM: $(cat "$work/output")"
updates mono "$work/host.exe"

cd "$source"
for page in *.md docs/*.md; do
  grep -oE '\]\([^)#:]+' "$page" | cut -c3- | grep -vx https | sort -u | while read -r link; do
    [ -e "$(dirname "$page")/$link" ] || echo "$page links to $link, which does not exist"
  done
done | grep . >&2 && failures=1
exit $failures
