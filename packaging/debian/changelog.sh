#!/bin/sh
# changelog.sh CHANGELOG: prints the project's list of changes, with a heading "## VERSION (DATE)" for each
# release, in the format of Debian.
set -eu
maintainer=$(sed -n 's/^Maintainer: //p' "$(dirname "$0")/control")
end=

# release VERSION DATE: ends the release above it, and begins this one.
release() {
  [ -z "$end" ] || printf '\n%s\n\n' "$end"
  end=" -- $maintainer  $(LC_ALL=C date -u -d "$2" '+%a, %d %b %Y %H:%M:%S %z')"
  printf 'qzhidapi (%s) unstable; urgency=medium\n\n' "$1"
}
# entry TEXT: a point of the list, in lines that are short enough.
entry() { printf '%s\n' "$1" | fold -s -w 75 | sed -e 's/ *$//' -e '1s/^/  * /' -e '2,$s/^/    /'; }

sed -n '/^## /,$p' "$1" | {
  while read -r mark text; do
    case $mark in
      '') ;;
      '##')
        date=${text#*\(}
        release "${text%% *}" "${date%\)}"
        ;;
      -) entry "$text" ;;
      *) entry "$mark $text" ;;
    esac
  done
  printf '\n%s\n' "$end"
}
