#!/usr/bin/env bash
# check_includes.sh ROOT: reports every include under ROOT of a layer above, and fails if there is one.
set -euo pipefail
cd "$1"
ls -d src virtualhub tools/qzhid >/dev/null

# may_use FOLDER: prints the folders that its files are allowed to include.
may_use() {
  case $1 in
    src/api) echo api flow discovery device firmware transport log platform QzHidAPI.h ;;
    src/flow) echo flow discovery device firmware transport log platform ;;
    src/discovery) echo discovery device firmware transport log platform QzHidAPI.h ;;
    src/device) echo device firmware transport log platform ;;
    src/firmware) echo firmware log platform ;;
    src/transport) echo transport log platform ;;
    src/log) echo log platform ;;
    src/platform/virtual) echo platform virtualhub QzHidAPI.h ;;
    src/platform*) echo platform QzHidAPI.h ;;
    virtualhub*) echo virtualhub ;;
    tools/qzhid*) echo qzhid common virtualhub QzHidAPI.h ;;
  esac
}

bad=0
while IFS=: read -r file line path; do
  folder=${file%/*}
  case " $(may_use "$folder") " in
    *" ${path%%/*} "*) ;;
    *)
      echo "$file:$line: $folder must not include \"$path\""
      bad=1
      ;;
  esac
done < <(grep -rn '^ *# *include *"' --include='*.h' --include='*.cpp' src virtualhub tools/qzhid |
  sed 's/# *include *"\([^"]*\)".*/\1/; s/: */:/g')
exit $bad
