#!/usr/bin/env bash
# Builds the statement fuzz target with clang and runs it for a bounded time.
#   fuzz/run.sh [SECONDS]    (default 60)
# The seed corpus is every scenario script; what the fuzzer learns is kept in
# build-fuzz/corpus between runs. A finding stops the run with a non-zero status and leaves the
# input that caused it in build-fuzz/.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
build=build-fuzz

cmake -S fuzz -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$(nproc)" --target StatementParserFuzz

mkdir -p "$build/corpus" "$build/seeds"
cp tests/scenarios/*.pimrp tests/scenarios/*.stdin "$build/seeds/"

cd "$build"
# The entropic schedule spends most of its time in its own bookkeeping on this target's many
# features; the plain schedule runs several times more inputs for the same coverage.
./StatementParserFuzz -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -entropic=0 \
  -print_final_stats=1 -dict=../fuzz/statements.dict corpus seeds
