#!/bin/sh
# Updates and recoveries of one hub: messages, guards, retries, interrupts, and what it runs afterwards.
. "$(dirname "$0")/lib.sh"
"$qzhub" image --out "$work/new.bin" --version 0210 --size 32680
"$qzhub" image --out "$work/same.bin"
"$qzhub" image --out "$work/old.bin" --version 0100
"$qzhub" image --out "$work/other.bin" --version 0210 --pid 0820
"$qzhub" image --out "$work/vendor.bin" --version 0210 --vid 2E7D
update() { run update --yes --wait 0 --image "$work/new.bin" "$@"; }
digest() { sha256sum "$1" | cut -d' ' -f1; }
me='qzhid: hub 1-3.1:'
done='hub 1-3.1 runs 2.10 now'

machine "$(hub)"
golden update -y -i "$work/new.bin" <<END
$done
END
steps='preparing, 0 %
preparing, 10 %
erasing, 20 %
writing, 30 %
writing, 40 %
writing, 50 %
writing, 60 %
checking, 70 %
starting, 90 %
done, 100 %'
{
  echo '1.02 -> 2.10'
  echo "$steps"
} | sed 's/^/hub 1-3.1: /' | diff -u - "$work/err" >&2 || complain 'the progress in a pipe differs'
golden update --yes --image "$work/new.bin" --json --stay-in-loader --progress json <<END
$head
  "image": {
    "file": "$work/new.bin",
    "vid": "2E7C",
    "pid": "0818",
    "chip": "4A17",
    "version": "2.10",
    "size": 32680,
    "sha256": "$(digest "$work/new.bin")"
  },
  "dry_run": false,
  "hubs": [
    {
$(echo "$hub_member" | sed 's/^/    /')
      "outcome": "updated",
      "from": "1.02",
      "runs": "loader",
      "retries": 0,
      "error": null
    }
  ]
}
END
{
  echo "$steps" | sed 's/\(.*\), \(.*\) %/{"schema":1,"event":"progress","port_id":"1-3.1","phase":"\1","percent":\2}/'
  echo '{"schema":1,"event":"outcome","port_id":"1-3.1","outcome":"updated","runs":"loader","error":null}'
} | diff -u - "$work/err" >&2 || complain 'the events differ'
update -q
[ "$status" -eq 0 ] && [ ! -s "$work/out" ] && [ ! -s "$work/err" ] || complain '--quiet is not quiet'

# What the user does not allow is not written.
expect 2 'qzhid: there is no terminal to ask on; add --yes to continue without being asked' update --image "$work/new.bin"
expect 2 "qzhid: --image is required; see 'qzhid --help'" update
expect 5 "$me the image is for product 0820, the hub is product 0818; use an image for this hub, or add --force to write it anyway" \
  update --yes --image "$work/other.bin"
for force in '' --force; do
  expect 5 "$me the image is for vendor 2E7D, the hub is of vendor 2E7C; use an image for this hub" \
    update --yes --image "$work/vendor.bin" $force
done
expect 5 "$me the hub runs 1.02, which is newer than the image's 1.00; use a newer image, or add --allow-older to write it anyway" \
  update --yes --quiet --image "$work/old.bin"
expect 0 'hub 1-3.1 runs 1.00 now' update --yes --image "$work/old.bin" --allow-older
expect 0 'hub 1-3.1 already runs 1.02' update --yes --image "$work/same.bin"
expect 0 'hub 1-3.1 runs 1.02 now' update --yes --image "$work/same.bin" --force
expect 0 "$done" update --yes --image "$work/other.bin" --force
expect 5 "$me the hub runs its firmware 1.02; nothing needs to be recovered; 'qzhid update' writes another version" \
  recover --yes --image "$work/new.bin"
expect 0 "$done" update -y -i "$work/new.bin" --sha256 "$(digest "$work/new.bin" | tr a-f A-F)"
expect 5 "qzhid: image $work/new.bin has the SHA-256 $(digest "$work/new.bin"); use the image that has $(digest "$work/old.bin")" \
  update -y -i "$work/new.bin" --sha256 "$(digest "$work/old.bin")"
expect 5 "qzhid: image $work/new.bin is longer than the flash: 32680 bytes of at most 32679; use the image for this hub" \
  update -y -i "$work/new.bin" --flash-size 32679
digits=$(digest "$work/new.bin")
for hex in '' 12ab "0x$digits" "0x${digits#??}" "$digits " "${digits#?}" "${digits}0" "g${digits#?}"; do
  expect 2 "qzhid: --sha256: '$hex' is not 64 hexadecimal digits; see 'qzhid --help'" update -y -i "$work/new.bin" --sha256 "$hex"
