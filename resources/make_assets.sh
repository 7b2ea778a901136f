#!/usr/bin/env bash
# Regenerates the launcher's images, icons and background video in this folder.
# Needs only Debian packages: imagemagick (6), ffmpeg (with libx264) and
# fonts-dejavu-core. The output is deterministic: every random input is seeded.
set -euo pipefail

OUT="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
TMP="$(mktemp -d)"
trap 'rm -rf "$TMP"' EXIT

FONTS=/usr/share/fonts/truetype/dejavu
SERIF_BOLD="$FONTS/DejaVuSerif-Bold.ttf"
SERIF_COND_BOLD="$FONTS/DejaVuSerifCondensed-Bold.ttf"
for tool in convert ffmpeg ffprobe; do
    command -v "$tool" >/dev/null || { echo "missing $tool (apt-get install imagemagick ffmpeg)" >&2; exit 1; }
done
ffmpeg -hide_banner -encoders 2>/dev/null | grep libx264 >/dev/null || { echo "ffmpeg lacks libx264" >&2; exit 1; }
for font in "$SERIF_BOLD" "$SERIF_COND_BOLD"; do
    [[ -f "$font" ]] || { echo "missing $font (apt-get install fonts-dejavu-core)" >&2; exit 1; }
done

GOLD='#d9b35b'
PALE='#FEFEC6'
NAVY='#0a101e'

# Small icons are drawn SS times larger and box-filtered down, which gives
# cleaner anti-aliasing than drawing thin strokes at 1:1. The affine maps the
# drawing's coordinates onto the large canvas with SVG's pixel convention
# (pixel k spans k..k+1), so the numbers below read as final-size pixels.
SS=8
A="affine $SS,0,0,$SS,-0.5,-0.5"

# Writes PNGs without timestamps or metadata so reruns give identical files.
# save_png OUTPUT CONVERT-ARGS...
save_png() { local out=$1; shift; convert "$@" -depth 8 -strip -define png:exclude-chunks=date,time "$out"; }

# Reports a written file: name, bytes, pixel size(s) (every image of an .ico).
wrote() {
    local dims
    case "$1" in
        *.mp4) dims=$(ffprobe -v error -select_streams v:0 -show_entries stream=width,height,nb_frames \
                   -of csv=p=0:s=x "$OUT/$1" | sed 's/x\([0-9]*\)$/, \1 frames/') ;;
        *) dims=$(identify -format '%wx%h ' "$OUT/$1") ;;
    esac
    printf '  %-34s %8s bytes  %s\n' "$1" "$(stat -c %s "$OUT/$1")" "$dims"
}

# supersampled W H OUTPUT.png DRAWING-ARGS...
supersampled() {
    local w=$1 h=$2 out=$3; shift 3
    save_png "$OUT/$out" -size $((w * SS))x$((h * SS)) xc:none "$@" -filter box -resize "${w}x${h}!"
    wrote "$out"
}

echo "Writing into $OUT"

# ---------------------------------------------------------------------------
# Title-bar buttons: thin grey glyphs; the hover copies are a pixel larger so
# the glyph can sit on an exact centre, in pale gold over a faint round glow.
# ---------------------------------------------------------------------------
GREY='#c9ced8'
supersampled 20 20 button_minimize.png -fill none -stroke "$GREY" -strokewidth 1.5 \
    -draw "$A stroke-linecap round line 5.5,10 14.5,10"
supersampled 20 20 button_exit.png -fill none -stroke "$GREY" -strokewidth 1.5 \
    -draw "$A stroke-linecap round line 6,6 14,14 line 14,6 6,14"

hover_button() {
    supersampled 21 21 "$1" \
        \( -size $((21 * SS))x$((21 * SS)) radial-gradient:'rgba(254,254,198,0.30)-rgba(254,254,198,0)' \) \
        -compose over -composite \
        -fill none -stroke "$PALE" -strokewidth 1.7 -draw "$A stroke-linecap round $2"
}
hover_button button_minimize_on.png "line 5.5,10.5 15.5,10.5"
hover_button button_exit_on.png "line 6.5,6.5 14.5,14.5 line 14.5,6.5 6.5,14.5"

