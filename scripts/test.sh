#!/usr/bin/env bash
# Builds dmsd and runs the whole test suite: formatting, the plain build, and
# the build under AddressSanitizer + UndefinedBehaviorSanitizer; the
# concurrency tests also run under ThreadSanitizer. Last, the gateway's 32-bit
# ARM build runs the unit and end-to-end tests under qemu.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh --armhf

echo "== formatting"
files=$(git ls-files -co --exclude-standard 'src/*.cpp' 'src/*.h' 'tests/*.cpp' 'tests/*.h' \
  'bench/*.cpp' 'bench/*.h' 2>/dev/null || find src tests bench -name '*.cpp' -o -name '*.h')
files=$(for f in $files; do [ -f "$f" ] && echo "$f"; done)
clang-format --dry-run --Werror $files

build() {  # dir, extra cmake arguments...; $targets: only these
  local dir=$1
  shift
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
  cmake --build "$dir" ${targets:+--target $targets}
}

echo "== ThreadSanitizer: concurrency tests"
targets=dmsd_unit_tests build build-tsan -DDMSD_SANITIZE=thread
TSAN_OPTIONS=halt_on_error=1 ./build-tsan/tests/dmsd_unit_tests --gtest_filter='Concurrency*'

echo "== AddressSanitizer + UndefinedBehaviorSanitizer"
build build-asan -DDMSD_SANITIZE=address,undefined
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0 \
  ctest --test-dir build-asan --output-on-failure -j2 --timeout 120

echo "== plain build"
build build
ctest --test-dir build --output-on-failure -j2 --timeout 120

echo "== armhf (32-bit ARM) build under qemu"
start=$SECONDS
# Release: without debug information the cross compiler takes a third less time.
build build-armhf --toolchain cmake/armhf.cmake -DCMAKE_BUILD_TYPE=Release
# The independent clients are x86 programs; they are tested natively.
ctest --test-dir build-armhf --output-on-failure -j2 --timeout 300 -LE clients
echo "armhf: $((SECONDS - start)) s"
