#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs what is missing, builds Blotch and starts it from the repository (it reads data/ from
# the working directory).
set -euo pipefail
cd "$(dirname "$0")"
tools/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBLOTCH_TESTS=OFF -DBLOTCH_BENCH=OFF >/dev/null
cmake --build build -j"$(nproc)" --target blotch
exec build/src/blotch
