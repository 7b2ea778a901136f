#!/usr/bin/env bash
# Builds the launcher against a local patch server and starts it: a sample
# game is generated, published and served by nginx on 127.0.0.1, and the
# launcher installs, updates and starts it like the real game.
# Ctrl-C stops everything it started.
set -euo pipefail
cd "$(dirname "$0")/.."

port=${DEMO_PORT:-8642}
size_mib=${DEMO_SIZE_MIB:-160}
rate=${DEMO_RATE:-0}

if [ -z "${DISPLAY:-}" ]; then
    echo "No display to show the launcher on. Run it on a desktop, or under Xvfb: xvfb-run -s '-screen 0 1600x1000x24' $0" >&2
    exit 1
fi
if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
    echo "Port $port is taken; choose another with DEMO_PORT=..." >&2
    exit 1
fi

scripts/install-deps.sh

# The configuration is compiled in, so the demo has a build of its own.
mkdir -p build-demo
cat > build-demo/demo-settings.json <<JSON
{
    "version": "dev",
    "applicationName": "Hollowmere Demo",
    "companyName": "Brindlewood Works",
    "companyUrl": "https://www.brindlewood.example",
    "manifestFile": "checksums.txt.gz",
    "updateUrl": "http://127.0.0.1:$port/hollowmere_demo",
    "executableName": "hollowmere_dx.exe",
    "logoImage": "hm_logo.png",
    "autoUpdate": true,
    "legacyDir": "Hollowmere/hollowmere",
    "updaterExecutable": "updater.exe",
    "launcherExecutable": "launcher.exe",
    "launcherUpdateUrl": "http://127.0.0.1:$port/hm_launcher_manifest.json",
    "newsUrl": "http://127.0.0.1:$port/api/news",
    "defaultPaths": {
        "windows": "%ProgramFiles(x86)%/{companyName}/{applicationName}",
        "other": "{appData}/{companyName}/{applicationName}"
    },
    "categories": $(python3 -c 'import json;print(json.dumps(json.load(open("resources/settings_dev.json"))["categories"]))' 2>/dev/null || echo '[]')
}
JSON
cmake -S . -B build-demo -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLAUNCHER_BUILD_TESTS=OFF \
    -DLAUNCHER_SETTINGS_FILE="$PWD/build-demo/demo-settings.json"
cmake --build build-demo --parallel "$(nproc)" --target launcher launcher-publish sample-game

root=$(mktemp -d /tmp/launcher-demo.XXXXXX)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$root"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

game="$root/www/hollowmere_demo"
demo/make-sample-game.sh "$game" build-demo/bin/sample-game hollowmere_dx.exe "Hollowmere Demo" "$size_mib"
build-demo/bin/launcher-publish --binary hollowmere_dx.exe --output "$game/checksums.txt.gz" "$game"
demo/make-news.sh "$root/www" "http://127.0.0.1:$port"

sed -e "s|@ROOT@|$root|g" -e "s|@PORT@|$port|g" -e "s|@RATE@|$rate|g" demo/nginx.conf.in > "$root/nginx.conf"
nginx -p "$root" -c "$root/nginx.conf" &
pids+=($!)
for _ in $(seq 50); do
    (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && break
    sleep 0.1
done

echo "Patch server: http://127.0.0.1:$port/hollowmere_demo (files in $game)"
echo "Change a file there and run: build-demo/bin/launcher-publish --output $game/checksums.txt.gz $game"
build-demo/bin/launcher &
pids+=($!)
wait "${pids[-1]}"
