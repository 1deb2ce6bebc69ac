#!/bin/sh
# Updates of several hubs at once.
. "$(dirname "$0")/lib.sh"
"$qzhub" image --out "$work/new.bin" --version 0210 --size 32680
all() { run update --all --yes --wait 0 --image "$work/new.bin" "$@"; }
at() { printf '{"name": "h%s", "port": "%s"%s}' "$1" "$1" "${2-}"; }
# table WIDTH SUMMARY: the rows on standard input (port, versions, outcome) as the program prints them,
# with the column FROM so wide.
table() {
  { echo PORT NAME FROM RUNS OUTCOME; sed 's/ / - /'; } | while read -r port name from runs outcome; do
    printf "%-6s%-6s%-$1s%-6s%s\n" $port $name $from $runs "$outcome"
  done
  echo "$2"
}
gone='unplug it, plug it in again, and run '\''qzhid info'\'' and '\''qzhid recover'\'

# Each hub has an outcome: two are current, one is in its loader, one is of another vendor, one cannot be
# opened, and one loses its power for half a second.
closed='{"on": "call", "service": "OpenHidDevice", "count": 0, "device": "h5", "action": "fail", "code": 13}'
flicker='{"on": "request", "request": "40/C8", "nth": 9, "device": "h6", "action": "power_loss", "return_ms": 500}'
eight() {
  printf '%s' "$(at 1 ', "image": {"version": "0x0210"}'), $(at 2 ', "image": {"version": "0x0210"}'), $(at 3 ', "running": "rom"'),
    $(at 4 ", $1"), $(at 5), $(at 6 ", $slowness"), $(at 7), $(at 8)"
}
TIME=real machine "$(eight '"image": {"vid": "0x2E7D"}')" "$closed, $flicker" ', "state_folder": "."'
run update --all --yes --image "$work/new.bin" --json
[ "$status" -eq 1 ] || complain "status $status instead of 1"
# outcomes: the outcomes in the JSON object, by port.
outcomes() {
  sed -n 's/.*"port_id": "\(.*\)",/\1/p; s/.*"outcome": "\(.*\)",/\1/p' "$work/out" | paste -sd ' \n' | sort | tr '\n' ' '
}
[ "$(outcomes)" = '1-1 current 1-2 current 1-3 updated 1-4 refused 1-5 refused 1-6 updated 1-7 updated 1-8 updated ' ] ||
  complain "the outcomes are: $(outcomes)"
grep -q '"retries": 1' "$work/out" || complain 'the hub that lost its power was not tried again'
# With permission, and an image for its vendor, all of them run it.
machine "$(eight '"image": {"vid": "0x2E7C"}')" '' ', "state_folder": "."'
run update --hub 1-5 --yes --image "$work/new.bin"
said 0 'hub 1-5 runs 2.10 now'
"$qzhub" image --out "$work/vendor.bin" --version 0210 --vid 2E7D
run update --hub 1-4 --yes --image "$work/vendor.bin"
said 0 'hub 1-4 runs 2.10 now'
run list
[ "$(grep -c ' 2.10 ' "$work/out")" -eq 8 ] || complain "not all run 2.10: $(cat "$work/out")"

# Eight hubs at once, one of which loses its power forever.
eight=$(at 1)
for i in 2 3 4 5 6 7 8; do eight="$eight, $(at $i)"; done
machine "$eight" '{"on": "request", "request": "40/C8", "nth": 9, "device": "h3", "action": "power_loss", "return_ms": null}'
all --jobs 8
said 6 "qzhid: hub 1-3: the update failed, and the hub has left the bus; $gone"
for i in 1 2 3 4 5 6 7 8; do
  case $i in 3) echo "1-3 1.02 ? lost" ;; *) echo "1-$i 1.02 2.10 updated" ;; esac
done | table 6 '7 updated, 1 lost' | diff -u - "$work/out" >&2 || complain 'the table differs'

# All hubs are checked before one is written; those that are not refused are updated.
closed='{"on": "call", "service": "OpenHidDevice", "count": 0, "device": "h4", "action": "fail", "code": 13}'
machine "$(at 1 ', "running": "rom"'), $(at 2), $(at 3 ', "image": {"version": "0x0210"}'), $(at 4), $(at 5 ', "image": {"pid": "0x0820"}')" "$closed"
all
sed 's/^hub \(1-[0-9]*\): .*->.*/\1 change/; s/^qzhid: hub \(1-[0-9]*\).*/\1 refused/' "$work/err" | grep -v '[0-9] %$' | tr '\n' ' ' > "$work/order"
grep -qx '1-5 refused 1-4 refused 1-1 change 1-2 change ' "$work/order" || complain "refused: $(cat "$work/order")"
table 8 '2 updated, 1 current, 2 refused' <<END | diff -u - "$work/out" >&2 || complain 'the table differs'
1-1 loader 2.10 updated
1-2 1.02 2.10 updated
1-3 2.10 2.10 current
1-5 1.02 1.02 refused
1-4 ? ? refused
END
[ "$status" -eq 1 ] || complain "different failures: status $status"

