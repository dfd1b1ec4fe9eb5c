#!/usr/bin/env bash
# Mutation check: applies each deliberate fault of scripts/mutations.txt, one at
# a time, to a copy of the tree, rebuilds the test binaries there and runs the
# unit and end-to-end suites, recording which suite noticed. The working tree
# is never touched, so this is safe with uncommitted work or a stash.
#
#   scripts/mutate.sh [--rev REV] [--only REGEX] [--work DIR] [--out FILE]
#
# --rev REV     test the committed tree REV instead of the working tree
# --only REGEX  run the mutations whose names match
# --work DIR    where the copy and its build live (default /tmp/dmsd-mutate);
#               reused between runs so rebuilds stay incremental
# --out FILE    results as TSV (default DIR/results.tsv)
set -euo pipefail
repo=$(cd "$(dirname "$0")/.." && pwd)
rev="" only="" work=/tmp/dmsd-mutate out=""
while [ $# -gt 0 ]; do
  case $1 in
    --rev) rev=$2; shift 2 ;;
    --only) only=$2; shift 2 ;;
    --work) work=$2; shift 2 ;;
    --out) out=$2; shift 2 ;;
    *) echo "usage: $0 [--rev REV] [--only REGEX] [--work DIR] [--out FILE]" >&2; exit 2 ;;
  esac
done
mutations=$repo/scripts/mutations.txt
tree=$work/tree build=$work/build
out=${out:-$work/results.tsv}
timeout=${MUTATE_TEST_TIMEOUT:-60}
mkdir -p "$tree" "$build"

# The copy: the committed tree REV, or the working tree's tracked and new files.
# Unchanged files keep their times and changed ones get a new time, so the
# reused build stays incremental and sees every change.
snap=$work/snapshot
rm -rf "$snap" && mkdir -p "$snap"
if [ -n "$rev" ]; then
  git -C "$repo" archive "$rev" | tar -x -C "$snap"
else
  (cd "$repo" && git ls-files -co --exclude-standard | while read -r f; do [ -e "$f" ] && echo "$f"; done |
    tar -c -T -) | tar -x -C "$snap"
fi
python3 - "$snap" "$tree" <<'EOF'
import filecmp, os, shutil, sys
snap, tree = sys.argv[1:]
want = set()
for root, _, files in os.walk(snap):
    for f in files:
        rel = os.path.relpath(os.path.join(root, f), snap)
        want.add(rel)
        dst = os.path.join(tree, rel)
        if not os.path.exists(dst) or not filecmp.cmp(os.path.join(snap, rel), dst, shallow=False):
            os.makedirs(os.path.dirname(dst), exist_ok=True)
            shutil.copy(os.path.join(snap, rel), dst)  # a new time: rebuilt
for root, _, files in os.walk(tree):
    for f in files:
        rel = os.path.relpath(os.path.join(root, f), tree)
        if rel not in want:
            os.remove(os.path.join(tree, rel))
EOF
rm -rf "$snap"

build() {
  [ -f "$build/build.ninja" ] ||
    cmake -S "$tree" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$build" -j2 --target dmsd dmsd_unit_tests dmsd_e2e_tests >"$work/build.log" 2>&1
}

# Runs one suite; prints "caught" when a test fails or times out, else "missed".
suite() {  # label arguments for ctest
  if ctest --test-dir "$build" "$@" -j2 --timeout "$timeout" --stop-on-failure \
    >"$work/ctest.log" 2>&1; then
    echo missed
  else
    echo caught
  fi
}
unit_suite() { suite -LE 'e2e|clients'; }
e2e_suite() { suite -L e2e -LE clients; }

echo "== building the unmutated copy in $work"
build || { echo "the unmutated tree does not build; see $work/build.log" >&2; exit 1; }
if [ "$(unit_suite)" != missed ] || [ "$(e2e_suite)" != missed ]; then
  echo "the unmutated suite fails; see $work/ctest.log" >&2
  exit 1
fi

apply() {  # file find replace: replaces the one occurrence, else fails
  python3 - "$@" <<'EOF'
import sys
path, find, repl = sys.argv[1:]
text = open(path).read()
if text.count(find) != 1:
    sys.exit(f"{path}: expected one occurrence of the text, found {text.count(find)}")
open(path, "w").write(text.replace(find, repl))
EOF
}

printf 'mutation\tfolder\tunit\te2e\n' >"$out"
while IFS=$'\t' read -r name file find repl; do
  case $name in '' | '#'*) continue ;; esac
  [ -z "$only" ] || [[ $name =~ $only ]] || continue
  folder=$(echo "$file" | cut -d/ -f2)
  cp -p "$tree/$file" "$work/original"
  if ! apply "$tree/$file" "$find" "$repl"; then
    unit=stale e2e=stale
  elif ! build; then
    unit=nobuild e2e=nobuild
  else
    unit=$(unit_suite)
    e2e=$(e2e_suite)
  fi
  # A fresh time on the restored file, so the next build recompiles it.
  cp "$work/original" "$tree/$file" && touch "$tree/$file"
  printf '%s\t%s\t%s\t%s\n' "$name" "$folder" "$unit" "$e2e" | tee -a "$out"
done <"$mutations"

echo
echo "== summary ($out)"
column -t -s $'\t' "$out"
awk -F'\t' 'NR > 1 {
    n++
    if ($3 == "caught") u++
    if ($4 == "caught") e++
    if ($3 == "caught" || $4 == "caught") c++
    if ($3 != "caught" && $4 != "caught" && $3 != "missed") bad++
  }
  END { printf "caught %d of %d (unit %d, e2e %d); %d not applied or not built\n", c, n, u, e, bad }' "$out"
