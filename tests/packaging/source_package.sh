#!/bin/sh
# source_package.sh SOURCE PACKAGES ROOT: builds the source package in that folder in a minimal Debian, as
# Debian's build machines do. What comes out must have the same files and the same control fields as the
# packages in the folder PACKAGES. Needs root, the network, about 2 GB and some minutes, so it is not one of
# the tests that always run. The changes to the root folder are not kept.
set -eu
if [ "${4-}" != inside ]; then exec unshare -m sh "$0" "$1" "$2" "$3" inside; fi
source=$(cd "$1" && pwd) packages=$(cd "$2" && pwd)
work=$(mktemp -d)
trap 'umount -l "$work/root" || true; rm -rf "$work"' EXIT
. "$(dirname "$0")/overlay_root.sh"
open_root "$3" "$work"
mkdir "$root/build"
cp "$source"/*.dsc "$source"/*.tar.xz "$root/build"
cp /etc/resolv.conf /etc/hosts "$root/etc"

inside() {
  chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/nonexistent DEBIAN_FRONTEND=noninteractive \
    DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS-parallel=$(nproc)}" sh -ec "cd /build; $*"
}
echo 'installing what the package needs to be built'
inside 'apt-get update -q; apt-get install -qy --no-install-recommends build-essential
  apt-get build-dep -qy --no-install-recommends ./*.dsc' > "$work/log" 2>&1 || { cat "$work/log" >&2; exit 1; }
echo 'building (some minutes)'
inside 'dpkg-source -x ./*.dsc tree; cd tree; dpkg-buildpackage -us -uc -b' > "$work/log" 2>&1 ||
  { cat "$work/log" >&2; exit 1; }
grep -E '^(\[  PASSED|[0-9]+ tests)' "$work/log" || true

# facts DEB: what must be the same.
facts() {
  dpkg-deb -f "$1" | grep -v '^Installed-Size:'
  dpkg-deb -c "$1" | awk '{ print $1, $2, $6, $7, $8 }'
  dpkg-deb --ctrl-tarfile "$1" | tar -t | LC_ALL=C sort
}
[ "$(cd "$root/build" && ls ./*.deb)" = "$(cd "$packages" && ls ./*.deb)" ] ||
  { ls "$root/build" "$packages" >&2; exit 1; }
for built in "$root"/build/*.deb; do
  facts "$built" > "$work/built"
  facts "$packages/${built##*/}" | diff -u - "$work/built" >&2 || { echo "${built##*/} differs" >&2; exit 1; }
  echo "${built##*/} is the same"
done
