#!/bin/bash
# SPDX-License-Identifier: MIT
# Sounds: data/sound/Serendipity.mp3 (music loop), shot1.mp3, shot2.mp3 (throws), splash.mp3.
#
# Needs the Debian packages sox, libsox-fmt-mp3 (only to report the lengths) and lame. Run from
# anywhere:
#     bash tools/make_sounds.sh
#
# Everything is synthesised; sox's noise generators take a fixed seed (-R) so a re-run gives the
# same audio. The music loops: it ends faded out and starts on a soft attack, because an MP3 always
# gets some milliseconds of encoder padding at both ends and a loop point at full level would click
# there.
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
OUT="$ROOT/data/sound"
TMP=$(mktemp -d)
trap 'rm -rf "$TMP"' EXIT
mkdir -p "$OUT"

RATE=44100
# Float intermediates so that mixing many voices never clips before the final normalisation.
F="-R -r $RATE -c 1 -b 32 -e floating-point"

hz() { awk -v n="$1" 'BEGIN { printf "%.3f", 440 * 2 ^ ((n - 69) / 12) }'; }

encode() { # wav, name, bitrate
    lame --quiet --noreplaygain -q 2 --cbr -b "$3" --resample 44.1 "$1" "$OUT/$2.mp3"
}

# ---------------------------------------------------------------------------------------------
# Music: 8 bars of 4 s at 60 beats a minute. Soft pads under a plucked arpeggio; the last chord
# is a suspended G that leans back into the C of the first bar when the track starts over.
BAR=4
CHORDS=(
    "48 55 59 64"   # Cmaj7
    "45 52 55 60"   # Am7
    "41 48 52 57"   # Fmaj7
    "43 50 55 59"   # G
    "48 55 59 64"   # Cmaj7
    "40 47 55 62"   # Em7
    "41 48 52 57"   # Fmaj7
    "43 50 55 60"   # Gsus4
)
ARP=(0 1 2 3 2 3 1 2)
NBARS=${#CHORDS[@]}
LENGTH=$((NBARS * BAR))

for ((b = 0; b < NBARS; b++)); do
    read -r -a notes <<< "${CHORDS[$b]}"
    start=$((b * BAR))
    # Pads overlap into the next bar for legato, except the last, which has to be gone by the
    # loop point.
    if ((b == NBARS - 1)); then dur=$BAR; else dur=5.5; fi
    release=2.5
    args=()
    for n in "${notes[@]}"; do args+=(triangle "$(hz "$n")"); done
    sox $F -c 4 -n $F "$TMP/pad$b.wav" synth $dur "${args[@]}" remix - \
        lowpass 900 tremolo 0.3 15 fade t 1.4 $dur $release pad $start vol 0.5
    root=$(hz $((notes[0] - 12)))
    sox $F -n $F "$TMP/bass$b.wav" synth $dur sine "$root" fade t 0.8 $dur $release pad $start vol 0.35

    # Eighth notes one and two octaves up; the last bar rests on its second half so that the
    # plucks have died away by the loop point.
    mix=()
    for ((i = 0; i < 8; i++)); do
        ((b == NBARS - 1 && i >= 4)) && break
        n=$((notes[ARP[i]] + 12))
        ((i == 3 || i == 5)) && n=$((n + 12))
        t=$(awk -v s=$start -v i=$i 'BEGIN { printf "%.2f", s + i * 0.5 }')
        v=$(awk -v i=$i 'BEGIN { printf "%.2f", (i % 2 == 0) ? 0.30 : 0.22 }')
        sox $F -n $F "$TMP/a$b-$i.wav" synth 1.6 pluck "$(hz $n)" lowpass 2600 fade t 0.005 1.6 1.2 \
            pad "$t" vol "$v"
        mix+=(-v 0.5 "$TMP/a$b-$i.wav")
    done
    sox -m "${mix[@]}" $F "$TMP/arp$b.wav"
done

layers=()
for ((b = 0; b < NBARS; b++)); do
    layers+=(-v 0.3 "$TMP/pad$b.wav" -v 0.3 "$TMP/bass$b.wav" -v 0.3 "$TMP/arp$b.wav")
done
sox -m "${layers[@]}" $F "$TMP/dry.wav" gain -n -10
sox "$TMP/dry.wav" -R -r $RATE -c 2 -b 16 "$TMP/music.wav" \
    remix 1 1 reverb 60 40 90 100 20 -3 trim 0 $LENGTH \
    fade t 0.05 $LENGTH 1.2 gain -n -2 dither -s
encode "$TMP/music.wav" Serendipity 128

# ---------------------------------------------------------------------------------------------
# Throws: air rushing past the ball. sox has no filter sweep, so the whoosh is built from short
# overlapping grains of noise whose band-pass centre glides from f0 to f1, under an envelope that
# swells and dies away. shot1 is short and bright, shot2 longer and darker with a thump of the arm.
whoosh() { # out, seconds, f0, f1, noise colour, seed offset
    local out=$1 dur=$2 f0=$3 f1=$4 colour=$5 grains=10 parts=() i t len f
    len=$(awk -v d="$dur" -v n=$grains 'BEGIN { printf "%.4f", 2.5 * d / n }')
    for ((i = 0; i < grains; i++)); do
        t=$(awk -v d="$dur" -v n=$grains -v i=$i 'BEGIN { printf "%.4f", i * d / n }')
        f=$(awk -v a="$f0" -v b="$f1" -v n=$grains -v i=$i \
            'BEGIN { printf "%.0f", a * (b / a) ^ (i / (n - 1)) }')
        sox $F -n $F "$TMP/g$i.wav" synth "$len" "$colour" \
            sinc -n 255 "$((f * 2 / 3))-$((f * 3 / 2))" fade h "$(awk -v l="$len" 'BEGIN { print l / 2 }')" \
            "$len" "$(awk -v l="$len" 'BEGIN { print l / 2 }')" pad "$t"
        parts+=(-v 0.4 "$TMP/g$i.wav")
    done
    sox -m "${parts[@]}" $F "$out" trim 0 "$dur" \
        fade q "$(awk -v d="$dur" 'BEGIN { print d * 0.45 }')" "$dur" "$(awk -v d="$dur" 'BEGIN { print d * 0.5 }')"
}

whoosh "$TMP/s1n.wav" 0.26 3600 1300 pinknoise
sox $F -n $F "$TMP/s1t.wav" synth 0.26 sine 700-260 fade q 0.05 0.26 0.2 vol 0.05
sox -m -v 0.5 "$TMP/s1n.wav" -v 0.5 "$TMP/s1t.wav" $F "$TMP/s1.wav" gain -n -6
sox "$TMP/s1.wav" -R -b 16 "$TMP/shot1.wav" gain -n -1
encode "$TMP/shot1.wav" shot1 96

whoosh "$TMP/s2n.wav" 0.36 1500 450 pinknoise
sox $F -n $F "$TMP/s2t.wav" synth 0.36 sine 160-60 fade q 0.01 0.36 0.3 vol 0.25
sox -m -v 0.5 "$TMP/s2n.wav" -v 0.5 "$TMP/s2t.wav" $F "$TMP/s2.wav" gain -n -6
sox "$TMP/s2.wav" -R -b 16 "$TMP/shot2.wav" gain -n -1
encode "$TMP/shot2.wav" shot2 96

# ---------------------------------------------------------------------------------------------
# Splash: a wet slap (a very short, low-passed noise burst over a falling thud), then a few
# droplets pattering down around it.
sox $F -n $F "$TMP/slap.wav" synth 0.45 whitenoise lowpass 1800 lowpass 3000 \
    fade p 0.003 0.45 0.42
sox $F -n $F "$TMP/thud.wav" synth 0.3 sine 180-55 fade q 0.002 0.3 0.28 vol 0.9
sox $F -n $F "$TMP/squelch.wav" synth 0.22 sine 500-160 tremolo 38 70 fade q 0.01 0.22 0.18 \
    pad 0.03 vol 0.25
drops=()
i=0
for drop in "0.09 2100 0.20" "0.15 2900 0.14" "0.21 1700 0.16" "0.27 3400 0.10" "0.33 2500 0.08"; do
    read -r t f v <<< "$drop"
    sox $F -n $F "$TMP/drop$i.wav" synth 0.06 sine "$f-$(awk -v f="$f" 'BEGIN { print f * 1.6 }')" \
        fade q 0.002 0.06 0.05 pad "$t" vol "$v"
    drops+=(-v 0.4 "$TMP/drop$i.wav")
    i=$((i + 1))
done
sox -m -v 0.3 "$TMP/slap.wav" -v 0.4 "$TMP/thud.wav" -v 0.4 "$TMP/squelch.wav" "${drops[@]}" \
    $F "$TMP/sp.wav" pad 0 0.1 gain -n -10
sox "$TMP/sp.wav" -R -b 16 "$TMP/splash.wav" reverb 25 60 30 100 0 -6 \
    fade t 0 0.5 0.15 gain -n -1
encode "$TMP/splash.wav" splash 96

for f in Serendipity shot1 shot2 splash; do
    printf '%-12s %6.2f s %7d bytes\n' "$f" "$(soxi -D "$OUT/$f.mp3")" "$(stat -c %s "$OUT/$f.mp3")"
done
