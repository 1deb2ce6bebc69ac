#!/bin/sh
# changelog.sh debian|rpm CHANGELOG: prints the project's list of changes, with a heading "## VERSION (DATE)"
# for each release, in that format.
set -eu
format=$1
maintainer=$(sed -n 's/^Maintainer: //p' "$(dirname "$0")/debian/control")
on() { LC_ALL=C date -u -d "$1" "+$2"; }

# begin VERSION DATE, entry TEXT, end: a release, a point of its list, and what comes after the list.
if [ "$format" = debian ]; then
  begin() {
    printf 'qzhidapi (%s) unstable; urgency=medium\n\n' "$1"
    signature=" -- $maintainer  $(on "$2" '%a, %d %b %Y %H:%M:%S %z')"
  }
  entry() { printf '%s\n' "$1" | fold -s -w 75 | sed -e 's/ *$//' -e '1s/^/  * /' -e '2,$s/^/    /'; }
  end() { printf '\n%s\n' "$signature"; }
else
  begin() { printf '* %s %s - %s-1\n' "$(on "$2" '%a %b %d %Y')" "$maintainer" "$1"; }
  entry() { printf '%s\n' "$1" | fold -s -w 75 | sed -e 's/%/%%/g' -e 's/ *$//' -e '1s/^/- /' -e '2,$s/^/  /'; }
  end() { :; }
fi

sed -n '/^## /,$p' "$2" | {
  is_first=yes
  while read -r mark text; do
    case $mark in
      '') ;;
      '##')
        [ $is_first = yes ] || { end; echo; }
        is_first=no date=${text#*\(}
        begin "${text%% *}" "${date%\)}"
        ;;
      -) entry "$text" ;;
      *) entry "$mark $text" ;;
    esac
  done
  end
}
