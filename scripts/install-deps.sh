#!/usr/bin/env bash
# Installs the Debian packages dmsd needs to build, test and run. Idempotent:
# does nothing when they are all present.
#
#   scripts/install-deps.sh [--armhf]
#
# --armhf adds the cross build for the gateway's 32-bit ARM: the armhf
# architecture, its compiler and libraries, and qemu to run what it builds.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config
  libupnp-dev libmicrohttpd-dev libexif-dev
  libgtest-dev libgmock-dev
  clang-format iproute2 util-linux curl
  # the independent clients of tests/clients: a GUPnP control point, a
  # renderer with the GStreamer elements it plays our fixtures with, cvlc, ffprobe
  python3-gi gir1.2-gupnp-1.6 gir1.2-gupnp-av-1.0
  gmediarender gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-libav
  vlc-bin vlc-plugin-base ffmpeg
)
armhf=0
[ "${1:-}" = --armhf ] && armhf=1
# libupnp-dev:armhf cannot sit beside the native one (their upnpconfig.h
# differ in the large-file flag), so only its library is installed and the
# development files are unpacked here; cmake/armhf.cmake looks for them here.
upnp_armhf=/opt/armhf/libupnp-dev
if [ $armhf = 1 ]; then
  packages+=(
    crossbuild-essential-armhf qemu-user-static
    libupnp13:armhf libmicrohttpd-dev:armhf libexif-dev:armhf
    libgtest-dev:armhf libgmock-dev:armhf
  )
fi

installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
missing=()
for p in "${packages[@]}"; do installed "$p" || missing+=("$p"); done
upnp_pc=$upnp_armhf/usr/lib/arm-linux-gnueabihf/pkgconfig/libupnp.pc
[ ${#missing[@]} -eq 0 ] && { [ $armhf = 0 ] || [ -f "$upnp_pc" ]; } && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
aptget() { DEBIAN_FRONTEND=noninteractive $sudo apt-get "$@"; }
if [ $armhf = 1 ] && ! dpkg --print-foreign-architectures | grep -qx armhf; then
  $sudo dpkg --add-architecture armhf
fi

install() { aptget install -y -q --no-install-recommends --allow-downgrades "$@"; }
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  # A mirror caught mid-sync fails one index (seen for armhf security
  # updates); the others still serve, so go on with what was fetched.
  aptget update -qq || echo "install-deps: some package indexes failed; going on" >&2
  # Multi-Arch libraries must have one version on both architectures. When an
  # armhf index is missing, its newest version can be older than the native
  # one installed: pin both, and the native packages built with it, to the
  # version armhf has. A few rounds at most.
  native=$(dpkg --print-architecture)
  extra=()
  for round in 1 2 3 4; do
    out=$(install "${missing[@]}" "${extra[@]}" 2>&1) && break
    stuck=$(grep -o 'Depends: [^ ]*:armhf' <<<"$out" | cut -d' ' -f2 | sort -u || true)
    if [ $armhf = 0 ] || [ $round = 4 ] || [ -z "$stuck" ]; then
      echo "$out" >&2
      exit 1
    fi
    for p in $stuck; do
      v=$(apt-cache policy "$p" | awk '/Candidate:/ {print $2}')
      [ -n "$v" ] && [ "$v" != "(none)" ] || continue
      extra+=("$p=$v")
      name=${p%:armhf}
      installed "$name:$native" || continue
      read -r src old < <(dpkg-query -W -f='${source:Package} ${Version}\n' "$name:$native")
      for b in $(dpkg-query -W -f='${binary:Package} ${source:Package} ${Version}\n' |
        awk -v s="$src" -v o="$old" '$2 == s && $3 == o && $1 !~ /:armhf$/ {print $1}'); do
        apt-cache madison "${b%:*}" | grep -q " $v " && extra+=("${b%:*}:$native=$v")
      done
    done
  done
fi

if [ $armhf = 1 ] && [ ! -f "$upnp_pc" ]; then
  tmp=$(mktemp -d)
  chmod 0777 "$tmp"  # apt downloads as its own user
  (cd "$tmp" && aptget download -qq libupnp-dev:armhf)
  $sudo rm -rf "$upnp_armhf"
  $sudo mkdir -p "$upnp_armhf"
  $sudo dpkg -x "$tmp"/libupnp-dev_*_armhf.deb "$upnp_armhf"
  rm -rf "$tmp"
  lib=$upnp_armhf/usr/lib/arm-linux-gnueabihf
  for so in libupnp libixml; do
    $sudo ln -sf "/usr/lib/arm-linux-gnueabihf/$(readlink "$lib/$so.so")" "$lib/$so.so"
  done
  $sudo sed -i "s|^prefix=.*|prefix=$upnp_armhf/usr|" "$upnp_pc"
fi
