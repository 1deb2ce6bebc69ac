#!/usr/bin/env bash
# serve_test.sh QZHUB: serve goes on when nobody reads what it prints, keeps its descriptors apart from
# what it prints, and ends soon after a signal.
set -eu
qzhub=$1
work=$(mktemp -d)
server=
trap '[ -z "$server" ] || kill -KILL "$server" 2>/dev/null; rm -rf "$work"' EXIT
failures=0
fail() { echo "$*" >&2; failures=1; }

# address LINE: sets host and port to those of a line "listening HOST:PORT".
address() { port=${1##*:} host=${1#listening } host=${host%:*}; }

zeros() { head -c "$1" /dev/zero; }

# submit SETUP: prints a command for the device 1-1, an OUT transfer of 320 bytes with that setup packet.
submit() {
  printf '\0\0\0\x01\0\0\0\x01\0\x01\0\x01'
  zeros 14
  printf '\x01\x40\0\0\0\0\xff\xff\xff\xff\0\0\0\0'
  printf '%b' "$1"
  zeros 320
}

# import: connects descriptor 4 and imports the device 1-1, which then rejects an unknown request.
import() {
  exec 4<>"/dev/tcp/$host/$port" || return 1
  { printf '\x01\x11\x80\x03\0\0\0\0001-1'; zeros 29; submit '\x40\x7f\0\0\0\0\x40\x01'; } >&4
  [ "$(timeout 10 head -c 368 <&4 | tail -c 28 | od -An -v -tx1 | tr -d ' \n' | cut -c 1-8)" = ffffffe0 ]
}

# stop: whether the server ends long before a transfer that is under way.
stop() {
  local pid=$server
  kill -TERM "$pid"
  timeout 10 tail --pid="$pid" -s 0.05 -f /dev/null || return 1
  server=
  wait "$pid"
}

echo '{"devices": [{"name": "hub", "port": "1", "timing": {"latency_us": 60000000}}]}' >"$work/slow.json"
mkfifo "$work/events"

# A pipe on standard output that is full.
exec 3<>"$work/events"
"$qzhub" serve --listen 127.0.0.1:0 --scenario "$work/slow.json" >"$work/events" 2>"$work/remarks" &
server=$!
read -r _ <&3
read -r line <&3
address "$line"
dd if=/dev/zero of="$work/events" oflag=nonblock bs=4096 count=1000 2>/dev/null || true
import || fail 'nothing is imported while nobody reads the events'

# A transfer of a minute: SET_REPORT.
submit '\x21\x09\0\x02\0\0\x40\x01' >&4
sleep 0.2
stop || fail 'SIGTERM does not end it while a transfer is under way'
exec 3<&- 4<&-

# A pipe on standard output that its reader closes.
"$qzhub" serve --listen 127.0.0.1:0 >"$work/events" 2>"$work/remarks" &
server=$!
address "$(sed -n '/^listening/{p;q}' <"$work/events")"
for try in 1 2 3; do
  (import) || fail "nothing is imported after the reader of the events has gone (client $try)"
  sleep 0.1
done
stop || fail 'it does not end well without a reader'

# No standard streams.
for closed in '<&-' '>&-' '2>&-' '<&- >&- 2>&-'; do
  eval "exec $qzhub serve --listen 127.0.0.1:0 $closed" </dev/null >/dev/null 2>&1 &
  server=$!
  for _ in $(seq 100); do
    if find "/proc/$server/fd" -lname 'socket:*' | grep -q .; then break; fi
    sleep 0.05
  done
  for stream in 0 1 2; do
    [ "$(readlink "/proc/$server/fd/$stream")" = /dev/null ] || fail "with $closed, descriptor $stream is used"
  done
  stop || fail "with $closed, it does not end well"
done
exit $failures
