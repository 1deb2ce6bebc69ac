#!/bin/sh
# examples_test.sh FOLDER QZHUB: the examples in FOLDER work on virtual hubs, with an image from QZHUB.
set -eu
examples=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$2" image --out "$work/new.bin" --version 0210
export QZ_VIRTUAL_HUB="$work/scenario.json"
failures=0

# scenario MEMBERS: the next runs have a machine with one hub that has these members.
scenario() {
  printf '{"time": "virtual", "devices": [{"name": "hub", "port": "3.1"%s}]}\n' "$1" > "$QZ_VIRTUAL_HUB"
}

# expect STATUS TEXT EXAMPLE ARGUMENT...: the example ends with that status and prints that line.
expect() {
  status=$1 text=$2 program=$3
  shift 3
  result=0
  "$examples/$program" "$@" > "$work/output" 2>&1 || result=$?
  if [ "$result" -ne "$status" ] || ! grep -qxF -- "$text" "$work/output"; then
    echo "$program $*: status $result instead of $status, or no line '$text' in:" >&2
    cat "$work/output" >&2
    failures=1
  fi
}

hub='PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)'
none='update_hub: attach the hub, or name one of several by its location'
scenario ''
expect 0 'updated: 1.02 -> 2.10' update_hub "$work/new.bin"
expect 0 'progress: 100 %' update_hub "$work/new.bin" "$hub"
expect 1 "$none" update_hub "$work/new.bin" 'USB(1)'
expect 1 'update_hub: cannot find the image' update_hub "$work/missing.bin"
expect 1 'update_hub: usage: update_hub IMAGE [LOCATION]' update_hub
scenario ', "running": "rom", "rom": {"pid": "0x0810"}'
expect 0 'updated: loader -> 2.10' update_hub "$work/new.bin"
scenario '}, {"name": "other", "port": "2"'
expect 1 "$none" update_hub "$work/new.bin"
expect 0 'updated: 1.02 -> 2.10' update_hub "$work/new.bin" "$hub"
scenario ', "plugged": false'
expect 1 "$none" update_hub "$work/new.bin"
for size in 0 300 32679; do
  truncate -s $size "$work/odd.bin"
  expect 1 'update_hub: the image is too short' update_hub "$work/odd.bin"
done
truncate -s 16777217 "$work/odd.bin"
expect 1 'update_hub: the image is too long' update_hub "$work/odd.bin"
mkfifo "$work/pipe"
expect 1 'update_hub: the image is not a regular file' update_hub "$work/pipe"
expect 1 'i2c_eeprom: no hub answers' i2c_eeprom
expect 1 'gpio_blink: no hub answers' gpio_blink

# An image for another hub is refused. The hub keeps its flash from here on, and still runs 1.02 below.
"$2" image --out "$work/vendor.bin" --vid 2E7D --version 0210
"$2" image --out "$work/product.bin" --pid 0820 --version 0210
scenario ', "running": "rom"'
expect 1 'update_hub: the image is for a hub of another vendor' update_hub "$work/vendor.bin"
machine='{"time": "virtual", "state_folder": ".", "devices": [{"name": "hub", "port": "1"}]'
echo "$machine}" > "$QZ_VIRTUAL_HUB"
expect 1 'update_hub: the image is for a hub of another vendor' update_hub "$work/vendor.bin"
expect 1 'update_hub: the image is for another product' update_hub "$work/product.bin"

# After a loss of power during the write it tries again, three times in all; the log says why.
fault='{"on": "request", "request": "40/C8", "nth": 100, "action": "power_loss", "return_ms": 0'
echo "$machine, \"faults\": [$fault, \"count\": 2}]}" > "$QZ_VIRTUAL_HUB"
export UPDATE_HUB_LOG="$work/log.txt"
expect 0 'updated: 1.02 -> 2.10' update_hub "$work/new.bin"
[ "$(grep -c 'fail to write flash' "$UPDATE_HUB_LOG")" -eq 2 ] || { cat "$work/output" >&2; failures=1; }
unset UPDATE_HUB_LOG
echo "$machine, \"faults\": [$fault, \"count\": 3}]}" > "$QZ_VIRTUAL_HUB"
expect 1 'update_hub: the update failed; UPDATE_HUB_LOG=FILE logs why, and the hub can be updated again' \
  update_hub "$work/new.bin"
echo "$machine}" > "$QZ_VIRTUAL_HUB"
expect 0 'updated: loader -> 2.10' update_hub "$work/new.bin"
expect 0 'updated: 2.10 -> 2.10' update_hub "$work/new.bin"
# If the hub is back with the image, it is not written again.
checked='{"on": "request", "request": "C0/D8", "action": "power_loss", "return_ms": 0}'
echo "{\"time\": \"virtual\", \"devices\": [{\"name\": \"hub\", \"port\": \"1\"}], \"faults\": [$checked]}" > "$QZ_VIRTUAL_HUB"
expect 0 'updated: 1.02 -> 2.10' update_hub "$work/new.bin"
[ "$(grep -c '^progress: 30 %' "$work/output")" -eq 1 ] || { cat "$work/output" >&2; failures=1; }
# In real time, it waits until the hub is back.
fast='"timing": {"latency_us": 0, "erase_ms": 10, "leave_ms": 1, "return_ms": 260, "ready_ms": 1}'
echo "{\"devices\": [{\"name\": \"hub\", \"port\": \"1\", $fast}], \"faults\": [${fault%0}700}]}" > "$QZ_VIRTUAL_HUB"
expect 0 'updated: 1.02 -> 2.10' update_hub "$work/new.bin"

scenario ', "gpio_high": [2], "i2c": [{"kind": "eeprom", "address": "0x50"}, {"kind": "eeprom", "address": 1, "address_bytes": 1}]'
expect 0 'compare   ok' i2c_eeprom
expect 0 'compare   ok' i2c_eeprom 0x01 1
expect 1 'write     failed' i2c_eeprom 0x52
expect 0 'line 5 driven 1, reads 1' gpio_blink
expect 0 'line 23 driven 0, reads 0' gpio_blink 23
expect 1 'gpio_blink: line 24: status 0x00000001' gpio_blink 24
exit $failures
