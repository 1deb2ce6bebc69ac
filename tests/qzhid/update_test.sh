#!/bin/sh
# Updates and recoveries: messages, refusals, interrupts, and what the hub runs afterwards.
. "$(dirname "$0")/lib.sh"
"$qzhub" image --out "$work/new.bin" --version 0210 --size 32680
"$qzhub" image --out "$work/same.bin"
"$qzhub" image --out "$work/other.bin" --version 0210 --pid 0820
"$qzhub" image --out "$work/vendor.bin" --version 0210 --vid 2E7D
update() { run update --yes --image "$work/new.bin" "$@"; }

machine "$(hub)"
golden update --yes --image "$work/new.bin" <<END
hub 5 ($usb) runs 2.10 now
END
cat > "$work/golden" <<END
hub 5 ($usb): 1.02 -> 2.10
hub 5 ($usb): preparing, 0 %
hub 5 ($usb): preparing, 10 %
hub 5 ($usb): erasing, 20 %
hub 5 ($usb): writing, 30 %
hub 5 ($usb): writing, 40 %
hub 5 ($usb): writing, 50 %
hub 5 ($usb): writing, 60 %
hub 5 ($usb): checking, 70 %
hub 5 ($usb): starting, 90 %
hub 5 ($usb): done, 100 %
END
diff -u "$work/golden" "$work/err" >&2 || complain 'the progress in a pipe differs'
golden update --yes --image "$work/new.bin" --json --stay-in-loader <<END
{
$hub_member
  "image": {
    "file": "$work/new.bin",
    "vid": "2E7C",
    "pid": "0818",
    "chip": "4A17",
    "version": "2.10",
    "size": 32680,
    "sha256": "$(sha256sum "$work/new.bin" | cut -d' ' -f1)"
  },
  "from": "1.02",
  "to": "2.10",
  "runs": "loader"
}
END
update --quiet
[ "$status" -eq 0 ] && [ ! -s "$work/out" ] && [ ! -s "$work/err" ] || complain '--quiet is not quiet'

me="qzhid: hub 5 ($usb):"
foreign="name this hub's image, or add --force to write it anyway"
expect 2 "$me there is no terminal to ask on; add --yes to continue without being asked" update --image "$work/new.bin"
expect 2 "qzhid: --image is required; see 'qzhid --help'" update
expect 5 "$me the image is for 2E7C:0820, the hub is 2E7C:0818; $foreign" update --yes --image "$work/other.bin"
expect 5 "$me the hub already runs 1.02; nothing needs to be done, or add --reinstall to write it again" \
  update --yes --image "$work/same.bin"
expect 0 "hub 5 ($usb) runs 1.02 now" update --yes --image "$work/same.bin" --reinstall
expect 0 "hub 5 ($usb) runs 2.10 now" update --yes --image "$work/other.bin" --force
expect 1 "$me the hub runs its firmware 1.02; nothing needs to be recovered; 'qzhid update' writes another version" \
  recover --yes --image "$work/new.bin"
while read -r size limit; do
  truncate -s $size "$work/odd.bin"
  expect 5 "qzhid: image $work/odd.bin is too $limit; give the complete image file" \
    update --yes --force --image "$work/odd.bin"
done <<END
300 short: 300 bytes of at least 32680
16777217 long: 16777217 bytes of at most 16777216
END
expect 3 "qzhid: no hub matches '6'; see 'qzhid list' for the hubs that are attached" update 6 --image "$work/new.bin"

machine "$(hub ', "running": "rom", "rom": {"pid": "0x0810"}')"
expect 1 "$me the hub is in its loader; write its firmware with 'qzhid recover --image FILE'" update --yes --image "$work/new.bin"
expect 5 "$me the image is for vendor 2E7D, the hub is of vendor 2E7C; $foreign" recover --yes --image "$work/vendor.bin"
expect 0 "hub 5 ($usb) runs 2.10 now" recover --yes --image "$work/new.bin"

# A hub that loses its power while it is written is lost; the next process recovers it.
keeps=', "state_folder": "."'
fault='{"on": "request", "request": "40/C8", "nth": 100, "action": "power_loss", "return_ms": null}'
machine "$(hub)" "$fault" "$keeps"
expect 6 "$me the update failed, and the hub has left the bus; unplug it, plug it in again, and run 'qzhid info' and 'qzhid recover'" \
  update --yes --image "$work/new.bin"
machine "$(hub)" '' "$keeps"
expect 0 'runs          loader' info
expect 0 "hub 5 ($usb) runs 2.10 now" recover --yes --image "$work/new.bin"
expect 0 'runs          firmware 2.10' info
stall='{"on": "request", "request": "40/C8", "nth": 9, "count": 0, "action": "stall"}'
machine "$(hub)" "$stall"
expect 1 '    "what": "the update failed, and the hub is in its loader",' update --yes --json --image "$work/new.bin"

# --verbose: the last lines of the log as the update left it.
update --verbose
sed -n 's/^  log: \(\[.*\]  \)\?//p' "$work/err" > "$work/log"
printf '%s\n' 'CHidTransfers::HidDataOut, Set Report Fail,ErrorCode:32' 'CHidTransfers::HidDataOut, Set Report Fail,ErrorCode:32' 'CUniversalFlow::DevUpdate, ' \
  'fail to write flash' 'QZ_UpdateDev, Update Fail' > "$work/golden"
tail -n 5 "$work/log" | diff -u "$work/golden" - >&2 || complain 'not the last lines of the log'

# A worker rejects input that is not a job.
for job in '' '{"message": "write"}'; do
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
  line="hub 5 ($usb) runs 2.10 now"
  [ $count -eq 1 ] || { kill -s INT $!; line="stopped, and the update was complete: $line"; }
  ended 0 "$line"
done

# The update continues if its progress is no longer read.
machine "$(hub)"
"$qzhid" --virtual update --yes --image "$work/new.bin" 2>&1 > "$work/out" | true
grep -qxF "hub 5 ($usb) runs 2.10 now" "$work/out" || complain 'a broken pipe ended the update'

# On a terminal there are a question, a moving bar and colours, unless --no-color is given.
machine "$(hub)"
typed() { echo "$1" | script -qec "$2 '$qzhid' --virtual update --image '$work/new.bin' $3" /dev/null; }
typed y 'env -u NO_COLOR' '' > "$work/terminal" || complain 'the answer yes is not taken'
grep -q "1.02 -> 2.10, write it? \[y/N\]" "$work/terminal" || complain 'no question'
tr '\r' '\n' < "$work/terminal" | grep -q '##.*100 %  done' || complain 'no bar'
typed y 'env -u NO_COLOR' --no-color > "$work/terminal"
grep -q 'checking, 70 %' "$work/terminal" || complain 'no plain lines'
if typed n '' '' > "$work/terminal"; then complain 'the answer no is not taken'; fi
grep -q 'not done because the answer was no; answer y, or add --yes' "$work/terminal" || complain 'no refusal'
exit $failures
