#!/bin/sh
# clean_root_test.sh PACKAGES ROOT: what is in that folder, Debian packages, RPM packages or the archive for
# any Linux, can be installed in a minimal Debian, works there, and leaves nothing when it is removed. The
# changes to the root folder are not kept.
set -eu
if [ "${3-}" != inside ]; then
  [ -d "$2" ] || { echo "skipped: no Debian in $2"; exit 77; }
  unshare -mn true || { echo 'skipped: mounting needs root'; exit 77; }
  # Without the network, in which qzhid would find the locks of other tests.
  exec unshare -mn sh "$0" "$1" "$2" inside
fi
work=$(mktemp -d)
mount -t tmpfs tmpfs "$work"
trap 'umount -l "$work"; rmdir "$work"' EXIT
. "$(dirname "$0")/overlay_root.sh"
open_root "$2" "$work"
archive=$(find "$1" -maxdepth 1 -name '*.tar.gz')
rpms=$(find "$1" -maxdepth 1 -name '*.rpm')
[ -n "$rpms" ] || cp ${archive:-"$1"/*.deb} "$root/tmp"
echo '{"time": "virtual", "state_folder": ".", "devices": [{"name": "hub", "port": "1"}]}' > "$root/tmp/hub.json"

inside() { chroot "$root" env -i PATH=/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin QZ_VIRTUAL_HUB=/tmp/hub.json "$@"; }
fail() { echo "$*" >&2; exit 1; }
# says LINE COMMAND...: the command succeeds and prints that line.
says() {
  line=$1
  shift
  said=$(inside "$@" 2>&1) && echo "$said" | grep -qxF -e "$line" || fail "$* says: $said"
}

if [ -n "$archive" ]; then
  prefix=/usr/local link=$root/etc/udev/rules.d/70-qzhidapi.rules
  mkdir -p "${link%/*}"
  said=$(inside sh -c 'tar -x -f /tmp/*.tar.gz -C /tmp && /tmp/QzHidAPI-*/install.sh' 2>&1) || fail "$said"
  cmp "$root$(readlink "$link")" "$root"/tmp/QzHidAPI-*/lib/udev/rules.d/70-qzhidapi.rules
elif [ -n "$rpms" ]; then
  prefix=/usr
  . "$(dirname "$0")/rpm_root.sh"
  # shellcheck disable=SC2086
  install_rpms $rpms > "$work/log" 2>&1 || fail "$(cat "$work/log")"
else
  prefix=/usr
  said=$(inside sh -c 'dpkg -i /tmp/*.deb' 2>&1) || fail "$said"
fi
says 'no hub is attached' qzhid list
inside qzhub image --out /tmp/new.bin --version 0210
says 'hub 1-1 runs 2.10 now' \
  qzhid --virtual update --yes --image /tmp/new.bin
says 'runs          firmware 2.10' qzhid --virtual info
says update bash -c '. $0/share/bash-completion/completions/qzhid; COMP_WORDS=(qzhid up) COMP_CWORD=1
  _qzhid; echo "${COMPREPLY[@]}"' $prefix
remove='inside dpkg --purge qzhidapi-tools libqzhidapi-dev libqzhidapi1'
[ -z "$archive" ] || remove="inside sh $prefix/share/qzhidapi/install.sh --uninstall"
[ -z "$rpms" ] || remove='rpm_in_root -e qzhidapi qzhidapi-devel qzhidapi-tools'
$remove > "$work/log" 2>&1 || fail "$(cat "$work/log")"
inside find / -xdev -path /tmp -prune -o -iname '*qz*' -print | grep . && fail 'files are left'
exit 0