# The hubs that are named are written one after the other, and each has its part of the log.
machine "$(at 1), $(at 2), $(at 3)" '' ', "state_folder": "several"'
run update --hub 1-2 --hub 'USB(1)' --hub 1-2 --yes --jobs 1 --image "$work/new.bin" --log "$work/log.txt"
said 0 '2 updated'
sed -n 's/^hub 1-\([0-9]*\): .* %$/\1/p' "$work/err" | uniq | tr '\n' ' ' | grep -qx '2 1 ' || complain 'not one after the other'
[ "$(grep -c 'QZ_UpdateDev, Notify' "$work/log.txt")" -eq 2 ] || complain 'not two logs'
for hub in 1 2; do expect 0 'runs          firmware 2.10' info --hub 1-$hub; done
expect 0 'runs          firmware 1.02' info --hub 1-3
expect 0 '2 current, 1 not started' update --hub vid=2E7C --dry-run --image "$work/new.bin"
expect 2 "qzhid: --hub excludes --all; see 'qzhid --help'" update --hub 1-1 --all --image "$work/new.bin"

# A hub without a location cannot be told from others, and is not touched beside them.
machine "$(at 1), $(at 2 ', "usb": {"location_paths": []}')"
all
said 5 'qzhid: hub instance:6: the hub has no location, so it cannot be told from others; unplug the other hubs and repeat the command'
said 5 '1 updated, 1 refused'

# If all hubs run the image, nothing is written and the exit status is 0.
machine "$(at 1 ', "image": {"version": "0x0210"}')"
all --json
[ "$status" -eq 0 ] || complain "status $status"
sed '/"image"/,/^  }/d' "$work/out" | diff -u - "$(dirname "$0")/many.golden" >&2 || complain 'the object differs'
machine ''
all
said 3 "qzhid: no hub is attached; plug one in, or see 'qzhid doctor'"

# If the process that writes a hub is killed, the hub's state is unknown; the other one is updated.
both="$(at 1 ", $slowness"), $(at 2 ", $slowness")"
slow "$(at 1 ', "timing": {"latency_us": 2000}'), $(at 2)" ', "state_folder": "killed"'
start update --all --yes --image "$work/new.bin"
await '^hub 1-1.*writing, 40'
kill -s KILL "$(cut -d' ' -f1 "/proc/$!/task/$!/children")"
ended 6 "qzhid: hub 1-1: the process that wrote the hub died (it was killed by signal 9), and the hub's state is unknown; $gone"
said 6 '1 updated, 1 lost'
expect 0 'runs          loader' info --hub 1-1
expect 0 'runs          firmware 2.10' info --hub 1-2

# If a worker sends an invalid message, the state of its hub counts as unknown; the other hub is updated.
# Here, this script writes to the worker's pipe, between the lines of the worker. A worker exists only
# while its hub is written.
slow "$both"
start update --all --yes --jobs 1 --image "$work/new.bin"
await '^hub 1-1.*writing, 40'
workers=$(cat "/proc/$!/task/$!/children")
[ "$(echo "$workers" | wc -w)" -eq 1 ] || complain "the workers are $workers"
echo garbage > "/proc/${workers% }/fd/1"
ended 6 "qzhid: hub 1-1: the process that wrote the hub sent an invalid message (it is not a JSON object), and the hub's state is unknown; $gone"
said 6 '1 updated, 1 lost'

# After one interrupt all hubs are written; after two, no further one is started.
for count in 1 2; do
  slow "$both"
  start update --all --yes --jobs 1 --image "$work/new.bin"
  await '^hub 1-1.*writing, 40'
  kill -s INT $!
  await 'the hubs being written must not be left now'
  if [ $count -eq 1 ]; then
    ended 0 '2 updated'
  else
    kill -s INT $!
    ended 1 "qzhid: hub 1-2: stopped before the hub was touched: it runs 1.02; repeat the command"
    said 1 '1 updated, 1 not started'
  fi
done

# On a terminal there is one question for all hubs, and one line for each hub, which is redrawn in place
# and fits the width; the hub whose turn has not come is waiting.
machine "$(at 1), $(at 2)"
shown() {
  echo y | script -qec "stty cols $1 rows 20; env -u NO_COLOR '$qzhid' --virtual update --all --jobs 1 --image '$work/new.bin'" /dev/null |
    tr '\r' '\n' | sed 's/\x1b\[[0-9]*m//g' > "$work/terminal"
}
shown 90
grep -q '^write them? \[y/N\]' "$work/terminal" || complain 'no question'
grep -q '^1-2  \[#\{30\}\] 100 %  done' "$work/terminal" || complain 'no bar'
grep -q '^1-2  waiting' "$work/terminal" || complain 'no hub is waiting'
up=$(printf '\033[2A')
[ "$(grep -cF "$up" "$work/terminal")" -gt 2 ] || complain 'not drawn over'
shown 40
grep '^\(.\[2A\)\?1-[12]  ' "$work/terminal" | sed 's/.\[[0-9]*[AK]//g' | grep '^.\{40\}' && complain 'too wide'
exit $failures
