#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the Debian/Ubuntu packages Blotch needs to build, run and test, skipping the ones
# already present. Safe to run again; needs root or sudo only when something is missing.
set -euo pipefail

PACKAGES=(
    build-essential cmake pkg-config
    libsdl2-dev libsdl2-mixer-dev libglew-dev libsdl2-image-dev libbullet-dev libdeflate-dev
    libgl1-mesa-dev libgl1-mesa-dri libx11-dev
    libtinygltf-dev nlohmann-json3-dev
    libgtest-dev libgmock-dev libbenchmark-dev libassimp-dev assimp-testmodels
    xvfb xauth xdotool imagemagick openbox
    file lintian desktop-file-utils appstream
    clang libclang-rt-dev
)

missing=()
for p in "${PACKAGES[@]}"; do
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
