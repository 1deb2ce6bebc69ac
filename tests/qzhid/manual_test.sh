#!/bin/sh
# The help, the manual pages and the completions agree about every command and option.
. "$(dirname "$0")/lib.sh"
root=$(cd "$(dirname "$0")/../.." && pwd)
machine "$(hub)"

# names SECTION: prints what that section of a help text on standard input lists.
names() { sed -nE "/^$1:/,/^([A-Z]|\$)/s/^  ([-a-z0-9][-a-z0-9,]*).*/\1/p" | tr , '\n'; }

# offers WORD...: both completions of the program offer the lines of standard input for the last word, in
# any order. What zsh does with them, and which files exist, is not tested.
offers() {
  grep . | sort -u > "$work/wanted"
  bash -c '. "$0/$1.bash"; f=_$1; shift; COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); $f; printf "%s\n" "${COMPREPLY[@]}"' \
    "$root/packaging/completion" "$(basename "$program")" "$program" "$@" | grep . | sort -u > "$work/bash"
  zsh -fc 'fpath=($0 ${^fpath}/compinit(N:h))  # without the completions of others, a thousand
    f=_$1
    autoload -Uz compinit && compinit -D -u && [[ $_comps[$1] == $f ]] && autoload +X $f
    shift
    _describe() { local -a all=(${${(P)@[-1]}%%:*}); print -rl -- ${(M)all:#$PREFIX*}; }
    _files() { print -rl -- $PREFIX*; }
    _message() { :; }
    words=("$@") CURRENT=$# PREFIX=$@[-1]
    $f' "$root/packaging/completion" "$(basename "$program")" "$program" "$@" | grep . | sort -u > "$work/zsh"
  for shell in bash zsh; do
    diff -u "$work/wanted" "$work/$shell" >&2 || complain "$shell does not complete '$*'"
  done
}

# values COMMAND...: after each option of a help text on standard input, both completions offer what it
# can have as its value. Each option is tried once, because the completions know none by name.
values() {
  sed -nE 's/^  (-[-a-z0-9,]+) ([A-Z]+)([^a-z].*|$)/\1 \2/p' | while read -r names kind; do
    for option in $(echo "$names" | tr , ' '); do
      ! grep -qxFe "$kind $option" "$work/tried" || continue
      echo "$kind $option" >> "$work/tried"
      case $kind in
        HUB) ;;  # see below
        FILE) echo new.bin | offers "$@" "$option" ne ;;
        MODE) printf '%s\n' auto lines json | offers "$@" "$option" '' ;;
        *) : | offers "$@" "$option" '' ;;
      esac
    done
  done
}

# check [COMMAND...]: the manual's section on the command contains what its help lists, and no other
# option; and the completions offer that.
check() (
  page=$(basename "$program").1
  "$program" "$@" --help > "$work/help" || complain "no help on '$*'"
  options=$(names Options < "$work/help") commands=$(names Subcommands < "$work/help")
  sed 's/\\-/-/g' "$root/packaging/man/$page" |
    awk -v title="${1:+SS ${page%.1} }${1:-SH OPTIONS}" '/^\.S/ { on = $0 == "." title } on' > "$work/section"
  for option in $options; do
    case ${1:+$option} in -h | --help) continue ;; esac
    grep -qE -e "(^|[^-a-z])$option([^-a-z]|\$)" "$work/section" || complain "$page: no $option under '$*'"
  done
  grep -qE "${2+^\.B $2\$|^\\\\fB$2\\\\fR }" "$work/section" || complain "$page: nothing on '$*'"
  if [ $# -lt 2 ]; then
    known=$(for command in '' ${1:+$commands}; do "$program" "$@" $command --help | names Options; done)
    for option in $(awk 'on; { on = $0 == ".TP" }' "$work/section" | grep -oE -e '--[a-z][-a-z0-9]*'); do
      echo "$known" | grep -qxFe "$option" || complain "$page: '$*' has no $option"
    done
  fi
  { echo "$options"; names 'Common options' < "$work/help"; } | offers "$@" -
  offered=$commands
  [ "$*" != help ] || offered=$("$program" --help | names Subcommands)
  grep -q '^  FILE ' "$work/help" || echo "$offered" | offers "$@" ''
  values "$@" < "$work/help"
  for command in $commands; do check "$@" "$command"; done
)
cd "$work"
touch new.bin
: > "$work/tried"
for program in "$qzhub" "$qzhid"; do
  check
  name=$(basename "$program")
  groff -t -ww -man -Tutf8 -z "$root/packaging/man/$name.1" 2>&1 | grep . >&2 && failures=1
  for option in $(sed 's/\\-/-/g' "$root/packaging/man/$name.1" | grep -oE -e '--[a-z][-a-z0-9]*' | grep -vx -e --help); do
    grep -rqE "[\",]$option\"" "$root/tools/$name" || complain "$name has no $option"
  done
done

# The values of --hub, of the library on the command line, are port ids and names. Options can be between
# commands. Help completes commands, too.
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
echo lines | offers update --progress l
echo update | offers --log list --quiet up
echo update | offers help up
echo drive | offers help gpio d
for option in 'update --hub 1 -i' '--virtual --log' image; do echo new.bin | offers $option ne; done
exit $failures
