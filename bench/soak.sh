#!/usr/bin/env bash
# Soak run: the daemon under random folder requests and file changes while 8
# clients browse and 2 fetch media, for SECONDS (default 600). Reports the
# daemon's memory at the start and the end, the client counts, and whether the
# tree matches the disk after a final rescan of every shared folder. With a
# sanitizer build (BUILD_DIR, default build) any sanitizer report fails it.
# Runs in a network namespace of its own so nothing leaves the machine.
set -euo pipefail
cd "$(dirname "$0")/.."
SECONDS_TOTAL=${1:-600}
BUILD=${2:-build}

if [ -z "${DMSD_SOAK_NS:-}" ]; then
  user=()
  [ "$(id -u)" -ne 0 ] && user=(--user --map-root-user)
  DMSD_SOAK_NS=1 exec unshare --net "${user[@]}" -- "$0" "$@"
fi
ip link set lo up
ip route add 239.0.0.0/8 dev lo

DMSD=$BUILD/dmsd
[ -x "$DMSD" ] || { echo "no $DMSD: build it first" >&2; exit 1; }
MEDIA=tests/data/media
WORK=$(mktemp -d /tmp/dmsd-soak-XXXXXX)
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$WORK"' EXIT
BASE=http://127.0.0.1:49152
FIXTURES=(mp3_id3v23_genre_date.mp3 jpeg_plain.jpg avi_mpeg4_mp3.avi m4a_aac.m4a gif89a.gif)
SHARES=("$WORK/usb1" "$WORK/usb2")

