#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs what is missing (the test, fuzzing and packaging tools too), builds Blotch with its
# tests and runs every test: the unit tests, the GL and end-to-end tests on an X display (a
# private Xvfb when DISPLAY is unset), the Debian package build, all of them again under
# AddressSanitizer and UndefinedBehaviorSanitizer, and every fuzz target for a minute.
set -euo pipefail
cd "$(dirname "$0")"
tools/install-deps.sh --test
jobs=$(nproc)

# Tests and benchmarks on explicitly: play.sh builds into the same folder with them off.
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBLOTCH_TESTS=ON -DBLOTCH_BENCH=ON
cmake --build build -j"$jobs"

. tools/xvfb.sh
cleanup() { [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null || true; }
trap cleanup EXIT
[ -n "${DISPLAY:-}" ] || start_xvfb 90 120

status=0
# GL and end-to-end tests run one at a time (RUN_SERIAL): they share the display. Set
# BLOTCH_E2E_KEEP=1 to keep each end-to-end test's working directory (output and pictures).
(cd build && ctest --output-on-failure --no-tests=error -j"$jobs") || status=1

# The same tests again under AddressSanitizer and UndefinedBehaviorSanitizer, the end-to-end ones
# included (the game is the sanitized build, and a sanitizer report fails the test): the FBX
# reader's with leak checking, the rest without it (GL and audio drivers keep a few bytes for the
# life of the process). -O1 keeps the sanitized game fast enough for the end-to-end timings.
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" \
    -DBLOTCH_SANITIZE=ON -DBLOTCH_TESTS=ON -DBLOTCH_BENCH=OFF
cmake --build build-asan -j"$jobs"
(cd build-asan && ctest --output-on-failure --no-tests=error -j"$jobs" -L fbx) || status=1
(cd build-asan && ASAN_OPTIONS=detect_leaks=0 ctest --output-on-failure --no-tests=error -j"$jobs" \
    -LE fbx) || status=1
# Every fuzz target for a minute from its committed seeds (clang, libFuzzer, ASan and UBSan).
tools/fuzz.sh 60 || status=1
exit $status
