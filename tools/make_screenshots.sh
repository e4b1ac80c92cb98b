#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The README's pictures: docs/title.png (the title screen), docs/lit.png (the level in its lit
# first seconds) and docs/painted.png (the flat white level after a few throws), taken from the
# real game under a private Xvfb with real key and mouse events (xdotool) and ImageMagick's
# import, at half size to keep them small. Needs xvfb, xdotool and imagemagick (all installed by
# tools/install-deps.sh) and a built game. Run from anywhere:
#     tools/make_screenshots.sh [GAME_BINARY]      (default: build/src/blotch)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
game=$(realpath "${1:-$root/build/src/blotch}")
[ -x "$game" ] || { echo "no game at $game: build it first (./play.sh or cmake --build build)"; exit 1; }
out="$root/docs"
work=$(mktemp -d /tmp/blotch-shots-XXXXXX)
mkdir -p "$out"

. "$root/tools/xvfb.sh"
game_pid=""
cleanup() {
    [ -n "$game_pid" ] && kill "$game_pid" 2>/dev/null || true
    [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null || true
    [ -n "${KEEP:-}" ] && echo "kept $work" || rm -rf "$work"
}
trap cleanup EXIT
# A display of our own, so nothing else takes the keys and the pictures are the game's alone.
start_xvfb 130 160

# From the repository, so the game reads this tree's data/ whatever binary it is.
(cd "$root" && exec "$game" >"$work/stdout.txt" 2>"$work/stderr.txt") &
game_pid=$!
window=$(timeout 60 xdotool search --sync --onlyvisible --name '^Blotch$' | head -1)
shot() {
    sleep "$2"
    import -window "$window" -resize 50% png24:"$out/$1.png"
    echo "wrote docs/$1.png"
}
press() { xdotool windowfocus --sync "$window" key --delay 30 "$@"; }

shot title 2
press Return
# The match is built when the level's vertex count stands on a line of its own.
for _ in $(seq 600); do grep -qE '^[0-9]+$' "$work/stdout.txt" && break; sleep 0.1; done
shot lit 0.8
sleep 3 # the level turns flat white: only paint shows it now
# Closer to the arcade, then throws spread by small turns over its pillars and arches.
xdotool keydown w sleep 1.2 keyup w
xdotool mousemove_relative -- 0 15 # look down: throws rise, so aim low
for move in "-9 0" "3 0" "3 0" "3 0" "3 0" "3 0" "3 0" "0 4" "-3 0" "-3 0" "-3 0" "-3 0" \
    "-3 0" "-3 0"; do
    xdotool mousemove_relative -- $move click 1
    sleep 0.4
done
xdotool mousemove_relative -- 9 -12
shot painted 1
press Escape
wait "$game_pid" || true
game_pid=""
