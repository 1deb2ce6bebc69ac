#!/bin/sh
# run_installer.sh FOLDER: the installer in FOLDER installs silently for all users, replaces the older
# version there, in the folder that was chosen for it, is not replaced by that one, and removes everything.
set -u
cd "$1" || exit 1
new=$(echo QzHidAPI-*.msi)
version=$(echo "$new" | cut -d- -f2)
wine=/usr/lib/wine/wine64
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
drive=$WINEPREFIX/drive_c
failures=0
complain() { printf '%s\n' "$*"; failures=1; }

key() { $wine reg query "HKLM\\$1" /s | tr -d '\r'; }
# Wine leaves the separator of an entry that it removes.
path() {
  key 'System\CurrentControlSet\Control\Session Manager\Environment' |
    sed -n 's/^ *PATH *REG_[A-Z_]* *//p' | tr -s ';' | sed 's/;$//'
}
installed='Software\Microsoft\Windows\CurrentVersion\Uninstall'
# records: what the system has recorded of products.
records() {
  for key in "$installed" 'Software\QzHidAPI' 'Software\Classes\Installer' \
    'Software\Microsoft\Windows\CurrentVersion\Installer'; do
    key "$key"
  done
}
# run STATUS ARGUMENT...: msiexec without a window ends with that status.
run() {
  expected=$1
  shift
  $wine msiexec "$@" /qn
  status=$?
  [ $status -eq "$expected" ] || complain "msiexec $*: status $status"
}
# check WHAT VERSION FOLDER FILES: that version is installed, alone, in that folder of drive C, with the files
# in the list FILES.
check() {
  versions=$(key "$installed" | sed -n 's/^ *DisplayVersion *REG_SZ *//p' | sort -u)
  [ "$versions" = "$2" ] || complain "$1: installed are: $versions"
  [ "$(path)" = "$own_path;C:\\$3\\bin" ] || complain "$1: the PATH is: $(path)"
  (cd "$drive/$(echo "$3" | tr '\\' /)" && find . -type f | LC_ALL=C sort) | diff "$4" - || complain "$1: other files"
}
# check_removed: the system is as it was.
check_removed() {
  [ "$(path)" = "$own_path" ] || complain "removed: the PATH is: $(path)"
  records | grep -iE '\{|[0-9a-f]{32}|qzhid' && complain 'removed: records are left'
  find "$drive" | LC_ALL=C sort | diff "$work/files" - || complain 'removed: files are left'
}

own_path=$(path)
mkdir -p "$drive/windows/Installer" # which the system makes
find "$drive" | LC_ALL=C sort > "$work/files"
run 0 /i older.msi 'INSTALLDIR=C:\Hub tools'
check 'installed in another folder' 0.9.0 'Hub tools' older.txt
run 0 /i "$new"
check 'upgraded' "$version" 'Hub tools' new.txt
run 67 /i older.msi # ERROR_INSTALL_FAILURE, of which a process has eight bits
check 'not replaced' "$version" 'Hub tools' new.txt
for folder in bin bin/virtual; do echo log > "$drive/Hub tools/$folder/info.txt"; done
run 0 /x "$new"
check_removed
run 0 /i "$new"
check 'installed' "$version" 'Program Files\QzHidAPI' new.txt
$wine "$drive/Program Files/QzHidAPI/bin/qzhid.exe" --virtual list | grep -q '^1-3.1 ' || complain 'qzhid does not work'
run 0 /x "$new"
check_removed
exit $failures
