#!/bin/sh
# GPIO lines, I2C targets and the flash behind a hub.
. "$(dirname "$0")/lib.sh"
# beyond ARGUMENT VALUE COMMAND...: the value of that argument is out of range. How the range is written
# differs between versions of the argument parser.
beyond() {
  line="qzhid: $1: Value $2 not in range"
  shift 2
  run "$@"
  [ "$status" -eq 2 ] && grep -qF "$line" "$work/err" ||
    complain "status $status instead of 2, or no '$line' in: $(cat "$work/err")"
}
me="qzhid: hub 1-3.1:"
next="check the address and that the hub runs its firmware ('qzhid info')"
machine "$(hub ', "gpio_high": [3], "bridge_flash": {"size": 4096, "busy_polls": 2},
  "i2c": [{"kind": "eeprom", "address": "0xA0", "size": 1024, "page_size": 8}]')"
expect 0 'line 3 is 1' gpio get 3
expect 0 'line 4 is 0' gpio get 4 --hub 1-3.1
expect 0 'line 23 is 1' gpio drive 23 1
expect 0 'line 7 is 0' gpio set 7 0
expect 0 '  "level": 1' gpio get 3 --json
beyond LINE 24 gpio get 24
expect 3 "qzhid: no hub matches '6'; attached are: 1-3.1" gpio get 3 --hub 6

expect 0 'target 160, 1 memory address bytes, speed 2: accepted' i2c config --target 0xA0 --memory-bytes 1 --speed 2
golden i2c config --target 0xA0 --json <<END
$head
$hub_member
  "target": 160,
  "memory_bytes": 2,
  "speed": 0
}
END
beyond --speed 3 i2c config --target 0xA0 --speed 3
expect 0 '12 bytes written' i2c write --target 0xA0 --memory 5 00010203 0405 060708090a0b
expect 0 '00000010  ff ff ff' i2c read --target 0xA0 --memory 0x10 --length 3
expect 0 '  "data": "ffff"' i2c read --target 0xA0 --length 2 --json
expect 0 "300 bytes read to $work/read.bin" i2c read --target 0xA0 --length 300 --out "$work/read.bin"
[ "$(tr -d '\377' < "$work/read.bin" | wc -c)" -eq 0 ] && [ "$(wc -c < "$work/read.bin")" -eq 300 ] ||
  complain 'the bytes that were read differ'
expect 1 "qzhid: /nowhere/x cannot be created: No such file or directory; name a file that you have permission to write" \
  i2c read --target 0xA0 --length 3 --out /nowhere/x
expect 1 "$me the I2C read failed with status 32 (the hub or the target refused it); $next" i2c read --target 0xA2 --length 1
expect 1 "$me the I2C write after 0 written bytes failed with status 32 (the hub or the target refused it); $next" i2c write --target 0xA2 00
expect 2 "qzhid: '0g' is not bytes in hexadecimal; write two digits for each byte, as in 01a0ff" i2c write --target 0xA0 0g
expect 2 'qzhid: there are no bytes to write; give them in hexadecimal or with --file FILE' flash write --address 0
expect 1 "qzhid: $work/missing cannot be opened: No such file or directory; name a file that you have permission to read" \
  flash write --address 0 --file "$work/missing"

# --out: a file is replaced as a whole, also through a link; a pipe, like a device, is written to.
"$qzhid" --virtual i2c read --target 0xA0 --length 2 --out - > "$work/out"
[ "$(od -An -tx1 "$work/out")" = ' ff ff' ] || complain 'standard output differs'
: > "$work/real.bin"
ln -s real.bin "$work/link.bin"
mkfifo "$work/pipe"
cat "$work/pipe" > "$work/piped" &
for name in link.bin pipe; do
  expect 0 "3 bytes read to $work/$name" i2c read --target 0xA0 --length 3 --out "$work/$name"
