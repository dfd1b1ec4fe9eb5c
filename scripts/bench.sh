#!/usr/bin/env bash
# Builds the benchmarks optimised and runs them; figures go to bench/RESULTS.md by hand
# (bench/library_bench.sh --write writes its own).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DDMSD_TESTS=OFF >/dev/null
cmake --build build-bench --target bench
./build-bench/dmsd_bench_store
./build-bench/dmsd_bench_reader
./build-bench/dmsd_bench_ixml
bench/library_bench.sh
