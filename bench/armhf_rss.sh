#!/usr/bin/env bash
# Size and memory of the gateway's 32-bit ARM build: the dmsd binary's size
# (as built and stripped), and its VmRSS once it has scanned a share, read
# when the "Total" line is logged, under qemu user emulation in a network
# namespace of its own (nothing leaves the machine). The RSS is the qemu
# process's, so qemu's own memory is in it; the empty share's figure shows
# that base, and the difference per item is the daemon's.
#
#   bench/armhf_rss.sh [--build DIR] [--counts 10000] [--runs 3]
#
# --build names a cross build (default build-armhf, configured with
# cmake/armhf.cmake when missing). Times under emulation mean nothing; only
# sizes and memory are reported.
set -euo pipefail
cd "$(dirname "$0")/.."
args=("$@")

build=build-armhf counts=10000 runs=3
while [ $# -gt 0 ]; do
  case $1 in
    --build) build=$2; shift 2 ;;
    --counts) counts=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    *) echo "unknown option $1" >&2; exit 2 ;;
  esac
done

if [ -z "${DMSD_ARMHF_NS:-}" ]; then
  scripts/install-deps.sh --armhf
  [ -f "$build/build.ninja" ] ||
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      --toolchain cmake/armhf.cmake >/dev/null
  cmake --build "$build" --target dmsd >/dev/null
  corpora=()
  for n in ${counts//,/ }; do corpora+=("$(bench/make_corpus.py "$n" | tail -n 1)"); done
  export DMSD_ARMHF_CORPORA="${corpora[*]}"
fi
. scripts/netns.sh
private_netns DMSD_ARMHF_NS "$0" "${args[@]}"

# Inside the namespace, with the corpora made above.
read -r -a corpora <<<"$DMSD_ARMHF_CORPORA"

work=$(mktemp -d /tmp/dmsd-armhf-rss-XXXXXX)
pid=""
cleanup() {
  [ -n "$pid" ] && kill -KILL "$pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
mkdir "$work/empty"

binary=$build/dmsd
arm-linux-gnueabihf-strip -o "$work/dmsd.stripped" "$binary"
echo "dmsd for armhf ($(grep -m1 CMAKE_BUILD_TYPE: "$build/CMakeCache.txt" | cut -d= -f2)):" \
  "$(stat -c %s "$binary") bytes as built, $(stat -c %s "$work/dmsd.stripped") stripped"
echo

# Starts the daemon on one share and sets rss and hwm (KiB) at its Total line.
measure() {
  printf 'Enable = 1\nPort = 49152\nRescanTime = 0\nIPAddress = 127.0.0.1\nInterface = lo\n' \
    >"$work/dms.conf"
  printf 'DmsName = armhf\nContentList = %s\n' "$1" >>"$work/dms.conf"
  qemu-arm-static -L / "$binary" --config "$work/dms.conf" --data-dir data --log-level 6 \
    2>"$work/log" >/dev/null &
  pid=$!
  for _ in $(seq 1200); do  # 10 minutes at most
    grep -q ' Total ' "$work/log" && break
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.5
  done
  if ! grep -q ' Total ' "$work/log"; then
    echo "no Total line; log:" >&2
    cat "$work/log" >&2
    exit 1
  fi
  read -r rss hwm < <(awk '/^VmRSS:/ {r = $2} /^VmHWM:/ {h = $2} END {print r, h}' \
    "/proc/$pid/status")
  kill -TERM "$pid"
  wait "$pid" || true
  pid=""
}

median() { sort -n | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)]}'; }

runAll() {  # share; sets rss and hwm to the medians
  local rsses=() hwms=()
  for _ in $(seq "$runs"); do
    measure "$1"
    rsses+=("$rss")
    hwms+=("$hwm")
  done
  rss=$(printf '%s\n' "${rsses[@]}" | median)
  hwm=$(printf '%s\n' "${hwms[@]}" | median)
}

runAll "$work/empty"
empty_rss=$rss empty_hwm=$hwm
echo "VmRSS at the \"Total\" line, medians of $runs runs, qemu included:"
echo
echo "| files | VmRSS KiB | VmHWM KiB | empty VmRSS KiB | bytes/item |"
echo "| --- | --- | --- | --- | --- |"
echo "| 0 | $empty_rss | $empty_hwm | $empty_rss | - |"
for corpus in "${corpora[@]}"; do
  n=$(find "$corpus" -type f ! -name '.*' | wc -l)
  runAll "$corpus"
  echo "| $n | $rss | $hwm | $empty_rss | $(((rss - empty_rss) * 1024 / n)) |"
done