# ---------------------------------------------------------------------------
# Settings cog: one even-odd path, toothed outline plus the axle hole, so it
# has no seams; the stroke of the same colour rounds the tooth corners.
# ---------------------------------------------------------------------------
gear_path() { # cx cy outer-radius root-radius hole-radius teeth
    awk -v cx="$1" -v cy="$2" -v ro="$3" -v rr="$4" -v rh="$5" -v n="$6" 'BEGIN {
        d = atan2(0, -1) / 180; step = 360 / n
        for (i = 0; i < n; i++) {
            t = i * step - 90
            a1 = t - step * 0.30; a2 = t - step * 0.19; a3 = t + step * 0.19
            a4 = t + step * 0.30; a5 = t + step * 0.70
            if (i == 0) printf "M %.3f,%.3f ", cx + rr * cos(a1 * d), cy + rr * sin(a1 * d)
            printf "L %.3f,%.3f L %.3f,%.3f L %.3f,%.3f A %g,%g 0 0,1 %.3f,%.3f ",
                cx + ro * cos(a2 * d), cy + ro * sin(a2 * d), cx + ro * cos(a3 * d), cy + ro * sin(a3 * d),
                cx + rr * cos(a4 * d), cy + rr * sin(a4 * d), rr, rr, cx + rr * cos(a5 * d), cy + rr * sin(a5 * d)
        }
        printf "Z M %.3f,%.3f A %g,%g 0 1,0 %.3f,%.3f A %g,%g 0 1,0 %.3f,%.3f Z",
            cx + rh, cy, rh, rh, cx - rh, cy, rh, rh, cx + rh, cy
    }'
}
supersampled 75 75 button_settings.png -fill '#d3d7df' -stroke '#d3d7df' -strokewidth 1.2 \
    -draw "$A stroke-linejoin round fill-rule evenodd path '$(gear_path 37.5 37.5 17 12.6 5.2 8)'"

# ---------------------------------------------------------------------------
# Company emblem: a gold tree inside a double gold ring on a navy disc. The
# canopy is overlapping clumps outlined in navy, so it reads as foliage.
# ---------------------------------------------------------------------------
B60=$((60 * SS))
convert -size ${B60}x${B60} xc:none -fill white -stroke "$NAVY" -strokewidth 0.9 -draw "$A
    path 'M 28,33 C 28.2,38 27.4,42.5 24.5,45.8 L 35.5,45.8 C 32.6,42.5 31.8,38 32,33 Z'
    circle 25.5,17.5 25.5,23.8   circle 34.5,17.5 34.5,23.8   circle 30,15 30,21
    circle 19.5,24.5 19.5,30.5   circle 40.5,24.5 40.5,30.5   circle 30,23 30,30
    circle 23.5,30.5 23.5,36     circle 36.5,30.5 36.5,36     circle 30,32 30,35.2" \
    -stroke none -draw "$A path 'M 29,36 L 31,36 L 31.6,41 L 28.4,41 Z'
    path 'M 19,47.6 Q 30,44.6 41,47.6 L 41,48.8 Q 30,46.2 19,48.8 Z'" "$TMP/tree.png"
# Multiply by a pale-to-deep gold ramp, then restore the drawing's coverage.
convert "$TMP/tree.png" -background black -alpha remove \
    \( -size ${B60}x${B60} gradient:"$PALE-#a87a28" \) -compose multiply -composite \
    \( "$TMP/tree.png" -alpha extract \) -compose copy_opacity -composite "$TMP/tree_gold.png"
supersampled 60 60 company_logo.png \
    -fill 'rgba(10,16,30,0.88)' -stroke none -draw "$A circle 30,30 30,58.6" \
    "$TMP/tree_gold.png" -compose over -composite \
    -fill none -stroke "$GOLD" -strokewidth 1.6 -draw "$A circle 30,30 30,57.6" \
    -stroke 'rgba(217,179,91,0.55)' -strokewidth 0.6 -draw "$A circle 30,30 30,54.4"

