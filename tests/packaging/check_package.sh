#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the Debian package from a built tree and checks it the way a distribution would: its
# file list, its dependencies, lintian, and the desktop entry and AppStream metadata it ships.
# Usage: check_package.sh BUILD_DIR VERSION
set -euo pipefail
build=$1
version=$2
out=$(mktemp -d /tmp/blotch-package-XXXXXX)
trap 'rm -rf "$out"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

cpack --config "$build/CPackConfig.cmake" -G DEB -B "$out" >"$out/cpack.log" 2>&1 ||
    { cat "$out/cpack.log"; fail "cpack"; }
deb="$out/blotch_${version}_amd64.deb"
[ -f "$deb" ] || fail "no $(basename "$deb"): $(ls "$out")"

dpkg-deb -c "$deb" | awk '{print $6}' >"$out/files"
for f in ./usr/games/blotch \
    ./usr/share/blotch/data/fbx/level.fbx ./usr/share/blotch/data/shader/menu.vert \
    ./usr/share/blotch/data/textures/menu01.png ./usr/share/blotch/data/fonts/bankgothic-black.fnt \
    ./usr/share/blotch/data/sound/splash.mp3 \
    ./usr/share/applications/blotch.desktop \
    ./usr/share/icons/hicolor/48x48/apps/blotch.png ./usr/share/icons/hicolor/64x64/apps/blotch.png \
    ./usr/share/icons/hicolor/128x128/apps/blotch.png \
    ./usr/share/icons/hicolor/256x256/apps/blotch.png \
    ./usr/share/metainfo/io.github.blotch.Blotch.metainfo.xml \
    ./usr/share/man/man6/blotch.6.gz ./usr/share/doc/blotch/copyright; do
    grep -qxF "$f" "$out/files" || fail "$f is not in the package"
done
echo "package holds $(wc -l <"$out/files") entries, $(grep -c '/data/.*[^/]$' "$out/files") data files"

# Dependencies come from dpkg-shlibdeps, so every library the binary links must show up.
depends=$(dpkg-deb -f "$deb" Depends)
for lib in libsdl2-2.0-0 libsdl2-mixer libglew libbullet libsdl2-image libdeflate; do
    [[ $depends == *"$lib"* ]] || fail "Depends lacks $lib: $depends"
done
[ "$(dpkg-deb -f "$deb" Section)" = games ] || fail "section is not games"

lintian --fail-on error "$deb" 2>&1 | grep -v 'running with root privileges' || true
lintian --fail-on error "$deb" >/dev/null 2>&1 || fail "lintian reports errors"

dpkg-deb -x "$deb" "$out/root"
desktop-file-validate "$out/root/usr/share/applications/blotch.desktop" || fail "desktop entry"
metainfo="$out/root/usr/share/metainfo/io.github.blotch.Blotch.metainfo.xml"
appstreamcli validate --no-net "$metainfo" || fail "metainfo"
grep -q "<release version=\"$version\"" "$metainfo" || fail "metainfo has no release $version"
echo "package $(basename "$deb") is fine"
