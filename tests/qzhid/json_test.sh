#!/bin/sh
# With --json every command prints what docs/qzhid.schema.json describes, also when it fails, and so do
# the lines of --progress json. Help, manual page, schema and docs/json.md use the same words.
. "$(dirname "$0")/lib.sh"
root=$(cd "$(dirname "$0")/../.." && pwd)
"$qzhub" image --out "$work/new.bin" --version 0210 --size 32680
"$qzhub" image --out "$work/other.bin" --version 0210 --vid 2E7D
mkdir "$work/results" "$work/events"
number=0
write="--yes --image $work/new.bin --progress json"

# keep NAME STATUS: the last run ended with that status; its result is to be validated as NAME.
keep() {
  number=$((number + 1))
  [ "$status" -eq "$2" ] || complain "run $number ($1): status $status instead of $2: $(cat "$work/err")"
  cp "$work/out" "$work/results/$number $1 $2"
  cp "$work/err" "$work/events/$number"
}
# takes NAME STATUS ARGUMENT...: runs the program, and keeps its result.
takes() {
  kept=$1 wanted=$2
  shift 2
  run --json "$@"
  keep "$kept" "$wanted"
}

# Every command with a hub, without one, and called wrongly.
while IFS='|' read -r name without arguments; do
  machine "$(hub ', "gpio_high": [3], "i2c": [{"kind": "eeprom", "address": "0xA0"}]')"
  takes "$name" 0 $arguments
  machine ''
  [ "$without" = 0 ] || name=failure
  takes "$name" "$without" $arguments
  takes failure 2 $arguments --unknown
done <<END
list|0|list
list|0|list --vid 2e7c --pid 818
info|3|info
image|0|image $work/new.bin
update|3|update $write
gpio-get|3|gpio get 3
gpio-drive|3|gpio drive 5 1
gpio-set|3|gpio set 5 1
i2c-read|3|i2c read --target 0xA0 --length 300
i2c-read|3|i2c read --target 0xA0 --length 3 --out $work/read.bin
i2c-write|3|i2c write --target 0xA0 01a0 ff
i2c-config|3|i2c config --target 0xA0 --speed 2
flash-write|3|flash write --address 16 01a0ff
flash-stage|3|flash stage --address 16 01a0ff
flash-erase|3|flash erase --yes
flash-status|3|flash status
doctor|0|doctor
END
takes failure 1 list --log /nowhere/log
takes failure 2 list --log "$work/log" --log-level 9
machine "$(hub)"
takes station 0 station --image "$work/new.bin" --record "$work/units.jsonl" --once 1 --quiet
takes failure 2 station --image "$work/new.bin"
run --json doctor --bundle "$work/bundle.zip" --yes --log "$work/doctor.log"
: > "$work/err"  # says what is in the bundle
keep doctor 0
takes explain 0 explain "$work/doctor.log"
takes failure 1 explain "$work/new.bin"
takes failure 5 image "$work/missing"
machine "$(hub)"
takes failure 1 i2c read --target 0xA2 --length 1
takes failure 2 update --image "$work/new.bin"

# Hubs in every state; update and recover with every outcome.
fault() { printf '{"on": "%s", "device": "%s", "count": 0, "action": "%s"%s}' "$1" "$2" "$3" "${4-}"; }
closed=$(fault call hub fail ', "service": "OpenHidDevice", "code": 13')
silent=$(fault exchange silent stall)
machine "$(hub), {\"name\": \"rom\", \"port\": \"2\", \"running\": \"rom\"}, {\"name\": \"silent\", \"port\": \"4\"}" "$closed, $silent"
takes list 0 list
takes doctor 1 doctor
takes info 0 info --hub 1-2
takes failure 4 info --hub 1-3.1
run info --hub 1-4 --log "$work/silent.log"
takes explain 1 explain "$work/silent.log" "$work/doctor.log"
takes failure 6 info --hub 1-4
takes failure 2 info
takes recover 1 recover $write --hub 1-2 --hub 1-4 --hub 1-3.1
while IFS='|' read -r name status faults members more; do
  machine "$(hub "$members")" "$faults"
  takes "$name" "$status" "$name" $write --wait 0 $more
done <<END
update|0||, "image": {"version": "0x0210"}|
update|0|||--dry-run
update|4|$closed||
update|5||, "image": {"version": "0x0300"}|
update|6|{"on": "request", "request": "40/C8", "action": "power_loss", "return_ms": null}||
update|7||, "running": "rom"|
recover|0||, "running": "rom"|
recover|5|||
recover|7|$(fault request hub stall ', "request": "40/C8"')|, "running": "rom"|
update|1|$(fault request hub stall ', "request": "40/00"')||--retries 1
update|0|{"on": "request", "request": "40/C8", "action": "power_loss", "return_ms": 0}||
END
machine "$(hub)" '{"on": "request", "request": "40/C8", "nth": 100, "device": "hub", "action": "power_loss", "return_ms": 0}'
run update $write --log "$work/update.log" --retries 0
takes explain 1 explain "$work/update.log"
machine "$(hub)"
takes update 5 update --yes --image "$work/other.bin"
takes failure 5 update $write --sha256 "$(printf '%064d' 0)"
takes failure 5 update $write --flash-size 32679
takes update 0 update $write --flash-size 32680
slow "{\"name\": \"a\", \"port\": \"1\", $slowness}, {\"name\": \"b\", \"port\": \"2\"}"
start update --all --json --jobs 1 $write
await '"writing"'
kill -s INT $!
await '"message"'
kill -s INT $!
status=0
wait $! || status=$?
keep update 1

/usr/bin/python3 "$(dirname "$0")/json_test.py" "$root" "$qzhid" "$qzhub" "$work" || failures=1
exit $failures