# ---------------------------------------------------------------------------
# Action button frames: rounded slab with a vertical colour ramp, a glassy
# highlight over the top half, a soft central sheen and a light rim. The
# hover copies use a brighter ramp and rim. No text: the button draws it.
# ---------------------------------------------------------------------------
button_frame() { # output top-colour bottom-colour rim-colour
    save_png "$OUT/$1" -size 390x76 gradient:"$2-$3" \
        \( -size 390x1 radial-gradient:'rgba(255,255,255,0.16)-rgba(255,255,255,0)' -scale '390x76!' \) \
        -compose over -composite \
        \( -size 390x38 gradient:'rgba(255,255,255,0.28)-rgba(255,255,255,0)' \
           -background none -gravity north -extent 390x76 \) -compose over -composite \
        \( -size 390x76 xc:none -fill white -draw "roundrectangle 2,2 387,73 10,10" \) \
        -compose copy_opacity -composite \
        \( -size 390x76 xc:none -fill none -stroke "$4" -strokewidth 1 \
           -draw "roundrectangle 2.5,2.5 386.5,72.5 10,10" \) -compose over -composite \
        \( -size 390x76 xc:none -fill none -stroke 'rgba(255,255,255,0.22)' -strokewidth 1 \
           -draw "line 13,3.5 376,3.5" \) -compose over -composite
    wrote "$1"
}
button_frame frame_install.png    '#d9a441' '#8c5a14' 'rgba(254,240,190,0.75)'
button_frame frame_install_on.png '#f2c25a' '#a8701e' 'rgba(254,250,210,0.95)'
button_frame frame_update.png     '#3b93c0' '#18496e' 'rgba(190,230,255,0.70)'
button_frame frame_update_on.png  '#52aede' '#1f5d8a' 'rgba(210,240,255,0.95)'
button_frame frame_play.png       '#4fae57' '#1f6a2c' 'rgba(200,255,200,0.70)'
button_frame frame_play_on.png    '#66cc6e' '#2a8238' 'rgba(220,255,220,0.95)'

# ---------------------------------------------------------------------------
# Product logos: the name in small caps style (larger initial) with a
# two-tone metallic gold ramp, a dark rim and a wide dark glow so it stays
# legible over the moving background, plus a rule-and-diamond ornament.
# ---------------------------------------------------------------------------
product_logo() { # output NAME ramp-top ramp-upper ramp-lower ramp-bottom
    local out=$1 name=$2 first=${2:0:1} rest=${2:1}
    local big=44 small=33 kern=1.5 base=72 wf wr x0
    wf=$(convert -font "$SERIF_COND_BOLD" -pointsize $big label:"$first" -format %w info:)
    wr=$(convert -font "$SERIF_COND_BOLD" -pointsize $small -kerning $kern label:"$rest" -format %w info:)
    x0=$(((302 - wf - wr) / 2))
    convert -size 302x138 xc:black -fill white -font "$SERIF_COND_BOLD" \
        -pointsize $big -annotate +${x0}+${base} "$first" \
        -pointsize $small -kerning $kern -annotate +$((x0 + wf - 2))+${base} "$rest" \
        -stroke none -draw "path 'M 60,90 L 140,89 L 140,91 Z' path 'M 242,90 L 162,89 L 162,91 Z'
            path 'M 151,84 L 157,90 L 151,96 L 145,90 Z'
            circle 137,90 137,91.6 circle 165,90 165,91.6" "$TMP/logo_mask.png"
    # The ramp steps from pale to deep gold just under mid-letter, like polished metal.
    convert \( -size 302x64 gradient:"$3-$4" \) \( -size 302x74 gradient:"$5-$6" \) -append \
        "$TMP/logo_mask.png" -alpha off -compose copy_opacity -composite "$TMP/logo_gold.png"
    save_png "$OUT/$out" -size 302x138 xc:none \
        \( -size 302x138 xc:black \( "$TMP/logo_mask.png" -morphology dilate disk:3 -blur 0x6 \
           -evaluate multiply 0.85 \) -alpha off -compose copy_opacity -composite \) -compose over -composite \
        \( -size 302x138 xc:'#24160a' \( "$TMP/logo_mask.png" -morphology dilate disk:1.2 \) \
           -alpha off -compose copy_opacity -composite \) -compose over -composite \
        "$TMP/logo_gold.png" -compose over -composite
    wrote "$out"
}
product_logo hm_logo.png HOLLOWMERE "$PALE" '#ecd088' '#b98a34' '#e6c06a'
product_logo af_logo.png ASHFALLOW  '#FFF0C0' '#f0c070' '#b06a26' '#e89a48'

# ---------------------------------------------------------------------------
# Button icons and the progress backdrop.
# ---------------------------------------------------------------------------
supersampled 26 28 icon_download.png -fill none -stroke white -strokewidth 2.2 -draw "$A
    stroke-linecap round stroke-linejoin round
    line 13,3.5 13,17.5  polyline 7.5,12 13,17.5 18.5,12  polyline 4,18.5 4,23.5 22,23.5 22,18.5"
supersampled 24 26 icon_play.png -fill white -stroke white -strokewidth 2.4 -draw "$A
    stroke-linejoin round polygon 6.5,4.5 6.5,21.5 20.5,13"
