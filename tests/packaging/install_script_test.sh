#!/bin/sh
# install_script_test.sh ARCHIVE PROCESSOR: the install.sh of that archive, which is for that processor,
# installs everything, or says what prevents that and changes nothing, and it removes what it has installed.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
archive=$work/archive prefix="$work/a prefix/of two"
mkdir "$archive" "$work/shims"
tar -x -f "$1" -C "$archive" --strip-components=1
echo '{"time": "virtual", "devices": [{"name": "hub", "port": "1"}]}' > "$work/hub.json"
export QZ_VIRTUAL_HUB="$work/hub.json"
failures=0
fail() { echo "$*" >&2; failures=1; }

# expect STATUS TEXT ARGUMENT...: the script ends with that status and prints a line with that text.
expect() {
  status=$1 text=$2 result=0
  shift 2
  PATH=$work/shims:$PATH sh "$archive/install.sh" --no-udev "$@" > "$work/output" 2>&1 || result=$?
  [ "$result" -eq "$status" ] && grep -qF -e "$text" "$work/output" ||
    fail "$*: status $result instead of $status, or no '$text' in: $(cat "$work/output")"
}
# shim PROGRAM: standard input is the script that runs instead of that program.
shim() {
  { echo '#!/bin/sh'; cat; } > "$work/shims/$1"
  chmod +x "$work/shims/$1"
}
# is_on PROCESSOR: the script sees that processor, which may be emulated.
is_on() { echo "[ \$1 = -s ] && echo Linux || echo $1" | shim uname; }
state() { (cd "$work" && [ ! -d 'a prefix' ] || find 'a prefix' \( -type d -o -type l \) -print -o -exec cksum {} + | sort); }
# refuses TEXT ARGUMENT...: the script fails with that text and changes nothing below the prefix.
refuses() {
  state > "$work/before"
  expect 1 "$@" --prefix "$prefix"
  state | diff -u "$work/before" - >&2 || fail "$1: not as before"
}
# is_installed: everything in the archive is installed.
is_installed() {
  for part in bin include lib; do diff -r "$archive/$part" "$prefix/$part" >&2 || fail "another $part"; done
  diff -r "$archive/share" "$prefix/share" | grep -v '^Only in .*/qzhidapi: \(install.sh\|installed\)$' >&2 &&
    fail 'another share'
  "$prefix/bin/qzhid" --virtual list | grep -q '2E7C:0818' || fail 'no hub is listed'
}
removes_all() {
  sh "$prefix/share/qzhidapi/install.sh" --uninstall --prefix "$prefix" > "$work/output" || fail "$(cat "$work/output")"
  [ ! -e "$work/a prefix" ] || fail "left: $(find "$work/a prefix")"
}

is_on "$2"
for arguments in '--prefix' '--prefix=' '--prefix /' '--frobnicate'; do
  # shellcheck disable=SC2086
  expect 2 'usage: install.sh' $arguments
done
expect 0 'usage: install.sh' --help
refuses 'there is nothing in' --uninstall

# What prevents an installation.
mkdir -p "$prefix/share/man/man1"
echo mine > "$prefix/share/man/man1/qzhid.1.gz"
refuses 'share/man/man1/qzhid.1.gz is from something else'
rm -r "$work/a prefix"
mv "$archive/lib/libQzHidAPI.so.1" "$work"
refuses 'lib/libQzHidAPI.so.1 is missing: unpack the archive again'
mv "$work/libQzHidAPI.so.1" "$archive/lib"
is_on riscv64
refuses 'this is Linux on riscv64'
is_on "$2"
mv "$archive/bin/qzhid" "$work"
printf '#!/bin/sh\necho "GLIBC_9 not found" >&2\nexit 1\n' > "$archive/bin/qzhid"
chmod +x "$archive/bin/qzhid"
refuses 'do not run here: GLIBC_9 not found'
mv "$work/qzhid" "$archive/bin"
: > "$work/file"
expect 1 'cannot be written to; run this as root' --prefix "$work/file/below"
echo 'echo "cp: disk full" >&2; exit 1' | shim cp
refuses 'nothing was changed'
rm "$work/shims/cp"

# interrupt ACTION: from now on, this happens before the 30th file is moved.
interrupt() {
  : > "$work/moves"
  shim mv << END
echo >> '$work/moves'
script=\$(cat '$prefix/.qzhidapi-install/process')
[ \$(wc -l < '$work/moves') -ne 30 ] || { $1; }
exec /bin/mv "\$@"
END
}
for action in 'exit 1' 'kill $script'; do
  interrupt "$action"
  refuses 'nothing was changed'
done
rm "$work/shims/mv"
expect 0 'is installed in' --prefix "$prefix"
is_installed

# Another version takes the place of the one before, or that stays.
rm "$archive/share/doc/QzHidAPI/CHANGELOG.md"
echo changed >> "$archive/share/doc/QzHidAPI/README.md"
for action in 'exit 1' 'kill $script'; do
  interrupt "$action"
  refuses 'nothing was changed'
done
state > "$work/installed"
interrupt 'kill -9 $script $PPID; exit 1'
expect 137 '' --prefix "$prefix"
rm "$work/shims/mv"
is_on riscv64
expect 1 'undoing what an interrupted installation did' --prefix "$prefix"
state | diff -u "$work/installed" - >&2 || fail 'the installation before is not back'
is_on "$2"
expect 0 'is installed in' --prefix "$prefix"
is_installed
[ ! -e "$prefix/share/doc/QzHidAPI/CHANGELOG.md" ] || fail 'a file of the version before is left'
removes_all
exit $failures
