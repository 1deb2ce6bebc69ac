# RPM packages in a folder with another system. clean_root_test.sh sources this; it has set $root and $work.

rpm_in_root() { rpm --root "$root" "$@"; }

# install_rpms FILE...: all that they depend on must be there. rpm does not know the files of the system,
# so a package says that it has the C library, the shell and pkg-config. Nothing else is expected there.
install_rpms() {
  rpm_in_root --initdb
  {
    printf '%s\n' 'Name: system' 'Version: 1' 'Release: 1' 'Summary: The system' 'License: none'
    rpm -qp --requires "$@" |
      grep -E '^(lib(c|dl|m|pthread)\.so\.[0-9]|ld-linux-|rtld\(|/bin/sh$|/usr/bin/pkg-config$)' |
      LC_ALL=C sort -u | sed 's/^/Provides: /'
    printf '%s\n' '%description' 'The system.' '%files'
  } > "$work/system.spec"
  rpmbuild -bb --quiet --define "_topdir $work/rpm" --define "_dbpath $work/rpm" "$work/system.spec"
  rpm_in_root -i --ignorearch "$work"/rpm/RPMS/*/*.rpm
  rpm_in_root -i --ignorearch "$@"
}
