#!/bin/sh
# The manual pages and the completions contain every command and option that the help shows.
. "$(dirname "$0")/lib.sh"
root=$(cd "$(dirname "$0")/../.." && pwd)
machine "$(hub)"

# names SECTION: prints what that section of a help text on standard input lists.
names() { sed -nE "/^$1:/,/^\$/s/^  (-h,)?([-a-z0-9]+).*/\2/p"; }

# offers WORD...: both completions offer the lines of standard input for the last word, in any order.
# What zsh does with them, and which files exist, is not tested.
offers() {
  sort -u > "$work/wanted"
  bash -c '. "$0"; COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); _qzhid; printf "%s\n" "${COMPREPLY[@]}"' \
    "$root/packaging/completion/qzhid.bash" "$qzhid" "$@" | grep . | sort -u > "$work/bash"
  zsh -fc 'fpath=($0 ${^fpath}/compinit(N:h))  # without the completions of others, a thousand
    autoload -Uz compinit && compinit -D -u && [[ $_comps[qzhid] == _qzhid ]] && autoload +X _qzhid
    _describe() { local -a all=(${${(P)@[-1]}%%:*}); print -rl -- ${(M)all:#$PREFIX*}; }
    _files() { print -rl -- $PREFIX*; }
    _message() { :; }
    words=("$@") CURRENT=$# PREFIX=$@[-1]
    _qzhid' "$root/packaging/completion" "$qzhid" "$@" | grep . | sort -u > "$work/zsh"
  for shell in bash zsh; do
    diff -u "$work/wanted" "$work/$shell" >&2 || complain "$shell does not complete '$*'"
  done
}

# check PROGRAM [COMMAND...]: the manual's section on the command contains what its help lists.
check() (
  program=$1 page=$(basename "$1").1
  shift
  "$program" "$@" --help > "$work/help" || complain "no help on '$*'"
  options=$(names Options < "$work/help") commands=$(names Subcommands < "$work/help")
  sed 's/\\-/-/g' "$root/packaging/man/$page" |
    awk -v title="${1:+SS ${page%.1} }${1:-SH OPTIONS}" '/^\.S/ { on = $0 == "." title } on' > "$work/section"
  for option in $options; do
    if [ $# -gt 0 ] && [ "$option" = --help ]; then continue; fi
    grep -qE -e "(^|[^-a-z])$option([^-a-z]|\$)" "$work/section" || complain "$page: no $option under '$*'"
  done
  grep -qE "${2+^\.B $2\$|^\\\\fB$2\\\\fR }" "$work/section" || complain "$page: nothing on '$*'"
  if [ "$program" = "$qzhid" ]; then
    printf '%s\n' "$options" "$common" | offers "$@" --
    [ -z "$commands" ] || echo "$commands" | offers "$@" ''
  fi
  for command in $commands; do check "$program" "$@" "$command" || failures=1; done
  exit $failures
)
common=$("$qzhid" --help | names Options)
for program in "$qzhid" "$qzhub"; do
  check "$program" || failures=1
  name=$(basename "$program")
  groff -ww -man -Tutf8 -z "$root/packaging/man/$name.1" 2>&1 | grep . >&2 && failures=1
  for option in $(sed 's/\\-/-/g' "$root/packaging/man/$name.1" | grep -oE -e '--[a-z][-a-z]*' | grep -vx -e --help); do
    grep -rqF -e "\"$option\"" "$root/tools/$name" || complain "$name has no $option"
  done
done

# Values are hubs (of the library on the command line) or files; options can be between commands.
echo 5 | offers --virtual info ''
echo 5 | offers gpio --library "$(dirname "$qzhid")/../lib/virtual/libQzHidAPI.so.1" get --hub ''
: | offers i2c read --speed ''
echo update | offers --log list --quiet up
cd "$work"
touch new.bin
for option in 'update --image' '--virtual --log' image; do echo new.bin | offers $option ne; done
exit $failures
