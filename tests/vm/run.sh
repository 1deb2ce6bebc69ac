#!/usr/bin/env bash
# run.sh BUILD RESULTS PROGRAM...: boots a virtual machine with Debian's kernel and runs these programs of
# the folder BUILD in it. Writes its console output and a report of each test program to the folder
# RESULTS.
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$1 results=$2
shift 2
limit=600 # seconds; a run that takes longer hangs
modules=(usb-common usbcore usbmon usbip-core vhci-hcd hid usbhid hid-generic)

kernel=$(tests/vm/kernel.sh)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/root

# add FILE FOLDER: copies a program and the libraries that it is linked to.
add() {
  install -D -t "$root$2" "$1"
  local library
  for library in $(ldd "$1" 2>/dev/null | grep -o '/[^ ]*' | grep -v libQzHidAPI); do
    [ -e "$root$library" ] || install -D "$library" "$root$library"
  done
}

mkdir -p "$root"/{proc,sys,dev,tmp,run,var/run,qz/lib,etc/udev/rules.d,etc/modprobe.d,modules}
install tests/vm/init.sh "$root/init"
install -D /bin/busybox "$root/bin/busybox"
for module in "${modules[@]}"; do
  find "$kernel/lib/modules" -name "$module.ko" -exec cp {} "$root/modules/" \;
done
for program in "$@" qzhub qzhid update_hub i2c_eeprom gpio_blink; do
  add "$build/bin/$program" /qz/bin
done
echo "$*" >"$root/qz/programs"
echo reports=ttyS1 >"$root/qz/settings"
cp "$build"/lib/libQzHidAPI.so.? "$root/qz/lib/"
peer=$(PATH=$PATH:/usr/sbin ldconfig -p | sed -n 's/.*libhidapi-hidraw.so.0 .* => //p')
[ -z "$peer" ] || add "$peer" /qz/lib # for the benchmark that compares with it
add "$(PATH=$PATH:/usr/sbin command -v usbip)" /usr/sbin
add "$(command -v udevadm)" /usr/bin
cp packaging/70-qzhidapi.rules "$root/etc/udev/rules.d/"
cp packaging/qzhidapi-usbhid.conf "$root/etc/modprobe.d/"
cp /etc/os-release "$root/etc/os-release"
(cd "$root" && find . | busybox cpio -o -H newc 2>/dev/null | gzip -1) >"$work/initrd.gz"

# Without a processor that supports virtual machines, /dev/kvm is useless.
accelerator=tcg,thread=multi
if grep -qEw 'vmx|svm' /proc/cpuinfo && [ -r /dev/kvm ] && [ -w /dev/kvm ]; then accelerator=kvm; fi

mkdir -p "$results"
rm -f "$results"/*
status=0
timeout --kill-after=5 "$limit" qemu-system-x86_64 -accel "$accelerator" -smp 2 -m 1024 -cpu max \
  -kernel "$(echo "$kernel"/boot/vmlinuz-*)" -initrd "$work/initrd.gz" \
  -append "console=ttyS0 panic=-1 quiet" -nographic -no-reboot \
  -serial mon:stdio -serial "file:$work/reports.tar" </dev/null >"$results/console.txt" 2>&1 || status=$?
[ "$status" -ne 124 ] || echo "the virtual machine did not end within $limit seconds" >>"$results/console.txt"
tar -x -f "$work/reports.tar" -C "$results" 2>/dev/null || true
[ "$status" -eq 0 ]
