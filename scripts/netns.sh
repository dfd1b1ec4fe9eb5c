# Sourced by the scripts that start the daemon or other UPnP programs, so that
# nothing they send can leave the machine.
#
# private_netns FLAG COMMAND [ARG...]: unless the variable FLAG is set, runs
# COMMAND again in a network namespace of its own with FLAG=1 and does not
# return. Inside it, brings lo up and routes the SSDP multicast group to lo.
private_netns() {
  local flag=$1
  shift
  if [ -z "${!flag:-}" ]; then
    local user=()
    [ "$(id -u)" -eq 0 ] || user=(--user --map-root-user)
    exec env "$flag=1" unshare --net "${user[@]}" -- "$@"
  fi
  ip link set lo up
  ip route add 239.0.0.0/8 dev lo
}
