#!/usr/bin/env bash
# Soak run: the daemon under random folder requests and file changes while 8
# clients browse and 2 fetch media, for SECONDS (default 600). Reports the
# daemon's memory after a warm-up and at the end with its course every 10 s,
# the client counts, and whether the tree matches the disk after a final
# rescan of every shared folder. With a sanitizer build (BUILD_DIR, default
# build) any sanitizer report fails it.
# Runs in a network namespace of its own so nothing leaves the machine.
set -euo pipefail
cd "$(dirname "$0")/.."
SECONDS_TOTAL=${1:-600}
BUILD=${2:-build}

. scripts/netns.sh
private_netns DMSD_SOAK_NS "$0" "$@"

DMSD=$BUILD/dmsd
[ -x "$DMSD" ] || { echo "no $DMSD: build it first" >&2; exit 1; }
MEDIA=tests/data/media
WORK=$(mktemp -d /tmp/dmsd-soak-XXXXXX)
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$WORK"' EXIT
BASE=http://127.0.0.1:49152
MEDIA_BASE=$BASE  # one port serves everything
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
for _ in $(seq 1 600); do grep -qs "DMS started successful" "$WORK/err.log" && break; sleep 0.1; done

cds() {  # action arguments -> the SOAP answer of the ContentDirectory
  curl -s -m 10 -X POST -H 'Content-Type: text/xml; charset="utf-8"' \
    -H "SOAPACTION: \"urn:schemas-upnp-org:service:ContentDirectory:1#$1\"" \
    --data "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body><u:$1 xmlns:u=\"urn:schemas-upnp-org:service:ContentDirectory:1\">$2</u:$1></s:Body></s:Envelope>" \
    "$BASE/web/cds_control"
}
browse() {  # object id -> the SOAP answer
  cds Browse "<ObjectID>$1</ObjectID><BrowseFlag>BrowseDirectChildren</BrowseFlag><Filter>*</Filter><StartingIndex>0</StartingIndex><RequestedCount>0</RequestedCount><SortCriteria></SortCriteria>"
}
update_id() { cds GetSystemUpdateID "" | sed -n 's:.*<Id>\([0-9]*\)</Id>.*:\1:p'; }
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

streamer() {  # n: media fetched, gone and failed, and Browses that listed none
  # "Gone" is a 404 for a URL that a rescan made stale between the Browse that
  # listed it and the fetch (a rescanned item takes a new id); anything else
  # that is not a whole 200 is a failure. "All Music" is empty while both
  # shares are removed.
  local ok=0 gone=0 bad=0 none=0 url code
  while [ -e "$WORK/run" ]; do
    url=$(browse "0\$1\$10" | grep -o "$MEDIA_BASE/[^&<\"]*" | shuf -n 1 || true)
    if [ -z "$url" ]; then none=$((none + 1)); sleep 0.2; continue; fi
    # A body cut short (timeout) still reports its 200: curl's status tells.
    code=$(curl -s -m 10 -o /dev/null -w '%{http_code}' "$url") || code="$code/curl$?"
    case $code in
      200) ok=$((ok + 1)) ;;
      404) gone=$((gone + 1)) ;;
      *) bad=$((bad + 1)); echo "$code" >>"$WORK/fetch_failures"; sleep 0.2 ;;
    esac
  done
  echo "$ok $gone $bad $none" >"$WORK/streamer$1"
}

request() {  # enable path
  printf 'Enable = %s\nFolderPath = %s\n' "$1" "$2" >"$REQUEST.tmp"
  mv "$REQUEST.tmp" "$REQUEST"
  kill -USR1 "$PID"
}

# Signals do not queue: the next request waits until this one was handled
# (each raises SystemUpdateID), at most 30 s.
request_handled() {  # enable path
  local before now
  before=$(update_id)
  request "$1" "$2"
  for _ in $(seq 1 300); do
    now=$(update_id)
    [ -n "$now" ] && [ "$now" != "$before" ] && return 0
    sleep 0.1
  done
  return 1
}

