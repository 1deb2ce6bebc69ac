#!/usr/bin/env bash
# run_arm64.sh ROOT CHECKOUT: runs the ARM64 tests of that checkout in the ARM64 root folder.
set -eu
root=$1 checkout=$2
# In a namespace of its own, the mounts are released however this ends.
exec unshare --mount --propagation private bash -eu -c '
  mount --bind /proc "$1/proc"
  mount --bind /dev "$1/dev"
  mkdir -p "$1/checkout"
  mount --bind "$2" "$1/checkout"
  exec chroot "$1" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
    /checkout/tests/windows/run_wine.sh /checkout/build/windows-arm64
' bash "$root" "$checkout"