# The painted progress arc is 3px wide on radius 15, so the track ring sits there.
supersampled 40 40 circular_progress_background.png \
    -fill 'rgba(0,0,0,0.55)' -stroke none -draw "$A circle 20,20 20,39.5" \
    -fill none -stroke 'rgba(255,255,255,0.14)' -strokewidth 3 -draw "$A circle 20,20 20,35" \
    -stroke 'rgba(217,179,91,0.35)' -strokewidth 0.8 -draw "$A circle 20,20 20,39"

# ---------------------------------------------------------------------------
# Windows icons: gold serif monogram on a dark rounded tile. 256/48/32 come
# from one large drawing; 16 is drawn on its own with a heavier letter and no
# inner rule, because the fine detail turns to mush at that size.
# ---------------------------------------------------------------------------
monogram_tile() { # letter size output [simple]
    local letter=$1 size=$2 out=$3 simple=${4:-}
    local b=$((size * 4)) r=$((size * 4 * 12 / 64)) ps rim inner=()
    rim=$((b / 64 + 1))
    if [[ -n "$simple" ]]; then
        ps=$((b * 82 / 100))
    else
        ps=$((b * 66 / 100))
        local i=$((b * 7 / 64)) j=$((b * 57 / 64))
        inner=(-fill none -stroke 'rgba(217,179,91,0.45)' -strokewidth $((b / 128 + 1))
               -draw "roundrectangle $i,$i $j,$j $((r * 2 / 3)),$((r * 2 / 3))")
    fi
    # letter: gold ramp clipped to the glyph, with a dark drop shadow beneath it
    convert -size ${b}x${b} xc:black -fill white -font "$SERIF_BOLD" -pointsize $ps -gravity center \
        -annotate +0+$((b / 40)) "$letter" "$TMP/mono_mask.png"
    convert -size ${b}x${b} gradient:"$PALE-#b8862f" "$TMP/mono_mask.png" -alpha off \
        -compose copy_opacity -composite "$TMP/mono_gold.png"
    convert -size ${b}x${b} xc:none \
        \( -size ${b}x${b} gradient:'#26324f-#0b101d' \
           \( -size ${b}x${b} xc:none -fill white -draw "roundrectangle 0,0 $((b - 1)),$((b - 1)) $r,$r" \) \
           -compose copy_opacity -composite \) -compose over -composite \
        -fill none -stroke "$GOLD" -strokewidth $((b / 32 + 1)) \
        -draw "roundrectangle $rim,$rim $((b - rim - 1)),$((b - rim - 1)) $r,$r" \
        "${inner[@]}" \
        \( -size ${b}x${b} xc:black \( "$TMP/mono_mask.png" -blur 0x$((b / 50 + 1)) \) -alpha off \
           -compose copy_opacity -composite -geometry +0+$((b / 64 + 1)) \) -compose over -composite \
        "$TMP/mono_gold.png" -geometry +0+0 -compose over -composite \
        -filter box -resize ${size}x${size} -depth 8 -strip "$TMP/$out"
}
windows_icon() { # letter output
    monogram_tile "$1" 256 ico256.png
    monogram_tile "$1" 16 ico16.png simple
    convert "$TMP/ico256.png" -filter lanczos -resize 48x48 "$TMP/ico48.png"
    convert "$TMP/ico256.png" -filter lanczos -resize 32x32 "$TMP/ico32.png"
    convert "$TMP/ico16.png" "$TMP/ico32.png" "$TMP/ico48.png" "$TMP/ico256.png" "$OUT/$2"
    wrote "$2"
}
windows_icon H hm_icon.ico
windows_icon A af_icon.ico

