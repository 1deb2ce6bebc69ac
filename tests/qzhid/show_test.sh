#!/bin/sh
# What qzhid lists and shows, and how it rejects wrong calls.
. "$(dirname "$0")/lib.sh"

machine "$(hub ', "gpio_high": [3, 5]'),
  {\"name\": \"rom\", \"port\": \"2\", \"running\": \"rom\", \"rom\": {\"pid\": \"0x0810\"}},
  {\"name\": \"pad\", \"kind\": \"other\", \"port\": \"5\", \"vid\": \"0x045E\", \"pid\": \"0x0750\"}"
mkdir -p "$work/config/qzhid"
printf '# the rack\nbay 3 = 1-3.1 # left\n\nbay 2 = 1400/1-2\n' > "$work/config/qzhid/ports.conf"
golden list <<END
PORT   NAME   VID:PID    VERSION  STATE
1-3.1  bay 3  2E7C:0818  1.02     firmware
1-2    bay 2  2E7C:0810  -        loader
END
golden list --vid 45e --pid 0x750 --json <<END
$head
  "hubs": [
    {
      "hub": {
        "port_id": "1-5",
        "name": null,
        "vid": "045E",
        "pid": "0750",
        "location": "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(5)",
        "level": 1,
        "port": 5,
        "instance": 9
      }
    }
  ]
}
END
# Ids match exactly.
for ids in '0 0' '2e7c 0' '2e7c 8' '45e 75' '45e 818'; do
  expect 0 'no such HID device is attached' list --vid ${ids% *} --pid ${ids#* }
done
golden list --quiet < /dev/null
golden info --hub 'usb(3)#usb(1)' <<END
port          1-3.1
name          bay 3
HID VID:PID   2E7C:0818
hub VID:PID   2E7C:0818
level, port   2, 1
location      $usb, ACPI(_SB_)#ACPI(PCI0)#ACPI(XHC1)#ACPI(RHUB)#ACPI(PRT3)#ACPI(PRT1)
hardware ids  HID\\VID_2E7C&PID_0818&REV_0100, HID\\VID_2E7C&PID_0818, HID_DEVICE_UP:FF00_U:0001, HID_DEVICE
runs          firmware 1.02
GPIO high     3, 5
flash status  0
END
golden info --json --hub 2e7c:0810 <<END
$head
  "hub": {
    "port_id": "1-2",
    "name": "bay 2",
    "vid": "2E7C",
    "pid": "0810",
    "location": "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(2)",
    "level": 1,
    "port": 2,
    "instance": 7
  },
  "locations": [
    "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(2)",
    "ACPI(_SB_)#ACPI(PCI0)#ACPI(XHC1)#ACPI(RHUB)#ACPI(PRT2)"
  ],
  "hardware_ids": [
    "HID\\\\VID_2E7C&PID_0810&REV_0100",
    "HID\\\\VID_2E7C&PID_0810",
    "HID_DEVICE_UP:FF00_U:0001",
    "HID_DEVICE"
  ],
  "hub_vid": "2E7C",
  "hub_pid": "0810",
  "state": "loader",
  "version": null,
  "gpio_high": [],
  "flash_status": 0
}
END

# A selector names a hub as a whole.
for hub in 1-3.1 1400/1-3.1 'bay 3' "$usb" 'USB(3)#usb(1)' 2e7c:818 pid=0x818 instance:5; do
  expect 0 'port          1-3.1' info --hub "$hub"
done
expect 0 "qzhid: 'instance:5' is good for this process only; in the next one, name this hub 1-3.1" info --hub instance:5
there='attached are: 1-3.1 (bay 3), 1-2 (bay 2)'
for hub in '' 5 ')' 3.1 1-3 '-3.1' 'SB(1)' 'USB(3)' bay 'BAY 3' 2E7C 2E7C: :0818 'vid=' 'pid=81' 045E:0750 1500/1-3.1 \
  instance: instance:55; do
  expect 3 "qzhid: no hub matches '$hub'; $there" info --hub "$hub"
done
expect 2 "qzhid: several hubs match 'vid=2E7C'; choose one of: 1-3.1 (bay 3), 1-2 (bay 2)" info --hub vid=2E7C
expect 2 'qzhid: several hubs are attached; choose one of: 1-3.1 (bay 3), 1-2 (bay 2)' info

# A file of port names that is not usable names the line.
while IFS='|' read -r text reason; do
  printf "$text" > "$work/config/qzhid/ports.conf"
  expect 1 "qzhid: the port names in $work/config/qzhid/ports.conf are not usable: $reason; correct the file; its lines look like this: bay 3 = 1-3.1" list
done <<END
bay 3|line 1 is not NAME = PORT
\\n a = 1-1\\n= 1-2|line 3 is not NAME = PORT
a =|line 1 is not NAME = PORT
a = 1-1\\na = 1-2|line 2 names 'a' again
a = 1-1\\nb = 1-1|line 2 gives port 1-1 another name
a = 1-|line 1 has '1-', which is not a port id
vid=2E7C = 1-2|line 1 has '2E7C = 1-2', which is not a port id
1-2 = 1-3.1|line 1 has the name '1-2', which already means something else
1400/1-2.1:0 = 1-3.1|line 1 has the name '1400/1-2.1:0', which already means something else
2e7c:818 = 1-3.1|line 1 has the name '2e7c:818', which already means something else
Usb(2) = 1-3.1|line 1 has the name 'Usb(2)', which already means something else
instance:7 = 1-3.1|line 1 has the name 'instance:7', which already means something else
a\\033[1m = 1-3.1|line 1 has a name with a control character
END
rm "$work/config/qzhid/ports.conf"
mkfifo "$work/config/qzhid/ports.conf"
expect 1 "qzhid: the port names in $work/config/qzhid/ports.conf are not usable: it is not a regular file; correct the file; its lines look like this: bay 3 = 1-3.1" list
rm "$work/config/qzhid/ports.conf"
# The mark with which some editors begin a file is no part of the first name, and letters may have accents.
printf '\357\273\277bay \303\244 = 1-3.1\r\n' > "$work/config/qzhid/ports.conf"
expect 0 'port          1-3.1' info --hub 'bay ä'
expect 0 '1-3.1  bay ä  2E7C:0818  1.02     firmware' list

# Hubs of several controllers show theirs.
machine '{"name": "a", "port": "1"}, {"name": "b", "port": "2-1"}'
run list
[ "$(sed -n 's/ .*//p' "$work/out" | tr '\n' ' ')" = 'PORT 1400/1-1 1500/1-1 ' ] || complain "$(cat "$work/out")"
expect 2 "qzhid: several hubs match '1-1'; choose one of: 1400/1-1, 1500/1-1" info --hub 1-1
expect 0 'port          1500/1-1' info --hub 1500/1-1
# A hub without a location has no port id and is on no controller.
machine '{"name": "a", "port": "1"}, {"name": "b", "port": "2", "usb": {"location_paths": []}}'
expect 0 'instance:6  -     2E7C:0818  1.02     firmware' list
expect 0 '1-1         -     2E7C:0818  1.02     firmware' list
expect 0 'port          instance:6' info --hub instance:6
machine '{"name": "a", "port": "1"}, {"name": "b", "port": "2-1"}'
# The name of one port counts before that of all ports with its number.
printf 'a = 1500/1-1\nb = 1-1\n' > "$work/config/qzhid/ports.conf"
expect 0 'port          1500/1-1' info --hub a
expect 0 'port          1400/1-1' info --hub b
rm -r "$work/config"
status=0
"$qzhid" --virtual list > /dev/full 2> "$work/err" || status=$?
: > "$work/out"
said 1 'qzhid: the result cannot be written; free some disk space'

# An image of each chip code; the checksum is the same as that of the system's own tool.
for chip in 4A17 4A26 93E5 1234; do
  "$qzhub" image --out "$work/a.bin" --chip $chip --version 0a15 --vid 2E7D --pid 0819
  golden image "$work/a.bin" <<END
file        $work/a.bin
VID         2E7D
product id  0819
chip code   $chip
version     a.15
size        65536 bytes
SHA-256     $(sha256sum "$work/a.bin" | cut -d' ' -f1)
END
done
for size in 32679 0; do
  truncate -s $size "$work/a.bin"
  expect 5 "qzhid: image $work/a.bin is too short: $size bytes of at least 32680; give the complete image file" \
    image "$work/a.bin"
done
truncate -s 16777217 "$work/a.bin"
expect 5 "qzhid: image $work/a.bin is too long: 16777217 bytes of at most 16777216; give the complete image file" \
  image "$work/a.bin"
mkfifo "$work/pipe"
for file in "$work" "$work/pipe" /dev/zero; do
  expect 5 "qzhid: image $file is not a regular file; give the complete image file" image "$file"
done
expect 5 "qzhid: image - does not exist; give the complete image file" image -
expect 5 '    "status": 5,' image --json "$work/missing"
# An image that was cut, or that differs in one byte.
"$qzhub" image --out "$work/a.bin"
printf '\\0' | dd of="$work/a.bin" bs=1 seek=40000 conv=notrunc 2> /dev/null
damaged="is damaged: its length or checksum is wrong; give the complete image file"
expect 5 "qzhid: image $work/a.bin $damaged" image "$work/a.bin"
"$qzhub" image --out "$work/a.bin" && truncate -s 40000 "$work/a.bin"
expect 5 "qzhid: image $work/a.bin $damaged" image "$work/a.bin"
# Nothing but the file is needed.
status=0
"$qzhid" --library /nowhere.so image "$work/a.bin" 2>&1 | grep -q damaged || complain 'image needs a library'

expect 2 "qzhid: A subcommand is required; see 'qzhid --help'" --json
expect 2 "qzhid: --vid: '12345' is not one to four hexadecimal digits; see 'qzhid --help'" list --vid 12345 --pid 1
expect 2 "qzhid: there is no command 'updat'; did you mean 'update'?; see 'qzhid --help'" updat --yes
expect 2 "qzhid: there is no command 'gett'; did you mean 'get'?; see 'qzhid --help'" gpio gett 3
expect 2 "qzhid: there is no command 'frob'; the commands are list, info, image, update, recover, station, gpio, i2c, flash, doctor, explain, help; see 'qzhid --help'" frob
expect 2 "qzhid: The following argument was not expected: 5; see 'qzhid --help'" list 5
expect 0 'Usage: qzhid gpio drive [OPTIONS] LINE LEVEL' help gpio drive
"$qzhid" --virtual list <&- >&- 2>&- || complain 'it does not work without its standard streams'
expect 0 'qzhid 1.0.0' --version
for command in list info image update recover doctor explain; do expect 0 'Examples:' $command --help; done
expect 0 'Exit status: 0 done, 1 failed, 2 usage, 3 no such hub, 4 permission, 5 refused, 6 hub lost, 7 hub in its loader' --help
run --library /nowhere.so list 2> /dev/null
[ $status -eq 2 ] || complain '--virtual and --library are taken together'

# Every hub is seen, and counts for "the only hub": one without permission, also with an id without a
# zero, and one that does not answer.
machine ''
expect 0 'no hub is attached' list
expect 3 "qzhid: no hub is attached; plug one in, or see 'qzhid doctor'" info
denied='{"on": "call", "service": "OpenHidDevice", "count": 0, "device": "shut", "action": "fail", "code": 13}'
mute='{"on": "exchange", "count": 0, "device": "mute", "action": "stall"}'
machine "$(hub), {\"name\": \"shut\", \"port\": \"4\", \"image\": {\"pid\": \"0x1234\"}}, {\"name\": \"mute\", \"port\": \"6\"}" "$denied, $mute"
golden list <<END
PORT   NAME  VID:PID    VERSION  STATE
1-3.1  -     2E7C:0818  1.02     firmware
1-6    -     2E7C:0818  -        silent
1-4    -     2E7C:1234  -        no permission
END
expect 2 'qzhid: several hubs are attached; choose one of: 1-3.1, 1-6, 1-4' info
refusal='the hub cannot be opened; get permission for it (on Linux: the udev rule) or end the program that has it open'
expect 4 "qzhid: hub 1-4: $refusal" info --hub 1-4
expect 6 'qzhid: hub 1-6: the hub does not answer; unplug it, plug it in again and repeat the command' info --hub 1-6
# Also one of another vendor without permission, if VidPid.ini has its ids.
mkdir -p "$work/site/virtual"
cp "$(dirname "$qzhid")/../lib/virtual/libQzHidAPI.so.1" "$work/site/virtual"
printf 'VID:2E7D PID:1234\nVID:2E7D\n' > "$work/site/virtual/VidPid.ini"
machine "$(hub), {\"name\": \"shut\", \"port\": \"4\", \"image\": {\"vid\": \"0x2E7D\", \"pid\": \"0x1234\"}}" "$denied"
status=0
"$qzhid" --library "$work/site/virtual/libQzHidAPI.so.1" list > "$work/out" 2> "$work/err" || status=$?
said 0 '1-4    -     2E7D:1234  -        no permission'
# A hub that takes its time: a line says so once; on a terminal, a sign turns, which fits the width.
slow "$(hub ', "timing": {"latency_us": 150000}')"
run list
[ "$(cat "$work/err")" = 'qzhid: waiting for hub 1-3.1 to answer' ] || complain "not waited for: $(cat "$work/err")"
script -qec "stty cols 20; '$qzhid' --virtual list" /dev/null < /dev/null | tr '\r' '\n' | sed 's/.\[K$//' > "$work/terminal"
for sign in '|' /; do grep -qxF "$sign waiting for hub 1" "$work/terminal" || complain 'no sign turns'; done
slow "$(hub ', "timing": {"latency_us": 30000}')"
expect 0 'qzhid: waiting for hub 1-3.1 to answer' info
machine '{"name": "shut", "port": "4"}' "$denied"
mkdir "$work/private"
TMPDIR=$work/private
export TMPDIR
expect 4 "qzhid: hub 1-4: $refusal" info
expect 4 '  log: [2024-03-07, 09:05:02]  QZ_ListAllHidDev, List Hid Device Fail' info --verbose
rmdir "$work/private" || complain 'a private folder is left'
unset TMPDIR
expect 4 "qzhid: hub 1-4: $refusal" info --log "$work/log.txt" --log-level 0
grep -q 'QZ_ListAllHidDev, Enter' "$work/log.txt" || complain 'no log'
expect 1 'qzhid: the log /nowhere/log cannot be written; name a file in a folder that you have permission to write' list --log /nowhere/log

# doctor says for each problem what to do.
machine "$(hub), {\"name\": \"rom\", \"port\": \"2\", \"running\": \"rom\"}, {\"name\": \"shut\", \"port\": \"4\"}" \
  '{"on": "call", "service": "OpenHidDevice", "device": "shut", "count": 0, "action": "fail", "code": 13}'
run doctor
[ "$status" -eq 1 ] || complain "doctor: status $status"
sed 's/library is .*/library is FILE/' "$work/out" | diff -u - "$(dirname "$0")/doctor.golden" >&2 || complain 'the diagnosis differs'
expect 1 '  "problems": 2' doctor --json
machine ''
expect 0 'ok       no hub is attached; plug one in to work with it' doctor
echo '{"devices": [{"name": "hub", "port": "99x"}]}' > "$QZ_VIRTUAL_HUB"
run doctor
said 1 "PROBLEM  the scenario $QZ_VIRTUAL_HUB is rejected: /devices/0/port: a port is written as \"3.1\", or \"2-3.1\" below the second root hub; correct the file that QZ_VIRTUAL_HUB names"
for library in /nowhere.so libm.so.6; do
  status=0
  "$qzhid" --library $library doctor > "$work/out" || status=$?
  [ $status -eq 1 ] && grep -q "^ok       the kernel is $(uname -r)$" "$work/out" &&
    grep -q '^ok       the udev rule 70-qzhidapi.rules is ' "$work/out" &&
    grep -q '^PROBLEM  the library .*; choose the library with --library FILE$' "$work/out" ||
    complain "doctor with $library: $(cat "$work/out")"
done
exit $failures
