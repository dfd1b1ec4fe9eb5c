#!/usr/bin/env bash
# Installs the Debian packages dmsd needs to build, test and run. Idempotent:
# does nothing when they are all present.
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

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "installing: ${missing[*]}"
$sudo apt-get update -q
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
