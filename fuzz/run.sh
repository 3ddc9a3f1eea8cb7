#!/usr/bin/env bash
# Builds a fuzz target with clang and runs it for a bounded time.
#   fuzz/run.sh [SECONDS] [TARGET]    (default 60 seconds, StatementParserFuzz; or SessionFuzz)
# The seed corpus is every scenario script; what the fuzzer learns is kept in
# build-fuzz/corpus (build-fuzz/corpus-SessionFuzz for the session target) between runs. A finding stops the run with a non-zero status and leaves the
# input that caused it in build-fuzz/.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
target=${2:-StatementParserFuzz}
build=build-fuzz
corpus=corpus
[ "$target" = StatementParserFuzz ] || corpus=corpus-$target

cmake -S fuzz -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$(nproc)" --target "$target"

mkdir -p "$build/$corpus" "$build/seeds"
cp tests/scenarios/*.pimrp tests/scenarios/*.stdin "$build/seeds/"

cd "$build"
# The entropic schedule spends most of its time in its own bookkeeping on this target's many
# features; the plain schedule runs several times more inputs for the same coverage.
./"$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -entropic=0 \
  -print_final_stats=1 -dict=../fuzz/statements.dict "$corpus" seeds
