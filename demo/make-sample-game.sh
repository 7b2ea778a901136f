#!/usr/bin/env bash
# Makes a sample game to publish: a few hundred files in nested folders, a
# few large ones, names with blanks, and the sample program under the game
# executable's name.
#
#   make-sample-game.sh OUTDIR GAME_BINARY EXE_NAME TITLE [SIZE_MIB]
set -euo pipefail

out=$1
binary=$2
exe_name=$3
title=$4
size_mib=${5:-160}

mkdir -p "$out"
cp "$binary" "$out/$exe_name"
chmod +x "$out/$exe_name"
printf '%s\n' "$title" > "$out/game-title.txt"

# Three large archives carry most of the size.
large_mib=$(( size_mib * 3 / 4 / 3 ))
mkdir -p "$out/data/archives"
for name in world terrain "sound bank"; do
    head -c "$(( large_mib * 1024 * 1024 ))" /dev/urandom > "$out/data/archives/$name.pak"
done

# Hundreds of small files, as maps, textures and scripts are.
small_bytes=$(( size_mib * 1024 * 1024 / 4 / 300 ))
for i in $(seq 1 300); do
    case $(( i % 4 )) in
        0) dir="data/maps/region $(( i % 7 ))" ;;
        1) dir="data/textures/set$(( i % 5 ))" ;;
        2) dir="sounds/ambient" ;;
        *) dir="scripts" ;;
    esac
    mkdir -p "$out/$dir"
    head -c "$(( small_bytes / 2 + (i * 7919) % small_bytes ))" /dev/urandom > "$out/$dir/file_$i.dat"
done
echo "Sample game in $out: $(find "$out" -type f | wc -l) files, $(du -sm "$out" | cut -f1) MiB"
