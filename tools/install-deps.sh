#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the Debian/Ubuntu packages Blotch needs, skipping the ones already present. Safe to
# run again; needs root or sudo only when something is missing.
#   tools/install-deps.sh          what building and playing need (play.sh)
#   tools/install-deps.sh --test   that and what the tests, the fuzzing and the Debian package
#                                  build need (test.sh)
set -euo pipefail

# Building and playing the game.
PLAY=(
    build-essential cmake pkg-config
    libsdl2-dev libsdl2-mixer-dev libglew-dev libsdl2-image-dev libbullet-dev libdeflate-dev
    libgl1-mesa-dev libgl1-mesa-dri
    libtinygltf-dev nlohmann-json3-dev
)
# Tests (GoogleTest, Assimp and its models), benchmarks, the X display and its tools for the
# end-to-end tests, fuzzing (clang, libFuzzer), and building and checking the Debian package.
TEST=(
    libgtest-dev libgmock-dev libbenchmark-dev libassimp-dev assimp-testmodels libx11-dev
    xvfb xauth xdotool imagemagick openbox
    clang libclang-rt-dev
    debhelper dpkg-dev file lintian desktop-file-utils appstream
)

case "${1:-}" in
"") packages=("${PLAY[@]}") ;;
--test) packages=("${PLAY[@]}" "${TEST[@]}") ;;
*)
    echo "usage: $0 [--test]" >&2
    exit 2
    ;;
esac

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
