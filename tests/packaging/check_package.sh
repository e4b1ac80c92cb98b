#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the Debian package the way a distribution does, with dpkg-buildpackage in a copy of the
# source tree (the files git knows, as the source package holds them), and checks it: its
# version, file list, dependencies, lintian at its most demanding (-I -E --pedantic: hardening,
# copyright, policy) on the source and the binary package, the desktop entry and AppStream
# metadata, and the package's own test of the installed game (debian/tests/installed) run on the
# unpacked package.
# The package is built without its tests (nocheck): ctest runs them from BUILD_DIR. What
# dh_auto_test would run is checked there instead: every test but the display, end-to-end and
# package ones.
# Usage: check_package.sh SOURCE_DIR BUILD_DIR VERSION
set -euo pipefail
source_dir=$1
build=$2
version=$3
out=$(mktemp -d /tmp/blotch-package-XXXXXX)
trap 'rm -rf "$out"' EXIT
fail() {
    echo "FAIL: $*"
    exit 1
}
start=$SECONDS

# The copy: tracked files and new ones not ignored, never build folders.
tree="$out/blotch-$version"
mkdir -p "$tree"
if git -C "$source_dir" rev-parse --git-dir >/dev/null 2>&1; then
    (cd "$source_dir" && git ls-files -co --exclude-standard -z |
        tar --null -cf - -T - --ignore-failed-read) | tar -xf - -C "$tree"
else
    tar -C "$source_dir" --exclude='./build*' --exclude='./obj-*' -cf - . | tar -xf - -C "$tree"
fi
[ "$(cd "$tree" && dpkg-parsechangelog -S Version)" = "$version" ] ||
    fail "debian/changelog is at $(cd "$tree" && dpkg-parsechangelog -S Version), CMake at $version"

(cd "$tree" && DEB_BUILD_OPTIONS="nocheck parallel=$(nproc)" dpkg-buildpackage -us -uc) \
    >"$out/build.log" 2>&1 || {
    tail -40 "$out/build.log"
    fail "dpkg-buildpackage"
}
deb="$out/blotch_${version}_amd64.deb"
[ -f "$deb" ] || fail "no $(basename "$deb"): $(ls "$out")"
echo "dpkg-buildpackage: $((SECONDS - start)) s"

dpkg-deb -c "$deb" | awk '{print $6}' >"$out/files"
for f in ./usr/games/blotch \
    ./usr/share/blotch/data/fbx/level.fbx ./usr/share/blotch/data/gltf/level.glb \
    ./usr/share/blotch/data/shader/menu.vert ./usr/share/blotch/data/textures/menu01.png \
    ./usr/share/blotch/data/fonts/bankgothic-black.fnt ./usr/share/blotch/data/sound/splash.mp3 \
    ./usr/share/applications/blotch.desktop \
    ./usr/share/icons/hicolor/48x48/apps/blotch.png ./usr/share/icons/hicolor/64x64/apps/blotch.png \
    ./usr/share/icons/hicolor/128x128/apps/blotch.png \
    ./usr/share/icons/hicolor/256x256/apps/blotch.png \
    ./usr/share/metainfo/io.github.blotch.Blotch.metainfo.xml \
    ./usr/share/man/man6/blotch.6.gz ./usr/share/doc/blotch/copyright \
    ./usr/share/doc/blotch/changelog.gz; do
    grep -qxF "$f" "$out/files" || fail "$f is not in the package"
done
# Documentation lives in /usr/share/doc: no licence notes in the data tree, no build leftovers.
if grep -E '^\./usr/share/blotch/.*(LICENSE|\.md$)|^\./usr/bin/' "$out/files"; then
    fail "files that do not belong where they are"
fi
echo "package holds $(wc -l <"$out/files") entries, $(grep -c '/data/.*[^/]$' "$out/files") data files"

# Dependencies come from dpkg-shlibdeps, so every library the binary links must show up.
depends=$(dpkg-deb -f "$deb" Depends)
for lib in libsdl2-2.0-0 libsdl2-mixer libglew libbullet libsdl2-image libdeflate; do
    [[ $depends == *"$lib"* ]] || fail "Depends lacks $lib: $depends"
done
[ "$(dpkg-deb -f "$deb" Section)" = games ] || fail "section is not games"
[[ "$(dpkg-deb -f "$deb" Maintainer)" != *example* ]] || fail "placeholder maintainer"

# Lintian on the source and the binary package: any tag not overridden (with its reason, in
# debian/source/lintian-overrides or debian/blotch.lintian-overrides) fails.
lintian -I -E --pedantic "$out/blotch_${version}_amd64.changes" 2>&1 |
    grep -v 'running with root privileges' >"$out/lintian.log" || true
cat "$out/lintian.log"
if grep -qE '^[EWIPX]: ' "$out/lintian.log"; then
    fail "lintian -I -E --pedantic has something to say"
fi

dpkg-deb -x "$deb" "$out/root"
desktop-file-validate "$out/root/usr/share/applications/blotch.desktop" || fail "desktop entry"
metainfo="$out/root/usr/share/metainfo/io.github.blotch.Blotch.metainfo.xml"
appstreamcli validate --no-net "$metainfo" || fail "metainfo"
grep -q "<release version=\"$version\"" "$metainfo" || fail "metainfo has no release $version"
BLOTCH_BINARY="$out/root/usr/games/blotch" "$tree/debian/tests/installed" || fail "installed game"

# dh_auto_test's filter, on this build's tests: it keeps every test but those it must leave out
# (it keeps the unit and FBX tests, some seventy).
filter=$(sed -n "s/.*--label-exclude '\([^']*\)'.*/\1/p" "$tree/debian/rules")
[ -n "$filter" ] || fail "no --label-exclude filter in debian/rules"
count() { (cd "$build" && ctest -N "$@" | sed -n 's/^Total Tests: //p'); }
kept=$(count -LE "$filter")
left=$(($(count -L '^display$') + $(count -L '^e2e$') + $(count -L '^package$')))
[ "$kept" -gt 50 ] && [ "$((kept + left))" -eq "$(count)" ] ||
    fail "dh_auto_test's filter '$filter' keeps $kept of $(count) tests, leaving out $left"
if (cd "$build" && ctest -N -LE "$filter" | grep -E 'Test +#[0-9]+: (E2e|package$)'); then
    fail "dh_auto_test would run tests that need a display"
fi
echo "dh_auto_test runs $kept tests, leaves out $left"
echo "package $(basename "$deb") is fine ($((SECONDS - start)) s)"
