#!/bin/sh
# run_installer.sh FOLDER: the installer in FOLDER installs silently for all users, replaces the older
# version there, is not replaced by that one, and removes everything again.
set -u
cd "$1" || exit 1
new=$(echo QzHidAPI-*.msi)
version=$(echo "$new" | cut -d- -f2)
wine=/usr/lib/wine/wine64
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
programs=$WINEPREFIX/drive_c/Program\ Files
failures=0
complain() { printf '%s\n' "$*"; failures=1; }

key() { $wine reg query "HKLM\\$1" /s | tr -d '\r'; }
# Wine leaves the separator of an entry that it removes.
path() {
  key 'System\CurrentControlSet\Control\Session Manager\Environment' |
    sed -n 's/^ *PATH *REG_[A-Z_]* *//p' | tr -s ';' | sed 's/;$//'
}
# records: what the system's installer has recorded of products.
records() {
  for key in 'Software\Classes\Installer' 'Software\Microsoft\Windows\CurrentVersion\Installer' \
    'Software\Microsoft\Windows\CurrentVersion\Uninstall'; do
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
# check WHAT VERSION FILES: that version is installed, alone, with the files in the list FILES.
check() {
  versions=$(records | sed -n 's/^ *DisplayVersion *REG_SZ *//p' | sort -u)
  [ "$versions" = "$2" ] || complain "$1: installed are: $versions"
  [ "$(path)" = "$own_path;C:\\Program Files\\QzHidAPI\\bin" ] || complain "$1: the PATH is: $(path)"
  (cd "$programs/QzHidAPI" && find . -type f | LC_ALL=C sort) | diff "$3" - || complain "$1: other files"
}

own_path=$(path)
mkdir -p "$WINEPREFIX/drive_c/windows/Installer" # which the system makes
find "$WINEPREFIX/drive_c" | LC_ALL=C sort > "$work/files"
run 0 /i older.msi
check 'installed' 0.9.0 older.txt
run 0 /i "$new"
check 'upgraded' "$version" new.txt
$wine "$programs/QzHidAPI/bin/qzhid.exe" --virtual list | grep -q '^1-3.1 ' || complain 'qzhid does not work'
run 67 /i older.msi # ERROR_INSTALL_FAILURE, of which a process has eight bits
check 'not replaced' "$version" new.txt
echo log > "$programs/QzHidAPI/bin/info.txt"
run 0 /x "$new"
[ "$(path)" = "$own_path" ] || complain "removed: the PATH is: $(path)"
records | grep -iE '\{|[0-9a-f]{32}|qzhid' && complain 'removed: records are left'
find "$WINEPREFIX/drive_c" | LC_ALL=C sort | diff "$work/files" - || complain 'removed: files are left'
exit $failures
