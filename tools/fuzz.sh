#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Fuzzes the readers of untrusted files: builds the libFuzzer targets with clang (AddressSanitizer
# and UBSan on) into build-fuzz/ and runs each for SECONDS (default 60) from a copy of its seed
# corpus in tests/fuzz/corpus/TARGET/, which stays as it is. Prints one line per target and exits
# non-zero when any target finds a crash, a leak, a timeout or runs out of memory; what it found
# is kept in build-fuzz/findings/TARGET/.
#
#   tools/fuzz.sh [SECONDS]        fuzz every target
#   tools/fuzz.sh --minimise [S]   fuzz each for S seconds (default 300), then merge what it found
#                                  into the committed corpus, keeping only inputs that add coverage
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

minimise=0
if [ "${1:-}" = "--minimise" ]; then
    minimise=1
    shift
    seconds=${1:-300}
else
    seconds=${1:-60}
fi

targets=(fbx_import gltf_import font image settings)
jobs=$(nproc)
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBLOTCH_FUZZ=ON \
    -DBLOTCH_TESTS=OFF -DBLOTCH_BENCH=OFF >/dev/null
cmake --build build-fuzz -j"$jobs" --target "${targets[@]/#/fuzz_}"

# Inputs are kept small: a level or picture of a few kilobytes reaches every branch of its reader,
# and small inputs are many more runs a second.
declare -A max_len=([fbx_import]=8192 [gltf_import]=4096 [font]=4096 [image]=2048 [settings]=2048)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# One fuzzer is one process on one core: the targets run side by side, as many as there are cores.
fuzz() {
    local target=$1 binary=build-fuzz/tests/fuzz/fuzz_$1 findings=build-fuzz/findings/$1
    mkdir -p "$work/$target" "$findings"
    cp "tests/fuzz/corpus/$target"/* "$work/$target/"
    local run=0
    "$binary" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -max_len="${max_len[$target]}" -print_final_stats=1 -artifact_prefix="$findings/" \
        "$work/$target" >"build-fuzz/findings/$target.log" 2>&1 || run=$?
    echo "$run" >"$work/$target.exit"
}
running=0
for target in "${targets[@]}"; do
    fuzz "$target" &
    running=$((running + 1))
    if [ "$running" -ge "$jobs" ]; then
        wait -n || true
        running=$((running - 1))
    fi
done
wait

status=0
for target in "${targets[@]}"; do
    log=build-fuzz/findings/$target.log
    run=$(cat "$work/$target.exit")
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    found=$(grep -c 'Test unit written to' "$log" || true)
    if [ "$run" -ne 0 ] || [ "$found" -ne 0 ]; then
        status=1
        echo "fuzz_$target: FOUND A PROBLEM after ${runs:-?} runs (exit $run):"
        grep -aE '^==[0-9]+==ERROR|runtime error|Test unit written to|SUMMARY' "$log" | head -5
    else
        echo "fuzz_$target: ${runs:-?} runs in $seconds s, nothing found"
    fi
    if [ "$minimise" -eq 1 ] && [ "$run" -eq 0 ]; then
        corpus=tests/fuzz/corpus/$target
        mkdir -p "$work/$target-merged"
        "build-fuzz/tests/fuzz/fuzz_$target" -merge=1 -max_len="${max_len[$target]}" \
            "$work/$target-merged" "$corpus" "$work/$target" >/dev/null 2>&1
        rm -f "$corpus"/*
        cp "$work/$target-merged"/* "$corpus/"
        echo "  corpus: $(ls "$corpus" | wc -l) inputs, $(du -sk "$corpus" | cut -f1) KB"
    fi
done
exit $status
