#!/usr/bin/env bash
# counts.sh FOLDER TABLE NAME...: prints the rows of what does not depend on the speed of the computer,
# with the programs in FOLDER. TABLE is a document that has the expected counts in lines such as
# "| `instructions/request/out` | 1,234 |". The rows are those that begin with one of the names.
set -euo pipefail
shopt -s inherit_errexit
folder=$1 table=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export QZ_VIRTUAL_HUB=$work/scenario.json
export TZ=UTC0 # the file of a time zone is looked at once a second, however many lines that are
echo '{"time": "virtual", "devices": [{"name": "hub", "port": "1"}]}' >"$QZ_VIRTUAL_HUB"

# executed COMMAND...: the instructions of a whole process.
executed() {
  valgrind --tool=callgrind --callgrind-out-file=/dev/null "$@" >/dev/null 2>"$work/report" &&
    sed -n 's/.*Collected : \([0-9]*\).*/\1/p' "$work/report"
}
# called COMMAND...: its system calls.
called() { strace -f -c -o "$work/report" "$@" >/dev/null && awk '$NF == "total" { print $4 }' "$work/report"; }

# each COUNT TIMES PROGRAM WORK: what COUNT says of doing the work once.
each() {
  local few many
  few=$("$1" "$folder/$3" count "$4" "$2")
  many=$("$1" "$folder/$3" count "$4" $(($2 * 3)))
  echo $(((many - few) / (2 * $2)))
}
# own TIMES WORK: the instructions that the library adds to the calls of the platform interface.
own() { echo $(($(each executed "$1" bench_virtual "$2") - $(each executed "$1" bench_virtual "$2/bare"))); }

# row NAME GROWTH COMMAND...: prints the row if it is wanted. The count must not be higher than the
# expected one by more than GROWTH percent; if that is 0, it must be the same.
row() {
  local name=$1 growth=$2 wanted count expected
  shift 2
  for wanted in "${names[@]}"; do [[ $name != "$wanted"* ]] || break; done
  [[ $name == "$wanted"* ]] || return 0
  expected=$(sed -n "s|^. \`$name\` . \([0-9,]*\) .*|\1|p" "$table" | tr -d ,)
  count=$("$@")
  [ -n "$count" ] && [ -n "$expected" ] || { echo "not counted: $name" >&2; exit 1; }
  awk -v name="$name" -v count="$count" -v expected="$expected" -v growth="$growth" 'BEGIN {
    OFS = "\t"
    change = 100 * (count / expected - 1)
    figure = change == 0 ? "the same" : sprintf("%s by %.1f %%", change > 0 ? "grown" : "fallen",
      change < 0 ? -change : change)
    isMet = growth > 0 ? change <= growth : change == 0
    limit = growth > 0 ? "grown by " growth " %" : "the same"
    print name, count, expected, figure, limit, isMet ? "pass" : "MISS"
  }'
}

names=("$@")
row instructions/request/out 5 own 2000 request/out
row instructions/request/in 5 own 2000 request/in
row instructions/listing 5 own 10 listing
row instructions/log/heard 5 each executed 2000 bench_log log/heard
row instructions/log/unheard 5 each executed 20000 bench_log log/unheard
row instructions/update 5 each executed 5 bench_virtual update
row instructions/start/virtual 5 executed "$folder/qzhid" --virtual list
row instructions/start/help 5 executed "$folder/qzhid" --help
for others in 5 20 100; do
  row system_calls/listing/$others 0 each called 5 bench_linux listing/$others
  row system_calls/scan/$others 0 each called 5 bench_linux scan/$others
done
row system_calls/log 0 each called 100 bench_log log/heard
row system_calls/start/virtual 5 called "$folder/qzhid" --virtual list
row system_calls/start/help 5 called "$folder/qzhid" --help