sampler() {  # RSS every 10 s, "seconds kB" per line, to tell growth from warm-up
  local t0=$SECONDS
  while [ -e "$WORK/run" ]; do
    echo "$((SECONDS - t0)) $(rss || echo 0)" >>"$WORK/rss"
    sleep 10
  done
}

touch "$WORK/run"
sampler &
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
         1) victim=$(ls "$sub"/n* 2>/dev/null | shuf -n 1 || true)
            [ -n "$victim" ] && rm -f "$victim" || changes=$((changes - 1)) ;;
         2) mv "$sub/f$((RANDOM % 15 + 1)).mp3" "$sub/deep/" 2>/dev/null || changes=$((changes - 1)) ;;
       esac
       changes=$((changes + 1)); requests=$((requests - 1)) ;;
  esac
  requests=$((requests + 1))
  sleep 0.$((RANDOM % 5 + 1))
done
RAN=$((SECONDS - START))
rm -f "$WORK/run"
wait $(jobs -p | grep -v "^$PID$") 2>/dev/null || true
RSS_END=$(rss || echo 0)

alive=no
kill -0 "$PID" 2>/dev/null && alive=yes
# A final rescan of every shared folder: the tree then counts what is on disk.
consistent=unknown
if [ $alive = yes ]; then
  for share in "${SHARES[@]}" "$WORK"/extra*; do
    [ -d "$share" ] && { request_handled 1 "$share" || echo "rescan of $share not seen" >&2; }
  done
  items=$(($(total "0\$1\$10") + $(total "0\$2\$20") + $(total "0\$3\$30")))
  files=$(find "${SHARES[@]}" "$WORK"/extra* -type f \( -name '*.mp3' -o -name '*.jpg' -o -name '*.avi' \
    -o -name '*.m4a' -o -name '*.gif' \) 2>/dev/null | wc -l)
  [ "$items" -eq "$files" ] && consistent="yes ($items items)" || consistent="no ($items items, $files files)"
fi
kill -TERM "$PID" 2>/dev/null || true
status=0
wait "$PID" || status=$?

read -r bok bbad < <(cat "$WORK"/browser* | awk '{a += $1; b += $2} END {print a + 0, b + 0}')
read -r sok sgone sbad snone < <(cat "$WORK"/streamer* |
  awk '{a += $1; b += $2; c += $3; d += $4} END {print a + 0, b + 0, c + 0, d + 0}')
reports=$(grep -c -E "ERROR: (Address|Leak|Thread)Sanitizer|runtime error:" "$WORK/err.log" || true)
growth=$(awk -v a="$RSS_START" -v b="$RSS_END" 'BEGIN {printf "%.1f", a ? (b - a) * 100 / a : 0}')
peak=$(awk '$2 > p {p = $2} END {print p + 0}' "$WORK/rss")
echo "soak: ${RAN}s of ${SECONDS_TOTAL}s, $requests folder requests, $changes file changes"
codes=$(sort "$WORK/fetch_failures" 2>/dev/null | uniq -c | awk '{printf " %s x%s", $2, $1}' || true)
echo "browse: $bok answered, $bbad failed; media: $sok fetched, $sgone gone (404 after a rescan), $sbad failed${codes:+ (HTTP$codes)}, $snone Browses listed none"
echo "RSS: start ${RSS_START} kB (at ${WARM}s), end ${RSS_END} kB (${growth}%), peak ${peak} kB"
echo "alive at the end: $alive; exit status $status; tree matches disk: $consistent"
echo "sanitizer reports: $reports"
echo "RSS in kB every 10 s from the start, a row a minute:"
awk '{printf "%s%6d", (NR % 6 == 1 ? sprintf("%4d s ", $1) : " "), $2} NR % 6 == 0 {print ""} END {if (NR % 6) print ""}' "$WORK/rss"
[ $alive = yes ] && [ "$status" -eq 0 ] && [ "$reports" -eq 0 ] &&
  awk -v g="$growth" 'BEGIN {exit !(g <= 10)}'
