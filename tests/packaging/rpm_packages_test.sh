#!/bin/sh
# rpm_packages_test.sh SOURCE BUILD VERSION PACKAGES PROCESSOR GLIBC: makes the RPM packages of the build
# folder in the folder PACKAGES. They contain the right files for that processor, depend on each other and
# on the C library, up to that version, and are the same each time.
set -eu
command -v rpmbuild > /dev/null || { echo 'skipped: no rpmbuild'; exit 77; }
source=$1 build=$2 version=$3 packages=$4 processor=$5 glibc=$6
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rm -rf "$packages"
sh "$source/packaging/rpm/make.sh" "$build" "$packages"
failures=0
fail() { echo "$*" >&2; failures=1; }
query() { rpm -qp --dbpath "$work" --qf "$2" "$packages/$1-$version-1.$processor.rpm"; }
# same PACKAGE WHAT FORMAT: what rpm prints in that format is what standard input lists. documents_test.py
# compares the documents.
same() {
  LC_ALL=C sort > "$work/expected"
  query "$1" "[$3\n]" | sed -E 's,/doc/QzHidAPI(/.*)?$,/doc/QzHidAPI/,' | LC_ALL=C sort -u |
    diff -u "$work/expected" - >&2 || fail "$1 does not have the right $2"
}
# needs PACKAGE PATTERN: it depends on something that matches the pattern, and besides on the C library only.
needs() {
  needed=$(query "$1" '[%{REQUIRENAME} %{REQUIREFLAGS:depflags} %{REQUIREVERSION}\n]' | grep -v '^rpmlib')
  echo "$needed" | grep -qE "^($2) *$" || fail "$1 needs: $needed"
  echo "$needed" | grep -vE "^($2|lib(c|dl|m|pthread)\.so\.[0-9](\(.*\))?\(64bit\)|ld-linux-.*) *$" &&
    fail "$1 needs too much"
  newest=$(echo "$needed" | sed -n 's/.*(GLIBC_\(.*\))(64bit).*/\1/p' | sort -V | tail -n 1)
  [ "$(printf '%s\n' "$newest" "$glibc" | sort -V | tail -n 1)" = "$glibc" ] || fail "$1 needs glibc $newest"
}

same qzhidapi files '%{FILEMODES:perms} %{FILENAMES}' << END
-rw-r--r-- /usr/share/licenses/qzhidapi/CLI11.txt
-rw-r--r-- /usr/share/licenses/qzhidapi/LICENSE
-rw-r--r-- /usr/share/licenses/qzhidapi/Zig.txt
-rw-r--r-- /usr/share/licenses/qzhidapi/libcxx.txt
-rw-r--r-- /usr/share/licenses/qzhidapi/libcxxabi.txt
-rw-r--r-- /usr/share/licenses/qzhidapi/libunwind.txt
-rw-r--r-- /usr/share/licenses/qzhidapi/nlohmann-json.txt
-rwxr-xr-x /usr/lib64/libQzHidAPI.so.$version
-rwxr-xr-x /usr/lib64/qzhidapi/virtual/libQzHidAPI.so.$version
drwxr-xr-x /usr/lib64/qzhidapi
drwxr-xr-x /usr/lib64/qzhidapi/virtual
drwxr-xr-x /usr/share/licenses/qzhidapi
lrwxrwxrwx /usr/lib64/libQzHidAPI.so.1
lrwxrwxrwx /usr/lib64/qzhidapi/virtual/libQzHidAPI.so.1
END
isa=$(echo "$processor" | sed 's/x86_64/x86-64/; s/aarch64/aarch-64/')
# Not twice, although there are two libraries of that name.
same qzhidapi provisions '%{PROVIDENAME} %{PROVIDEVERSION}' << END
libQzHidAPI.so.1()(64bit)$(printf ' ')
libQzHidAPI.so.1(QZHIDAPI_1.0)(64bit)$(printf ' ')
qzhidapi $version-1
qzhidapi($isa) $version-1
END
needs qzhidapi 'libc.so.6\(\)\(64bit\)'

same qzhidapi-devel files '%{FILENAMES}' << END
/usr/include/QzHidAPI.h
/usr/lib64/cmake/QzHidAPI
/usr/lib64/cmake/QzHidAPI/QzHidAPIConfig.cmake
/usr/lib64/cmake/QzHidAPI/QzHidAPIConfigVersion.cmake
/usr/lib64/cmake/QzHidAPI/QzHidAPITargets-release.cmake
/usr/lib64/cmake/QzHidAPI/QzHidAPITargets.cmake
/usr/lib64/libQzHidAPI.so
/usr/lib64/pkgconfig/qzhidapi.pc
/usr/lib64/qzhidapi/virtual/libQzHidAPI.so
/usr/share/doc/QzHidAPI/
END
mkdir "$work/development"
rpm2archive - < "$packages/qzhidapi-devel-$version-1.$processor.rpm" | tar -xz -C "$work/development"
python3 "$(dirname "$0")/documents_test.py" "$work/development/usr/share/doc/QzHidAPI" ||
  fail 'qzhidapi-devel: the documents are wrong'
needs qzhidapi-devel "qzhidapi\($isa\) += +$version-1|/usr/bin/pkg-config"

same qzhidapi-tools files '%{FILENAMES}' << END
/usr/bin/qzhid
/usr/bin/qzhub
/usr/lib/udev/rules.d/70-qzhidapi.rules
/usr/lib64/wireshark/plugins/qzhid.lua
/usr/share/bash-completion/completions/qzhid
/usr/share/bash-completion/completions/qzhub
/usr/share/licenses/qzhidapi-tools
/usr/share/licenses/qzhidapi-tools/CLI11.txt
/usr/share/licenses/qzhidapi-tools/Zig.txt
/usr/share/licenses/qzhidapi-tools/libcxx.txt
/usr/share/licenses/qzhidapi-tools/libcxxabi.txt
/usr/share/licenses/qzhidapi-tools/libunwind.txt
/usr/share/licenses/qzhidapi-tools/nlohmann-json.txt
/usr/share/man/man1/qzhid.1.gz
/usr/share/man/man1/qzhub.1.gz
/usr/share/qzhidapi
/usr/share/qzhidapi/qzhidapi-usbhid.conf
/usr/share/zsh/site-functions/_qzhid
/usr/share/zsh/site-functions/_qzhub
END
needs qzhidapi-tools "qzhidapi\($isa\) += +$version-1|/bin/sh"
query qzhidapi-tools '%{POSTIN}' | grep -q '^ *udevadm trigger ' || fail 'qzhidapi-tools: no udevadm'

# Nothing of this computer, and nothing of this time.
[ "$(query qzhidapi '%{BUILDHOST}')" = localhost ] || fail 'the name of this computer is in it'
sh "$source/packaging/rpm/make.sh" "$build" "$work/again"
for package in "$packages"/*.rpm; do cmp "$package" "$work/again/${package##*/}" || failures=1; done
exit $failures
