#!/bin/sh
# Updates of several hubs at once.
. "$(dirname "$0")/lib.sh"
"$qzhub" image --out "$work/new.bin" --version 0210 --size 32680
root='PCIROOT(0)#PCI(1400)#USBROOT(0)'
all() { run update --all --yes --image "$work/new.bin" "$@"; }
at() { printf '{"name": "h%s", "port": "%s"%s}' "$1" "$1" "${2-}"; }
row() { printf '%-12s%-12s%-12s%-12s%s\n' "$@"; }
gone='unplug it, plug it in again, and run '\''qzhid info'\'' and '\''qzhid recover'\'

# Eight hubs at once, one of which loses its power forever.
eight=$(at 1)
for i in 2 3 4 5 6 7 8; do eight="$eight, $(at $i)"; done
machine "$eight" '{"on": "request", "request": "40/C8", "nth": 9, "device": "h3", "action": "power_loss", "return_ms": null}'
all --jobs 8
said 6 "qzhid: hub 8 ($root#USB(3)): the update failed, and the hub has left the bus; $gone"
{
  row HUB FROM RUNS RESULT LOCATION
  for i in 1 2 3 4 5 6 7 8; do
    case $i in 3) state='? lost' ;; *) state='2.10 updated' ;; esac
    row $((2 + 2 * i)) 1.02 $state "$root#USB($i)"
  done
  echo '7 of 8 hubs updated to 2.10'
} | diff -u - "$work/out" >&2 || complain 'the table differs'

# All hubs are checked before one is written; those that are not refused are updated.
closed='{"on": "call", "service": "OpenHidDevice", "count": 0, "device": "h4", "action": "fail", "code": 13}'
machine "$(at 1 ', "running": "rom"'), $(at 2), $(at 3 ', "image": {"version": "0x0210"}'), $(at 4), $(at 5 ', "image": {"pid": "0x0820"}')" "$closed"
all
said 1 "qzhid: hub 4 ($root#USB(1)): the hub is in its loader; write its firmware with 'qzhid recover --image FILE'"
sed 's/^hub \([0-9]*\).*, \(.*\) %/\1 \2/; s/^hub \([0-9]*\).*->.*/\1 change/; s/^qzhid: hub \([0-9]*\).*/\1 refused/' "$work/err" | sort -s -k2,2r | grep -v '[0-9]$' | tr '\n' ' ' > "$work/order"
grep -qx '4 refused 8 refused 12 refused 10 refused 6 change ' "$work/order" || complain "refused: $(cat "$work/order")"
{
  row HUB FROM RUNS RESULT LOCATION
  row 4 loader loader failed "$root#USB(1)"
  row 6 1.02 2.10 updated "$root#USB(2)"
  row 8 2.10 2.10 refused "$root#USB(3)"
  row 12 1.02 1.02 refused "$root#USB(5)"
  row 10 '?' '?' failed "$root#USB(4)"
  echo '1 of 5 hubs updated to 2.10'
} | diff -u - "$work/out" >&2 || complain 'the table differs'

# The hubs that are named are written one after the other, and each has its part of the log.
machine "$(at 1), $(at 2), $(at 3)" '' ', "state_folder": "."'
run update 6 'USB(1)' 6 --yes --jobs 1 --image "$work/new.bin" --log "$work/log.txt"
said 0 '2 of 2 hubs updated to 2.10'
sed -n 's/^hub \([0-9]*\) .* %$/\1/p' "$work/err" | uniq | tr '\n' ' ' | grep -qx '6 4 ' || complain 'not one after the other'
[ "$(grep -c 'QZ_UpdateDev, Notify' "$work/log.txt")" -eq 2 ] || complain 'not two logs'
golden list --quiet < /dev/null
for hub in 4 6; do expect 0 'runs          firmware 2.10' info $hub; done
expect 0 'runs          firmware 1.02' info 8
expect 2 "qzhid: HUB excludes --all; see 'qzhid --help'" update 4 --all --image "$work/new.bin"