# ---------------------------------------------------------------------------
# Sidebar icons: hand-written SVG, 24x24, white round-capped strokes. Only
# plain shapes and presentation attributes, which Qt's SVG Tiny renderer
# draws faithfully.
# ---------------------------------------------------------------------------
svg_icon() { # output, body on stdin
    {
        echo '<svg xmlns="http://www.w3.org/2000/svg" version="1.2" baseProfile="tiny" width="24" height="24" viewBox="0 0 24 24">'
        echo '  <g fill="none" stroke="#FFFFFF" stroke-width="1.8" stroke-linecap="round" stroke-linejoin="round">'
        sed 's/^/    /'
        echo '  </g>'
        echo '</svg>'
    } >"$OUT/$1"
    wrote "$1"
}
svg_icon icon_website.svg <<'EOF'
<circle cx="12" cy="12" r="9"/>
<ellipse cx="12" cy="12" rx="4" ry="9"/>
<line x1="3" y1="12" x2="21" y2="12"/>
<path d="M4.6 7.5 H19.4 M4.6 16.5 H19.4"/>
EOF
svg_icon icon_patch_notes.svg <<'EOF'
<path d="M14 3 H6.5 A1.5 1.5 0 0 0 5 4.5 V19.5 A1.5 1.5 0 0 0 6.5 21 H17.5 A1.5 1.5 0 0 0 19 19.5 V8 Z"/>
<polyline points="14,3 14,8 19,8"/>
<line x1="8.5" y1="12" x2="15.5" y2="12"/>
<line x1="8.5" y1="15" x2="15.5" y2="15"/>
<line x1="8.5" y1="18" x2="12.5" y2="18"/>
EOF
svg_icon icon_guide.svg <<'EOF'
<path d="M12 6.5 C10 5 7 4.5 3 5 V19 C7 18.5 10 19 12 20.5 C14 19 17 18.5 21 19 V5 C17 4.5 14 5 12 6.5 Z"/>
<line x1="12" y1="6.5" x2="12" y2="20.5"/>
EOF
svg_icon icon_wiki.svg <<'EOF'
<path d="M5 19 V5 A2 2 0 0 1 7 3 H19 V21 H7 A2 2 0 0 1 5 19 A2 2 0 0 1 7 17 H19"/>
<polyline points="8.5,7 10,13 12,9 14,13 15.5,7" stroke-width="1.5"/>
EOF
svg_icon icon_store.svg <<'EOF'
<path d="M5 8 H19 L18 21 H6 Z"/>
<path d="M9 11 V7 A3 3 0 0 1 15 7 V11"/>
EOF
svg_icon icon_discord.svg <<'EOF'
<path d="M7 6.5 C10 5.3 14 5.3 17 6.5 C19 9.3 20.2 12.5 20.3 16 C18.8 17.4 17 18.3 15.6 18.6 L14.6 16.9 C12.9 17.3 11.1 17.3 9.4 16.9 L8.4 18.6 C7 18.3 5.2 17.4 3.7 16 C3.8 12.5 5 9.3 7 6.5 Z"/>
<circle cx="9.3" cy="12.4" r="1.3" fill="#FFFFFF" stroke="none"/>
<circle cx="14.7" cy="12.4" r="1.3" fill="#FFFFFF" stroke="none"/>
EOF
svg_icon icon_twitter.svg <<'EOF'
<path d="M4.5 4 H9 L19.5 20 H15 Z"/>
<line x1="19.5" y1="4" x2="13.4" y2="10.9"/>
<line x1="10.6" y1="13.1" x2="4.5" y2="20"/>
EOF
svg_icon icon_twitch.svg <<'EOF'
<path d="M4.5 3.5 H19.5 V13.5 L15.5 17.5 H11.5 L8.5 20.5 V17.5 H4.5 Z"/>
<line x1="10.5" y1="7.5" x2="10.5" y2="11.5"/>
<line x1="15" y1="7.5" x2="15" y2="11.5"/>
EOF
svg_icon icon_youtube.svg <<'EOF'
<rect x="2.5" y="5.5" width="19" height="13" rx="4" ry="4"/>
<polygon points="10,9 10,15 15.5,12" fill="#FFFFFF"/>
EOF

# ---------------------------------------------------------------------------
# Background video: a moonlit valley at night. Static layers (sky, ranges,
# forest) are painted here; ffmpeg moves two mist layers, fireflies and
# twinkling stars over them. All motion is a function of sin/cos of
# 2*pi*n/180 or of the phase mod(n/180 + offset, 1) faded to zero at its
# wrap, so frame 180 equals frame 0 and the 181-frame clip loops seamlessly.
# ---------------------------------------------------------------------------
W=1366
H=768
PERIOD=180

# Portable seeded random numbers (Park-Miller), so every awk gives the same scene.
AWK_RND='function rnd() { seed = (seed * 16807) % 2147483647; return seed / 2147483647 }'

