#!/bin/sh
# A factory station, from outside.
. "$(dirname "$0")/lib.sh"
for version in 0102 0210; do "$qzhub" image --out "$work/$version.bin" --version $version --size 32680; done
exec /usr/bin/python3 "$(dirname "$0")/station_test.py" "$(cd "$(dirname "$0")/../.." && pwd)" "$qzhid" "$work"