done
expect 2 "qzhid: --flash-size: Value 0 not in range 1 to 4294967295; see 'qzhid --help'" update -y -i "$work/new.bin" --flash-size 0
expect 2 "qzhid: --progress: 2 not in {auto,json,lines}; see 'qzhid --help'" update -y -i "$work/new.bin" --progress 2
while read -r size reason; do
  cp "$work/new.bin" "$work/odd.bin" && truncate -s $size "$work/odd.bin"
  expect 5 "qzhid: image $work/odd.bin $reason; give the complete image file" update --yes --force --image "$work/odd.bin"
done <<END
300 is too short: 300 bytes of at least 32680
16777217 is too long: 16777217 bytes of at most 16777216
END
expect 3 "qzhid: no hub matches '6'; attached are: 1-3.1" update --hub 6 --image "$work/new.bin"

# A dry run checks everything and writes nothing.
machine "$(hub)" '' ', "state_folder": "dry"'
expect 0 '      "outcome": "not started",' update -n -i "$work/new.bin" --json
expect 0 'hub 1-3.1 would be written' update -n -i "$work/new.bin"
expect 5 "$me the image is for vendor 2E7D, the hub is of vendor 2E7C; use an image for this hub" update -n -i "$work/vendor.bin"
update -n
grep -qx 'hub 1-3.1: 1.02 -> 2.10' "$work/err" || complain 'the dry run does not say what it would do'
expect 0 'runs          firmware 1.02' info

# The loader.
machine "$(hub ', "running": "rom", "rom": {"pid": "0x0810"}')"
expect 7 "$me the hub is in its loader; write its firmware with 'qzhid recover --hub 1-3.1 --image FILE'" update --yes --image "$work/new.bin"
expect 5 "$me the image is for vendor 2E7D, the hub is of vendor 2E7C; use an image for this hub" recover --yes --image "$work/vendor.bin"
expect 0 "$done" recover --yes --image "$work/new.bin"

# A hub that loses its power while it is written is lost; the next process recovers it.
keeps=', "state_folder": "."'
machine "$(hub)" '{"on": "request", "request": "40/C8", "nth": 100, "action": "power_loss", "return_ms": null}' "$keeps"
update
said 6 "$me the update failed, and the hub has left the bus; unplug it, plug it in again, and run 'qzhid info' and 'qzhid recover'"
machine "$(hub)" '' "$keeps"
expect 0 'runs          loader' info
expect 0 "$done" recover --yes --image "$work/new.bin"
expect 0 'runs          firmware 2.10' info
# One that has its power again after half a second is updated in the next try, from its loader.
TIME=real machine "$(hub ", $slowness")" '{"on": "request", "request": "40/C8", "nth": 100, "action": "power_loss", "return_ms": 500}'
run update --yes --image "$work/new.bin"
said 0 "$done"
said 0 'hub 1-3.1: the update failed, and the hub is in its loader; trying again (1 of 2)'
# So is one that loses it while it is asked what it runs. What takes longer is said.
machine "$(hub)" '{"on": "exchange", "nth": 3, "action": "power_loss", "return_ms": 0}'
update
said 0 "$done"
TIME=real machine "$(hub ", $slowness")" '{"on": "exchange", "nth": 3, "action": "power_loss", "return_ms": 1500}'
run update --yes --image "$work/new.bin"
said 0 "$done"
said 0 'hub 1-3.1: it does not answer; waiting until it can be used again'
TIME=real machine "$(hub ", $slowness")" '{"on": "request", "request": "40/C8", "action": "power_loss", "return_ms": 1800}'
run update --yes --image "$work/new.bin"
said 0 "$done"
said 0 'hub 1-3.1: the update failed; waiting until it can be used again'
# A write that the hub takes but does not carry out: the image does not start.
machine "$(hub)" '{"on": "request", "request": "40/C8", "nth": 100, "count": 1, "action": "lose_write"}'
update --retries 0
said 7 "$me the image is written, but not started, and the hub is in its loader; write its firmware with 'qzhid recover --hub 1-3.1 --image FILE'"
update
said 0 "$done"
# A hub that runs the image after a try that failed is done; if it ran that version before, only when the
# image was written.
machine "$(hub ', "image": {"version": "0x0210"}')" '{"on": "request", "request": "C0/09", "nth": 8, "action": "stall"}'
update --retries 0 --force
said 0 "$done"
lost='{"on": "request", "request": "C0/D8", "action": "power_loss", "return_ms": 0}'
machine "$(hub)" "$lost"
update --retries 0
said 0 "$done"
machine "$(hub ', "image": {"version": "0x0210"}')" "$lost"
update --retries 0 --force
said 1 "$me the update failed, and the hub runs 2.10; repeat the command; with --log FILE the log says why it failed"
# One that cannot be opened when it is back is not called away, and may get its permission a moment later.
denied='{"on": "call", "service": "OpenHidDevice", "nth": 12, "device": "hub", "action": "fail", "code": 13, "count"'
machine "$(hub)" "$denied: 165}"
run update --yes --image "$work/new.bin"
said 0 "$done"
machine "$(hub)" "$denied: 0}"
update
said 6 "$me the update failed, and the hub cannot be opened; get permission for it (on Linux: the udev rule) or end the program that has it open"
# Tries end.
machine "$(hub)" '{"on": "request", "request": "40/C8", "nth": 9, "count": 0, "action": "stall"}'
update --json --retries 3
said 7 '        "what": "the update failed, and the hub is in its loader",'
said 7 '      "retries": 3,'

