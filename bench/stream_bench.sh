#!/usr/bin/env bash
# Streaming benchmark: one 500 MB media file over loopback with curl to
# /dev/null, one client alone and 8 in parallel, from dmsd's media server and
# from nginx (the physical reference) in the same run; medians of 3 rounds,
# MB/s and the ratio to nginx. Also shows with strace that dmsd sends the body
# with sendfile, and samples dmsd's RSS while 8 streams run.
#
#   bench/stream_bench.sh [--write]   (--write: replace the "Streaming" section
#                                      of bench/RESULTS.md with the figures)
#
# Runs in a network namespace of its own (nothing leaves the machine), builds
# dmsd in build-bench, installs nginx-light and strace when missing.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ -z "${DMSD_BENCH_NS:-}" ]; then
  need=()
  command -v nginx >/dev/null || need+=(nginx-light)
  command -v strace >/dev/null || need+=(strace)
  if [ ${#need[@]} -gt 0 ]; then
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    $sudo apt-get update -q
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q --no-install-recommends "${need[@]}"
  fi
  scripts/install-deps.sh
  cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DDMSD_TESTS=OFF >/dev/null
  cmake --build build-bench --target dmsd
fi
. scripts/netns.sh
private_netns DMSD_BENCH_NS "$0" "$@"
work=$(mktemp -d /tmp/dmsd-stream-bench-XXXXXX)
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# A real AVI header, then 500 MB of written (not sparse) zeros.
mkdir -p "$work/share"
file="$work/share/big.avi"
cp tests/data/media/avi_mpeg4_mp3.avi "$file"
dd if=/dev/zero bs=1M count=500 status=none >>"$file"
size=$(stat -c %s "$file")
cat "$file" >/dev/null  # page cache warm: the servers are measured, not the disk

printf 'Enable = 1\nPort = 49152\nRescanTime = 0\nIPAddress = 127.0.0.1\nInterface = lo\nDmsName = bench\nContentList = %s\n' \
  "$work/share" >"$work/dms.conf"
build-bench/dmsd --config "$work/dms.conf" --data-dir data --log-level 6 2>"$work/dmsd.log" &
dmsd=$!
pids+=("$dmsd")

cat >"$work/nginx.conf" <<CONF
user root root;
worker_processes 2;
pid $work/nginx.pid;
error_log $work/nginx.err;
events { worker_connections 256; }
http {
  access_log off;
  sendfile on;
  tcp_nopush on;
  server { listen 127.0.0.1:8080; root $work/share; }
}
CONF
nginx -c "$work/nginx.conf" -p "$work" -g 'daemon off;' &
pids+=($!)

for _ in $(seq 100); do grep -q "music:" "$work/dmsd.log" && break; sleep 0.1; done
# The file's URL as Browse publishes it would be found by id; the only item is the first one made.
dms_url=""
for id in $(seq 200 260); do
  code=$(curl -s -o /dev/null -r 0-0 -w '%{http_code}' "http://127.0.0.1:49152/web/$id.avi" || true)
  [ "$code" = 206 ] && dms_url="http://127.0.0.1:49152/web/$id.avi" && break
done
[ -n "$dms_url" ] || { echo "dmsd does not serve the file"; cat "$work/dmsd.log"; exit 1; }
nginx_url="http://127.0.0.1:8080/big.avi"
for _ in $(seq 50); do curl -s -o /dev/null -r 0-0 "$nginx_url" && break; sleep 0.1; done

now() { date +%s.%N; }
median() { sort -g | awk '{v[NR]=$1} END {print v[int((NR+1)/2)]}'; }

# MB/s of `clients` parallel downloads of the whole file (bytes over wall time).
round() {  # url clients
  local start end clients=()
  start=$(now)
  for _ in $(seq "$2"); do
    curl -s -o /dev/null "$1" &
    clients+=($!)
  done
  wait "${clients[@]}"
  end=$(now)
  echo "$size $2 $start $end" | awk '{printf "%.1f\n", $1 * $2 / ($4 - $3) / 1e6}'
}

measure() {  # url clients -> median MB/s of 3 rounds
  for _ in 1 2 3; do round "$1" "$2"; done | median
}

rss_during_8() {
  local max=0 rss clients=()
  for _ in $(seq 8); do
    curl -s -o /dev/null "$dms_url" &
    clients+=($!)
  done
  while kill -0 "${clients[0]}" 2>/dev/null; do
    rss=$(awk '/VmRSS/ {print $2}' "/proc/$dmsd/status")
    [ "$rss" -gt "$max" ] && max=$rss
    sleep 0.02
  done
  wait "${clients[@]}"
  echo "$max"
}

dms1=$(measure "$dms_url" 1)
ngx1=$(measure "$nginx_url" 1)
dms8=$(measure "$dms_url" 8)
ngx8=$(measure "$nginx_url" 8)
rss=$(rss_during_8)
rss_idle=$(awk '/VmRSS/ {print $2}' "/proc/$dmsd/status")

# sendfile: the system calls of one whole download, all threads.
strace -f -qq -p "$dmsd" -e trace=sendfile,read,pread64,write,writev -o "$work/strace" &
tracer=$!
sleep 0.5
curl -s -o /dev/null "$dms_url"
kill "$tracer"; wait "$tracer" 2>/dev/null || true
sendfile_calls=$(grep -c 'sendfile(' "$work/strace" || true)
sendfile_bytes=$(grep 'sendfile(' "$work/strace" | awk -F'= ' '{s += $NF} END {printf "%d", s}')
copy_calls=$(grep -cE '^[0-9]+ +(read|pread64)\(' "$work/strace" || true)

ratio() { awk -v a="$1" -v b="$2" 'BEGIN {printf "%.2f", a / b}'; }
machine="$(nproc)-core $(awk -F': ' '/model name/ {print $2; exit}' /proc/cpuinfo), $(uname -m)"
table=$(cat <<MD
## Streaming (\`bench/stream_bench.sh\`)

One ${size}-byte file (a real AVI header, then written zeros), page cache warm,
fetched whole over loopback by curl to /dev/null; dmsd's media server and nginx
$(nginx -v 2>&1 | sed 's/.*\///') (2 workers, sendfile on) in the same run. MB/s is bytes over wall
time (8 clients: all bytes over the time until the last one finished), median of 3.

| date | machine | clients | dmsd MB/s | nginx MB/s | dmsd / nginx |
| --- | --- | --- | --- | --- | --- |
| $(date +%F) | $machine | 1 | $dms1 | $ngx1 | $(ratio "$dms1" "$ngx1") |
| $(date +%F) | $machine | 8 | $dms8 | $ngx8 | $(ratio "$dms8" "$ngx8") |

strace of one whole download (all dmsd threads): $sendfile_calls sendfile calls carrying
$sendfile_bytes of the $size bytes, $copy_calls read calls. dmsd's RSS: ${rss_idle} KiB idle,
at most ${rss} KiB while 8 streams ran.
MD
)
echo "$table"
if [ "${1:-}" = "--write" ]; then
  python3 - "$table" <<'PY'
import re, sys
path = "bench/RESULTS.md"
text = open(path).read()
section = sys.argv[1].rstrip() + "\n"
pattern = re.compile(r"## Streaming .*?(?=\n## |\Z)", re.S)
text = pattern.sub(lambda _: section, text) if pattern.search(text) else text.rstrip() + "\n\n" + section
open(path, "w").write(text)
PY
fi
