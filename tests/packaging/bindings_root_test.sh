#!/bin/sh
# bindings_root_test.sh SOURCE BUILD DEBS CACHE: the packages of the bindings can be installed in a Debian
# without network, work there, and leave nothing when they are removed. The changes to the root folder are
# not kept.
set -eu
if [ "${5-}" != inside ]; then
  [ -d "$4/bindings-root" ] || { echo "skipped: no Debian in $4/bindings-root"; exit 77; }
  unshare -mn true || { echo 'skipped: mounting needs root'; exit 77; }
  exec unshare -mn sh "$0" "$1" "$2" "$3" "$4" inside
fi
source=$1 build=$2
work=$(mktemp -d)
mount -t tmpfs tmpfs "$work"
trap 'umount -l "$work"; rmdir "$work"' EXIT
. "$(dirname "$0")/overlay_root.sh"
open_root "$4/bindings-root" "$work"
cp "$3"/libqzhidapi1_*.deb "$source"/tests/bindings/with_library.sh "$source"/tests/bindings/installed.* "$root/tmp"
"$build/bin/qzhub" image --out "$root/tmp/new.bin" --version 0210 --size 32680
case $(uname -m) in aarch64) system=linux-arm64 ;; *) system=linux-x64 ;; esac
/usr/bin/python3 "$source/bindings/make_packages.py" --node-modules "$4/node/node_modules" "$root/tmp" "$system=$build/lib" > "$work/log"

inside() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root "$@"; }
fail() { echo "$*" >&2; exit 1; }
quietly() { inside "$@" > "$work/log" 2>&1 || fail "$*: $(cat "$work/log")"; }
# works LIBRARY COMMAND...: the program does what is expected of an installed package.
works() {
  said=$(inside sh /tmp/with_library.sh "$@" /tmp/new.bin 2>&1) || fail "$*: $said"
  [ "$said" = "updated 1.02 to 2.10, progress 0 to 100
recovered loader to 2.10
interrupted, then updated with 1 retry
PermissionDenied for hub 1-3.1: the hub cannot be opened" ] || fail "$* says: $said"
}
# removed: no file of a package is left.
removed() { inside find / -xdev -path /tmp -prune -o -iname '*qz*' -print | grep . && fail 'files are left'; :; }

# The wheel
quietly sh -c 'pip install --no-index --break-system-packages --root-user-action=ignore /tmp/*.whl'
native=$(inside python3 -c 'import qzhidapi; print(qzhidapi.__path__[0])')/native/virtual/libQzHidAPI.so.1
works "$native" python3 /tmp/installed.py
quietly sh /tmp/with_library.sh "$native" python3 -m qzhidapi --virtual list
quietly pip uninstall --yes --break-system-packages --root-user-action=ignore qzhidapi
removed

# The Debian package
quietly sh -c 'dpkg -i /tmp/libqzhidapi1_*.deb /tmp/python3-qzhidapi_*.deb'
works "$(inside sh -c 'echo /usr/lib/*/qzhidapi/virtual/libQzHidAPI.so.1')" python3 /tmp/installed.py
quietly dpkg --purge python3-qzhidapi libqzhidapi1
removed

# The package for npm, which that Debian does not have
mkdir "$root/tmp/app"
npm install --prefix "$root/tmp/app" --cache "$work/npm" --offline --no-audit --no-fund "$root"/tmp/qzhidapi-*.tgz \
  > "$work/log" 2>&1 || fail "npm: $(cat "$work/log")"
native=/tmp/app/node_modules/qzhidapi/native/$system
cp "$root/tmp/installed.js" "$root/tmp/app"
works "$native/virtual/libQzHidAPI.so.1" node /tmp/app/installed.js

# The package for .NET: the assembly and the folder runtimes next to a program
mkdir "$root/tmp/net"
(cd "$root/tmp/net" && /usr/bin/python3 -m zipfile -e ../QzHid.*.nupkg . && cp lib/*/QzHid.dll . &&
  mcs -warnaserror -r:QzHid.dll -out:installed.exe ../installed.cs) > "$work/log" 2>&1 || fail "$(cat "$work/log")"
works "/tmp/net/runtimes/$system/native/virtual/libQzHidAPI.so.1" mono /tmp/net/installed.exe
