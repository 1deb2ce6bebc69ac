#!/bin/sh
# The manual pages and the completions have every command and option that the help shows.
. "$(dirname "$0")/lib.sh"
here=$(cd "$(dirname "$0")" && pwd)
packaging=$here/../../packaging
machine "$(hub)"

# names SECTION: what a help on standard input lists there.
names() { sed -nE "/^$1:/,/^\$/s/^  (-h,)?([-a-z0-9]+).*/\2/p"; }

# offers WORD...: both completions offer the lines of standard input for the last word, in any order.
offers() {
  sort -u > "$work/wanted"
  bash "$here/complete.bash" "$packaging/completion/qzhid.bash" "$qzhid" "$@" | sort -u > "$work/bash"
  zsh -f "$here/complete.zsh" "$packaging/completion" "$qzhid" "$@" | sort -u > "$work/zsh"
  for shell in bash zsh; do
    diff -u "$work/wanted" "$work/$shell" >&2 || complain "$shell does not complete '$*'"
  done
}

# check PROGRAM [COMMAND...]: the manual's section on the command has what its help lists.
check() (
  program=$1 name=$(basename "$1")
  shift
  "$program" "$@" --help > "$work/help" || complain "$name $*: no help"
  options=$(names Options < "$work/help") commands=$(names Subcommands < "$work/help")
  sed 's/\\-/-/g' "$packaging/man/$name.1" |
    awk -v title="${1:+SS $name }${1:-SH OPTIONS}" '/^\.S/ { on = $0 == "." title } on' > "$work/section"
  for option in $options; do
    if [ $# -gt 0 ] && [ "$option" = --help ]; then continue; fi
    grep -qE -e "(^|[^-a-z])$option([^-a-z]|\$)" "$work/section" ||
      complain "$name.1 has no $option in its section on '$*'"
  done
  [ $# -eq 0 ] || [ -s "$work/section" ] || complain "$name.1 has no section on $1"
  [ $# -lt 2 ] || grep -qE "^\.B $2\$|^\\\\fB$2\\\\fR " "$work/section" ||
    complain "$name.1 has no $2 in its section on $1"
  if [ "$program" = "$qzhid" ]; then
    { echo "$options"; "$qzhid" --help | names Options; } | offers "$@" --
    [ -z "$commands" ] || echo "$commands" | offers "$@" ''
  fi
  for command in $commands; do check "$program" "$@" "$command" || failures=1; done
  exit $failures
)
check "$qzhid" || failures=1
check "$qzhub" || failures=1

for page in qzhid qzhub; do
  groff -ww -man -Tutf8 -z "$packaging/man/$page.1" 2>&1 | grep . && complain "$page.1 has warnings"
  sed 's/\\-/-/g' "$packaging/man/$page.1" | grep -oE -e '--[a-z][-a-z]*' | sort -u | grep -vx -e --help | while read -r option; do
    grep -rqF -e "\"$option\"" "$here/../../tools/$page" || echo "$page.1 has $option, which $page has not"
  done | grep . >&2 && failures=1
done

# Values: hubs of the library that the command line names, files, subcommands behind options.
echo 5 | offers --virtual info ''
echo 5 | offers gpio --library "$(dirname "$qzhid")/../lib/virtual/libQzHidAPI.so.1" get --hub ''
: | offers i2c read --speed ''
echo update | offers --log list --quiet up
cd "$work"
touch new.bin
for option in '--image' '--virtual --log' '--library'; do echo new.bin | offers update $option ne; done
echo new.bin | offers image ne
exit $failures