# ridge SEED BASE HEIGHT PEAKS: polygon points of a mountain silhouette. Each
# peak is an exponential cone (steep summit, long concave flanks); the range is
# their upper envelope plus two octaves of fine roughness. Closes at the bottom.
ridge() {
    awk -v seed="$1" -v base="$2" -v height="$3" -v peaks="$4" -v w="$W" -v h="$H" "$AWK_RND"'
    function noise(x, L,   i, f) {
        i = int(x / L); f = (x - i * L) / L; f = (1 - cos(f * 3.14159265)) / 2
        return lat[L, i] + (lat[L, i + 1] - lat[L, i]) * f }
    BEGIN {
        for (p = 0; p < peaks; p++) {
            px[p] = -100 + rnd() * (w + 200); ph[p] = height * (0.3 + 0.7 * rnd()); pw[p] = 70 + 160 * rnd()
        }
        for (L = 8; L <= 32; L *= 4) for (i = 0; i <= w / L + 2; i++) lat[L, i] = rnd()
        printf "0,%d ", h
        for (x = 0; x <= w + 8; x += 3) {
            m = 0
            for (p = 0; p < peaks; p++) {
                d = x - px[p]; if (d < 0) d = -d
                v = ph[p] * exp(-d / pw[p]); if (v > m) m = v
            }
            m += height * 0.05 * (noise(x, 32) + 0.5 * noise(x, 8))
            printf "%d,%.1f ", x, base - m
        }
        printf "%d,%d", w + 8, h
    }'
}

# forest SEED GROUND JITTER: polygons of layered fir trees along a ground line.
forest() {
    awk -v seed="$1" -v ground="$2" -v jitter="$3" -v w="$W" -v h="$H" "$AWK_RND"'
    BEGIN {
        printf "polygon 0,%d ", h
        for (x = 0; x <= w + 20; x += 20) printf "%d,%.1f ", x, ground + jitter * sin(x / 170.0 + 1) + 0.5 * jitter * sin(x / 61.0)
        printf "%d,%d\n", w + 20, h
        x = -10
        while (x < w + 20) {
            gy = ground + jitter * sin(x / 170.0 + 1) + 0.5 * jitter * sin(x / 61.0) + 6
            th = 34 + 70 * rnd() * rnd() + 18 * rnd(); tw = th * (0.30 + 0.08 * rnd())
            tiers = 4
            for (t = 0; t < tiers; t++) {
                top = gy - th + t * th * 0.2; bot = gy - th * (0.62 - t * 0.2)
                half = tw * (0.45 + 0.55 * (t + 1) / tiers) / 2
                printf "polygon %.1f,%.1f %.1f,%.1f %.1f,%.1f\n", x, top, x - half, bot, x + half, bot
            }
            printf "rectangle %.1f,%.1f %.1f,%.1f\n", x - 1.5, gy - th * 0.3, x + 1.5, gy + 2
            x += 7 + 16 * rnd()
        }
    }'
}

# Sky: deep navy ramp, a soft moon with its halo, and a seeded star field that
# thins out towards the horizon.
convert -size ${W}x${H} gradient:'#02040a-#0f1830' \
    \( -size ${W}x260 gradient:'rgba(40,52,86,0)-rgba(40,52,86,0.9)' -background none -gravity north -splice 0x330 -extent ${W}x${H} \) \
    -gravity northwest -compose over -composite \
    \( -size ${W}x${H} xc:none -fill 'rgba(200,210,240,0.10)' -draw 'circle 1010,150 1010,420' -blur 0x90 \) -compose screen -composite \
    \( -size ${W}x${H} xc:none -fill 'rgba(230,225,200,0.35)' -draw 'circle 1010,150 1010,205' -blur 0x22 \) -compose screen -composite \
    \( -size ${W}x${H} xc:none -fill '#efe9cf' -draw 'circle 1010,150 1010,184' \
       -fill 'rgba(170,165,140,0.22)' -draw 'circle 998,140 998,149 circle 1022,163 1022,168 circle 1016,136 1016,140' -blur 0x1 \) -compose over -composite \
    -draw "$(awk -v seed=4242 -v w=$W "$AWK_RND"'BEGIN {
        for (i = 0; i < 420; i++) {
            x = rnd() * w; y = 540 * rnd() ^ 1.7; a = (0.15 + 0.65 * rnd()) * (1 - y / 620)
            r = 0.45 + 0.55 * rnd() ^ 3
            dx = x - 1010; dy = y - 150; if (dx * dx + dy * dy < 90 * 90) continue
            printf "fill rgba(235,235,255,%.2f) circle %.1f,%.1f %.1f,%.1f\n", a, x, y, x + r, y
        } }')" \
    "$TMP/sky.png"

# Mountain ranges, far to near: each one darker, each fading at its foot into
# valley mist, which is what gives the scene its depth.
range() { # seed base height peaks top-colour foot-colour output
    convert -size ${W}x${H} gradient:"$5-$6" \
        \( -size ${W}x${H} xc:none -fill white -draw "polygon $(ridge "$1" "$2" "$3" "$4")" \) \
        -compose copy_opacity -composite "$TMP/$7"
}
range 11 500 220 9 '#1a2440' '#34426a' range_far.png
range 23 590 150 12 '#101830' '#222d4c' range_mid.png
range 37 665 80 14 '#0a1020' '#141c33' range_near.png

