#!/usr/bin/env bash
# Compiles every source of src/ and tools/ as the Windows build would, with
# mingw-w64 and -fsyntax-only, against this machine's Qt headers (Debian has
# no Qt for Windows; the headers follow Q_OS_WIN, which the compiler defines).
#
# Usage: syntax-check.sh SOURCE_DIR TARGETS_DIR QT_MODULES
#   TARGETS_DIR: one file per CMake target (see CMakeLists.txt beside this
#   script); QT_MODULES: every Qt module found, given to each source.
#
# Compiled: every .cpp a target lists, with its flags (foo_unix.cpp stands
# for foo_win.cpp, which must exist); every other .cpp under src/ and tools/
# (CMake's WIN32 branches), with the flags of the nearest target above it;
# never *_unix.cpp, *_linux.cpp or an FFmpeg source (Windows decodes video
# with Qt Multimedia). Warnings in our code are errors; Qt's are not.
set -euo pipefail

source_dir=$(cd "$1" && pwd)
targets_dir=$2
qt_modules=$3
compiler=${MINGW_CXX:-x86_64-w64-mingw32-g++-posix}

if ! command -v "$compiler" >/dev/null 2>&1; then
    echo "SKIP: $compiler is not installed (apt-get install g++-mingw-w64-x86-64-posix)"
    exit 77
fi
work=${WINDOWS_TEST_WORKDIR:-$(mktemp -d)}/syntax

if ! ls "$targets_dir"/*.txt >/dev/null 2>&1; then
    echo "FAIL: no target descriptions in $targets_dir; configure the build first"
    exit 1
fi

rm -rf "$work"
mkdir -p "$work/flags" "$work/logs" "$work/portable"

# isa-l has no mingw-w64 package in Debian. Its headers are plain C, the same
# for both systems, so the Linux copies stand in, alone in a folder of their
# own: adding all of /usr/include would let Linux-only headers slip through.
for header in isa-l isa-l.h; do
    if [ -e "/usr/include/$header" ]; then
        ln -s "/usr/include/$header" "$work/portable/$header"
    fi
done

is_linux_only() {
    case "$(basename "$1")" in
    *_unix.cpp | *_linux.cpp | *[Ff][Ff][Mm][Pp][Ee][Gg]*) return 0 ;;
    *) return 1 ;;
    esac
}

# GCC reads a response file with backslash as the escape of any character.
escape() {
    printf '%s\n' "$1" | sed -e 's/[\\"'"'"' \t]/\\&/g'
}

declare -A planned # source -> flags file
declare -A directory_flags # folder of a target -> its flags file
failures=()

for description in "$targets_dir"/*.txt; do
    target=$(basename "$description" .txt)
    flags="$work/flags/$target.rsp"
    {
        standard=17
        for flag in -DUNICODE -D_UNICODE -DWIN32 -DWIN64 -DMINGW_HAS_SECURE_API=1 -isystem "$work/portable"; do
            escape "$flag"
        done
        declare -A seen=()
        while IFS= read -r line; do
            [ -z "${seen[$line]:-}" ] || continue
            seen[$line]=1
            kind=${line%% *}
            value=${line#* }
            [ "$line" = "$kind" ] && value=""
            [ -n "$value" ] || continue
            case "$kind" in
            define) escape "-D$value" ;;
            include)
                case "$value" in
                # mingw-w64 has a C library of its own.
                /usr/include | /usr/include/*-linux-gnu) ;;
                */mkspecs/linux-g++) escape "-isystem" && escape "${value%linux-g++}win32-g++" ;;
                "$source_dir"/* | "$source_dir") escape "-I$value" ;;
                *) escape "-isystem" && escape "$value" ;;
                esac
                ;;
            forms)
                if [ ! -d "$value" ]; then
                    echo "FAIL: the forms of $target are not generated yet; build the project first" >&2
                    exit 1
                fi
                escape "-I$value"
                ;;
            option)
                case "$value" in
                -fPIC | -fPIE | -pthread) ;; # meaningless for a PE image
                *) escape "$value" ;;
                esac
                ;;
            standard) standard=$value ;;
            esac
        done < <(cat "$description" "$qt_modules")
        escape "-std=c++$standard"
    } >"$flags"

    directory=$(sed -n 's/^directory //p' "$description")
    [ -n "${directory_flags[$directory]:-}" ] || directory_flags[$directory]=$flags

    while IFS= read -r source; do
        case "$source" in
        "$source_dir"/src/* | "$source_dir"/tools/*) ;;
        *) continue ;;
        esac
        if [[ "$source" == *_unix.cpp ]]; then
            windows=${source%_unix.cpp}_win.cpp
            if [ ! -f "$windows" ]; then
                failures+=("${source#"$source_dir"/}: no Windows variant ${windows#"$source_dir"/}")
                continue
            fi
            source=$windows
        fi
        is_linux_only "$source" && continue
        planned[$source]=$flags
    done < <(sed -n 's/^source //p' "$description")
done

while IFS= read -r source; do
    is_linux_only "$source" && continue
    [ -n "${planned[$source]:-}" ] && continue
    directory=$(dirname "$source")
    while [ -z "${directory_flags[$directory]:-}" ] && [ "$directory" != "$source_dir" ]; do
        directory=$(dirname "$directory")
    done
    if [ -z "${directory_flags[$directory]:-}" ]; then
        failures+=("${source#"$source_dir"/}: no CMake target in its folder or above")
        continue
    fi
    planned[$source]=${directory_flags[$directory]}
done < <(find "$source_dir/src" "$source_dir/tools" -name '*.cpp' | sort)

jobs="$work/jobs.txt"
for source in "${!planned[@]}"; do
    printf '%s\t%s\n' "${planned[$source]}" "$source"
done | sort -k2 >"$jobs"

compile_one() {
    local flags=${1%%$'\t'*} source=${1#*$'\t'}
    local log="$work/logs/$(printf '%s' "${source#"$source_dir"/}" | tr '/' '_').log"
    if "$compiler" @"$flags" -Werror -fsyntax-only "$source" >"$log" 2>&1; then
        rm -f "$log"
        echo "ok   ${source#"$source_dir"/}"
    else
        echo "FAIL ${source#"$source_dir"/}"
    fi
}
export -f compile_one
export compiler work source_dir

results="$work/results.txt"
tr '\n' '\0' <"$jobs" | xargs -0 -P "$(nproc)" -I{} bash -c 'compile_one "$1"' _ {} | tee "$results"

for log in "$work"/logs/*.log; do
    [ -e "$log" ] || continue
    echo "---- $(basename "$log" .log)"
    cat "$log"
done
for failure in "${failures[@]}"; do
    echo "FAIL $failure"
done

passed=$(grep -c '^ok ' "$results" || true)
failed=$(($(grep -c '^FAIL ' "$results" || true) + ${#failures[@]}))
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
