#!/usr/bin/env bash
# Builds tst_windows_win32.exe (the Win32 cores of src/platform and the
# launcher's resources) with the project's mingw-w64 toolchain file, and runs
# it under Wine on a virtual X server.
#
# Usage: run-wine-tests.sh SOURCE_DIR
# The Wine prefix is kept in WINDOWS_TEST_WORKDIR, so only the first run pays
# for Wine's start-up.
#
# Wine's own processes inherit whatever this script hands them: its output
# goes to files, never to a pipe, which wineserver would hold open.
set -euo pipefail

source_dir=$(cd "$1" && pwd)
triplet=x86_64-w64-mingw32

for tool in "$triplet-g++-posix" "$triplet-windres" wine; do
    if ! command -v "$tool" >/dev/null 2>&1; then
        echo "SKIP: $tool is not installed (apt-get install g++-mingw-w64-x86-64-posix wine wine64)"
        exit 77
    fi
done

work=${WINDOWS_TEST_WORKDIR:-$(mktemp -d)}

if ! command -v Xvfb >/dev/null 2>&1; then
    echo "FAIL: Xvfb is not installed (apt-get install xvfb)"
    exit 1
fi

mkdir -p "$work"
build="$work/win32"
log="$work/build.log"
if ! {
    cmake -S "$source_dir/tests/windows/win32" -B "$build" \
        -DCMAKE_TOOLCHAIN_FILE="$source_dir/cmake/mingw-w64-x86_64.cmake" -DCMAKE_BUILD_TYPE=Release &&
        cmake --build "$build"
} >"$log" 2>&1; then
    cat "$log"
    echo "FAIL: the Windows test program does not build"
    exit 1
fi

# MSVC embeds the manifest through its linker; the .rc must then leave it out.
"$triplet-windres" -DLAUNCHER_MANIFEST_BY_LINKER -O res "$source_dir/src/app/launcher.rc" "$work/linker.res"
"$triplet-windres" -J res -O rc "$work/linker.res" "$work/linker.rc"
status=0
if grep -q 'RT_MANIFEST' "$work/linker.rc"; then
    echo "FAIL manifest: the .rc still carries the manifest when the linker embeds it"
    status=1
else
    echo "PASS manifest: left to the linker where it embeds it"
fi

export WINEPREFIX="$work/wineprefix"
export WINEDEBUG=-all
# No prompts to install Wine's .NET and HTML engines.
export WINEDLLOVERRIDES="mscoree=;mshtml="

display_file="$work/display"
Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$display_file" >"$work/xvfb.log" 2>&1 &
xvfb=$!
cleanup() {
    timeout 30 wineserver -k >/dev/null 2>&1 || true
    kill "$xvfb" 2>/dev/null || true
}
trap cleanup EXIT
for _ in $(seq 100); do
    [ -s "$display_file" ] && break
    sleep 0.1
done
export DISPLAY=":$(head -n1 "$display_file")"

if [ ! -f "$work/wineprefix.ready" ]; then
    rm -rf "$WINEPREFIX"
    timeout 120 wineboot --init >"$work/wineboot.log" 2>&1
    # Wine marks dot-files hidden unless told not to; Windows does not.
    timeout 60 wine reg add 'HKCU\Software\Wine' /v ShowDotFiles /d Y /f >>"$work/wineboot.log" 2>&1
    timeout 60 wineserver -w
    touch "$work/wineprefix.ready"
fi

report="$work/report.txt"
result=0
timeout 150 wine "$build/tst_windows_win32.exe" >"$report" 2>&1 || result=$?
cat "$report"
if [ "$result" -eq 124 ]; then
    echo "FAIL: the Windows test program did not end"
fi
[ "$result" -eq 0 ] && [ "$status" -eq 0 ]
