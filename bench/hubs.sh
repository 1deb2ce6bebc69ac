#!/bin/sh
# hubs.sh QZHID QZHUB COUNT: prints the rows that compare updating so many virtual hubs at once with
# updating one, in real time and with their default latency: the time, and the memory of a worker.
set -eu
qzhid=$1 count=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export QZ_VIRTUAL_HUB="$work/scenario.json"
"$2" image --out "$work/new.bin" --version 0210

# update COUNT: updates a machine with so many hubs.
update() {
  devices=
  for port in $(seq "$1"); do
    devices="$devices${devices:+, }{\"name\": \"hub$port\", \"port\": \"$port\"}"
  done
  echo "{\"time\": \"real\", \"devices\": [$devices]}" > "$QZ_VIRTUAL_HUB"
  exec "$qzhid" --virtual update --all --jobs "$1" --yes --quiet --image "$work/new.bin"
}

# best COUNT: the best of three runs, in milliseconds.
best() {
  best=
  for run in 1 2 3; do
    start=$(date +%s%N)
    (update "$1")
    took=$((($(date +%s%N) - start) / 1000000))
    if [ "$run" -eq 1 ] || [ "$took" -lt "$best" ]; then best=$took; fi
  done
  echo "$best"
}

# memory COUNT: "PRIVATE PSS PEAK", the KiB of a worker: those that are its own and its share of all,
# each when all workers together have most; and the largest resident set.
memory() {
  update "$1" &
  updating=$!
  while kill -0 $updating 2>/dev/null; do
    workers=$(cat "/proc/$updating/task/$updating/children" 2>/dev/null || true)
    for worker in $workers; do
      cat "/proc/$worker/smaps_rollup" "/proc/$worker/status" 2>/dev/null || true
    done | awk '/^Private_(Clean|Dirty):/ { own += $2 } /^Pss:/ { pss += $2 }
      /^VmHWM:/ { if ($2 > peak) peak = $2 } END { print own + 0, pss + 0, peak + 0 }'
    sleep 0.1
  done | awk -v count="$1" '{ for (i = 1; i <= 3; ++i) if ($i > most[i]) most[i] = $i }
    END { print most[1] / count, most[2] / count, most[3] }'
  wait $updating
}

{ best 1; best "$count"; memory 1; memory "$count"; } | awk -v count="$count" '
  { first[NR] = $1; second[NR] = $2; third[NR] = $3 }
  function row(name, measured, baseline, figure, limit, unit) {
    printf "hubs/%d%s\t%s\t%s\t%.2f %s\t%.1f %s\t%s\n", count, name, measured, baseline, figure, unit,
      limit, unit, (figure > limit) ? "MISS" : "pass"
  }
  END {
    if (first[4] == 0) exit 1
    row("", sprintf("%.2f s", first[2] / 1000), sprintf("%.2f s", first[1] / 1000),
      first[2] / first[1], count > 8 ? 1.5 : 1.2, "times")
    row("/memory", sprintf("%.1f MiB shared fairly, at most %.1f MiB resident", second[4] / 1024,
      third[4] / 1024), sprintf("%.2f MiB of one", first[3] / 1024), first[4] / 1024, 4, "MiB")
  }'
