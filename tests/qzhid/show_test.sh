#!/bin/sh
# What qzhid lists and shows, and how it rejects wrong calls.
. "$(dirname "$0")/lib.sh"

machine "$(hub ', "gpio_high": [3, 5]'),
  {\"name\": \"rom\", \"port\": \"2\", \"running\": \"rom\", \"rom\": {\"pid\": \"0x0810\"}},
  {\"name\": \"pad\", \"kind\": \"other\", \"port\": \"5\", \"vid\": \"0x045E\", \"pid\": \"0x0750\"}"
golden list <<END
INSTANCE    VID:PID     LEVEL       PORT        LOCATION
5           2E7C:0818   2           1           $usb
7           2E7C:0810   1           2           PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(2)
END
golden list --vid 45e --pid 0x750 --json <<END
{
  "hubs": [
    {
      "instance": 9,
      "vid": "045E",
      "pid": "0750",
      "level": 1,
      "port": 5,
      "location": "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(5)"
    }
  ]
}
END
golden list --quiet < /dev/null
golden info 'usb(3)#usb(1)' <<END
instance      5
HID VID:PID   2E7C:0818
hub VID:PID   2E7C:0818
level, port   2, 1
location      $usb, ACPI(_SB_)#ACPI(PCI0)#ACPI(XHC1)#ACPI(RHUB)#ACPI(PRT3)#ACPI(PRT1)
hardware ids  HID\\VID_2E7C&PID_0818&REV_0100, HID\\VID_2E7C&PID_0818, HID_DEVICE_UP:FF00_U:0001, HID_DEVICE
runs          firmware 1.02
GPIO high     3, 5
flash status  0
END
golden info --json 2e7c:0810 <<END
{
  "instance": 7,
  "vid": "2E7C",
  "pid": "0810",
  "level": 1,
  "port": 2,
  "location": "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(2)",
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
  "runs": "loader",
  "version": null,
  "gpio_high": [],
  "flash_status": 0
}
END
expect 2 'qzhid: several hubs are attached; name one of these instances: 5 7' info
# A location is named as a whole or by its end.
for none in 4711 'USB(3)#USB' 'PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)'; do
  expect 3 "qzhid: no hub matches '$none'; see 'qzhid list' for the hubs that are attached" info "$none"
done
expect 0 'instance      5' info "$usb"
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
expect 5 "qzhid: image - cannot be read; give the complete image file" image -
expect 5 '    "status": 5,' image --json "$work/missing"

expect 2 "qzhid: A subcommand is required; see 'qzhid --help'" --json
expect 2 "qzhid: --vid: '12345' is not one to four hexadecimal digits; see 'qzhid --help'" list --vid 12345 --pid 1
expect 0 'qzhid 1.0.0' --version
for command in list info image update recover doctor; do expect 0 'Examples:' $command --help; done
expect 0 'Exit status: 0 done, 1 failed, 2 usage, 3 no such hub, 4 permission, 5 image rejected, 6 hub lost' --help
run --library /nowhere.so list 2> /dev/null
[ $status -eq 2 ] || complain '--virtual and --library are taken together'

machine ''
expect 0 'no hub is attached' list
expect 3 "qzhid: no hub is attached; see 'qzhid list' for the hubs that are attached" info
denied='{"on": "call", "service": "OpenHidDevice", "count": 0, "action": "fail", "code": 13}'
machine "$(hub)" "$denied"
refusal='qzhid: a hub is attached, but it cannot be opened; get permission for it (on Linux: the udev rule) or end the program that has it open'
for command in list info; do expect 4 "$refusal" $command; done
mkdir "$work/private"
TMPDIR=$work/private
export TMPDIR
expect 4 '  log: [2024-03-07, 09:05:02]  QZ_ListAllHidDev, List Hid Device Fail' info --verbose
rmdir "$work/private" || complain 'a private folder is left'
unset TMPDIR
expect 4 "$refusal" info --log "$work/log.txt" --log-level 0
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
