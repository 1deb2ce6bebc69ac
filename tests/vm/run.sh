#!/usr/bin/env bash
# run.sh BUILD RESULTS PROGRAM...: boots a virtual machine with Debian's kernel (the variable KERNEL says
# which, see kernel.sh) and runs these programs of the folder BUILD in it, all of their tests or those
# that the variable GTEST_FILTER names. Writes its console output and a report of each test program to
# the folder RESULTS. For the program linux_redirect_tests, hubs outside of the virtual machine are
# plugged into it.
set -euo pipefail
cd "$(dirname "$0")/../.."
build=$1 results=$2
shift 2
limit=900 # seconds; a run that takes longer hangs
modules=(usb-common usbcore usbmon usbip-core vhci-hcd xhci-hcd xhci-pci hid usbhid hid-generic)

kernel=$(tests/vm/kernel.sh)
work=$(mktemp -d)
hubs=
trap '[ -z "$hubs" ] || kill "$hubs" || true; rm -rf "$work"' EXIT
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
  find "$kernel/lib/modules" "$kernel/usr/lib/modules" -name "$module.ko*" -exec cp {} "$root/modules/" \; \
    2>/dev/null || true # one of the two folders is there
done
find "$root/modules" -name '*.xz' -exec xz -d {} +
for program in "$@" qzhub qzhid update_hub i2c_eeprom gpio_blink; do
  add "$build/bin/$program" /qz/bin
done
echo "$*" >"$root/qz/programs"
printf 'reports=ttyS1\nexport GTEST_FILTER="%s"\n' "${GTEST_FILTER:-*}" >"$root/qz/settings"
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

# What the guest writes to its third serial port is the control file of the hubs that QEMU redirects.
devices=()
if [[ " $* " == *" linux_redirect_tests "* ]]; then
  cp tests/vm/redirect.json "$work/"
  "$build/bin/qzhub" redirect --listen 127.0.0.1:0 --scenario "$work/redirect.json" \
    </dev/null >"$work/events" 2>"$results/hubs.txt" &
  hubs=$!
  until [ "$(grep -c '^exported' "$work/events")" -eq 2 ]; do
    kill -0 "$hubs" 2>/dev/null || { cat "$results/hubs.txt" >&2; exit 1; }
    sleep 0.05
  done
  devices=(-serial "file:$work/control" -device qemu-xhci,id=xhci)
  while read -r _ name address; do
    devices+=(-chardev "socket,id=$name,host=127.0.0.1,port=${address##*:}"
      -device "usb-redir,chardev=$name,bus=xhci.0")
  done <"$work/events"
fi

status=0
timeout --kill-after=5 "$limit" qemu-system-x86_64 -accel "$accelerator" -smp 2 -m 1024 -cpu max \
  -kernel "$(find "$kernel" -name 'vmlinuz*')" -initrd "$work/initrd.gz" \
  -append "console=ttyS0 panic=-1 quiet" -nographic -no-reboot \
  -serial mon:stdio -serial "file:$work/reports.tar" "${devices[@]}" \
  </dev/null >"$results/console.txt" 2>&1 || status=$?
[ "$status" -ne 124 ] || echo "the virtual machine did not end within $limit seconds" >>"$results/console.txt"
tar -x -f "$work/reports.tar" -C "$results" 2>/dev/null || true
[ "$status" -eq 0 ]