# --verbose: the last lines of the log as the update left it.
update --verbose --retries 0
sed -n 's/^  log: \(\[.*\]  \)\?//p' "$work/err" > "$work/log"
printf '%s\n' 'CHidTransfers::HidDataOut, Set Report Fail,ErrorCode:32' 'CHidTransfers::HidDataOut, Set Report Fail,ErrorCode:32' 'CUniversalFlow::DevUpdate, ' \
  'fail to write flash' 'QZ_UpdateDev, Update Fail' > "$work/golden"
tail -n 5 "$work/log" | diff -u "$work/golden" - >&2 || complain 'not the last lines of the log'

# A worker rejects input that is not a job.
for job in '' '{"message": "retry"}'; do
  status=0
  echo "$job" | "$qzhid" worker > "$work/out" 2> "$work/err" || status=$?
  [ $status -eq 2 ] || complain "worker: status $status"
  grep -q '^qzhid: standard input is not a job for a worker: it is not a' "$work/err" || complain 'no reason'
done

# An interrupt while the flash is written. Each signal is sent after the answer to the one before.
for count in 1 2; do
  slow "$(hub ", $slowness")"
  start update --yes --image "$work/new.bin"
  await 'writing, 40'
  kill -s INT $!
  await 'the hub must not be left now'
  line=$done
  [ $count -eq 1 ] || { kill -s INT $!; line="stopped, and the update was complete: $line"; }
  ended 0 "$line"
done

# The update continues if its progress is no longer read.
machine "$(hub)"
"$qzhid" --virtual update --yes --image "$work/new.bin" 2>&1 > "$work/out" | true
grep -qxF "$done" "$work/out" || complain 'a broken pipe ended the update'

# A log that reaches the limit on the size of files does not end it either.
machine "$(hub)" '{"on": "request", "request": "40/C8", "nth": 200, "count": 0, "action": "stall"}'
(
  ulimit -f 100
  update --retries 100 --log "$work/long.txt"
  said 7 "$me the update failed, and the hub is in its loader; write its firmware with 'qzhid recover --hub 1-3.1 --image FILE'"
  exit $failures
) || failures=1
[ "$(wc -c < "$work/long.txt")" -eq 51200 ] || complain 'the log did not reach the limit'

# The file that was checked is the one that is written, whatever the user's file holds meanwhile.
cp "$work/new.bin" "$work/changing.bin"
machine "$(hub)" '' ', "state_folder": "copy"'
mkfifo "$work/answer"
script -qec "'$qzhid' --virtual update --image '$work/changing.bin'" /dev/null < "$work/answer" > "$work/terminal" &
exec 3> "$work/answer"
until grep -q 'write it?' "$work/terminal"; do sleep 0.01; done
cp "$work/old.bin" "$work/changing.bin"
echo y >&3
exec 3>&-
wait $! || complain 'the copy was not written'
expect 0 'runs          firmware 2.10' info

# Without a private place for the copy nothing is written.
machine "$(hub)"
status=0
TMPDIR=/nowhere "$qzhid" --virtual update -y -i "$work/new.bin" --log "$work/log.txt" > "$work/out" 2> "$work/err" || status=$?
said 1 'qzhid: a private copy of the image cannot be made; free some space in the temporary folder, or choose another one with TMPDIR'

# On a terminal there are a question, a moving bar and colours, unless --no-color is given.
machine "$(hub)"
typed() { echo "$1" | script -qec "$2 '$qzhid' --virtual update --image '$work/new.bin' $3" /dev/null; }
typed y 'env -u NO_COLOR' '' > "$work/terminal" || complain 'the answer yes is not taken'
grep -q 'hub 1-3.1: 1.02 -> 2.10' "$work/terminal" && grep -q 'write it? \[y/N\]' "$work/terminal" || complain 'no question'
tr '\r' '\n' < "$work/terminal" | grep -q '##.*100 %  done' || complain 'no bar'
typed y '' '' | tr '\r' '\n' | grep -q '\[####*\] 100 %  done' || complain 'no bar without colours'
typed y 'env -u NO_COLOR' --no-color > "$work/terminal"
grep -q 'checking, 70 %' "$work/terminal" || complain 'no plain lines'
if typed n '' '' > "$work/terminal"; then complain 'the answer no is not taken'; fi
grep -q 'Cancelled\.' "$work/terminal" || complain 'it does not say that it was cancelled'
exit $failures