convert "$TMP/sky.png" "$TMP/range_far.png" -compose over -composite "$TMP/range_mid.png" -composite \
    -depth 8 "$TMP/layer_back.png"
# the near range and the forest need their own layers: mist and fireflies pass between them
cp "$TMP/range_near.png" "$TMP/layer_mid.png"
convert -size ${W}x${H} xc:none -fill '#04060c' -draw "$(forest 57 716 14)" "$TMP/layer_front.png"

# Vignette: darken the corners and the top and bottom bands, where the
# launcher puts its title bar, text and buttons.
convert -size ${W}x${H} radial-gradient:'rgba(0,0,0,0)-rgba(0,0,0,0.75)' -distort SRT '0,0 1.25,1.25 0 0,0' \
    \( -size ${W}x110 gradient:'rgba(0,0,0,0.55)-rgba(0,0,0,0)' -background none -extent ${W}x${H} \) -compose over -composite \
    "$TMP/layer_vignette.png"

# Mist: blurred seeded noise (wrapping at the borders, so no edge streaks),
# stretched wide, shaped into a soft band and tinted moonlit blue. Each layer
# is wider than the frame so it can sway sideways once per loop.
mist() { # seed band-height output
    convert -size 400x90 xc: -seed "$1" +noise random -channel G -separate +channel \
        -virtual-pixel tile -blur 0x9 -auto-level -resize 1500x"$2"! -evaluate pow 1.8 \
        \( -size 1500x"$2" gradient:black-white -function polynomial -4,4,0 -evaluate pow 1.5 \) \
        -compose multiply -composite -evaluate multiply 0.5 "$TMP/mist_alpha.png"
    convert -size 1500x"$2" xc:'#9fb2d6' "$TMP/mist_alpha.png" -alpha off -compose copy_opacity -composite "$TMP/$3"
}
mist 5 260 mist_a.png
mist 9 240 mist_b.png

# Sprites: a warm glow for fireflies and a small cool glint for stars.
convert -size 36x36 radial-gradient:white-black -evaluate pow 2.2 "$TMP/glow_alpha.png"
convert -size 36x36 xc:'#ffd98a' \( "$TMP/glow_alpha.png" \) -alpha off -compose copy_opacity -composite \
    -fill '#fffbe0' -draw 'circle 17.5,17.5 17.5,19.6' "$TMP/firefly.png"
convert -size 15x15 radial-gradient:white-black -evaluate pow 3 \
    \( -size 15x15 xc:black -fill gray60 -draw 'line 7,0 7,14 line 0,7 14,7' -blur 0x0.7 \) -compose lighten -composite \
    "$TMP/glint_alpha.png"
convert -size 15x15 xc:'#e8ecff' "$TMP/glint_alpha.png" -alpha off -compose copy_opacity -composite "$TMP/glint.png"

