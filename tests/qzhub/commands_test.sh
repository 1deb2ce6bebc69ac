#!/bin/sh
# commands_test.sh QZHUB: how the program and its commands behave on the command line.
set -eu
qzhub=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

# expect STATUS TEXT ARGUMENT...: qzhub ends with that status and prints that text.
expect() {
  status=$1 text=$2
  shift 2
  result=0
  "$qzhub" "$@" > "$work/output" 2>&1 || result=$?
  if [ "$result" -ne "$status" ] || ! grep -qF -- "$text" "$work/output"; then
    echo "$*: status $result instead of $status, or no '$text' in:" >&2
    cat "$work/output" >&2
    failures=1
  fi
}

echo '{"devices": []}' > "$work/empty.json"
echo '{"state_folder": "state", "devices": [{"name": "dock", "port": "1"}]}' > "$work/hub.json"
expect 2 'A subcommand is required'
expect 2 '' image
expect 2 'not in range' image --out x --size 32679
expect 2 "'1.02' is not one to four hexadecimal digits" image --out x --vid 1.02
expect 1 '/nowhere/x.bin cannot be created' image --out /nowhere/x.bin
expect 0 '127.0.0.1:3240' serve --help
expect 0 'Usage: qzhub [OPTIONS] SUBCOMMAND' help
expect 0 'Usage: qzhub serve [OPTIONS]' help serve
expect 2 "there is no command 'sevre'; did you mean 'serve'?" sevre --listen 127.0.0.1:0
expect 2 "did you mean 'image'?" help imag
expect 2 'the commands are image, serve, redirect, attach, plug, unplug, power-loss, help' list
expect 0 '--scenario' attach --help
expect 2 'is not an address' serve --listen 3240
expect 0 '127.0.0.1:4000' redirect --help
expect 2 "'4000' is not an address with a port, such as 127.0.0.1:4000 or [::1]:4000" redirect --listen 4000
expect 2 '' attach --port 1
expect 1 'empty.json: the scenario has no devices' serve --scenario "$work/empty.json"
expect 1 '/nowhere.json: the file cannot be opened' attach --scenario /nowhere.json

(
  ulimit -f 10
  expect 1 'big.img cannot be written: File too large' image --out "$work/big.img"
  exit $failures
) || failures=1
[ -z "$(find "$work" -name 'big.img*')" ] || { echo 'a part of an image is left' >&2; failures=1; }

# Two ways to write a version.
"$qzhub" image --out "$work/digits.img" --version 0a1f
"$qzhub" image --out "$work/dotted.img" --version a.1F
cmp "$work/digits.img" "$work/dotted.img" || failures=1
for version in 2.1 2.100 123.10 .10 2. 0x2.10 2.0x; do
  expect 2 "'$version' is not a version such as 2.10 or 0210" image --out x --version $version
done

# It listens, no other process can listen on its address, and it ends cleanly after either signal.
for signal in TERM INT; do
  : > "$work/events"
  "$qzhub" serve --listen 127.0.0.1:0 --scenario "$work/hub.json" > "$work/events" &
  until grep -q '^listening' "$work/events"; do sleep 0.05; done
  address=$(sed -n 's/^listening //p' "$work/events")
  grep -qx 'exported dock busid=1-1' "$work/events" || failures=1
  expect 1 "cannot listen on $address" serve --listen "$address"
  kill -s $signal $!
  wait $! && rm "$work/state/dock.flash" || failures=1
done
exit $failures
