#!/usr/bin/env bash
# Builds dmsd and runs it in the foreground on the demo media folder.
#
#   scripts/demo.sh              in a private network namespace (nothing leaves
#                                this machine); the default
#   scripts/demo.sh --lan IFACE  on the real network interface IFACE
#
# The configuration is written to build/demo/dms.conf; the real
# /var/tmp/dms.conf is never touched. Ctrl-C stops the server.
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$(pwd)

lan=""
if [ "${1:-}" = "--lan" ]; then
  lan=${2:?usage: scripts/demo.sh [--lan INTERFACE]}
fi

scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build --target dmsd

mkdir -p build/demo
conf=build/demo/dms.conf
{
  echo "Enable = 1"
  echo "Port = 49152"
  echo "RescanTime = 10"
  if [ -n "$lan" ]; then
    echo "IPAddress = "
    echo "Interface = $lan"
  else
    echo "IPAddress = 127.0.0.1"
    echo "Interface = lo"
  fi
  echo "DmsName = dmsd demo"
  echo "ContentList = $repo/data/demo"
  echo "ModelName = dmsd"
  echo "ManuFacturer = dmsd developers"
  echo "ManuFacturerURL = http://localhost/"
  echo "DeviceURL = http://localhost/"
  echo "SerialNumber = 0001"
  echo "Locale = 0"
} >"$conf"

args=(--config "$repo/$conf" --folder-request "$repo/build/demo/dms_folderfile.conf"
  --data-dir "$repo/data" --log-level 7)
echo "dmsd: configuration $conf, media $repo/data/demo"
if [ -n "$lan" ]; then
  exec build/dmsd "${args[@]}"
fi
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
# In its own network namespace SSDP multicast stays on loopback.
exec $sudo unshare --net sh -c '
  ip link set lo up && ip route add 239.0.0.0/8 dev lo && exec "$0" "$@"' build/dmsd "${args[@]}"
