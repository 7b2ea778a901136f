#!/usr/bin/env bash
# Builds the launcher and starts it.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build --parallel "$(nproc)" --target launcher

if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
    echo "No display to show the launcher on (DISPLAY is not set)." >&2
    exit 1
fi
exec build/bin/launcher "$@"
