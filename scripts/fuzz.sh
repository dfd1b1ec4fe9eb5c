#!/usr/bin/env bash
# Builds the media-reader fuzz targets with clang and the address and undefined
# sanitizers, then runs each for SECONDS (default 300), seeded from the fixture
# media. Prints executions and the outcome per target; exits 1 if any failed.
#
#   scripts/fuzz.sh [SECONDS] [TARGET...]     TARGET: mp3 or fuzz_mp3; default all built
#
# Crash, leak and timeout inputs land in build-fuzz/artifacts/<target>/, the
# grown corpus in build-fuzz/corpus/<target>/, the full log in build-fuzz/logs/.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=300
if [[ $# -gt 0 && $1 =~ ^[0-9]+$ ]]; then
  seconds=$1
  shift
fi
command -v clang++ >/dev/null || { echo "fuzz.sh: clang++ is needed (apt-get install clang)" >&2; exit 2; }
scripts/install-deps.sh

build=build-fuzz
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DDMSD_FUZZ=ON -DDMSD_SANITIZE=address,undefined -DDMSD_TESTS=OFF >/dev/null
list="$build/fuzz/fuzz_targets.txt"

# Chosen targets with their seed extensions, as "name ext ext ...".
selected=()
while read -r name exts; do
  [[ -n $name ]] || continue
  if [[ $# -eq 0 ]]; then
    selected+=("$name $exts")
    continue
  fi
  for want in "$@"; do
    if [[ $want == "$name" || "fuzz_$want" == "$name" ]]; then selected+=("$name $exts"); fi
  done
done <"$list"
if [[ ${#selected[@]} -eq 0 ]]; then
  echo "fuzz.sh: no fuzz target built for: ${*:-any reader} (built: $(cut -d' ' -f1 "$list" | xargs))" >&2
  exit 2
fi

names=()
for row in "${selected[@]}"; do names+=("${row%% *}"); done
ninja -C "$build" -j2 "${names[@]}" >/dev/null

mkdir -p "$build/logs"
failed=0
printf '%-10s %12s  %s\n' target executions outcome
for row in "${selected[@]}"; do
  read -r name exts <<<"$row"
  corpus="$build/corpus/$name"
  artifacts="$build/artifacts/$name"
  log="$build/logs/$name.log"
  mkdir -p "$corpus" "$artifacts"
  for ext in $exts; do
    find tests/data/media -maxdepth 1 -type f -name "*.$ext" -exec cp -n {} "$corpus/" \;
  done
  before=$(ls "$artifacts" | wc -l)
  rc=0
  # Stderr of the target is closed (-close_fd_mask=2): the readers' trace lines
  # would drown libFuzzer's; sanitizer reports still reach the log.
  "$build/fuzz/$name" -max_total_time="$seconds" -timeout=5 -rss_limit_mb=1024 \
    -print_final_stats=1 -close_fd_mask=2 -artifact_prefix="$artifacts/" "$corpus" \
    >"$log" 2>&1 || rc=$?
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  outcome=ok
  if [[ $rc -ne 0 || $(ls "$artifacts" | wc -l) -ne $before ]]; then
    failed=1
    newest=$(ls -t "$artifacts" | head -1)
    outcome="FAILED (exit $rc) ${newest:+$artifacts/$newest}; see $log"
  fi
  printf '%-10s %12s  %s\n' "${name#fuzz_}" "${execs:-?}" "$outcome"
done
exit $failed
