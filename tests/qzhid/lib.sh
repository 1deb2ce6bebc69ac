# What the tests of qzhid share. They are called with QZHID QZHUB and run the program on virtual hubs.
set -eu
qzhid=$1
qzhub=$2
work=$(mktemp -d)
# A complaint in a subshell, such as the end of a pipeline, counts, too.
trap 'ended=$?; [ ! -e "$work/failed" ] || ended=1; rm -rf "$work"; exit $ended' EXIT
export QZ_VIRTUAL_HUB="$work/scenario.json" XDG_CONFIG_HOME="$work/config" NO_COLOR=1
failures=0
usb='PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)'
# How the program begins each JSON object, and describes that hub inside one.
head='{
  "schema": 1,'
hub_member='  "hub": {
    "port_id": "1-3.1",
    "name": null,
    "vid": "2E7C",
    "pid": "0818",
    "location": "'$usb'",
    "level": 2,
    "port": 1,
    "instance": 5
  },'

# machine DEVICES [FAULTS [MORE]]: the next runs have this machine, with virtual time.
machine() {
  printf '{"time": "%s", "devices": [%s], "faults": [%s]%s}\n' "${TIME-virtual}" "$1" "${2-}" "${3-}" > "$QZ_VIRTUAL_HUB"
}

# slow DEVICES [MORE]: the same in real time, where an update takes long enough to be disturbed. (The
# hub stays away for two scans, so that the library notices that it has left.)
slow() { printf '{"devices": [%s]%s}\n' "$1" "${2-}" > "$QZ_VIRTUAL_HUB"; }
slowness='"timing": {"latency_us": 200, "erase_ms": 10, "leave_ms": 1, "return_ms": 260, "ready_ms": 1}'

# hub [MEMBERS]: prints a hub for a machine.
hub() { printf '{"name": "hub", "port": "3.1"%s}' "${1-}"; }

complain() {
  echo "$*" >&2
  : > "$work/failed"
  failures=1
}

# run ARGUMENT...: runs the program; sets $status and writes the files out and err.
run() {
  status=0
  "$qzhid" --virtual "$@" > "$work/out" 2> "$work/err" < /dev/null || status=$?
}

# start ARGUMENT...: runs the program in the background.
start() {
  : > "$work/err"
  "$qzhid" --virtual "$@" > "$work/out" 2> "$work/err" < /dev/null &
}

# await TEXT: waits until the program that was started has printed that text, or has ended.
await() { until grep -q "$1" "$work/err"; do kill -0 $! 2> /dev/null || return 0; sleep 0.01; done; }

# ended STATUS LINE: the program that was started ends with that status and has printed that line.
ended() {
  status=0
  wait $! || status=$?
  said "$@"
}

# said STATUS LINE: the last run ended with that status and printed that line.
said() {
  if [ "$status" -ne "$1" ] || ! cat "$work/out" "$work/err" | grep -qxF -- "$2"; then
    complain "status $status instead of $1, or no line '$2' in:"
    cat "$work/out" "$work/err" >&2
  fi
}

# expect STATUS LINE ARGUMENT...: the program ends with that status and prints that line.
expect() {
  wanted=$1 line=$2
  shift 2
  run "$@"
  said "$wanted" "$line"
}

# golden ARGUMENT...: the program succeeds and prints exactly what standard input holds.
golden() {
  cat > "$work/golden"
  run "$@"
  [ "$status" -eq 0 ] || complain "$*: status $status: $(cat "$work/err")"
  diff -u "$work/golden" "$work/out" >&2 || complain "$*: the output differs"
}
