#!/usr/bin/env bash
# Runs tests/clients/clients.py in a network namespace of its own: lo up, the
# SSDP group routed to lo, and a veth pair for the renderer, whose UPnP stack
# will not bind to a loopback interface. Its 127.0.1.1 exists only in here,
# so nothing the daemon or the clients send can leave the machine.
# Usage: run.sh DMSD_BINARY MEDIA_DIR DATA_DIR
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

. "$here/../../scripts/netns.sh"
private_netns DMSD_CLIENTS_SANDBOX "$0" "$@"
ip link add rnd0 type veth peer name rnd1
ip addr add 127.0.1.1/32 dev rnd0
ip link set rnd1 up
ip link set rnd0 up
# Debian's python3 carries the GObject bindings; another python3 on PATH may not.
exec /usr/bin/python3 "$here/clients.py" --dmsd "$1" --media "$2" --data-dir "$3" --renderer-interface rnd0
