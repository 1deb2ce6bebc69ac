#!/bin/sh
# debian_packages_test.sh SOURCE BUILD VERSION PACKAGES ARCHITECTURE LIBRARIES: makes the Debian packages of
# the build folder in the folder PACKAGES. They contain the right files for that architecture, and depend
# on each other and on the system's libraries, as that pattern says.
set -eu
command -v dh > /dev/null || { echo 'skipped: no debhelper'; exit 77; }
source=$1 build=$2 version=$3 packages=$4 architecture=$5 libraries=$6
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rm -rf "$packages"
sh "$source/packaging/debian/make.sh" "$build" "$packages"
failures=0
fail() { echo "$*" >&2; failures=1; }

# contents PACKAGE: the package contains its licence, the changes, and exactly the files that standard input
# lists. ARCH is the folder of the system; documents_test.py compares the documents.
contents() {
  { cat; echo "usr/share/doc/$1/changelog.gz"; echo "usr/share/doc/$1/copyright"; } | sort > "$work/expected"
  dpkg-deb --fsys-tarfile "$packages/$1_${version}_$architecture.deb" | tar -t | grep -v '/$' |
    sed -E "s|^\./||; s|[^/]+-linux-gnu[^/]*|ARCH|; s|/doc/QzHidAPI/.*|/doc/QzHidAPI/|; s|/licences/.*|/licences/|" | sort -u |
    diff -u "$work/expected" - >&2 || fail "$1 does not contain the right files"
}
# field PACKAGE NAME PATTERN: that field of the package matches the pattern.
field() {
  value=$(dpkg-deb -f "$packages/$1_${version}_$architecture.deb" "$2")
  echo "$value" | grep -qE "$3" || fail "$1: $2 is '$value'"
}

contents libqzhidapi1 << END
usr/lib/ARCH/libQzHidAPI.so.1
usr/lib/ARCH/libQzHidAPI.so.$version
usr/lib/ARCH/qzhidapi/virtual/libQzHidAPI.so.1
usr/lib/ARCH/qzhidapi/virtual/libQzHidAPI.so.$version
usr/share/doc/libqzhidapi1/licences/
END
field libqzhidapi1 Architecture "^$architecture\$"
field libqzhidapi1 Depends "^$libraries\$"
field libqzhidapi1 Multi-Arch '^same$'
# What dpkg-shlibdeps makes of the library in the dependencies of a program, and what dpkg does with it.
control() { dpkg-deb -I "$packages/$1_${version}_$architecture.deb" "$2"; }
[ "$(control libqzhidapi1 shlibs)" = "libQzHidAPI 1 libqzhidapi1 (>= $version)" ] ||
  fail 'libqzhidapi1: the shlibs are wrong'
control libqzhidapi1 symbols | diff "$source/packaging/debian/libqzhidapi1.symbols" - >&2 ||
  fail 'libqzhidapi1: the symbols are wrong'
control libqzhidapi1 triggers | grep -qx 'activate-noawait ldconfig' || fail 'libqzhidapi1: no ldconfig'

type=$(sed -n 's/^CMAKE_BUILD_TYPE:.*=//p' "$build/CMakeCache.txt" | tr '[:upper:]' '[:lower:]')
contents libqzhidapi-dev << END
usr/include/QzHidAPI.h
usr/lib/ARCH/cmake/QzHidAPI/QzHidAPIConfig.cmake
usr/lib/ARCH/cmake/QzHidAPI/QzHidAPIConfigVersion.cmake
usr/lib/ARCH/cmake/QzHidAPI/QzHidAPITargets-$type.cmake
usr/lib/ARCH/cmake/QzHidAPI/QzHidAPITargets.cmake
usr/lib/ARCH/libQzHidAPI.so
usr/lib/ARCH/pkgconfig/qzhidapi.pc
usr/lib/ARCH/qzhidapi/virtual/libQzHidAPI.so
usr/share/doc/QzHidAPI/
END
dpkg-deb -x "$packages/libqzhidapi-dev_${version}_$architecture.deb" "$work/development"
python3 "$(dirname "$0")/documents_test.py" "$work/development/usr/share/doc/QzHidAPI" ||
  fail 'libqzhidapi-dev: the documents are wrong'
field libqzhidapi-dev Depends "^libqzhidapi1 \(= $version\)\$"
field libqzhidapi-dev Multi-Arch '^same$'

contents qzhidapi-tools << END
usr/bin/qzhid
usr/bin/qzhub
usr/lib/ARCH/wireshark/plugins/qzhid.lua
usr/lib/udev/rules.d/70-qzhidapi.rules
usr/share/bash-completion/completions/qzhid
usr/share/bash-completion/completions/qzhub
usr/share/doc/qzhidapi-tools/licences/
usr/share/man/man1/qzhid.1.gz
usr/share/man/man1/qzhub.1.gz
usr/share/qzhidapi/qzhidapi-usbhid.conf
usr/share/zsh/vendor-completions/_qzhid
usr/share/zsh/vendor-completions/_qzhub
END
field qzhidapi-tools Architecture "^$architecture\$"
field qzhidapi-tools Multi-Arch '^foreign$'
control qzhidapi-tools postinst | grep -q '^ *udevadm trigger ' || fail 'qzhidapi-tools: no udevadm'
field qzhidapi-tools Depends "^libqzhidapi1 \(= $version\), $libraries\$"
exit $failures
