#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Puts small deliberate faults into the game, one at a time, and runs the whole test suite (ctest,
# as test.sh runs it) against each: every fault must make some test fail. A fault that no test
# notices is a gap in the tests. A developer's tool, not part of test.sh; it takes a while (one
# build and one test run per fault).
#
#   tools/mutants.sh            every fault
#   tools/mutants.sh NAME...    only those (the names are listed below)
#   tools/mutants.sh --check    only checks that every fault still applies
#
# Builds in build-mutants/ (BLOTCH_MUTANTS_BUILD), through the shared build lock, with JOBS (2)
# jobs; runs the tests on DISPLAY, or on a private Xvfb when it is unset. Each fault replaces one
# fragment in one file. The fragment is matched with any whitespace between its characters and
# must occur exactly once: the script stops before building anything when one does not, so that a
# refactor cannot quietly turn a fault into no change. Every changed file is put back afterwards,
# also on Ctrl-C; only a SIGKILL can leave one changed (git diff shows it).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BLOTCH_MUTANTS_BUILD:-build-mutants}
jobs=${JOBS:-2}

names=() files=() fragments=() replacements=()
# NAME FILE FRAGMENT REPLACEMENT: the fault NAME replaces FRAGMENT in FILE.
fault() { names+=("$1") files+=("$2") fragments+=("$3") replacements+=("$4"); }

# Splats: the block clipped on one side only; paint on faces turned away from the hit.
fault splat-clip-one-side src/paint/Splat.cpp \
    'clip(spare, piece, f.point, *axes[k], -1.0f, limits[k]);' \
    'clip(spare, piece, f.point, *axes[k], 1.0f, limits[k]);'
fault splat-paints-back-faces src/paint/Splat.cpp \
    'if (!(math::dot(normal, f.normal) > MIN_FACING))' 'if (false)'
# The tree lookup: triangles out of the level's order; a box that misses part of the splat.
fault tree-query-unsorted src/physics/TriangleTree.cpp \
    'std::sort(triangles.begin(), triangles.end());' ';'
fault tree-query-flat-box src/physics/TriangleTree.cpp \
    'btVector3(max.x, max.y, max.z)' 'btVector3(max.x, max.y, min.z)'
# The player's body: taller steps, steeper slopes.
fault controller-step-offset src/physics/CharacterController.cpp \
    'const float STEP_OFFSET = 0.5f;' 'const float STEP_OFFSET = 0.75f;'
fault controller-slope-limit src/physics/CharacterController.cpp \
    'const float SLOPE_LIMIT = 0.707f;' 'const float SLOPE_LIMIT = 0.6f;'
# A weaker throw.
fault ball-throw-impulse src/physics/Ball.cpp \
    'const float THROW_FORCE = 500.0f;' 'const float THROW_FORCE = 480.0f;'
# The contact report: a ball that keeps painting; a normal turned away from the ball.
fault contact-ball-lives-on src/physics/LevelCollision.cpp 'ball->life = 0.0f;' ';'
fault contact-normal-away src/physics/LevelCollision.cpp \
    'face.z * towards.z() < 0.0f' 'face.z * towards.z() > 0.0f'
# The FBX reader: arrays that inflate short or long, absurd inflation, end offsets past the parent.
fault fbx-inflate-size src/fbx/BinaryParser.cpp \
    'if (r != LIBDEFLATE_SUCCESS)' 'if (r == LIBDEFLATE_BAD_DATA)'
fault fbx-inflate-ratio src/fbx/BinaryParser.cpp \
    'if (bytes > stored * MAX_INFLATE_RATIO)' 'if (false)'
fault fbx-end-offset-bound src/fbx/BinaryParser.cpp \
    'endOffset < propertiesEnd || endOffset > end' 'endOffset < propertiesEnd'
# The font reader: the "kernings" count line read as a pair; a high byte laid out.
fault font-kerning-line src/render/FontManager.cpp \
    'else if (type == "kerning")' 'else if (type.rfind("kerning", 0) == 0)'
fault font-high-bytes src/render/FontManager.cpp 'if (code >= 128)' 'if (code > 128)'
# The fall check: the match ends at once; it never ends.
fault match-fall-height src/app/Match.cpp \
    'const float FALL_HEIGHT = 4.0f;' 'const float FALL_HEIGHT = 40.0f;'
fault match-fall-never src/app/Match.cpp \
    'camera.position.y < FALL_HEIGHT && dt > 0.0f' 'camera.position.y < FALL_HEIGHT && dt < 0.0f'
# The switches: a toggle that only turns on; a cycle that runs one value too far.
fault settings-toggle src/core/Settings.cpp 'value = !value;' 'value = true;'
fault settings-cycle src/core/Settings.cpp \
    'c.value = (c.value + 1) % c.count;' 'c.value = (c.value + 1) % (c.count + 1);'
# Paint maps: splats on one page stamped newest first; the gutter left bare; a page's border
# offset by a texel; a stamp's outline cutting into its picture; a chart laid along the world's
# axes only; the charts' rows laid over each other.
fault paint-stamp-order src/paint/PaintMap.cpp \
    'std::stable_sort(pieces.begin(), pieces.end(),' 'std::reverse(pieces.begin(), pieces.end()); std::stable_sort(pieces.begin(), pieces.end(),'
