#!/bin/busybox sh
# The first process in the virtual machine: runs the programs, sends their reports through the serial port
# "reports" of /qz/settings, and switches off.
/bin/busybox --install -s /bin
export PATH=/qz/bin:/usr/sbin:/usr/bin:/bin LD_LIBRARY_PATH=/qz/lib
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
for module in usb-common usbcore usbmon usbip-core vhci-hcd hid usbhid hid-generic; do
  insmod "/modules/$module.ko"
done
. /qz/settings
ip link set lo up
chmod 1777 /tmp
stty -F "/dev/$reports" raw
cd /tmp || exit 1
mkdir reports
for program in $(cat /qz/programs); do
  "/qz/bin/$program" --gtest_color=no --gtest_output="xml:reports/$program.xml"
done
tar -c -C reports . >"/dev/$reports"
poweroff -f
