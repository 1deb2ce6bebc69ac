#!/bin/busybox sh
# The first process in the virtual machine: runs the programs, sends their reports through the serial port
# "reports" of /qz/settings, and switches off.
/bin/busybox --install -s /bin
export PATH=/qz/bin:/usr/sbin:/usr/bin:/bin LD_LIBRARY_PATH=/qz/lib
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
. /qz/settings
load() { for module in "$@"; do insmod "/modules/$module.ko"; done; }
run() {
  "/qz/bin/$1" --gtest_color=no --gtest_output="xml:reports/$1.xml"
}
load usb-common usbcore usbmon hid usbhid hid-generic
ip link set lo up
chmod 1777 /tmp
stty -F "/dev/$reports" raw
cd /tmp || exit 1
mkdir reports
# Hubs at an ordinary USB controller, while the kernel has no other one.
if [ -x /qz/bin/linux_redirect_tests ]; then
  stty -F /dev/ttyS2 raw
  load xhci-hcd xhci-pci
  run linux_redirect_tests
  rmmod xhci-pci xhci-hcd
fi
load usbip-core vhci-hcd
for program in $(cat /qz/programs); do
  [ "$program" = linux_redirect_tests ] || run "$program"
done
tar -c -C reports . >"/dev/$reports"
poweroff -f
