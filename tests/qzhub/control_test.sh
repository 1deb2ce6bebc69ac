#!/usr/bin/env bash
# control_test.sh QZHUB QZHID: devices that are plugged, unplugged and lose their power while programs
# run on them: through the control file of a scenario, and through standard input.
set -eu
qzhub=$1 qzhid=$2
work=$(mktemp -d)
server=
trap '[ -z "$server" ] || kill -KILL "$server" 2>/dev/null; rm -rf "$work"' EXIT
export QZ_VIRTUAL_HUB="$work/hubs.json" XDG_CONFIG_HOME="$work/config" NO_COLOR=1
failures=0
fail() { echo "$*" >&2; failures=1; }

# expect STATUS TEXT COMMAND...: the command ends with that status and prints that text, or nothing.
expect() {
  local wanted=$1 text=$2 status=0
  shift 2
  "$@" >"$work/output" 2>&1 </dev/null || status=$?
  if [ "$status" -ne "$wanted" ] || ! grep -qF -- "$text" "$work/output" && [ -s "$work/output" ]; then
    fail "$*: status $status instead of $wanted, or no '$text' in: $(cat "$work/output")"
  fi
}

# control STATUS TEXT ARGUMENT...: the same for qzhub with the scenario.
control() { expect "$1" "$2" "$qzhub" "${@:3}" --scenario "$work/hubs.json"; }

# until_true COMMAND...: waits until the command succeeds, for ten seconds at most.
until_true() {
  for _ in $(seq 200); do
    "$@" && return
    sleep 0.05
  done
  fail "never: $*"
}

timing='"timing": {"latency_us": 500, "leave_ms": 1, "return_ms": 260}'
cat >"$work/hubs.json" <<END
{"control": "lines", "state_folder": "state", "devices": [
  {"name": "one", "port": "3.1", $timing}, {"name": "two", "port": "3.1", "plugged": false},
  {"name": "three", "port": "4", "plugged": false}]}
END
echo '{"devices": [{"name": "one", "port": "1"}]}' >"$work/without.json"

# The commands add a line, or say why they do not.
control 0 '' unplug one
control 0 '' plug three 5
control 0 '' plug two
control 0 '' power-loss two 20
control 1 'hubs.json: there is no device "four"' plug four
control 1 '"x" is not a port' plug one x
control 1 '"5s" is not a number of milliseconds' power-loss one 5s
control 2 '' unplug one 5
expect 1 'without.json: the scenario has no control file' "$qzhub" plug one --scenario "$work/without.json"
expect 2 '--scenario is required' "$qzhub" unplug one
diff - "$work/lines" <<END || fail 'other lines were added'
unplug one
plug three 5
plug two
power-loss two 20
END
mv "$work/lines" "$work/elsewhere"
mkdir "$work/lines"
control 1 'lines cannot be written: Is a directory' plug one
rmdir "$work/lines"
mv "$work/elsewhere" "$work/lines"

# ports: the ports of the hubs that a new process finds.
ports() { "$qzhid" --virtual list 2>&1 | awk 'NR > 1 {printf "%s ", $1}'; }
[ "$(ports)" = '1-3.1 1-5 ' ] || fail "the hubs are at $(ports)"
control 0 '' unplug two
control 0 '' plug one
[ "$(ports)" = '1-3.1 1-5 ' ] || fail "later the hubs are at $(ports)"

# A hub that is unplugged while a worker process writes it, and comes back in its loader.
"$qzhub" image --out "$work/new.bin" --version 2.10
: >"$work/update"
"$qzhid" --virtual update --hub 1-3.1 -i "$work/new.bin" --yes --retries 0 --wait 1 --progress lines \
  >"$work/update" 2>&1 </dev/null &
until_true grep -q 'writing' "$work/update"
control 0 '' unplug one
status=0
wait $! || status=$?
[ $status -eq 6 ] || fail "an update without a hub ends with status $status: $(cat "$work/update")"
[ "$(ports)" = '1-5 ' ] || fail "after it was unplugged, the hubs are at $(ports)"
control 0 '' plug one
expect 0 'loader' "$qzhid" --virtual list
expect 0 '2.10' "$qzhid" --virtual recover --hub 1-3.1 -i "$work/new.bin" --yes

# devices ADDRESS: how many devices a server offers.
devices() {
  local host=${1%:*} port=${1##*:}
  exec 4<>"/dev/tcp/$host/$port"
  printf '\x01\x11\x80\x05\0\0\0\0' >&4
  timeout 10 head -c 12 <&4 | tail -c 1 | od -An -tu1 | tr -d ' '
  exec 4<&-
}
offers() { [ "$(devices "$address")" = "$1" ]; }

# Standard input, in pieces, and the control file of a server that nobody asks for anything.
mkfifo "$work/input"
"$qzhub" serve --listen 127.0.0.1:0 --scenario "$work/hubs.json" <"$work/input" >"$work/events" 2>"$work/remarks" &
server=$!
exec 3>"$work/input"
until_true grep -q '^listening' "$work/events"
address=$(sed -n 's/^listening //p' "$work/events")
until_true offers 2
printf 'unplug one\nplug t' >&3
until_true offers 1
printf 'wo\nplug nobody\n' >&3
until_true offers 2
until_true grep -qx 'qzhub: standard input:3: there is no device "nobody"' "$work/remarks"
echo 'unplug nobody' >>"$work/lines"
until_true grep -qx "virtualhub: $work/lines:9: there is no device \"nobody\"" "$work/remarks"
# A line without an end fills no memory.
head -c 70000 /dev/zero | tr '\0' x >&3
until_true grep -qx 'qzhub: standard input: a line has more than 65536 bytes; it is read no more' "$work/remarks"
exec 3>&-
control 0 '' unplug two
until_true offers 1
kill -TERM $server
wait $server || fail "serve ended with status $?"
server=
exit $failures
