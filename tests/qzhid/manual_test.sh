#!/bin/sh
# The manual pages and the completions contain every command and option that the help shows.
. "$(dirname "$0")/lib.sh"
root=$(cd "$(dirname "$0")/../.." && pwd)
machine "$(hub)"

# names SECTION: prints what that section of a help text on standard input lists.
names() { sed -nE "/^$1:/,/^([A-Z]|\$)/s/^  ([-a-z0-9][-a-z0-9,]*).*/\1/p" | tr , '\n'; }

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
    case ${1:+$option} in -h | --help) continue ;; esac
    grep -qE -e "(^|[^-a-z])$option([^-a-z]|\$)" "$work/section" || complain "$page: no $option under '$*'"
  done
  grep -qE "${2+^\.B $2\$|^\\\\fB$2\\\\fR }" "$work/section" || complain "$page: nothing on '$*'"
  if [ "$program" = "$qzhid" ]; then
    printf '%s\n' "$options" "$common" | offers "$@" -
    [ -z "$commands" ] || echo "$commands" | offers "$@" ''
  fi
  for command in $commands; do check "$program" "$@" "$command" || failures=1; done
  exit $failures
)
common=$("$qzhid" --help | names Options)
for program in "$qzhid" "$qzhub"; do
  check "$program" || failures=1
  name=$(basename "$program")
  groff -t -ww -man -Tutf8 -z "$root/packaging/man/$name.1" 2>&1 | grep . >&2 && failures=1
  for option in $(sed 's/\\-/-/g' "$root/packaging/man/$name.1" | grep -oE -e '--[a-z][-a-z0-9]*' | grep -vx -e --help); do
    grep -rqE "[\",]$option\"" "$root/tools/$name" || complain "$name has no $option"
  done
done

# Values are hubs (of the library on the command line, by port id and name), files or words; options
# can be between commands.
mkdir -p "$work/config/qzhid"
export XDG_CONFIG_HOME="$work/config"
for command in info update recover 'gpio get' 'i2c read' 'flash erase'; do
  echo 1-3.1 | offers --virtual $command --hub ''
done
echo 'bay 3 = 1-3.1' > "$work/config/qzhid/ports.conf"
printf '%s\n' 1-3.1 'bay 3' | offers gpio --library "$(dirname "$qzhid")/../lib/virtual/libQzHidAPI.so.1" get --hub ''
echo 'bay 3' | offers --virtual info --hub 'bay'
echo 'bay 3' | offers --virtual update -i new.bin --hub 1-3.1 --hub 'ba'
: | offers --virtual info ''
: | offers i2c read --speed ''
echo lines | offers update --progress l
echo update | offers --log list --quiet up
cd "$work"
touch new.bin
for option in 'update --image' 'update --hub 1 -i' 'update --dry-run --image' '--virtual --log' image; do echo new.bin | offers $option ne; done
exit $failures
