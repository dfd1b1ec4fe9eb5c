#!/usr/bin/env bash
# Library benchmark: generates the corpora (bench/make_corpus.py), builds the
# benchmark optimised and runs it on a daemon in a network namespace of its own
# (nothing leaves the machine). Prints markdown tables; --write also puts them
# into bench/RESULTS.md's "Library" section, above its "###" notes.
#
#   bench/library_bench.sh [--build DIR] [--counts 2000,10000] [--runs 3]
#                          [--seconds 10] [--clients 1,8,32] [--no-browse]
#                          [--minidlna] [--write]
#
# --build names the build folder whose dmsd is measured (default build-bench,
# configured Release here when missing; another worktree's works too); the
# benchmark program itself is always built in build-bench. The default run
# takes about 2 minutes. --minidlna also runs minidlna (installed with apt-get
# when missing) in the same namespace on the last corpus and compares the two
# servers' Browse with and without keep-alive; it adds its scan (a minute or
# more on 10,000 files) and 8 cells per client count.
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$(pwd)
args=("$@")

build=build-bench counts=2000,10000 runs=3 seconds=10 clients=1,8,32 browse=() peer=() write=0
while [ $# -gt 0 ]; do
  case $1 in
    --build) build=$2; shift 2 ;;
    --counts) counts=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --seconds) seconds=$2; shift 2 ;;
    --clients) clients=$2; shift 2 ;;
    --no-browse) browse=(--no-browse); shift ;;
    --minidlna) peer=(--minidlna /usr/sbin/minidlnad); shift ;;
    --write) write=1; shift ;;
    *) echo "unknown option $1" >&2; exit 2 ;;
  esac
done

if [ -z "${DMSD_LIBBENCH_NS:-}" ]; then
  configure() {
    [ -f "$1/build.ninja" ] ||
      cmake -S "$repo" -B "$1" -G Ninja -DCMAKE_BUILD_TYPE=Release -DDMSD_TESTS=OFF >/dev/null
  }
  configure build-bench
  cmake --build build-bench --target dmsd_bench_library >/dev/null
  if [ "$(realpath "$build")" != "$(realpath build-bench)" ]; then
    [ -f "$build/CMakeCache.txt" ] || configure "$build"
    cmake --build "$build" --target dmsd >/dev/null
  fi
  if [ ${#peer[@]} -gt 0 ] && [ ! -x /usr/sbin/minidlnad ]; then
    sudo=()
    [ "$(id -u)" -ne 0 ] && sudo=(sudo)
    # The package's service would serve the real network: masked before it
    # can start.
    [ -d /run/systemd/system ] && "${sudo[@]}" systemctl mask minidlna.service >/dev/null
    "${sudo[@]}" apt-get install -y minidlna >/dev/null
  fi
  corpora=()
  for n in ${counts//,/ }; do corpora+=("$(bench/make_corpus.py "$n" | tail -n 1)"); done
  export DMSD_LIBBENCH_CORPORA="${corpora[*]}"
fi
. "$repo/scripts/netns.sh"
private_netns DMSD_LIBBENCH_NS "$0" "${args[@]}"

# Inside the namespace, with the same options and the corpora made above.
read -r -a corpora <<<"$DMSD_LIBBENCH_CORPORA"

out=$(mktemp /tmp/dmsd-libbench-XXXXXX)
trap 'rm -f "$out"' EXIT
{
  echo "$(date +%F), $(nproc) cores ($(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | xargs)),"
  echo "load average $(cut -d' ' -f1-3 /proc/loadavg) at the start; dmsd from \`$build\`."
  echo
  build-bench/dmsd_bench_library --dmsd "$(realpath "$build")/dmsd" --runs "$runs" \
    --seconds "$seconds" --clients "$clients" "${browse[@]}" "${peer[@]}" "${corpora[@]}"
} | tee "$out"

[ "$write" = 1 ] || exit 0
# The generated block runs from the section heading to its first "###" note
# (or the next "##" section); only that block is replaced.
python3 - bench/RESULTS.md "$out" <<'PY'
import sys
results, figures = sys.argv[1], open(sys.argv[2]).read().strip() + "\n"
heading = "## Library (`dmsd_bench_library`)"
intro = ("Run with `bench/library_bench.sh --write` (Release). Corpora from\n"
         "`bench/make_corpus.py`: 80% MP3 with ID3v2.3 tags (200 artists, 500 albums,\n"
         "30 genres), 10% JPEG, 10% MP4, folders of 20, page cache warm. Scan is the\n"
         "daemon's start to its \"Total\" line; the floor walks the same tree reading\n"
         "the first 64 KiB of every file; start-up is the same daemon on an empty\n"
         "share; memory is read at the \"Total\" line; bytes per item is VmRSS over\n"
         "the empty share's, per item. Browse: own client, one connection per request\n"
         "(the UPnP stack closes after each answer), on the same 2 cores as the daemon.\n")
lines = open(results).read().split("\n")
block = [heading, "", intro, figures]
if heading in lines:
    start = lines.index(heading)
    end = next((i for i in range(start + 1, len(lines))
                if lines[i].startswith("### ") or lines[i].startswith("## ")), len(lines))
    lines[start:end] = "\n".join(block).split("\n")
else:
    while lines and not lines[-1]:
        lines.pop()
    lines += [""] + "\n".join(block).split("\n")
open(results, "w").write("\n".join(lines).rstrip("\n") + "\n")
PY
echo "written to bench/RESULTS.md"