# A corpus of a few hundred files in nested folders.
for share in "${SHARES[@]}"; do
  for d in a b c d; do
    mkdir -p "$share/$d/deep"
    for i in $(seq 1 15); do
      f=${FIXTURES[$((i % ${#FIXTURES[@]}))]}
      cp "$MEDIA/$f" "$share/$d/f$i.${f##*.}"
      cp "$MEDIA/$f" "$share/$d/deep/g$i.${f##*.}"
    done
  done
done

cat >"$WORK/dms.conf" <<EOF
Enable = 1
Port = 49152
RescanTime = 2
IPAddress = 127.0.0.1
Interface = lo
DmsName = Soak
ContentList = ${SHARES[0]}|${SHARES[1]}
EOF
REQUEST=$WORK/request.conf
"$DMSD" --config "$WORK/dms.conf" --folder-request "$REQUEST" --data-dir data \
  >"$WORK/out.log" 2>"$WORK/err.log" &
PID=$!
for _ in $(seq 1 600); do grep -q "DMS started successful" "$WORK/err.log" && break; sleep 0.1; done

browse() {  # object id -> the SOAP answer
  curl -s -m 10 -X POST -H 'Content-Type: text/xml; charset="utf-8"' \
    -H 'SOAPACTION: "urn:schemas-upnp-org:service:ContentDirectory:1#Browse"' \
    --data "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body><u:Browse xmlns:u=\"urn:schemas-upnp-org:service:ContentDirectory:1\"><ObjectID>$1</ObjectID><BrowseFlag>BrowseDirectChildren</BrowseFlag><Filter>*</Filter><StartingIndex>0</StartingIndex><RequestedCount>0</RequestedCount><SortCriteria></SortCriteria></u:Browse></s:Body></s:Envelope>" \
    "$BASE/web/cds_control"
}
total() { browse "$1" | sed -n 's:.*<TotalMatches>\([0-9]*\)</TotalMatches>.*:\1:p'; }
rss() { awk '/VmRSS/ {print $2}' "/proc/$PID/status"; }

browser() {  # n: counts of answered and failed Browse requests
  local ok=0 bad=0 ids=("0" "0\$4" "0\$1\$10" "0\$1\$11" "0\$1\$13" "0\$2\$20" "0\$3\$30" "0\$3\$33")
  while [ -e "$WORK/run" ]; do
    if browse "${ids[$((RANDOM % ${#ids[@]}))]}" | grep -q "<TotalMatches>"; then
      ok=$((ok + 1))
    else
      bad=$((bad + 1))
    fi
  done
  echo "$ok $bad" >"$WORK/browser$1"
}

streamer() {  # n: media fetched and failed; failures are expected without a media server
  local ok=0 bad=0 url
  while [ -e "$WORK/run" ]; do
    url=$(browse "0\$1\$10" | grep -o 'http://[^&<"]*' | grep -v schemas | shuf -n 1 || true)
    if [ -n "$url" ] && curl -s -m 10 -o /dev/null -f "$url"; then ok=$((ok + 1)); else bad=$((bad + 1)); sleep 0.2; fi
  done
  echo "$ok $bad" >"$WORK/streamer$1"
}

request() {  # enable path
  printf 'Enable = %s\nFolderPath = %s\n' "$1" "$2" >"$REQUEST.tmp"
  mv "$REQUEST.tmp" "$REQUEST"
  kill -USR1 "$PID"
}

touch "$WORK/run"
for n in $(seq 1 8); do browser "$n" & done
for n in 1 2; do streamer "$n" & done

# The memory baseline is taken once the stack's threads have all served
# (a fifth of the run, at most a minute), so it measures growth, not warm-up.
requests=0 changes=0 RSS_START=
START=$SECONDS
WARM=$((SECONDS_TOTAL / 5 < 60 ? SECONDS_TOTAL / 5 : 60))
END=$((SECONDS + SECONDS_TOTAL))
while [ $SECONDS -lt $END ] && kill -0 "$PID" 2>/dev/null; do
  [ -z "$RSS_START" ] && [ $((SECONDS - START)) -ge $WARM ] && RSS_START=$(rss)
  share=${SHARES[$((RANDOM % 2))]}
  sub=$share/$(printf 'abcd' | cut -c$((RANDOM % 4 + 1)))
  case $((RANDOM % 8)) in
    0) request 1 "$share" ;;
    1) request 1 "$sub" ;;
    2) request 1 "$sub/deep" ;;
    3) request 0 "$sub" ;;
    4) request 0 "$share" ;;
    5) extra=$WORK/extra$((RANDOM % 3))
       mkdir -p "$extra" && cp "$MEDIA/jpeg_plain.jpg" "$extra/p$RANDOM.jpg"
       request 1 "$extra" ;;
    *) f=${FIXTURES[$((RANDOM % ${#FIXTURES[@]}))]}
       case $((RANDOM % 3)) in
         0) cp "$MEDIA/$f" "$sub/n$RANDOM.${f##*.}" ;;
         1) rm -f "$(ls "$sub"/n* 2>/dev/null | shuf -n 1 || true)" 2>/dev/null || true ;;
         2) mv "$sub/f$((RANDOM % 15 + 1)).mp3" "$sub/deep/" 2>/dev/null || true ;;
       esac
       changes=$((changes + 1)); requests=$((requests - 1)) ;;
  esac
  requests=$((requests + 1))
  sleep 0.$((RANDOM % 5 + 1))
done
rm -f "$WORK/run"
wait $(jobs -p | grep -v "^$PID$") 2>/dev/null || true
RSS_END=$(rss || echo 0)

alive=no
kill -0 "$PID" 2>/dev/null && alive=yes
# A final rescan of every shared folder: the tree then counts what is on disk.
consistent=unknown
if [ $alive = yes ]; then
  for share in "${SHARES[@]}" "$WORK"/extra*; do
    [ -d "$share" ] && request 1 "$share" && sleep 1
  done
  sleep 2
  items=$(($(total "0\$1\$10") + $(total "0\$2\$20") + $(total "0\$3\$30")))
  files=$(find "${SHARES[@]}" "$WORK"/extra* -type f \( -name '*.mp3' -o -name '*.jpg' -o -name '*.avi' \
    -o -name '*.m4a' -o -name '*.gif' \) 2>/dev/null | wc -l)
  [ "$items" -eq "$files" ] && consistent="yes ($items items)" || consistent="no ($items items, $files files)"
fi
kill -TERM "$PID" 2>/dev/null || true
status=0
wait "$PID" || status=$?

read -r bok bbad < <(cat "$WORK"/browser* | awk '{a += $1; b += $2} END {print a + 0, b + 0}')
read -r sok sbad < <(cat "$WORK"/streamer* | awk '{a += $1; b += $2} END {print a + 0, b + 0}')
reports=$(grep -c -E "ERROR: (Address|Leak|Thread)Sanitizer|runtime error:" "$WORK/err.log" || true)
growth=$(awk -v a="$RSS_START" -v b="$RSS_END" 'BEGIN {printf "%.1f", a ? (b - a) * 100 / a : 0}')
echo "soak: ${SECONDS_TOTAL}s, $requests folder requests, $changes file changes"
echo "browse: $bok answered, $bbad failed; media: $sok fetched, $sbad failed"
echo "RSS: start ${RSS_START} kB, end ${RSS_END} kB (${growth}%)"
echo "alive at the end: $alive; exit status $status; tree matches disk: $consistent"
echo "sanitizer reports: $reports"
[ $alive = yes ] && [ "$status" -eq 0 ] && [ "$reports" -eq 0 ] &&
  awk -v g="$growth" 'BEGIN {exit !(g <= 10)}'
