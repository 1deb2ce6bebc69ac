#!/usr/bin/env bash
# run_arm64.sh BUILD RESULTS ROOT FILTER: boots an emulated ARM64 computer with Debian's kernel, and runs
# those tests of linux_host_tests in the folder BUILD on it, with the C library of the Debian in ROOT.
# Writes its console output and the report of the tests to the folder RESULTS.
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$1 results=$2 libraries=$3/lib/aarch64-linux-gnu filter=$4
limit=600 # seconds; a run that takes longer hangs
modules=(usb-common usbcore usbmon usbip-core vhci-hcd hid usbhid hid-generic)

files=$(tests/vm/arm64_files.sh)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/root
mkdir -p "$root"/{proc,sys,dev,tmp,run,bin,lib/aarch64-linux-gnu,qz/bin,qz/lib,etc,modules}
install tests/vm/init.sh "$root/init"
install "$files/bin/busybox" "$root/bin"
for module in "${modules[@]}"; do
  find "$files/lib/modules" -name "$module.ko" -exec cp {} "$root/modules/" \;
done
for program in linux_host_tests qzhub qzhid update_hub; do install "$build/bin/$program" "$root/qz/bin"; done
cp "$build"/lib/libQzHidAPI.so.? "$root/qz/lib/"
cp "$libraries"/{ld-linux-aarch64.so.1,lib{c,m}.so.6,lib{dl,rt}.so.*,libpthread.so.0} "$root/lib/aarch64-linux-gnu"
ln -s aarch64-linux-gnu/ld-linux-aarch64.so.1 "$root/lib/ld-linux-aarch64.so.1"
echo linux_host_tests >"$root/qz/programs"
printf 'reports=ttyS0\nexport GTEST_FILTER="%s"\n' "$filter" >"$root/qz/settings"
(cd "$root" && find . | busybox cpio -o -H newc 2>/dev/null | gzip -1) >"$work/initrd.gz"

mkdir -p "$results"
rm -f "$results"/*
status=0
timeout --kill-after=5 "$limit" qemu-system-aarch64 -machine virt -cpu cortex-a57 -accel tcg,thread=multi \
  -smp 2 -m 1024 -kernel "$(echo "$files"/boot/vmlinuz-*)" -initrd "$work/initrd.gz" \
  -append "console=ttyAMA0 panic=-1 quiet" -nographic -no-reboot -net none \
  -serial mon:stdio -chardev "file,id=reports,path=$work/reports.tar" -device pci-serial,chardev=reports \
  </dev/null >"$results/console.txt" 2>&1 || status=$?
[ "$status" -ne 124 ] || echo "the virtual machine did not end within $limit seconds" >>"$results/console.txt"
tar -x -f "$work/reports.tar" -C "$results" 2>/dev/null || true
[ "$status" -eq 0 ]