# If all hubs fail in the same way, the exit status says so; the result is a JSON object.
machine "$(at 1 ', "image": {"version": "0x0210"}')"
all --json
said 5 "qzhid: hub 4 ($root#USB(1)): the hub already runs 2.10; nothing needs to be done, or add --reinstall to write it again"
sed '/"image"/,/^  }/d' "$work/out" | diff -u - "$(dirname "$0")/many.golden" >&2 || complain 'the object differs'
machine ''
all
said 3 "qzhid: no hub is attached; see 'qzhid list' for the hubs that are attached"

# If the process that writes a hub is killed, the hub's state is unknown; the other one is updated.
both="$(at 1 ", $slowness"), $(at 2 ", $slowness")"
slow "$(at 1 ', "timing": {"latency_us": 2000}'), $(at 2)" ', "state_folder": "killed"'
start update --all --yes --image "$work/new.bin"
await '^hub 4.*writing, 40'
kill -s KILL "$(cut -d' ' -f1 "/proc/$!/task/$!/children")"
ended 6 "qzhid: hub 4 ($root#USB(1)): the process that wrote the hub died (it was killed by signal 9), and the hub's state is unknown; $gone"
said 6 '1 of 2 hubs updated to 2.10'
expect 0 'runs          loader' info 4
expect 0 'runs          firmware 2.10' info 6

# If a worker sends an invalid message, the state of its hub counts as unknown; the other hub is updated.
# Here, this script writes to the worker's pipe, between the lines of the worker.
while read -r line reason; do
  slow "$both"
  start update --all --yes --jobs 1 --image "$work/new.bin"
  await '^hub 4.*writing, 40'
  printf '%b\n' "$line" > "/proc/$(cut -d' ' -f1 "/proc/$!/task/$!/children")/fd/1"
  ended 6 "qzhid: hub 4 ($root#USB(1)): the process that wrote the hub sent an invalid message (it is $reason), and the hub's state is unknown; $gone"
  said 6 '1 of 2 hubs updated to 2.10'
done <<END
garbage not a JSON object
{"message":"ready"} out of turn
END

# After one interrupt all hubs are written; after two, no further one is started.
for count in 1 2; do
  slow "$both"
  start update --all --yes --jobs 1 --image "$work/new.bin"
  await '^hub 4.*writing, 40'
  kill -s INT $!
  await 'the hubs being written must not be left now'
  if [ $count -eq 1 ]; then
    ended 0 '2 of 2 hubs updated to 2.10'
  else
    kill -s INT $!
    ended 1 "qzhid: hub 6 ($root#USB(2)): stopped before the hub was touched: it runs 1.02; repeat the command"
    said 1 "$(row 4 1.02 2.10 updated "$root#USB(1)")"
  fi
done

# On a terminal there is one question for all hubs, and one line for each hub, which is redrawn in place
# and fits the width.
machine "$(at 1), $(at 2)"
shown() {
  echo y | script -qec "stty cols $1 rows 20; env -u NO_COLOR '$qzhid' --virtual update --all --image '$work/new.bin'" /dev/null |
    tr '\r' '\n' | sed 's/\x1b\[[0-9]*m//g' > "$work/terminal"
}
shown 90
grep -q '^2 hubs: write them? \[y/N\]' "$work/terminal" || complain 'no question'
grep -q '^hub 6       \[#\{30\}\] 100 %  done' "$work/terminal" || complain 'no bar'
up=$(printf '\033[2A')
[ "$(grep -cF "$up" "$work/terminal")" -gt 2 ] || complain 'not drawn over'
shown 40
grep '^\(.\[2A\)\?hub [46]  ' "$work/terminal" | sed 's/.\[[0-9]*[AK]//g' | grep '^.\{40\}' && complain 'too wide'
exit $failures
