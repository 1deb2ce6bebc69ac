#!/bin/sh
# run_msvc_hosts.sh FOLDER: the hosts in FOLDER work on the virtual library there.
set -u
cd "$1" || exit 1
failures=0
echo '{"time": "virtual", "devices": [{"name": "hub", "port": "1"}]}' > scenario.json
export QZ_VIRTUAL_HUB=scenario.json
for host in real_host virtual_host c_host p_host; do
  /usr/lib/wine/wine64 $host.exe > output || { echo "$host failed"; failures=1; }
  said=$(tr -d '\r' < output)
  [ "$said" = '1 hub, 1.02' ] || { echo "$host said: $said"; failures=1; }
done
exit $failures
