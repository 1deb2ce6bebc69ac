#!/bin/sh
# build_time_test.sh CMAKE SOURCE: the time that the log gives as that of the build, and where script/package has
# it from.
set -eu
cmake=$1 source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset SOURCE_DATE_EPOCH
fail() { echo "$*" >&2; exit 1; }

# time_of EPOCH: what the log says then.
time_of() {
  echo "include($source/cmake/reproducible.cmake)
    message(\"\${qz_build_day} \${qz_build_time}\")" > "$work/probe.cmake"
  "$cmake" -D "QZ_SOURCE_DATE_EPOCH=$1" -P "$work/probe.cmake" 2>&1
}
# says TEXT EPOCH: in every time zone.
says() {
  for zone in UTC Asia/Tokyo; do
    said=$(TZ=$zone time_of "$2") && [ "$said" = "$1" ] || fail "'$2' gives '$said'"
  done
}
says '"Jan  4 2027" "00:00:05"' 1799020805
says '"Nov 22 2026" "23:59:59"' 1795391999
says '__DATE__ __TIME__' ''
said=$(time_of yesterday) && fail 'a text is accepted as a time'
echo "$said" | grep -q 'not a number of seconds: yesterday' || fail "$said"

# A checkout without git, then one with a commit, then with the variable.
mkdir "$work/script"
cp "$source/script/lib.sh" "$work/script"
printf '# Changes\n\n## 1.1.0 (2027-01-04)\n\n## 1.0.0 (2026-11-22)\n' > "$work/CHANGELOG.md"
printf '. "$(dirname "$0")/lib.sh"\nepoch\n' > "$work/script/probe"
probe() { TZ=Asia/Tokyo bash "$work/script/probe"; }
[ "$(probe)" = 1799020800 ] || fail "without git: $(probe)"
git -C "$work" init --quiet
GIT_COMMITTER_DATE='1700000000 +0100' git -C "$work" -c user.name=a -c user.email=a@b commit --quiet --allow-empty -m a
[ "$(probe)" = 1700000000 ] || fail "with git: $(probe)"
[ "$(SOURCE_DATE_EPOCH=5 probe)" = 5 ] || fail 'the variable is ignored'
rm "$work/.git/HEAD"
if probe 2> "$work/said"; then fail 'a broken checkout has a time'; fi
grep -q 'git does not say when' "$work/said" || fail "$(cat "$work/said")"