fault paint-no-gutter src/paint/PaintMap.cpp \
    'x0 = std::max(x0, float(c.x));' 'x0 = std::max(x0, float(c.x + Charts::GUTTER));'
fault paint-page-border src/paint/PaintMap.cpp \
    'glUniform4f(region, float(px * PAYLOAD - BORDER),' 'glUniform4f(region, float(px * PAYLOAD - BORDER + 1),'
fault paint-outline-cuts src/paint/PaintMap.cpp \
    'e[5] - u0 - v0,' 'e[5] - 0.1f - u0 - v0,'
fault charts-world-axes src/paint/Charts.cpp \
    'const size_t first = std::min<size_t>(count, 8);' 'const size_t first = 0;'
fault charts-rows-overlap src/paint/Charts.cpp 'y += row;' 'y += row / 2;'

# FRAGMENT as a Perl pattern that allows any whitespace between its characters.
pattern='join("\\s*", map { quotemeta } grep { /\S/ } split(//, $ENV{FRAGMENT}))'
occurrences() { FRAGMENT=$2 perl -0777 -ne "my \$re = $pattern; my \$n = () = /\$re/g; print \$n" "$1"; }
replace() { FRAGMENT=$2 TO=$3 perl -0777 -pi -e "my \$re = $pattern; s/\$re/\$ENV{TO}/" "$1"; }

check_only=0
if [ "${1:-}" = --check ]; then
    check_only=1
    shift
fi
selected=()
if [ $# -eq 0 ]; then
    selected=("${!names[@]}")
fi
for name in "$@"; do
    found=""
    for i in "${!names[@]}"; do
        if [ "${names[$i]}" = "$name" ]; then found=$i; fi
    done
    [ -n "$found" ] || { echo "no fault named $name" >&2; exit 2; }
    selected+=("$found")
done

# Every fragment must still be there, once, before anything is built.
stale=0
for i in "${selected[@]}"; do
    n=$(occurrences "${files[$i]}" "${fragments[$i]}")
    if [ "$n" != 1 ]; then
        echo "${names[$i]}: its fragment occurs $n times in ${files[$i]}, not once: update it" >&2
        stale=1
    fi
done
[ $stale = 0 ] || exit 2
if [ $check_only = 1 ]; then
    echo "${#selected[@]} faults apply"
    exit 0
fi

saved=$(mktemp)
changed=""
. tools/xvfb.sh
restore() {
    if [ -n "$changed" ]; then
        # A plain copy gives it a fresh time stamp, so the next build compiles it again.
        cp "$saved" "$changed"
        changed=""
    fi
}
cleanup() {
    restore
    rm -f "$saved"
    if [ -n "$xvfb_pid" ]; then kill "$xvfb_pid" 2>/dev/null || true; fi
}
trap cleanup EXIT
trap 'echo "interrupted" >&2; exit 130' INT TERM

[ -n "${DISPLAY:-}" ] || start_xvfb 90 120

logs=$build/mutants
mkdir -p "$logs"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBLOTCH_TESTS=ON -DBLOTCH_BENCH=ON \
    >"$logs/configure.log"
compile() { flock /tmp/blotch-build.lock cmake --build "$build" -j"$jobs" >"$1" 2>&1; }
# The tests as test.sh runs them. A fault that hangs a test ends at the time limit.
run_tests() {
    (cd "$build" && ctest --output-on-failure --no-tests=error --stop-on-failure --timeout 300 \
        -j"$jobs") >"$1" 2>&1
}

compile "$logs/unchanged-build.log" ||
    { echo "the unchanged game does not build: see $logs/unchanged-build.log" >&2; exit 2; }
run_tests "$logs/unchanged.log" ||
    { echo "the unchanged game fails its tests: see $logs/unchanged.log" >&2; exit 2; }

caught=0
missed=0
for i in "${selected[@]}"; do
    name=${names[$i]}
    file=${files[$i]}
    cp "$file" "$saved"
    changed=$file
    replace "$file" "${fragments[$i]}" "${replacements[$i]}"
    if cmp -s "$file" "$saved"; then
        echo "$name: the replacement changed nothing in $file" >&2
        exit 2
    fi
    if ! compile "$logs/$name.log"; then
        echo "MISSED  $name  (it does not build: $logs/$name.log)"
        missed=$((missed + 1))
    elif run_tests "$logs/$name.log"; then
        echo "MISSED  $name  ($file)"
        missed=$((missed + 1))
    else
        by=$(grep -m1 -oE '[0-9]+ - [^ ]+ \(' "$logs/$name.log" | sed -E 's/^[0-9]+ - //; s/ \($//')
        echo "caught  $name  (${by:-see $logs/$name.log})"
        caught=$((caught + 1))
    fi
    restore
done

# The build folder ends up built from the unchanged sources again.
compile "$logs/final-build.log" || true
echo "$caught caught, $missed missed"
[ $missed = 0 ]
