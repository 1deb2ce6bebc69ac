# For the tests of qzhid; they are called with QZHID QZHUB. Each runs the program on virtual hubs.
set -eu
qzhid=$1
qzhub=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export QZ_VIRTUAL_HUB="$work/scenario.json" NO_COLOR=1
failures=0
usb='PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)'

# machine DEVICES [FAULTS [MORE]]: the machine of the next runs; time takes no time.
machine() {
  printf '{"time": "virtual", "devices": [%s], "faults": [%s]%s}\n' "$1" "${2-}" "${3-}" > "$QZ_VIRTUAL_HUB"
}

# hub [MEMBERS]: a hub of the machine.
hub() { printf '{"name": "hub", "port": "3.1"%s}' "${1-}"; }

complain() {
  echo "$*" >&2
  failures=1
}

# run ARGUMENT...: leaves $status, and the files out and err.
run() {
  status=0
  "$qzhid" --virtual "$@" > "$work/out" 2> "$work/err" < /dev/null || status=$?
}

# expect STATUS LINE ARGUMENT...: the program ends so, and prints that whole line somewhere.
expect() {
  wanted=$1 line=$2
  shift 2
  run "$@"
  if [ "$status" -ne "$wanted" ] || ! cat "$work/out" "$work/err" | grep -qxF -- "$line"; then
    complain "$*: status $status instead of $wanted, or no line '$line' in:"
    cat "$work/out" "$work/err" >&2
  fi
}

# golden ARGUMENT...: the program succeeds, and its standard output is what stands on standard input.
golden() {
  cat > "$work/golden"
  run "$@"
  [ "$status" -eq 0 ] || complain "$*: status $status: $(cat "$work/err")"
  diff -u "$work/golden" "$work/out" >&2 || complain "$*: another output"
}