# Filter graph: the layers stacked with moving mist, then fireflies (some
# behind the forest, some in front) and twinkling stars, each with its own
# seeded path, fade phase and brightness.
awk -v seed=777 -v P=$PERIOD -v w=$W "$AWK_RND"'BEGIN {
    nf = 26; ns = 12
    # split the sprite streams
    printf "[5:v]format=gbrap,split=%d", nf; for (i = 0; i < nf; i++) printf "[f%d]", i; print ";"
    printf "[6:v]format=gbrap,split=%d", ns; for (i = 0; i < ns; i++) printf "[s%d]", i; print ";"
    # twinkling stars: brightness pulses with an integer number of cycles per loop
    for (i = 0; i < ns; i++) {
        k = 1 + int(rnd() * 3); ph = rnd(); lo = 0.2 + 0.3 * rnd()
        printf "[s%d]geq=r=r(X\\,Y):g=g(X\\,Y):b=b(X\\,Y):a=alpha(X\\,Y)*(%.2f+%.2f*pow(sin(PI*(%d*N/%d+%.3f))\\,2))[S%d];\n", i, lo, 1 - lo, k, P, ph, i
        sx[i] = int(30 + rnd() * (w - 60)); sy[i] = int(20 + 330 * rnd() ^ 1.4)
    }
    for (i = 0; i < nf; i++) {
        ph = rnd(); b = 0.45 + 0.55 * rnd()
        printf "[f%d]geq=r=r(X\\,Y):g=g(X\\,Y):b=b(X\\,Y):a=alpha(X\\,Y)*%.2f*pow(sin(PI*mod(N/%d+%.3f\\,1))\\,2)[F%d];\n", i, b, P, ph, i
        fx[i] = 20 + rnd() * (w - 40); fy[i] = 560 + rnd() * 190; rise[i] = 50 + 130 * rnd()
        drift[i] = -40 + 80 * rnd(); ax[i] = 6 + 22 * rnd(); kk[i] = 1 + int(rnd() * 2); ps[i] = 6.283 * rnd()
        fph[i] = ph; front[i] = (rnd() < 0.55)
    }
    print "[0:v]format=gbrap[bg];"
    print "[bg][1:v]overlay=x=-67+45*sin(2*PI*n/" P "):y=430:format=rgb[l1];"
    print "[l1][2:v]overlay=0:0:format=rgb[l2];"
    print "[l2][3:v]overlay=x=-67-45*sin(2*PI*n/" P "+1.3):y=540:format=rgb[l3];"
    last = "l3"; c = 0
    for (pass = 0; pass < 2; pass++) {
        if (pass == 1) { printf "[%s][4:v]overlay=0:0:format=rgb[fr];\n", last; last = "fr" }
        for (i = 0; i < nf; i++) if (front[i] == pass) {
            printf "[%s][F%d]overlay=x=%.1f+%.1f*mod(n/%d+%.3f\\,1)+%.1f*sin(%d*2*PI*n/%d+%.2f)-18:y=%.1f-%.1f*mod(n/%d+%.3f\\,1)+5*sin(2*2*PI*n/%d+%.2f)-18:format=rgb[p%d];\n",
                last, i, fx[i], drift[i], P, fph[i], ax[i], kk[i], P, ps[i], fy[i], rise[i], P, fph[i], P, ps[i], c
            last = "p" c; c++
        }
    }
    for (i = 0; i < ns; i++) {
        printf "[%s][S%d]overlay=x=%d:y=%d:format=rgb[t%d];\n", last, i, sx[i], sy[i], i; last = "t" i
    }
    printf "[%s][7:v]overlay=0:0:format=rgb,scale=out_color_matrix=bt709:out_range=tv,format=yuv420p[v]\n", last
}' >"$TMP/graph.txt"

# Every input is a looped still at 30 fps; the graph's n is the frame number.
# The frames go to a lossless file first: x264 fed straight from this slow
# graph gave a slightly different file on every run, from a file it does not.
ffmpeg -v error -y \
    -loop 1 -framerate 30 -i "$TMP/layer_back.png" \
    -loop 1 -framerate 30 -i "$TMP/mist_a.png" \
    -loop 1 -framerate 30 -i "$TMP/layer_mid.png" \
    -loop 1 -framerate 30 -i "$TMP/mist_b.png" \
    -loop 1 -framerate 30 -i "$TMP/layer_front.png" \
    -loop 1 -framerate 30 -i "$TMP/firefly.png" \
    -loop 1 -framerate 30 -i "$TMP/glint.png" \
    -loop 1 -framerate 30 -i "$TMP/layer_vignette.png" \
    -filter_complex_script "$TMP/graph.txt" -map '[v]' -frames:v $((PERIOD + 1)) -r 30 -an \
    -c:v ffv1 "$TMP/frames.mkv"
# One keyframe for the whole clip (it is short and only ever restarts at 0);
# aq-mode 3 spends bits on the dark gradients that would otherwise band.
ffmpeg -v error -y -i "$TMP/frames.mkv" -an \
    -c:v libx264 -preset slow -tune film -crf 28 -profile:v high -pix_fmt yuv420p -threads 4 \
    -x264-params keyint=$((PERIOD + 1)):min-keyint=$((PERIOD + 1)):scenecut=0:aq-mode=3 \
    -colorspace bt709 -color_primaries bt709 -color_trc bt709 -color_range tv \
    -map_metadata -1 -fflags +bitexact -flags:v +bitexact -movflags +faststart \
    "$OUT/background.mp4"
wrote background.mp4

# Fallback still: the video's own first frame, so the two always match.
ffmpeg -v error -y -i "$OUT/background.mp4" -frames:v 1 -vf scale=in_color_matrix=bt709:in_range=tv \
    "$TMP/first.png"
convert "$TMP/first.png" -strip -sampling-factor 4:2:0 -interlace none -quality 80 "$OUT/background_still.jpg"
wrote background_still.jpg

echo "Done."
