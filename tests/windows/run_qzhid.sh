#!/bin/sh
# run_qzhid.sh FOLDER: qzhid works on the virtual library in FOLDER/virtual.
set -u
here=$(cd "$(dirname "$0")" && pwd)
programs=$(cd "$1" && pwd)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
for program in qzhid qzhub; do
  cat > "$folder/$program" <<END
#!/bin/sh
# Makes the output of the program look as on other systems.
/usr/lib/wine/wine64 '$programs/$program.exe' "\$@" > '$folder/out' 2> '$folder/err'
status=\$?
tr -d '\\r' < '$folder/out'
tr -d '\\r' < '$folder/err' >&2
exit \$status
END
  chmod +x "$folder/$program"
done
set -- "$folder/qzhid" "$folder/qzhub"
. "$here/../qzhid/lib.sh"
trap 'rm -rf "$folder" "$work"' EXIT
# With the system's own DLLs, not with the replacements for the library's tests.
export WINEDLLOVERRIDES='winedbg.exe=d'

at() { printf '{"name": "h%s", "port": "%s"%s}' "$1" "$1" "${2-}"; }
"$qzhub" image --out "$work/new.bin" --version 0210 --size 32680
machine "$(at 1), $(at 2), $(at 3)" '{"on": "request", "request": "40/C8", "nth": 9, "device": "h2", "action": "power_loss", "return_ms": null}'
golden list <<END
PORT  NAME  VID:PID    VERSION  STATE
1-1   -     2E7C:0818  1.02     firmware
1-2   -     2E7C:0818  1.02     firmware
1-3   -     2E7C:0818  1.02     firmware
END
expect 0 'runs          firmware 1.02' info --hub 1-1
expect 0 'version     2.10' image "$work/new.bin"
expect 0 'hub 1-1 runs 2.10 now' update --hub 1-1 --yes --image "$work/new.bin"
# To convert text, Wine for ARM64 uses register x18, which holds the thread's data: after this case the
# program would not find them.
[ "$(uname -m)" = aarch64 ] ||
  expect 1 'qzhid: the log Z:\nowhere\log cannot be written; name a file in a folder that you have permission to write' list --log /nowhere/log
expect 2 'qzhid: several hubs are attached; choose one of: 1-1, 1-2, 1-3' info
expect 3 "qzhid: no hub matches '5'; attached are: 1-1, 1-2, 1-3" info --hub 5
expect 5 "qzhid: image $work/none does not exist; give the complete image file" image "$work/none"
run update --all --yes --wait 0 --image "$work/new.bin"
said 6 "qzhid: hub 1-2: the update failed, and the hub has left the bus; unplug it, plug it in again, and run 'qzhid info' and 'qzhid recover'"
diff -u - "$work/out" >&2 <<END || complain 'another table'
PORT  NAME  FROM  RUNS  OUTCOME
1-1   -     1.02  2.10  updated
1-2   -     1.02  ?     lost
1-3   -     1.02  2.10  updated
2 updated, 1 lost
END
# A station records each unit, and a log is explained. Both convert text, like the case above.
if [ "$(uname -m)" != aarch64 ]; then
  TIME=real machine "$(at 1), $(at 2 ', "image": {"version": "0x0210"}')"
  expect 0 '2 passed, 0 failed' station --image "$work/new.bin" --record "$work/units.jsonl" --csv "$work/units.csv" --once 2
  [ "$(grep -c '"outcome":"\(updated\|current\)"' "$work/units.jsonl")" -eq 2 ] || complain 'not two units are recorded'
  machine "$(at 1)"
  expect 0 'hub 1-1 runs 2.10 now' update --yes --image "$work/new.bin" --log "$work/update.log"
  expect 0 'nothing went wrong' explain "$work/update.log"
fi
machine "$(at 1)" '{"on": "call", "service": "OpenHidDevice", "count": 0, "action": "fail", "code": 5}'
expect 4 'qzhid: hub 1-1: the hub cannot be opened; get permission for it (on Linux: the udev rule) or end the program that has it open' info
expect 1 '  "problems": 1' doctor --json
[ ! -e "$programs/virtual/info.txt" ] || complain 'a log in the folder of the library'
exit $failures