done
wait
[ -p "$work/pipe" ] && [ "$(wc -c < "$work/piped")" -eq 3 ] || complain 'the pipe is replaced'
[ -L "$work/link.bin" ] && [ "$(wc -c < "$work/real.bin")" -eq 3 ] || complain 'the link is replaced'
(
  ulimit -f 10
  expect 1 "qzhid: $work/read.bin cannot be written: File too large; name a file that you have permission to write" \
    i2c read --target 0xA0 --length 30000 --out "$work/read.bin"
  exit $failures
) || failures=1
[ "$(wc -c < "$work/read.bin")" -eq 300 ] || complain 'the limit on the size of files has cost a file'
ls -d "$work"/*.tmp* 2> /dev/null && complain 'a temporary file is left'
truncate -s 4G "$work/huge.bin"
expect 1 "qzhid: $work/huge.bin has more than 268435456 bytes; name a file that you have permission to read" \
  i2c write --target 0xA0 --file "$work/huge.bin"
write_input() {
  status=0
  "$qzhid" --virtual i2c write --target 0xA0 --file - > "$work/out" 2> "$work/err" || status=$?
}
write_input < /dev/zero
said 1 'qzhid: standard input has more than 268435456 bytes; name a file that you have permission to read'
exec 3< /proc/self/mem # of this shell, in which nothing is at address 0
write_input <&3
said 1 'qzhid: standard input cannot be read: Input/output error; name a file that you have permission to read'
exec 3<&-

"$qzhub" image --out "$work/300.bin" && truncate -s 300 "$work/300.bin"
expect 0 '300 bytes written' flash write --address 0x100 --file "$work/300.bin"
"$qzhid" --virtual flash stage --address 0 --file - < "$work/300.bin" | grep -qx '300 bytes staged' ||
  complain 'nothing staged from a pipe'
expect 1 "$me the transfer after 128 bytes failed with status 32 (the hub or the target refused it); $next" \
  flash write --address 3968 --file "$work/300.bin"
# A write is reported only after the flash is ready. Three parts that each keep the flash busy for two
# reads of the status take ten reads: one, and three after each part.
for nth in 10 11; do
  machine "$(hub ', "bridge_flash": {"busy_polls": 2}')" \
    "{\"on\": \"request\", \"request\": \"C0/F3\", \"nth\": $nth, \"action\": \"stall\"}"
  run flash write --address 0 --file "$work/300.bin"
  echo "$status $(cat "$work/out" "$work/err")"
done > "$work/ends"
printf '%s\n' "1 $me reading the flash's status failed with status 32 (the hub or the target refused it); $next" '0 300 bytes written' |
  diff -u - "$work/ends" >&2 || complain 'a write is reported before the flash is ready'
# What takes long after the hub was opened is said, too.
slow "$(hub ', "timing": {"latency_us": 60000}, "i2c": [{"kind": "eeprom", "address": "0xA0"}]')"
sed -i 's/}$/, "faults": [{"on": "request", "request": "40\/C6", "nth": 2, "count": 0, "action": "stall"}]}/' "$QZ_VIRTUAL_HUB"
expect 1 'qzhid: waiting for hub 1-3.1 to answer' i2c write --target 0xA0 000102030405060708090a0b
slow "$(hub ', "bridge_flash": {"busy_polls": 700}')"
expect 0 'qzhid: waiting for the flash behind hub 1-3.1' flash erase --yes
machine "$(hub)"
expect 2 "qzhid: hub 1-3.1: there is no terminal to ask on; add --yes to continue without being asked" flash erase
expect 0 'the flash is erased' flash erase --yes
expect 0 "the flash's status is 0" flash status
# A write is sent in parts that end at the target's pages (here 3, 8 and 1 bytes), and waits while
# the target is busy with the part before.
for count in 5 0; do
  machine "$(hub ', "i2c": [{"kind": "eeprom", "address": "0xA0"}]')" \
    "{\"on\": \"request\", \"request\": \"40/C6\", \"nth\": 3, \"count\": $count, \"action\": \"stall\"}"
  run i2c write --target 0xA0 --memory 5 000102030405060708090a0b
  echo "$status $(cat "$work/out" "$work/err")"
done > "$work/ends"
printf '%s\n' '0 12 bytes written' "1 $me the I2C write after 11 written bytes failed with status 32 (the hub or the target refused it); $next" |
  diff -u - "$work/ends" >&2 || complain 'the parts differ'
machine "$(hub)" '{"on": "request", "request": "C0/04", "action": "unplug", "return_ms": null}'
expect 6 "$me reading the line failed, and the hub is gone; plug it in again and repeat the command" gpio get 3
for command in 'gpio get' 'i2c read' 'i2c write' 'i2c config' 'flash stage' 'flash erase'; do
  expect 0 'Examples:' $command --help
done
exit $failures
