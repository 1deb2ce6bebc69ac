#!/bin/sh
# host_guide_test.sh SOURCE LIBRARIES QZHUB: the hosts in the guide and in README.md run on the virtual
# library in the folder LIBRARIES. They update a hub, even one that loses its power at the worst moment,
# and write no image that is not for the hub.
set -eu
source=$1 libraries=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$3" image --out "$work/new.bin" --version 0210 --size 32680
"$3" image --out "$work/vendor.bin" --version 0210 --vid 2E7D
"$3" image --out "$work/product.bin" --version 0210 --pid 0820
# A sanitized library needs its runtime in hosts that are not sanitized.
sanitizers=$(ldd "$libraries/libQzHidAPI.so.1" | sed -n 's/.*=> \(.*san\.so[^ ]*\) .*/\1/p' | tr '\n' ' ')
failures=0
fail() { echo "$*" >&2; failures=1; }

# snippet LANGUAGE DOCUMENT: prints the only block of code in that language.
snippet() { sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/p" "$source/$2" | sed '1d;$d'; }
snippet python docs/host-guide.md > "$work/host.py"
snippet csharp docs/host-guide.md > "$work/host.cs"
snippet c README.md > "$work/host.c"
mcs -warnaserror "$work/host.cs" > "$work/log" 2>&1 || fail "$(cat "$work/log")"
cc -Wall -Wextra -Werror -I"$source/include" "$work/host.c" -L"$libraries" -lQzHidAPI \
  -Wl,--allow-shlib-undefined -o "$work/host" || failures=1

# machine MEMBERS [FAULTS [MORE]]: the next runs have this machine.
machine() {
  printf '{%s"devices": [{"name": "hub", "port": "3.1", "i2c": [{"kind": "eeprom", "address": "0x50"}]%s}],
    "faults": [%s]}' "${3-\"time\": \"virtual\", }" "$1" "${2-}" > "$work/scenario.json"
}
loss='{"on": "request", "action": "power_loss", "request"'
# run IMAGE HOST: runs a host.
run() {
  status=0
  env QZ_VIRTUAL_HUB="$work/scenario.json" LD_LIBRARY_PATH="$libraries" LD_PRELOAD="$sanitizers" \
    ASAN_OPTIONS=detect_leaks=0:handle_segv=0 $2 "$1" > "$work/output" 2>&1 || status=$?
}
# said STATUS LINE WHEN: the host ended with that status and printed that line.
said() {
  [ $status -eq "$1" ] && tr '\r' '\n' < "$work/output" | grep -qxF -- "$2" ||
    fail "$host, $3: status $status instead of $1, or no line '$2' in: $(cat "$work/output")"
}

python="python3 $work/host.py"
foreign='there is no hub that the image is for'
while IFS='|' read -r host updated recovered incomplete; do
  # Incomplete images are rejected before a hub is looked for, those for other hubs before it is touched.
  machine ', "plugged": false'
  for size in 0 300 32679 16777217; do
    truncate -s $size "$work/odd.bin"
    run "$work/odd.bin" "$host"
    said 1 "$incomplete" "$size bytes"
  done
  run "$work/new.bin" "$host"
  said 1 "$foreign" 'no hub'
  machine '' '' '"time": "virtual", "state_folder": ".", '
  for image in vendor product; do
    run "$work/$image.bin" "$host"
    said 1 "$foreign" "an image for another $image"
  done
  run "$work/new.bin" "$python"
  said 0 'updated: 1.02 -> 2.10' 'after images for other hubs'
  rm "$work/hub.flash"
  for fault in 40/00 40/E8 40/C8; do
    machine '' "$loss: \"$fault\", \"return_ms\": 0}"
    run "$work/new.bin" "$host"
    said 0 "$updated" "power lost at $fault"
  done
  machine ', "running": "rom", "rom": {"pid": "0x0810"}'
  run "$work/vendor.bin" "$host"
  said 1 "$foreign" 'in the loader, an image for another vendor'
  run "$work/new.bin" "$host"
  said 0 "$recovered" 'in the loader'
  # In real time, the hub is away for a while.
  machine ', "timing": {"latency_us": 0, "erase_ms": 10, "leave_ms": 1, "return_ms": 260, "ready_ms": 1}' \
    "$loss: \"40/C8\", \"nth\": 9, \"return_ms\": 700}" ''
  run "$work/new.bin" "$host"
  said 0 "$updated" 'away for a while'
done <<END
$python|updated: 1.02 -> 2.10|updated: loader -> 2.10|$work/odd.bin is not a complete firmware image
mono $work/host.exe|updated: 1.02 -> 2.10|updated: loader -> 2.10|$work/odd.bin is not a complete firmware image
$work/host|the hub now runs 2.10|the hub now runs 2.10|usage: host IMAGE (a complete firmware image file)
END
machine ''
run "$work/new.bin" "$python"
said 0 'EEPROM: ffffffffffffffff' 'an EEPROM'
exit $failures
